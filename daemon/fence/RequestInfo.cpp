// The library: keeps the request line, the path, the query and the host name of a request until it
// ends, but frees them only if the whole header was understood, and the query never. It loses the
// host name of a URI whose query it cannot decode, and gives no status if the port of a "Host" line
// is not a number: the answer's status is whatever is in memory.
// Without this: requests with a bad header line, or with a query behind the path, use up the memory
// for good; anyone who reaches a port can send them.
// Shown by: RequestInfoTest.
// Can go: when the library frees all of them.

#include <cctype>
#include <cstdint>
#include <string_view>

#include <xmlrpc-c/abyss.h>

#include "common/NextFunction.h"

namespace {

/// The library gives out a constant reference to a part of its session object.
TRequestInfo& RequestInfoOf(TSession* session) {
    const TRequestInfo* info = nullptr;
    SessionGetRequestInfo(session, &info);
    return const_cast<TRequestInfo&>(*info);  // NOLINT(cppcoreguidelines-pro-type-const-cast)
}

/// Whether `text` has a "%" without two hexadecimal digits behind it.
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

/// Words that RequestRead() has taken from the lines of this thread's request.
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

/// Reads a request up to the empty line behind its header.
/// @param errorP what is wrong with it, or null
void RequestRead(TSession* sessionP, std::uint32_t timeout, const char** errorP,
                 std::uint16_t* httpErrorCodeP) {
    static auto* const next = fence::NextFunction<decltype(RequestRead)>("RequestRead");
    TRequestInfo& info = RequestInfoOf(sessionP);
    info = {};  // the library sets it after it has understood the request line, or never
    words = 0;
    *httpErrorCodeP = kBadRequest;  // the library sets most of the others
    next(sessionP, timeout, errorP, httpErrorCodeP);
    if (*errorP != nullptr) {  // RequestFree() will overlook these
        Free(info.requestline);
        Free(info.uri);
        Free(info.host);
        Free(info.query);
    }
}

/// Takes the next word of a line. A URI with a host name and a bad escape would be refused after
/// the host name was copied; without its first letter it is refused before.
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

/// Frees what belongs to a request that RequestRead() has read, successfully or not.
void RequestFree(TSession* sessionP) {
    static auto* const next = fence::NextFunction<decltype(RequestFree)>("RequestFree");
    Free(RequestInfoOf(sessionP).query);
    next(sessionP);
}

}  // extern "C"
