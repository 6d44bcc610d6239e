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

/// The commands of one link that are under way, and the input parser that completes them.
///
/// A request is always: Send..., WaitForFinished(), RemovePending().
class CommandHandler {
public:
    /// @param line owned; destroyed with the handler
    /// @param deviceHandler receives every line that is not about a command; outlives the handler
    /// @param seconds how long a command may stay unfinished, counted from its creation
    /// @param patience how long AwaitRemoval() waits at most
    CommandHandler(Connection* line, DeviceHandler* deviceHandler, double seconds,
                   std::chrono::milliseconds patience = std::chrono::milliseconds(5));
    CommandHandler(const CommandHandler&) = delete;
    CommandHandler& operator=(const CommandHandler&) = delete;
    virtual ~CommandHandler() = default;

    /// Send a command; any thread, blocks as long as Connection::Write().
    /// @return null when nothing was sent (already logged); otherwise a command that the caller
    ///         hands to RemovePending()
    Command* SendQuery(const std::string& name);
    Command* SendAssignment(const std::string& name, const std::string& value);
    Command* SendCall(const std::string& name, const std::vector<std::string>& arguments);

    /// Blocks until a reply or CheckTimeouts() ends the command. @return kFinished or kFailed
    int WaitForFinished(Command* command);

    /// Takes the command off the list and destroys it; one that is not listed is only logged.
    void RemovePending(Command* command);

    /// Fails overdue commands with kResultTimeout. To be called every 10 ms.
    void CheckTimeouts();

    /// The master has been unplugged: from now on nothing is sent. Any thread.
    void SetDeviceRemoved() { deviceRemoved = true; }

    /// The oldest active command of that name, or null (logged). The caller must know by other
    /// means that it is not removed meanwhile.
    Command* FindActive(const std::string& name);

    /// Whether a command of that name is listed. Parser thread only.
    bool HasActive(const std::string& name);

    /// The master's status lines, each for the oldest active command of that name, done or not.
    void OnAcknowledged(const std::string& name);
    void OnFinished(const std::string& name);
    /// @throws std::invalid_argument, std::out_of_range when `errorNumber` is no int (std::stoi)
    void OnError(const std::string& name, const std::string& errorNumber);

    /// After a command's last line: if a younger command has its name, waits a little for the
    /// sender to remove it. As long as it is listed it takes the replies to the younger one, which
    /// would then time out although it was carried out. Process data of this master wait as long,
    /// for each such line. Parser thread only.
    void AwaitRemoval(const std::string& name);

    /// The same after a data line, but not if the younger command is a setting: a late FIN of the
    /// older one would end it with success although it may be refused. A query that such a FIN
    /// ends has the value of the one before.
    void AwaitRemovalBeforeQuery(const std::string& name);

    /// One pass of the input parser; parser thread only. @throws as OnError()
    void Parse() { parser.Parse(); }

private:
    Command* Send(const std::string& name, int type, const std::vector<std::string>& arguments);
    bool Enqueue(Command* command);
    std::size_t CountActive();
    void Update(const std::string& name, const std::function<void(Command&)>& update);
    const Command* NextAfterDone(const std::string& name) const;

    std::vector<Command*> activeCommands;  // oldest first; destroyed by RemovePending()
    const std::unique_ptr<Connection> connection;
    const double timeout;  // seconds
    const std::chrono::milliseconds removalPatience;
    InputParser parser;
    std::atomic<bool> deviceRemoved = false;  // set once, never cleared
    // guards activeCommands, and the life of the commands in it: replies find a command and set
    // its state under it. Taken before a command's mutex, never held while writing to the tty.
    std::mutex mutex;
    std::condition_variable removed;  // notified when activeCommands has become shorter
};

}  // namespace pellix
