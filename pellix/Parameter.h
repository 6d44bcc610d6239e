#pragma once

#include <cstdint>
#include <vector>

namespace pellix {

/// One ISDU parameter of an IO-Link device: the raw bytes as last read or written, in the order
/// in which the device sends them. Has no lock: the device's parameter list guards it.
class Parameter {
public:
    Parameter() = default;
    Parameter(int isduIndex, int isduSubindex) : index(isduIndex), subindex(isduSubindex) {}
    Parameter(int isduIndex, int isduSubindex, const std::vector<std::uint8_t>& bytes)
        : index(isduIndex), subindex(isduSubindex), value(bytes) {}
    Parameter(const Parameter&) = delete;
    Parameter& operator=(const Parameter&) = delete;
    virtual ~Parameter() = default;

    int GetIndex() const { return index; }
    int GetSubindex() const { return subindex; }

    /// A copy, which stays as it is while another thread replaces the value.
    std::vector<std::uint8_t> GetValue() const { return value; }

    void SetValue(const std::vector<std::uint8_t>& bytes) { value = bytes; }

private:
    const int index = 0;
    const int subindex = 0;
    std::vector<std::uint8_t> value;
};

}  // namespace pellix
