#include "doctor/DaemonLog.h"

#include <algorithm>
#include <array>
#include <functional>
#include <sstream>

#include "client/Printable.h"
#include "doctor/Host.h"
#include "doctor/ToolOutput.h"
#include "doctor/log/LogEntry.h"
#include "doctor/log/LogMessage.h"
#include "doctor/log/LogModel.h"
#include "doctor/log/LogSource.h"

namespace tavrik {

namespace {

std::string WithoutQuotes(std::string_view quoted) {
    std::string text(quoted);
    std::erase(text, '"');
    return text;
}

struct Mode {
    const char* text;
    const char* remedy;  // empty if the mode is normal
};

constexpr const char* kWait = "wait; if this persists, the gripper or its master is faulty";
constexpr const char* kCheckGripper = "check the gripper's cable and power";

constexpr std::array kModes{
    Mode{"none", kCheckGripper}, Mode{"looking for a gripper", kCheckGripper},
    Mode{"startup", kWait},      Mode{"preoperate", kWait},
    Mode{"operate", ""},         Mode{"fallback", kCheckGripper},
    Mode{"block mode", kWait},   Mode{"power fault", "check the gripper's power supply"}};

Mode ModeOf(int number) {
    const bool isKnown = number >= 0 && number < static_cast<int>(kModes.size());
    return isKnown ? kModes.at(static_cast<std::size_t>(number)) : Mode{"unknown", kWait};
}

void ForEachLine(const std::string& path, const std::function<void(std::string_view)>& take) {
    constexpr std::chrono::seconds kPatience(1);
    const auto source = OpenLogFile(path, false);
    std::string_view line;
    for (auto result = LogSource::Result::Line; result != LogSource::Result::End;) {
        result = source->Next(line, kPatience);
        if (result == LogSource::Result::Line) {
            take(line);
        }
    }
}

Finding DescribeCalls(const std::string& path, const std::string& name,
                      const LogSummary::Gripper& gripper) {
    const bool isGood = gripper.refusals == 0 && gripper.timeouts == 0;
    return {
        isGood ? Mark::Ok : Mark::Warning, name.empty() ? "unknown gripper" : CopyableName(name),
        "log: " + std::to_string(gripper.calls) + " calls, " + std::to_string(gripper.refusals) +
            " refused, " + std::to_string(gripper.timeouts) + " timed out",
        isGood ? "" : "to see them: tavrikctl log " + ShellWord(path)};
}

Finding CheckLink(const std::string& node, const LoggedMaster& master) {
    if (!master.failure.empty()) {
        return {Mark::Wrong, node, "log: " + master.failure,
                "check the master's power and which programs have its tty open, then replug it"};
    }
    const std::string id = "log: ID " + (master.id ? "\"" + *master.id + "\"" : "unknown");
    if (master.id && *master.id != "PELLIX" && *master.id != "MARROK-7") {
        return {Mark::Wrong, node, id + R"(, not "PELLIX" or "MARROK-7")",
                "replace it with a PELLIX or MARROK-7: TavrikDaemon lists no others"};
    }
    if (!master.mode) {
        return {Mark::Unknown, node, id + ", mode unknown"};
    }
    const Mode mode = ModeOf(*master.mode);
    const bool isNormal = *mode.remedy == '\0';
    return {isNormal ? Mark::Ok : Mark::Wrong, node,
            id + ", mode " + std::to_string(*master.mode) + ", " + mode.text, mode.remedy};
}

}  // namespace

DaemonLog::DaemonLog(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) {
        Take(line);
    }
}

DaemonLog DaemonLog::OfFile(const std::string& path) {
    DaemonLog log({});
    ForEachLine(path, [&log](std::string_view line) { log.Take(line); });
    return log;
}

void DaemonLog::Take(std::string_view line) {
    const LogEntry entry = ParseLogEntry(line);
    if (entry.thread) {
        Take(*entry.thread, entry.message);
    }
}

DaemonLog DaemonLog::OfProcess(pid_t daemon) {
    constexpr const char* kWanted =
        "--grep=Opening device|Parser thread active|Setting device mode|line: ID=|"
        "Failed to (initialize|open)|PELLIX removed";
    // Newest first, because a log of several days takes longer to read.
    constexpr std::chrono::seconds kPatience(5);
    const ToolOutput output =
        RunTool({"journalctl", "--boot", "--no-pager", "--output=cat", "--reverse", "--lines=2000",
                 "--case-sensitive=true", kWanted, "_PID=" + std::to_string(daemon)},
                kPatience);
    return DaemonLog(output.LinesInReverse());
}

void DaemonLog::Take(std::uint64_t thread, std::string_view message) {
    LoggedMaster* const master = MasterOf(thread);
    if (const auto node = After("SerialConnection: Opening device ", message)) {
        openedNode = *node;
        threadNodes[thread] = *node;
        masters[openedNode].failure.clear();
    } else if (message == "Parser thread active" && !openedNode.empty()) {
        // It belongs to the tty opened last: masters are set up one at a time.
        threadNodes[thread] = openedNode;
        masters[openedNode] = {};
    } else if (const auto gone = After("PELLIX removed: ", message)) {
        masters.erase(std::string(*gone));
    } else if (master == nullptr) {
        return;
    } else if (const auto id = After("Parsing line: ID=", message)) {
        master->id = WithoutQuotes(*id);
    } else if (const auto mode = After("Setting device mode to ", message)) {
        int number = 0;
        if (std::istringstream(std::string(*mode)) >> number) {
            master->mode = number;
        }
    } else if (message.starts_with("Failed to initialize") ||
               message.starts_with("Failed to open")) {
        master->failure = message;
    }
}

LoggedMaster* DaemonLog::MasterOf(std::uint64_t thread) {
    const auto node = threadNodes.find(thread);
    const auto found = node == threadNodes.end() ? masters.end() : masters.find(node->second);
    return found == masters.end() ? nullptr : &found->second;
}

const LoggedMaster* DaemonLog::Find(const std::string& node) const {
    const auto found = masters.find(node);
    return found == masters.end() ? nullptr : &found->second;
}

Findings CheckLogFile(const std::string& path) {
    LogModel model([](const LogRow&) {}, false);
    ForEachLine(path, [&model](std::string_view line) { model.Take(line); });
    model.End();
    Findings findings;
    for (const auto& [name, gripper] : model.Summary().grippers) {
        findings.push_back(DescribeCalls(path, name, gripper));
    }
    return findings;
}

Findings CheckLinks(const Host& host, const DaemonLog& log, bool isMissed) {
    Findings findings;
    for (const UsbTty& tty : host.ttys) {
        if (const LoggedMaster* const master = log.Find(tty.node)) {
            findings.push_back(CheckLink(tty.node, *master));
        }
    }
    if (findings.empty() && isMissed && std::ranges::any_of(host.ttys, &UsbTty::IsMaster)) {
        return {{Mark::Unknown, "log", "the journal does not have the IDs and modes of the masters",
                 "run as root: tavrikctl doctor; if the daemon logs to a file, add --log FILE"}};
    }
    return findings;
}

}  // namespace tavrik
