#include "tests/unit/daemon/RunningServer.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <filesystem>
#include <iterator>

#include <xmlrpc-c/client.hpp>
#include <xmlrpc-c/client_transport.hpp>

#include "daemon/Process.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/daemon/Values.h"

namespace {

constexpr std::array<unsigned, 2> kDaemonPorts{44221, 44222};

unsigned AnyPort() {
    const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    EXPECT_EQ(::bind(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
    ::close(probe);
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
    unsigned port = AnyPort();
    while (port == kDaemonPorts[0] || port == kDaemonPorts[1]) {
        port = AnyPort();
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
