#include "tools/doctor/ServiceCheck.h"

namespace tavrikctl {

namespace {
constexpr const char* kSubject = "service";
}

Findings ServiceCheck::Run() {
    if (!host.daemon) {
        return {Stopped()};
    }
    const std::string user = host.account ? ", user " + host.account->Name() : "";
    const std::string process = host.daemon->Text() + user;
    if (!host.service || !host.service->IsInstalled()) {
        return {{Mark::Ok, kSubject, process + ", not by systemd", ""}};
    }
    if (host.service->active != "active") {
        return {{Mark::Wrong, kSubject,
                 process + " was not started by the service, which is " + host.service->active,
                 "end it by SIGINT, then: systemctl restart tavrikdaemon"}};
    }
    return {{Mark::Ok, kSubject, process + ", by systemd", ""}};
}

Finding ServiceCheck::Stopped() const {
    if (!host.service || !host.service->IsInstalled()) {
        return {Mark::Wrong, kSubject, "no TavrikDaemon runs, and systemd has no service for it",
                "install the package tavrikdaemon, or start TavrikDaemon"};
    }
    const ServiceState& service = *host.service;
    const std::string state = "no TavrikDaemon runs; systemd: " + service.active + " (" +
                              service.sub + "), result " + service.result;
    if (service.active == "inactive") {
        return {Mark::Wrong, kSubject, state, "systemctl enable --now tavrikdaemon"};
    }
    return {Mark::Wrong, kSubject, state,
            "see journalctl -u tavrikdaemon and the ports below, then: systemctl reset-failed "
            "tavrikdaemon; systemctl restart tavrikdaemon"};
}

}  // namespace tavrikctl
