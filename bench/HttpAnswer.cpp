#include "bench/HttpAnswer.h"

#include <strings.h>

#include <charconv>

#include "bench/BadAnswer.h"

namespace bench {

namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::string_view kHeaderEnd = "\r\n\r\n";
constexpr int kDecimal = 10;
constexpr int kHexadecimal = 16;

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
    return left.size() == right.size() && strncasecmp(left.data(), right.data(), left.size()) == 0;
}

std::size_t ParseLength(std::string_view text, int base) {
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw BadAnswer("bad length: " + std::string(text));
    }
    return length;
}

}  // namespace

void HttpAnswer::Clear() {
    used = 0;
    bodyStart = 0;
    bodyLength = kUnknown;
    chunked = false;
    body = {};
}

bool HttpAnswer::Take(std::size_t count) {
    used += count;
    if (bodyStart != 0 || ReadHeader()) {
        const std::string_view rest(buffer.data() + bodyStart, used - bodyStart);
        if (chunked ? ReadChunks(rest) : ReadPlainBody(rest)) {
            return true;
        }
    }
    if (used == buffer.size()) {
        throw BadAnswer("answer too large");
    }
    return false;
}

/// @return whether the header is complete
bool HttpAnswer::ReadHeader() {
    std::string_view header(buffer.data(), used);
    const std::size_t end = header.find(kHeaderEnd);
    if (end == std::string_view::npos) {
        return false;
    }
    bodyStart = end + kHeaderEnd.size();
    header = header.substr(0, end + kLineEnd.size());
    if (!header.starts_with("HTTP/1.1 200 ")) {
        throw BadAnswer("status: " + std::string(header.substr(0, header.find(kLineEnd))));
    }
    while (!header.empty()) {
        const std::size_t lineEnd = header.find(kLineEnd);
        ReadHeaderLine(header.substr(0, lineEnd));
        header.remove_prefix(lineEnd + kLineEnd.size());
    }
    if (!chunked && bodyLength == kUnknown) {
        throw BadAnswer("answer without a length");
    }
    return true;
}

void HttpAnswer::ReadHeaderLine(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        return;
    }
    const std::string_view name = line.substr(0, colon);
    std::string_view value = line.substr(colon + 1);
    value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    if (EqualIgnoringCase(name, "Content-Length")) {
        bodyLength = ParseLength(value, kDecimal);
    } else if (EqualIgnoringCase(name, "Transfer-Encoding")) {
        chunked = EqualIgnoringCase(value, "chunked");
    }
}

bool HttpAnswer::ReadPlainBody(std::string_view rest) {
    if (rest.size() > bodyLength) {
        throw BadAnswer("more bytes than the answer's length");
    }
    body = rest;
    return rest.size() == bodyLength;
}

/// From the first chunk on each time: answers are short, and mostly whole.
bool HttpAnswer::ReadChunks(std::string_view rest) {
    joinedChunks.clear();
    for (;;) {
        const std::size_t lineEnd = rest.find(kLineEnd);
        if (lineEnd == std::string_view::npos) {
            return false;
        }
        const std::size_t length = ParseLength(rest.substr(0, lineEnd), kHexadecimal);
        rest.remove_prefix(lineEnd + kLineEnd.size());
        if (length > buffer.size()) {
            throw BadAnswer("answer too large");
        }
        if (rest.size() < length + kLineEnd.size()) {
            return false;
        }
        joinedChunks += rest.substr(0, length);
        rest.remove_prefix(length);
        if (!rest.starts_with(kLineEnd)) {
            throw BadAnswer("chunk longer than it says");
        }
        rest.remove_prefix(kLineEnd.size());
        if (length == 0) {
            break;
        }
    }
    if (!rest.empty()) {
        throw BadAnswer("more bytes than the answer's length");
    }
    body = joinedChunks;
    return true;
}

}  // namespace bench
