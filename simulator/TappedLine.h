#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "simulator/AnswerQueue.h"
#include "simulator/ByteFlow.h"
#include "simulator/FileDescriptor.h"
#include "simulator/MasterTty.h"
#include "simulator/Pty.h"
#include "simulator/RecordedEvent.h"

namespace simulator {

/// The line between a master's tty and a pty that stands in for it, for a client that opens that.
/// Every byte goes through, unchanged, in either direction; while one side takes none, the other
/// finds no room. What the master says while nobody has the pty open is lost, as it is on a tty.
///
/// Not thread-safe.
class TappedLine {
public:
    using Record = std::function<void(RecordedKind kind, std::string_view bytes, TimePoint time)>;

    /// @throws std::system_error when the tty cannot be opened
    TappedLine(const std::string& ttyPath, Record recordFunction);

    /// The pty's node ("/dev/pts/3").
    const std::string& NodePath() const { return pty.NodePath(); }

    /// Waits until there is something to pass on, `wakeDescriptor` is readable, or `longestWait` is
    /// over, and passes it on.
    /// @return false when the master's tty has hung up
    bool PassOn(int wakeDescriptor, std::chrono::milliseconds longestWait);

    /// Passes on what both have written so far. Gives up after 1 s when the master does not take
    /// it.
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
    FileDescriptor stalledTty;  // the pty's, open while the client is to find no room
};

}  // namespace simulator
