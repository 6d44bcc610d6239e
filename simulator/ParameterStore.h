#pragma once

#include <cstdint>
#include <map>

#include "simulator/LineProtocol.h"

namespace simulator {

/// The codes of a simulated master's ERR lines.
enum class ErrorCode : unsigned {
    None = 0,
    UnknownKey = 1,
    BadArgument = 2,
    NoSuchParameter = 3,
    BadLength = 4,
    WrongMode = 6,
    ReadOnly = 7,
};

/// The parameters of a gripper. A written value takes effect at once; it is lost at the next
/// power-up unless it has been stored.
class ParameterStore {
public:
    enum class Access { ReadOnly, SameLength, AnyLength };

    /// Creates a parameter or replaces its current and stored value. An existing parameter keeps
    /// its access.
    void Define(ParameterKey key, Bytes value, Access access);

    /// Writes a value with the checks of a request.
    ErrorCode Write(ParameterKey key, const Bytes& value);

    /// @return null if the parameter does not exist; valid until the next change.
    const Bytes* Find(ParameterKey key) const;

    /// Stores all current values.
    void StoreRemanent();

    /// Restores the stored values.
    void PowerUp();

    /// CRC-32 of index, subindex, length and value of every writable parameter.
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
        Bytes storedValue;
        Access access;
    };

    std::map<ParameterKey, Parameter> parameters;
};

}  // namespace simulator
