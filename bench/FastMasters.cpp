#include "bench/FastMasters.h"

#include <sys/timerfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <system_error>

namespace bench {

namespace {

/// With it, what epoll hands back is the number of a master, without it a descriptor.
constexpr std::uint64_t kMasterMark = std::uint64_t{1} << 32;

/// @throws std::system_error for -1
int Checked(int result, const char* what) {
    if (result == -1) {
        throw std::system_error(errno, std::generic_category(), what);
    }
    return result;
}

}  // namespace

FastMasters::FastMasters(std::size_t count, SharedTime* ownFinTime)
    : finTime(ownFinTime),
      places(count),
      epoll(Checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")),
      timer(
          Checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create")) {
    Watch(timer.Get());
}

FastMasters::Place& FastMasters::PlaceOf(std::size_t number) {
    if (number >= places.size()) {
        throw std::runtime_error("there is no such master");
    }
    return places[number];
}

const std::string& FastMasters::Plug(std::size_t number) {
    Place& place = PlaceOf(number);
    if (place.master) {
        throw std::runtime_error("the master is plugged in already");
    }
    place.master.emplace(static_cast<unsigned>(number), linesSent, finTime);
    place.events = 0;
    Control(EPOLL_CTL_ADD, place.master->Descriptor(), place.events, kMasterMark | number);
    UpdateEvents(number);
    return place.master->NodePath();
}

void FastMasters::Unplug(std::size_t number) {
    Place& place = PlaceOf(number);
    if (!place.master) {
        throw std::runtime_error("the master is not plugged in");
    }
    place.master.reset();
}

void FastMasters::SetRate(StreamRate linesPerSecond) {
    rate = linesPerSecond;
    itimerspec ticks{};
    if (rate && *rate != 0) {
        const std::chrono::nanoseconds period =
            std::chrono::nanoseconds(std::chrono::seconds(1)) / *rate;
        ticks.it_interval.tv_sec = period / std::chrono::seconds(1);
        ticks.it_interval.tv_nsec = (period % std::chrono::seconds(1)).count();
        ticks.it_value = ticks.it_interval;
    }
    Checked(timerfd_settime(timer.Get(), 0, &ticks, nullptr), "timerfd_settime");
    for (std::size_t number = 0; number < places.size(); ++number) {
        if (places[number].master) {
            UpdateEvents(number);
        }
    }
}

bool FastMasters::Watch(int descriptor) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = static_cast<std::uint64_t>(descriptor);
    if (epoll_ctl(epoll.Get(), EPOLL_CTL_ADD, descriptor, &event) == 0) {
        return true;
    }
    if (errno != EPERM) {
        throw std::system_error(errno, std::generic_category(), "epoll_ctl");
    }
    return false;
}

void FastMasters::Unwatch(int descriptor) {
    epoll_ctl(epoll.Get(), EPOLL_CTL_DEL, descriptor, nullptr);
}

int FastMasters::Serve() {
    while (true) {
        const int count = epoll_wait(epoll.Get(), ready.data(), static_cast<int>(ready.size()), -1);
        std::optional<int> watched;
        for (int index = 0; index < count; ++index) {
            const epoll_event& event = ready[static_cast<std::size_t>(index)];
            if ((event.data.u64 & kMasterMark) != 0) {
                ServeMaster(event.data.u64 & ~kMasterMark, event.events);
            } else if (static_cast<int>(event.data.u64) == timer.Get()) {
                Tick();
            } else {
                watched = static_cast<int>(event.data.u64);
            }
        }
        if (watched) {
            return *watched;
        }
    }
}

void FastMasters::ServeMaster(std::size_t number, std::uint32_t events) {
    FastMaster& master = *places[number].master;
    if ((events & EPOLLIN) != 0) {
        master.Receive();
    }
    if ((events & EPOLLOUT) != 0) {
        if (master.WaitsForRoom()) {
            master.Flush();
        }
        if (!rate) {
            master.Stream(FastMaster::kLinesPerWrite);
        }
    }
    UpdateEvents(number);
}

/// Ticks that were missed are made up for, so that the rate is what was asked for.
void FastMasters::Tick() {
    std::uint64_t ticks = 0;
    if (read(timer.Get(), &ticks, sizeof ticks) != sizeof ticks) {
        return;
    }
    for (Place& place : places) {
        if (place.master) {
            place.master->Stream(ticks);
        }
    }
}

void FastMasters::UpdateEvents(std::size_t number) {
    Place& place = places[number];
    const bool sends = !rate || place.master->WaitsForRoom();
    const std::uint32_t events = sends ? EPOLLIN | EPOLLOUT : EPOLLIN;
    if (events != place.events) {
        place.events = events;
        Control(EPOLL_CTL_MOD, place.master->Descriptor(), events, kMasterMark | number);
    }
}

void FastMasters::Control(int operation, int descriptor, std::uint32_t events, std::uint64_t mark) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = mark;
    Checked(epoll_ctl(epoll.Get(), operation, descriptor, &event), "epoll_ctl");
}

}  // namespace bench
