// The library: sends the status line, each header line and the body of a response separately, in
// nine system calls.
// Without this: each call costs nine more system calls, one of them for the request log. The
// response leaves the host in up to nine packets, and a single recv() reads only a part of it.
// Shown by: tests/integration/test_answers.py.
// Can go: when the library sends a response at once.

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include <xmlrpc-c/abyss.h>

#include "common/NextFunction.h"

// Only the library's internal headers declare this.
struct TConn;
extern "C" abyss_bool ConnWrite(TConn* connectionP, const void* buffer, std::uint32_t size);

namespace {

/// Nearly all responses are shorter. A longer one is sent in two pieces, the first of this size.
constexpr std::size_t kMostCollected = 4096;  // bytes

/// The response that this thread is writing. A thread serves one connection.
struct Answer {
    std::unique_ptr<std::array<char, kMostCollected>> bytes;  // allocated for the first response
    std::size_t size = 0;
    TConn* connection = nullptr;
    bool isCollected = false;  // true from the first line of a response until it is sent
};
thread_local Answer answer;

/// Sends bytes without collecting them.
abyss_bool Send(TConn* connectionP, const void* buffer, std::size_t size) {
    static auto* const next = fence::NextFunction<decltype(ConnWrite)>("ConnWrite");
    return next(connectionP, buffer, static_cast<std::uint32_t>(size));
}

/// Sends the collected bytes, if any.
abyss_bool SendCollected() {
    answer.isCollected = false;
    return answer.size == 0 ? 1 : Send(answer.connection, answer.bytes->data(), answer.size);
}

}  // namespace

extern "C" {

/// Begins a response: status line, header and the empty line after it.
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

/// The library writes everything through this. Text outside a response ("100 Continue") is sent at
/// once.
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

/// Called once when a response is complete. The library's own function formats a line for the
/// request log, which takes two system calls, and discards it, because the daemon has no such log.
abyss_bool SessionLog(TSession* /*sessionP*/) {
    if (answer.isCollected) {
        SendCollected();
    }
    return 1;
}

}  // extern "C"
