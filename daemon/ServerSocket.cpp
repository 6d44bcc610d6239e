#include <dlfcn.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

/// The HTTP library sends an answer without any limit of time: a client that does not take it would
/// hold one of a port's 15 places, and the stop of the daemon, for ever. A connection whose bytes
/// stay untaken for so long is cut by the kernel. As long as the library lets a client be idle.
constexpr unsigned kLongestSend = 15000;  // ms

}  // namespace

/// Stands before the C library's function of this name, for want of an option of the HTTP library.
/// Connections inherit the limit of the socket that they came in by.
extern "C" int listen(int fd, int n) noexcept {
    using Listen = int (*)(int, int);
    static const auto next = reinterpret_cast<Listen>(dlsym(RTLD_NEXT, "listen"));
    (void)setsockopt(fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &kLongestSend, sizeof kLongestSend);
    return next(fd, n);
}
