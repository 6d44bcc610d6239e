#pragma once

#include <termios.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace support {

/// A pseudo-terminal: the code under test opens the tty, the test has the other end.
///
/// The kernel reuses the number of a closed pseudo-terminal at once, even for another process. The
/// path is therefore a symbolic link of the test, which HangUp() removes first.
class Pty {
public:
    enum class Settings {
        kRaw,
        kCooked,  ///< the kernel's default: line mode, echo
    };

    explicit Pty(Settings settings = Settings::kRaw);
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;
    ~Pty();

    /// @return path of the tty
    const std::string& Path() const { return path; }

    /// @return the kernel's path of the tty
    const std::string& KernelPath() const { return kernelPath; }

    /// @return descriptor of the other end, non-blocking
    int OtherEnd() const { return otherEnd; }

    /// Sends `text`, which a read from the tty then returns.
    void Send(std::string_view text) const;

    /// Waits until `size` bytes were written to the tty, at most for `limit`.
    /// @return the bytes written
    std::string Receive(std::size_t size,
                        std::chrono::milliseconds limit = std::chrono::seconds(5)) const;

    /// @return number of bytes that can be read from the tty
    std::size_t Pending() const;

    termios GetSettings() const;
    void SetSettings(const termios& settings) const;

    /// Makes the tty accept no more bytes, or accept them again.
    void Stall(bool on) const;

    /// Removes the path without hanging up.
    void RemovePath() const;

    /// Creates the path again.
    void RestorePath() const;

    /// Acts like an unplug: removes the path; then reads end at once and writes fail.
    void HangUp();

private:
    int otherEnd = -1;
    int tty = -1;  // keeps the settings while no other descriptor of the tty is open
    std::string folder;
    std::string path;
    std::string kernelPath;
};

}  // namespace support
