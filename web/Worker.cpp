#include "web/Worker.h"

#include <utility>

namespace tavrik {

Worker::Worker(const Endpoint& endpoint) : endpoint(endpoint), thread(&Worker::Run, this) {}

Worker::~Worker() {
    stop.request_stop();
    thread.join();
}

bool Worker::Do(Job job, const std::string& subject) {
    const std::lock_guard lock(mutex);
    if (jobs.size() > kMostWaiting) {
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

void Worker::Run() {
    while (true) {
        std::unique_lock lock(mutex);
        changed.wait(lock, stop.get_token(), [this] { return !jobs.empty(); });
        if (stop.stop_requested()) {
            return;
        }
        const Entry& entry = jobs.front();  // stays where it is when others come
        lock.unlock();
        {
            Daemon daemon(endpoint, stop.get_token());
            entry.job(daemon, entry.dropped.get_token());
        }
        lock.lock();
        jobs.pop_front();
    }
}

}  // namespace tavrik
