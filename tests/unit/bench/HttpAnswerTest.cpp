#include "bench/HttpAnswer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "bench/BadAnswer.h"

namespace bench {
namespace {

/// Gives the answer in pieces.
/// @return the body, or nothing while the answer is incomplete
std::optional<std::string> Read(HttpAnswer& answer, std::string_view text,
                                std::size_t pieceLength) {
    bool complete = false;
    while (!text.empty()) {
        EXPECT_FALSE(complete) << "complete before its last byte";
        const auto room = answer.Room();
        const std::size_t count = text.copy(room.data(), std::min(pieceLength, room.size()));
        text.remove_prefix(count);
        complete = answer.Take(count);
    }
    return complete ? std::optional<std::string>(answer.Body()) : std::nullopt;
}

std::optional<std::string> Read(std::string_view text) {
    HttpAnswer answer;
    return Read(answer, text, text.size());
}

/// Every length of the pieces cuts the answer at other places.
void ExpectBodyHoweverCut(std::string_view text, const std::string& body) {
    HttpAnswer answer;
    for (std::size_t pieceLength = 1; pieceLength <= text.size(); ++pieceLength) {
        answer.Clear();
        EXPECT_EQ(Read(answer, text, pieceLength), body) << "pieces of " << pieceLength;
    }
}

std::string ReasonOfRefusal(std::string_view text) {
    try {
        Read(text);
        return "taken";
    } catch (const BadAnswer& error) {
        return error.what();
    }
}

TEST(HttpAnswerTest, BodyOfALengthComesInAnyPieces) {
    ExpectBodyHoweverCut(
        "HTTP/1.1 200 OK\r\nContent-type: text/xml\r\nContent-length: 5\r\n"
        "Connection: Keep-Alive\r\n\r\nab\r\nc",
        "ab\r\nc");
}

TEST(HttpAnswerTest, ChunksComeInAnyPieces) {
    ExpectBodyHoweverCut(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
        "3\r\nabc\r\nA\r\n0123456789\r\n0\r\n\r\n",
        "abc0123456789");
}

TEST(HttpAnswerTest, EmptyBodyIsCompleteWithItsHeader) {
    EXPECT_EQ(Read("HTTP/1.1 200 OK\r\nCONTENT-LENGTH:0\r\n\r\n"), "");
}

TEST(HttpAnswerTest, NothingOfTheLastAnswerIsLeft) {
    HttpAnswer answer;
    EXPECT_EQ(Read(answer,
                   "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
                   "3\r\nabc\r\n0\r\n\r\n",
                   1),
              "abc");
    answer.Clear();
    EXPECT_EQ(Read(answer, "HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nde", 1), "de");
    answer.Clear();
    EXPECT_THROW(Read(answer, "HTTP/1.1 200 OK\r\n\r\n", 1), BadAnswer);
}

TEST(HttpAnswerTest, RefusesOtherStatus) {
    EXPECT_EQ(ReasonOfRefusal("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"),
              "status: HTTP/1.1 404 Not Found");
    EXPECT_EQ(ReasonOfRefusal("HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n"),
              "status: HTTP/1.0 200 OK");
}

TEST(HttpAnswerTest, RefusesAnAnswerWithoutALength) {
    EXPECT_EQ(ReasonOfRefusal("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n"),
              "answer without a length");
    EXPECT_EQ(ReasonOfRefusal("HTTP/1.1 200 OK\r\nContent-Length: 1 0\r\n\r\n"), "bad length: 1 0");
}

TEST(HttpAnswerTest, RefusesMoreBytesThanTheLength) {
    EXPECT_EQ(ReasonOfRefusal("HTTP/1.1 200 OK\r\nContent-Length: 1\r\n\r\nab"),
              "more bytes than the answer's length");
    EXPECT_EQ(ReasonOfRefusal("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\nab"),
              "more bytes than the answer's length");
}

TEST(HttpAnswerTest, RefusesBrokenChunks) {
    const std::string header = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    EXPECT_EQ(ReasonOfRefusal(header + "x\r\n"), "bad length: x");
    EXPECT_EQ(ReasonOfRefusal(header + "1\r\nabc\r\n"), "chunk longer than it says");
    EXPECT_EQ(ReasonOfRefusal(header + "ffffffffffffffff\r\n"), "answer too large");
}

TEST(HttpAnswerTest, RefusesWhatDoesNotFit) {
    HttpAnswer answer;
    const std::string endless(1 << 20, 'x');
    EXPECT_THROW(Read(answer, endless, 100), BadAnswer);
    EXPECT_THROW(Read("HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n" + endless), BadAnswer);
}

}  // namespace
}  // namespace bench
