#pragma once

#include <termios.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

namespace support {

/// A tty with its other end in the test's hands.
///
/// The numbers of pseudo-terminals are used again at once, by other processes too. What is under
/// test therefore gets a link of the test's own as its path, which HangUp() takes away first.
class Pty {
public:
    enum class Settings {
        kRaw,
        kCooked,  ///< as the kernel makes them: line mode, echo
    };

    explicit Pty(Settings settings = Settings::kRaw);
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;
    ~Pty();

    /// Path of the tty.
    const std::string& Path() const { return path; }

    /// The kernel's own path of the tty.
    const std::string& KernelPath() const { return kernelPath; }

    /// Descriptor of the other end, not blocking.
    int OtherEnd() const { return otherEnd; }

    /// What a reader of the tty will find.
    void Send(std::string_view text) const;

    /// What was written to the tty: waits until it is `size` bytes long, or `limit` is over.
    std::string Receive(std::size_t size,
                        std::chrono::milliseconds limit = std::chrono::seconds(5)) const;

    /// Number of bytes that wait to be read from the tty.
    std::size_t Pending() const;

    termios GetSettings() const;
    void SetSettings(const termios& settings) const;

    /// The tty takes no more bytes, or does again.
    void Stall(bool on) const;

    /// Takes the path away without hanging up.
    void RemovePath() const;

    /// Makes the path again.
    void RestorePath() const;

    /// As an unplug: the path goes away, then reads end at once and writes fail.
    void HangUp();

private:
    int otherEnd = -1;
    int tty = -1;  // keeps the settings while nobody else has the tty open
    std::string folder;
    std::string path;
    std::string kernelPath;
};

}  // namespace support
