#include "tavrikctl/WatchRows.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "client/Printable.h"
#include "client/Values.h"
#include "tavrikctl/ScreenParts.h"

namespace tavrik {

namespace {

using Json = nlohmann::ordered_json;
using TimePoint = std::chrono::system_clock::time_point;

constexpr std::string_view kNameTitle = "GRIPPER";

/// Local time with milliseconds; with the date and the offset from UTC if it is `complete`.
std::string LocalTime(TimePoint time, bool complete) {
    using std::chrono::milliseconds;
    const auto sinceEpoch = std::chrono::floor<milliseconds>(time.time_since_epoch());
    const auto fraction = static_cast<int>((sinceEpoch % std::chrono::seconds(1)).count());
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::array<char, 32> whole{};
    std::strftime(whole.data(), whole.size(), complete ? "%FT%T" : "%T", &parts);
    std::array<char, 32> rest{};
    std::snprintf(rest.data(), rest.size(), ".%03d", fraction);
    std::string text = std::string(whole.data()) + rest.data();
    if (complete) {
        constexpr long kMinute = 60;  // seconds
        const long offset = std::abs(parts.tm_gmtoff) / kMinute;
        std::snprintf(rest.data(), rest.size(), "%c%02ld:%02ld", parts.tm_gmtoff < 0 ? '-' : '+',
                      offset / kMinute, offset % kMinute);
        text += rest.data();
    }
    return text;
}

/// A name or its title in a column that is wide enough for both.
std::string NameColumn(const std::string& text, std::size_t width) {
    return AlignLeft(text, std::max(width, kNameTitle.size()));
}

/// What every form shows of an observation.
Json Members(const Observation& observation, const std::string& time) {
    Json object{{"time", time}, {"gripper", observation.gripper}};
    if (observation.data) {
        observation.data->AddTo(object);
    }
    object["values"] = ValuesWord(observation);
    return object;
}

/// The names of all members, in their order.
std::vector<std::string> Names() {
    Observation observation;
    observation.data = ProcessData(0);  // without data, some are missing
    const Json members = Members(observation, "");
    std::vector<std::string> names;
    for (const auto& [name, value] : members.items()) {
        names.push_back(name);
    }
    return names;
}

/// A field may contain commas, which quotation marks protect; those are doubled.
std::string CsvField(const std::string& text) {
    if (text.find_first_of(",\"") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char letter : text) {
        quoted += std::string(letter == '"' ? 2 : 1, letter);
    }
    return quoted + "\"";
}

std::string CsvText(const Json& value) {
    if (value.is_boolean()) {
        return value.get<bool>() ? "1" : "0";
    }
    if (value.is_number_float()) {
        return HundredthsText(value.get<double>());
    }
    return value.is_string() ? CsvField(Printable(value.get<std::string>())) : value.dump();
}

std::string CsvRow(const Observation& observation, const std::string& time) {
    const Json members = Members(observation, time);
    std::string row;
    for (const std::string& name : Names()) {
        row += (row.empty() ? "" : ",") + (members.contains(name) ? CsvText(members[name]) : "");
    }
    return row;
}

std::string CsvHeader() {
    std::string header;
    for (const std::string& name : Names()) {
        header += (header.empty() ? "" : ",") + name;
    }
    return header;
}

std::string AlignedRow(const Observation& observation, const std::string& time,
                       std::size_t nameWidth) {
    const auto& data = observation.data;
    std::array<char, 64> columns{};
    std::snprintf(columns.data(), columns.size(), "  %5s  %8s  %-7s  ",
                  data ? std::to_string(data->state).c_str() : "-",
                  data ? HundredthsText(data->position).c_str() : "-",
                  ValuesWord(observation).c_str());
    return time + "  " + NameColumn(Printable(observation.gripper), nameWidth) + columns.data() +
           (data ? data->FlagText("none") : observation.error);
}

}  // namespace

std::string WatchHeader(RowForm form, std::size_t nameWidth) {
    switch (form) {
        case RowForm::Csv:
            return CsvHeader();
        case RowForm::Json:
            return "";
        default:
            return "TIME          " + NameColumn(std::string(kNameTitle), nameWidth) +
                   "  STATE  POSITION  VALUES   FLAGS";
    }
}

std::string WatchRow(RowForm form, const Observation& observation, TimePoint time,
                     std::size_t nameWidth) {
    switch (form) {
        case RowForm::Csv:
            return CsvRow(observation, LocalTime(time, true));
        case RowForm::Json:
            return Members(observation, LocalTime(time, true))
                .dump(-1, ' ', true, Json::error_handler_t::replace);
        default:
            return AlignedRow(observation, LocalTime(time, false), nameWidth);
    }
}

std::string ValuesWord(const Observation& observation) {
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

}  // namespace tavrik
