#include "tests/unit/daemon/RunningServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <iterator>

#include <xmlrpc-c/client.hpp>
#include <xmlrpc-c/client_transport.hpp>

#include "daemon/Process.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/daemon/Values.h"

namespace {

constexpr std::array<unsigned, 2> kDaemonPorts{44221, 44222};

/// @return a socket that is bound, but does not listen: a server with SO_REUSEADDR may listen at
/// its
///         port, and the kernel gives the port to no other program that asks for any
int ReservePort() {
    const int reservation = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    ::setsockopt(reservation, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in any{};
    any.sin_family = AF_INET;
    EXPECT_EQ(::bind(reservation, reinterpret_cast<const sockaddr*>(&any), sizeof any), 0);
    return reservation;
}

unsigned PortOf(int socket) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
    return ntohs(address.sin_port);
}

xmlrpc_c::rpcOutcome CallOnce(const std::string& url, const std::string& method,
                              const xmlrpc_c::paramList& parameters) {
    xmlrpc_c::clientXmlTransport_curl transport;
    xmlrpc_c::client_xml client(&transport);
    xmlrpc_c::carriageParm_curl0 carriage(url);
    xmlrpc_c::rpcOutcome outcome;
    client.call(&carriage, method, parameters, &outcome);
    return outcome;
}

}  // namespace

unsigned FreePort() {
    constexpr std::size_t kMostAtOnce = 4;  // of a test
    static std::deque<int> reservations;
    unsigned port = 0;
    do {
        reservations.push_back(ReservePort());
        port = PortOf(reservations.back());
    } while (std::ranges::find(kDaemonPorts, port) != kDaemonPorts.end());
    while (reservations.size() > kMostAtOnce) {
        ::close(reservations.front());
        reservations.pop_front();
    }
    return port;
}

std::ptrdiff_t CountThreads() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

RunningServer::RunningServer(GripperManager* manager)
    : server(manager, FreePort()), thread([this] {
          TavrikDaemon::runServer(&server);
          returned = true;
      }) {
    EXPECT_TRUE(
        support::WaitFor([this] { return Answer("GetVersion", {}).starts_with("string"); }));
}

RunningServer::~RunningServer() {
    server.terminate();
    thread.join();
}

xmlrpc_c::rpcOutcome RunningServer::Call(const std::string& method,
                                         const xmlrpc_c::paramList& parameters) const {
    const std::ptrdiff_t threads = CountThreads();
    xmlrpc_c::rpcOutcome outcome =
        CallOnce("http://127.0.0.1:" + std::to_string(Port()) + "/RPC2", method, parameters);
    EXPECT_TRUE(support::WaitFor([&] { return CountThreads() <= threads; }));
    return outcome;
}

std::string RunningServer::Answer(const std::string& method,
                                  const xmlrpc_c::paramList& parameters) const {
    try {
        const xmlrpc_c::rpcOutcome outcome = Call(method, parameters);
        return outcome.succeeded() ? values::Describe(outcome.getResult())
                                   : "fault " + outcome.getFault().getDescription();
    } catch (const std::exception& unreachable) {
        return std::string("no answer: ") + unreachable.what();
    }
}

bool RunningServer::WaitUntilReturned() const {
    return support::WaitFor([this] { return HasReturned(); });
}
