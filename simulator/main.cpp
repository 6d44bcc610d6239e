#include <dlfcn.h>
#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "simulator/Cell.h"
#include "simulator/ChildProcess.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/CommandReader.h"
#include "simulator/Options.h"
#include "simulator/Testbed.h"
#include "simulator/UsageError.h"

namespace simulator {
namespace {

constexpr int kUsageStatus = 2;

/// One line with one write, so that it does not mix with what COMMAND writes.
void Print(const std::string& text) {
    const std::string line = "pellix-sim: " + text + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
}

std::vector<Station> BuildStations(const Options& options) {
    std::vector<Station> stations;
    const TimePoint now = Clock::now();
    for (const GripperOption& gripper : options.grippers) {
        MasterSettings settings = options.master;
        settings.id = gripper.id;
        SimulatedMaster master(settings, *gripper.model,
                               Bytes(gripper.product.begin(), gripper.product.end()),
                               Bytes(gripper.serial.begin(), gripper.serial.end()), now);
        if (options.speed) {
            master.Gripper(now).SetSpeed(*options.speed);
        }
        stations.push_back({std::move(master), nullptr});
    }
    return stations;
}

std::string ReadScript(const Options& options) {
    if (!options.scriptPath) {
        return {};
    }
    std::ifstream file(*options.scriptPath);
    if (!file) {
        throw UsageError("cannot read " + *options.scriptPath);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

/// The loader only warns of a library that it cannot preload, and COMMAND would then run on the
/// machine's own devices.
void CheckLibrary(const std::string& library) {
    void* const handle = dlopen(library.c_str(), RTLD_LAZY);
    if (handle == nullptr) {
        throw std::runtime_error("cannot load " + library + "; is umockdev installed?");
    }
    dlclose(handle);
}

/// What the user preloads comes first (a sanitizer's runtime has to), then our own library, which
/// has to stand in front of umockdev's. Ours is named by a link in `folder`: a blank or a colon in
/// the path of our own would end the name too early.
std::string PreloadList(const std::filesystem::path& folder) {
    const std::filesystem::path ownLibrary = folder / PELLIX_SIM_PRELOAD_NAME;
    std::filesystem::create_symlink(
        std::filesystem::read_symlink("/proc/self/exe").parent_path() / PELLIX_SIM_PRELOAD_NAME,
        ownLibrary);
    CheckLibrary(ownLibrary);
    CheckLibrary(UMOCKDEV_PRELOAD_NAME);
    const char* const usersList = std::getenv("LD_PRELOAD");  // NOLINT(concurrency-mt-unsafe)
    const std::string first = usersList == nullptr ? "" : std::string(usersList) + ":";
    return first + ownLibrary.string() + ":" + UMOCKDEV_PRELOAD_NAME;
}

/// The signals that the main thread waits for; all others stay as they are.
sigset_t BlockSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) {
        // A signal that was ignored when we started would never arrive.
        std::signal(number, SIG_DFL);
        sigaddset(&set, number);
    }
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGTTIN, SIG_IGN);
    return set;
}

/// Passes signals on to COMMAND until that has ended.
/// @return its exit status
int AwaitEnd(ChildProcess& child, const sigset_t& signals) {
    while (true) {
        int number = 0;
        sigwait(&signals, &number);
        if (number != SIGCHLD) {
            child.Signal(number);
        } else if (const auto status = child.Collect()) {
            return *status;
        }
    }
}

int Run(const Options& options) {
    const sigset_t signals = BlockSignals();
    const std::string script = ReadScript(options);
    ChildProcess child;
    Testbed testbed;
    const std::string preloadList = PreloadList(testbed.Folder());
    Cell cell(BuildStations(options));
    CommandInterpreter interpreter(cell, testbed, options.ttyStart, Print,
                                   [&child] { return child.Signal(SIGINT); });
    for (std::size_t number = 0; number < cell.Size(); ++number) {
        if (!options.unplugged.contains(number)) {
            interpreter.Plug(number);
        }
    }
    CommandReader reader(script, STDIN_FILENO, [&interpreter](const std::string& line) {
        return interpreter.Execute(line);
    });
    reader.Prepare();
    child.Start(options.command,
                {{"LD_PRELOAD", preloadList}, {"UMOCKDEV_DIR", testbed.Folder().string()}});
    std::thread readerThread([&reader] { reader.Run(); });
    const int status = AwaitEnd(child, signals);
    reader.Stop();
    readerThread.join();
    return status;
}

}  // namespace
}  // namespace simulator

int main(int argc, char** argv) {
    using namespace simulator;
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        const Options options = ParseOptions(arguments);
        if (options.help) {
            [[maybe_unused]] const auto written =
                write(STDOUT_FILENO, kHelpText.data(), kHelpText.size());
            return 0;
        }
        return Run(options);
    } catch (const UsageError& error) {
        Print("usage: " + std::string(error.what()) + "; pellix-sim --help tells more");
        return kUsageStatus;
    } catch (const std::exception& error) {
        Print("error: " + std::string(error.what()));
        return 1;
    }
}
