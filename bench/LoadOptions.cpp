#include "bench/LoadOptions.h"

#include <limits>
#include <set>

#include "simulator/TextTools.h"

namespace bench {

namespace {

using simulator::ParseDecimal;
using simulator::ParseUnsigned;
using simulator::UsageError;

constexpr unsigned kLargestPort = 65535;
constexpr unsigned kLargestNumber = std::numeric_limits<int>::max();
constexpr unsigned kMostConnections = 1000;

std::vector<unsigned> ParsePorts(const std::string& text) {
    std::vector<unsigned> ports;
    for (const std::string& port : simulator::Split(text, ',')) {
        ports.push_back(ParseUnsigned(port, kLargestPort));
    }
    return ports;
}

void ReadOption(LoadOptions& options, const std::string& option, const std::string& value) {
    if (option == "--ports") {
        options.ports = ParsePorts(value);
    } else if (option == "--connections") {
        options.connections = ParseUnsigned(value, kMostConnections);
    } else if (option == "--seconds") {
        options.seconds = ParseDecimal(value);
    } else if (option == "--calls") {
        options.calls = ParseUnsigned(value, kLargestNumber);
    } else if (option == "--method") {
        options.method = value;
    } else if (option == "--device") {
        options.device = value;
    } else if (option == "--int") {
        options.number = ParseUnsigned(value, kLargestNumber);
    } else if (option == "--fin-file") {
        options.finFile = value;
    } else if (option == "--expect") {
        options.expected = value;
    } else {
        throw UsageError("unknown option " + option);
    }
}

void Check(const LoadOptions& options) {
    if (options.ports.empty() || options.connections == 0) {
        throw UsageError("one port and one connection are the least");
    }
    if (options.seconds.has_value() == options.calls.has_value()) {
        throw UsageError("either --seconds or --calls is needed");
    }
    if (options.seconds && *options.seconds <= 0) {
        throw UsageError("--seconds must be larger than 0");
    }
    if ((options.method + options.device).find_first_of("<&") != std::string::npos) {
        throw UsageError("--method and --device take no < and no &");
    }
}

}  // namespace

LoadOptions ParseLoadOptions(std::span<const std::string> arguments) {
    LoadOptions options;
    std::set<std::string> missing{"--ports", "--connections", "--method", "--device", "--expect"};
    for (; !arguments.empty(); arguments = arguments.subspan(2)) {
        if (arguments.size() == 1) {
            throw UsageError(arguments[0] + " needs a value");
        }
        ReadOption(options, arguments[0], arguments[1]);
        missing.erase(arguments[0]);
    }
    if (!missing.empty()) {
        throw UsageError(*missing.begin() + " is needed");
    }
    Check(options);
    return options;
}

std::string BuildRequest(const LoadOptions& options) {
    std::string body = "<?xml version=\"1.0\"?>\r\n<methodCall><methodName>" + options.method +
                       "</methodName><params><param><value><string>" + options.device +
                       "</string></value></param>";
    if (options.number) {
        body += "<param><value><int>" + std::to_string(*options.number) + "</int></value></param>";
    }
    body += "</params></methodCall>";
    return "POST /RPC2 HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: text/xml\r\nContent-Length: " +
           std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace bench
