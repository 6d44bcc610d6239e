#include "web/Statistics.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tavrik {

namespace {

constexpr int kMasterTimeout = 5;       // status
constexpr std::size_t kMostCodes = 16;  // a faulty master may send any

}  // namespace

nlohmann::ordered_json CallStatistics::Json() const {
    std::uint64_t refused = 0;
    for (const auto& [code, count] : refusals) {
        refused += count;
    }
    return {{"calls", calls}, {"refusals", refused}, {"timeouts", timeouts}, {"slowest", slowest}};
}

void Statistics::Add(const std::string& device, int status, std::chrono::duration<double> time) {
    const std::lock_guard lock(mutex);
    CallStatistics& gripper = grippers[device];
    ++gripper.calls;
    gripper.seconds += time.count();
    gripper.slowest = std::max(gripper.slowest, time.count());
    for (std::size_t i = 0; i < CallStatistics::kBounds.size(); ++i) {
        gripper.within.at(i) += time.count() <= CallStatistics::kBounds.at(i) ? 1 : 0;
    }
    if (status == kMasterTimeout || status < 0) {
        ++gripper.timeouts;
    } else if (status != 0) {
        const bool isRoom =
            gripper.refusals.size() < kMostCodes || gripper.refusals.contains(status);
        ++gripper.refusals[isRoom ? status : CallStatistics::kOtherCode];
    }
}

CallStatistics Statistics::Of(const std::string& device) const {
    const std::lock_guard lock(mutex);
    const auto place = grippers.find(device);
    return place == grippers.end() ? CallStatistics() : place->second;
}

}  // namespace tavrik
