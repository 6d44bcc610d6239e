// Loaded into COMMAND in front of umockdev's preload library: opens the ttys of the testbed
// itself. The library behind it forgets to free a table entry whenever an open below /dev fails,
// and aborts the process after some fifty of them; a program that tries to reopen an unplugged tty
// gets there in no time. Reads and writes pass it by as well: it would add two system calls to
// each, for devices that only exist in its recordings, and there are none here.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

/// @return null when `path` is not one of the testbed's ttys.
const char* TestbedFolder(const char* path) {
    constexpr std::string_view kTtyPrefix = "/dev/ttyACM";
    if (path == nullptr || !std::string_view(path).starts_with(kTtyPrefix)) {
        return nullptr;
    }
    return std::getenv("UMOCKDEV_DIR");  // NOLINT(concurrency-mt-unsafe): COMMAND keeps it as it is
}

/// The plain system call, so that no other preload library has a part in it.
int OpenSimulatedTty(const char* folder, const char* path, int flags) {
    std::array<char, 4096> testbedPath{};
    const int length = std::snprintf(testbedPath.data(), testbedPath.size(), "%s%s", folder, path);
    if (length < 0 || static_cast<std::size_t>(length) >= testbedPath.size()) {
        errno = ENAMETOOLONG;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, testbedPath.data(), flags, 0));
}

using OpenFunction = int(const char*, int, ...);
using OpenAtFunction = int(int, const char*, int, ...);
using CheckedOpenFunction = int(const char*, int);

template <typename Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// The argument after `flags`, which is there only when a file may be created.
mode_t CreationMode(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE ? va_arg(arguments, mode_t)
                                                                      : 0;
}

}  // namespace

// The names are the C library's.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
#pragma GCC visibility push(default)
extern "C" {

int open(const char* path, int flags, ...) {
    if (const char* const folder = TestbedFolder(path)) {
        return OpenSimulatedTty(folder, path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = CreationMode(flags, arguments);
    va_end(arguments);
    static auto* const next = Next<OpenFunction>("open");
    return next(path, flags, mode);
}

int open64(const char* path, int flags, ...) {
    if (const char* const folder = TestbedFolder(path)) {
        return OpenSimulatedTty(folder, path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = CreationMode(flags, arguments);
    va_end(arguments);
    static auto* const next = Next<OpenFunction>("open64");
    return next(path, flags, mode);
}

int openat(int directory, const char* path, int flags, ...) {
    if (const char* const folder = TestbedFolder(path)) {
        return OpenSimulatedTty(folder, path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = CreationMode(flags, arguments);
    va_end(arguments);
    static auto* const next = Next<OpenAtFunction>("openat");
    return next(directory, path, flags, mode);
}

int openat64(int directory, const char* path, int flags, ...) {
    if (const char* const folder = TestbedFolder(path)) {
        return OpenSimulatedTty(folder, path, flags);
    }
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = CreationMode(flags, arguments);
    va_end(arguments);
    static auto* const next = Next<OpenAtFunction>("openat64");
    return next(directory, path, flags, mode);
}

ssize_t read(int fd, void* buffer, std::size_t size) {
    return syscall(SYS_read, fd, buffer, size);
}

ssize_t write(int fd, const void* buffer, std::size_t size) {
    return syscall(SYS_write, fd, buffer, size);
}

// The forms that a program built with _FORTIFY_SOURCE calls.

int __open_2(const char* path, int flags) {
    if (const char* const folder = TestbedFolder(path)) {
        return OpenSimulatedTty(folder, path, flags);
    }
    static auto* const next = Next<CheckedOpenFunction>("__open_2");
    return next(path, flags);
}

int __open64_2(const char* path, int flags) {
    if (const char* const folder = TestbedFolder(path)) {
        return OpenSimulatedTty(folder, path, flags);
    }
    static auto* const next = Next<CheckedOpenFunction>("__open64_2");
    return next(path, flags);
}

}  // extern "C"
#pragma GCC visibility pop
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
