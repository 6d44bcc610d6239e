#pragma once

#include <poll.h>

#include <cstddef>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/CommandReader.h"
#include "simulator/FileDescriptor.h"
#include "simulator/Master.h"
#include "simulator/Options.h"
#include "simulator/Port.h"
#include "simulator/RecordingWriter.h"
#include "simulator/ReplayingMaster.h"
#include "simulator/SimulatedMaster.h"
#include "simulator/usb/UsbFaults.h"

namespace simulator {

/// A master and what it is plugged into.
struct Station {
    explicit Station(std::unique_ptr<Master> master)
        : master(std::move(master)),
          simulated(dynamic_cast<SimulatedMaster*>(this->master.get())) {}

    std::unique_ptr<Master> master;
    SimulatedMaster* simulated;      ///< the master if it has a gripper, else null
    std::unique_ptr<UsbFaults> usb;  ///< null without --usb; outlives the port
    std::unique_ptr<Port> port;      ///< null while unplugged
};

/// A replayed master.
struct Replay {
    std::size_t number = 0;
    const ReplayingMaster* master = nullptr;  ///< belongs to the cell's thread
    CommandSource commands;
    FileDescriptor commandPipe;  ///< of `commands`
};

/// The stations of a command line, all unplugged.
struct CellSetup {
    std::vector<Station> stations;
    std::vector<Replay> replays;
};

/// @param writer records all masters; may be null
/// @throws std::runtime_error if a recording cannot be read
CellSetup SetUpCell(const Options& options, RecordingWriter* writer, const Printer& print);

/// All stations and the thread that runs them.
///
/// The thread waits for requests and for the next due text, so that answers have no extra delay.
/// Other threads access the stations only through Call().
class Cell {
public:
    explicit Cell(std::vector<Station> stations);
    ~Cell();
    Cell(const Cell&) = delete;
    Cell& operator=(const Cell&) = delete;

    std::size_t Size() const { return stations.size(); }

    /// Runs `work` on the cell's thread, sends the texts that it makes due, and waits for both.
    /// Rethrows the exceptions of `work`.
    void Call(std::size_t number, const std::function<void(Station&)>& work);

    /// Destroys all ports, as the end of the process does.
    void RemovePorts();

private:
    void Run();
    void Wait();
    void Wake();
    void RunPendingWork();
    static void Serve(Station& station, TimePoint now);

    std::vector<Station> stations;
    FileDescriptor wakeDescriptor;
    std::vector<pollfd> pollSet;
    std::mutex mutex;  // guards pendingWork and stopping
    std::vector<std::packaged_task<void()>> pendingWork;
    bool stopping = false;
    std::thread thread;
};

}  // namespace simulator
