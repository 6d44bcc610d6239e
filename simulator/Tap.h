#pragma once

#include <termios.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "simulator/FileDescriptor.h"
#include "simulator/Pty.h"
#include "simulator/RecordingWriter.h"
#include "simulator/Testbed.h"

namespace simulator {

/// The tty of a real master: raw, 115200 baud, locked against other programs (except root's).
class MasterTty {
public:
    /// @throws std::system_error if it cannot be opened, is not a tty, or is already tapped
    explicit MasterTty(const std::string& path);

    /// Restores the settings.
    ~MasterTty();
    MasterTty(const MasterTty&) = delete;
    MasterTty& operator=(const MasterTty&) = delete;

    /// Non-blocking.
    int Descriptor() const { return tty.Get(); }

private:
    FileDescriptor tty;
    termios settingsBefore{};
};

/// One direction of a line: a buffer between two descriptors.
class ByteFlow {
public:
    /// Reads at most 4096 bytes. Call it only if nothing is waiting.
    /// @return the bytes read, valid until the next call; empty if there are none
    std::string_view Fill(int descriptor);

    /// Writes the waiting bytes as far as there is room.
    void Drain(int descriptor);

    bool IsWaiting() const { return begin < end; }
    void Drop() { begin = end; }

private:
    std::array<char, 4096> buffer{};
    std::size_t begin = 0;  // of the waiting bytes
    std::size_t end = 0;
};

/// Connects a master's tty to a pty that a client opens in its place.
///
/// Passes all bytes on unchanged. If one side accepts no bytes, the writes of the other block.
/// Bytes from the master are dropped while no client has the pty open, as on a tty. Not
/// thread-safe.
class TappedLine {
public:
    using Record = std::function<void(RecordedKind kind, std::string_view bytes, TimePoint time)>;

    /// @throws std::system_error if the tty cannot be opened
    TappedLine(const std::string& ttyPath, Record record);

    /// Path of the pty ("/dev/pts/3").
    const std::string& NodePath() const { return pty.NodePath(); }

    /// Waits for bytes, at most `longestWait` or until `wakeDescriptor` is readable, and passes
    /// them on.
    /// @return false if the master's tty has hung up
    bool PassOn(int wakeDescriptor, std::chrono::milliseconds longestWait);

    /// Passes on everything that has been written so far. Gives up after 1 s if the master does not
    /// accept it.
    void Finish();

private:
    short ClientState() const;
    void SetStalled(bool on);

    MasterTty tty;
    Pty pty;
    Record record;
    ByteFlow toMaster;
    ByteFlow toClient;
    bool clientPresent = false;
    FileDescriptor stalledTty;  // of the pty, open while it is stalled
};

/// Connects a real master to its client on a thread of its own, and records the bytes between them.
/// Unplugs the client's tty when the master is unplugged, until the master is back.
class Tap {
public:
    struct Target {
        unsigned number = 0;  ///< of the master in the recording and in the testbed
        std::string ttyPath;  ///< of the master
        Testbed* testbed;     ///< gets the client's tty; if null, its path is printed
    };

    /// Writer and testbed outlive the tap.
    /// @throws std::system_error if the tty cannot be opened
    Tap(Target target, RecordingWriter& writer, Printer print);

    /// Passes on what the client has written, which may take 1 s, and hangs up.
    ~Tap();
    Tap(const Tap&) = delete;
    Tap& operator=(const Tap&) = delete;

private:
    void Run();
    void Connect();
    void Disconnect();

    Target target;
    RecordingWriter& writer;
    Printer print;
    std::unique_ptr<TappedLine> line;  // null while the master is unplugged
    std::atomic<bool> stopping = false;
    FileDescriptor wakeDescriptor;  // readable once `stopping` is set
    std::thread thread;
};

}  // namespace simulator
