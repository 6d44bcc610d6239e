#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace pellix {

/// Form of a request line. With any other value, Command::FormatLine() gives an empty line.
enum CommandType : int {
    kCall = 1,        ///< name(arguments)
    kQuery = 2,       ///< name?
    kAssignment = 3,  ///< name=value
};

/// Progress of a command. A later reply overwrites any state, even a terminal one.
enum CommandState : int {
    kCreated = 0,
    kActive = 1,        ///< queued for sending, or sent
    kAcknowledged = 2,  ///< the master is executing it
    kFinished = 3,      ///< terminal: success
    kFailed = 4,        ///< terminal: error reply or timeout
};

/// One request to a master and its progress. The master echoes the name in its replies.
///
/// Threads: any thread may call. The sender waits; the parser thread and the timeout monitor set
/// the state. The command must not be destroyed during a call.
class Command {
public:
    /// @param type a CommandType
    /// @param arguments arguments of a call, or the value of an assignment in element 0
    Command(const std::string& name, int type, const std::vector<std::string>& arguments);
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;
    virtual ~Command() = default;

    /// @return the request line, including its line feed
    std::string FormatLine() const;

    const std::string& GetName() const { return name; }

    bool IsQuery() const { return type == kQuery; }

    /// @return time since construction, by the steady clock
    std::chrono::nanoseconds GetAge() const;

    /// @return a CommandState
    int GetState() const { return state; }

    bool IsDone() const { return state == kFinished || state == kFailed; }

    /// @return 0, the master's error number, or kResultTimeout
    int GetStatus() const { return status; }

    /// Stores the state and wakes the waiting thread. The caller must keep that thread from
    /// destroying the command until this returns. A failure to lock is only logged.
    void SetState(int newState);

    /// Stores the status, then the state kFailed, so that a thread that sees the state also sees
    /// the status.
    void Fail(int newStatus);

    /// Waits at most `slice` for a terminal state.
    /// @throws std::system_error if the mutex cannot be locked
    void WaitForDone(std::chrono::milliseconds slice);

private:
    const std::chrono::steady_clock::time_point created;
    const std::string name;
    const int type;
    const std::vector<std::string> arguments;
    std::atomic<int> state = kCreated;  // written under `mutex`, read without it
    std::atomic<int> status = 0;
    std::mutex mutex;  // pairs `state` with `condition`; taken after the handler's mutex
    std::condition_variable condition;
};

}  // namespace pellix
