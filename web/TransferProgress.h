#pragma once

#include <cmath>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace tavrik {

/// How far a transfer of settings has come, for all viewers. Any thread may call.
class TransferProgress {
public:
    /// @param step what is done, such as "reading"
    /// @param part that is done of the step, 0 to 1
    void Set(const std::string& device, std::string_view step, double part) {
        constexpr double kPercent = 100;
        const std::lock_guard lock(mutex);
        gripper = device;
        this->step = step;
        percent = static_cast<int>(std::floor(part * kPercent));
    }

    /// The transfer has ended.
    void Clear() {
        const std::lock_guard lock(mutex);
        gripper.clear();
    }

    /// "gripper", "step" and "percent"; null if there is no transfer.
    nlohmann::ordered_json Json() const {
        const std::lock_guard lock(mutex);
        if (gripper.empty()) {
            return nullptr;
        }
        return {{"gripper", gripper}, {"step", step}, {"percent", percent}};
    }

private:
    mutable std::mutex mutex;  // guards what follows
    std::string gripper;       // empty if there is no transfer
    std::string step;
    int percent = 0;
};

}  // namespace tavrik
