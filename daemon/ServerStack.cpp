#include <dlfcn.h>
#include <pthread.h>

#include <algorithm>
#include <cstddef>

namespace {

/// The HTTP library gives the thread of a connection 131 KiB of stack, and its XML library frees
/// elements within elements by recursion, 48 bytes a level: a request of a few kilobytes would end
/// the process. This is enough for the largest request that it takes, 512 KiB of "<a>". Only what
/// is used of it becomes memory.
constexpr std::size_t kConnectionStack = std::size_t{10} << 20;  // bytes

}  // namespace

/// Stands before the C library's function of this name, for want of an option of the HTTP library.
/// Nothing else in the process sets stack sizes.
extern "C" int pthread_attr_setstacksize(pthread_attr_t* attr, std::size_t stacksize) noexcept {
    using SetStackSize = int (*)(pthread_attr_t*, std::size_t);
    static const auto next =
        reinterpret_cast<SetStackSize>(dlsym(RTLD_NEXT, "pthread_attr_setstacksize"));
    return next(attr, std::max(stacksize, kConnectionStack));
}
