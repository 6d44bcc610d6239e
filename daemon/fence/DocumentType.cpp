// The library: its XML parser expands the entities that a document type declares, including nested
// ones, where each level multiplies the size of the one below.
// Without this: a request of a few hundred bytes keeps a processor busy for hours.
// Shown by: DocumentTypeTest, tests/fuzz/ServerFuzzer.cpp.
// Can go: when the library rejects document types or limits the expansion of entities.

#include <algorithm>
#include <cstddef>
#include <string_view>

#include <xmlrpc-c/base.h>
#include <xmlrpc-c/util.h>

#include "common/NextFunction.h"

namespace {

constexpr std::string_view kDoctype = "<!DOCTYPE";
constexpr std::string_view kWhiteSpace = " \t\r\n";

/// The parser's own test for UTF-16: a byte order mark, or a zero in the first two bytes.
bool IsUtf16(std::string_view xml) {
    return xml.starts_with("\xFE\xFF") || xml.starts_with("\xFF\xFE") ||
           xml.substr(0, 2).find('\0') != std::string_view::npos;
}

/// @return whether `xml` begins with "<!DOCTYPE" in UTF-16, that is with zeros between the letters
bool BeginsWithWideDoctype(std::string_view xml) {
    for (const char letter : kDoctype) {
        xml.remove_prefix(std::min(xml.find_first_not_of('\0'), xml.size()));
        if (!xml.starts_with(letter)) {
            return false;
        }
        xml.remove_prefix(1);
    }
    return true;
}

/// Searches the whole text; a false alarm does no harm, because clients do not send UTF-16.
bool HasWideDoctype(std::string_view xml) {
    for (std::size_t start = 0; (start = xml.find('<', start)) != std::string_view::npos; ++start) {
        if (BeginsWithWideDoctype(xml.substr(start))) {
            return true;
        }
    }
    return false;
}

/// Removes everything up to and including the first `end` at or after `from`; all of `xml` if
/// `end` is missing.
void RemoveThrough(std::string_view& xml, std::string_view end, std::size_t from) {
    const std::size_t found = xml.find(end, from);
    xml.remove_prefix(found == std::string_view::npos ? xml.size() : found + end.size());
}

/// A document type comes before the first element, where only white space, comments and processing
/// instructions are allowed besides. The parser rejects anything else there.
bool HasDoctype(std::string_view xml) {
    constexpr std::string_view kComment = "<!--";
    constexpr std::string_view kInstruction = "<?";
    if (IsUtf16(xml)) {
        return HasWideDoctype(xml);
    }
    for (;;) {
        xml.remove_prefix(std::min(xml.find_first_not_of(kWhiteSpace), xml.size()));
        if (xml.starts_with(kInstruction)) {
            RemoveThrough(xml, "?>", kInstruction.size());
        } else if (xml.starts_with(kComment)) {
            RemoveThrough(xml, "-->", kComment.size());
        } else {
            return xml.starts_with(kDoctype);
        }
    }
}

}  // namespace

extern "C" void xmlrpc_parse_call(xmlrpc_env* envP, const char* xmlData, std::size_t xmlDataLen,
                                  const char** methodNameP, xmlrpc_value** paramArrayPP) {
    static auto* const next = fence::NextFunction<decltype(xmlrpc_parse_call)>("xmlrpc_parse_call");
    if (HasDoctype({xmlData, xmlDataLen})) {
        xmlrpc_env_set_fault(envP, XMLRPC_PARSE_ERROR, "Document types are not supported");
        return;
    }
    next(envP, xmlData, xmlDataLen, methodNameP, paramArrayPP);
}
