#include "simulator/RecordingMaster.h"

#include <utility>

namespace simulator {

RecordingMaster::RecordingMaster(std::unique_ptr<Master> recordedMaster, unsigned ownNumber,
                                 RecordingWriter& recordingWriter)
    : master(std::move(recordedMaster)), number(ownNumber), writer(recordingWriter) {}

void RecordingMaster::PowerUp(TimePoint now) {
    writer.Write(number, RecordedKind::Plug, {}, now);
    master->PowerUp(now);
}

void RecordingMaster::HangUp(bool reported, TimePoint now) {
    writer.Write(number, reported ? RecordedKind::Unplug : RecordedKind::HangUp, {}, now);
    master->HangUp(reported, now);
}

void RecordingMaster::Receive(std::string_view bytes, TimePoint now) {
    if (!bytes.empty()) {
        writer.Write(number, RecordedKind::ToMaster, bytes, now);
    }
    master->Receive(bytes, now);
}

std::string RecordingMaster::NextText(TimePoint now) {
    std::string text = master->NextText(now);
    if (!text.empty()) {
        writer.Write(number, RecordedKind::FromMaster, text, now);
    }
    return text;
}

}  // namespace simulator
