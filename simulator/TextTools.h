#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/SimulatedMaster.h"

namespace simulator {

/// Replaces the C escapes \n \r \t \\ \0 and \xHH by the bytes that they stand for.
/// @throws UsageError for any other escape.
std::string Unescape(std::string_view text);

/// Writes bytes as plain text that Unescape() reads; blanks are escaped where they begin or end it.
std::string Escape(std::string_view bytes);

/// @throws UsageError when `text` is not a whole number from 0 to `largest`.
unsigned ParseUnsigned(std::string_view text, unsigned largest);

/// @throws UsageError when `text` is not a hexadecimal number of one byte.
std::uint8_t ParseHexadecimalByte(std::string_view text);

/// @throws UsageError when `text` is not a finite decimal number.
double ParseDecimal(std::string_view text);

/// @throws UsageError when `text` is neither "on" nor "off".
bool ParseOnOff(std::string_view text);

/// @throws UsageError when `text` is neither "fin" nor "data".
QueryEnd ParseQueryEnd(std::string_view text);

/// Cuts `text` at every `separator`; an empty text has no parts.
std::vector<std::string> Split(std::string_view text, char separator);

}  // namespace simulator
