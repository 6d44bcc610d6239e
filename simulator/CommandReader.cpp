#include "simulator/CommandReader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

namespace simulator {

CommandReader::CommandReader(std::vector<CommandSource> commandSources, Execute execute)
    : execute(std::move(execute)), stopDescriptor(eventfd(0, EFD_CLOEXEC)) {
    for (CommandSource& source : commandSources) {
        sources.push_back({std::move(source), {}});
    }
}

void CommandReader::Prepare() {
    for (Source& source : sources) {
        ExecuteDueLines(source);
    }
}

void CommandReader::Stop() {
    stopping = true;
    eventfd_write(stopDescriptor.Get(), 1);
}

void CommandReader::Run() {
    while (!stopping) {
        std::vector<pollfd> pollSet{{stopDescriptor.Get(), POLLIN, 0}};
        for (const Source& source : sources) {
            pollSet.push_back({source.descriptor, POLLIN, 0});
        }
        poll(pollSet.data(), pollSet.size(), MillisecondsToNextLine());
        for (std::size_t number = 0; number < sources.size(); ++number) {
            if (pollSet[number + 1].revents != 0) {
                ReadStream(sources[number]);
            }
            ExecuteDueLines(sources[number]);
        }
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

/// -1 if there is no pending line.
int CommandReader::MillisecondsToNextLine() const {
    std::chrono::milliseconds shortest{-1};
    for (const Source& source : sources) {
        if (source.text.find('\n') == std::string::npos) {
            continue;
        }
        const auto rest =
            std::chrono::ceil<std::chrono::milliseconds>(source.resumeAt - Clock::now());
        const auto bounded = std::max(rest, std::chrono::milliseconds::zero());
        shortest = shortest.count() < 0 ? bounded : std::min(shortest, bounded);
    }
    return static_cast<int>(shortest.count());
}

void CommandReader::ReadStream(Source& source) {
    std::array<char, 4096> buffer{};
    const ssize_t count = read(source.descriptor, buffer.data(), buffer.size());
    if (count <= 0) {
        source.descriptor = -1;
        source.text += '\n';  // completes a last line without a line feed
        return;
    }
    source.text.append(buffer.data(), static_cast<std::size_t>(count));
}

}  // namespace simulator
