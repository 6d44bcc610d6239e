#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include "simulator/AnswerQueue.h"
#include "simulator/FileDescriptor.h"
#include "simulator/RecordedEvent.h"

namespace simulator {

/// Writes a recording, each event with one write, so that the file can be read while it grows and
/// is whole when the process is killed. Any thread.
class RecordingWriter {
public:
    using Tell = std::function<void(const std::string& text)>;

    /// Begins the file.
    /// @param tellFailure called once if the file cannot be written any more; it ends there
    /// @throws std::system_error when it cannot be made, or is there already
    RecordingWriter(const std::string& newPath, Tell tellFailure);

    /// Removes the file if nothing has happened since the clock was started.
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Events before it have the time 0, for they are the state of things that a replay begins
    /// with.
    void StartClock();

    void Write(unsigned master, RecordedKind kind, std::string_view bytes, TimePoint now);

    /// False when something could not be written.
    bool IsWhole() const;

private:
    void WriteLine(std::string line);  // with `mutex` held, but for the first lines

    std::string path;
    FileDescriptor file;
    Tell tell;
    mutable std::mutex mutex;  // guards what follows
    TimePoint start = TimePoint::max();
    bool empty = true;
    bool whole = true;
};

}  // namespace simulator
