#pragma once

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "client/Daemon.h"
#include "client/ExpectedCell.h"
#include "client/Failure.h"
#include "doctor/Finding.h"
#include "doctor/Host.h"

namespace tavrik {

/// Checks everything between the robot and the gripper, without changing anything.
class Doctor {
public:
    /// @param endpoint host and timeout of the daemon; both ports are checked
    /// @param cellFile with the expected grippers; empty for no comparison
    /// @param logFile the daemon's log; empty for the journal
    /// @param stop ends calls to the daemon early; the findings are then incomplete
    /// @throws Failure (Usage) if `cellFile` is not a cell file
    explicit Doctor(const Endpoint& endpoint, std::string cellFile = "", std::string logFile = "",
                    std::stop_token stop = {});

    /// Makes all checks. Takes a second or more for each silent master. One thread.
    void Examine();

    // After Examine():

    /// Done only if a gripper answers.
    ExitStatus Status() const { return status; }
    /// Whether the grippers are those of the cell; true without a cell file.
    bool IsCellAsExpected() const { return isCellAsExpected; }
    /// The reply to GetVersion; empty if there was none.
    const std::string& DaemonVersion() const { return version; }
    /// Whether the machine was checked, too, because the daemon runs on this one.
    bool HasCheckedMachine() const { return hasCheckedMachine; }
    const Findings& Result() const { return findings; }
    nlohmann::ordered_json Json() const;

private:
    void ExaminePorts(const Host* host);
    void ExamineDevices(const Host& host);
    void ExamineGrippers(const Host* host);
    void ExamineCell(const std::optional<std::vector<std::string>>& grippers);
    std::string RemedyForNone(const Host* host) const;
    std::optional<std::vector<std::string>> ListGrippers(Daemon& daemon);
    Findings AskGrippers(Daemon& daemon, const std::vector<std::string>& grippers);
    void Add(const Findings& more);

    Endpoint endpoint;  // its port is one that answers, once found
    const std::string cellFile;
    const std::optional<ExpectedCell> cell;
    const std::string logFile;
    const std::stop_token stop;
    bool isCellAsExpected = true;
    bool answers = false;
    bool hasCheckedMachine = false;
    std::string version;
    Findings findings;
    ExitStatus status = ExitStatus::NoDaemon;
};

}  // namespace tavrik
