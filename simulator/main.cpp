#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/Cell.h"
#include "simulator/ChildProcess.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/CommandReader.h"
#include "simulator/Options.h"
#include "simulator/PtyBus.h"
#include "simulator/RecordingWriter.h"
#include "simulator/Tap.h"
#include "simulator/Testbed.h"
#include "simulator/TextTools.h"
#include "simulator/usb/UsbBus.h"

namespace simulator {
namespace {

constexpr int kUsageStatus = 2;
constexpr int kDeviationStatus = 3;

/// Prints a line with one write, so that it is not mixed with the output of COMMAND.
void Print(const std::string& text) {
    const std::string line = "pellix-sim: " + text + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
}

/// Prompts for a command, if a person types them.
void Prompt() {
    if (isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1) {
        constexpr std::string_view kPrompt = "pellix-sim> ";
        [[maybe_unused]] const auto written = write(STDERR_FILENO, kPrompt.data(), kPrompt.size());
    }
}

int PrintHelp() {
    const std::string text = HelpText();
    [[maybe_unused]] const auto written = write(STDOUT_FILENO, text.data(), text.size());
    return 0;
}

/// COMMAND, if there is one, run with simulated or real devices.
class ClientProgram {
public:
    enum class Devices { Real, Simulated };

    /// @throws std::exception if COMMAND would see the real devices instead of simulated ones
    explicit ClientProgram(Devices devices) {
        if (devices == Devices::Simulated) {
            testbed.emplace();
            preloadList = PreloadList(
                testbed->Folder(), std::filesystem::read_symlink("/proc/self/exe").parent_path());
        }
    }

    /// Null if COMMAND sees the real devices.
    Testbed* SimulatedDevices() { return testbed ? &*testbed : nullptr; }

    void Start(const std::vector<std::string>& command) {
        if (command.empty()) {
            return;
        }
        ChildProcess::Environment additions;
        if (testbed) {
            additions = {{"LD_PRELOAD", preloadList}, {"UMOCKDEV_DIR", testbed->Folder().string()}};
        }
        child.Start(command, additions);
        started = true;
    }

    /// Sends SIGINT to COMMAND. Thread-safe. @return false if it is not running.
    bool Interrupt() { return child.Signal(SIGINT); }

    /// Passes signals on to COMMAND until it has ended; without COMMAND, waits for the first.
    /// @param signals as returned by BlockSignals()
    /// @return the exit status of COMMAND, or 0
    int AwaitEnd(const sigset_t& signals) {
        while (true) {
            int number = 0;
            sigwait(&signals, &number);
            if (number == SIGCHLD) {  // may come from an inherited child process
                if (const auto status = started ? child.Collect() : std::nullopt) {
                    return *status;
                }
            } else if (started) {
                child.Signal(number);
            } else {
                return 0;
            }
        }
    }

private:
    ChildProcess child;
    bool started = false;
    std::optional<Testbed> testbed;
    std::string preloadList;
};

std::string ReadScript(const Options& options) {
    return options.scriptPath ? ReadFile(*options.scriptPath) : "";
}

/// Prints the result of each replay. @return false if there was a deviation
bool ReportReplays(Cell& cell, const std::vector<Replay>& replays) {
    bool asRecorded = true;
    for (const Replay& replay : replays) {
        cell.Call(replay.number, [&replay, &asRecorded](Station&) {
            const ReplayingMaster& master = *replay.master;
            Print("replay " + std::to_string(replay.number) + ": " +
                  std::to_string(master.PlayedRequestCount()) + " of " +
                  std::to_string(master.RecordedRequestCount()) +
                  " requests played, deviations: " + std::to_string(master.DeviationCount()));
            asRecorded = asRecorded && master.DeviationCount() == 0;
        });
    }
    return asRecorded;
}

/// @param status of COMMAND
/// @return our exit status
int ExitStatus(int status, const RecordingWriter* writer) {
    return status == 0 && writer != nullptr && !writer->IsComplete() ? 1 : status;
}

std::unique_ptr<Bus> MakeBus(const Options& options, ClientProgram& program) {
    if (options.usb) {
        return std::make_unique<UsbBus>(Print, VirtualPorts::OfHost());
    }
    return std::make_unique<PtyBus>(*program.SimulatedDevices(), options.ttyStart);
}

int RunCell(const Options& options) {
    const sigset_t signals = BlockSignals();
    std::vector<CommandSource> sources{{ReadScript(options) + "\n"}, {"", STDIN_FILENO}};
    std::unique_ptr<RecordingWriter> writer;
    if (options.recordPath) {
        writer = std::make_unique<RecordingWriter>(*options.recordPath, Print);
    }
    ClientProgram program(options.usb ? ClientProgram::Devices::Real
                                      : ClientProgram::Devices::Simulated);
    const std::unique_ptr<Bus> bus = MakeBus(options, program);
    auto [stations, replays] = SetUpCell(options, writer.get(), Print);
    Cell cell(std::move(stations));
    CommandInterpreter interpreter(cell, *bus, Print, [&program] { return program.Interrupt(); });
    for (std::size_t number = 0; number < options.grippers.size(); ++number) {
        if (!options.unplugged.contains(number)) {
            interpreter.Plug(number);
        }
    }
    for (const Replay& replay : replays) {
        sources.push_back(replay.commands);
    }
    CommandReader reader(std::move(sources), [&interpreter](const std::string& line) {
        const auto pause = interpreter.Execute(line);
        Prompt();
        return pause;
    });
    reader.Prepare();
    if (writer) {
        writer->StartClock();
    }
    if (options.command.empty()) {
        Print("serving on USB until Ctrl-C");
    }
    program.Start(options.command);
    std::thread readerThread([&reader] { reader.Run(); });
    const int status = program.AwaitEnd(signals);
    reader.Stop();
    cell.RemovePorts();  // the reader may be waiting for the kernel, which takes up to 15 s
    readerThread.join();
    if (!ReportReplays(cell, replays) && status == 0) {
        return kDeviationStatus;
    }
    return ExitStatus(status, writer.get());
}

int RunTap(const TapOptions& options) {
    const sigset_t signals = BlockSignals();
    RecordingWriter writer(options.recordPath, Print);
    ClientProgram program(options.command.empty() ? ClientProgram::Devices::Real
                                                  : ClientProgram::Devices::Simulated);
    std::vector<std::unique_ptr<Tap>> taps;
    for (const std::string& ttyPath : options.ttyPaths) {
        const auto number = static_cast<unsigned>(taps.size());
        taps.push_back(std::make_unique<Tap>(
            Tap::Target{number, ttyPath, program.SimulatedDevices()}, writer, Print));
    }
    writer.StartClock();
    program.Start(options.command);
    const int status = program.AwaitEnd(signals);
    taps.clear();
    return ExitStatus(status, &writer);
}

}  // namespace
}  // namespace simulator

int main(int argc, char** argv) {
    using namespace simulator;
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        if (!arguments.empty() && arguments.front() == "tap") {
            const TapOptions options = ParseTapOptions(std::span(arguments).subspan(1));
            return options.help ? PrintHelp() : RunTap(options);
        }
        const Options options = ParseOptions(arguments);
        return options.help ? PrintHelp() : RunCell(options);
    } catch (const UsageError& error) {
        Print("usage: " + std::string(error.what()) + "; see pellix-sim --help");
        return kUsageStatus;
    } catch (const std::exception& error) {
        Print("error: " + std::string(error.what()));
        return 1;
    }
}
