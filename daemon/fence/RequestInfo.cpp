// The library: keeps the request line, the path, the query and the host name of a request until it
// ends, but frees them only if the whole header was understood, and the query never.
// Without this: requests with a bad header line, or with a query behind the path, use up the memory
// for good; anyone who reaches a port can send them.
// Shown by: RequestInfoTest.
// Can go: when the library frees all of them.

#include <cstdint>

#include <xmlrpc-c/abyss.h>

#include "daemon/fence/NextFunction.h"

namespace {

/// The library gives out a constant reference to a part of its session object.
TRequestInfo& RequestInfoOf(TSession* session) {
    const TRequestInfo* info = nullptr;
    SessionGetRequestInfo(session, &info);
    return const_cast<TRequestInfo&>(*info);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

void Free(const char*& text) {
    if (text != nullptr) {
        xmlrpc_strfree(text);
        text = nullptr;
    }
}

}  // namespace

extern "C" {

/// Reads a request up to the empty line behind its header.
/// @param errorP what is wrong with it, or null
void RequestRead(TSession* sessionP, std::uint32_t timeout, const char** errorP,
                 std::uint16_t* httpErrorCodeP) {
    static auto* const next = fence::NextFunction<decltype(RequestRead)>("RequestRead");
    TRequestInfo& info = RequestInfoOf(sessionP);
    info = {};  // the library sets it after it has understood the request line, or never
    next(sessionP, timeout, errorP, httpErrorCodeP);
    if (*errorP != nullptr) {  // RequestFree() will overlook these
        Free(info.requestline);
        Free(info.uri);
        Free(info.host);
        Free(info.query);
    }
}

/// Frees what belongs to a request that RequestRead() has read, successfully or not.
void RequestFree(TSession* sessionP) {
    static auto* const next = fence::NextFunction<decltype(RequestFree)>("RequestFree");
    Free(RequestInfoOf(sessionP).query);
    next(sessionP);
}

}  // extern "C"
