// The library: has no options for its sockets, and sends an answer without any limit of time.
// Without this: a client that does not take its answer holds one of a port's 15 places, and the
// stop of the daemon, for ever; the end of a large answer waits for the client's acknowledgement
// of its beginning, which may be delayed.
// Shown by: ListeningSocketTest.
// Can go: when the library has options for both.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include "common/NextFunction.h"

namespace {

/// The kernel ends a connection when the client has acknowledged nothing for this long. Longer than
/// a usual network failure, and shorter than the time that a service has to stop.
constexpr unsigned kLongestSend = 40000;  // ms

}  // namespace

/// Connections inherit the options of the socket that they came in by.
extern "C" int listen(int fd, int n) noexcept {
    static auto* const next = fence::NextFunction<decltype(listen)>("listen");
    constexpr int kOn = 1;
    (void)setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &kLongestSend, sizeof kLongestSend);
    (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &kOn, sizeof kOn);
    return next(fd, n);
}
