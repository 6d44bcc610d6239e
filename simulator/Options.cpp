#include "simulator/Options.h"

#include <algorithm>
#include <map>
#include <utility>

#include "simulator/TextTools.h"
#include "simulator/UsageError.h"

namespace simulator {

const std::string_view kHelpText =
    R"(Usage: pellix-sim [OPTIONS] -- COMMAND ARG...
       pellix-sim tap TTY... FILE [-- COMMAND ARG...]

Runs COMMAND in a world with simulated PELLIX masters, each with a gripper.
Master N, counted from 0 in the order of --gripper, is /dev/ttyACM<N>.

  --gripper MODEL[,serial=TEXT][,product=TEXT][,id=TEXT]
                           one more master; MODEL is TLM, HVA, MZD-S or MZD-L
  --unplugged N            master N is not plugged in at the start
  --pdin-hz N              process data lines a second (default 100, 0 for none)
  --query-end fin|data     a query ends with ACK, data line, FIN (default), or
                           with the data line alone
  --report-pdout on|off    an assignment of PDOUT is answered with PDOUT too
                           (default on)
  --start-mode CODE        data-link mode when plugged in (default 3)
  --cooked                 ttys start with echo and line mode on
  --split N                answers leave in pieces of at most N bytes
  --speed MM_PER_S         speed of all grippers (default: the model's)
  --script FILE            commands, one a line
  --record FILE            writes what COMMAND and the masters say into a new file
  --replay FILE            the masters of a recording, numbered behind the others
  --at-once                they answer at once, not as late as recorded
  --help                   this text

Commands are read from FILE and from standard input; "help" lists them.

With "tap" the masters are real ones, each on its TTY, and what COMMAND and they
say is written into a new file. Without COMMAND, clients find the masters where
standard error says.
)";

namespace {

using Arguments = std::span<const std::string>;

GripperOption ParseGripper(std::string_view text, std::size_t number) {
    const auto parts = Split(text, ',');
    const GripperModel* const model = parts.empty() ? nullptr : FindGripperModel(parts.front());
    if (model == nullptr) {
        throw UsageError("--gripper takes TLM, HVA, MZD-S or MZD-L");
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
            throw UsageError("--gripper: unknown setting '" + part + "'");
        }
        *field->second = Unescape(std::string_view(part).substr(equals + 1));
    }
    return gripper;
}

/// Takes options off the front of a command line.
class OptionReader {
public:
    explicit OptionReader(Arguments arguments) : rest(arguments) {}

    Options Read() {
        while (!rest.empty() && rest.front() != "--") {
            ReadOption(Take());
        }
        if (!rest.empty()) {
            Take();
        }
        options.command.assign(rest.begin(), rest.end());
        Check();
        return options;
    }

private:
    std::string Take() {
        std::string first = rest.front();
        rest = rest.subspan(1);
        return first;
    }

    std::string TakeValue(const std::string& option) {
        if (rest.empty()) {
            throw UsageError(option + " needs a value");
        }
        return Take();
    }

    void ReadOption(const std::string& option) {
        constexpr unsigned kLargest = 1000000;
        if (option == "--help") {
            options.help = true;
        } else if (option == "--cooked") {
            options.ttyStart = PtyPort::Start::Cooked;
        } else if (option == "--gripper") {
            options.grippers.push_back(ParseGripper(TakeValue(option), options.grippers.size()));
        } else if (option == "--unplugged") {
            options.unplugged.insert(ParseUnsigned(TakeValue(option), kLargest));
        } else if (option == "--pdin-hz") {
            options.master.streamRate = ParseUnsigned(TakeValue(option), kLargestStreamRate);
        } else if (option == "--query-end") {
            options.master.queryEnd = ParseQueryEnd(TakeValue(option));
        } else if (option == "--report-pdout") {
            options.master.reportProcessOutput = ParseOnOff(TakeValue(option));
        } else if (option == "--start-mode") {
            options.master.startMode = ParseUnsigned(TakeValue(option), mode::kLargest);
        } else if (option == "--split") {
            options.master.pieceLength = ParseUnsigned(TakeValue(option), kLargest);
        } else if (option == "--speed") {
            options.speed = ParseDecimal(TakeValue(option));
        } else if (option == "--script") {
            options.scriptPath = TakeValue(option);
        } else if (option == "--record") {
            options.recordPath = TakeValue(option);
        } else if (option == "--replay") {
            options.replayPaths.push_back(TakeValue(option));
        } else if (option == "--at-once") {
            options.replayAnswers = ReplayingMaster::Answers::AtOnce;
        } else {
            throw UsageError("unknown option " + option);
        }
    }

    void Check() const {
        if (options.help) {
            return;
        }
        if (options.command.empty()) {
            throw UsageError("no COMMAND given");
        }
        if (!options.unplugged.empty() && *options.unplugged.rbegin() >= options.grippers.size()) {
            throw UsageError("--unplugged names a master that does not exist");
        }
        if (options.speed && *options.speed <= 0) {
            throw UsageError("--speed must be larger than 0");
        }
    }

    Arguments rest;
    Options options;
};

}  // namespace

Options ParseOptions(Arguments arguments) {
    return OptionReader(arguments).Read();
}

TapOptions ParseTapOptions(Arguments arguments) {
    const auto dashes = std::ranges::find(arguments, "--");
    TapOptions options;
    options.ttyPaths.assign(arguments.begin(), dashes);
    options.help = std::ranges::count(options.ttyPaths, "--help") != 0;
    if (options.help) {
        return options;
    }
    for (const std::string& path : options.ttyPaths) {
        if (path.starts_with('-')) {
            throw UsageError("unknown option " + path);
        }
    }
    if (options.ttyPaths.size() < 2) {
        throw UsageError("tap needs a TTY and a FILE");
    }
    options.recordPath = std::move(options.ttyPaths.back());
    options.ttyPaths.pop_back();
    if (dashes != arguments.end()) {
        options.command.assign(dashes + 1, arguments.end());
        if (options.command.empty()) {
            throw UsageError("no COMMAND given");
        }
    }
    return options;
}

}  // namespace simulator
