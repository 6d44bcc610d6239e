#include "doctor/Service.h"

#include <fstream>
#include <map>
#include <sstream>

#include "doctor/Host.h"
#include "doctor/ToolOutput.h"

namespace tavrik {

namespace {

constexpr const char* kService = "service";

Finding CheckRunning(const Host& host) {
    const std::string user = host.account ? ", user " + host.account->Name() : "";
    const std::string process = host.daemon->Text() + user;
    const std::string pid = std::to_string(host.daemon->pid);
    if (host.daemon->isStopped) {
        return {Mark::Wrong, kService, process + ", is stopped by a signal", "kill -CONT " + pid};
    }
    if (host.DaemonRunsInSimulator()) {
        return {Mark::Warning, kService,
                process + ", in pellix-sim: its masters are simulated or tapped",
                "unless this is intended: kill -INT " + pid + "; " + host.StartCommand()};
    }
    if (!host.service || !host.service->IsInstalled()) {
        return {Mark::Ok, kService, process + ", without systemd"};
    }
    if (!host.service->Has(host.daemon->pid)) {
        return {Mark::Warning, kService,
                process + ", not started by the service, which is " + host.service->active,
                "unless this is intended: kill -INT " + pid + "; systemctl restart tavrikdaemon"};
    }
    if (host.service->active != "active") {
        return {Mark::Wrong, kService, process + ", is being stopped",
                "wait up to 60 s, then: systemctl start tavrikdaemon"};
    }
    return {Mark::Ok, kService, process + ", under systemd"};
}

Finding CheckAccess(const ServiceState& service) {
    constexpr const char* kNetwork = "network";
    const std::string text = "systemd denies " + service.denied;
    if (service.allowed.empty()) {
        return {Mark::Warning, kNetwork, text,
                "if this blocks the robot: add its address to IPAddressAllow= in "
                "/etc/systemd/system/tavrikdaemon.service.d/network.conf, then: "
                "systemctl daemon-reload; systemctl restart tavrikdaemon"};
    }
    return {Mark::Ok, kNetwork, text + ", but allows " + service.allowed};
}

Finding CheckStopped(const std::optional<ServiceState>& service) {
    const std::string text = "TavrikDaemon is not running";
    if (!service) {
        return {Mark::Wrong, kService, text + ", and systemd does not answer", kStartByHand};
    }
    if (service->load == "masked") {
        return {Mark::Wrong, kService, text + "; its service is masked",
                "systemctl unmask tavrikdaemon; systemctl enable --now tavrikdaemon"};
    }
    if (!service->IsInstalled()) {
        return {Mark::Wrong, kService, text + "; systemd has no service for it", kInstallOrStart};
    }
    const std::string state =
        text + "; systemd: " + service->active + " (" + service->sub + "), " + service->result;
    if (service->active == "inactive") {
        return {Mark::Wrong, kService, state, "systemctl enable --now tavrikdaemon"};
    }
    return {Mark::Wrong, kService, state,
            "for the reason: journalctl -u tavrikdaemon; then: systemctl reset-failed "
            "tavrikdaemon; systemctl restart tavrikdaemon"};
}

/// A daemon that has ports of its own, which no program in this network namespace reaches.
Finding DescribeInOtherNetwork(const Process& daemon) {
    return {Mark::Unknown, kService,
            daemon.Text() + " runs in another network namespace, as in a container",
            "to check that one: nsenter -t " + std::to_string(daemon.pid) + " -n tavrikctl doctor"};
}

}  // namespace

std::optional<ServiceState> ServiceState::Read() {
    const ToolOutput output =
        RunTool({"systemctl", "show",
                 "--property=LoadState,ActiveState,SubState,Result,User,MainPID,ControlGroup,"
                 "IPAddressDeny,IPAddressAllow",
                 kServiceName});
    if (!output.succeeded) {
        return std::nullopt;
    }
    std::map<std::string, std::string> values;
    std::istringstream lines(output.text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos) {
            values[line.substr(0, equals)] = line.substr(equals + 1);
        }
    }
    return ServiceState{values["LoadState"],    values["ActiveState"],   values["SubState"],
                        values["Result"],       values["User"],          values["MainPID"],
                        values["ControlGroup"], values["IPAddressDeny"], values["IPAddressAllow"]};
}

bool ServiceState::Has(pid_t pid) const {
    std::ifstream file("/proc/" + std::to_string(pid) + "/cgroup");
    for (std::string line; !group.empty() && std::getline(file, line);) {
        if (line.ends_with(":" + group)) {  // behind a hierarchy and its controllers
            return true;
        }
    }
    return false;
}

Findings CheckService(const Host& host) {
    const auto& service = host.service;
    if (host.daemon && service && service->Has(host.daemon->pid) && !service->denied.empty()) {
        return {CheckRunning(host), CheckAccess(*service)};
    }
    if (host.daemon) {
        return {CheckRunning(host)};
    }
    if (host.processes.ListsAllProcesses()) {
        Findings findings{CheckStopped(service)};
        const auto elsewhere = host.processes.FindInOtherNetwork(kDaemonName);
        if (elsewhere && (!service || service->active != "failed")) {
            findings.push_back(DescribeInOtherNetwork(*elsewhere));
        }
        return findings;
    }
    if (service && service->active == "active") {
        return {{Mark::Ok, kService, "process " + service->mainPid + ", under systemd"}};
    }
    return {{Mark::Unknown, kService, "only root can see whether TavrikDaemon runs",
             "run as root, where /proc shows all processes: tavrikctl doctor"}};
}

}  // namespace tavrik
