#include "doctor/Doctor.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "client/Failure.h"
#include "client/Gripper.h"
#include "client/GripperModels.h"
#include "client/Printable.h"
#include "client/ProcessData.h"
#include "client/Values.h"
#include "common/Ports.h"
#include "common/Version.h"
#include "doctor/DaemonLog.h"
#include "doctor/Masters.h"
#include "doctor/Ports.h"
#include "doctor/Service.h"

namespace tavrik {

namespace {

bool AreAllOk(const Findings& findings) {
    return std::ranges::all_of(findings, [](const Finding& each) { return each.mark == Mark::Ok; });
}

/// The daemon answers calls that send nothing from the data it has, however old they are.
Findings ReportStaleGrippers(const std::vector<std::string>& grippers) {
    Findings findings;
    for (const std::string& device : grippers) {
        findings.push_back({Mark::Wrong, CopyableName(device),
                            "the answers of TavrikDaemon are stale: no tty is open",
                            "replug its master"});
    }
    return findings;
}

/// The finding for a gripper that answers.
/// @param options of the commands in its remedies
Finding Describe(const Gripper& gripper, const ProcessData& data, const std::string& options) {
    const std::string text = "answers: state " + std::to_string(data.state) + ", position " +
                             HundredthsText(data.position);
    const std::string flags = data.FlagText();
    const std::string name = CopyableName(gripper.DeviceString());
    const std::string word = ShellWord(gripper.DeviceString()) + options;
    if (!flags.empty()) {
        return {Mark::Wrong, name, text + ", " + flags, "see the gripper's manual"};
    }
    const std::string byAnswers = gripper.Model();
    const ModelGuess model = NarrowModel(byAnswers, gripper.DeviceString());
    const bool mayHaveForce = MayHave(model.name, Feature::ForceAndReference);
    if (byAnswers.ends_with('?') && mayHaveForce) {
        return {Mark::Unknown, name, text + ", no force: a TLM, or a model unknown to TavrikDaemon",
                "if it is an " + ModelsWith(Feature::ForceAndReference, " or ") +
                    ", its force may be 0; set it: tavrikctl set force 30 " + word};
    }
    const bool mayNeedReference = data.State() == GripperState::NeedsReference && mayHaveForce;
    return {Mark::Ok, name, text + ", model " + model.Text(),
            mayNeedReference ? "if not referenced, clear its path: tavrikctl home " + word : ""};
}

constexpr const char* kCell = "cell";

using Difference = ExpectedCell::Difference;

bool HasKind(const std::vector<Difference>& differences, Difference::Kind kind) {
    return std::ranges::find(differences, kind, &Difference::kind) != differences.end();
}

/// How the present grippers become those of the cell. Saving would drop the missing ones.
std::string Acceptance(const std::vector<Difference>& differences, const std::string& saving) {
    using Kind = Difference::Kind;
    return std::string(HasKind(differences, Kind::Missing)
                           ? "after the missing ones are plugged in, "
                           : "") +
           "accept it: tavrikctl cell save " +
           (HasKind(differences, Kind::Exchanged) ? "--yes " : "") + saving;
}

Finding Describe(const Difference& difference, const std::string& acceptance) {
    using Kind = Difference::Kind;
    const std::string& name = difference.found.empty() ? difference.expected : difference.found;
    return {Mark::Wrong, kCell, "'" + name + "' " + difference.Text(),
            difference.kind == Kind::Missing
                ? "check the master's plug and power and the gripper's cable"
            : difference.kind == Kind::New
                ? "if it belongs here, " + acceptance
                : "give it the settings of the old one: tavrikctl settings restore --help; then " +
                      acceptance};
}

/// Whether a gripper that the daemon lists answers.
/// @param options of the commands in its remedies
/// @param status becomes Done if it does
Finding CheckGripper(const Gripper& gripper, const std::string& options, ExitStatus& status) {
    const std::string name = CopyableName(gripper.DeviceString());
    status = ExitStatus::NoAnswer;
    try {
        const ProcessData data = gripper.ReadProcessData();
        if (!gripper.MasterAnswers()) {
            return {Mark::Wrong, name, "its master does not answer",
                    "check the master's power and cable, then replug it"};
        }
        if (!data.certain) {
            status = ExitStatus::NoProcessData;
            return {Mark::Unknown, name,
                    "its master answers; it is at 0.00 in state 0, or has no process data",
                    "unless its drive is off at 0.00, check its cable and power; it may also be "
                    "starting"};
        }
        status = ExitStatus::Done;
        return Describe(gripper, data, options);
    } catch (const Failure& failure) {
        status = failure.Status();
        return {Mark::Wrong, name, failure.what(), "run again: tavrikctl doctor" + options};
    }
}

}  // namespace

Doctor::Doctor(const Endpoint& endpoint, std::string cellFile, std::string logFile,
               std::stop_token stop)
    : endpoint(endpoint),
      cellFile(std::move(cellFile)),
      cell(this->cellFile.empty() ? std::nullopt
                                  : std::optional(ExpectedCell::FromFile(this->cellFile))),
      logFile(std::move(logFile)),
      stop(std::move(stop)) {}

void Doctor::Examine() {
    if (!logFile.empty()) {
        Add(CheckLogFile(logFile));
    }
    hasCheckedMachine = IsThisMachine(endpoint.host);
    if (!hasCheckedMachine) {
        Add({{Mark::Unknown, "service", endpoint.host + " is not this machine",
              "to check its service, ttys and masters, run there: tavrikctl doctor"}});
        ExaminePorts(nullptr);
        ExamineGrippers(nullptr);
        return;
    }
    const Host host;
    Add(CheckService(host));
    ExaminePorts(&host);
    Add({CheckReservation()});
    ExamineDevices(host);
    ExamineGrippers(&host);
}

void Doctor::ExaminePorts(const Host* host) {
    for (const unsigned port : kPorts) {
        Endpoint server = endpoint;
        server.port = port;
        const PortResult result = CheckPort(server, host, stop);
        Add({result.finding});
        if (result.version && !answers) {
            answers = true;
            version = Printable(*result.version);
            endpoint.port = port;
        }
    }
    if (answers) {  // someone who tried a browser would take its error page for the fault
        Add({{Mark::Ok, "browsers", "get error 404 from these ports, which serve programs only"}});
    }
}

void Doctor::ExamineDevices(const Host& host) {
    for (const UsbTty& tty : host.ttys) {
        Add(CheckTty(host, tty));
    }
    Add({CheckModemManager(host)});
}

void Doctor::ExamineGrippers(const Host* host) {
    Daemon daemon(endpoint, stop);
    const auto grippers = ListGrippers(daemon);
    Findings answered = AskGrippers(daemon, grippers.value_or(std::vector<std::string>()));
    if (host != nullptr && !host->DaemonRunsInSimulator()) {
        const Finding masters =
            CheckMasters(*host, grippers ? std::optional(grippers->size()) : std::nullopt);
        Add({masters});
        if (status == ExitStatus::Done && AreGrippersStale(*host)) {
            status = ExitStatus::NoAnswer;
            answered = ReportStaleGrippers(*grippers);
        }
        if (!logFile.empty()) {
            Add(CheckLinks(*host, DaemonLog::OfFile(logFile), true));
        } else if (host->daemon) {
            const bool isMissed =
                status != ExitStatus::Done || masters.mark != Mark::Ok || !AreAllOk(answered);
            Add(CheckLinks(*host, DaemonLog::OfProcess(host->daemon->pid), isMissed));
        }
    }
    Add(answered);
    if (status == ExitStatus::NoGripper) {
        Add({{Mark::Wrong, "grippers", "TavrikDaemon lists none", RemedyForNone(host)}});
    }
    ExamineCell(grippers);
}

void Doctor::ExamineCell(const std::optional<std::vector<std::string>>& grippers) {
    if (!cell) {
        return;
    }
    if (!grippers) {
        isCellAsExpected = false;
        Add({{Mark::Unknown, kCell, "the grippers cannot be compared: the list was not read"}});
        return;
    }
    const auto differences = cell->Compare(*grippers);
    isCellAsExpected = differences.empty();
    if (isCellAsExpected) {
        Add({{Mark::Ok, kCell, "all expected grippers: " + std::to_string(cell->Count())}});
    }
    const std::string acceptance =
        Acceptance(differences, ShellWord(cellFile) + endpoint.Options());
    for (const auto& difference : differences) {
        Add({Describe(difference, acceptance)});
    }
}

/// What to do if the daemon lists no gripper.
std::string Doctor::RemedyForNone(const Host* host) const {
    const auto isWrong = [](const Finding& each) { return each.mark == Mark::Wrong; };
    if (std::ranges::any_of(findings, isWrong)) {
        return "fix the problems above";
    }
    if (host == nullptr) {
        return "check the masters' USB plugs and power, and run on that machine: tavrikctl doctor";
    }
    return "check the masters' USB plugs and power, then: " + host->StartCommand();
}

std::optional<std::vector<std::string>> Doctor::ListGrippers(Daemon& daemon) {
    if (!answers) {
        return std::nullopt;
    }
    try {
        auto grippers = daemon.Grippers();
        status = ExitStatus::NoGripper;
        return grippers;
    } catch (const Failure& failure) {
        status = failure.Status();
        Add({{Mark::Wrong, "grippers", failure.what(),
              "a silent master blocks the list: unplug it, or: systemctl restart tavrikdaemon"}});
        return std::nullopt;
    }
}

Findings Doctor::AskGrippers(Daemon& daemon, const std::vector<std::string>& grippers) {
    Findings answered;
    std::set<std::string> names;
    for (const std::string& device : grippers) {
        if (stop.stop_requested()) {
            break;
        }
        ExitStatus result{};
        answered.push_back(CheckGripper(Gripper(daemon, device), endpoint.Options(), result));
        if (status != ExitStatus::Done) {
            status = result;
        }
        if (!names.insert(device).second) {
            answered.push_back(
                {Mark::Wrong, CopyableName(device),
                 "two grippers have this name: calls reach the one that was found first",
                 "to tell them apart, unplug one master and run: tavrikctl watch " +
                     ShellWord(device) + endpoint.Options() +
                     "; to use both, connect one to another host, or exchange it for one with "
                     "another serial number"});
        }
    }
    return answered;
}

/// All texts may come from devices, processes and servers: they must neither control the terminal
/// nor fill it.
void Doctor::Add(const Findings& more) {
    constexpr std::size_t kLongest = 1000;
    for (const Finding& each : more) {
        findings.push_back({each.mark, Printable(each.subject.substr(0, kLongest)),
                            Printable(each.text.substr(0, kLongest)),
                            Printable(each.remedy.substr(0, kLongest))});
    }
}

nlohmann::ordered_json Doctor::Json() const {
    auto list = nlohmann::ordered_json::array();
    for (const Finding& finding : findings) {
        list.push_back({{"mark", MarkText(finding.mark)},
                        {"what", finding.subject},
                        {"finding", finding.text},
                        {"remedy", finding.remedy}});
    }
    return {{"version", TAVRIK_VERSION},
            {"daemonVersion", version},
            {"gripperAnswers", status == ExitStatus::Done},
            {"findings", list}};
}

}  // namespace tavrik
