#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <stop_token>
#include <string>
#include <vector>
#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/client.hpp>

#include "client/Endpoint.h"
#include "client/Failure.h"
#include "client/HttpTransport.h"

namespace tavrik {

/// Where to find out why the daemon or a gripper is missing: "run 'tavrikctl doctor' to ...".
std::string DoctorAdvice(const Endpoint& endpoint);

/// A client's connection to a running TavrikDaemon, opened by the first call. One thread at a
/// time.
class Daemon {
public:
    /// @param stop ends a running call early, with a Failure (NoDaemon); later calls are not made
    explicit Daemon(const Endpoint& endpoint, std::stop_token stop = {});

    /// @throws Failure (NoDaemon; BadAnswer, also for a fault)
    xmlrpc_c::value Call(const std::string& method, const xmlrpc_c::paramList& parameters);

    /// Calls with arguments of the types std::string, int, double and bool.
    /// @throws Failure (NoDaemon, BadAnswer), also when the reply is not a `Result`
    template <typename Result, typename... Arguments>
    Result Get(const std::string& method, const Arguments&... arguments) {
        xmlrpc_c::paramList parameters;
        (parameters.addc(arguments), ...);
        return As<Result>(method, Call(method, parameters));
    }

    /// The reply of `method` as a C++ value.
    /// @throws Failure (BadAnswer)
    template <typename Result>
    static Result As(const std::string& method, const xmlrpc_c::value& answer) {
        try {
            Result result{};
            xmlrpc_c::fromValue(result, answer);
            return result;
        } catch (const std::exception&) {
            throw BadAnswer(method, "the reply has an unexpected type");
        }
    }

    const Endpoint& Server() const { return endpoint; }

    /// How many calls were answered, including faults.
    std::uint64_t AnsweredCalls() const { return answeredCalls; }

    /// The device strings of all grippers.
    std::vector<std::string> Grippers();

    /// The gripper that `name` means, as MatchGripper() decides.
    /// @throws Failure (NoGripper; NoDaemon, BadAnswer)
    std::string FindGripper(const std::string& name, bool exact = false);

private:
    static Failure BadAnswer(const std::string& method, const std::string& text);

    const Endpoint endpoint;
    HttpTransport transport;
    xmlrpc_c::client_xml client;  // uses the transport
    std::uint64_t answeredCalls = 0;
};

}  // namespace tavrik
