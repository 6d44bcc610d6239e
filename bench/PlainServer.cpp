// plain-server PORT...: answers each request with the bytes of the daemon's answer to GetPos: the
// lower bound for a server with a thread for each connection.

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>

#include "simulator/FileDescriptor.h"

namespace {

using simulator::Checked;
using simulator::FileDescriptor;

constexpr std::string_view kRequestEnd = "</methodCall>";
constexpr std::string_view kAnswer =
    "HTTP/1.1 200 OK\r\n"
    "Content-type: text/xml; charset=utf-8\r\n"
    "Content-length: 149\r\n"
    "Connection: Keep-Alive\r\n"
    "Keep-Alive: timeout=15, max=4294967295\r\n"
    "Date: Sun, 22 Nov 2026 06:15:59 UTC\r\n"
    "Server: Xmlrpc-c_Abyss/1.33.14\r\n"
    "\r\n"
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<methodResponse>\r\n"
    "<params>\r\n"
    "<param><value><double>25</double></value></param>\r\n"
    "</params>\r\n"
    "</methodResponse>\r\n";

/// @throws std::system_error if the port cannot be bound
FileDescriptor Listen(std::uint16_t port) {
    FileDescriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    setsockopt(listener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const std::string name = std::to_string(port);
    Checked(bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            name);
    Checked(listen(listener.Get(), SOMAXCONN), name);
    return listener;
}

/// Returns when the client has hung up or its request is too long.
void ServeClient(const FileDescriptor& client) {
    std::array<char, 4096> request{};
    std::size_t used = 0;
    while (used < request.size()) {
        const ssize_t count = recv(client.Get(), request.data() + used, request.size() - used, 0);
        if (count <= 0) {
            return;
        }
        used += static_cast<std::size_t>(count);
        if (std::string_view(request.data(), used).ends_with(kRequestEnd)) {
            send(client.Get(), kAnswer.data(), kAnswer.size(), MSG_NOSIGNAL);
            used = 0;
        }
    }
}

void Serve(const FileDescriptor& listener) {
    while (true) {
        FileDescriptor client(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        std::thread([client = std::move(client)] { ServeClient(client); }).detach();
    }
}

}  // namespace

/// Serves until a signal ends the process.
int main(int argc, char** argv) {
    try {
        std::vector<std::uint16_t> ports;
        CLI::App app("Answers each request with the bytes of the daemon's answer to GetPos.",
                     "plain-server");
        app.add_option("PORT", ports)->required();
        CLI11_PARSE(app, argc, argv);
        std::deque<FileDescriptor> listeners;
        for (const std::uint16_t port : ports) {
            listeners.push_back(Listen(port));
        }
        std::deque<std::jthread> threads;
        for (const FileDescriptor& listener : listeners) {
            threads.emplace_back([&listener] { Serve(listener); });
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "plain-server: error: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
