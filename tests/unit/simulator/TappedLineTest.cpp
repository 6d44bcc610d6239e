#include "simulator/Tap.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "simulator/FileDescriptor.h"
#include "simulator/Pty.h"
#include "tests/support/WaitFor.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;
using support::WaitFor;

class MasterTtyTest : public testing::Test {
protected:
    termios Settings() const {
        termios settings{};
        tcgetattr(other.Get(), &settings);
        return settings;
    }

    bool IsExclusive() const {
        int exclusive = 0;
        ioctl(other.Get(), TIOCGEXCL, &exclusive);
        return exclusive != 0;
    }

    static std::string ErrorFor(const std::string& path) {
        try {
            const MasterTty tty(path);
        } catch (const std::system_error& error) {
            return error.what();
        }
        return "none";
    }

    Pty device;
    FileDescriptor other = device.OpenTty();
};

TEST_F(MasterTtyTest, IsRawAndExclusiveAndRestoresTheSettings) {
    const termios before = Settings();
    ASSERT_NE(before.c_lflag & ICANON, 0U);
    {
        const MasterTty tty(device.NodePath());
        const termios settings = Settings();
        EXPECT_EQ(settings.c_lflag & (ICANON | ECHO | ISIG | IEXTEN), 0U);
        EXPECT_EQ(settings.c_iflag & (ICRNL | IXON | ISTRIP), 0U);
        EXPECT_EQ(settings.c_oflag & OPOST, 0U);
        EXPECT_EQ(cfgetospeed(&settings), B115200);
        EXPECT_TRUE(IsExclusive());
        EXPECT_NE(fcntl(tty.Descriptor(), F_GETFL) & O_NONBLOCK, 0);
    }
    EXPECT_FALSE(IsExclusive());
    const termios after = Settings();
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before));
}

TEST_F(MasterTtyTest, ReportsATtyThatCannotBeTapped) {
    EXPECT_EQ(ErrorFor("/dev/none"), "cannot tap /dev/none: No such file or directory");
    EXPECT_EQ(ErrorFor("/dev/null"), "cannot tap /dev/null: Inappropriate ioctl for device");
}

