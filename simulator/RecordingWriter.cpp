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

namespace simulator {

namespace {

/// "2025-06-01 14:03:07 +0200", to compare the recording with logs.
std::string LocalTime() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    localtime_r(&now, &parts);
    std::array<char, 64> text{};
    const std::size_t length = std::strftime(text.data(), text.size(), "%F %T %z", &parts);
    return {text.data(), length};
}

}  // namespace

RecordingWriter::RecordingWriter(const std::string& path, Printer print)
    : path(path),
      file(Checked(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666),
                   "cannot create " + path)),
      print(std::move(print)) {
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
    if (!complete) {
        return;
    }
    const ssize_t count = write(file.Get(), line.data(), line.size());
    if (count == static_cast<ssize_t>(line.size())) {
        return;
    }
    const int error = count == -1 ? errno : ENOSPC;
    if (count > 0) {  // a truncated line could be read as another event
        [[maybe_unused]] const int cut = ftruncate(file.Get(), lseek(file.Get(), -count, SEEK_CUR));
    }
    complete = false;
    print("error: cannot write " + path + ": " + std::generic_category().message(error) +
          "; the recording ends here");
}

bool RecordingWriter::IsComplete() const {
    const std::lock_guard lock(mutex);
    return complete;
}

RecordingMaster::RecordingMaster(std::unique_ptr<Master> master, unsigned number,
                                 RecordingWriter& writer)
    : master(std::move(master)), number(number), writer(writer) {}

void RecordingMaster::PowerUp(TimePoint now) {
    writer.Write(number, RecordedKind::Plug, {}, now);
    master->PowerUp(now);
}

void RecordingMaster::HangUp(bool reported, TimePoint now) {
    writer.Write(number, reported ? RecordedKind::Unplug : RecordedKind::HangUp, {}, now);
    master->HangUp(reported, now);
}

void RecordingMaster::Receive(std::string_view bytes, TimePoint now) {
    if (!bytes.empty()) {
        writer.Write(number, RecordedKind::ToMaster, bytes, now);
    }
    master->Receive(bytes, now);
}

std::string RecordingMaster::NextText(TimePoint now) {
    std::string text = master->NextText(now);
    if (!text.empty()) {
        writer.Write(number, RecordedKind::FromMaster, text, now);
    }
    return text;
}

}  // namespace simulator
