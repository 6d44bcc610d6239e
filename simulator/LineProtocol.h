#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace simulator {

using Bytes = std::vector<std::uint8_t>;

enum class RequestForm { Query, Assignment, Call };

/// One request line of the master's text protocol, taken apart: "PDOUT=[3,0]" is an assignment
/// with the key "PDOUT" and the argument "[3,0]"; a query has no argument.
struct Request {
    RequestForm form = RequestForm::Query;
    std::string key;
    std::string argument;
};

/// Index and subindex of "PARAM[index][subindex]".
struct ParameterKey {
    unsigned index = 0;
    unsigned subindex = 0;
    bool operator==(const ParameterKey&) const = default;
    bool operator<(const ParameterKey& other) const {
        return std::tie(index, subindex) < std::tie(other.index, other.subindex);
    }
};

/// Takes a line (without its line feed) apart.
/// @return nothing when the line has none of the three forms: a master does not answer such a line.
std::optional<Request> ParseRequest(std::string_view line);

/// Reads "PARAM[19][0]"; both numbers plain decimal without leading zeros.
std::optional<ParameterKey> ParseParameterKey(std::string_view key);

/// Reads a decimal number without sign, leading zeros or anything around it.
std::optional<unsigned> ParseNumber(std::string_view text);

/// Reads "[a,ff]" as strictly as it has to be written: lower case, no leading zeros, no blanks.
std::optional<Bytes> ParseByteList(std::string_view text);

/// Writes "[a,ff]".
std::string FormatByteList(const Bytes& bytes);

}  // namespace simulator
