#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "client/GripperModels.h"

namespace tavrik {

/// What a message of the daemon's log means to a person.
enum class LogKind {
    Call,     ///< a call, folded to one row
    Problem,  ///< refusals, timeouts, silence, failures
    Event,    ///< start and stop, plugging, reopening, modes of the data link
    Routine,  ///< of interest only if one looks for details
    Other,    ///< not a known text of the daemon, such as lines of another program
};

/// "call", "trouble", "event", "routine" or "other".
const char* KindText(LogKind kind);

/// @param message without time and thread
LogKind KindOf(std::string_view message);

/// Whether `message` is about the daemon or its host, and no master in particular.
bool IsOfDaemon(std::string_view message);

/// The model that a line such as "HVA detected" names; null for another line.
const GripperModel* DetectedModel(std::string_view message);

/// The rest of `message` after `beginning`; nothing if it begins differently.
std::optional<std::string_view> After(std::string_view beginning, std::string_view message);

/// The text of `message` between `beginning` and `end`; nothing if it has another form.
std::optional<std::string_view> Between(std::string_view beginning, std::string_view end,
                                        std::string_view message);

/// A request that a call sent, and what the log says of its answer.
struct LoggedRequest {
    std::string key;                 ///< "PDOUT", "PARAM[96][3]"
    std::string text;                ///< with the value, if the log has it: "PDOUT=[3,1]"
    bool isRead = false;             ///< it asked for a value
    bool isAssigned = false;         ///< it set a value; neither is true if the log leaves it open
    bool followsModelCheck = false;  ///< the call asked for the model before
    const GripperModel* model = nullptr;  ///< as the call was answered; may be null
    std::string processOutput = {};       ///< the value of PDOUT before, "3,1"; may be empty
};

/// The methods that send `request`, joined by " or "; empty if none does. The log does not have
/// their names.
std::string MethodsOf(const LoggedRequest& request);

/// Whether only methods that ask for the model before send requests for `key`.
bool NeedsModelCheck(std::string_view key);

}  // namespace tavrik
