#include "tests/unit/bench/AnsweringServer.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace bench {

AnsweringServer::AnsweringServer(const std::vector<std::string>& texts)
    : listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), answers(texts) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener.Get(), 1) != 0) {
        throw std::system_error(errno, std::generic_category(), "AnsweringServer");
    }
    thread = std::jthread([this] { Serve(); });
}

unsigned AnsweringServer::Port() const {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

void AnsweringServer::Serve() {
    const simulator::FileDescriptor client(accept(listener.Get(), nullptr, nullptr));
    std::array<char, 4096> request{};
    for (const std::string& answer : answers) {
        if (recv(client.Get(), request.data(), request.size(), 0) <= 0) {
            return;
        }
        send(client.Get(), answer.data(), answer.size(), MSG_NOSIGNAL);
    }
    recv(client.Get(), request.data(), request.size(), 0);
}

}  // namespace bench
