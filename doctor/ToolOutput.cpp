#include "doctor/ToolOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <sstream>
#include <system_error>
#include <utility>

#include "client/Failure.h"

namespace tavrik {

namespace {

using Clock = std::chrono::steady_clock;

/// Reads to the end, or to the deadline: a background process of the tool may keep the pipe open.
std::string Read(int descriptor, Clock::time_point deadline) {
    std::string text;
    std::array<char, 4096> buffer{};
    pollfd input{descriptor, POLLIN, 0};
    while (true) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const bool isReady = left > 0 && poll(&input, 1, static_cast<int>(left)) == 1;
        const ssize_t count = isReady ? read(descriptor, buffer.data(), buffer.size()) : 0;
        if (count <= 0) {
            return text;
        }
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

std::vector<std::string> ToolOutput::LinesInReverse() const {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    std::ranges::reverse(lines);
    return lines;
}

StartedTool StartTool(std::vector<std::string> command, ErrorOutput errors) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string& word : command) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const auto failure = [&](int error) {
        return Failure(ExitStatus::Failed, "cannot run " + command.front() + ": " +
                                               std::generic_category().message(error));
    };
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        throw failure(errno);
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    if (errors == ErrorOutput::Merged) {
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    } else if (errors == ErrorOutput::Dropped) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none;  // the tool must not inherit a blocked SIGTERM
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t process = 0;
    const int error =
        posix_spawnp(&process, arguments[0], &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    if (error != 0) {
        close(ends[0]);
        throw failure(error);
    }
    return {process, ends[0]};
}

ToolOutput RunTool(std::vector<std::string> command, std::chrono::seconds limit,
                   ErrorOutput errors) {
    command.insert(command.begin(), {"timeout", "--kill-after=1", std::to_string(limit.count())});
    try {
        constexpr std::chrono::seconds kEnding(1);  // for a tool that was ended
        const auto [process, output] = StartTool(std::move(command), errors);
        const std::string text = Read(output, Clock::now() + limit + kEnding);
        close(output);
        int status = 0;
        const bool ended = waitpid(process, &status, 0) == process;
        return {ended && WIFEXITED(status) && WEXITSTATUS(status) == 0, text};
    } catch (const Failure& failure) {
        return {false, failure.what()};
    }
}

}  // namespace tavrik
