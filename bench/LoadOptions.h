#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace bench {

/// The command line of bench-load.
struct LoadOptions {
    std::vector<unsigned> ports;
    unsigned connections = 0;
    std::optional<double> seconds;       ///< either these
    std::optional<std::uint64_t> calls;  ///< or these, of all connections together
    std::string method;
    std::string device;              ///< the first parameter
    std::optional<unsigned> number;  ///< the second parameter
    std::string expected;            ///< content of the one value of every answer
    std::string finFile;             ///< as of bench-cell; empty to measure from the call on
};

/// @param arguments the command line without the program's name
/// @throws simulator::UsageError
LoadOptions ParseLoadOptions(std::span<const std::string> arguments);

/// The call as HTTP request, header and body.
std::string BuildRequest(const LoadOptions& options);

}  // namespace bench
