#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tavrik {

/// An event of a stream, as it is sent; shared by all viewers.
using EventText = std::shared_ptr<const std::string>;

/// An event with a name and one line of data.
EventText MakeEvent(const std::string& name, const std::string& data);

/// The events on their way to one viewer. Any thread may push; the server's thread takes.
class EventStream {
public:
    using Clock = std::chrono::steady_clock;

    /// Appends an event. Ends the stream when the viewer has taken nothing for 5 s, or is 256 KiB
    /// behind.
    /// @return false when the stream has ended
    bool Push(const EventText& event, Clock::time_point now = Clock::now());

    /// Ends the stream and drops what was not taken.
    void End();

    enum class State { Data, Empty, Ended };

    /// Moves up to `size` bytes to `buffer`.
    /// @param count how many
    /// @param pause called if there are none; the next Push() or End() calls `wake`
    State Take(char* buffer, std::size_t size, std::size_t& count,
               const std::function<void()>& pause, std::function<void()> wake);

    /// The viewer is gone: ends the stream; `wake` is no longer called.
    void Detach();

private:
    void EndLocked();
    void WakeLocked();

    std::mutex mutex;  // guards what follows
    std::deque<EventText> events;
    Clock::time_point taken =
        Clock::now();         // the last time that none was waiting, or one was taken
    std::size_t waiting = 0;  // bytes in `events`
    std::size_t offset = 0;   // in the first event
    bool ended = false;
    std::function<void()> wake;  // empty unless paused
};

/// All viewers. Any thread may call.
class EventHub {
public:
    static constexpr std::size_t kMostViewers = 16;

    /// A stream for a new viewer that begins with `first`, or null when there are too many.
    std::shared_ptr<EventStream> Add(const EventText& first);

    /// Sends an event to all viewers; drops those that have stalled.
    void Publish(const EventText& event);

    /// How many viewers there are. One that has gone counts until the next event.
    std::size_t Count() const;

    /// Ends all streams.
    void Close();

private:
    mutable std::mutex mutex;  // guards `viewers`; taken before EventStream's
    std::vector<std::weak_ptr<EventStream>> viewers;
};

}  // namespace tavrik
