// The library: gives each connection thread 131 KiB of stack but frees nested XML elements by
// recursion, 48 bytes a level.
// Without this: a request of a few kilobytes crashes the process.
// Shown by: NestedRequestTest in tests/integration/test_clients.py.
// Can go: when the library limits the nesting depth.

#include <pthread.h>

#include <algorithm>
#include <cstddef>

#include "common/NextFunction.h"

namespace {

/// Enough for the largest request that the library accepts, 512 KiB of "<a>". Only the used part of
/// a stack takes up memory.
constexpr std::size_t kConnectionStack = std::size_t{10} << 20;  // bytes

}  // namespace

/// Only the library calls this; nothing else in the process sets stack sizes.
extern "C" int pthread_attr_setstacksize(pthread_attr_t* attr, std::size_t stacksize) noexcept {
    static auto* const next =
        fence::NextFunction<decltype(pthread_attr_setstacksize)>("pthread_attr_setstacksize");
    return next(attr, std::max(stacksize, kConnectionStack));
}
