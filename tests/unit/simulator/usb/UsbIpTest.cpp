#include "simulator/usb/UsbIp.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tests/unit/simulator/usb/Host.h"

namespace simulator::usbip {
namespace {

/// Bytes in hexadecimal, as in a trace of a kernel; blanks are ignored.
std::string FromHex(std::string text) {
    std::erase(text, ' ');
    std::string bytes;
    for (std::size_t position = 0; position + 1 < text.size(); position += 2) {
        bytes += static_cast<char>(std::stoi(text.substr(position, 2), nullptr, 16));
    }
    return bytes;
}

const std::string kZeros = FromHex(std::string(40, '0'));

TEST(UsbIpTest, ReadsAControlRequestByItsBytes) {
    MessageReader reader;
    const auto messages =
        reader.Add(FromHex("00000001 0000002a 00010002 00000001 00000000"  // basic header
                           "00000200 00000012 00000000 00000000 00000000"  // transfer
                           "80 06 00 01 00 00 12 00"));                    // setup
    ASSERT_EQ(messages.size(), 1U);
    const auto& submit = std::get<Submit>(messages[0]);
    EXPECT_EQ(submit.sequence, 0x2aU);
    EXPECT_EQ(submit.direction, Direction::In);
    EXPECT_EQ(submit.endpoint, 0U);
    EXPECT_EQ(submit.length, 0x12U);
    EXPECT_EQ(submit.setup, (std::array<std::uint8_t, 8>{0x80, 6, 0, 1, 0, 0, 0x12, 0}));
    EXPECT_EQ(submit.data, "");
}

TEST(UsbIpTest, ReadsATransferFromTheHostWithItsData) {
    MessageReader reader;
    const auto messages =
        reader.Add(FromHex("00000001 00000007 00010002 00000000 00000001"
                           "00000000 00000004 00000000 ffffffff 00000000"
                           "00 00 00 00 00 00 00 00"
                           "49 44 3f 0a"));
    ASSERT_EQ(messages.size(), 1U);
    const auto& submit = std::get<Submit>(messages[0]);
    EXPECT_EQ(submit.direction, Direction::Out);
    EXPECT_EQ(submit.endpoint, 1U);
    EXPECT_EQ(submit.data, "ID?\n");
}

TEST(UsbIpTest, ReadsAnUnlinkByItsBytes) {
    MessageReader reader;
    const auto messages =
        reader.Add(FromHex("00000002 00000009 00010002 00000000 00000000 00000007"
                           "00000000 00000000 00000000 00000000 00000000 00000000"));
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(std::get<Unlink>(messages[0]).sequence, 9U);
    EXPECT_EQ(std::get<Unlink>(messages[0]).target, 7U);
}

TEST(UsbIpTest, AssemblesMessagesThatArriveByteByByte) {
    const std::string bytes = host::OutTransfer(1, 1, "ID?\n") + host::InTransfer(2, 1, 128);
    MessageReader reader;
    std::vector<Message> messages;
    for (const char byte : bytes) {
        for (Message& message : reader.Add({&byte, 1})) {
            messages.push_back(std::move(message));
        }
    }
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(std::get<Submit>(messages[0]).data, "ID?\n");
    EXPECT_EQ(std::get<Submit>(messages[1]).length, 128U);
}

TEST(UsbIpTest, RejectsMessagesThatNoKernelSends) {
    const std::vector<std::string> cases{
        host::Header({0, 1, 1, 0, 1, 0, 4}),           // no command
        host::Header({3, 1, 1, 0, 1, 0, 4}),           // a reply
        host::Header({1, 1, 1, 2, 1, 0, 4}),           // direction
        host::Header({1, 1, 1, 0, 1, 0, 65537}),       // data
        host::Header({1, 1, 1, 1, 1, 0, 0xffffffff}),  // room
        host::Header({1, 1, 1, 1, 1, 0, 4, 0, 1}),     // isochronous
    };
    for (const std::string& bytes : cases) {
        MessageReader reader;
        EXPECT_THROW(reader.Add(bytes), ProtocolError) << bytes[3];
    }
}

TEST(UsbIpTest, WritesRepliesByTheirBytes) {
    Submit submit;
    submit.sequence = 0x2a;
    const std::string start = "00000003 0000002a 00000000 00000000 00000000";
    submit.length = 5;
    EXPECT_EQ(SubmitReply(submit, status::kOk), FromHex(start + "00000000 00000005") + kZeros);
    EXPECT_EQ(SubmitReply(submit, status::kStall), FromHex(start + "ffffffe0 00000000") + kZeros);
    submit.direction = Direction::In;
    EXPECT_EQ(SubmitReply(submit, status::kOk, "FIN"),
              FromHex(start + "00000000 00000003") + kZeros + "FIN");
    EXPECT_EQ(UnlinkReply({9, 7}, status::kUnlinked),
              FromHex("00000004 00000009 00000000 00000000 00000000 ffffff98 00000000") + kZeros);
}

}  // namespace
}  // namespace simulator::usbip
