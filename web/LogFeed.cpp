#include "web/LogFeed.h"

#include <algorithm>
#include <exception>
#include <nlohmann/json.hpp>
#include <string_view>
#include <utility>
#include <vector>

#include "client/Failure.h"
#include "client/Printable.h"
#include "doctor/log/LogFilter.h"
#include "doctor/log/LogRow.h"

namespace tavrik {

namespace {

using nlohmann::ordered_json;

constexpr std::size_t kMostRows = 500;
constexpr std::chrono::seconds kWantedFor(30);
constexpr std::chrono::seconds kRetryPause(3);  // each attempt runs journalctl
constexpr std::chrono::milliseconds kReadPatience(200);
constexpr std::chrono::minutes kRecent(10);
constexpr const char* kNoLines =
    "tavrikweb sees no lines of TavrikDaemon in the journal: add its user to the group "
    "systemd-journal, or name the log file with --log";

ordered_json RowJson(const LogRow& row) {
    return {{"date", row.stamp.date},   {"clock", LogClock(row)},
            {"mark", LogMark(row)},     {"isAlarming", IsAlarming(row)},
            {"master", LogMaster(row)}, {"gripper", LogGripper(row)},
            {"text", LogText(row)}};
}

}  // namespace

LogFeed::LogFeed(std::string file) : file(std::move(file)), thread(&LogFeed::Run, this) {}

LogFeed::~LogFeed() {
    stop.request_stop();
    thread.join();
}

ordered_json LogFeed::Rows(std::uint64_t knownReading, std::uint64_t known,
                           const std::string& gripper) {
    LogFilter filter(gripper, true);
    ordered_json list = ordered_json::array();
    const std::lock_guard lock(mutex);
    wantedUntil = Clock::now() + kWantedFor;
    changed.notify_all();
    const std::uint64_t fresh = knownReading == reading && known <= last ? last - known : kMostRows;
    const auto count = std::min<std::size_t>(fresh, rows.size());
    for (auto row = rows.end() - static_cast<std::ptrdiff_t>(count); row != rows.end(); ++row) {
        if (filter.Wants(*row)) {
            list.push_back(RowJson(*row));
        }
    }
    return {{"reading", reading}, {"last", last}, {"rows", list}, {"trouble", error}};
}

void LogFeed::Run() {
    while (AwaitReader()) {
        try {
            Read();
        } catch (const std::exception& failure) {
            SetError(failure.what());
        }
        std::unique_lock lock(mutex);
        changed.wait_for(lock, stop.get_token(), kRetryPause, [] { return false; });
    }
}

/// @return false when the thread must end
bool LogFeed::AwaitReader() {
    std::unique_lock lock(mutex);
    changed.wait(lock, stop.get_token(), [this] { return wantedUntil > Clock::now(); });
    return !stop.stop_requested();
}

bool LogFeed::IsWanted() {
    const std::lock_guard lock(mutex);
    return wantedUntil > Clock::now() && !stop.stop_requested();
}

/// @throws Failure (Failed) if the log cannot be read
void LogFeed::Read() {
    LogModel model([this](const LogRow& row) { Add(row); }, false);
    bool isReadable = false;
    const auto source = Open(model, isReadable);
    Begin(isReadable);
    auto lastLine = Clock::now();
    std::string_view line;
    while (IsWanted()) {
        const LogSource::Result result = source->Next(line, kReadPatience);
        if (result == LogSource::Result::Line) {
            lastLine = Clock::now();
            model.Take(line);
            continue;
        }
        model.Idle(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lastLine));
        if (!isReadable && model.Summary().lines == 0) {
            SetError(kNoLines);
        }
        if (result == LogSource::Result::End) {
            return;
        }
    }
}

/// The journal from a while ago on, or the whole file.
/// @param isReadable set if the log surely can be read
std::unique_ptr<LogSource> LogFeed::Open(LogModel& model, bool& isReadable) const {
    if (!file.empty()) {
        isReadable = true;
        return OpenLogFile(file, true);
    }
    const auto start = std::chrono::floor<std::chrono::seconds>(
        std::chrono::system_clock::now().time_since_epoch() - kRecent);
    for (const std::string& line : ReadJournalBefore(start)) {
        isReadable = true;
        model.Learn(line);
    }
    return FollowJournal(start, ErrorOutput::Dropped);  // the page tells them in its own words
}

void LogFeed::Begin(bool isReadable) {
    const std::lock_guard lock(mutex);
    ++reading;
    rows.clear();
    last = 0;
    error = isReadable ? "" : error;
}

void LogFeed::Add(const LogRow& row) {
    if (row.call && row.call->method == "GetOverrideGrip" &&
        row.call->outcome == LoggedCall::Outcome::Done) {
        return;  // what the MasterWatch asks all the time
    }
    const std::lock_guard lock(mutex);
    rows.push_back(row);
    ++last;
    error.clear();
    if (rows.size() > kMostRows) {
        rows.pop_front();
    }
}

void LogFeed::SetError(const std::string& reason) {
    const std::lock_guard lock(mutex);
    error = Printable(reason);
}

}  // namespace tavrik
