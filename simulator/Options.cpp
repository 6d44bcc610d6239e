#include "simulator/Options.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "simulator/TextTools.h"

namespace simulator {

namespace {

using Arguments = std::span<const std::string>;

constexpr unsigned kLargest = 1000000;

constexpr const char* kDescription =
    R"(Runs COMMAND with simulated PELLIX masters, each with a gripper. Master N,
counted from 0 in the order of --gripper, is /dev/ttyACM<N>.)";

constexpr const char* kUsage = R"(
Usage: pellix-sim [OPTIONS] -- COMMAND ARG...
       pellix-sim --usb [OPTIONS] [-- COMMAND ARG...]
       pellix-sim tap TTY... FILE [-- COMMAND ARG...]
)";

constexpr const char* kFooter =
    R"(pellix-sim reads commands from the script and from standard input; the command
"help" lists them.

"tap" connects COMMAND to real masters, each on its TTY, and records their
communication in a new FILE. Without COMMAND, clients open the ttys that are
printed to standard error.)";

class HelpFormatter final : public CLI::Formatter {
public:
    std::string make_usage(const CLI::App* /*app*/, std::string /*name*/) const override {
        return kUsage;
    }
};

GripperOption ParseGripper(std::string_view text, std::size_t number) {
    const auto parts = Split(text, ',');
    const std::string name = parts.empty() ? "" : parts.front();
    const GripperModel* const model = FindGripperModel(name);
    if (model == nullptr) {
        throw UsageError("unknown model '" + name + "': expected " + ModelNames());
    }
    constexpr unsigned kFirstSerial = 100001;
    GripperOption gripper{model, std::string(model->name), std::to_string(kFirstSerial + number),
                          MasterSettings().id};
    const std::map<std::string, std::string*, std::less<>> fields{
        {"product", &gripper.product}, {"serial", &gripper.serial}, {"id", &gripper.id}};
    for (const std::string& part : Arguments(parts).subspan(1)) {
        const auto equals = part.find('=');
        const auto field = fields.find(part.substr(0, equals));
        if (equals == std::string::npos || field == fields.end()) {
            throw UsageError("unknown setting '" + part + "'");
        }
        *field->second = Unescape(std::string_view(part).substr(equals + 1));
    }
    return gripper;
}

double ParseSpeed(std::string_view text) {
    const double speed = ParseDecimal(text);
    if (speed <= 0) {
        throw UsageError("invalid speed '" + std::string(text) + "': must be above 0");
    }
    return speed;
}

/// Explains the words that are not options if there is no "--" before COMMAND.
std::string ExplainWords(const CLI::App& app, Arguments arguments) {
    const auto word = std::ranges::find_if(arguments, [&app](const std::string& each) {
        const auto words = app.remaining();
        return !each.starts_with('-') && std::ranges::find(words, each) != words.end();
    });
    if (word == arguments.end()) {
        return "";
    }
    std::string line = "missing -- before COMMAND: pellix-sim";
    for (auto each = arguments.begin(); each != arguments.end(); ++each) {
        line += (each == word ? " -- " : " ") + *each;
    }
    return line;
}

void Parse(CLI::App& app, Arguments arguments, bool hasDashes) {
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
    } catch (const CLI::ExtrasError& error) {
        const std::string explanation = hasDashes ? "" : ExplainWords(app, arguments);
        throw UsageError(explanation.empty() ? error.what() : explanation);
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
}

/// Calls `set` for every value. `set` parses it, because CLI11 accepts octal numbers.
template <typename Set>
void Add(CLI::App& app, const std::string& name, const std::string& valueName,
         const std::string& description, Set set) {
    const auto setAll = [name, set](const CLI::results_t& values) {
        try {
            std::ranges::for_each(values, set);
        } catch (const UsageError& error) {
            throw UsageError(name + ": " + error.what());
        }
        return true;
    };
    app.add_option(name, setAll, description)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->type_name(valueName);
}

