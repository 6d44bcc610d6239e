#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned kLongestSend = 40000;  // ms

unsigned UserTimeout(int socket) {
    unsigned timeout = 0;
    socklen_t size = sizeof timeout;
    EXPECT_EQ(getsockopt(socket, IPPROTO_TCP, TCP_USER_TIMEOUT, &timeout, &size), 0);
    return timeout;
}

bool SendsAtOnce(int socket) {
    int on = 0;
    socklen_t size = sizeof on;
    EXPECT_EQ(getsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, &size), 0);
    return on != 0;
}

}  // namespace

TEST(ListeningSocketTest, ConnectionsInheritTheOptionsOfTheListeningSocket) {
    const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    auto* const anyAddress = reinterpret_cast<sockaddr*>(&address);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(server, anyAddress, size), 0);
    ASSERT_EQ(getsockname(server, anyAddress, &size), 0);
    EXPECT_EQ(UserTimeout(server), 0U);
    ASSERT_EQ(listen(server, 1), 0);
    EXPECT_EQ(UserTimeout(server), kLongestSend);

    const int client = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(client, anyAddress, size), 0);
    const int connection = accept4(server, nullptr, nullptr, SOCK_CLOEXEC);
    ASSERT_NE(connection, -1);
    EXPECT_EQ(UserTimeout(connection), kLongestSend);
    EXPECT_TRUE(SendsAtOnce(connection));
    EXPECT_FALSE(SendsAtOnce(client));
    EXPECT_EQ(UserTimeout(client), 0U);
    for (const int descriptor : {connection, client, server}) {
        close(descriptor);
    }
}
