#include "simulator/Tap.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <chrono>
#include <exception>
#include <utility>

namespace simulator {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kRetryPause{100};
constexpr milliseconds kLongestPoll{60000};

}  // namespace

Tap::Tap(Target initialTarget, RecordingWriter& recordingWriter, Tell tellFunction)
    : target(std::move(initialTarget)),
      writer(recordingWriter),
      tell(std::move(tellFunction)),
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
        } catch (const std::exception&) {  // not back yet, or udev still works on its node
            pollfd wake{wakeDescriptor.Get(), POLLIN, 0};
            poll(&wake, 1, static_cast<int>(kRetryPause.count()));
        }
    }
    if (line) {
        line->Finish();
    }
}

void Tap::Connect() {
    auto fresh = std::make_unique<TappedLine>(
        target.ttyPath, [this](RecordedKind kind, std::string_view bytes, TimePoint time) {
            writer.Write(target.number, kind, bytes, time);
        });
    const std::string number = std::to_string(target.number);
    if (target.devices != nullptr) {
        target.devices->Plug(target.number, fresh->NodePath());
        tell("tap: " + target.ttyPath + " is master " + number + ", /dev/ttyACM" + number +
             " for COMMAND");
    } else {
        tell("tap: " + target.ttyPath + " is master " + number + ", for clients " +
             fresh->NodePath());
    }
    writer.Write(target.number, RecordedKind::Plug, {}, Clock::now());
    line = std::move(fresh);
}

void Tap::Disconnect() {
    if (target.devices != nullptr) {
        target.devices->RemoveNode(target.number);
    }
    line.reset();
    writer.Write(target.number, RecordedKind::Unplug, {}, Clock::now());
    tell("tap: " + target.ttyPath + " has hung up; waiting for its return");
    if (target.devices != nullptr) {
        target.devices->Unplug(target.number);
    }
}

}  // namespace simulator
