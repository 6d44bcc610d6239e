#include "doctor/ThisMachine.h"

#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>

namespace tavrik {

namespace {

struct AddressDeleter {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};

/// The kernel lets a socket have an address of this machine only.
bool IsOurs(const addrinfo& address) {
    const int descriptor = socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (descriptor == -1) {
        return false;
    }
    const bool isOurs = bind(descriptor, address.ai_addr, address.ai_addrlen) == 0;
    close(descriptor);
    return isOurs;
}

}  // namespace

bool IsThisMachine(const std::string& host) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;  // the daemon has no other
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0) {
        return false;
    }
    const std::unique_ptr<addrinfo, AddressDeleter> list(found);
    return IsOurs(*list);
}

}  // namespace tavrik
