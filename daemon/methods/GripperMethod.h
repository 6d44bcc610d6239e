#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

#include "pellix/GripperManager.h"

/// Status of a command or setter that was not executed: unknown gripper or wrong model.
inline constexpr unsigned kStatusRefused = 3;

/// Device string that means "no device": every gripper method answers at once with its fallback.
inline constexpr const char* kNoDevice = "---";

/// Base of all methods that address one gripper. Parameter 0 is the device string. On a device
/// problem, a method returns its fallback value, never a fault.
///
/// The library may run several calls of one method object at once; methods keep no state between
/// calls.
class GripperMethod : public xmlrpc_c::method {
protected:
    /// Tells whether the gripper on the link has the operation. Sends a request to the gripper.
    using ModelCheck = bool (*)(pellix::Pellix&);

    /// @param gripperManager not owned; outlives the method
    /// @param className for the log; a string literal
    /// @param signature as system.methodSignature returns it, for example "i:Si"
    GripperMethod(GripperManager* gripperManager, const char* className, const char* signature);

    /// Waits at most 100 ms for the registry.
    /// @return the gripper's link; null for kNoDevice (not logged) and for an unknown device
    /// (logged)
    LinkInUse Find(const std::string& device) const;

private:
    GripperManager* const gripperManager;
    const char* const className;
};

/// A method that returns the result of one gripper operation. `Parameters` follow the device
/// string: std::uint8_t (low 8 bits of an int), bool or double.
template <typename Result, typename... Parameters>
class GripperCall : public GripperMethod {
public:
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) final {
        const std::string device = params.getString(0);
        const auto arguments = ReadAll(params, std::index_sequence_for<Parameters...>());
        params.verifyEnd(1 + sizeof...(Parameters));

        const LinkInUse link = Find(device);
        if (link == nullptr || !IsAccepted(*link, device)) {
            *result = ToValue(fallback);
            return;
        }
        *result = ToValue(
            std::apply([&](auto... values) { return operation(*link, values...); }, arguments));
    }

protected:
    using Operation = Result (*)(pellix::Pellix&, Parameters...);

    /// @param fallback result if there is no such gripper or it lacks the operation
    /// @param modelCheck null if every model has the operation
    GripperCall(GripperManager* manager, const char* name, const char* signature,
                Operation operation, Result fallback, ModelCheck modelCheck = nullptr)
        : GripperMethod(manager, name, signature),
          operation(operation),
          fallback(fallback),
          modelCheck(modelCheck) {}

    virtual bool IsAccepted(pellix::Pellix& link, const std::string& /*device*/) const {
        return modelCheck == nullptr || modelCheck(link);
    }

private:
    /// Reads the parameters in order: braces evaluate from left to right.
    template <std::size_t... Positions>
    static std::tuple<Parameters...> ReadAll(const xmlrpc_c::paramList& params,
                                             std::index_sequence<Positions...> /*positions*/) {
        return std::tuple<Parameters...>{Read<Parameters>(params, 1 + Positions)...};
    }

    template <typename Parameter>
    static Parameter Read(const xmlrpc_c::paramList& params, unsigned position) {
        if constexpr (std::is_same_v<Parameter, bool>) {
            return params.getBoolean(position);
        } else if constexpr (std::is_same_v<Parameter, double>) {
            return params.getDouble(position, std::numeric_limits<double>::lowest(),
                                    std::numeric_limits<double>::max());
        } else {
            return static_cast<Parameter>(params.getInt(position, std::numeric_limits<int>::min(),
                                                        std::numeric_limits<int>::max()));
        }
    }

    static xmlrpc_c::value ToValue(bool value) { return xmlrpc_c::value_boolean(value); }
    static xmlrpc_c::value ToValue(double value) { return xmlrpc_c::value_double(value); }
    static xmlrpc_c::value ToValue(std::int64_t value) { return xmlrpc_c::value_i8(value); }
    static xmlrpc_c::value ToValue(std::uint8_t value) { return xmlrpc_c::value_int(value); }
    static xmlrpc_c::value ToValue(int value) { return xmlrpc_c::value_int(value); }
    static xmlrpc_c::value ToValue(unsigned status) {
        return xmlrpc_c::value_int(static_cast<int>(status));
    }

    const Operation operation;
    const Result fallback;
    const ModelCheck modelCheck;
};

/// A command or setter: returns the status of the operation, or kStatusRefused.
template <typename... Parameters>
class StatusCall : public GripperCall<unsigned, Parameters...> {
protected:
    StatusCall(GripperManager* manager, const char* name, const char* signature,
               unsigned (*operation)(pellix::Pellix&, Parameters...),
               GripperMethod::ModelCheck check = nullptr)
        : GripperCall<unsigned, Parameters...>(manager, name, signature, operation, kStatusRefused,
                                               check) {}
};
