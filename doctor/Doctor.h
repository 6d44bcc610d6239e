#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "client/Daemon.h"
#include "client/Failure.h"
#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

/// Walks the road from the robot to the gripper and collects what is right and what is wrong.
/// Looks, and changes nothing.
class Doctor {
public:
    /// @param server host and time-out of the daemon; both ports are looked at
    explicit Doctor(const Endpoint& server) : endpoint(server) {}

    void Examine();

    // After Examine().

    /// Done only if a gripper answers.
    ExitStatus Status() const { return status; }
    /// What GetVersion answered; empty without an answer.
    const std::string& DaemonVersion() const { return version; }
    /// Whether the daemon's machine was looked at too: it is this one.
    bool SawMachine() const { return sawMachine; }
    const Findings& Result() const { return findings; }
    nlohmann::ordered_json Json() const;

private:
    void ExaminePorts(const Host* host);
    void ExamineDevices(const Host& host);
    void ExamineGrippers(const Host* host);
    std::optional<std::vector<std::string>> ListGrippers(Daemon& daemon);
    Findings AskGrippers(Daemon& daemon, const std::vector<std::string>& grippers);
    void Add(const Findings& more);

    Endpoint endpoint;  // its port answers, once one has
    bool answers = false;
    bool sawMachine = false;
    std::string version;
    Findings findings;
    ExitStatus status = ExitStatus::NoDaemon;
};

}  // namespace tavrik
