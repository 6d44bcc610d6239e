#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <stop_token>
#include <string>
#include <thread>

#include "doctor/log/LogModel.h"
#include "doctor/log/LogSource.h"

namespace tavrik {

/// The daemon's log as rows for the page. Read only while pages ask for it, on a thread of
/// its own.
class LogFeed {
public:
    /// @param file with the log; empty for the journal
    explicit LogFeed(std::string file);

    /// Takes up to a second; up to 6 s while names are looked up in the journal.
    ~LogFeed();
    LogFeed(const LogFeed&) = delete;
    LogFeed& operator=(const LogFeed&) = delete;

    /// What has come since the caller asked before; keeps the reading going for half a minute. Any
    /// thread may call.
    /// @param knownReading,known "reading" and "last" as the caller was told before; otherwise it
    /// gets all rows that are kept
    /// @param gripper device string; empty for all
    /// @return "reading" and "last"; "rows", each with date, clock, mark, isAlarming, master,
    /// gripper and text; "trouble", why there are none
    nlohmann::ordered_json Rows(std::uint64_t knownReading, std::uint64_t known,
                                const std::string& gripper);

private:
    using Clock = std::chrono::steady_clock;

    void Run();
    bool AwaitReader();
    void Read();
    std::unique_ptr<LogSource> Open(LogModel& model, bool& isReadable) const;
    bool IsWanted();
    void Begin(bool isReadable);
    void Add(const LogRow& row);
    void SetError(const std::string& reason);

    const std::string file;
    std::stop_source stop;
    std::mutex mutex;  // guards what follows
    std::condition_variable_any changed;
    Clock::time_point wantedUntil{};
    std::deque<LogRow> rows;    // the last ones
    std::uint64_t reading = 0;  // counts from when the log was opened last
    std::uint64_t last = 0;     // number of the last row
    std::string error;
    std::thread thread;  // last: uses all others
};

}  // namespace tavrik
