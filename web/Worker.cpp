#include "web/Worker.h"

#include <algorithm>
#include <utility>

namespace tavrik {

Worker::Worker(const Endpoint& endpoint, std::size_t threads) : endpoint(endpoint) {
    for (std::size_t i = 0; i < threads; ++i) {
        this->threads.emplace_back(&Worker::Run, this);
    }
}

Worker::~Worker() {
    stop.request_stop();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

bool Worker::Enqueue(Job job, const std::string& subject) {
    const std::lock_guard lock(mutex);
    const auto waiting = std::ranges::count_if(
        jobs, [&](const Entry& each) { return !each.isRunning && each.subject == subject; });
    if (jobs.size() > kMostWaiting || (!subject.empty() && waiting >= kMostWaitingForSubject)) {
        return false;
    }
    jobs.push_back({std::move(job), subject});
    changed.notify_all();
    return true;
}

void Worker::Drop(const std::string& subject) {
    const std::lock_guard lock(mutex);
    for (Entry& entry : jobs) {
        if (entry.subject == subject) {
            entry.dropped.request_stop();
        }
    }
}

bool Worker::IsBusyLocked(const std::string& subject) const {
    return std::ranges::any_of(
        jobs, [&](const Entry& each) { return each.isRunning && each.subject == subject; });
}

/// The first job that may run.
Worker::Entries::iterator Worker::NextLocked() {
    return std::ranges::find_if(
        jobs, [this](const Entry& each) { return !each.isRunning && !IsBusyLocked(each.subject); });
}

void Worker::Run() {
    while (true) {
        std::unique_lock lock(mutex);
        changed.wait(lock, stop.get_token(), [this] { return NextLocked() != jobs.end(); });
        if (stop.stop_requested()) {
            return;
        }
        const auto entry = NextLocked();
        entry->isRunning = true;
        lock.unlock();
        {
            Daemon daemon(endpoint, stop.get_token());
            entry->job(daemon, entry->dropped.get_token());
        }
        lock.lock();
        jobs.erase(entry);
        changed.notify_all();  // the next one of its subject may run
    }
}

}  // namespace tavrik
