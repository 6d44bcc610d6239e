#pragma once

#include <sys/select.h>

#include <atomic>
#include <mutex>
#include <string>

#include "pellix/Connection.h"

namespace pellix {

/// Text transport over one tty: 115200 baud, 8N1, raw, reads end after one second of silence.
///
/// Threads: Read() and Reopen() belong to the parser thread, Write() may come from any thread.
/// Write() and Reopen() exclude each other; each waits at most 1 s for the other. Read() is
/// outside that lock so that a blocked read never holds up a write.
class SerialConnection : public Connection {
public:
    /// Opens the tty `path` ("/dev/ttyACM0").
    /// @throws std::exception* when the tty cannot be opened; the catcher deletes it.
    explicit SerialConnection(const std::string& path);
    SerialConnection(const SerialConnection&) = delete;
    SerialConnection& operator=(const SerialConnection&) = delete;
    ~SerialConnection() override;

    /// Opens and configures the tty; only logs when it is open already.
    /// @throws std::exception* when the tty cannot be opened or has no terminal settings.
    void Open();

    /// Closes the tty; only logs when it is not open. The kernel may take 30 s over it when the
    /// device has not taken what was sent.
    void Close();

    /// One read of at most 4096 bytes, cut at the first NUL. Empty after one second of silence
    /// ("Input timeout" is logged), after a failed read, and while the tty is not open.
    std::string Read() override;

    /// Sends `text` with one write call. Blocks at most 1 s for the lock and then 3 s for the tty
    /// to take bytes. @return 0 when every byte was taken, otherwise -1 (already logged).
    int Write(const std::string& text) override;

    /// Close() and Open() under the lock; waits at most 1 s for it and then leaves all as it is.
    /// @throws std::exception* as Open().
    void Reopen() override;

private:
    void DropHalfOpened();
    ssize_t WriteOnce(const std::string& text) const;

    std::string devicePath;
    fd_set readSet{};          // holds `fd`; nothing consults it
    std::atomic<int> fd = -1;  // the last descriptor once closed; another file may have its number
    std::atomic<bool> isOpen = false;
    bool halfOpened = false;  // `fd` is open, but no terminal settings could be read from it
    std::timed_mutex mutex;   // serialises Write() and Reopen(); no other lock is taken under it
};

}  // namespace pellix
