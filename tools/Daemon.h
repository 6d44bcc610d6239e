#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>
#include <xmlrpc-c/base.hpp>

#include "tools/HttpClient.h"

namespace tavrikctl {

struct Endpoint {
    std::string host = "127.0.0.1";
    unsigned port = 44221;
    std::chrono::milliseconds timeout = std::chrono::seconds(10);  ///< of one call
};

/// A running TavrikDaemon, as its clients see it. One thread at a time; connects with the first
/// call.
class Daemon {
public:
    explicit Daemon(const Endpoint& endpoint);

    /// @throws Failure (NoDaemon, BadAnswer): faults too
    xmlrpc_c::value Call(const std::string& method, const xmlrpc_c::paramList& parameters);

    /// Calls with arguments of the types std::string, int, double and bool.
    /// @throws Failure (NoDaemon, BadAnswer), also when the answer is no `Result`
    template <typename Result, typename... Arguments>
    Result Get(const std::string& method, const Arguments&... arguments) {
        xmlrpc_c::paramList parameters;
        (parameters.addc(arguments), ...);
        const xmlrpc_c::value answer = Call(method, parameters);
        return Convert<Result>(method, answer);
    }

    /// The device strings of all grippers.
    std::vector<std::string> Grippers();

    /// The device string that is `name`, or else the only one in which `name` is found, in either
    /// case. An empty `name` is found in all.
    /// @throws Failure (NoGripper)
    std::string FindGripper(const std::string& name);

private:
    template <typename Result>
    static Result Convert(const std::string& method, const xmlrpc_c::value& answer);

    HttpClient http;
};

}  // namespace tavrikctl
