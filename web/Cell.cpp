#include "web/Cell.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "client/MotionJudge.h"
#include "client/Printable.h"

namespace tavrik {

namespace {

/// Gone grippers that are kept; the names come from outside.
constexpr std::size_t kMostGone = 64;

int Flags(const ProcessData& data) {
    constexpr int kFault = 1;
    constexpr int kTempFault = 2;
    constexpr int kTempWarn = 4;
    constexpr int kMaintenance = 8;
    constexpr int kUncertain = 16;
    return (data.fault ? kFault : 0) | (data.tempFault ? kTempFault : 0) |
           (data.tempWarn ? kTempWarn : 0) | (data.maintenance ? kMaintenance : 0) |
           (data.certain ? 0 : kUncertain);
}

}  // namespace

void CellGripper::Update(const ProcessData& read, TimePoint time) {
    const bool wasMoving = isMoving;
    isMoving = data && IsMotion(data->position, read.position);
    motions += isMoving && !wasMoving ? 1 : 0;
    data = read;
    readAt = time;
}

CellGripper* Cell::Find(const std::string& device) {
    const auto place = std::ranges::find(grippers, device, &CellGripper::device);
    return place == grippers.end() ? nullptr : &*place;
}

const CellGripper* Cell::Find(const std::string& device) const {
    const auto place = std::ranges::find(grippers, device, &CellGripper::device);
    return place == grippers.end() ? nullptr : &*place;
}

bool Cell::UpdateList(const std::vector<std::string>& devices) {
    std::map<std::string, std::size_t> copies;
    for (const std::string& device : devices) {
        ++copies[device];
    }
    bool isChanged = false;
    for (CellGripper& gripper : grippers) {
        const auto place = copies.find(gripper.device);
        const std::size_t count = place == copies.end() ? 0 : place->second;
        isChanged = isChanged || gripper.copies != count;
        gripper.copies = count;
        if (count == 0) {
            gripper.data.reset();
        } else {
            copies.erase(place);
        }
    }
    for (const std::string& device : devices) {
        if (const auto place = copies.find(device); place != copies.end()) {
            grippers.push_back({device, place->second});
            copies.erase(place);
            isChanged = true;
        }
    }
    // Not that of std::ranges, which clang 14 cannot compile.
    std::stable_partition(grippers.begin(), grippers.end(),
                          [](const CellGripper& each) { return each.IsListed(); });
    const auto listed =
        static_cast<std::size_t>(std::ranges::count_if(grippers, &CellGripper::IsListed));
    grippers.resize(std::min(grippers.size(), listed + kMostGone));
    return isChanged;
}

void Cell::MarkUnreachable(const std::string& reason) {
    reachable = false;
    error = reason;
    for (CellGripper& gripper : grippers) {
        gripper.copies = 0;
        gripper.data.reset();
    }
}

nlohmann::ordered_json Cell::Json() const {
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const CellGripper& gripper : grippers) {
        list.push_back({{"device", gripper.device},
                        {"name", Printable(gripper.device)},
                        {"copies", gripper.copies}});
    }
    return {{"reachable", reachable}, {"error", error}, {"version", version}, {"grippers", list}};
}

nlohmann::ordered_json Cell::Values(CellGripper::TimePoint now) const {
    nlohmann::ordered_json rows = nlohmann::ordered_json::array();
    for (const CellGripper& gripper : grippers) {
        if (!gripper.data) {
            rows.push_back(nullptr);
            continue;
        }
        const auto age = std::chrono::floor<std::chrono::milliseconds>(gripper.Age(now));
        rows.push_back({gripper.data->position, gripper.data->state, Flags(*gripper.data),
                        age.count(), gripper.motions});
    }
    return rows;
}

}  // namespace tavrik
