#include "simulator/TappedLine.h"

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
#include <utility>

#include "tests/support/WaitFor.h"

namespace simulator {
namespace {

using std::chrono::milliseconds;
using support::WaitFor;

std::string BytesOfAllValues() {
    std::string bytes;
    for (int value = 0; value < 256; ++value) {
        bytes += static_cast<char>(value);
    }
    return bytes;
}

/// A line, and both who speak over it. Nobody blocks.
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

    /// Passes on until `condition` holds. @return whether it did
    bool PassOnUntil(const std::function<bool()>& condition) const {
        return WaitFor([this, &condition] { return PassOn() && condition(); });
    }

    static std::string ReadWhatIsThere(int descriptor) {
        std::array<char, 4096> buffer{};
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U};
    }

    /// Passes on until so much has arrived at `descriptor`. @return it
    std::string Receive(int descriptor, std::size_t size) const {
        std::string all;
        EXPECT_TRUE(PassOnUntil([descriptor, size, &all] {
            all += ReadWhatIsThere(descriptor);
            return all.size() >= size;
        })) << "after "
            << all.size() << " bytes";
        return all;
    }

    /// Writes as much of a long text as there is room for; the text is the same at each call.
    /// @return how much has been written in all
    static std::size_t Pour(int descriptor, std::size_t written) {
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

TEST_F(TappedLineTest, BytesOfAllValuesGoBothWaysUnchanged) {
    const FileDescriptor client = OpenClient();
    const std::string bytes = BytesOfAllValues();
    ASSERT_EQ(write(client.Get(), bytes.data(), bytes.size()), 256);
    EXPECT_EQ(Receive(master->Descriptor(), bytes.size()), bytes);
    ASSERT_EQ(write(master->Descriptor(), bytes.data(), bytes.size()), 256);
    EXPECT_EQ(Receive(client.Get(), bytes.size()), bytes);
    EXPECT_EQ(recordedToMaster, bytes);
    EXPECT_EQ(recordedFromMaster, bytes);
}

TEST_F(TappedLineTest, NobodyIsThereToEcho) {
    ASSERT_EQ(write(master->Descriptor(), "abc\n", 4), 4);
    ASSERT_TRUE(PassOnUntil([this] { return recordedFromMaster == "abc\n"; }));
    PassOn();
    EXPECT_EQ(ReadWhatIsThere(master->Descriptor()), "");
    EXPECT_EQ(recordedToMaster, "");
}

TEST_F(TappedLineTest, WhatTheMasterSaysWithoutAClientIsRecordedAndLost) {
    ASSERT_EQ(write(master->Descriptor(), "lost", 4), 4);
    ASSERT_TRUE(PassOnUntil([this] { return recordedFromMaster == "lost"; }));
    const FileDescriptor client = OpenClient();
    ASSERT_EQ(write(client.Get(), "?", 1), 1);
    EXPECT_EQ(Receive(master->Descriptor(), 1), "?");
    ASSERT_EQ(write(master->Descriptor(), "heard", 5), 5);
    EXPECT_EQ(Receive(client.Get(), 5), "heard");
}

TEST_F(TappedLineTest, WhatAClientLeavesBehindArrives) {
    FileDescriptor client = OpenClient();
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    client.Close();
    EXPECT_EQ(Receive(master->Descriptor(), 4), "ID?\n");
}

TEST_F(TappedLineTest, ClientsComeAndGo) {
    for (int round = 0; round < 3; ++round) {
        const FileDescriptor client = OpenClient();
        ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
        EXPECT_EQ(Receive(master->Descriptor(), 4), "ID?\n");
        ASSERT_EQ(write(master->Descriptor(), "FIN ID\n", 7), 7);
        EXPECT_EQ(Receive(client.Get(), 7), "FIN ID\n");
    }
}

TEST_F(TappedLineTest, NothingIsLostWhileAClientDoesNotRead) {
    const FileDescriptor client = OpenClient();
    std::size_t written = 0;
    int fullRounds = 0;
    ASSERT_TRUE(PassOnUntil([this, &written, &fullRounds] {
        const std::size_t before = std::exchange(written, Pour(master->Descriptor(), written));
        fullRounds = written == before ? fullRounds + 1 : 0;
        return fullRounds == 20;
    })) << "the master finds room without end";
    std::string received;
    ASSERT_TRUE(PassOnUntil([this, &client, &written, &received] {
        written = Pour(master->Descriptor(), written);
        received += ReadWhatIsThere(client.Get());
        return received.size() >= LongText().size();
    }));
    EXPECT_EQ(received, LongText());
    EXPECT_EQ(recordedFromMaster, LongText());
}

TEST_F(TappedLineTest, AClientFindsNoRoomWhileTheMasterTakesNothing) {
    const FileDescriptor client = OpenClient();
    StallMaster(true);
    std::size_t written = Pour(client.Get(), 0);
    ASSERT_TRUE(PassOnUntil([&client] { return !HasRoom(client); }));
    std::string received;
    StallMaster(false);
    ASSERT_TRUE(PassOnUntil([this, &client, &written, &received] {
        written = Pour(client.Get(), written);
        received += ReadWhatIsThere(master->Descriptor());
        return received.size() >= LongText().size();
    }));
    EXPECT_EQ(received, LongText());
    EXPECT_EQ(recordedToMaster, LongText());
}

TEST_F(TappedLineTest, OneRequestThatIsNotTakenIsEnoughToFindNoRoom) {
    const FileDescriptor client = OpenClient();
    StallMaster(true);
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    ASSERT_TRUE(PassOnUntil([&client] { return !HasRoom(client); }));
    StallMaster(false);
    EXPECT_TRUE(PassOnUntil([&client] { return HasRoom(client); }));
    EXPECT_EQ(Receive(master->Descriptor(), 4), "ID?\n");
}

TEST_F(TappedLineTest, AStalledMasterIsHeardAllTheSame) {
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

TEST_F(TappedLineTest, FinishesWithWhatTheClientHasWritten) {
    FileDescriptor client = OpenClient();
    const std::string text = LongText().substr(0, 10000);
    ASSERT_EQ(write(client.Get(), text.data(), text.size()), 10000);
    client.Close();
    line->Finish();
    std::string received;
    for (std::string more = ReadWhatIsThere(master->Descriptor()); !more.empty();
         more = ReadWhatIsThere(master->Descriptor())) {
        received += more;
    }
    EXPECT_EQ(received, text);
}

TEST_F(TappedLineTest, FinishesWithWhatTheMasterHasSaid) {
    const FileDescriptor client = OpenClient();
    ASSERT_EQ(write(master->Descriptor(), "@MODE=5\n", 8), 8);
    pollfd arrival{masterTty.Get(), POLLIN, 0};
    ASSERT_EQ(poll(&arrival, 1, milliseconds(support::kPatience).count()), 1);
    line->Finish();
    EXPECT_EQ(recordedFromMaster, "@MODE=5\n");
    EXPECT_EQ(ReadWhatIsThere(client.Get()), "@MODE=5\n");
}

TEST_F(TappedLineTest, DoesNotWaitForeverForAStalledMasterToFinish) {
    FileDescriptor client = OpenClient();
    StallMaster(true);
    ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
    const auto time = support::Measure([this] { line->Finish(); });
    EXPECT_GE(time, milliseconds(1000));
    EXPECT_LT(time, support::kPatience);
}

}  // namespace
}  // namespace simulator
