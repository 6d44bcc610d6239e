#include <dlfcn.h>

#include <algorithm>
#include <cstdarg>
#include <cstddef>
#include <string_view>

#include <xmlrpc-c/base.h>
#include <xmlrpc-c/util.h>

// Stands before two functions of the XML-RPC library: without it a request of a few hundred bytes,
// from anybody, would end the process or keep a processor busy for hours.

namespace {

/// The library's own function of that name.
template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// As it is in UTF-8, or in UTF-16, where zeros lie between the letters.
bool BeginsWithDoctype(std::string_view xml) {
    for (const char letter : std::string_view("<!DOCTYPE")) {
        xml.remove_prefix(std::min(xml.find_first_not_of('\0'), xml.size()));
        if (!xml.starts_with(letter)) {
            return false;
        }
        xml.remove_prefix(1);
    }
    return true;
}

/// A document type may declare entities made of entities: each level takes ten times as long as the
/// one below. XML-RPC knows no document types.
bool HasDoctype(std::string_view xml) {
    if (xml.find('!') == std::string_view::npos) {
        return false;  // nearly every request, by one fast search
    }
    for (std::size_t start = 0; (start = xml.find('<', start)) != std::string_view::npos; ++start) {
        if (BeginsWithDoctype(xml.substr(start))) {
            return true;
        }
    }
    return false;
}

/// The library formats two texts with this and passes one of them, the last. Compared to the byte:
/// RequestGuardTest shows whether the installed library still has this text.
constexpr std::string_view kI8Format =
    "<i8> XML element value '%s' is invalid because it does not represent a 64 bit integer.  %s";
constexpr const char* kI8FormatForOne =
    "<i8> XML element value is invalid because it does not represent a 64 bit integer.  %s";

}  // namespace

extern "C" {

void xmlrpc_parse_call(xmlrpc_env* envP, const char* xmlData, std::size_t xmlDataLen,
                       const char** methodNameP, xmlrpc_value** paramArrayPP) {
    static auto* const next = Next<decltype(xmlrpc_parse_call)>("xmlrpc_parse_call");
    if (HasDoctype({xmlData, xmlDataLen})) {
        xmlrpc_env_set_fault(envP, XMLRPC_PARSE_ERROR, "Document types are not supported");
        return;
    }
    next(envP, xmlData, xmlDataLen, methodNameP, paramArrayPP);
}

void xmlrpc_set_fault_formatted_v(xmlrpc_env* envP, int code, const char* format, va_list args) {
    static auto* const next =
        Next<decltype(xmlrpc_set_fault_formatted_v)>("xmlrpc_set_fault_formatted_v");
    next(envP, code, format == kI8Format ? kI8FormatForOne : format, args);
}

}  // extern "C"
