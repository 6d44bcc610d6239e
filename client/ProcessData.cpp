#include "client/ProcessData.h"

#include <cstdint>
#include <nlohmann/json.hpp>
#include <utility>

namespace tavrik {

namespace {

/// The excerpt is byte 0 + 256 x byte 1 + 65536 x byte 3 of the process data; bytes 0 and 1 are
/// the position in hundredths, high byte first.
double Position(unsigned excerpt) {
    constexpr double kStepsPerUnit = 100;
    const unsigned raw = (excerpt & 0xffU) << 8U | (excerpt >> 8U & 0xffU);
    return static_cast<std::int16_t>(raw) / kStepsPerUnit;
}

constexpr unsigned kState = 0x0f0000;
constexpr unsigned kFault = 0x100000;
constexpr unsigned kTempFault = 0x200000;
constexpr unsigned kTempWarn = 0x400000;
constexpr unsigned kMaintenance = 0x800000;

}  // namespace

ProcessData::ProcessData(int excerpt) {
    const auto bits = static_cast<unsigned>(excerpt);
    position = Position(bits);
    state = static_cast<int>((bits & kState) >> 16U);
    fault = (bits & kFault) != 0;
    tempFault = (bits & kTempFault) != 0;
    tempWarn = (bits & kTempWarn) != 0;
    maintenance = (bits & kMaintenance) != 0;
    certain = excerpt != 0;
}

std::string ProcessData::FlagText(const std::string& none) const {
    std::string text;
    for (const auto& [isSet, word] : {std::pair(fault, "fault"),
                                      {tempFault, "temperature fault"},
                                      {tempWarn, "temperature warning"},
                                      {maintenance, "maintenance"}}) {
        if (isSet) {
            text += (text.empty() ? "" : ", ") + std::string(word);
        }
    }
    return text.empty() ? none : text;
}

void ProcessData::AddTo(nlohmann::ordered_json& object) const {
    object["state"] = state;
    object["position"] = position;
    object["fault"] = fault;
    object["temperatureFault"] = tempFault;
    object["temperatureWarning"] = tempWarn;
    object["maintenance"] = maintenance;
    object["certain"] = certain;
}

}  // namespace tavrik
