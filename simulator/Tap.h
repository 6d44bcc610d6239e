#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "simulator/FileDescriptor.h"
#include "simulator/RecordingWriter.h"
#include "simulator/TappedLine.h"
#include "simulator/Testbed.h"

namespace simulator {

/// Stands between a real master and its client, on a thread of its own: passes bytes on and records
/// them. When the master is unplugged, so is the client's tty, until the master is back.
class Tap {
public:
    using Tell = std::function<void(const std::string& text)>;

    struct Target {
        unsigned number = 0;  ///< in the recording, and in the testbed
        std::string ttyPath;  ///< the master's
        Testbed* devices;     ///< where the client finds the master; null when it is only told
    };

    /// Writer and testbed outlive the tap.
    /// @param tellFunction takes messages; any thread
    /// @throws std::system_error when the tty cannot be opened
    Tap(Target initialTarget, RecordingWriter& recordingWriter, Tell tellFunction);

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
    Tell tell;
    std::unique_ptr<TappedLine> line;  // null while the master is away
    std::atomic<bool> stopping = false;
    FileDescriptor wakeDescriptor;  // readable when `stopping` was set
    std::thread thread;
};

}  // namespace simulator
