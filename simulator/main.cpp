#include <unistd.h>

#include <csignal>
#include <exception>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/Cell.h"
#include "simulator/CellSetup.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/CommandReader.h"
#include "simulator/Options.h"
#include "simulator/RecordingWriter.h"
#include "simulator/SignalSet.h"
#include "simulator/Tap.h"
#include "simulator/UsageError.h"
#include "simulator/World.h"

namespace simulator {
namespace {

constexpr int kUsageStatus = 2;
constexpr int kDeviationStatus = 3;

/// One line with one write, so that it does not mix with what COMMAND writes.
void Print(const std::string& text) {
    const std::string line = "pellix-sim: " + text + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
}

int PrintHelp() {
    [[maybe_unused]] const auto written = write(STDOUT_FILENO, kHelpText.data(), kHelpText.size());
    return 0;
}

std::string ReadScript(const Options& options) {
    if (!options.scriptPath) {
        return {};
    }
    std::ifstream file(*options.scriptPath);
    if (!file) {
        throw UsageError("cannot read " + *options.scriptPath);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

/// Says how each replay went. @return whether COMMAND did as recorded
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

/// @return the exit status, for that of COMMAND
int Judge(int status, const RecordingWriter* writer) {
    return status == 0 && writer != nullptr && !writer->IsWhole() ? 1 : status;
}

int RunCell(const Options& options) {
    const sigset_t signals = BlockSignals();
    std::vector<CommandSource> sources{{ReadScript(options) + "\n"}, {"", STDIN_FILENO}};
    std::optional<RecordingWriter> writer;
    if (options.recordPath) {
        writer.emplace(*options.recordPath, Print);
    }
    World world;
    auto [stations, replays] = SetUpCell(options, writer ? &*writer : nullptr, Print);
    Cell cell(std::move(stations));
    CommandInterpreter interpreter(cell, world.Devices(), options.ttyStart, Print,
                                   [&world] { return world.Interrupt(); });
    for (std::size_t number = 0; number < options.grippers.size(); ++number) {
        if (!options.unplugged.contains(number)) {
            interpreter.Plug(number);
        }
    }
    for (const Replay& replay : replays) {
        sources.push_back(replay.commands);
    }
    CommandReader reader(std::move(sources), [&interpreter](const std::string& line) {
        return interpreter.Execute(line);
    });
    reader.Prepare();
    if (writer) {
        writer->StartClock();
    }
    world.Start(options.command);
    std::thread readerThread([&reader] { reader.Run(); });
    const int status = world.AwaitEnd(signals);
    reader.Stop();
    readerThread.join();
    if (!ReportReplays(cell, replays) && status == 0) {
        return kDeviationStatus;
    }
    return Judge(status, writer ? &*writer : nullptr);
}

int RunTap(const TapOptions& options) {
    const sigset_t signals = BlockSignals();
    RecordingWriter writer(options.recordPath, Print);
    std::optional<World> world;
    if (!options.command.empty()) {
        world.emplace();
    }
    std::vector<std::unique_ptr<Tap>> taps;
    for (const std::string& ttyPath : options.ttyPaths) {
        const auto number = static_cast<unsigned>(taps.size());
        Testbed* const devices = world ? &world->Devices() : nullptr;
        taps.push_back(std::make_unique<Tap>(Tap::Target{number, ttyPath, devices}, writer, Print));
    }
    writer.StartClock();
    int status = 0;
    if (world) {
        world->Start(options.command);
        status = world->AwaitEnd(signals);
    } else {
        int number = SIGCHLD;  // of a process that was there before this program
        while (number == SIGCHLD) {
            sigwait(&signals, &number);
        }
    }
    taps.clear();
    return Judge(status, &writer);
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
        Print("usage: " + std::string(error.what()) + "; pellix-sim --help tells more");
        return kUsageStatus;
    } catch (const std::exception& error) {
        Print("error: " + std::string(error.what()));
        return 1;
    }
}
