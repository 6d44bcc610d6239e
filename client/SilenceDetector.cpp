#include "client/SilenceDetector.h"

namespace tavrik {

void SilenceDetector::AddData(const std::optional<ProcessData>& data, TimePoint time) {
    if (lastData && data && *data != *lastData) {
        lastChange = time;
    }
    lastData = data;
}

void SilenceDetector::AddProbe(bool answered, TimePoint start) {
    probed = true;
    silentSince = answered ? std::nullopt : std::optional(silentSince.value_or(start));
}

bool SilenceDetector::IsFrozen() const {
    return lastData && silentSince && !(lastChange && *lastChange > *silentSince);
}

}  // namespace tavrik
