#include "bench/LoadClient.h"

#include <gtest/gtest.h>

#include "tests/unit/bench/AnsweringServer.h"
#include "tests/unit/bench/EmptyFile.h"

namespace bench {
namespace {

constexpr std::size_t kWarmUpCalls = LoadClient::kWarmUpCalls;
constexpr std::size_t kManyCalls = 1000;

std::string HttpAnswerOf(const std::string& content) {
    const std::string body = "<value><int>" + content + "</int></value>";
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

LoadClient Connect(const AnsweringServer& server) {
    return {LoadConnection(server.Port(), "POST"), ExpectedValue("0")};
}

void MakeCalls(LoadClient& client, std::int64_t calls) {
    std::latch warmedUp(1);
    std::atomic<std::int64_t> callsLeft = calls;
    client.Run(warmedUp, callsLeft, LoadClient::Clock::duration::max());
}

TEST(LoadClientTest, CountsCallsAfterTheWarmUp) {
    const AnsweringServer server(std::vector(kManyCalls, HttpAnswerOf("0")));
    LoadClient client = Connect(server);
    MakeCalls(client, 7);
    EXPECT_EQ(client.Latencies().size(), 7U);
    EXPECT_EQ(client.Wrong(), 0U);
    EXPECT_EQ(client.FirstWrong(), "");
    std::chrono::nanoseconds sum{};
    for (const auto latency : client.Latencies()) {
        EXPECT_GT(latency.count(), 0);
        sum += latency;
    }
    EXPECT_EQ(sum, client.End() - client.Start()) << "no time between two calls";
}

TEST(LoadClientTest, EndsWithItsTime) {
    constexpr std::chrono::milliseconds kTime{20};
    const AnsweringServer server(std::vector(20 * kManyCalls, HttpAnswerOf("0")));
    LoadClient client = Connect(server);
    std::latch warmedUp(1);
    std::atomic<std::int64_t> callsLeft = std::numeric_limits<std::int64_t>::max();
    client.Run(warmedUp, callsLeft, kTime);
    EXPECT_GE(client.End() - client.Start(), kTime);
    EXPECT_LT(client.End() - client.Latencies().back() - client.Start(), kTime);
    EXPECT_EQ(client.Wrong(), 0U);
}

TEST(LoadClientTest, MeasuresFromTheMastersFin) {
    const AnsweringServer server(std::vector(kManyCalls, HttpAnswerOf("0")));
    const EmptyFile file;
    SharedTime finTime(file.path);
    LoadClient client(LoadConnection(server.Port(), "POST"), ExpectedValue("0"), &finTime);
    const auto before = SharedTime::Clock::now();
    finTime.SetToNow();
    MakeCalls(client, 2);
    EXPECT_GT(client.Latencies()[0], client.End() - client.Start()) << "the warm-up is later";
    EXPECT_LT(client.Latencies()[0], SharedTime::Clock::now() - before);
    EXPECT_EQ(client.Wrong(), 1U) << "the second call";
    EXPECT_EQ(client.FirstWrong(), "no FIN before the answer");
}

TEST(LoadClientTest, WrongAnswerIsCountedAndKept) {
    std::vector<std::string> answers(kManyCalls, HttpAnswerOf("0"));
    answers[kWarmUpCalls + 1] = HttpAnswerOf("12");
    answers[kWarmUpCalls + 3] = HttpAnswerOf("5");
    const AnsweringServer server(answers);
    LoadClient client = Connect(server);
    MakeCalls(client, 10);
    EXPECT_EQ(client.Latencies().size(), 10U);
    EXPECT_EQ(client.Wrong(), 2U);
    EXPECT_EQ(client.FirstWrong(), "wrong answer: <value><int>12</int></value>");
}

TEST(LoadClientTest, WrongAnswerIsWrongDuringTheWarmUpToo) {
    std::vector<std::string> answers(kManyCalls, HttpAnswerOf("0"));
    answers[kWarmUpCalls - 1] = HttpAnswerOf("12");
    const AnsweringServer server(answers);
    LoadClient client = Connect(server);
    MakeCalls(client, 10);
    EXPECT_EQ(client.Wrong(), 1U);
}

TEST(LoadClientTest, StopsWhenTheServerHangsUp) {
    const AnsweringServer server(std::vector(kWarmUpCalls + 3, HttpAnswerOf("0")));
    LoadClient client = Connect(server);
    MakeCalls(client, 10);
    EXPECT_EQ(client.Wrong(), 1U);
    EXPECT_EQ(client.FirstWrong(), "the server has closed the connection");
    EXPECT_EQ(client.Latencies().size(), 3U) << "only answered calls have a latency";
}

TEST(LoadClientTest, ServerThatHangsUpAtOnceHoldsNobodyUp) {
    const AnsweringServer server({});
    LoadClient client = Connect(server);
    MakeCalls(client, 10);
    EXPECT_EQ(client.Wrong(), 1U);
    EXPECT_TRUE(client.Latencies().empty());
}

TEST(LoadClientTest, RefusesAPortWithoutAServer) {
    unsigned port = 0;
    {
        const AnsweringServer server({});
        port = server.Port();
        Connect(server);
    }
    EXPECT_THROW(LoadConnection(port, "POST"), std::system_error);
}

}  // namespace
}  // namespace bench
