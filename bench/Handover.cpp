#include "bench/Handover.h"

#include <unistd.h>

#include <cstddef>
#include <stdexcept>

#include "bench/OpenTty.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kPatience{1};
constexpr std::string_view kRequest = "PDOUT=[3,1]\n";
constexpr std::string_view kLastLine = "FIN PDOUT";

}  // namespace

Handover::Handover(const std::string& path)
    : tty(OpenTty(path)), reader([this](const std::stop_token& stop) { Read(stop); }) {}

Handover::~Handover() {
    reader.request_stop();
    Send();
}

std::chrono::nanoseconds Handover::Round() {
    const auto start = Clock::now();
    {
        const std::lock_guard lock(mutex);
        answered = false;
    }
    if (!Send()) {
        throw std::runtime_error("the tty takes no request");
    }
    std::unique_lock lock(mutex);
    if (!condition.wait_for(lock, kPatience, [this] { return answered; })) {
        throw std::runtime_error("the master does not answer");
    }
    return Clock::now() - start;
}

bool Handover::Send() const {
    return write(tty.Get(), kRequest.data(), kRequest.size()) == std::ssize(kRequest);
}

void Handover::Read(const std::stop_token& stop) {
    LineBuffer buffer;
    while (!stop.stop_requested()) {
        const ssize_t count = read(tty.Get(), buffer.Room(), LineBuffer::kReadSize);
        if (count > 0) {
            buffer.Take(static_cast<std::size_t>(count),
                        [this](std::string_view line) { TakeLine(line); });
        }
    }
}

void Handover::TakeLine(std::string_view line) {
    if (line != kLastLine) {
        return;
    }
    {
        const std::lock_guard lock(mutex);
        answered = true;
    }
    condition.notify_one();
}

}  // namespace bench
