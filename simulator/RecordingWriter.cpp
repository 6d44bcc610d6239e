#include "simulator/RecordingWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <system_error>
#include <utility>

#include "simulator/Recording.h"

namespace simulator {

namespace {

/// "2025-06-01 14:03:07 +0200", to be found in other logs.
std::string LocalTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%F %T %z", &parts);
    return {text.data(), length};
}

int Create(const std::string& path) {
    const int opened = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (opened == -1) {
        throw std::system_error(errno, std::generic_category(), "cannot record in " + path);
    }
    return opened;
}

}  // namespace

RecordingWriter::RecordingWriter(const std::string& newPath, Tell tellFailure)
    : path(newPath), file(Create(path)), tell(std::move(tellFailure)) {
    WriteLine(kRecordingHeader);
    WriteLine("# begun " + LocalTime());
    WriteLine("# seconds, master, > to the master or < from it, bytes");
}

RecordingWriter::~RecordingWriter() {
    if (empty) {
        unlink(path.c_str());
    }
}

void RecordingWriter::StartClock() {
    const std::lock_guard lock(mutex);
    start = Clock::now();
}

void RecordingWriter::Write(unsigned master, RecordedKind kind, std::string_view bytes,
                            TimePoint now) {
    using std::chrono::microseconds;
    const std::lock_guard lock(mutex);
    empty = empty && now < start;
    const auto time = std::max(std::chrono::floor<microseconds>(now - start), microseconds::zero());
    WriteLine(FormatRecordedEvent({time, master, kind, std::string(bytes)}));
}

void RecordingWriter::WriteLine(std::string line) {
    line += '\n';
    if (!whole) {
        return;
    }
    const ssize_t count = write(file.Get(), line.data(), line.size());
    if (count == static_cast<ssize_t>(line.size())) {
        return;
    }
    const int error = count == -1 ? errno : ENOSPC;
    if (count > 0) {  // a line that is cut could be taken for another one
        [[maybe_unused]] const int cut = ftruncate(file.Get(), lseek(file.Get(), -count, SEEK_CUR));
    }
    whole = false;
    tell("error: " + path + " ends here: " + std::generic_category().message(error));
}

bool RecordingWriter::IsWhole() const {
    const std::lock_guard lock(mutex);
    return whole;
}

}  // namespace simulator