/// Defines the options of pellix-sim; parsing writes to `options`.
void AddOptions(CLI::App& app, Options& options) {
    app.set_help_flag();
    MasterSettings& master = options.master;
    Add(app, "--gripper", "MODEL[,serial=TEXT][,product=TEXT][,id=TEXT]",
        "add a master with this gripper:\n" + ModelNames(), [&options](const auto& text) {
            options.grippers.push_back(ParseGripper(text, options.grippers.size()));
        });
    Add(app, "--unplugged", "N", "start with master N unplugged",
        [&options](const auto& text) { options.unplugged.insert(ParseUnsigned(text, kLargest)); });
    Add(app, "--pdin-hz", "N", "process data lines per second (default 100,\n0: none)",
        [&master](const auto& text) {
            master.streamRate = ParseUnsigned(text, kLargestStreamRate);
        });
    Add(app, "--query-end", "fin|data",
        "answer a query with ACK, data line, FIN (default)\nor with the data line only",
        [&master](const auto& text) { master.queryEnd = ParseQueryEnd(text); });
    Add(app, "--report-pdout", "on|off", "answer an assignment of PDOUT with PDOUT (default\non)",
        [&master](const auto& text) { master.reportProcessOutput = ParseOnOff(text); });
    Add(app, "--start-mode", "CODE", "data-link mode after plugging in (default 3)",
        [&master](const auto& text) { master.startMode = ParseUnsigned(text, mode::kLargest); });
    app.add_flag("--usb", options.usb,
                 "plug the masters into the USB of this host,\nfor all programs");
    app.add_flag_callback(
        "--cooked", [&options] { options.ttyStart = PtyPort::Start::Cooked; },
        "start ttys with echo and line mode on");
    Add(app, "--split", "N", "send answers in pieces of at most N bytes",
        [&master](const auto& text) { master.pieceLength = ParseUnsigned(text, kLargest); });
    Add(app, "--speed", "MM_PER_S", "speed of all grippers (default: by model)",
        [&options](const auto& text) { options.speed = ParseSpeed(text); });
    Add(app, "--script", "FILE", "read commands from FILE, one per line",
        [&options](const auto& text) { options.scriptPath = text; });
    Add(app, "--record", "FILE", "record the communication in a new FILE",
        [&options](const auto& text) { options.recordPath = text; });
    Add(app, "--replay", "FILE", "add the masters of a recording, numbered after the\nothers",
        [&options](const auto& text) { options.replayPaths.push_back(text); });
    app.add_flag_callback(
        "--at-once", [&options] { options.replayTiming = ReplayingMaster::Timing::AtOnce; },
        "replay answers without the recorded delay");
    app.add_flag("--help", options.help, "print this help");
}

}  // namespace

std::string HelpText() {
    constexpr std::size_t kNameWidth = 27;
    Options options;
    CLI::App app(kDescription);
    auto formatter = std::make_shared<HelpFormatter>();
    formatter->column_width(kNameWidth);
    app.formatter(formatter);
    app.footer(kFooter);
    AddOptions(app, options);
    return app.help();
}

Options ParseOptions(Arguments arguments) {
    const auto dashes = std::ranges::find(arguments, "--");
    Options options;
    CLI::App app;
    AddOptions(app, options);
    Parse(app, {arguments.begin(), dashes}, dashes != arguments.end());
    if (options.help) {
        return options;
    }
    if (options.usb && options.ttyStart == PtyPort::Start::Cooked) {
        throw UsageError("--cooked: not needed with --usb, whose ttys always start cooked");
    }
    if (dashes != arguments.end()) {
        options.command.assign(dashes + 1, arguments.end());
    }
    if (options.command.empty() && (!options.usb || dashes != arguments.end())) {
        throw UsageError("missing COMMAND");
    }
    if (!options.unplugged.empty() && *options.unplugged.rbegin() >= options.grippers.size()) {
        throw UsageError("--unplugged: no master " + std::to_string(*options.unplugged.rbegin()));
    }
    return options;
}

TapOptions ParseTapOptions(Arguments arguments) {
    const auto dashes = std::ranges::find(arguments, "--");
    TapOptions options;
    CLI::App app;
    app.set_help_flag();
    app.add_flag("--help", options.help);
    app.add_option("TTY", options.ttyPaths);
    Parse(app, {arguments.begin(), dashes}, true);
    if (options.help) {
        return options;
    }
    if (options.ttyPaths.size() < 2) {
        throw UsageError("tap needs a TTY and a FILE");
    }
    options.recordPath = std::move(options.ttyPaths.back());
    options.ttyPaths.pop_back();
    if (arguments.end() - dashes == 1) {
        throw UsageError("missing COMMAND");
    }
    if (dashes != arguments.end()) {
        options.command.assign(dashes + 1, arguments.end());
    }
    return options;
}

}  // namespace simulator
