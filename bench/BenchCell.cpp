// bench-cell: runs COMMAND with masters that cost less than what is measured on their other side.

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "bench/CellCommands.h"
#include "bench/CellOptions.h"
#include "bench/FastMasters.h"
#include "bench/LineBuffer.h"
#include "bench/SharedTime.h"
#include "simulator/ChildProcess.h"
#include "simulator/FileDescriptor.h"
#include "simulator/Testbed.h"
#include "simulator/TextTools.h"

namespace bench {
namespace {

constexpr int kUsageStatus = 2;

/// One line with one write, so that it does not mix with what COMMAND writes.
void Print(const std::string& text) {
    const std::string line = "bench-cell: " + text + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
}

/// Executes what one read of standard input brings.
/// @return false at its end
bool ReadCommands(LineBuffer& input, CellCommands& commands) {
    const ssize_t count = read(STDIN_FILENO, input.Room(), LineBuffer::kReadSize);
    if (count <= 0) {
        return false;
    }
    input.Take(static_cast<std::size_t>(count),
               [&commands](std::string_view line) { Print(commands.Execute(line)); });
    return true;
}

/// Passes a signal on to COMMAND.
/// @return COMMAND's exit status when it has ended
std::optional<int> HandleSignal(int signals, simulator::ChildProcess& child) {
    signalfd_siginfo signal{};
    if (read(signals, &signal, sizeof signal) != sizeof signal) {
        return std::nullopt;
    }
    if (signal.ssi_signo == SIGCHLD) {
        return child.Collect();
    }
    child.Signal(static_cast<int>(signal.ssi_signo));
    return std::nullopt;
}

/// Serves the masters until COMMAND has ended.
/// @return its exit status
int ServeUntilEnd(FastMasters& masters, CellCommands& commands, simulator::ChildProcess& child,
                  int signals) {
    LineBuffer input;
    masters.Watch(signals);
    if (!masters.Watch(STDIN_FILENO)) {
        while (ReadCommands(input, commands)) {
        }
    }
    while (true) {
        if (masters.Serve() != signals) {
            if (!ReadCommands(input, commands)) {
                masters.Unwatch(STDIN_FILENO);
            }
        } else if (const auto status = HandleSignal(signals, child)) {
            return *status;
        }
    }
}

int Run(const CellOptions& options) {
    const sigset_t blocked = simulator::BlockSignals();
    const simulator::FileDescriptor signals(signalfd(-1, &blocked, SFD_CLOEXEC | SFD_NONBLOCK));
    simulator::ChildProcess child;
    simulator::Testbed testbed;
    std::optional<SharedTime> finTime;
    if (!options.finFile.empty()) {
        finTime.emplace(options.finFile);
    }
    FastMasters masters(options.masters, finTime ? &*finTime : nullptr);
    CellCommands commands(masters, testbed);
    for (std::size_t number = 0; number < options.masters && !options.unplugged; ++number) {
        commands.Plug(number);
    }
    masters.SetRate(options.rate);
    const pid_t pid = child.Start(
        options.command, {{"LD_PRELOAD", simulator::PreloadList(testbed.Folder(), PRELOAD_FOLDER)},
                          {"UMOCKDEV_DIR", testbed.Folder().string()}});
    Print("pid " + std::to_string(pid));
    return ServeUntilEnd(masters, commands, child, signals.Get());
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        const CellOptions options = ParseCellOptions(arguments);
        if (options.help) {
            [[maybe_unused]] const auto written =
                write(STDOUT_FILENO, kCellHelp.data(), kCellHelp.size());
            return 0;
        }
        return Run(options);
    } catch (const simulator::UsageError& error) {
        Print("usage: " + std::string(error.what()) + "; bench-cell --help tells more");
        return kUsageStatus;
    } catch (const std::exception& error) {
        Print("error: " + std::string(error.what()));
        return 1;
    }
}
