// The library: sends the status line, each header line and the body of an answer by a call of their
// own, nine in all.
// Without this: a call takes nine system calls more, one of them for the log of requests, its
// answer leaves the host in up to nine packets, and a single recv() reads only a part of it.
// Shown by: tests/integration/test_answers.py.
// Can go: when the library collects an answer before it sends it.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include <xmlrpc-c/abyss.h>

#include "common/NextFunction.h"

// Declared by the library's internal headers only.
struct TConn;
extern "C" abyss_bool ConnWrite(TConn* connectionP, const void* buffer, std::uint32_t size);

namespace {

/// Nearly all answers to one call are shorter. A longer one is sent in two pieces, the first of
/// this size.
constexpr std::size_t kMostCollected = 4096;  // bytes

/// The answer that is being written by this thread, which serves one connection.
struct Answer {
    std::unique_ptr<std::array<char, kMostCollected>> bytes;  // allocated for the first answer
    std::size_t size = 0;
    TConn* connection = nullptr;
    bool isCollected = false;  // from the answer's first line until it is sent
};
thread_local Answer answer;

/// Passes bytes on to the socket at once.
abyss_bool Send(TConn* connectionP, const void* buffer, std::size_t size) {
    static auto* const next = fence::NextFunction<decltype(ConnWrite)>("ConnWrite");
    return next(connectionP, buffer, static_cast<std::uint32_t>(size));
}

/// Sends what was collected, if anything was.
abyss_bool SendCollected() {
    answer.isCollected = false;
    return answer.size == 0 ? 1 : Send(answer.connection, answer.bytes->data(), answer.size);
}

}  // namespace

extern "C" {

/// Begins an answer: status line, header, and the empty line behind it.
void ResponseWriteStart(TSession* sessionP) {
    static auto* const next =
        fence::NextFunction<decltype(ResponseWriteStart)>("ResponseWriteStart");
    if (answer.bytes == nullptr) {
        answer.bytes.reset(new (std::nothrow) std::array<char, kMostCollected>);
    }
    answer.size = 0;
    answer.isCollected = answer.bytes != nullptr;
    next(sessionP);
}

/// Writes all that a client gets. What does not belong to an answer ("100 Continue") goes at once.
abyss_bool ConnWrite(TConn* connectionP, const void* buffer, std::uint32_t size) {
    if (!answer.isCollected) {
        return Send(connectionP, buffer, size);
    }
    const auto* const bytes = static_cast<const char*>(buffer);
    const std::size_t taken = std::min<std::size_t>(size, kMostCollected - answer.size);
    std::memcpy(answer.bytes->data() + answer.size, bytes, taken);
    answer.size += taken;
    answer.connection = connectionP;
    if (taken == size) {
        return 1;
    }
    return SendCollected() != 0 && Send(connectionP, bytes + taken, size - taken) != 0 ? 1 : 0;
}

/// Called once when an answer is complete. The library would format a line for a log of requests,
/// which takes two system calls, and drop it: there is no such log.
abyss_bool SessionLog(TSession* /*sessionP*/) {
    if (answer.isCollected) {
        SendCollected();
    }
    return 1;
}

}  // extern "C"
