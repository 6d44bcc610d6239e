#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>

#include "tests/support/LogCapture.h"
#include "tests/unit/daemon/RunningServer.h"

namespace {

/// @return everything that the server on `port` sends after `request`, until it closes
std::string AnswerTo(const std::string& request, unsigned port) {
    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    send(client, request.data(), request.size(), MSG_NOSIGNAL);
    shutdown(client, SHUT_WR);
    std::string answer;
    std::array<char, 4096> buffer;
    for (ssize_t count = 0; (count = recv(client, buffer.data(), buffer.size(), 0)) > 0;) {
        answer.append(buffer.data(), static_cast<std::size_t>(count));
    }
    close(client);
    return answer;
}

/// @return bytes that 300 requests leak, measured after 300 others. With a sanitizer this is not
///         measured; the leak sanitizer then checks the same requests.
std::int64_t LeftBehind(const std::string& request, const std::string& status) {
    const support::LogCapture log;
    const RunningServer server;
    const auto send300 = [&] {
        for (int i = 0; i < 300; ++i) {
            EXPECT_TRUE(AnswerTo(request, server.Port()).starts_with("HTTP/1.1 " + status));
        }
        return static_cast<std::int64_t>(mallinfo2().uordblks);
    };
    const std::int64_t before = send300();
    return send300() - before;
}

constexpr std::int64_t kFlat = 100'000;  // bytes; 300 leaked requests of 3 KB would be 900,000

const std::string kLongPath = "/" + std::string(3000, 'x');

}  // namespace

TEST(RequestInfoTest, InvalidHeaderLineLeaksNoMemory) {
    EXPECT_LT(LeftBehind("POST " + kLongPath + " HTTP/1.1\r\nHost:x\r\n\r\n", "400"), kFlat);
}

TEST(RequestInfoTest, HostAndQueryBeforeAnInvalidHeaderLineLeakNoMemory) {
    const std::string host(1500, 'h');
    const std::string query(1500, 'q');
    EXPECT_LT(
        LeftBehind("POST http://" + host + "/x?" + query + " HTTP/1.1\r\nHost:x\r\n\r\n", "400"),
        kFlat);
}

TEST(RequestInfoTest, HostBeforeAnInvalidQueryLeaksNoMemory) {
    const std::string uri = "http://" + std::string(1500, 'h') + "/x?";
    for (const std::string query : {"%zz", "%", "%1", "a%2"}) {
        std::string request = "POST " + uri;
        request += query + " HTTP/1.1\r\n\r\n";
        EXPECT_LT(LeftBehind(request, "400"), kFlat) << query;
    }
}

TEST(RequestInfoTest, UriWithAHostIsAnswered) {
    const support::LogCapture log;
    const RunningServer server;
    for (const std::string uri : {"http://h/RPC2", "http://h:1/RPC2?%20", "/RPC2?%41%42"}) {
        const std::string answer = AnswerTo("GET " + uri + " HTTP/1.1\r\n\r\n", server.Port());
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 405 ")) << uri;
    }
}

TEST(RequestInfoTest, InvalidPortOfTheHostIsABadRequest) {
    const support::LogCapture log;
    const RunningServer server;
    for (const std::string host : {"h:x", "h:", "h:1x", ":"}) {
        const std::string answer =
            AnswerTo("POST /RPC2 HTTP/1.1\r\nHost: " + host + "\r\n\r\n", server.Port());
        EXPECT_TRUE(answer.starts_with("HTTP/1.1 400 Bad Request\r\n")) << host;
    }
}

TEST(RequestInfoTest, QueryAfterThePathLeaksNoMemory) {
    EXPECT_LT(
        LeftBehind("GET /x?" + std::string(3000, 'q') + " HTTP/1.1\r\nHost: h\r\n\r\n", "404"),
        kFlat);
}
