#include "tools/Daemon.h"

#include <utility>
#include <xmlrpc-c/xml.hpp>

#include "tools/GripperName.h"
#include "tools/Printable.h"

namespace tavrikctl {

Daemon::Daemon(const Endpoint& endpoint, std::stop_token stop)
    : server(endpoint), http(endpoint, "/RPC2", std::move(stop)) {}

xmlrpc_c::value Daemon::Call(const std::string& method, const xmlrpc_c::paramList& parameters) {
    std::string xml;
    xmlrpc_c::xml::generateCall(method, parameters, &xml);
    xmlrpc_c::rpcOutcome outcome;
    Parse(method, http.Post(xml), outcome);
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

// A reference, because copying an outcome without a fault reads what was never set.
void Daemon::Parse(const std::string& method, const std::string& xml,
                   xmlrpc_c::rpcOutcome& outcome) {
    try {
        xmlrpc_c::xml::parseResponse(xml, &outcome);
    } catch (const std::exception&) {
        throw BadAnswer(method, "the answer is no XML-RPC");
    }
}

std::vector<std::string> Daemon::Grippers() {
    return Get<std::vector<std::string>>("GetGrippers");
}

std::string Daemon::FindGripper(const std::string& name) {
    return MatchGripper(Grippers(), name);
}

}  // namespace tavrikctl
