#pragma once

#include <deque>
#include <optional>
#include <string>
#include <string_view>

#include "simulator/LineProtocol.h"
#include "simulator/usb/ControlEndpoint.h"
#include "simulator/usb/UsbFaults.h"
#include "simulator/usb/UsbIp.h"

namespace simulator {

/// The USB device of a master: answers the messages of the host with bytes for the host. Knows no
/// socket. Not thread-safe.
class UsbDevice {
public:
    /// `faults` outlives the device, which clears halts and counts failing transfers and other
    /// effects in it.
    explicit UsbDevice(UsbFaults& faults) : faults(faults), control(faults) {}

    /// @throws usbip::ProtocolError if the host has more than 1024 transfers waiting
    void Handle(const usbip::Message& message, TimePoint now);

    /// Sends text to the client. Up to 4096 bytes wait until the host asks for them, or 128 while
    /// no program has the tty open; a text that exceeds this limit is dropped.
    void Send(std::string_view text);

    /// While stalled, it takes nothing that the client sends.
    void SetStalled(bool on) { stalled = on; }
    bool IsStalled() const { return stalled; }

    /// @return what the client has sent
    std::string TakeReceived();

    /// @return the messages for the host that are due at `now`
    std::string TakeReplies(TimePoint now);

    /// When to call TakeReplies() again; nothing if only a message or a text makes it necessary.
    std::optional<TimePoint> NextDue() const;

private:
    using Submits = std::deque<usbip::Submit>;
    struct LateReply {
        TimePoint due;
        std::uint32_t sequence;
        std::string bytes;
    };

    void Start(const usbip::Submit& submit, TimePoint now);
    void HandleControl(const usbip::Submit& submit, TimePoint now);
    void Unlink(const usbip::Unlink& unlink);
    void AnswerInTransfers();
    void AnswerOutTransfers();
    bool TakeFailure();

    UsbFaults& faults;
    ControlEndpoint control;
    std::deque<LateReply> lateReplies;  // ordered by time
    Submits inTransfers;
    Submits outTransfers;
    Submits openTransfers;  // of the interrupt endpoint, and control requests without an answer
    std::string unsent;     // text for the client
    std::string received;
    std::string replies;
    bool stalled = false;
};

}  // namespace simulator
