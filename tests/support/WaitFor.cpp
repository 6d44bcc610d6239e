#include "tests/support/WaitFor.h"

#include <future>
#include <thread>
#include <utility>

namespace support {

bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

bool EndsWithin(std::chrono::milliseconds limit, std::function<void()> action) {
    std::packaged_task<void()> task(std::move(action));
    const auto end = task.get_future();
    std::thread thread(std::move(task));
    const bool ended = end.wait_for(limit) == std::future_status::ready;
    if (ended) {
        thread.join();
    } else {
        thread.detach();
    }
    return ended;
}

std::chrono::milliseconds Measure(const std::function<void()>& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start);
}

}  // namespace support
