#include "simulator/usb/UsbDevice.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "simulator/usb/Descriptors.h"

namespace simulator {

using usbip::Direction;
using usbip::Submit;

namespace {

constexpr std::size_t kLimitWhileOpened = 4096;
constexpr std::size_t kLimitWhileClosed = 128;
constexpr std::size_t kLargestCount = 1024;  // of waiting transfers of a kind

void Append(std::deque<Submit>& transfers, const Submit& submit) {
    if (transfers.size() >= kLargestCount) {
        throw usbip::ProtocolError("too many transfers");
    }
    transfers.push_back(submit);
}

}  // namespace

void UsbDevice::Handle(const usbip::Message& message, TimePoint now) {
    if (const auto* const submit = std::get_if<Submit>(&message)) {
        Start(*submit, now);
    } else {
        Unlink(std::get<usbip::Unlink>(message));
    }
}

void UsbDevice::Start(const Submit& submit, TimePoint now) {
    const bool toHost = submit.direction == Direction::In;
    if (submit.endpoint == 0) {
        HandleControl(submit, now);
    } else if (submit.endpoint == descriptors::kBulkEndpoint) {
        Append(toHost ? inTransfers : outTransfers, submit);
    } else if (submit.endpoint == descriptors::kInterruptEndpoint && toHost) {
        Append(openTransfers, submit);
    } else {
        replies += usbip::SubmitReply(submit, usbip::status::kStall);
    }
}

void UsbDevice::HandleControl(const Submit& submit, TimePoint now) {
    if (faults.control == UsbFaults::Control::Ignore) {
        Append(openTransfers, submit);
        ++faults.counts.ignoredControls;
        return;
    }
    const bool refused = faults.control == UsbFaults::Control::Refuse;
    auto answer = refused ? std::nullopt : control.Answer(submit.setup, submit.data);
    faults.counts.refusedControls += refused ? 1 : 0;
    faults.counts.lateControls += faults.controlDelay.count() > 0 ? 1 : 0;
    if (answer && answer->size() > submit.length) {
        answer->resize(submit.length);
    }
    const int status = answer ? usbip::status::kOk : usbip::status::kStall;
    if (lateReplies.size() >= kLargestCount) {
        throw usbip::ProtocolError("too many control requests");
    }
    const TimePoint due = now + faults.controlDelay;
    const auto later = std::ranges::upper_bound(lateReplies, due, {}, &LateReply::due);
    lateReplies.insert(
        later, {due, submit.sequence, usbip::SubmitReply(submit, status, answer.value_or(""))});
}

void UsbDevice::Unlink(const usbip::Unlink& unlink) {
    const auto isTarget = [&unlink](const auto& each) { return each.sequence == unlink.target; };
    std::size_t count = std::erase_if(lateReplies, isTarget);
    for (Submits* const transfers : {&inTransfers, &outTransfers, &openTransfers}) {
        count += std::erase_if(*transfers, isTarget);
    }
    replies +=
        usbip::UnlinkReply(unlink, count == 0 ? usbip::status::kOk : usbip::status::kUnlinked);
}

void UsbDevice::Send(std::string_view text) {
    const std::size_t limit = control.IsOpened() ? kLimitWhileOpened : kLimitWhileClosed;
    if (unsent.size() + text.size() <= limit) {
        unsent += text;
    }
}

std::string UsbDevice::TakeReceived() {
    AnswerOutTransfers();
    return std::exchange(received, {});
}

std::string UsbDevice::TakeReplies(TimePoint now) {
    while (!lateReplies.empty() && lateReplies.front().due <= now) {
        replies += lateReplies.front().bytes;
        lateReplies.pop_front();
    }
    AnswerOutTransfers();
    AnswerInTransfers();
    return std::exchange(replies, {});
}

/// Counts down the transfers that are to fail.
bool UsbDevice::TakeFailure() {
    if (faults.failingTransfers == 0) {
        return false;
    }
    --faults.failingTransfers;
    ++faults.counts.failedTransfers;
    return true;
}

void UsbDevice::AnswerInTransfers() {
    while (!inTransfers.empty()) {
        const Submit& submit = inTransfers.front();
        if (faults.haltedIn) {
            ++faults.counts.haltedTransfers;
            replies += usbip::SubmitReply(submit, usbip::status::kStall);
        } else if (TakeFailure()) {
            replies += usbip::SubmitReply(submit, usbip::status::kProtocol);
        } else if (unsent.empty()) {
            return;
        } else {
            const std::size_t cut = faults.longestTransfer;
            const std::size_t room =
                cut == 0 ? submit.length : std::min<std::size_t>(submit.length, cut);
            faults.counts.cutTransfers +=
                room < std::min<std::size_t>(submit.length, unsent.size()) ? 1 : 0;
            replies += usbip::SubmitReply(submit, usbip::status::kOk, unsent.substr(0, room));
            unsent.erase(0, room);
        }
        inTransfers.pop_front();
    }
}

void UsbDevice::AnswerOutTransfers() {
    while (!outTransfers.empty()) {
        const Submit& submit = outTransfers.front();
        int status = usbip::status::kOk;
        if (faults.haltedOut) {
            ++faults.counts.haltedTransfers;
            status = usbip::status::kStall;
        } else if (stalled) {
            return;
        } else if (TakeFailure()) {
            status = usbip::status::kProtocol;
        } else {
            received += submit.data;
        }
        replies += usbip::SubmitReply(submit, status);
        outTransfers.pop_front();
    }
}

std::optional<TimePoint> UsbDevice::NextDue() const {
    return lateReplies.empty() ? std::nullopt : std::optional(lateReplies.front().due);
}

}  // namespace simulator
