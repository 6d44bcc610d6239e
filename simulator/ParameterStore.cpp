#include "simulator/ParameterStore.h"

#include <utility>

namespace simulator {

namespace {

/// CRC-32 as in Ethernet, computed bit by bit: the lists are short.
class Crc32 {
public:
    void Add(unsigned byte) {
        constexpr std::uint32_t kPolynomial = 0xedb88320U;
        crc ^= byte & 0xffU;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1U) ^ ((crc & 1U) != 0 ? kPolynomial : 0U);
        }
    }
    std::uint32_t Value() const { return ~crc; }

private:
    std::uint32_t crc = 0xffffffffU;
};

}  // namespace

void ParameterStore::Define(ParameterKey key, Bytes value, Access access) {
    const auto [place, isNew] = parameters.try_emplace(key, Parameter{{}, {}, access});
    place->second.value = value;
    place->second.storedValue = std::move(value);
}

ErrorCode ParameterStore::Write(ParameterKey key, const Bytes& value) {
    const auto place = parameters.find(key);
    if (place == parameters.end()) {
        return ErrorCode::NoSuchParameter;
    }
    Parameter& parameter = place->second;
    if (parameter.access == Access::ReadOnly) {
        return ErrorCode::ReadOnly;
    }
    if (parameter.access == Access::SameLength && value.size() != parameter.value.size()) {
        return ErrorCode::BadLength;
    }
    parameter.value = value;
    return ErrorCode::None;
}

const Bytes* ParameterStore::Find(ParameterKey key) const {
    const auto place = parameters.find(key);
    return place == parameters.end() ? nullptr : &place->second.value;
}

void ParameterStore::StoreRemanent() {
    for (auto& [key, parameter] : parameters) {
        parameter.storedValue = parameter.value;
    }
}

void ParameterStore::PowerUp() {
    for (auto& [key, parameter] : parameters) {
        parameter.value = parameter.storedValue;
    }
}

std::uint32_t ParameterStore::Checksum() const {
    Crc32 crc;
    for (const auto& [key, parameter] : parameters) {
        if (parameter.access == Access::ReadOnly) {
            continue;
        }
        crc.Add(key.index >> 8U);
        crc.Add(key.index);
        crc.Add(key.subindex);
        crc.Add(static_cast<unsigned>(parameter.value.size()));
        for (const std::uint8_t byte : parameter.value) {
            crc.Add(byte);
        }
    }
    return crc.Value();
}

}  // namespace simulator
