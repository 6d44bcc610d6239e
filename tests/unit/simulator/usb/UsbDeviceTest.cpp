#include "simulator/usb/UsbDevice.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/unit/simulator/usb/Host.h"

namespace simulator {
namespace {

using host::Reply;
using Replies = std::vector<Reply>;
using std::chrono::milliseconds;

constexpr std::uint32_t kBulk = 1;
constexpr std::uint32_t kInterrupt = 2;
constexpr int kStall = -32;
constexpr int kProtocolError = -71;
constexpr int kUnlinked = -104;

class UsbDeviceTest : public testing::Test {
protected:
    void Receive(const std::string& bytes) {
        for (const auto& message : reader.Add(bytes)) {
            device.Handle(message, now);
        }
    }

    Replies InReplies() { return host::ReadReplies(device.TakeReplies(now), true); }
    Replies OutReplies() { return host::ReadReplies(device.TakeReplies(now), false); }

    static Reply Data(std::uint32_t sequence, const std::string& data) {
        return {host::kSubmitReply, sequence, 0, static_cast<std::uint32_t>(data.size()), data};
    }

    /// A program opens the tty.
    void Open() {
        Receive(host::ControlTransfer(99, std::string("\x21\x22\x03\0\0\0\0\0", 8)));
        ASSERT_EQ(OutReplies().size(), 1U);
    }

    static std::string GetConfiguration(std::uint32_t sequence) {
        return host::ControlTransfer(sequence, std::string("\x80\x08\0\0\0\0\x01\0", 8));
    }

