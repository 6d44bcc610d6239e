#include "simulator/Cell.h"

#include <fcntl.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

#include "simulator/Recording.h"

#include "common/UsbIdentity.h"

namespace simulator {

namespace {

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

/// Adds a replayed master, which writes its commands to a pipe.
void AddReplay(CellSetup& cell, const std::vector<RecordedEvent>& events, const std::string& path,
               const Options& options, const Printer& print) {
    std::array<int, 2> ends{};
    Checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    FileDescriptor readEnd(ends[0]);
    const auto writeEnd = std::make_shared<FileDescriptor>(ends[1]);
    const auto command = [writeEnd](const std::string& commands) {
        [[maybe_unused]] const auto written =
            write(writeEnd->Get(), commands.data(), commands.size());
    };
    const std::size_t number = cell.stations.size();
    auto master =
        std::make_unique<ReplayingMaster>(BuildReplayScript(events), options.replayTiming,
                                          ReplayingMaster::Context{number, path, print, command});
    const CommandSource commands{master->FirstCommands(), readEnd.Get()};
    cell.replays.push_back({number, master.get(), commands, std::move(readEnd)});
    cell.stations.emplace_back(std::move(master));
}

/// The same texts as in a testbed.
std::unique_ptr<UsbFaults> FaultlessUsb(std::size_t number) {
    auto usb = std::make_unique<UsbFaults>();
    usb->texts = {kUsbManufacturer, "PELLIX", "PX" + std::to_string(1000 + number)};
    return usb;
}

}  // namespace

CellSetup SetUpCell(const Options& options, RecordingWriter* writer, const Printer& print) {
    CellSetup cell;
    for (const GripperOption& gripper : options.grippers) {
        cell.stations.push_back(SimulatedStation(options, gripper));
    }
    for (const std::string& path : options.replayPaths) {
        for (const auto& [number, events] : ReadRecording(path).masters) {
            AddReplay(cell, events, path, options, print);
        }
    }
    for (std::size_t number = 0; options.usb && number < cell.stations.size(); ++number) {
        cell.stations[number].usb = FaultlessUsb(number);
    }
    for (unsigned number = 0; writer != nullptr && number < cell.stations.size(); ++number) {
        auto& master = cell.stations[number].master;
        master = std::make_unique<RecordingMaster>(std::move(master), number, *writer);
    }
    return cell;
}

Cell::Cell(std::vector<Station> stations)
    : stations(std::move(stations)),
      wakeDescriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      thread([this] { Run(); }) {}

Cell::~Cell() {
    {
        const std::lock_guard lock(mutex);
        stopping = true;
    }
    Wake();
    thread.join();
}

void Cell::Call(std::size_t number, const std::function<void(Station&)>& work) {
    // Not stored in the future: the cell's thread would free the exception while it is being read.
    std::exception_ptr error;
    std::packaged_task<void()> task([&station = stations.at(number), &work, &error] {
        try {
            work(station);
            Serve(station, Clock::now());
        } catch (...) {
            error = std::current_exception();
        }
    });
    auto done = task.get_future();
    {
        const std::lock_guard lock(mutex);
        pendingWork.push_back(std::move(task));
    }
    Wake();
    done.get();
    if (error) {
        std::rethrow_exception(error);
    }
}

void Cell::RemovePorts() {
    for (std::size_t number = 0; number < stations.size(); ++number) {
        Call(number, [](Station& station) {
            Serve(station, Clock::now());  // what the daemon has written last
            station.port.reset();
        });
    }
}

void Cell::Wake() {
    eventfd_write(wakeDescriptor.Get(), 1);
}

void Cell::Run() {
    while (true) {
        {
            const std::lock_guard lock(mutex);
            if (stopping) {
                return;
            }
        }
        Wait();
        RunPendingWork();
        for (Station& station : stations) {
            Serve(station, Clock::now());
        }
    }
}

/// Sleeps until a client has written, a text is due, or work is pending.
void Cell::Wait() {
    pollSet.assign(1, pollfd{wakeDescriptor.Get(), POLLIN, 0});
    std::optional<TimePoint> due;
    for (const Station& station : stations) {
        if (!station.port) {
            continue;
        }
        for (const auto& next : {station.master->NextDue(), station.port->NextDue()}) {
            if (next) {
                due = due ? std::min(*due, *next) : *next;
            }
        }
        pollSet.push_back({station.port->Descriptor(), station.port->PollEvents(), 0});
    }
    timespec timeout{};
    if (due) {
        using std::chrono::nanoseconds;
        const auto rest = std::max<nanoseconds>(*due - Clock::now(), nanoseconds::zero());
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(rest);
        timeout.tv_sec = seconds.count();
        timeout.tv_nsec = nanoseconds(rest - seconds).count();
    }
    ppoll(pollSet.data(), pollSet.size(), due ? &timeout : nullptr, nullptr);
    std::uint64_t wakeUps = 0;
    eventfd_read(wakeDescriptor.Get(), &wakeUps);
}

void Cell::RunPendingWork() {
    std::vector<std::packaged_task<void()>> work;
    {
        const std::lock_guard lock(mutex);
        work.swap(pendingWork);
    }
    for (auto& task : work) {
        task();
    }
}

/// Reads requests, and sends the texts that are due.
void Cell::Serve(Station& station, TimePoint now) {
    if (!station.port) {
        return;
    }
    station.master->Receive(station.port->Read(), now);
    for (std::string text = station.master->NextText(now); !text.empty();
         text = station.master->NextText(now)) {
        station.port->Send(text);
    }
    if (station.port->WaitsForRoom()) {
        station.port->Flush();
    }
    if (!station.port->IsConnected()) {
        station.master->HangUp(true, now);
        station.port.reset();
    }
}

}  // namespace simulator
