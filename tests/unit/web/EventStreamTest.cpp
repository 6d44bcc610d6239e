#include "web/EventStream.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using tavrik::EventHub;
using tavrik::EventStream;
using State = EventStream::State;
using std::chrono::milliseconds;

class EventStreamTest : public testing::Test {
protected:
    /// What a viewer gets that takes `size` bytes at most.
    std::string Take(std::size_t size = 100) {
        std::array<char, 100> buffer{};
        std::size_t count = 0;
        state = stream.Take(
            buffer.data(), size, count, [this] { ++pauses; }, [this] { ++wakes; });
        return {buffer.data(), count};
    }

    static tavrik::EventText Text(const std::string& text) {
        return std::make_shared<const std::string>(text);
    }

    EventStream stream;
    State state = State::Data;
    int pauses = 0;
    int wakes = 0;
};

TEST_F(EventStreamTest, AnEventHasANameAndALineOfData) {
    EXPECT_EQ(*tavrik::MakeEvent("values", "[1]"), "event: values\ndata: [1]\n\n");
}

TEST_F(EventStreamTest, HandsEventsOutInPieces) {
    stream.Push(Text("abc"));
    stream.Push(Text("de"));
    EXPECT_EQ(Take(2), "ab");
    EXPECT_EQ(Take(2), "cd");
    EXPECT_EQ(Take(2), "e");
    EXPECT_EQ(Take(), "");
    EXPECT_EQ(state, State::Empty);
}

TEST_F(EventStreamTest, WakesAPausedViewerOnce) {
    Take();
    EXPECT_EQ(pauses, 1);
    stream.Push(Text("a"));
    stream.Push(Text("b"));
    EXPECT_EQ(wakes, 1);
    EXPECT_EQ(Take(), "ab");
}

TEST_F(EventStreamTest, EndsForAViewerThatHasTakenNothingForFiveSeconds) {
    const auto start = EventStream::Clock::now();
    EXPECT_TRUE(stream.Push(Text("a"), start));
    EXPECT_TRUE(stream.Push(Text("b"), start + milliseconds(5000)));
    EXPECT_FALSE(stream.Push(Text("c"), start + milliseconds(5001)));
    Take();
    EXPECT_EQ(state, State::Ended);
}

TEST_F(EventStreamTest, DoesNotEndForAViewerThatTookEverything) {
    const auto start = EventStream::Clock::now();
    EXPECT_TRUE(stream.Push(Text("a"), start));
    Take();
    EXPECT_TRUE(stream.Push(Text("b"), start + milliseconds(60000)));
}

TEST_F(EventStreamTest, EndsForAViewerThatIsFarBehind) {
    const auto event = Text(std::string(std::size_t{100} * 1024, 'x'));
    EXPECT_TRUE(stream.Push(event));
    EXPECT_TRUE(stream.Push(event));
    EXPECT_FALSE(stream.Push(event));
}

TEST_F(EventStreamTest, ItsEndWakesTheViewer) {
    Take();
    stream.End();
    EXPECT_EQ(wakes, 1);
    Take();
    EXPECT_EQ(state, State::Ended);
    EXPECT_FALSE(stream.Push(Text("a")));
}

TEST_F(EventStreamTest, AViewerThatIsGoneIsNotWoken) {
    Take();
    stream.Detach();
    stream.Push(Text("a"));
    EXPECT_EQ(wakes, 0);
}

TEST(EventHubTest, HasSixteenPlaces) {
    EventHub hub;
    const auto first = std::make_shared<const std::string>("first");
    std::vector<std::shared_ptr<EventStream>> viewers;
    for (std::size_t i = 0; i < EventHub::kMostViewers; ++i) {
        viewers.push_back(hub.Add(first));
        EXPECT_NE(viewers.back(), nullptr);
    }
    EXPECT_EQ(hub.Add(first), nullptr);
    viewers.pop_back();
    EXPECT_EQ(hub.Count(), EventHub::kMostViewers - 1);
    EXPECT_NE(hub.Add(first), nullptr);
}

TEST(EventHubTest, DropsAViewerWhoseStreamHasEnded) {
    EventHub hub;
    const auto event = std::make_shared<const std::string>("event");
    const auto viewer = hub.Add(event);
    const auto other = hub.Add(event);
    viewer->End();
    hub.Publish(event);
    EXPECT_EQ(hub.Count(), 1U);
    hub.Close();
    EXPECT_FALSE(other->Push(event));
}

}  // namespace
