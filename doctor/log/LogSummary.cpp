#include "doctor/log/LogSummary.h"

#include <algorithm>
#include <string_view>

namespace tavrik {

namespace {

// A client may ask for any number of grippers that do not exist.
constexpr std::size_t kMostNames = 100;

}  // namespace

void LogSummary::Add(const LogRow& row) {
    const std::string_view text = row.text;
    starts += text.starts_with("Starting TavrikDaemon") ? 1U : 0U;
    plugged += text == "Device added" ? 1U : 0U;
    unplugged += text.starts_with("PELLIX removed: ") ? 1U : 0U;
    reopened += text == "SerialConnection: Reopening" ? 1U : 0U;
    if (!row.call) {
        return;
    }
    const std::string& name = row.owner.Name();
    const bool isListed = grippers.contains(name) || grippers.size() < kMostNames;
    Gripper& gripper = grippers[isListed ? name : ""];
    ++gripper.calls;
    gripper.refusals += row.call->outcome == LoggedCall::Outcome::Refused ? 1U : 0U;
    if (row.call->outcome == LoggedCall::Outcome::TimedOut) {
        ++gripper.timeouts;
    } else if (row.call->duration && row.call->duration > gripper.slowest) {
        gripper.slowest = row.call->duration;
        gripper.isExact = row.call->isExact;
    }
}

}  // namespace tavrik
