#include "bench/FastMaster.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace bench {

namespace {

constexpr std::string_view kStreamLine = "@PDIN=[9,c4,0,3]\n";
constexpr std::string_view kCommandStart = "PDOUT=";
constexpr std::size_t kUnsentLimit = 4096;

constexpr auto RepeatStreamLine() {
    std::array<char, FastMaster::kLinesPerWrite * kStreamLine.size()> text{};
    for (std::size_t index = 0; index < text.size(); ++index) {
        text[index] = kStreamLine[index % kStreamLine.size()];
    }
    return text;
}

constexpr auto kStreamText = RepeatStreamLine();

}  // namespace

FastMaster::FastMaster(unsigned masterNumber, std::uint64_t& lineCounter, SharedTime* ownFinTime)
    : knownAnswers(masterNumber),
      lineCount(lineCounter),
      finTime(ownFinTime),
      port(simulator::PtyPort::Start::Raw) {
    answers.reserve(2 * kUnsentLimit);
}

void FastMaster::Receive() {
    const ssize_t count = read(port.Descriptor(), requests.Room(), LineBuffer::kReadSize);
    if (count <= 0) {
        return;
    }
    bool commanded = false;
    requests.Take(static_cast<std::size_t>(count), [&](std::string_view request) {
        if (answers.size() < kUnsentLimit) {
            knownAnswers.Append(request, answers);
            commanded = commanded || request.starts_with(kCommandStart);
        }
    });
    if (commanded && finTime != nullptr) {
        finTime->SetToNow();
    }
    Flush();
}

void FastMaster::Stream(std::size_t count) {
    if (WaitsForRoom()) {
        return;
    }
    const std::size_t lines = std::min(count, kLinesPerWrite);
    begun += Write(kStreamText.data() + begun, lines * kStreamLine.size() - begun);
    lineCount += begun / kStreamLine.size();
    begun %= kStreamLine.size();
}

void FastMaster::Flush() {
    if (begun != 0 && !answers.empty()) {
        answers.insert(0, kStreamLine.substr(begun));
        begun = 0;
        ++lineCount;
    }
    answers.erase(0, Write(answers.data(), answers.size()));
}

/// @return how much of it the tty took
std::size_t FastMaster::Write(const char* text, std::size_t length) {
    const ssize_t count = write(port.Descriptor(), text, length);
    return count > 0 ? static_cast<std::size_t>(count) : 0U;
}

}  // namespace bench
