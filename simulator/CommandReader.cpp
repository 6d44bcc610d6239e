#include "simulator/CommandReader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace simulator {

CommandReader::CommandReader(const std::string& scriptText, int openInput, Execute executeLine)
    : execute(std::move(executeLine)),
      inputDescriptor(openInput),
      stopDescriptor(eventfd(0, EFD_CLOEXEC)) {
    script.text = scriptText + "\n";
}

void CommandReader::Prepare() {
    ExecuteDueLines(script);
}

void CommandReader::Stop() {
    stopping = true;
    eventfd_write(stopDescriptor.Get(), 1);
}

void CommandReader::Run() {
    while (!stopping) {
        std::array<pollfd, 2> pollSet{
            {{stopDescriptor.Get(), POLLIN, 0}, {inputDescriptor, POLLIN, 0}}};
        poll(pollSet.data(), pollSet.size(), MillisecondsToNextLine());
        if (pollSet[1].revents != 0) {
            ReadInput();
        }
        ExecuteDueLines(script);
        ExecuteDueLines(input);
    }
}

void CommandReader::ExecuteDueLines(Source& source) {
    for (auto end = source.text.find('\n');
         end != std::string::npos && source.resumeAt <= Clock::now() && !stopping;
         end = source.text.find('\n')) {
        const std::string line = source.text.substr(0, end);
        source.text.erase(0, end + 1);
        source.resumeAt = Clock::now() + execute(line);
    }
}

/// -1 when only input can bring the next line.
int CommandReader::MillisecondsToNextLine() const {
    std::chrono::milliseconds shortest{-1};
    for (const Source* const source : {&script, &input}) {
        if (source->text.find('\n') == std::string::npos) {
            continue;
        }
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(source->resumeAt - Clock::now());
        const auto bounded = std::max(rest, std::chrono::milliseconds::zero());
        shortest = shortest.count() < 0 ? bounded : std::min(shortest, bounded);
    }
    return static_cast<int>(shortest.count());
}

void CommandReader::ReadInput() {
    std::array<char, 4096> buffer{};
    const ssize_t count = read(inputDescriptor, buffer.data(), buffer.size());
    if (count <= 0) {
        inputDescriptor = -1;
        input.text += '\n';  // a last line without its end
        return;
    }
    input.text.append(buffer.data(), static_cast<std::size_t>(count));
}

}  // namespace simulator
