// The library: formats the fault for an invalid <i8> with two "%s" but passes only one text.
// Without this: a request with <i8>x</i8> crashes the process.
// Shown by: FaultTextTest.
// Can go: when the format and its arguments match.

#include <cstdarg>
#include <string_view>

#include <xmlrpc-c/base.h>
#include <xmlrpc-c/util.h>

#include "common/NextFunction.h"

namespace {

/// Must match exactly; FaultTextTest fails if the installed library has another text.
constexpr std::string_view kI8Format =
    "<i8> XML element value '%s' is invalid because it does not represent a 64 bit integer.  %s";
constexpr const char* kI8FormatForOne =
    "<i8> XML element value is invalid because it does not represent a 64 bit integer.  %s";

}  // namespace

extern "C" void xmlrpc_set_fault_formatted_v(xmlrpc_env* envP, int code, const char* format,
                                             va_list args) {
    static auto* const next =
        fence::NextFunction<decltype(xmlrpc_set_fault_formatted_v)>("xmlrpc_set_fault_formatted_v");
    next(envP, code, format == kI8Format ? kI8FormatForOne : format, args);
}
