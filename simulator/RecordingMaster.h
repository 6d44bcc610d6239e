#pragma once

#include <memory>

#include "simulator/Master.h"
#include "simulator/RecordingWriter.h"

namespace simulator {

/// Another master, of which all that it hears and says is recorded.
class RecordingMaster final : public Master {
public:
    /// @param number the master's in the recording
    RecordingMaster(std::unique_ptr<Master> recordedMaster, unsigned number,
                    RecordingWriter& recordingWriter);

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
