#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace pellix {

/// Form of a request line; any other value gives an empty line.
enum CommandType : int {
    kCall = 1,        ///< name(arguments)
    kQuery = 2,       ///< name?
    kAssignment = 3,  ///< name=value
};

/// Progress of a command. A later reply overwrites any state, a terminal one too.
enum CommandState : int {
    kCreated = 0,
    kActive = 1,        ///< queued for sending, or sent
    kAcknowledged = 2,  ///< the master carries it out
    kFinished = 3,      ///< terminal: success
    kFailed = 4,        ///< terminal: error reply or time-out
};

/// One request to a master and its progress. The name is what the master echoes in its replies.
///
/// Threads: the sender waits, the parser thread and the timeout monitor set the state.
class Command {
public:
    /// @param key the name
    /// @param form a CommandType
    /// @param values arguments of a call, or the value of an assignment in element 0
    Command(const std::string& key, int form, const std::vector<std::string>& values);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// The request line with its line feed.
    std::string FormatLine() const;

    const std::string& GetName() const { return name; }

    bool IsQuery() const { return type == kQuery; }

    /// Time since construction.
    std::chrono::nanoseconds GetAge() const;

    int GetState() const { return state; }

    bool IsDone() const { return state == kFinished || state == kFailed; }

    /// 0, the master's error number, or kResultTimeout.
    int GetStatus() const { return status; }

    /// Stores the state and wakes the waiting thread. The caller keeps that from destroying the
    /// command meanwhile.
    void SetState(int newState);

    /// Stores the status, then the state kFailed: whoever sees the state also sees its status.
    void Fail(int newStatus);

    /// Waits at most `slice` for a terminal state.
    void WaitForDone(std::chrono::milliseconds slice);

private:
    const std::chrono::steady_clock::time_point created;
    const std::string name;
    const int type;
    const std::vector<std::string> arguments;
    std::atomic<int> state = kCreated;  // written under `mutex`, read without
    std::atomic<int> status = 0;
    std::mutex mutex;  // pairs `state` with `condition`; taken after the handler's mutex
    std::condition_variable condition;
};

}  // namespace pellix
