#include "doctor/ServiceCheck.h"

namespace tavrik {

namespace {
constexpr const char* kService = "service";
}

Findings ServiceCheck::Run() const {
    if (host.daemon && host.service && host.service->Has(host.daemon->pid) &&
        !host.service->denied.empty()) {
        return {Running(), Restricted()};
    }
    if (host.daemon) {
        return {Running()};
    }
    return {host.processes.SeesAllNames() ? Stopped() : Hidden()};
}

Finding ServiceCheck::Running() const {
    const std::string user = host.account ? ", user " + host.account->Name() : "";
    const std::string process = host.daemon->Text() + user;
    const std::string pid = std::to_string(host.daemon->pid);
    if (host.daemon->isStopped) {
        return {Mark::Wrong, kService, process + ", is stopped by a signal", "kill -CONT " + pid};
    }
    if (host.DaemonIsBehindSimulator()) {
        return {Mark::Warning, kService,
                process + ", in pellix-sim: its masters are simulated or tapped",
                "unless this is intended: kill -INT " + pid + "; " + host.StartCommand()};
    }
    if (!host.service || !host.service->IsInstalled()) {
        return {Mark::Ok, kService, process + ", not started by systemd", ""};
    }
    if (!host.service->Has(host.daemon->pid)) {
        return {Mark::Warning, kService,
                process + ", not started by the service, which is " + host.service->active,
                "unless this is intended: kill -INT " + pid + "; systemctl restart tavrikdaemon"};
    }
    if (host.service->active != "active") {
        return {Mark::Wrong, kService, process + ", is being stopped",
                "wait up to 45 s, then: systemctl start tavrikdaemon"};
    }
    return {Mark::Ok, kService, process + ", started by systemd", ""};
}

Finding ServiceCheck::Restricted() const {
    constexpr const char* kNetwork = "network";
    const std::string text = "systemd denies " + host.service->denied;
    if (host.service->allowed.empty()) {
        return {Mark::Warning, kNetwork, text,
                "if this blocks the robot: add its address to IPAddressAllow= in the service's "
                "network.conf"};
    }
    return {Mark::Ok, kNetwork, text + ", but allows " + host.service->allowed, ""};
}

Finding ServiceCheck::Hidden() const {
    if (host.service && host.service->active == "active") {
        return {Mark::Ok, kService, "process " + host.service->mainPid + ", started by systemd",
                ""};
    }
    return {Mark::Unknown, kService, "only root can see whether TavrikDaemon runs",
            "run as root, where /proc shows all processes: tavrikctl doctor"};
}

Finding ServiceCheck::Stopped() const {
    if (!host.service) {
        return {Mark::Wrong, kService, "TavrikDaemon is not running, and systemd does not answer",
                "start TavrikDaemon"};
    }
    const ServiceState& service = *host.service;
    if (service.load == "masked") {
        return {Mark::Wrong, kService, "TavrikDaemon is not running; its service is masked",
                "systemctl unmask tavrikdaemon; systemctl enable --now tavrikdaemon"};
    }
    if (!service.IsInstalled()) {
        return {Mark::Wrong, kService,
                "TavrikDaemon is not running, and systemd has no service for it",
                "install the package tavrikdaemon, or start TavrikDaemon"};
    }
    const std::string state = "TavrikDaemon is not running; systemd: " + service.active + " (" +
                              service.sub + "), " + service.result;
    if (service.active == "inactive") {
        return {Mark::Wrong, kService, state, "systemctl enable --now tavrikdaemon"};
    }
    return {Mark::Wrong, kService, state,
            "see: journalctl -u tavrikdaemon; fix the problems below, then: systemctl reset-failed "
            "tavrikdaemon; "
            "systemctl restart tavrikdaemon"};
}

}  // namespace tavrik
