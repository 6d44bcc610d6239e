// Fuzzes the encodings of the line protocol. Reads an input as a byte list, a number list, a
// parameter key and a mode number, and formats its bytes as a byte list and as parameter keys.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/support/SlowProtocol.h"

namespace {

void CheckReading(const std::string& text) {
    Require(pellix::ReadByteList(text) == support::SlowByteList(text), "bytes are read");
    Require(pellix::ReadNumberList(text) == support::SlowNumberList(text), "numbers are read");
    Require(pellix::ReadSigned(text) == support::SlowSigned(text), "a mode is read");
    const auto address = pellix::ReadParameterKey(text);
    const auto expected = support::SlowParameterKey(text);
    Require(address.has_value() == expected.has_value(), "a parameter key is known as one");
    Require(
        !address || (address->index == expected->first && address->subindex == expected->second),
        "a parameter key is read");
}

void CheckFormatting(const std::vector<std::uint8_t>& bytes) {
    const std::string text = pellix::FormatByteList(bytes);
    Require(text == support::SlowFormat(bytes), "bytes are formatted");
    Require(pellix::ReadByteList(text) == bytes, "bytes are read back");
}

void CheckKey(pellix::ParameterAddress address) {
    const auto readBack = pellix::ReadParameterKey(pellix::FormatParameterKey(address));
    Require(readBack && readBack->index == address.index && readBack->subindex == address.subindex,
            "a parameter key is read back");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    CheckReading(std::string(data, data + size));
    CheckFormatting(std::vector<std::uint8_t>(data, data + size));
    pellix::ParameterAddress address{};
    if (size >= sizeof address) {
        std::memcpy(&address, data, sizeof address);
        CheckKey(address);
    }
    return 0;
}