TEST_F(MasterTtyTest, RejectsASecondTap) {
    {
        const MasterTty tty(device.NodePath());
        EXPECT_EQ(ErrorFor(device.NodePath()),
                  "cannot tap " + device.NodePath() + ": Device or resource busy");
        EXPECT_TRUE(IsExclusive());
    }
    EXPECT_EQ(ErrorFor(device.NodePath()), "none");
}

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_NONBLOCK), 0);
        readEnd = FileDescriptor(ends[0]);
        writeEnd = FileDescriptor(ends[1]);
    }

    std::string Read() const {
        std::string all;
        std::array<char, 4096> buffer{};
        for (ssize_t count = 1; count > 0;) {
            count = read(readEnd.Get(), buffer.data(), buffer.size());
            all.append(buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
        }
        return all;
    }

    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

class ByteFlowTest : public testing::Test {
protected:
    Pipe source;
    Pipe sink;
    ByteFlow flow;
};

TEST_F(ByteFlowTest, CopiesBetweenDescriptors) {
    ASSERT_EQ(write(source.writeEnd.Get(), "a\0b", 3), 3);
    EXPECT_EQ(flow.Fill(source.readEnd.Get()), std::string_view("a\0b", 3));
    EXPECT_TRUE(flow.IsWaiting());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_FALSE(flow.IsWaiting());
    EXPECT_EQ(sink.Read(), std::string("a\0b", 3));
}

TEST_F(ByteFlowTest, HasNothingToDoWithoutInput) {
    EXPECT_EQ(flow.Fill(source.readEnd.Get()), "");
    EXPECT_FALSE(flow.IsWaiting());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_EQ(sink.Read(), "");
}

TEST_F(ByteFlowTest, KeepsTheRestUntilThereIsRoom) {
    const int capacity = fcntl(sink.writeEnd.Get(), F_SETPIPE_SZ, 4096);
    ASSERT_EQ(capacity, 4096);
    const std::string first(4095, 'x');
    ASSERT_EQ(write(sink.writeEnd.Get(), first.data(), first.size()), 4095);
    ASSERT_EQ(write(source.writeEnd.Get(), "abc", 3), 3);
    flow.Fill(source.readEnd.Get());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_TRUE(flow.IsWaiting());
    std::string all = sink.Read();
    flow.Drain(sink.writeEnd.Get());
    EXPECT_FALSE(flow.IsWaiting());
    EXPECT_EQ(all + sink.Read(), first + "abc");
}

TEST_F(ByteFlowTest, DropsWaitingBytes) {
    ASSERT_EQ(write(source.writeEnd.Get(), "abc", 3), 3);
    flow.Fill(source.readEnd.Get());
    flow.Drop();
    EXPECT_FALSE(flow.IsWaiting());
    flow.Drain(sink.writeEnd.Get());
    EXPECT_EQ(sink.Read(), "");
}

std::string BytesOfAllValues() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// A line with a master and clients, all non-blocking.
class TappedLineTest : public testing::Test {
protected:
    TappedLineTest() { Tap(); }

    void Tap() {
        line = std::make_unique<TappedLine>(
            master->NodePath(), [this](RecordedKind kind, std::string_view bytes, TimePoint) {
                (kind == RecordedKind::ToMaster ? recordedToMaster : recordedFromMaster) += bytes;
            });
    }

    FileDescriptor OpenClient() const {
        FileDescriptor client(open(line->NodePath().c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
        EXPECT_NE(client.Get(), -1);
        return client;
    }

    bool PassOn() const { return line->PassOn(-1, milliseconds(1)); }

    /// Passes bytes on until `condition` holds. @return false after a timeout
    bool PassOnUntil(const std::function<bool()>& condition) const {
        return WaitFor([this, &condition] { return PassOn() && condition(); });
    }

    static std::string ReadAvailable(int descriptor) {
        std::array<char, 4096> buffer{};
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U};
    }

    /// Passes bytes on until `size` bytes have arrived at `descriptor`. @return these
    std::string Receive(int descriptor, std::size_t size) const {
        std::string all;
        EXPECT_TRUE(PassOnUntil([descriptor, size, &all] {
            all += ReadAvailable(descriptor);
            return all.size() >= size;
        })) << "after "
            << all.size() << " bytes";
        return all;
    }

    /// Continues to write LongText() as far as there is room.
    /// @param written number of bytes written before
    /// @return the new number
    static std::size_t WriteMore(int descriptor, std::size_t written) {
        const std::string text = LongText().substr(written);
        const ssize_t count = write(descriptor, text.data(), text.size());
        return written + (count > 0 ? static_cast<std::size_t>(count) : 0U);
    }

    static const std::string& LongText() {
        static const std::string kText = [] {
            std::string text;
            for (int number = 0; text.size() < 300000; ++number) {
                text += std::to_string(number) + "\n";
            }
            return text;
        }();
        return kText;
    }

    static bool HasRoom(const FileDescriptor& tty) {
        pollfd entry{tty.Get(), POLLOUT, 0};
        return poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0;
    }

    void StallMaster(bool on) const {
        ASSERT_EQ(ioctl(masterTty.Get(), TCXONC, on ? TCOOFF : TCOON), 0);
    }

    std::unique_ptr<Pty> master = std::make_unique<Pty>();
    FileDescriptor masterTty = master->OpenTty();
    std::string recordedToMaster;
    std::string recordedFromMaster;
    std::unique_ptr<TappedLine> line;
};

TEST_F(TappedLineTest, PassesAllBytesBothWaysUnchanged) {
    const FileDescriptor client = OpenClient();
    const std::string bytes = BytesOfAllValues();
    ASSERT_EQ(write(client.Get(), bytes.data(), bytes.size()), 256);
    EXPECT_EQ(Receive(master->Descriptor(), bytes.size()), bytes);
    ASSERT_EQ(write(master->Descriptor(), bytes.data(), bytes.size()), 256);
    EXPECT_EQ(Receive(client.Get(), bytes.size()), bytes);
    EXPECT_EQ(recordedToMaster, bytes);
    EXPECT_EQ(recordedFromMaster, bytes);
}

TEST_F(TappedLineTest, DoesNotEchoWithoutAClient) {
    ASSERT_EQ(write(master->Descriptor(), "abc\n", 4), 4);
    ASSERT_TRUE(PassOnUntil([this] { return recordedFromMaster == "abc\n"; }));
    PassOn();
    EXPECT_EQ(ReadAvailable(master->Descriptor()), "");
    EXPECT_EQ(recordedToMaster, "");
}

TEST_F(TappedLineTest, RecordsAndDropsBytesFromTheMasterWithoutAClient) {
    ASSERT_EQ(write(master->Descriptor(), "lost", 4), 4);
    ASSERT_TRUE(PassOnUntil([this] { return recordedFromMaster == "lost"; }));
    const FileDescriptor client = OpenClient();
    ASSERT_EQ(write(client.Get(), "?", 1), 1);
    EXPECT_EQ(Receive(master->Descriptor(), 1), "?");
    ASSERT_EQ(write(master->Descriptor(), "heard", 5), 5);
    EXPECT_EQ(Receive(client.Get(), 5), "heard");
}

TEST_F(TappedLineTest, PassesOnBytesOfAClosedClient) {
    FileDescriptor client = OpenClient();
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    client.Close();
    EXPECT_EQ(Receive(master->Descriptor(), 4), "ID?\n");
}

TEST_F(TappedLineTest, AcceptsClientsOneAfterTheOther) {
    for (int round = 0; round < 3; ++round) {
        const FileDescriptor client = OpenClient();
        ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
        EXPECT_EQ(Receive(master->Descriptor(), 4), "ID?\n");
        ASSERT_EQ(write(master->Descriptor(), "FIN ID\n", 7), 7);
        EXPECT_EQ(Receive(client.Get(), 7), "FIN ID\n");
    }
}

TEST_F(TappedLineTest, LosesNothingWhileTheClientDoesNotRead) {
    const FileDescriptor client = OpenClient();
    std::size_t written = 0;
    int fullRounds = 0;
    ASSERT_TRUE(PassOnUntil([this, &written, &fullRounds] {
        const std::size_t before = std::exchange(written, WriteMore(master->Descriptor(), written));
        fullRounds = written == before ? fullRounds + 1 : 0;
        return fullRounds == 20;
    })) << "the master is never blocked";
    std::string received;
    ASSERT_TRUE(PassOnUntil([this, &client, &written, &received] {
        written = WriteMore(master->Descriptor(), written);
        received += ReadAvailable(client.Get());
        return received.size() >= LongText().size();
    }));
    EXPECT_EQ(received, LongText());
    EXPECT_EQ(recordedFromMaster, LongText());
}

TEST_F(TappedLineTest, BlocksTheClientWhileTheMasterIsStalled) {
    const FileDescriptor client = OpenClient();
    StallMaster(true);
    std::size_t written = WriteMore(client.Get(), 0);
    ASSERT_TRUE(PassOnUntil([&client] { return !HasRoom(client); }));
    std::string received;
    StallMaster(false);
    ASSERT_TRUE(PassOnUntil([this, &client, &written, &received] {
        written = WriteMore(client.Get(), written);
        received += ReadAvailable(master->Descriptor());
        return received.size() >= LongText().size();
    }));
    EXPECT_EQ(received, LongText());
    EXPECT_EQ(recordedToMaster, LongText());
}

TEST_F(TappedLineTest, OnePendingRequestBlocksTheClient) {
    const FileDescriptor client = OpenClient();
    StallMaster(true);
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    ASSERT_TRUE(PassOnUntil([&client] { return !HasRoom(client); }));
    StallMaster(false);
    EXPECT_TRUE(PassOnUntil([&client] { return HasRoom(client); }));
    EXPECT_EQ(Receive(master->Descriptor(), 4), "ID?\n");
}

TEST_F(TappedLineTest, PassesOnBytesFromAStalledMaster) {
    const FileDescriptor client = OpenClient();
    StallMaster(true);
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    ASSERT_TRUE(PassOnUntil([&client] { return !HasRoom(client); }));
    ASSERT_EQ(write(master->Descriptor(), "@MODE=5\n", 8), 8);
    EXPECT_EQ(Receive(client.Get(), 8), "@MODE=5\n");
}

TEST_F(TappedLineTest, EndsWhenTheMasterHangsUp) {
    const FileDescriptor client = OpenClient();
    EXPECT_TRUE(PassOn());
    master.reset();
    EXPECT_FALSE(PassOn());
    line.reset();
    std::array<char, 8> buffer{};
    EXPECT_EQ(read(client.Get(), buffer.data(), buffer.size()), 0);
    EXPECT_EQ(write(client.Get(), "x", 1), -1);
}

TEST_F(TappedLineTest, FinishPassesOnBytesFromTheClient) {
    FileDescriptor client = OpenClient();
    const std::string text = LongText().substr(0, 10000);
    ASSERT_EQ(write(client.Get(), text.data(), text.size()), 10000);
    client.Close();
    line->Finish();
    std::string received;
    for (std::string more = ReadAvailable(master->Descriptor()); !more.empty();
         more = ReadAvailable(master->Descriptor())) {
        received += more;
    }
    EXPECT_EQ(received, text);
}

TEST_F(TappedLineTest, FinishPassesOnBytesFromTheMaster) {
    const FileDescriptor client = OpenClient();
    ASSERT_EQ(write(master->Descriptor(), "@MODE=5\n", 8), 8);
    pollfd arrival{masterTty.Get(), POLLIN, 0};
    ASSERT_EQ(poll(&arrival, 1, milliseconds(support::kPatience).count()), 1);
    line->Finish();
    EXPECT_EQ(recordedFromMaster, "@MODE=5\n");
    EXPECT_EQ(ReadAvailable(client.Get()), "@MODE=5\n");
}

TEST_F(TappedLineTest, FinishDoesNotWaitForAStalledMasterForever) {
    FileDescriptor client = OpenClient();
    StallMaster(true);
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    const auto time = support::Measure([this] { line->Finish(); });
    EXPECT_GE(time, milliseconds(1000));
    EXPECT_LT(time, support::kPatience);
}

}  // namespace
}  // namespace simulator
