#include "web/Worker.h"

#include <utility>

namespace tavrik {

Worker::Worker(const Endpoint& endpoint) : endpoint(endpoint), thread(&Worker::Run, this) {}

Worker::~Worker() {
    stop.request_stop();
    thread.join();
}

bool Worker::Do(Job job) {
    const std::lock_guard lock(mutex);
    if (jobs.size() >= kMostWaiting) {
        return false;
    }
    jobs.push_back(std::move(job));
    changed.notify_all();
    return true;
}

void Worker::Run() {
    while (true) {
        std::unique_lock lock(mutex);
        changed.wait(lock, stop.get_token(), [this] { return !jobs.empty(); });
        if (stop.stop_requested()) {
            return;
        }
        const Job job = std::move(jobs.front());
        jobs.pop_front();
        lock.unlock();
        Daemon daemon(endpoint, stop.get_token());
        job(daemon);
    }
}

}  // namespace tavrik
