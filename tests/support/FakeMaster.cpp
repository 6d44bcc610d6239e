#include "tests/support/FakeMaster.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "pellix/CorvaneGripper.h"
#include "tests/support/WaitFor.h"

namespace support {

namespace {

constexpr int kPollPeriodMs = 2;

std::string KeyOf(const std::string& line) {
    return line.substr(0, line.find_first_of("?=("));
}

}  // namespace

FakeMaster::FakeMaster() {
    SetValue("ID", "PELLIX");
    SetValue("MODE", "4");
    SetValue("DEVINFO", "[1,2,3,32,16,5,6," + std::to_string(pellix::kCorvaneVendorId) + ",20]");
    SetValue("PARAM[19][0]", "[48,56,41]");           // HVA
    SetValue("PARAM[21][0]", "[31,30,30,30,30,31]");  // 100001
    SetValue("PDOUT", "[0,0]");
    thread = std::thread(&FakeMaster::Run, this);
}

FakeMaster::~FakeMaster() {
    Unplug();
}

void FakeMaster::SetValue(const std::string& key, const std::string& value) {
    SetAnswers(key + "?", {"ACK " + key + "\n" + key + "=" + value + "\n"});
}

void FakeMaster::SetAnswers(const std::string& line, std::deque<std::string> texts) {
    const std::lock_guard<std::mutex> lock(mutex);
    answers[line] = std::move(texts);
}

std::vector<std::string> FakeMaster::Requests() const {
    const std::lock_guard<std::mutex> lock(mutex);
    return requests;
}

std::size_t FakeMaster::Count(const std::string& line) const {
    const std::lock_guard<std::mutex> lock(mutex);
    return static_cast<std::size_t>(std::count(requests.begin(), requests.end(), line));
}

bool FakeMaster::WaitForRequest(const std::string& line, std::size_t count) const {
    return WaitFor([&] { return Count(line) >= count; });
}

void FakeMaster::ClearRequests() {
    const std::lock_guard<std::mutex> lock(mutex);
    requests.clear();
}

void FakeMaster::Unplug() {
    running = false;
    if (thread.joinable()) {
        thread.join();
    }
    pty.HangUp();
}

void FakeMaster::Run() {
    auto nextLine = std::chrono::steady_clock::now();
    while (running) {
        pollfd end{.fd = pty.OtherEnd(), .events = POLLIN, .revents = 0};
        if (::poll(&end, 1, kPollPeriodMs) > 0) {
            std::array<char, 4096> buffer;
            const ssize_t count = ::read(end.fd, buffer.data(), buffer.size());
            Take(std::string(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))));
        }
        const std::chrono::milliseconds period = streamPeriod;
        if (period.count() > 0 && std::chrono::steady_clock::now() >= nextLine) {
            // A line that does not fit into the tty's buffer may be lost.
            [[maybe_unused]] const ssize_t count = ::write(end.fd, "@EV=0\n", 6);
            nextLine = std::chrono::steady_clock::now() + period;
        }
    }
}

void FakeMaster::Take(const std::string& text) {
    unfinished += text;
    for (std::size_t end = 0; (end = unfinished.find('\n')) != std::string::npos;) {
        const std::string line = unfinished.substr(0, end);
        unfinished.erase(0, end + 1);
        HandleRequest(line);
    }
}

void FakeMaster::HandleRequest(const std::string& line) {
    std::string answer;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        requests.push_back(line);
        answer = AnswerTo(line);
    }
    if (!silent && !answer.empty()) {
        pty.Send(answer);
    }
}

std::string FakeMaster::AnswerTo(const std::string& line) {
    const auto known = answers.find(line);
    if (known != answers.end()) {
        std::deque<std::string>& texts = known->second;
        std::string text = texts.front();
        if (texts.size() > 1) {
            texts.pop_front();
        }
        return text;
    }
    const std::string key = KeyOf(line);
    return line.ends_with('?') ? "ERR " + key + " 9\n" : "ACK " + key + "\nFIN " + key + "\n";
}

}  // namespace support
