#include "client/Daemon.h"

#include <utility>

#include "client/Failure.h"
#include "client/GripperName.h"
#include "client/Printable.h"

namespace tavrik {

std::string DoctorAdvice(const Endpoint& endpoint) {
    const std::string host =
        endpoint.host == Endpoint().host ? "" : " --host " + Printable(endpoint.host);
    return "run 'tavrikctl doctor" + host + "' to find out why";
}

Daemon::Daemon(const Endpoint& endpoint, std::stop_token stop)
    : endpoint(endpoint), transport(endpoint, std::move(stop)), client(&transport) {}

xmlrpc_c::value Daemon::Call(const std::string& method, const xmlrpc_c::paramList& parameters) {
    xmlrpc_c::rpcOutcome outcome;
    try {
        client.call(nullptr, method, parameters, &outcome);
    } catch (const std::exception&) {
        transport.RethrowFailure();
        throw BadAnswer(method, "the reply is not XML-RPC");
    }
    ++answeredCalls;
    if (!outcome.succeeded()) {
        const xmlrpc_c::fault fault = outcome.getFault();
        throw BadAnswer(method, "fault " + std::to_string(fault.getCode()) + ", " +
                                    Printable(fault.getDescription()));
    }
    return outcome.getResult();
}

Failure Daemon::BadAnswer(const std::string& method, const std::string& text) {
    return {ExitStatus::BadAnswer, method + ": " + text};
}

std::vector<std::string> Daemon::Grippers() {
    return Get<std::vector<std::string>>("GetGrippers");
}

std::string Daemon::FindGripper(const std::string& name, bool exact) {
    const auto grippers = Grippers();
    if (grippers.empty()) {
        throw Failure(ExitStatus::NoGripper, "no grippers found; " + DoctorAdvice(endpoint));
    }
    return MatchGripper(grippers, name, exact);
}

}  // namespace tavrik
