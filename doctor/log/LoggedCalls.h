#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "doctor/log/LogMessage.h"
#include "doctor/log/LogRow.h"
#include "doctor/log/LoggedLinks.h"
#include "doctor/log/ReplyClaims.h"

namespace tavrik {

/// Position and time of a line of the log.
struct LogMoment {
    std::uint64_t line = 0;
    std::chrono::microseconds time{};
    bool isExact = false;  ///< whether `time` is; otherwise it has whole seconds
    LogStamp stamp = {};
};

/// Folds the lines of the threads that serve clients to calls. Which master a request went to is
/// concluded from the reply: its key and status must fit, and it must lie between the thread's
/// lines. A call for which several masters remain has no owner.
class LoggedCalls {
public:
    /// Receives the results of a thread's lines.
    struct Listener {
        /// The owner of the thread's lines since its last request.
        std::function<void(std::uint64_t thread, const LogOwner& owner)> onOwner;
        /// A call that has ended.
        std::function<void(LogRow row)> onCall;
    };

    LoggedCalls(LoggedLinks& links, Listener listener)
        : links(links), listener(std::move(listener)) {}

    /// Takes a line of a thread that is not a parser or timeout monitor.
    /// @return whether it belongs to a call, and its row says all of it
    bool Take(const LogMoment& now, std::uint64_t thread, std::string_view message);

    /// Ends the calls for which no further line can come.
    void Expire(const LogMoment& now);

    /// Ends all calls, and forgets all threads.
    void End();

    /// The owner of the request that `thread` has ended last.
    LogOwner LastOwner(std::uint64_t thread) const;

    /// Whether the lines of `thread` belong to a request whose master is not known yet.
    bool IsAwaited(std::uint64_t thread) const;

private:
    struct Match {
        std::vector<LinkPointer> links;    // those that are possible
        std::optional<LoggedReply> reply;  // of the only one
        bool allHaveValue = false;         // whether all their replies have a value
        bool noneHasValue = false;         // whether none of them has
    };
    /// The request for the model that some methods begin with.
    struct Check {
        Match match;
        LogMoment start;
        LogMoment end;
        std::uint32_t status;
        const GripperModel* model;  // null while unknown
        bool hasProcessOutput;      // known to the daemon, as motions need it
    };
    /// A call whose last request has failed: if it was a reading, the next line may say so.
    struct Failed {
        LogRow row;
        LoggedRequest request;
        std::chrono::microseconds end;
    };
    struct Thread {
        std::uint64_t lastLine = 0;
        std::string key;           // of the request under way; empty without one
        std::uint64_t window = 0;  // its reply comes after this line
        LogMoment start;
        bool isSent = true;
        std::string note;
        std::string unknownDevice;
        std::optional<Check> check;
        std::optional<Failed> failed;
        LogOwner owner;         // of its last request
        std::string onlyOwner;  // name of the owner of all its calls so far
        bool servesSeveral = false;
    };

    bool TakeLine(const LogMoment& now, std::uint64_t id, Thread& thread, std::string_view message);
    bool TakeFailure(const LogMoment& now, std::uint64_t id, Thread& thread,
                     std::string_view message);
    void Begin(const LogMoment& now, std::uint64_t id, Thread& thread, std::string_view key);
    void SetKey(std::uint64_t id, Thread& thread, std::string_view key);
    void Finish(const LogMoment& now, std::uint64_t id, Thread& thread, std::string_view text);
    void FinishRequest(const LogMoment& now, std::uint64_t id, Thread& thread, Match match,
                       std::uint32_t status);
    void FinishCheck(std::uint64_t id, Thread& thread);
    void FinishFailed(Thread& thread, bool isAbsent) const;
    void Report(const LogMoment& now, std::uint64_t id, const Match& match, LoggedCall call);
    LogRow RowOf(const LogMoment& now, std::uint64_t id, const Match& match, LoggedCall call);
    void SetOwner(std::uint64_t id, const LogOwner& owner);
    void TrackOwner(Thread& thread, LogOwner& owner);
    Match Find(const std::vector<LinkPointer>& among, std::string_view key, std::uint32_t status,
               std::uint64_t window);

    LoggedLinks& links;
    ReplyClaims claims;
    Listener listener;
    std::unordered_map<std::uint64_t, Thread> threads;
};

}  // namespace tavrik
