#include "tavrikctl/WatchRows.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include "client/ValueText.h"

namespace tavrik {

namespace {

constexpr const char* kDateAndTime = "%FT%T";

/// Local time to milliseconds, in front of which `format` stands.
std::string LocalTime(std::chrono::system_clock::time_point time, const char* format) {
    using std::chrono::milliseconds;
    const auto sinceEpoch = std::chrono::floor<milliseconds>(time.time_since_epoch());
    const auto fraction = sinceEpoch % std::chrono::seconds(1);
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> whole{};
    std::strftime(whole.data(), whole.size(), format, &parts);
    std::array<char, 8> rest{};
    std::snprintf(rest.data(), rest.size(), ".%03d", static_cast<int>(fraction.count()));
    return std::string(whole.data()) + rest.data();
}

const char* Digit(bool flag) {
    return flag ? ",1" : ",0";
}

}  // namespace

std::string WatchRows::Header() const {
    switch (form) {
        case Form::Csv:
            return "time,state,position,fault,temperature_fault,temperature_warning,maintenance,"
                   "values";
        case Form::Json:
            return "";
        default:
            return "TIME          STATE  POSITION  VALUES  FLAGS";
    }
}

std::string WatchRows::Row(const Observation& observation,
                           std::chrono::system_clock::time_point now) const {
    switch (form) {
        case Form::Csv:
            return CsvRow(observation, LocalTime(now, kDateAndTime));
        case Form::Json:
            return JsonRow(observation, LocalTime(now, kDateAndTime));
        default:
            return AlignedRow(observation, LocalTime(now, "%T"));
    }
}

std::string WatchRows::ValuesWord(const Observation& observation) {
    if (!observation.data) {
        return "none";
    }
    if (observation.silentSince) {
        return observation.frozen ? "frozen" : "silent";
    }
    if (!observation.data->certain) {
        return "zero";
    }
    return observation.probed ? "fresh" : "unasked";
}

std::string WatchRows::CsvRow(const Observation& observation, const std::string& time) {
    const auto& data = observation.data;
    const std::string values = data ? std::to_string(data->state) + "," +
                                          HundredthsText(data->position) + Digit(data->fault) +
                                          Digit(data->tempFault) + Digit(data->tempWarn) +
                                          Digit(data->maintenance)
                                    : ",,,,,";
    return time + "," + values + "," + ValuesWord(observation);
}

std::string WatchRows::JsonRow(const Observation& observation, const std::string& time) {
    nlohmann::ordered_json object{{"time", time}};
    if (observation.data) {
        observation.data->AddTo(object);
    }
    object["values"] = ValuesWord(observation);
    return object.dump();
}

std::string WatchRows::AlignedRow(const Observation& observation, const std::string& time) {
    const auto& data = observation.data;
    const std::string flags = data ? data->FlagText() : observation.trouble;
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "  %5s  %8s  %-6s  ",
                  data ? std::to_string(data->state).c_str() : "-",
                  data ? HundredthsText(data->position).c_str() : "-",
                  ValuesWord(observation).c_str());
    return time + columns.data() + (flags.empty() ? "none" : flags);
}

}  // namespace tavrik
