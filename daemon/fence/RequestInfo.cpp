// The library: frees the request line, path and host name of a request only if it could parse the
// whole header, and never frees the query. It leaks the host name of a URI whose query it cannot
// decode. If the port in a "Host" line is not a number, it sets no status, so that the response
// has an uninitialised one.
// Without this: requests with an invalid header line, or with a query after the path, leak memory;
// anyone who reaches a port can send them.
// Shown by: RequestInfoTest.
// Can go: when the library frees all of them and sets the status.

#include <cctype>
#include <cstdint>
#include <string_view>

#include <xmlrpc-c/abyss.h>

#include "common/NextFunction.h"

namespace {

/// The library returns a constant pointer to a part of its session object.
TRequestInfo& RequestInfoOf(TSession* session) {
    const TRequestInfo* info = nullptr;
    SessionGetRequestInfo(session, &info);
    return const_cast<TRequestInfo&>(*info);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

/// @return whether `text` has a "%" that is not followed by two hexadecimal digits
bool HasBadEscape(std::string_view text) {
    const auto isDigit = [](char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; };
    while (!text.empty()) {
        const bool isEscape = text.front() == '%';
        if (isEscape && (text.size() < 3 || !isDigit(text[1]) || !isDigit(text[2]))) {
            return true;
        }
        text.remove_prefix(isEscape ? 3 : 1);
    }
    return false;
}

/// Number of words that RequestRead() has read from this thread's request.
thread_local unsigned words = 0;

constexpr unsigned kUri = 2;  // the second word of the request line
constexpr std::uint16_t kBadRequest = 400;

void Free(const char*& text) {
    if (text != nullptr) {
        xmlrpc_strfree(text);
        text = nullptr;
    }
}

}  // namespace

extern "C" {

/// Reads a request up to the empty line after its header.
/// @param errorP description of what is invalid, or null
void RequestRead(TSession* sessionP, std::uint32_t timeout, const char** errorP,
                 std::uint16_t* httpErrorCodeP) {
    static auto* const next = fence::NextFunction<decltype(RequestRead)>("RequestRead");
    TRequestInfo& info = RequestInfoOf(sessionP);
    info = {};  // the library sets it only if it can parse the request line
    words = 0;
    *httpErrorCodeP = kBadRequest;  // for errors to which the library assigns no status
    next(sessionP, timeout, errorP, httpErrorCodeP);
    if (*errorP != nullptr) {  // RequestFree() will not free these
        Free(info.requestline);
        Free(info.uri);
        Free(info.host);
        Free(info.query);
    }
}

/// Takes the next word of a line. The library rejects a URI with a host name and an invalid escape
/// only after copying the host name, and leaks the copy. Without the first letter of the URI, it
/// rejects it before.
char* GetToken(char** placeP) {
    static auto* const next = fence::NextFunction<decltype(GetToken)>("GetToken");
    char* const word = next(placeP);
    ++words;
    if (words == kUri && word != nullptr && std::string_view(word).starts_with("http://") &&
        HasBadEscape(word)) {
        word[0] = '-';
    }
    return word;
}

/// Frees the data of a request, whether or not RequestRead() succeeded.
void RequestFree(TSession* sessionP) {
    static auto* const next = fence::NextFunction<decltype(RequestFree)>("RequestFree");
    Free(RequestInfoOf(sessionP).query);
    next(sessionP);
}

}  // extern "C"
