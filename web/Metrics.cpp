#include "web/Metrics.h"

#include <array>
#include <cstdio>
#include <functional>
#include <string_view>

namespace tavrik {

namespace {

/// Quotes, backslashes and line ends would end a label.
std::string Escape(const std::string& text) {
    std::string escaped;
    for (const char each : text) {
        if (each == '\n') {
            escaped += "\\n";
            continue;
        }
        if (each == '"' || each == '\\') {
            escaped += '\\';
        }
        escaped += each;
    }
    return escaped;
}

/// Without viewers and scrapes nothing is read, so the first scrape afterwards may find old data.
bool HasCurrentData(const CellGripper& gripper, CellGripper::TimePoint now) {
    constexpr std::chrono::seconds kCurrent(5);
    return gripper.data && now - gripper.readAt <= kCurrent;
}

std::string CodeText(int code) {
    return code == CallStatistics::kOtherCode ? "other" : std::to_string(code);
}

std::string Number(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.9g", value);
    return text.data();
}

class Writer {
public:
    void Begin(const std::string& name, const char* type, const char* help) {
        text += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }

    void Add(const std::string& name, const std::string& labels, double value) {
        text += name + (labels.empty() ? "" : "{" + labels + "}") + " " + Number(value) + "\n";
    }

    std::string text;
};

std::string Label(const CellGripper& gripper) {
    return "gripper=\"" + Escape(gripper.device) + "\"";
}

/// A metric of each gripper that has data.
struct Gauge {
    std::string_view name;
    const char* type;
    const char* help;
    std::function<double(const CellGripper&)> value;
};

void WriteDaemon(Writer& writer, const Cell& cell, std::size_t viewers) {
    writer.Begin("tavrik_daemon_up", "gauge", "Whether the daemon answers.");
    writer.Add("tavrik_daemon_up", "", cell.reachable ? 1 : 0);
    if (cell.reachable) {
        writer.Begin("tavrik_daemon_info", "gauge", "The version of the daemon.");
        writer.Add("tavrik_daemon_info", "version=\"" + Escape(cell.version) + "\"", 1);
        writer.Begin("tavrik_grippers", "gauge", "How many grippers the daemon lists.");
        double count = 0;
        for (const CellGripper& gripper : cell.grippers) {
            count += static_cast<double>(gripper.copies);
        }
        writer.Add("tavrik_grippers", "", count);
    }
    writer.Begin("tavrik_web_viewers", "gauge", "How many browsers are connected.");
    writer.Add("tavrik_web_viewers", "", static_cast<double>(viewers));
}

void WriteGauges(Writer& writer, const Cell& cell, CellGripper::TimePoint now) {
    const std::array gauges{
        Gauge{"state", "gauge", "The state code; see the gripper's manual.",
              [](const CellGripper& each) { return each.data->state; }},
        Gauge{"position", "gauge", "The position in the gripper's unit.",
              [](const CellGripper& each) { return each.data->position; }},
        Gauge{"process_data", "gauge", "Whether it has process data; 0 also if all of it is zero.",
              [](const CellGripper& each) { return each.data->certain ? 1 : 0; }},
        Gauge{"fault", "gauge", "Whether it reports a fault.",
              [](const CellGripper& each) { return each.data->fault ? 1 : 0; }},
        Gauge{"temperature_fault", "gauge", "Whether it is too hot to operate.",
              [](const CellGripper& each) { return each.data->tempFault ? 1 : 0; }},
        Gauge{"temperature_warning", "gauge", "Whether it is hot.",
              [](const CellGripper& each) { return each.data->tempWarn ? 1 : 0; }},
        Gauge{"maintenance", "gauge", "Whether it needs maintenance.",
              [](const CellGripper& each) { return each.data->maintenance ? 1 : 0; }},
        Gauge{"data_age_seconds", "gauge",
              "How old its data is: more than a second if its master does not answer.",
              [now](const CellGripper& each) {
                  return std::chrono::duration<double>(each.Age(now)).count();
              }},
        Gauge{"motions_total", "counter", "Observed motions.",
              [](const CellGripper& each) { return static_cast<double>(each.motions); }},
    };
    for (const Gauge& gauge : gauges) {
        const std::string name = "tavrik_gripper_" + std::string(gauge.name);
        writer.Begin(name, gauge.type, gauge.help);
        for (const CellGripper& gripper : cell.grippers) {
            if (HasCurrentData(gripper, now)) {
                writer.Add(name, Label(gripper), gauge.value(gripper));
            }
        }
    }
}

void WriteUp(Writer& writer, const Cell& cell) {
    writer.Begin("tavrik_gripper_up", "gauge", "Whether the daemon lists it.");
    for (const CellGripper& gripper : cell.grippers) {
        writer.Add("tavrik_gripper_up", Label(gripper), gripper.IsListed() ? 1 : 0);
    }
}

void WriteHistogram(Writer& writer, const std::string& label, const CallStatistics& calls) {
    const std::string name = "tavrik_gripper_call_duration_seconds";
    for (std::size_t i = 0; i < CallStatistics::kBounds.size(); ++i) {
        writer.Add(name + "_bucket",
                   label + ",le=\"" + Number(CallStatistics::kBounds.at(i)) + "\"",
                   static_cast<double>(calls.within.at(i)));
    }
    writer.Add(name + "_bucket", label + ",le=\"+Inf\"", static_cast<double>(calls.calls));
    writer.Add(name + "_sum", label, calls.seconds);
    writer.Add(name + "_count", label, static_cast<double>(calls.calls));
}

void WriteCalls(Writer& writer, const Cell& cell, const Statistics& statistics) {
    const auto forEach = [&](const auto& write) {
        for (const CellGripper& gripper : cell.grippers) {
            if (gripper.data) {
                write(Label(gripper), statistics.Of(gripper.device));
            }
        }
    };
    const std::string refusals = "tavrik_gripper_refusals_total";
    writer.Begin(refusals, "counter", "Refused commands from the page, by status code.");
    forEach([&](const std::string& label, const CallStatistics& calls) {
        for (const auto& [code, count] : calls.refusals) {
            writer.Add(refusals, label + ",code=\"" + CodeText(code) + "\"",
                       static_cast<double>(count));
        }
    });
    const std::string timeouts = "tavrik_gripper_timeouts_total";
    writer.Begin(timeouts, "counter", "Commands from the page that timed out.");
    forEach([&](const std::string& label, const CallStatistics& calls) {
        writer.Add(timeouts, label, static_cast<double>(calls.timeouts));
    });
    writer.Begin("tavrik_gripper_call_duration_seconds", "histogram",
                 "Duration of commands from the page.");
    forEach([&](const std::string& label, const CallStatistics& calls) {
        WriteHistogram(writer, label, calls);
    });
}

}  // namespace

std::string FormatMetrics(const Cell& cell, const Statistics& statistics, std::size_t viewers,
                          CellGripper::TimePoint now) {
    Writer writer;
    WriteDaemon(writer, cell, viewers);
    WriteUp(writer, cell);
    WriteGauges(writer, cell, now);
    WriteCalls(writer, cell, statistics);
    return writer.text;
}

}  // namespace tavrik
