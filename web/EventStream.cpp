#include "web/EventStream.h"

#include <algorithm>
#include <utility>

namespace tavrik {

namespace {
constexpr std::size_t kLargestBacklog = std::size_t{256} * 1024;  // bytes
constexpr std::chrono::seconds kLongestStall(5);
}  // namespace

EventText MakeEvent(const std::string& name, const std::string& data) {
    return std::make_shared<const std::string>("event: " + name + "\ndata: " + data + "\n\n");
}

bool EventStream::Push(const EventText& event, Clock::time_point now) {
    const std::lock_guard lock(mutex);
    taken = events.empty() ? now : taken;
    if (now - taken > kLongestStall || waiting + event->size() > kLargestBacklog) {
        EndLocked();
    }
    if (ended) {
        return false;
    }
    events.push_back(event);
    waiting += event->size();
    WakeLocked();
    return true;
}

void EventStream::End() {
    const std::lock_guard lock(mutex);
    EndLocked();
}

void EventStream::Detach() {
    const std::lock_guard lock(mutex);
    wake = nullptr;
    EndLocked();
}

void EventStream::EndLocked() {
    ended = true;
    events.clear();
    waiting = 0;
    WakeLocked();
}

void EventStream::WakeLocked() {
    if (const auto call = std::exchange(wake, nullptr)) {
        call();
    }
}

EventStream::State EventStream::Take(char* buffer, std::size_t size, std::size_t& count,
                                     const std::function<void()>& pause,
                                     std::function<void()> wake) {
    const std::lock_guard lock(mutex);
    if (ended) {
        return State::Ended;
    }
    for (count = 0; count < size && !events.empty();) {
        const std::size_t copied = events.front()->copy(buffer + count, size - count, offset);
        count += copied;
        offset += copied;
        waiting -= copied;
        if (offset == events.front()->size()) {
            events.pop_front();
            offset = 0;
        }
    }
    taken = Clock::now();
    if (count == 0) {
        pause();
        this->wake = std::move(wake);
        return State::Empty;
    }
    return State::Data;
}

std::shared_ptr<EventStream> EventHub::Add(const EventText& first) {
    const std::lock_guard lock(mutex);
    std::erase_if(viewers, [](const auto& each) { return each.expired(); });
    if (viewers.size() >= kMostViewers) {
        return nullptr;
    }
    auto stream = std::make_shared<EventStream>();
    stream->Push(first);
    viewers.push_back(stream);
    return stream;
}

void EventHub::Publish(const EventText& event) {
    const std::lock_guard lock(mutex);
    std::erase_if(viewers, [&](const auto& each) {
        const auto stream = each.lock();
        return !stream || !stream->Push(event);
    });
}

std::size_t EventHub::Count() const {
    const std::lock_guard lock(mutex);
    return static_cast<std::size_t>(
        std::ranges::count_if(viewers, [](const auto& each) { return !each.expired(); }));
}

void EventHub::Close() {
    const std::lock_guard lock(mutex);
    for (const auto& each : viewers) {
        if (const auto stream = each.lock()) {
            stream->End();
        }
    }
    viewers.clear();
}

}  // namespace tavrik
