#include "simulator/Cell.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <utility>

namespace simulator {

Cell::Cell(std::vector<Station> initialStations)
    : stations(std::move(initialStations)),
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
    // Here and not in the future: the cell's thread would free the exception while it is read.
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

/// Sleeps until somebody wrote to a tty, a text is due, or there is work to run.
void Cell::Wait() {
    pollSet.assign(1, pollfd{wakeDescriptor.Get(), POLLIN, 0});
    std::optional<TimePoint> due;
    for (const Station& station : stations) {
        if (!station.port) {
            continue;
        }
        const auto stationDue = station.master->NextDue();
        if (stationDue) {
            due = due ? std::min(*due, *stationDue) : *stationDue;
        }
        const int events =
            (station.port->IsStalled() ? 0 : POLLIN) | (station.port->WaitsForRoom() ? POLLOUT : 0);
        pollSet.push_back({station.port->Descriptor(), static_cast<short>(events), 0});
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

/// Takes in what the other side wrote, and sends what is due.
void Cell::Serve(Station& station, TimePoint now) {
    if (!station.port) {
        return;
    }
    if (!station.port->IsStalled()) {
        station.master->Receive(station.port->Read(), now);
    }
    for (std::string text = station.master->NextText(now); !text.empty();
         text = station.master->NextText(now)) {
        station.port->Send(text);
    }
    if (station.port->WaitsForRoom()) {
        station.port->Flush();
    }
}

}  // namespace simulator
