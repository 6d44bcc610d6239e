#include "simulator/usb/UsbPort.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "tests/unit/simulator/usb/Host.h"

namespace simulator {
namespace {

class UsbPortTest : public testing::Test {
protected:
    void SetUp() override {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
        kernel = FileDescriptor(ends[0]);
        port.emplace(FileDescriptor(ends[1]), faults,
                     [this](const std::string& text) { printed.push_back(text); });
    }

    void Send(const std::string& bytes) const {
        ASSERT_EQ(send(kernel.Get(), bytes.data(), bytes.size(), 0),
                  static_cast<ssize_t>(bytes.size()));
    }

    std::string Receive() const {
        std::array<char, 65536> buffer{};
        const ssize_t count = recv(kernel.Get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U};
    }

    UsbFaults faults;
    FileDescriptor kernel;
    std::vector<std::string> printed;
    std::optional<UsbPort> port;
};

TEST_F(UsbPortTest, ConnectsAMasterWithTheKernel) {
    Send(host::OutTransfer(1, 1, "ID?\n") + host::InTransfer(2, 1, 128));
    EXPECT_EQ(port->Read(), "ID?\n");
    EXPECT_EQ(host::ReadReplies(Receive(), false),
              (std::vector<host::Reply>{{host::kSubmitReply, 1, 0, 4, ""}}));
    port->Send("FIN ID\n");
    EXPECT_EQ(host::ReadReplies(Receive(), true),
              (std::vector<host::Reply>{{host::kSubmitReply, 2, 0, 7, "FIN ID\n"}}));
    EXPECT_TRUE(port->IsConnected());
}

TEST_F(UsbPortTest, AnswersControlRequestsWhileStalled) {
    port->SetStalled(true);
    EXPECT_EQ(port->PollEvents(), POLLIN);
    Send(host::ControlTransfer(1, std::string("\x80\x08\0\0\0\0\x01\0", 8)));
    EXPECT_EQ(port->Read(), "");
    EXPECT_EQ(host::ReadReplies(Receive(), true).size(), 1U);
}

TEST_F(UsbPortTest, EndsWithTheKernelsConnection) {
    kernel.Close();
    EXPECT_EQ(port->Read(), "");
    EXPECT_FALSE(port->IsConnected());
}

TEST_F(UsbPortTest, EndsIfTheKernelTakesNoReply) {
    Send(host::OutTransfer(1, 1, "ID?\n"));
    kernel.Close();
    EXPECT_EQ(port->Read(), "ID?\n");
    EXPECT_EQ(port->Read(), "");
    EXPECT_FALSE(port->IsConnected());
    EXPECT_FALSE(port->WaitsForRoom());
}

TEST_F(UsbPortTest, EndsWithAnInvalidMessage) {
    Send(host::Header({9}));
    EXPECT_EQ(port->Read(), "");
    EXPECT_FALSE(port->IsConnected());
    ASSERT_EQ(printed.size(), 1U);
    EXPECT_NE(printed[0].find("unknown command 9"), std::string::npos);
}

TEST_F(UsbPortTest, EndsWithACutMessage) {
    Send(host::OutTransfer(1, 1, "ID?\n").substr(0, 50));
    EXPECT_EQ(port->Read(), "");
    EXPECT_TRUE(port->IsConnected());
    kernel.Close();
    EXPECT_EQ(port->Read(), "");
    EXPECT_FALSE(port->IsConnected());
}

TEST_F(UsbPortTest, ReadsNothingWhileTheKernelDoesNotRead) {
    const int size = 4096;
    ASSERT_EQ(setsockopt(kernel.Get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof size), 0);
    unsigned count = 0;
    while (!port->WaitsForRoom() && count < 100000) {
        Send(host::OutTransfer(1, 7, ""));
        port->Read();
        ++count;
    }
    ASSERT_TRUE(port->WaitsForRoom());
    EXPECT_EQ(port->PollEvents(), POLLOUT);
    Send(host::OutTransfer(1, 1, "ID?\n"));
    EXPECT_EQ(port->Read(), "");
    std::string all;
    for (std::string part = Receive(); !part.empty(); part = Receive()) {
        all += part;
        port->Flush();
    }
    EXPECT_EQ(all.size(), 48U * count);
    EXPECT_FALSE(port->WaitsForRoom());
    EXPECT_EQ(port->PollEvents(), POLLIN);
    EXPECT_EQ(port->Read(), "ID?\n");
}

}  // namespace
}  // namespace simulator
