#include "tools/doctor/Doctor.h"

#include <array>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>

#include "daemon/Version.h"
#include "tools/Failure.h"
#include "tools/doctor/GripperCheck.h"
#include "tools/doctor/MasterCheck.h"
#include "tools/doctor/ModemManagerCheck.h"
#include "tools/doctor/PortCheck.h"
#include "tools/doctor/ServiceCheck.h"
#include "tools/doctor/TtyCheck.h"

namespace tavrikctl {

namespace {

bool IsThisMachine(const std::string& host) {
    return host == "localhost" || host.starts_with("127.");
}

}  // namespace

void Doctor::Examine() {
    if (!IsThisMachine(endpoint.host)) {
        Add({{Mark::Unknown, "service", "is on another machine, " + endpoint.host,
              "run tavrikctl doctor there to see its service, ttys and masters"}});
        ExaminePorts(nullptr);
        ExamineGrippers(nullptr);
        return;
    }
    const Host host;
    Add(ServiceCheck(host).Run());
    ExaminePorts(&host);
    ExamineDevices(host);
    ExamineGrippers(&host);
}

void Doctor::ExaminePorts(const Host* host) {
    constexpr std::array kPorts{44221U, 44222U};
    for (const unsigned port : kPorts) {
        Endpoint server = endpoint;
        server.port = port;
        PortCheck check(server, host);
        Add(check.Run());
        if (check.Answers() && version.empty()) {
            version = check.Version();
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
    std::vector<std::string> grippers;
    std::optional<std::size_t> listed;
    if (!version.empty()) {
        try {
            grippers = daemon.Grippers();
            listed = grippers.size();
            status = ExitStatus::NoGripper;
        } catch (const Failure& failure) {
            status = failure.Status();
            Add({{Mark::Wrong, "grippers", failure.what(), ""}});
        }
    }
    if (host != nullptr) {
        Add(MasterCheck(*host, listed).Run());
    }
    for (const std::string& device : grippers) {
        GripperCheck check(Gripper(daemon, device));
        Add(check.Run());
        status = status == ExitStatus::Done ? status : check.Status();
    }
    if (status == ExitStatus::NoGripper) {
        Add({{Mark::Wrong, "grippers", "TavrikDaemon lists none", "cure what is wrong above"}});
    }
}

void Doctor::Add(Findings more) {
    std::move(more.begin(), more.end(), std::back_inserter(findings));
}

void Doctor::Print(Printer& printer) const {
    std::vector<std::vector<Cell>> rows;
    for (const Finding& finding : findings) {
        const bool wrong = finding.mark == Mark::Wrong;
        rows.push_back({{MarkText(finding.mark), wrong}, {finding.subject}, {finding.text, wrong}});
        if (!finding.remedy.empty()) {
            rows.push_back({{}, {}, {"do: " + finding.remedy}});
        }
    }
    printer.Table({{""}, {"WHAT"}, {"FINDING"}}, rows);
    printer.Line(status == ExitStatus::Done ? "A gripper answers." : "No gripper answers.");
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

}  // namespace tavrikctl
