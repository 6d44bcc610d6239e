#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "simulator/FileDescriptor.h"
#include "simulator/Master.h"
#include "simulator/Recording.h"
#include "simulator/TextTools.h"

namespace simulator {

/// Writes a recording. Each event is one write, so that the file can be read while it grows and is
/// complete even if the process is killed. Thread-safe.
class RecordingWriter {
public:
    /// Creates the file.
    /// @param print called if a write fails; the recording then ends with its last complete line
    /// @throws std::system_error if the file exists or cannot be created
    RecordingWriter(const std::string& path, Printer print);

    /// Removes the file if it has no event later than StartClock().
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    /// Earlier events get the time 0: they are the initial state of a replay.
    void StartClock();

    void Write(unsigned master, RecordedKind kind, std::string_view bytes, TimePoint now);

    /// False if a write has failed.
    bool IsComplete() const;

private:
    void WriteLine(std::string line);  // with `mutex` held, except in the constructor

    std::string path;
    FileDescriptor file;
    Printer print;
    mutable std::mutex mutex;  // guards the following
    TimePoint start = TimePoint::max();
    bool empty = true;
    bool complete = true;
};

/// Records everything that another master receives and sends.
class RecordingMaster final : public Master {
public:
    /// @param number of the master in the recording
    RecordingMaster(std::unique_ptr<Master> master, unsigned number, RecordingWriter& writer);

    void PowerUp(TimePoint now) override;
    void HangUp(bool reported, TimePoint now) override;
    void Receive(std::string_view bytes, TimePoint now) override;
    std::string NextText(TimePoint now) override;
    std::optional<TimePoint> NextDue() const override { return master->NextDue(); }

private:
    std::unique_ptr<Master> master;
    unsigned number;
    RecordingWriter& writer;
};

}  // namespace simulator
