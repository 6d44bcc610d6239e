// bare-server PORT...: the XML-RPC library with the daemon's options and two methods that return a
// constant. The cost of a call is the library's own.

#include <unistd.h>

#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>
#include <xmlrpc-c/server_abyss.hpp>

namespace {

class GetPos : public xmlrpc_c::method {
public:
    GetPos() {
        _signature = "d:S";
        _help = "";
    }

    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override {
        params.getString(0);
        params.verifyEnd(1);
        *result = xmlrpc_c::value_double(25.0);
    }
};

class Grip : public xmlrpc_c::method {
public:
    Grip() {
        _signature = "i:Si";
        _help = "";
    }

    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override {
        params.getString(0);
        params.getInt(1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max());
        params.verifyEnd(2);
        *result = xmlrpc_c::value_int(0);
    }
};

/// One port with a registry of its own, as in the daemon.
class BareServer {
public:
    /// Listens, but does not serve before run().
    /// @throws std::exception if the port cannot be bound
    explicit BareServer(unsigned port) {
        registry.addMethod("GetPos", xmlrpc_c::methodPtr(new GetPos));
        registry.addMethod("Grip", xmlrpc_c::methodPtr(new Grip));
        xmlrpc_c::serverAbyss::constrOpt options;  // named: the library's copy constructor crashes
        options.portNumber(port);
        options.registryP(&registry);
        options.keepaliveMaxConn(std::numeric_limits<std::uint32_t>::max());
        options.serverOwnsSignals(false);  // SIGINT is waited for in main()
        abyss = std::make_unique<xmlrpc_c::serverAbyss>(options);
    }

    void run() { abyss->run(); }
    void terminate() { abyss->terminate(); }

private:
    xmlrpc_c::registry registry;
    std::unique_ptr<xmlrpc_c::serverAbyss> abyss;
};

unsigned ParsePort(const std::string& text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument("not a port: " + text);
    }
    return port;
}

/// Serves on all ports until SIGINT.
void Serve(const std::vector<std::string>& ports) {
    std::signal(SIGPIPE, SIG_IGN);  // clients hang up at any time
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);

    std::deque<BareServer> servers;
    for (const std::string& port : ports) {
        servers.emplace_back(ParsePort(port));
    }
    std::deque<std::jthread> threads;
    for (BareServer& server : servers) {
        threads.emplace_back(&BareServer::run, &server);
    }
    constexpr std::string_view kStarted = "started\n";
    [[maybe_unused]] const auto written = write(STDOUT_FILENO, kStarted.data(), kStarted.size());

    int signal = 0;
    sigwait(&interrupt, &signal);
    for (BareServer& server : servers) {
        server.terminate();
    }
}

}  // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 1) {
            throw std::invalid_argument("no PORT given");
        }
        Serve({argv + 1, argv + argc});
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bare-server: error: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
