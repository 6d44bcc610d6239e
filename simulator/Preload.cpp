// Preloaded into COMMAND before umockdev's preload library, to open the testbed's ttys itself.
// umockdev's library leaks a table entry whenever an open below /dev fails, and aborts the process
// after about fifty; a program that tries to reopen an unplugged tty soon reaches that. Reads and
// writes bypass it, too: it would add two system calls to each, for recorded devices only.

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

/// @return null if `path` is not a tty of the testbed.
const char* TestbedFolder(const char* path) {
    constexpr std::string_view kTtyPrefix = "/dev/ttyACM";
    if (path == nullptr || !std::string_view(path).starts_with(kTtyPrefix)) {
        return nullptr;
    }
    return std::getenv("UMOCKDEV_DIR");  // NOLINT(concurrency-mt-unsafe): never changed by COMMAND
}

/// Makes the system call itself, to bypass the other preload library.
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

/// The argument after `flags`, which exists only if the call may create a file.
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

// Called by programs built with _FORTIFY_SOURCE.

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
