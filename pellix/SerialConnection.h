#pragma once

#include <sys/select.h>

#include <atomic>
#include <mutex>
#include <string>

#include "pellix/Connection.h"

namespace pellix {

/// Text transport over one tty: 115200 baud, 8N1, raw.
///
/// Threads: Read() and Reopen() belong to the parser thread; any thread may call Write(). Write()
/// and Reopen() exclude each other; each waits at most 1 s for the other. Read() does not take that
/// lock, so that a blocked read never delays a write. Neither do Open() and Close(): call them only
/// while no other thread uses the object.
class SerialConnection : public Connection {
public:
    /// Opens the tty `devicePath` ("/dev/ttyACM0").
    /// @throws std::exception* if the tty cannot be opened; the catcher deletes it
    explicit SerialConnection(const std::string& devicePath);
    SerialConnection(const SerialConnection&) = delete;
    SerialConnection& operator=(const SerialConnection&) = delete;
    ~SerialConnection() override;

    /// Opens and configures the tty; only logs if it is already open.
    /// @throws std::exception* if the path cannot be opened or is not a tty
    void Open();

    /// Closes the tty; only logs if it is not open. Blocks up to 30 s in the kernel if the device
    /// has not accepted everything that was written.
    void Close();

    /// Reads once, at most 4096 bytes, and cuts the text at the first NUL.
    /// @return empty after 1 s without input ("Input timeout" is logged), after a failed read, and
    ///         while the tty is not open
    std::string Read() override;

    /// Sends `text` with one write call. Blocks at most 1 s for the lock and then 3 s for the tty
    /// to accept bytes.
    /// @return 0 if every byte was written, otherwise -1 (already logged)
    int Write(const std::string& text) override;

    /// Calls Close() and Open() under the lock. If the lock is not acquired within 1 s, only logs.
    /// @throws std::exception* as Open()
    void Reopen() override;

private:
    void DropHalfOpened();
    ssize_t WriteOnce(const std::string& text) const;

    std::string devicePath;
    fd_set readSet{};          // contains `fd`, for a select() before reading; nothing reads it
    std::atomic<int> fd = -1;  // keeps its value after Close(); another file may get the number
    std::atomic<bool> isOpen = false;
    bool halfOpened = false;  // `fd` is open, but reading its terminal settings failed
    std::timed_mutex mutex;   // serialises Write() and Reopen(); no other lock is taken under it
};

}  // namespace pellix
