#include "simulator/Options.h"

#include <map>

#include "simulator/TextTools.h"
#include "simulator/UsageError.h"

namespace simulator {

const std::string_view kHelpText =
    R"(Usage: pellix-sim [OPTIONS] -- COMMAND ARG...

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
  --help                   this text

Commands are read from FILE and from standard input; "help" lists them.
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

}  // namespace simulator
