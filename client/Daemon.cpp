#include "client/Daemon.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

#include "client/Failure.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

char Lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// Whether `part` is in `device`. Within the serial number it must be its end: otherwise 12 would
/// match 123 while gripper 12 is unplugged.
bool Contains(const std::string& device, const std::string& part) {
    constexpr std::string_view kSerial = " SN:";
    const std::size_t serial = std::min(device.rfind(kSerial), device.size());
    for (std::size_t end = part.size(); end <= device.size(); ++end) {
        const bool isCut = end > serial + kSerial.size() && end < device.size();
        const std::string_view piece =
            std::string_view(device).substr(end - part.size(), part.size());
        if (!isCut && std::ranges::equal(piece, part, {}, Lower, Lower)) {
            return true;
        }
    }
    return false;
}

std::string Join(const std::vector<std::string>& texts) {
    std::string line;
    for (const std::string& text : texts) {
        line += (line.empty() ? "'" : ", '") + Printable(text) + "'";
    }
    return line;
}

/// Why `found` is not exactly one of the `grippers`.
std::string ExplainNoMatch(const std::vector<std::string>& grippers,
                           const std::vector<std::string>& found, const std::string& name) {
    if (grippers.empty()) {
        return "no grippers found";
    }
    if (found.empty()) {
        return "no gripper matches '" + Printable(name) + "'; available: " + Join(grippers);
    }
    if (std::set<std::string>(found.begin(), found.end()).size() == 1) {
        return std::to_string(found.size()) + " grippers are named " + Join({found.front()}) +
               " and calls reach only the first: unplug all but one";
    }
    return (name.empty() ? "several grippers found, name one of: " : "several grippers match: ") +
           Join(found);
}

}  // namespace

std::string MatchGripper(const std::vector<std::string>& grippers, const std::string& name,
                         bool exact) {
    const bool isWhole =
        exact || std::find(grippers.begin(), grippers.end(), name) != grippers.end();
    std::vector<std::string> found;
    std::copy_if(grippers.begin(), grippers.end(), std::back_inserter(found),
                 [&](const std::string& gripper) {
                     return isWhole ? gripper == name : Contains(gripper, name);
                 });
    if (found.size() == 1) {
        return found.front();
    }
    throw Failure(ExitStatus::NoGripper, ExplainNoMatch(grippers, found, name));
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
    return MatchGripper(Grippers(), name, exact);
}

}  // namespace tavrik
