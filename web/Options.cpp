#include "web/Options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <charconv>
#include <cstdlib>
#include <fstream>

#include "client/Failure.h"
#include "client/Printable.h"
#include "common/Version.h"

namespace tavrik {

namespace {

constexpr const char* kServiceFolder = "/run/tavrikweb";

std::string Environment(const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): before threads
    return value == nullptr ? "" : value;
}

/// "ADDRESS:PORT", an IPv6 address in brackets.
ListenAddress ParseListen(const std::string& text) {
    ListenAddress address;
    const std::size_t colon = text.rfind(':');
    const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
    address.host = text.substr(0, colon);
    if (address.host.starts_with('[') && address.host.ends_with(']')) {
        address.host = address.host.substr(1, address.host.size() - 2);
    }
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (address.host.empty() || address.port == 0 || error != std::errc() ||
        end != port.data() + port.size()) {
        throw Failure(ExitStatus::Usage,
                      "invalid address '" + Printable(text) + "': must be ADDRESS:PORT");
    }
    return address;
}

}  // namespace

Options ParseOptions(int argc, const char* const* argv) {
    Options options;
    std::string listen;
    CLI::App app("Serve a page that shows the grippers of a TavrikDaemon, and metrics.",
                 "tavrikweb");
    constexpr std::size_t kOptionWidth = 24;
    app.get_formatter()->column_width(kOptionWidth);
    app.set_version_flag("--version", "tavrikweb " TAVRIK_VERSION);
    app.add_option("--listen", listen, "address to listen on (default: 127.0.0.1:44280)")
        ->option_text("ADDRESS:PORT");
    app.add_option("--host", options.site.daemon.host,
                   "host name or address of the daemon (default: 127.0.0.1)")
        ->option_text("HOST");
    app.add_option("--origin", options.site.origins,
                   "additional address of the page in browsers, such as\n"
                   "https://cell.example")
        ->option_text("URL");
    app.add_flag("--allow-control", options.site.allowControl,
                 "let users who enter the code move the grippers");
    app.add_flag("--code", options.showCode, "print the code of the running tavrikweb");
    app.add_option("--log", options.site.log, "file with the daemon's log (default: the journal)")
        ->option_text("FILE");
    app.add_option("--assets", options.site.assets, "folder with the files of the page")
        ->option_text("FOLDER");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForVersion& version) {
        options.help = std::string(version.what()) + "\n";
    } catch (const CLI::Success&) {
        options.help = app.help();
    } catch (const CLI::ParseError& error) {
        throw Failure(ExitStatus::Usage, std::string(error.what()) + "; see tavrikweb --help");
    }
    if (!listen.empty()) {
        options.listen = ParseListen(listen);
    }
    options.site.daemon.port = kPorts[1];  // the first one is the robot's
    if (options.site.assets.empty()) {
        options.site.assets = TAVRIK_WEB_ASSETS;
    }
    return options;
}

std::string CodeFile(std::uint16_t port) {
    const std::string name = "/code-" + std::to_string(port);
    if (const std::string folder = Environment("RUNTIME_DIRECTORY"); !folder.empty()) {
        return folder + name;
    }
    const std::string folder = Environment("XDG_RUNTIME_DIR");
    return folder.empty() ? "" : folder + "/tavrikweb" + name;
}

std::string ReadCode(std::uint16_t port) {
    for (const std::string& path :
         {CodeFile(port), kServiceFolder + std::string("/code-") + std::to_string(port)}) {
        std::ifstream file(path);
        if (std::string code; !path.empty() && std::getline(file, code)) {
            return code;
        }
    }
    throw Failure(ExitStatus::Failed, "no tavrikweb with --allow-control runs on port " +
                                          std::to_string(port) + " of this machine");
}

}  // namespace tavrik
