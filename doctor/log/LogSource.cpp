#include "doctor/log/LogSource.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <system_error>
#include <utility>

#include "client/Failure.h"
#include "doctor/Service.h"

namespace tavrik {

namespace {

constexpr std::size_t kLongestLine = 65536;
constexpr std::size_t kReadSize = 65536;

Failure ReadFailure(const std::string& what) {
    return {ExitStatus::Failed,
            "failed to read " + what + ": " + std::generic_category().message(errno)};
}

int OpenFile(const std::string& path) {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    if (descriptor >= 0 && fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
        close(descriptor);
        errno = EISDIR;
        return -1;
    }
    return descriptor;
}

std::vector<std::string> JournalCommand(const std::vector<std::string>& options) {
    std::vector<std::string> command{"journalctl", "--quiet",       "--all",
                                     "--no-pager", "--no-hostname", "--output=short-iso-precise",
                                     "--unit",     kServiceName};
    command.insert(command.end(), options.begin(), options.end());
    return command;
}

}  // namespace

LogSource::~LogSource() {
    if (writer != 0) {
        kill(writer, SIGTERM);
        waitpid(writer, nullptr, 0);
    }
    close(descriptor);
}

LogSource::Result LogSource::Next(std::string_view& line, std::chrono::milliseconds patience) {
    while (!TakeLine(line)) {
        if (hasEnded) {
            return Result::End;
        }
        const ssize_t count = Read(patience);
        if (count < 0) {
            return Result::Idle;
        }
        if (count == 0 && IsContinued(patience)) {
            return Result::Idle;
        }
        hasEnded = count == 0;
    }
    return Result::Line;
}

/// At the end of the input. @return whether more may come
bool LogSource::IsContinued(std::chrono::milliseconds patience) {
    struct stat ours = {};
    struct stat named = {};
    if (followed.empty() || fstat(descriptor, &ours) != 0 || !S_ISREG(ours.st_mode)) {
        return false;
    }
    if (ours.st_size < lseek(descriptor, 0, SEEK_CUR)) {
        lseek(descriptor, 0, SEEK_SET);  // truncated by the rotation
        Restart(descriptor);
    } else if (stat(followed.c_str(), &named) == 0 &&
               (named.st_ino != ours.st_ino || named.st_dev != ours.st_dev)) {
        if (const int newer = OpenFile(followed); newer >= 0) {
            Restart(newer);
        }
    } else {
        constexpr std::chrono::milliseconds kPollPause(50);
        poll(nullptr, 0, static_cast<int>(std::min(patience, kPollPause).count()));
    }
    return true;
}

/// Continues at the beginning of `newDescriptor`, which may be the present one.
void LogSource::Restart(int newDescriptor) {
    if (newDescriptor != descriptor) {
        close(descriptor);
        descriptor = newDescriptor;
    }
    buffer.clear();  // the last line of the old input has no end
    position = searched = 0;
    isDropping = false;
}

/// @return the number of bytes; 0 at the end, -1 if none came within `patience`
ssize_t LogSource::Read(std::chrono::milliseconds patience) {
    pollfd input{descriptor, POLLIN, 0};
    if (poll(&input, 1, static_cast<int>(patience.count())) <= 0) {
        return -1;
    }
    buffer.erase(0, std::exchange(position, 0));
    searched = buffer.size();
    buffer.resize(searched + kReadSize);
    const ssize_t count = read(descriptor, buffer.data() + searched, kReadSize);
    buffer.resize(searched + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (count < 0 && errno != EINTR && errno != EAGAIN) {
        throw ReadFailure("the log");
    }
    return count;
}

bool LogSource::TakeLine(std::string_view& line) {
    while (true) {
        const std::size_t end = buffer.find('\n', std::max(searched, position));
        const bool isWhole = end != std::string::npos;
        searched = buffer.size();
        const std::size_t size = (isWhole ? end : buffer.size()) - position;
        if (!isWhole && size < kLongestLine && (!hasEnded || size == 0)) {
            return false;
        }
        line = std::string_view(buffer).substr(position, std::min(size, kLongestLine));
        position += size + (isWhole ? 1 : 0);
        searched = position;
        const bool isRest = std::exchange(isDropping, !isWhole);
        if (!isRest) {
            return true;
        }
    }
}

std::unique_ptr<LogSource> OpenLogFile(const std::string& path, bool isFollowed) {
    const int descriptor = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : OpenFile(path);
    if (descriptor < 0) {
        throw ReadFailure(path);
    }
    return std::make_unique<LogSource>(descriptor, isFollowed && path != "-" ? path : "");
}

std::unique_ptr<LogSource> OpenJournal(const std::vector<std::string>& options,
                                       ErrorOutput errors) {
    try {
        const auto [journalctl, output] = StartTool(JournalCommand(options), errors);
        return std::make_unique<LogSource>(output, "", journalctl);
    } catch (const Failure& failure) {
        throw Failure(failure.Status(), std::string(failure.what()) + "; name the log's file");
    }
}

std::unique_ptr<LogSource> FollowJournal(std::chrono::seconds start, ErrorOutput errors) {
    std::vector<std::string> options{"--since=@" + std::to_string(start.count()), "--follow",
                                     "--no-tail"};
    // Without --merge, --follow shows only the current boot: no line from before a reboot, and no
    // line at all if a service in a container sees the kernel's boot ID instead of the container's.
    // --merge shows all boots, but also the journals of other machines.
    std::string machine;
    if (std::ifstream("/etc/machine-id") >> machine) {
        options.insert(options.end(), {"--merge", "_MACHINE_ID=" + machine});
    }
    return OpenJournal(options, errors);
}

std::vector<std::string> ReadJournalBefore(std::chrono::seconds time) {
    constexpr const char* kWanted =
        "--grep=Starting TavrikDaemon|Opening device|Closed device|thread (active|terminated)|"
        "SN: |Init: Device mode|line: PARAM\\[(19|21)\\]|PELLIX removed";
    // Newest first, because a log of several days takes longer to read.
    constexpr std::chrono::seconds kPatience(5);
    const ToolOutput output =
        RunTool(JournalCommand({"--until=@" + std::to_string(time.count()), "--reverse",
                                "--lines=2000", "--case-sensitive=true", kWanted}),
                kPatience, ErrorOutput::Dropped);
    return output.LinesInReverse();
}

}  // namespace tavrik
