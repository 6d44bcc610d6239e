#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace bench {

/// One answer of an HTTP server, in pieces as they arrive; used for one answer after the other.
/// Only a longer chunked body than all before allocates.
class HttpAnswer {
public:
    /// Forgets the last answer.
    void Clear();

    /// Where the next bytes go; never empty while the answer is incomplete.
    std::span<char> Room() { return std::span(buffer).subspan(used); }

    /// Takes the first `count` bytes of Room().
    /// @return whether the answer is complete
    /// @throws BadAnswer unless it is HTTP/1.1 with status 200 and a length or chunks, and as long
    ///     as it says; or when it is larger than the buffer
    bool Take(std::size_t count);

    /// Of the complete answer, chunks joined; valid until Clear().
    std::string_view Body() const { return body; }

private:
    bool ReadHeader();
    void ReadHeaderLine(std::string_view line);
    bool ReadPlainBody(std::string_view rest);
    bool ReadChunks(std::string_view rest);

    static constexpr std::size_t kLargest = 16384;  // bytes, header and body
    static constexpr std::size_t kUnknown = static_cast<std::size_t>(-1);

    std::array<char, kLargest> buffer;
    std::size_t used = 0;
    std::size_t bodyStart = 0;  // in the buffer; 0 while the header is incomplete
    std::size_t bodyLength = kUnknown;
    bool chunked = false;
    std::string_view body;
    std::string joinedChunks;
};

}  // namespace bench
