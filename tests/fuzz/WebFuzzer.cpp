// Fuzzes the HTTP that a browser sends to a running tavrikweb whose daemon cannot be reached.
//
// An input that begins with "{" is the body of a command and is sent with the headers of a page
// that has control. Any other input is sent unchanged; "HOST" in it stands for the server's own.

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
#include "web/HttpServer.h"
#include "web/Site.h"

namespace {

constexpr timeval kPatience{.tv_sec = 25, .tv_usec = 0};
// Of a request that may be incomplete: the server waits 10 s for the rest.
constexpr timeval kShortPatience{.tv_sec = 0, .tv_usec = 20000};
const std::string kHost = "fuzz";

tavrik::SiteOptions Options() {
    tavrik::SiteOptions options;
    options.daemon.port = 1;  // nobody serves there
    options.origins = {"http://" + kHost};
    options.assets = TAVRIK_WEB_PAGE;
    options.log = "/dev/null";  // no journalctl is run
    options.allowControl = true;
    return options;
}

/// Never destroyed, because the server's threads run until the process ends.
class World {
public:
    World() : site(Options()), server({"127.0.0.1", 0}, site) {}

    /// Sends `request` on a new connection, and waits for `patience` for each part of the response.
    /// @return the response, of a stream only the beginning
    std::string Exchange(const std::string& request, timeval patience = kPatience) const {
        const int client = ConnectTo(server.Port(), patience);
        ::send(client, request.data(), request.size(), MSG_NOSIGNAL);
        std::string answer = Receive(client);
        ::close(client);
        return answer;
    }

    std::string Command(const std::string& body) {
        std::string answer = Exchange(Post("/api/command", body, token));
        if (answer.find("you do not have control") != std::string::npos) {
            TakeControl();
            answer = Exchange(Post("/api/command", body, token));
        }
        return answer;
    }

private:
    static std::string Receive(int client) {
        std::string answer;
        std::array<char, 4096> buffer;
        while (answer.find("text/event-stream") == std::string::npos) {
            const ssize_t count = ::recv(client, buffer.data(), buffer.size(), 0);
            if (count < 0 && errno == EINTR) {  // the fuzzer's timer signal
                continue;
            }
            if (count <= 0) {
                Require(count == 0 || errno == ECONNRESET || errno == EAGAIN, "it can be read");
                break;
            }
            answer.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return answer;
    }

    static std::string Post(const std::string& path, const std::string& body,
                            const std::string& token) {
        return "POST " + path + " HTTP/1.1\r\nHost: " + kHost + "\r\nOrigin: http://" + kHost +
               "\r\nX-Tavrik-Page: 1\r\nX-Tavrik-Control: " + token +
               "\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: " +
               std::to_string(body.size()) + "\r\n\r\n" + body;
    }

    void TakeControl() {
        constexpr std::string_view kBegin = R"("token":")";
        constexpr std::size_t kTokenLength = 32;
        const std::string answer =
            Exchange(Post("/api/control/take", R"({"code": ")" + site.Code() + R"("})", ""));
        const std::size_t begin = answer.find(kBegin);
        token =
            begin == std::string::npos ? token : answer.substr(begin + kBegin.size(), kTokenLength);
    }

    tavrik::Site site;
    const tavrik::HttpServer server;
    std::string token;
};

std::string WithHost(std::string text) {
    constexpr std::string_view kPlace = "HOST";
    for (std::size_t at = text.find(kPlace); at != std::string::npos; at = text.find(kPlace, at)) {
        text.replace(at, kPlace.size(), kHost);
    }
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static World& world = *new World;
    const std::string input(data, data + size);
    if (input.starts_with('{')) {
        const std::string answer = world.Command(input);
        Require(answer.starts_with("HTTP/1.1 ") && answer.find("\r\n\r\n") != std::string::npos,
                "every command is answered");
        Require(answer.find(": done") == std::string::npos &&
                    answer.find(": started") == std::string::npos,
                "nothing is done without daemon");
        return 0;
    }
    const std::string answer = world.Exchange(WithHost(input), kShortPatience);
    Require(answer.empty() || answer.starts_with("HTTP/1."), "an answer is HTTP");
    Require(answer.find("Access-Control") == std::string::npos, "no other origin is allowed");
    return 0;
}
