#pragma once

#include <chrono>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <xmlrpc-c/base.hpp>

#include "client/Gripper.h"
#include "tavrikctl/commands/Command.h"

namespace tavrik {

/// What one MotionCommand does.
struct Motion {
    enum class Argument { None, Set, OnOff };

    std::string name;
    std::string description;
    std::string method;  ///< answers a status
    Argument argument = Argument::None;
    bool moves = true;  ///< whether its end can be waited for
};

/// A command to the gripper: one call that answers a status.
class MotionCommand : public Command {
public:
    MotionCommand(CLI::App& program, const Motion& motion);
    ExitStatus Run(Daemon& daemon, Printer& printer) override;

private:
    void AddWaiting();

    /// Tells the end of a motion, which has come to this.
    /// @throws Failure (Faulty) when there is a fault
    void Tell(const ProcessData& rest, const std::string& outcome,
              const nlohmann::ordered_json& object, Printer& printer) const;

    /// The parameters behind the device string.
    xmlrpc_c::carray Arguments() const;

    const Motion motion;
    std::string onOff;
    int set = 0;
    bool wait = false;
    std::chrono::milliseconds limit = std::chrono::seconds(30);  // of waiting
    bool json = false;
};

}  // namespace tavrik
