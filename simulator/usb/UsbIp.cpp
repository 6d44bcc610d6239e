#include "simulator/usb/UsbIp.h"

#include <algorithm>
#include <optional>

namespace simulator::usbip {

namespace {

enum class Code : std::uint32_t { Submit = 1, Unlink = 2, SubmitReply = 3, UnlinkReply = 4 };

// Offsets in a header, in 32-bit words.
constexpr std::size_t kCode = 0;
constexpr std::size_t kSequence = 1;
constexpr std::size_t kDirection = 3;
constexpr std::size_t kEndpoint = 4;
constexpr std::size_t kUnlinkTarget = 5;
constexpr std::size_t kStatus = 5;
constexpr std::size_t kLength = 6;
constexpr std::size_t kPacketCount = 8;
constexpr std::size_t kSetup = 10;

constexpr std::uint32_t kNoPackets = 0xffffffff;  // as newer kernels say that there are none

std::uint32_t Word(std::string_view header, std::size_t position) {
    std::uint32_t word = 0;
    for (const char character : header.substr(4 * position, 4)) {
        word = word << 8U | static_cast<std::uint8_t>(character);
    }
    return word;
}

void PutWord(std::string& header, std::size_t position, std::uint32_t word) {
    for (std::size_t byte = 0; byte < 4; ++byte) {
        header[4 * position + byte] = static_cast<char>(word >> (24U - 8U * byte) & 0xffU);
    }
}

std::string Reply(Code code, std::uint32_t sequence, int status) {
    std::string header(kHeaderLength, '\0');
    PutWord(header, kCode, static_cast<std::uint32_t>(code));
    PutWord(header, kSequence, sequence);
    PutWord(header, kStatus, static_cast<std::uint32_t>(status));
    return header;
}

Submit ReadSubmit(std::string_view header) {
    Submit submit;
    submit.sequence = Word(header, kSequence);
    const std::uint32_t direction = Word(header, kDirection);
    submit.endpoint = Word(header, kEndpoint);
    submit.length = Word(header, kLength);
    const std::uint32_t packets = Word(header, kPacketCount);
    if (direction > 1) {
        throw ProtocolError("invalid direction " + std::to_string(direction));
    }
    if (submit.length > kLongestData) {
        throw ProtocolError("transfer of " + std::to_string(submit.length) + " bytes");
    }
    if (packets != 0 && packets != kNoPackets) {
        throw ProtocolError("isochronous transfer");
    }
    submit.direction = static_cast<Direction>(direction);
    const std::string_view setup = header.substr(4 * kSetup, submit.setup.size());
    std::ranges::copy(setup, submit.setup.begin());
    return submit;
}

/// Reads the message at the start of `bytes`. @return nothing if it is incomplete
std::optional<Message> ReadMessage(std::string_view bytes, std::size_t& length) {
    if (bytes.size() < kHeaderLength) {
        return std::nullopt;
    }
    length = kHeaderLength;
    const std::uint32_t code = Word(bytes, kCode);
    if (code == static_cast<std::uint32_t>(Code::Unlink)) {
        return Unlink{Word(bytes, kSequence), Word(bytes, kUnlinkTarget)};
    }
    if (code != static_cast<std::uint32_t>(Code::Submit)) {
        throw ProtocolError("unknown command " + std::to_string(code));
    }
    Submit submit = ReadSubmit(bytes.substr(0, kHeaderLength));
    if (submit.direction == Direction::Out) {
        length += submit.length;
        if (bytes.size() < length) {
            return std::nullopt;
        }
        submit.data = bytes.substr(kHeaderLength, submit.length);
    }
    return submit;
}

}  // namespace

std::vector<Message> MessageReader::Add(std::string_view bytes) {
    partialMessage += bytes;
    std::vector<Message> messages;
    std::size_t position = 0;
    std::size_t length = 0;
    while (auto message = ReadMessage(std::string_view(partialMessage).substr(position), length)) {
        messages.push_back(std::move(*message));
        position += length;
    }
    partialMessage.erase(0, position);
    return messages;
}

std::string SubmitReply(const Submit& submit, int status, std::string_view data) {
    std::string message = Reply(Code::SubmitReply, submit.sequence, status);
    if (submit.direction == Direction::In) {
        PutWord(message, kLength, static_cast<std::uint32_t>(data.size()));
        message += data;
    } else if (status == status::kOk) {
        PutWord(message, kLength, submit.length);
    }
    return message;
}

std::string UnlinkReply(const Unlink& unlink, int status) {
    return Reply(Code::UnlinkReply, unlink.sequence, status);
}

}  // namespace simulator::usbip
