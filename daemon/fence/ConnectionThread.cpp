// The library: gives the thread of a connection 131 KiB of stack, and frees XML elements within
// elements by recursion, 48 bytes a level.
// Without this: a request of a few kilobytes ends the process.
// Shown by: NestedRequestTest in tests/integration/test_clients.py.
// Can go: when the library bounds the depth of elements.

#include <pthread.h>

#include <algorithm>
#include <cstddef>

#include "common/NextFunction.h"

namespace {

/// Enough for the largest request that the library takes, 512 KiB of "<a>". Only what is used of it
/// becomes memory.
constexpr std::size_t kConnectionStack = std::size_t{10} << 20;  // bytes

}  // namespace

/// Nothing else in the process sets stack sizes.
extern "C" int pthread_attr_setstacksize(pthread_attr_t* attr, std::size_t stacksize) noexcept {
    static auto* const next =
        fence::NextFunction<decltype(pthread_attr_setstacksize)>("pthread_attr_setstacksize");
    return next(attr, std::max(stacksize, kConnectionStack));
}
