#include "bench/LoadConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

#include "bench/BadAnswer.h"

namespace bench {

namespace {

constexpr timeval kLongestSilence{.tv_sec = 10, .tv_usec = 0};

[[noreturn]] void ThrowSystemError(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

LoadConnection::LoadConnection(unsigned port, const std::string& httpRequest)
    : socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)), request(httpRequest) {
    const int on = 1;
    setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &kLongestSilence, sizeof kLongestSilence);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ThrowSystemError("connect");
    }
}

std::string_view LoadConnection::Call() {
    Send();
    answer.Clear();
    bool complete = false;
    while (!complete) {
        const auto room = answer.Room();
        const ssize_t count = recv(socket.Get(), room.data(), room.size(), 0);
        if (count == 0) {
            throw BadAnswer("the server has closed the connection");
        }
        if (count < 0) {
            ThrowSystemError("recv");
        }
        complete = answer.Take(static_cast<std::size_t>(count));
    }
    return answer.Body();
}

void LoadConnection::Send() {
    const ssize_t count = send(socket.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    if (count != static_cast<ssize_t>(request.size())) {
        ThrowSystemError("send");
    }
}

}  // namespace bench
