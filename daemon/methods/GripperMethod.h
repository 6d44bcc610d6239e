#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

#include "pellix/GripperManager.h"

/// Status of a command or setter that was not carried out: no such gripper, or another model.
inline constexpr unsigned kStatusRefused = 3;

/// Device string that stands for no device: every gripper method answers it at once.
inline constexpr const char* kNoDevice = "---";

/// What all methods that address one gripper share. Parameter 0 is the device string. A device
/// problem never raises a fault: the answer is then the method's fallback.
///
/// The library runs several calls at once, also of one method object; there is no state between
/// calls.
class GripperMethod : public xmlrpc_c::method {
protected:
    /// Whether the gripper on the link is of a model that has the operation. Asks the gripper.
    using ModelCheck = bool (*)(pellix::Pellix&);

    /// @param manager not owned; outlives the method
    /// @param name class name, for the log
    GripperMethod(GripperManager* manager, const char* name, const char* signature);

    /// The gripper's link, or null: for the placeholder at once and without a log line, for an
    /// unknown device with one.
    LinkInUse Find(const std::string& device) const;

private:
    GripperManager* const gripperManager;
    const char* const className;
};

/// A method whose answer is the result of one gripper operation, with `Parameters` after the
/// device string: std::uint8_t (low 8 bits of an int), bool or double.
template <typename Result, typename... Parameters>
class GripperCall : public GripperMethod {
public:
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) final {
        const std::string device = params.getString(0);
        const auto arguments = ReadAll(params, std::index_sequence_for<Parameters...>());
        params.verifyEnd(1 + sizeof...(Parameters));

        const LinkInUse link = Find(device);
        if (link == nullptr || !IsAccepted(*link, device)) {
            *result = ToValue(fallbackResult);
            return;
        }
        *result = ToValue(std::apply(
            [&](auto... values) { return gripperOperation(*link, values...); }, arguments));
    }

protected:
    using Operation = Result (*)(pellix::Pellix&, Parameters...);

    /// @param check null when every model has the operation
    GripperCall(GripperManager* manager, const char* name, const char* signature,
                Operation operation, Result fallback, ModelCheck check = nullptr)
        : GripperMethod(manager, name, signature),
          gripperOperation(operation),
          fallbackResult(fallback),
          modelCheck(check) {}

    virtual bool IsAccepted(pellix::Pellix& link, const std::string& /*device*/) const {
        return modelCheck == nullptr || modelCheck(link);
    }

private:
    /// Reads in the order of the parameters: braces evaluate from left to right.
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

    const Operation gripperOperation;
    const Result fallbackResult;
    const ModelCheck modelCheck;
};

/// Commands and setters: the status of the operation, or kStatusRefused.
template <typename... Parameters>
class StatusCall : public GripperCall<unsigned, Parameters...> {
protected:
    StatusCall(GripperManager* manager, const char* name, const char* signature,
               unsigned (*operation)(pellix::Pellix&, Parameters...),
               GripperMethod::ModelCheck check = nullptr)
        : GripperCall<unsigned, Parameters...>(manager, name, signature, operation, kStatusRefused,
                                               check) {}
};
