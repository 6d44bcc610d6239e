#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The encodings of the line protocol once more, step by step and character by character: what the
/// library's fast ones are compared with. Nothing here shares code with them.
namespace support {

std::optional<std::vector<std::uint8_t>> SlowByteList(const std::string& text);
std::optional<std::vector<std::uint32_t>> SlowNumberList(const std::string& text);

/// Index and subindex.
std::optional<std::pair<std::uint32_t, std::uint32_t>> SlowParameterKey(const std::string& key);

int SlowSigned(const std::string& text);

std::string SlowFormat(const std::vector<std::uint8_t>& bytes);

}  // namespace support
