#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

/// Reads values from a fuzzer input, front to back. After its end it returns zeros.
class InputBytes {
public:
    InputBytes(const std::uint8_t* data, std::size_t size) : next(data), end(data + size) {}

    bool IsEmpty() const { return next == end; }

    std::uint8_t Byte() { return IsEmpty() ? std::uint8_t{0} : *next++; }

    /// @return the next bytes as a trivially copyable `Value`, in the host's byte order
    template <typename Value>
    Value Take() {
        std::array<std::uint8_t, sizeof(Value)> bytes;
        for (std::uint8_t& byte : bytes) {
            byte = Byte();
        }
        Value value;
        std::memcpy(&value, bytes.data(), sizeof value);
        return value;
    }

    /// Reads a length of one byte, then as many elements, or fewer if the input ends.
    template <typename Element>
    std::vector<Element> List() {
        std::vector<Element> elements;
        for (unsigned left = Byte(); left > 0 && !IsEmpty(); --left) {
            elements.push_back(Take<Element>());
        }
        return elements;
    }

private:
    const std::uint8_t* next;
    const std::uint8_t* const end;
};
