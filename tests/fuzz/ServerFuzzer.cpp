// Fuzzes the HTTP and XML that a client sends to a running server with an HVA and an MZD gripper.
//
// An input that begins with "<" is the XML of one call and is sent with the required HTTP headers.
// Any other input is sent unchanged; the fuzzer then waits until the server closes the connection.

#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/fuzz/Connection.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/unit/daemon/GripperCell.h"
#include "tests/unit/daemon/RunningServer.h"

namespace {

constexpr timeval kPatience{.tv_sec = 60, .tv_usec = 0};

/// Never destroyed, because the server's threads run until the process ends.
class World {
public:
    World()
        : hva(cell.Plug("HVA", "1")),
          mzd(cell.Plug("MZD-S", "2")),
          server(&GripperCell::Manager()) {}
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    /// Sends `request` on a new connection.
    /// @return the whole response
    std::string Exchange(const std::string& request) const {
        const int client = ConnectTo(static_cast<std::uint16_t>(server.Port()), kPatience);
        ::send(client, request.data(), request.size(), MSG_NOSIGNAL);
        ::shutdown(client, SHUT_WR);
        std::string answer = ReceiveAll(client);
        ::close(client);
        return answer;
    }

    /// Frees what the input has left in the fake masters and the log capture.
    void Forget() {
        hva.ClearRequests();
        mzd.ClearRequests();
        cell.Log().Clear();
    }

private:
    static std::string ReceiveAll(int client) {
        std::string answer;
        std::array<char, 4096> buffer;
        for (;;) {
            const ssize_t count = ::recv(client, buffer.data(), buffer.size(), 0);
            if (count < 0 && errno == EINTR) {  // the fuzzer's timer signal
                continue;
            }
            if (count <= 0) {
                Require(count == 0 || errno == ECONNRESET, "the server ends the connection");
                return answer;
            }
            answer.append(buffer.data(), static_cast<std::size_t>(count));
        }
    }

    GripperCell cell;
    support::FakeMaster& hva;
    support::FakeMaster& mzd;
    const RunningServer server;
};

std::string WithHeaders(const std::string& xml) {
    return "POST /RPC2 HTTP/1.1\r\nHost: localhost\r\nContent-Type: text/xml\r\nContent-Length: " +
           std::to_string(xml.size()) + "\r\n\r\n" + xml;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World& world = *new World;
    const std::string input(data, data + size);
    if (input.starts_with('<')) {
        const std::string answer = world.Exchange(WithHeaders(input));
        Require(
            answer.starts_with("HTTP/1.1 200 OK\r\n") && answer.ends_with("</methodResponse>\r\n"),
            "every call has its answer, a value or a fault");
    } else {
        const std::string answer = world.Exchange(input);
        Require(answer.empty() || answer.starts_with("HTTP/1."), "an answer is HTTP");
    }
    world.Forget();
    return 0;
}
