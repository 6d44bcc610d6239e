#pragma once

#include <cstdint>
#include <map>

#include "simulator/LineProtocol.h"

namespace simulator {

/// The numbers that a simulated master puts after "ERR key".
enum class ErrorCode : unsigned {
    None = 0,
    UnknownKey = 1,
    BadArgument = 2,
    NoSuchParameter = 3,
    BadLength = 4,
    WrongMode = 6,
    ReadOnly = 7,
};

/// The parameters of one gripper. A written value counts at once and is lost at the next
/// power-up unless it was stored.
class ParameterStore {
public:
    enum class Access { ReadOnly, SameLength, AnyLength };

    /// Creates a parameter or replaces its value, now and for every later power-up. An existing
    /// parameter keeps its access.
    void Define(ParameterKey key, Bytes value, Access access);

    /// Writes a value as a request from outside does, with its checks.
    ErrorCode Write(ParameterKey key, const Bytes& value);

    /// @return null when there is no such parameter; valid until the next change.
    const Bytes* Find(ParameterKey key) const;

    /// Keeps all present values for the next power-up.
    void StoreRemanent();

    /// Goes back to the values that were last stored.
    void PowerUp();

    /// CRC-32 over index, subindex, length and value of every parameter that can be written.
    std::uint32_t Checksum() const;

    template <typename Visitor>
    void ForEach(Visitor visit) const {
        for (const auto& [key, parameter] : parameters) {
            visit(key, parameter.value);
        }
    }

private:
    struct Parameter {
        Bytes value;
        Bytes remanentValue;
        Access access;
    };

    std::map<ParameterKey, Parameter> parameters;
};

}  // namespace simulator
