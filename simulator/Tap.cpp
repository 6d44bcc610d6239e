#include "simulator/Tap.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

using std::chrono::milliseconds;

/// The kernel does not report that a client opens the pty, so this is polled.
constexpr milliseconds kClientSearchPeriod{20};

constexpr milliseconds kFinishTime{1000};
constexpr milliseconds kRetryPause{100};
constexpr milliseconds kLongestPoll{60000};

short EventsFor(const ByteFlow& fromHere, const ByteFlow& toHere) {
    return static_cast<short>((fromHere.IsWaiting() ? 0 : POLLIN) |
                              (toHere.IsWaiting() ? POLLOUT : 0));
}

}  // namespace

MasterTty::MasterTty(const std::string& path)
    : tty(Checked(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC),
                  "cannot tap " + path)) {
    Checked(tcgetattr(tty.Get(), &settingsBefore), "cannot tap " + path);
    // The kernel does not stop root, who would receive half of the master's bytes.
    if (int exclusive = 0; ioctl(tty.Get(), TIOCGEXCL, &exclusive) == 0 && exclusive != 0) {
        throw std::system_error(EBUSY, std::generic_category(), "cannot tap " + path);
    }
    ioctl(tty.Get(), TIOCEXCL);
    termios settings = settingsBefore;
    cfmakeraw(&settings);
    cfsetspeed(&settings, B115200);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    tcsetattr(tty.Get(), TCSANOW, &settings);
}

MasterTty::~MasterTty() {
    tcsetattr(tty.Get(), TCSANOW, &settingsBefore);
    ioctl(tty.Get(), TIOCNXCL);
}

std::string_view ByteFlow::Fill(int descriptor) {
    const ssize_t count = read(descriptor, buffer.data(), buffer.size());
    begin = 0;
    end = count > 0 ? static_cast<std::size_t>(count) : 0U;
    return {buffer.data(), end};
}

void ByteFlow::Drain(int descriptor) {
    while (IsWaiting()) {
        const ssize_t count = write(descriptor, &buffer[begin], end - begin);
        if (count <= 0) {
            return;
        }
        begin += static_cast<std::size_t>(count);
    }
}

TappedLine::TappedLine(const std::string& ttyPath, Record record)
    : tty(ttyPath), record(std::move(record)) {
    pty.SetRaw();
}

/// @return the pty's poll events; POLLHUP while no client has it open.
short TappedLine::ClientState() const {
    pollfd entry{pty.Descriptor(), POLLIN, 0};
    poll(&entry, 1, 0);
    return entry.revents;
}

bool TappedLine::PassOn(int wakeDescriptor, milliseconds longestWait) {
    // Without a client, poll would return at once for the pty.
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

    std::string_view sent;
    if ((client & POLLIN) != 0 && !toMaster.IsWaiting()) {
        sent = toMaster.Fill(pty.Descriptor());
    }
    toMaster.Drain(tty.Descriptor());
    SetStalled(toMaster.IsWaiting());

    std::string_view received;
    if ((master & POLLIN) != 0) {
        received = toClient.Fill(tty.Descriptor());
    }
    if (clientPresent) {
        toClient.Drain(pty.Descriptor());
    } else {
        toClient.Drop();
    }

    if (!sent.empty()) {
        record(RecordedKind::ToMaster, sent, now);
    }
    if (!received.empty()) {
        record(RecordedKind::FromMaster, received, now);
    }
    return (master & (POLLHUP | POLLERR)) == 0;
}

/// Blocks writes of the client; the pty would otherwise accept another 20 kB.
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

Tap::Tap(Target target, RecordingWriter& writer, Printer print)
    : target(std::move(target)),
      writer(writer),
      print(std::move(print)),
      wakeDescriptor(eventfd(0, EFD_CLOEXEC)) {
    Connect();
    thread = std::thread([this] { Run(); });
}

Tap::~Tap() {
    stopping = true;
    eventfd_write(wakeDescriptor.Get(), 1);
    thread.join();
}

void Tap::Run() {
    while (!stopping) {
        try {
            if (!line) {
                Connect();
            } else if (!line->PassOn(wakeDescriptor.Get(), kLongestPoll)) {
                Disconnect();
            }
        } catch (const std::exception&) {  // not back yet, or udev is still setting up the node
            pollfd wake{wakeDescriptor.Get(), POLLIN, 0};
            poll(&wake, 1, static_cast<int>(kRetryPause.count()));
        }
    }
    if (line) {
        line->Finish();
    }
}

void Tap::Connect() {
    auto connected = std::make_unique<TappedLine>(
        target.ttyPath, [this](RecordedKind kind, std::string_view bytes, TimePoint time) {
            writer.Write(target.number, kind, bytes, time);
        });
    const std::string number = std::to_string(target.number);
    if (target.testbed != nullptr) {
        target.testbed->Plug(target.number, connected->NodePath());
        print("tap: " + target.ttyPath + " is master " + number + ", /dev/ttyACM" + number +
              " for COMMAND");
    } else {
        print("tap: " + target.ttyPath + " is master " + number + ", for clients " +
              connected->NodePath());
    }
    writer.Write(target.number, RecordedKind::Plug, {}, Clock::now());
    line = std::move(connected);
}

void Tap::Disconnect() {
    if (target.testbed != nullptr) {
        target.testbed->RemoveNode(target.number);
    }
    line.reset();
    writer.Write(target.number, RecordedKind::Unplug, {}, Clock::now());
    print("tap: " + target.ttyPath + " has hung up; waiting for its return");
    if (target.testbed != nullptr) {
        target.testbed->Unplug(target.number);
    }
}

}  // namespace simulator
