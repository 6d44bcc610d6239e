#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "client/GripperSettings.h"

namespace tavrik {

/// What became of a command, in words.
struct CommandResult {
    bool isDone = false;
    std::string text;
};

/// What a page asked for that moves a gripper or changes it.
class PageCommand {
public:
    /// @param request an object with "gripper" (device string), "command" (grip, release,
    /// reference, disable, holdfast, store, set), and for some "set", "on", "setting", "number",
    /// "value"
    /// @throws Failure (Usage)
    explicit PageCommand(const nlohmann::json& request);

    const std::string& Device() const { return device; }

    /// Of the daemon.
    const std::string& Method() const { return method; }

    /// In words, for the log, as in "grip, set 1".
    const std::string& Text() const { return text; }

    /// Whether it switches the drive off: no limit may delay this.
    bool IsDisable() const { return method == "Disable"; }

    /// What a status of 0 means, in words: the end of a motion is not awaited.
    std::string_view Success() const { return moves ? "started" : "done"; }

    /// Calls the daemon.
    /// @return its status
    int Run(const Gripper& gripper) const;

    /// After Run(): reads a setting back, because a status of 0 may belong to an earlier request.
    /// @throws Failure (Refused) when the gripper has another value
    void Confirm(const Gripper& gripper) const;

private:
    void TakeMotion(std::string_view name, const nlohmann::json& request);
    void TakeSetting(const nlohmann::json& request);

    std::string device;
    std::string method;
    xmlrpc_c::carray arguments;  // after the device string
    std::string text;
    bool moves = false;
    SettingPlace place{nullptr};  // that is set; without a setting for a motion
    std::string value;            // in words
};

}  // namespace tavrik
