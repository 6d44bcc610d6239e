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
                "if that is not on purpose: kill -INT " + pid + "; " + host.StartCommand()};
    }
    if (!host.service || !host.service->IsInstalled()) {
        return {Mark::Ok, kService, process + ", not by systemd", ""};
    }
    if (!host.service->Has(host.daemon->pid)) {
        return {Mark::Warning, kService,
                process + ", not by the service, which is " + host.service->active,
                "if that is not on purpose: kill -INT " + pid + "; systemctl restart tavrikdaemon"};
    }
    if (host.service->active != "active") {
        return {Mark::Wrong, kService, process + ", is being stopped",
                "wait up to 45 s, then: systemctl start tavrikdaemon"};
    }
    return {Mark::Ok, kService, process + ", by systemd", ""};
}

Finding ServiceCheck::Restricted() const {
    constexpr const char* kNetwork = "network";
    const std::string text = "systemd denies " + host.service->denied;
    if (host.service->allowed.empty()) {
        return {Mark::Warning, kNetwork, text,
                "if the robot is meant: name it in the service's network.conf, IPAddressAllow="};
    }
    return {Mark::Ok, kNetwork, text + ", but allows " + host.service->allowed, ""};
}

Finding ServiceCheck::Hidden() const {
    if (host.service && host.service->active == "active") {
        return {Mark::Ok, kService, "process " + host.service->mainPid + ", by systemd", ""};
    }
    return {Mark::Unknown, kService, "whether TavrikDaemon runs, only root can see here",
            "run the doctor as root, where /proc has all processes"};
}

Finding ServiceCheck::Stopped() const {
    if (!host.service) {
        return {Mark::Wrong, kService, "no TavrikDaemon runs, and systemd cannot be asked",
                "start TavrikDaemon"};
    }
    const ServiceState& service = *host.service;
    if (service.load == "masked") {
        return {Mark::Wrong, kService, "no TavrikDaemon runs; its service is masked",
                "systemctl unmask tavrikdaemon; systemctl enable --now tavrikdaemon"};
    }
    if (!service.IsInstalled()) {
        return {Mark::Wrong, kService, "no TavrikDaemon runs, and systemd has no service for it",
                "install the package tavrikdaemon, or start TavrikDaemon"};
    }
    const std::string state =
        "no TavrikDaemon; systemd: " + service.active + " (" + service.sub + "), " + service.result;
    if (service.active == "inactive") {
        return {Mark::Wrong, kService, state, "systemctl enable --now tavrikdaemon"};
    }
    return {Mark::Wrong, kService, state,
            "see journalctl -u tavrikdaemon and below; then: systemctl reset-failed tavrikdaemon; "
            "systemctl restart tavrikdaemon"};
}

}  // namespace tavrik
