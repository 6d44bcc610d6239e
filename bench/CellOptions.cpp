#include "bench/CellOptions.h"

#include "simulator/TextTools.h"

namespace bench {

const std::string_view kCellHelp =
    R"(Usage: bench-cell [OPTIONS] -- COMMAND ARG...

Runs COMMAND in a world with simulated PELLIX masters that cost next to nothing. Master N,
counted from 0, is /dev/ttyACM<N> with the gripper "HVA SN:B<NN>". Exits with COMMAND's status.

  --masters N       how many, 0 to 64 (default 1)
  --rate HZ|full    process data lines a second of each master (default 100, 0 for none);
                    full: as fast as its tty takes them
  --unplugged       no master is plugged in at the start
  --fin-file FILE   write there CLOCK_REALTIME in ns, 8 bytes, just before the FIN of a PDOUT
  --help            this text

Commands on standard input, each answered by one line on standard error:

  rate HZ|full      as above
  plug N            answers with CLOCK_MONOTONIC in ns just before the udev event
  unplug N          hangs the tty up; answers as plug does
  lines             answers with the number of process data lines sent, of all masters
  cpu               answers with bench-cell's own processor time in ns
)";

namespace {

constexpr unsigned kMostMasters = 64;
constexpr unsigned kHighestRate = 10000;

}  // namespace

StreamRate ParseStreamRate(std::string_view text) {
    if (text == "full") {
        return std::nullopt;
    }
    return simulator::ParseUnsigned(text, kHighestRate);
}

CellOptions ParseCellOptions(std::span<const std::string> arguments) {
    CellOptions options;
    std::size_t next = 0;
    const auto takeValue = [&](const std::string& option) {
        if (next == arguments.size()) {
            throw simulator::UsageError(option + " needs a value");
        }
        return arguments[next++];
    };
    while (next < arguments.size() && arguments[next] != "--") {
        const std::string& option = arguments[next++];
        if (option == "--masters") {
            options.masters = simulator::ParseUnsigned(takeValue(option), kMostMasters);
        } else if (option == "--rate") {
            options.rate = ParseStreamRate(takeValue(option));
        } else if (option == "--unplugged") {
            options.unplugged = true;
        } else if (option == "--fin-file") {
            options.finFile = takeValue(option);
        } else if (option == "--help") {
            options.help = true;
        } else {
            throw simulator::UsageError("unknown option " + option);
        }
    }
    if (next < arguments.size()) {
        const auto command = arguments.subspan(next + 1);
        options.command.assign(command.begin(), command.end());
    }
    if (options.command.empty() && !options.help) {
        throw simulator::UsageError("no COMMAND given");
    }
    return options;
}

}  // namespace bench
