#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "pellix/Command.h"
#include "pellix/Connection.h"
#include "pellix/InputParser.h"

namespace pellix {

class DeviceHandler;

/// The active commands of one link, and the input parser that completes them.
///
/// Every request is: Send...(), WaitForFinished(), RemovePending(). Any thread may call, except
/// where stated.
class CommandHandler {
public:
    /// @param connection owned; destroyed with the handler
    /// @param deviceHandler receives every data line; not owned, outlives the handler
    /// @param timeout longest age of an unfinished command, in seconds
    /// @param removalPatience longest wait of AwaitRemoval()
    CommandHandler(Connection* connection, DeviceHandler* deviceHandler, double timeout,
                   std::chrono::milliseconds removalPatience = std::chrono::milliseconds(5));
    CommandHandler(const CommandHandler&) = delete;
    CommandHandler& operator=(const CommandHandler&) = delete;
    virtual ~CommandHandler() = default;

    /// Send a command; block as long as Connection::Write() does.
    /// @return null if nothing was sent (already logged), otherwise the command, which the caller
    ///         must pass to RemovePending()
    Command* SendQuery(const std::string& name);
    Command* SendAssignment(const std::string& name, const std::string& value);
    Command* SendCall(const std::string& name, const std::vector<std::string>& arguments);

    /// Blocks until a reply or CheckTimeouts() ends the command. @return kFinished or kFailed
    int WaitForFinished(Command* command);

    /// Takes the command off the list and destroys it. A command that is not listed is only logged.
    void RemovePending(Command* command);

    /// Fails overdue commands with kResultTimeout. Must be called every 10 ms.
    void CheckTimeouts();

    /// The master has been unplugged: nothing is sent from now on.
    void SetDeviceRemoved() { deviceRemoved = true; }

    /// For callers that look at a command without changing it; the daemon itself has none.
    /// @return the oldest listed command of that name, or null (logged). The caller must make sure
    ///         that it is not removed during use.
    Command* FindActive(const std::string& name);

    /// @return whether a command of that name is listed
    bool HasActive(const std::string& name);

    /// Apply a status line of the master to the oldest listed command of that name, even if it is
    /// already done. Parser thread only.
    void OnAcknowledged(const std::string& name);
    void OnFinished(const std::string& name);
    /// @throws std::invalid_argument, std::out_of_range if `errorNumber` is not an int (std::stoi)
    void OnError(const std::string& name, const std::string& errorNumber);

    /// Called after a command's last line. If a younger command has the same name, waits for the
    /// sender to remove the finished one, at most `removalPatience`. While the finished command is
    /// listed it receives the replies to the younger one, which then times out although the master
    /// executed it. The wait delays this master's process data. Parser thread only.
    void AwaitRemoval(const std::string& name);

    /// The same after a data line, but does not wait if the younger command is an assignment: a
    /// late FIN of the older command would finish the assignment, which the master may yet refuse.
    /// A query that such a FIN finishes returns the previous value.
    void AwaitRemovalBeforeQuery(const std::string& name);

    /// Runs one pass of the input parser. Parser thread only.
    /// @throws as OnError()
    void Parse() { parser.Parse(); }

private:
    Command* Send(const std::string& name, int type, const std::vector<std::string>& arguments);
    bool Enqueue(Command* command);
    std::size_t CountActive();
    void Update(const std::string& name, const std::function<void(Command&)>& update);
    const Command* NextAfterDone(const std::string& name) const;

    std::vector<Command*> activeCommands;  // oldest first; deleted by RemovePending()
    const std::unique_ptr<Connection> connection;
    const double timeout;  // seconds
    const std::chrono::milliseconds removalPatience;
    InputParser parser;
    std::atomic<bool> deviceRemoved = false;  // set once, never cleared
    // Guards activeCommands and the lifetime of the commands in it: a reply finds its command and
    // sets the state under this mutex. Taken before a command's mutex; never held while writing to
    // the tty.
    std::mutex mutex;
    std::condition_variable removed;  // notified after a command was taken off activeCommands
};

}  // namespace pellix
