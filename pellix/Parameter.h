#pragma once

#include <cstdint>
#include <vector>

namespace pellix {

/// One ISDU parameter of an IO-Link device: the bytes last read or written, in the order in which
/// the device sends them. Has no lock; the mutex of the device's parameter list guards it.
class Parameter {
public:
    Parameter() = default;
    Parameter(int index, int subindex) : index(index), subindex(subindex) {}
    Parameter(int index, int subindex, const std::vector<std::uint8_t>& value)
        : index(index), subindex(subindex), value(value) {}
    Parameter(const Parameter&) = delete;
    Parameter& operator=(const Parameter&) = delete;
    virtual ~Parameter() = default;

    int GetIndex() const { return index; }
    int GetSubindex() const { return subindex; }

    /// @return a copy, which stays valid when the value is replaced
    std::vector<std::uint8_t> GetValue() const { return value; }

    void SetValue(const std::vector<std::uint8_t>& bytes) { value = bytes; }

private:
    const int index = 0;
    const int subindex = 0;
    std::vector<std::uint8_t> value;
};

}  // namespace pellix
