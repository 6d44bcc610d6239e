#pragma once

#include <poll.h>

#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "simulator/FileDescriptor.h"
#include "simulator/Master.h"
#include "simulator/PtyPort.h"
#include "simulator/SimulatedMaster.h"

namespace simulator {

/// One place of the simulated cell: a master, and its tty while that exists.
struct Station {
    explicit Station(std::unique_ptr<Master> initialMaster)
        : master(std::move(initialMaster)),
          simulated(dynamic_cast<SimulatedMaster*>(master.get())) {}

    std::unique_ptr<Master> master;
    SimulatedMaster* simulated;     ///< the master, when it is one with a gripper; or null
    std::unique_ptr<PtyPort> port;  ///< null while unplugged
};

/// All stations and the one thread that they live on.
///
/// That thread waits for requests and for what is due next, so an answer leaves as soon as its
/// request is read. Everybody else reaches the stations through Call() only.
class Cell {
public:
    explicit Cell(std::vector<Station> initialStations);
    ~Cell();
    Cell(const Cell&) = delete;
    Cell& operator=(const Cell&) = delete;

    std::size_t Size() const { return stations.size(); }

    /// Runs `work` on the cell's thread, sends what came due by it, and waits for that; what it
    /// throws is thrown here.
    void Call(std::size_t number, const std::function<void(Station&)>& work);

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
