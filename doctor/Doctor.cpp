#include "doctor/Doctor.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "client/Failure.h"
#include "client/Printable.h"
#include "common/Ports.h"
#include "common/Version.h"
#include "doctor/GripperCheck.h"
#include "doctor/LinkCheck.h"
#include "doctor/MasterCheck.h"
#include "doctor/ModemManagerCheck.h"
#include "doctor/PortCheck.h"
#include "doctor/ReservationCheck.h"
#include "doctor/ServiceCheck.h"
#include "doctor/ThisMachine.h"
#include "doctor/TtyCheck.h"

namespace tavrik {

namespace {

bool AreWell(const Findings& findings) {
    return std::all_of(findings.begin(), findings.end(),
                       [](const Finding& each) { return each.mark == Mark::Ok; });
}

/// Where nothing is sent, the daemon answers at once with what it has.
Findings CutOff(const std::vector<std::string>& grippers) {
    Findings findings;
    for (const std::string& device : grippers) {
        findings.push_back({Mark::Wrong, device,
                            "the answers of TavrikDaemon are stale: no tty is open",
                            "replug its master"});
    }
    return findings;
}

}  // namespace

void Doctor::Examine() {
    sawMachine = IsThisMachine(endpoint.host);
    if (!sawMachine) {
        Add({{Mark::Unknown, "service", endpoint.host + " is not this machine",
              "to check its service, ttys and masters, run there: tavrikctl doctor"}});
        ExaminePorts(nullptr);
        ExamineGrippers(nullptr);
        return;
    }
    const Host host;
    Add(ServiceCheck(host).Run());
    ExaminePorts(&host);
    Add(ReservationCheck().Run());
    ExamineDevices(host);
    ExamineGrippers(&host);
}

void Doctor::ExaminePorts(const Host* host) {
    for (const unsigned port : kPorts) {
        Endpoint server = endpoint;
        server.port = port;
        PortCheck check(server, host);
        Add(check.Run());
        if (check.Version() && !answers) {
            answers = true;
            version = Printable(*check.Version());
            endpoint.port = port;
        }
    }
}

void Doctor::ExamineDevices(const Host& host) {
    for (const UsbTty& tty : host.ttys) {
        Add(TtyCheck(host, tty).Run());
    }
    Add(ModemManagerCheck(host).Run());
}

void Doctor::ExamineGrippers(const Host* host) {
    Daemon daemon(endpoint);
    const auto grippers = ListGrippers(daemon);
    Findings answered = AskGrippers(daemon, grippers.value_or(std::vector<std::string>()));
    if (host != nullptr && !host->DaemonIsBehindSimulator()) {
        const auto count = grippers ? std::optional(grippers->size()) : std::nullopt;
        const MasterCheck check(*host, count);
        const Findings masters = check.Run();
        Add(masters);
        if (check.IsCutOff() && status == ExitStatus::Done) {
            status = ExitStatus::NoAnswer;
            answered = CutOff(*grippers);
        }
        const bool isWell = status == ExitStatus::Done && AreWell(masters) && AreWell(answered);
        if (host->daemon) {
            const DaemonLog log = DaemonLog::OfProcess(host->daemon->pid);
            Add(LinkCheck(*host, log, !isWell).Run());
        }
    }
    Add(answered);
    if (status == ExitStatus::NoGripper) {
        Add({{Mark::Wrong, "grippers", "TavrikDaemon lists none", "fix the problems above"}});
    }
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
              "a silent master without a name blocks this: unplug it, or restart TavrikDaemon"}});
        return std::nullopt;
    }
}

Findings Doctor::AskGrippers(Daemon& daemon, const std::vector<std::string>& grippers) {
    Findings answered;
    std::set<std::string> names;
    for (const std::string& device : grippers) {
        GripperCheck check(Gripper(daemon, device));
        const Findings more = check.Run();
        answered.insert(answered.end(), more.begin(), more.end());
        status = status == ExitStatus::Done ? status : check.Status();
        if (!names.insert(device).second) {
            answered.push_back({Mark::Wrong, device,
                                "two grippers have this name: calls reach the first",
                                "give one of them another serial number, or unplug it"});
        }
    }
    return answered;
}

/// All texts may come from devices, processes and servers: they must not steer the terminal, nor
/// fill it.
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
