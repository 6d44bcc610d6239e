#include "pellix/Command.h"

#include <system_error>

#include "common/LogLine.h"

namespace pellix {

namespace {

// On purpose: the master expects exactly these three characters between two arguments.
constexpr const char* kArgumentSeparator = ",-f";

std::string JoinArguments(const std::vector<std::string>& arguments) {
    std::string joined;
    for (const std::string& argument : arguments) {
        if (&argument != &arguments.front()) {
            joined += kArgumentSeparator;
        }
        joined += argument;
    }
    return joined;
}

}  // namespace

Command::Command(const std::string& name, int type, const std::vector<std::string>& arguments)
    : created(std::chrono::steady_clock::now()), name(name), type(type), arguments(arguments) {}

std::string Command::FormatLine() const {
    switch (type) {
        case kCall:
            return name + "(" + JoinArguments(arguments) + ")\n";
        case kQuery:
            return name + "?\n";
        case kAssignment:
            return name + "=" + (arguments.empty() ? "" : arguments.front()) + "\n";
        default:
            return "\n";
    }
}

std::chrono::nanoseconds Command::GetAge() const {
    return std::chrono::steady_clock::now() - created;
}

void Command::SetState(int newState) {
    try {
        const std::lock_guard<std::mutex> lock(mutex);
        state = newState;
    } catch (const std::system_error&) {
        LogLine() << "Exception occured in "
                  << "SetCommandState";
        return;
    }
    condition.notify_all();  // without the mutex, so that the waiting thread gets it at once
}

void Command::Fail(int newStatus) {
    status = newStatus;
    SetState(kFailed);
}

void Command::WaitForDone(std::chrono::milliseconds slice) {
    std::unique_lock<std::mutex> lock(mutex);
    condition.wait_for(lock, slice, [this] { return IsDone(); });
}

}  // namespace pellix
