#include <unistd.h>

#include <csignal>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "simulator/Cell.h"
#include "simulator/ChildProcess.h"
#include "simulator/CommandInterpreter.h"
#include "simulator/CommandReader.h"
#include "simulator/Options.h"
#include "simulator/PreloadList.h"
#include "simulator/SignalSet.h"
#include "simulator/Testbed.h"
#include "simulator/UsageError.h"

namespace simulator {
namespace {

constexpr int kUsageStatus = 2;

/// One line with one write, so that it does not mix with what COMMAND writes.
void Print(const std::string& text) {
    const std::string line = "pellix-sim: " + text + "\n";
    [[maybe_unused]] const auto written = write(STDERR_FILENO, line.data(), line.size());
}

std::vector<Station> BuildStations(const Options& options) {
    std::vector<Station> stations;
    const TimePoint now = Clock::now();
    for (const GripperOption& gripper : options.grippers) {
        MasterSettings settings = options.master;
        settings.id = gripper.id;
        SimulatedMaster master(settings, *gripper.model,
                               Bytes(gripper.product.begin(), gripper.product.end()),
                               Bytes(gripper.serial.begin(), gripper.serial.end()), now);
        if (options.speed) {
            master.Gripper(now).SetSpeed(*options.speed);
        }
        stations.push_back({std::move(master), nullptr});
    }
    return stations;
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

/// Passes signals on to COMMAND until that has ended.
/// @return its exit status
int AwaitEnd(ChildProcess& child, const sigset_t& signals) {
    while (true) {
        int number = 0;
        sigwait(&signals, &number);
        if (number != SIGCHLD) {
            child.Signal(number);
        } else if (const auto status = child.Collect()) {
            return *status;
        }
    }
}

int Run(const Options& options) {
    const sigset_t signals = BlockSignals();
    const std::string script = ReadScript(options);
    ChildProcess child;
    Testbed testbed;
    const std::string preloadList = PreloadList(
        testbed.Folder(), std::filesystem::read_symlink("/proc/self/exe").parent_path());
    Cell cell(BuildStations(options));
    CommandInterpreter interpreter(cell, testbed, options.ttyStart, Print,
                                   [&child] { return child.Signal(SIGINT); });
    for (std::size_t number = 0; number < cell.Size(); ++number) {
        if (!options.unplugged.contains(number)) {
            interpreter.Plug(number);
        }
    }
    CommandReader reader(script, STDIN_FILENO, [&interpreter](const std::string& line) {
        return interpreter.Execute(line);
    });
    reader.Prepare();
    child.Start(options.command,
                {{"LD_PRELOAD", preloadList}, {"UMOCKDEV_DIR", testbed.Folder().string()}});
    std::thread readerThread([&reader] { reader.Run(); });
    const int status = AwaitEnd(child, signals);
    reader.Stop();
    readerThread.join();
    return status;
}

}  // namespace
}  // namespace simulator

int main(int argc, char** argv) {
    using namespace simulator;
    try {
        const std::vector<std::string> arguments(argv + 1, argv + argc);
        const Options options = ParseOptions(arguments);
        if (options.help) {
            [[maybe_unused]] const auto written =
                write(STDOUT_FILENO, kHelpText.data(), kHelpText.size());
            return 0;
        }
        return Run(options);
    } catch (const UsageError& error) {
        Print("usage: " + std::string(error.what()) + "; pellix-sim --help tells more");
        return kUsageStatus;
    } catch (const std::exception& error) {
        Print("error: " + std::string(error.what()));
        return 1;
    }
}
