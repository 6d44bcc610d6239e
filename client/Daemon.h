#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <stop_token>
#include <string>
#include <vector>
#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/client.hpp>

#include "client/Failure.h"
#include "client/HttpTransport.h"

namespace tavrik {

/// A running TavrikDaemon, as its clients see it. One thread at a time; connects with the first
/// call.
class Daemon {
public:
    /// @param stop ends a running call early, with a Failure (NoDaemon)
    explicit Daemon(const Endpoint& endpoint, std::stop_token stop = {});

    /// @throws Failure (NoDaemon, BadAnswer): faults too
    xmlrpc_c::value Call(const std::string& method, const xmlrpc_c::paramList& parameters);

    /// Calls with arguments of the types std::string, int, double and bool.
    /// @throws Failure (NoDaemon, BadAnswer), also when the answer is no `Result`
    template <typename Result, typename... Arguments>
    Result Get(const std::string& method, const Arguments&... arguments) {
        xmlrpc_c::paramList parameters;
        (parameters.addc(arguments), ...);
        return As<Result>(method, Call(method, parameters));
    }

    /// What `method` answered, as a value of C++.
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

    const Endpoint& Server() const { return server; }

    /// How many calls have been answered, faults too.
    std::uint64_t AnsweredCalls() const { return answeredCalls; }

    /// The device strings of all grippers.
    std::vector<std::string> Grippers();

    /// The gripper that `name` means, see MatchGripper().
    /// @throws Failure (NoGripper)
    std::string FindGripper(const std::string& name, bool exact = false);

private:
    static Failure BadAnswer(const std::string& method, const std::string& text);

    Endpoint server;
    HttpTransport transport;
    xmlrpc_c::client_xml client;  // uses the transport
    std::uint64_t answeredCalls = 0;
};

}  // namespace tavrik
