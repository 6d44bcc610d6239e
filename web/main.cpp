#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <system_error>

#include "client/Failure.h"
#include "client/Printable.h"
#include "common/LogLine.h"
#include "common/StandardDescriptors.h"
#include "web/Guard.h"
#include "web/Options.h"

namespace {

using tavrik::Failure;

/// The file with the code for control, while this program runs.
class CodeFile {
public:
    CodeFile(std::string path, const std::string& code) : path(std::move(path)) {
        if (this->path.empty() || code.empty()) {
            return;
        }
        const std::filesystem::path file(this->path);
        std::error_code ignored;  // the next line fails then
        std::filesystem::create_directory(file.parent_path(), ignored);
        std::filesystem::remove(file, ignored);
        std::ofstream(file) << code << '\n';
    }
    ~CodeFile() {
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    CodeFile(const CodeFile&) = delete;
    CodeFile& operator=(const CodeFile&) = delete;

private:
    const std::string path;
};

/// The signals that end this program; blocked, so that only AwaitSignal() gets them.
sigset_t BlockSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int each : {SIGINT, SIGTERM, SIGHUP}) {
        sigaddset(&signals, each);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

void Serve(tavrik::Options options) {
    const sigset_t signals = BlockSignals();  // before any thread
    const auto own = tavrik::Guard::OriginsOf(options.listen);
    options.site.origins.insert(options.site.origins.end(), own.begin(), own.end());
    if (options.site.origins.empty()) {
        throw Failure(tavrik::ExitStatus::Usage,
                      "browsers would be refused: name the address that they use with --origin");
    }
    tavrik::Site site(options.site);
    const tavrik::HttpServer server(options.listen, site);
    const CodeFile file(tavrik::CodeFile(options.listen.port), site.Code());
    LogLine() << "Serving " << options.site.origins.front() << " for the daemon at "
              << options.site.daemon.Address();
    if (!site.Code().empty()) {
        LogLine() << "Control is allowed; to show the code: tavrikweb --code";
        if (isatty(STDOUT_FILENO) == 1) {
            std::cout << "Code: " << site.Code() << std::endl;  // not in a log
        }
    }
    int received = 0;
    sigwait(&signals, &received);
    LogLine() << "Stopping";
}

int Run(int argc, const char* const* argv) {
    const tavrik::Options options = tavrik::ParseOptions(argc, argv);
    if (!options.help.empty()) {
        std::cout << options.help << std::flush;
    } else if (options.showCode) {
        std::cout << tavrik::ReadCode(options.listen.port) << std::endl;
    } else {
        Serve(options);
    }
    return std::cout ? EXIT_SUCCESS : static_cast<int>(tavrik::ExitStatus::Failed);
}

}  // namespace

int main(int argc, char** argv) {
    KeepStandardDescriptors(O_RDONLY);  // lost output is a failure
    tavrik::ExitStatus status = tavrik::ExitStatus::Failed;
    std::string reason;
    try {
        return Run(argc, argv);
    } catch (const Failure& failure) {
        status = failure.Status();
        reason = failure.what();
    } catch (const std::exception& error) {
        reason = error.what();
    }
    std::cerr << "tavrikweb: " << tavrik::Printable(reason) << '\n';
    return static_cast<int>(status);
}
