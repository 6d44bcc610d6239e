#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Simple second implementation of the line protocol's encodings, with which tests compare the
/// library's fast one. The two share no code.
namespace support {

std::optional<std::vector<std::uint8_t>> SlowByteList(const std::string& text);
std::optional<std::vector<std::uint32_t>> SlowNumberList(const std::string& text);

/// Index and subindex.
std::optional<std::pair<std::uint32_t, std::uint32_t>> SlowParameterKey(const std::string& key);

int SlowSigned(const std::string& text);

std::string SlowFormat(const std::vector<std::uint8_t>& bytes);

}  // namespace support
