#include "bench/LoadConnection.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
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
        complete = answer.Take(Receive(answer.Room()));
    }
    return answer.Body();
}

void LoadConnection::NoteArrivals() {
    const int on = 1;
    if (setsockopt(socket.Get(), SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on) != 0) {
        ThrowSystemError("SO_TIMESTAMPNS");
    }
}

/// @return the number of bytes
std::size_t LoadConnection::Receive(std::span<char> room) {
    iovec part{room.data(), room.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(timespec))> control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    ssize_t count = 0;
    do {
        count = recvmsg(socket.Get(), &message, 0);
    } while (count < 0 && errno == EINTR);  // SIGSTOP ends a wait that has a timeout
    if (count == 0) {
        throw BadAnswer("the server has closed the connection");
    }
    if (count < 0) {
        ThrowSystemError("recvmsg");
    }
    if (const cmsghdr* const noted = CMSG_FIRSTHDR(&message)) {
        timespec time{};
        std::memcpy(&time, CMSG_DATA(noted), sizeof time);
        arrival = std::chrono::system_clock::time_point(std::chrono::seconds(time.tv_sec) +
                                                        std::chrono::nanoseconds(time.tv_nsec));
    }
    return static_cast<std::size_t>(count);
}

void LoadConnection::Send() {
    const ssize_t count = send(socket.Get(), request.data(), request.size(), MSG_NOSIGNAL);
    if (count != static_cast<ssize_t>(request.size())) {
        ThrowSystemError("send");
    }
}

}  // namespace bench
