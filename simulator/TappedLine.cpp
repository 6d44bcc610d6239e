#include "simulator/TappedLine.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>

#include <algorithm>
#include <array>
#include <utility>

namespace simulator {

namespace {

using std::chrono::milliseconds;

/// Nothing tells of a client that opens the pty; so often is looked for one.
constexpr milliseconds kClientSearchPeriod{20};

constexpr milliseconds kFinishTime{1000};

short EventsFor(const ByteFlow& fromHere, const ByteFlow& toHere) {
    return static_cast<short>((fromHere.IsWaiting() ? 0 : POLLIN) |
                              (toHere.IsWaiting() ? POLLOUT : 0));
}

}  // namespace

TappedLine::TappedLine(const std::string& ttyPath, Record recordFunction)
    : tty(ttyPath), record(std::move(recordFunction)) {
    pty.SetRaw();
}

/// Events of the pty as poll tells them; it is hung up while no client has it open.
short TappedLine::ClientState() const {
    pollfd entry{pty.Descriptor(), POLLIN, 0};
    poll(&entry, 1, 0);
    return entry.revents;
}

bool TappedLine::PassOn(int wakeDescriptor, milliseconds longestWait) {
    // Without a client the pty is always ready, which is worth no wait.
    std::array<pollfd, 3> pollSet{
        {{wakeDescriptor, POLLIN, 0},
         {tty.Descriptor(), EventsFor(toClient, toMaster), 0},
         {clientPresent ? pty.Descriptor() : -1, EventsFor(toMaster, toClient), 0}}};
    const auto wait = clientPresent ? longestWait : std::min(longestWait, kClientSearchPeriod);
    poll(pollSet.data(), pollSet.size(), static_cast<int>(wait.count()));
    const TimePoint now = Clock::now();
    const short client = ClientState();
    const short master = pollSet[1].revents;
    clientPresent = (client & POLLHUP) == 0;

    std::string_view asked;
    if ((client & POLLIN) != 0 && !toMaster.IsWaiting()) {
        asked = toMaster.Fill(pty.Descriptor());
    }
    toMaster.Drain(tty.Descriptor());
    SetStalled(toMaster.IsWaiting());

    std::string_view said;
    if ((master & POLLIN) != 0) {
        said = toClient.Fill(tty.Descriptor());
    }
    if (clientPresent) {
        toClient.Drain(pty.Descriptor());
    } else {
        toClient.Drop();
    }

    for (const auto& [kind, bytes] :
         {std::pair(RecordedKind::ToMaster, asked), std::pair(RecordedKind::FromMaster, said)}) {
        if (!bytes.empty()) {
            record(kind, bytes, now);
        }
    }
    return (master & (POLLHUP | POLLERR)) == 0;
}

/// The pty alone would have room for another 20 kB.
void TappedLine::SetStalled(bool on) {
    if (on == (stalledTty.Get() != -1)) {
        return;
    }
    if (on) {
        stalledTty = pty.OpenTty();
    }
    ioctl(stalledTty.Get(), TCXONC, on ? TCOOFF : TCOON);
    if (!on) {
        stalledTty.Close();
    }
}

void TappedLine::Finish() {
    const TimePoint end = Clock::now() + kFinishTime;
    bool present = true;
    do {
        present = PassOn(-1, kClientSearchPeriod);
    } while (present && (toMaster.IsWaiting() || (ClientState() & POLLIN) != 0) &&
             Clock::now() < end);
}

}  // namespace simulator
