// The library: has no options for its sockets and no timeout for sending a response.
// Without this: a client that does not read its response keeps one of a port's 15 connections, and
// delays the stop of the daemon, forever. The end of a large response waits for the client's
// acknowledgement of its beginning, which TCP may delay.
// Shown by: ListeningSocketTest.
// Can go: when the library has options for both.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "common/NextFunction.h"

namespace {

/// The kernel closes a connection if the client acknowledges nothing for this long. Longer than a
/// usual network failure and shorter than the stop timeout of a service.
constexpr unsigned kLongestSend = 40000;  // ms

}  // namespace

/// Sets the options on the listening socket, because accepted connections inherit them.
extern "C" int listen(int fd, int n) noexcept {
    static auto* const next = fence::NextFunction<decltype(listen)>("listen");
    constexpr int kOn = 1;
    (void)setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &kLongestSend, sizeof kLongestSend);
    (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
    return next(fd, n);
}
