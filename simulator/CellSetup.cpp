#include "simulator/CellSetup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "simulator/Recording.h"
#include "simulator/RecordingMaster.h"

namespace simulator {

namespace {

using Tell = std::function<void(const std::string& text)>;

Station SimulatedStation(const Options& options, const GripperOption& gripper) {
    const TimePoint now = Clock::now();
    MasterSettings settings = options.master;
    settings.id = gripper.id;
    auto master = std::make_unique<SimulatedMaster>(
        settings, *gripper.model, Bytes(gripper.product.begin(), gripper.product.end()),
        Bytes(gripper.serial.begin(), gripper.serial.end()), now);
    if (options.speed) {
        master->Gripper(now).SetSpeed(*options.speed);
    }
    return Station(std::move(master));
}

/// Adds one recorded master. Its commands go through a pipe to whoever executes them.
void AddReplay(CellSetup& cell, const std::vector<RecordedEvent>& events, const std::string& path,
               const Options& options, const Tell& tell) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) == -1) {
        throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    FileDescriptor readEnd(ends[0]);
    const auto writeEnd = std::make_shared<FileDescriptor>(ends[1]);
    const auto command = [writeEnd](const std::string& commands) {
        [[maybe_unused]] const auto written =
            write(writeEnd->Get(), commands.data(), commands.size());
    };
    const std::size_t number = cell.stations.size();
    auto master = std::make_unique<ReplayingMaster>(
        BuildReplayScript(events), options.replayAnswers,
        ReplayingMaster::Surroundings{number, path, tell, command});
    const CommandSource commands{master->FirstCommands(), readEnd.Get()};
    cell.replays.push_back({number, master.get(), commands, std::move(readEnd)});
    cell.stations.emplace_back(std::move(master));
}

}  // namespace

CellSetup SetUpCell(const Options& options, RecordingWriter* writer, const Tell& tell) {
    CellSetup cell;
    for (const GripperOption& gripper : options.grippers) {
        cell.stations.push_back(SimulatedStation(options, gripper));
    }
    for (const std::string& path : options.replayPaths) {
        for (const auto& [number, events] : ReadRecording(path).masters) {
            AddReplay(cell, events, path, options, tell);
        }
    }
    for (unsigned number = 0; writer != nullptr && number < cell.stations.size(); ++number) {
        auto& master = cell.stations[number].master;
        master = std::make_unique<RecordingMaster>(std::move(master), number, *writer);
    }
    return cell;
}

}  // namespace simulator