    const TimePoint now{std::chrono::seconds(100)};
    UsbFaults faults;
    UsbDevice device{faults};
    usbip::MessageReader reader;
};

TEST_F(UsbDeviceTest, SendsTextWhenTheHostAsksForIt) {
    device.Send("FIN ID\n");
    EXPECT_EQ(InReplies(), Replies());
    Receive(host::InTransfer(1, kBulk, 128));
    EXPECT_EQ(InReplies(), Replies{Data(1, "FIN ID\n")});
    Receive(host::InTransfer(2, kBulk, 128));
    EXPECT_EQ(InReplies(), Replies());
    device.Send("x");
    EXPECT_EQ(InReplies(), Replies{Data(2, "x")});
}

TEST_F(UsbDeviceTest, SplitsTextByTheRoomOfTheTransfers) {
    device.Send("abcdefgh");
    Receive(host::InTransfer(1, kBulk, 3) + host::InTransfer(2, kBulk, 3));
    EXPECT_EQ(InReplies(), (Replies{Data(1, "abc"), Data(2, "def")}));
    Receive(host::InTransfer(3, kBulk, 3));
    EXPECT_EQ(InReplies(), Replies{Data(3, "gh")});
}

TEST_F(UsbDeviceTest, DropsTextsThatNobodyReads) {
    for (int count = 0; count < 10; ++count) {
        device.Send(std::string(20, static_cast<char>('0' + count)));
    }
    Receive(host::InTransfer(1, kBulk, 4096));
    const Replies replies = InReplies();
    ASSERT_EQ(replies.size(), 1U);
    EXPECT_EQ(replies[0].length, 120U) << "whole texts up to 128 bytes while the tty is closed";
    EXPECT_EQ(replies[0].data.back(), '5');
}

TEST_F(UsbDeviceTest, KeepsFourKibibytesForAnOpenTty) {
    Open();
    device.Send(std::string(4096, 'x'));
    device.Send("y");
    Receive(host::InTransfer(1, kBulk, 5000));
    EXPECT_EQ(InReplies(), Replies{Data(1, std::string(4096, 'x'))});
}

TEST_F(UsbDeviceTest, TakesWhatTheClientSends) {
    Receive(host::OutTransfer(1, kBulk, "ID?") + host::OutTransfer(2, kBulk, "\n"));
    EXPECT_EQ(device.TakeReceived(), "ID?\n");
    EXPECT_EQ(device.TakeReceived(), "");
    EXPECT_EQ(OutReplies(),
              (Replies{{host::kSubmitReply, 1, 0, 3, ""}, {host::kSubmitReply, 2, 0, 1, ""}}));
}

TEST_F(UsbDeviceTest, AHungDeviceTakesNothing) {
    device.SetStalled(true);
    Receive(host::OutTransfer(1, kBulk, "ID?\n"));
    EXPECT_EQ(OutReplies(), Replies());
    EXPECT_EQ(device.TakeReceived(), "");
    device.SetStalled(false);
    EXPECT_EQ(device.TakeReceived(), "ID?\n");
    EXPECT_EQ(OutReplies().size(), 1U);
}

TEST_F(UsbDeviceTest, TheHostTakesBackWhatIsNotAnswered) {
    Receive(host::InTransfer(1, kBulk, 128) + host::InTransfer(2, kInterrupt, 8) +
            host::Unlink(3, 1) + host::Unlink(4, 2) + host::Unlink(5, 1));
    EXPECT_EQ(OutReplies(), (Replies{{host::kUnlinkReply, 3, kUnlinked, 0, ""},
                                     {host::kUnlinkReply, 4, kUnlinked, 0, ""},
                                     {host::kUnlinkReply, 5, 0, 0, ""}}));
    device.Send("x");
    EXPECT_EQ(InReplies(), Replies());
}

TEST_F(UsbDeviceTest, TheHostTakesBackWhatAHungDeviceDoesNotTake) {
    device.SetStalled(true);
    Receive(host::OutTransfer(1, kBulk, "ID?\n") + host::Unlink(2, 1));
    EXPECT_EQ(OutReplies(), (Replies{{host::kUnlinkReply, 2, kUnlinked, 0, ""}}));
    device.SetStalled(false);
    EXPECT_EQ(device.TakeReceived(), "");
}

TEST_F(UsbDeviceTest, HasNoOtherEndpoints) {
    Receive(host::OutTransfer(1, kInterrupt, "x") + host::OutTransfer(2, 7, "x"));
    EXPECT_EQ(OutReplies(), (Replies{{host::kSubmitReply, 1, kStall, 0, ""},
                                     {host::kSubmitReply, 2, kStall, 0, ""}}));
}

TEST_F(UsbDeviceTest, ControlRequestsAreRefused) {
    faults.control = UsbFaults::Control::Refuse;
    Receive(GetConfiguration(1));
    EXPECT_EQ(InReplies(), (Replies{{host::kSubmitReply, 1, kStall, 0, ""}}));
    EXPECT_EQ(faults.counts.refusedControls, 1U);
}

TEST_F(UsbDeviceTest, ControlRequestsAreIgnoredUntilTheHostGivesUp) {
    faults.control = UsbFaults::Control::Ignore;
    Receive(GetConfiguration(1));
    EXPECT_EQ(InReplies(), Replies());
    EXPECT_EQ(faults.counts.ignoredControls, 1U);
    EXPECT_EQ(device.NextDue(), std::nullopt);
    Receive(host::Unlink(2, 1));
    EXPECT_EQ(InReplies(), (Replies{{host::kUnlinkReply, 2, kUnlinked, 0, ""}}));
}

TEST_F(UsbDeviceTest, ControlRequestsAreAnsweredLate) {
    faults.controlDelay = milliseconds(300);
    Receive(GetConfiguration(1));
    EXPECT_EQ(InReplies(), Replies());
    EXPECT_EQ(device.NextDue(), now + milliseconds(300));
    EXPECT_EQ(device.TakeReplies(now + milliseconds(299)), "");
    EXPECT_EQ(host::ReadReplies(device.TakeReplies(now + milliseconds(300)), true),
              Replies{Data(1, std::string(1, '\0'))});
    EXPECT_EQ(device.NextDue(), std::nullopt);
    EXPECT_EQ(faults.counts.lateControls, 1U);
}

TEST_F(UsbDeviceTest, AHaltLastsUntilTheHostClearsIt) {
    faults.haltedIn = true;
    device.Send("x");
    Receive(host::InTransfer(1, kBulk, 128));
    EXPECT_EQ(InReplies(), (Replies{{host::kSubmitReply, 1, kStall, 0, ""}}));
    Receive(host::ControlTransfer(2, std::string("\x02\x01\0\0\x81\0\0\0", 8)));
    OutReplies();
    Receive(host::InTransfer(3, kBulk, 128));
    EXPECT_EQ(InReplies(), Replies{Data(3, "x")});
    EXPECT_EQ(faults.counts.haltedTransfers, 1U);
    EXPECT_EQ(faults.counts.clearedHalts, 1U);
}

TEST_F(UsbDeviceTest, AHaltLosesWhatTheClientSends) {
    faults.haltedOut = true;
    Receive(host::OutTransfer(1, kBulk, "ID?\n"));
    EXPECT_EQ(device.TakeReceived(), "");
    EXPECT_EQ(OutReplies(), (Replies{{host::kSubmitReply, 1, kStall, 0, ""}}));
    EXPECT_EQ(faults.counts.haltedTransfers, 1U);
}

TEST_F(UsbDeviceTest, TransfersAreCut) {
    faults.longestTransfer = 2;
    device.Send("abc");
    Receive(host::InTransfer(1, kBulk, 128) + host::InTransfer(2, kBulk, 128));
    EXPECT_EQ(InReplies(), (Replies{Data(1, "ab"), Data(2, "c")}));
    EXPECT_EQ(faults.counts.cutTransfers, 1U) << "the second transfer has all that is left";
}

TEST_F(UsbDeviceTest, ABurstOfTransfersFails) {
    faults.failingTransfers = 2;
    Receive(host::InTransfer(1, kBulk, 128) + host::InTransfer(2, kBulk, 128) +
            host::InTransfer(3, kBulk, 128));
    device.Send("x");
    EXPECT_EQ(InReplies(), (Replies{{host::kSubmitReply, 1, kProtocolError, 0, ""},
                                    {host::kSubmitReply, 2, kProtocolError, 0, ""},
                                    Data(3, "x")}));
    faults.failingTransfers = 1;
    Receive(host::OutTransfer(4, kBulk, "lost") + host::OutTransfer(5, kBulk, "taken"));
    EXPECT_EQ(device.TakeReceived(), "taken");
    EXPECT_EQ(faults.counts.failedTransfers, 3U);
}

TEST_F(UsbDeviceTest, TooManyTransfersAreAnError) {
    for (std::uint32_t sequence = 1; sequence <= 1024; ++sequence) {
        Receive(host::InTransfer(sequence, kBulk, 128));
    }
    EXPECT_THROW(Receive(host::InTransfer(1025, kBulk, 128)), usbip::ProtocolError);
}

TEST_F(UsbDeviceTest, TooManyControlRequestsAreAnError) {
    faults.controlDelay = milliseconds(1);
    for (std::uint32_t sequence = 1; sequence <= 1024; ++sequence) {
        Receive(GetConfiguration(sequence));
    }
    EXPECT_THROW(Receive(GetConfiguration(1025)), usbip::ProtocolError);
}

}  // namespace
}  // namespace simulator
