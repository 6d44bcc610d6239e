#include "pellix/CommandHandler.h"

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "common/LogLine.h"
#include "pellix/Protocol.h"

namespace pellix {

namespace {

// Longest delay when the notification comes between reading the state and waiting for it.
constexpr std::chrono::milliseconds kWaitSlice{5};

}  // namespace

CommandHandler::CommandHandler(Connection* connection, DeviceHandler* deviceHandler, double timeout,
                               std::chrono::milliseconds removalPatience)
    : connection(connection),
      timeout(timeout),
      removalPatience(removalPatience),
      parser(*connection, *deviceHandler, *this) {}

Command* CommandHandler::SendQuery(const std::string& name) {
    return Send(name, kQuery, {});
}

Command* CommandHandler::SendAssignment(const std::string& name, const std::string& value) {
    return Send(name, kAssignment, {value});
}

Command* CommandHandler::SendCall(const std::string& name,
                                  const std::vector<std::string>& arguments) {
    return Send(name, kCall, arguments);
}

Command* CommandHandler::Send(const std::string& name, int type,
                              const std::vector<std::string>& arguments) {
    auto created = std::make_unique<Command>(name, type, arguments);
    created->SetState(kActive);
    if (deviceRemoved) {
        LogLine() << "Device has been removed";
        return nullptr;
    }
    if (!Enqueue(created.get())) {
        LogLine() << "Failed to add new command " << name << " to queue";
        return nullptr;
    }
    Command* const command = created.release();  // RemovePending() deletes it from here on
    if (connection->Write(command->FormatLine()) != 0) {
        LogLine() << "Failed to send command " << name;
        RemovePending(command);
        return nullptr;
    }
    LogLine() << "New command " << name << ". Active commands: " << CountActive();
    return command;
}

bool CommandHandler::Enqueue(Command* command) {
    try {
        const std::lock_guard<std::mutex> lock(mutex);
        activeCommands.push_back(command);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

std::size_t CommandHandler::CountActive() {
    const std::lock_guard<std::mutex> lock(mutex);
    return activeCommands.size();
}

int CommandHandler::WaitForFinished(Command* command) {
    try {
        for (;;) {
            const int state = command->GetState();
            if (state == kFinished || state == kFailed) {
                return state;
            }
            command->WaitForDone(kWaitSlice);
        }
    } catch (const std::exception&) {
        LogLine() << "Exception occured in "
                  << "WaitForFinished";
        command->Fail(kResultTimeout);  // an unconfirmed request must not count as a success
        return kFailed;
    }
}

void CommandHandler::RemovePending(Command* command) {
    std::size_t left = 0;
    try {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found = std::find(activeCommands.begin(), activeCommands.end(), command);
        if (found == activeCommands.end()) {
            LogLine() << "Couldn't find command " << command->FormatLine();
            return;
        }
        activeCommands.erase(found);
        left = activeCommands.size();
        LogLine() << "Pending command " << command->GetName()
                  << " deleted (Status: " << static_cast<unsigned>(command->GetStatus()) << ").";
    } catch (const std::exception&) {
        LogLine() << "Failed to remove pending command " << command->FormatLine() << " from queue";
        return;
    }
    removed.notify_all();
    LogLine() << "Active commands: " << left;
    delete command;
}

Command* CommandHandler::FindActive(const std::string& name) {
    Command* found = nullptr;
    Update(name, [&found](Command& command) { found = &command; });
    return found;
}

bool CommandHandler::HasActive(const std::string& name) {
    const std::lock_guard<std::mutex> lock(mutex);
    return std::any_of(activeCommands.begin(), activeCommands.end(),
                       [&name](const Command* command) { return command->GetName() == name; });
}

void CommandHandler::OnAcknowledged(const std::string& name) {
    Update(name, [](Command& command) { command.SetState(kAcknowledged); });
}

void CommandHandler::OnFinished(const std::string& name) {
    Update(name, [](Command& command) { command.SetState(kFinished); });
}

void CommandHandler::OnError(const std::string& name, const std::string& errorNumber) {
    const int status = std::stoi(errorNumber);
    Update(name, [status](Command& command) { command.Fail(status); });
}

void CommandHandler::AwaitRemoval(const std::string& name) {
    std::unique_lock<std::mutex> lock(mutex);
    removed.wait_for(lock, removalPatience,
                     [this, &name] { return NextAfterDone(name) == nullptr; });
}

void CommandHandler::AwaitRemovalBeforeQuery(const std::string& name) {
    std::unique_lock<std::mutex> lock(mutex);
    removed.wait_for(lock, removalPatience, [this, &name] {
        const Command* const next = NextAfterDone(name);
        return next == nullptr || !next->IsQuery();
    });
}

/// @return the command whose replies a finished one of the same name still receives, or null; the
///         caller holds the mutex
const Command* CommandHandler::NextAfterDone(const std::string& name) const {
    const auto isNamed = [&name](const Command* command) { return command->GetName() == name; };
    const auto oldest = std::find_if(activeCommands.begin(), activeCommands.end(), isNamed);
    if (oldest == activeCommands.end() || !(*oldest)->IsDone()) {
        return nullptr;
    }
    const auto next = std::find_if(oldest + 1, activeCommands.end(), isNamed);
    return next == activeCommands.end() ? nullptr : *next;
}

void CommandHandler::Update(const std::string& name, const std::function<void(Command&)>& update) {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        const auto found =
            std::find_if(activeCommands.begin(), activeCommands.end(),
                         [&name](const Command* command) { return command->GetName() == name; });
        if (found != activeCommands.end()) {
            update(**found);
            return;
        }
    }
    LogLine() << "Active command " << name << " could not be found";
}

void CommandHandler::CheckTimeouts() {
    const std::lock_guard<std::mutex> lock(mutex);
    for (Command* const command : activeCommands) {
        const auto elapsedMs =
            std::chrono::duration_cast<std::chrono::milliseconds>(command->GetAge()).count();
        const double elapsed = static_cast<double>(elapsedMs) / 1000.0;  // seconds
        if (elapsed > timeout && !command->IsDone()) {
            command->Fail(kResultTimeout);
            LogLine() << "Active command " << command->FormatLine() << " timed out after "
                      << static_cast<std::int64_t>(elapsed * 1000) << " ms.";
        }
    }
}

}  // namespace pellix
