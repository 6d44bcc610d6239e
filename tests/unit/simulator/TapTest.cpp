#include "simulator/Tap.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <system_error>
#include <vector>

#include "simulator/Pty.h"
#include "simulator/Recording.h"
#include "tests/support/WaitFor.h"
#include "tests/unit/simulator/UeventMonitor.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;
using support::WaitFor;

/// The tap opens the master through a link, because the numbers of ptys are reused.
class TapTest : public testing::Test {
protected:
    TapTest() { PlugIn(); }
    ~TapTest() override {
        tap.reset();
        fs::remove_all(folder);
    }

    void PlugIn() {
        master = std::make_unique<Pty>();
        fs::create_symlink(master->NodePath(), folder + "/ttyACM3");
    }

    void Unplug() {
        fs::remove(folder + "/ttyACM3");
        master.reset();
    }

    void Start(Testbed* devices) {
        tap = std::make_unique<Tap>(Tap::Target{2, folder + "/ttyACM3", devices}, writer,
                                    [this](const std::string& text) {
                                        const std::lock_guard lock(mutex);
                                        printed.push_back(text);
                                    });
    }

    std::vector<std::string> Printed() {
        const std::lock_guard lock(mutex);
        return printed;
    }

    /// The tty in the last message.
    std::string PrintedNode() {
        const std::string text = Printed().back();
        return text.substr(text.rfind(' ') + 1);
    }

    static FileDescriptor Open(const std::string& path) {
        return FileDescriptor(open(path.c_str(), O_RDWR | O_NOCTTY));
    }

    /// @return the next bytes from `descriptor`, empty if none arrive
    static std::string Receive(int descriptor) {
        pollfd entry{descriptor, POLLIN, 0};
        poll(&entry, 1, std::chrono::milliseconds(support::kPatience).count());
        std::array<char, 64> buffer{};
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0U};
    }

    /// Checks that bytes pass between the master and a client.
    void ExpectPassage(const FileDescriptor& client) const {
        ASSERT_EQ(write(client.Get(), "ID?\n", 4), 4);
        EXPECT_EQ(Receive(master->Descriptor()), "ID?\n");
        ASSERT_EQ(write(master->Descriptor(), "FIN ID\n", 7), 7);
        EXPECT_EQ(Receive(client.Get()), "FIN ID\n");
    }

    std::vector<RecordedKind> RecordedKinds() const {
        std::vector<RecordedKind> kinds;
        const Recording recording = ReadRecording(folder + "/tap.rec");
        for (const RecordedEvent& event : recording.masters.at(2)) {
            kinds.push_back(event.kind);
        }
        return kinds;
    }

    std::string folder{mkdtemp(std::string("/tmp/tap.XXXXXX").data())};
    std::unique_ptr<Pty> master;
    RecordingWriter writer{folder + "/tap.rec", [](const std::string& text) { FAIL() << text; }};
    std::mutex mutex;  // guards printed
    std::vector<std::string> printed;
    std::unique_ptr<Tap> tap;
};

TEST_F(TapTest, PrintsTheTtyForClients) {
    Start(nullptr);
    ASSERT_EQ(Printed().size(), 1U);
    EXPECT_TRUE(
        Printed()[0].starts_with("tap: " + folder + "/ttyACM3 is master 2, for clients /dev/"));
    ExpectPassage(Open(PrintedNode()));
}

TEST_F(TapTest, AddsTheMasterToTheTestbed) {
    Testbed testbed;
    const UeventMonitor monitor(testbed.Folder());
    Start(&testbed);
    EXPECT_EQ(Property(monitor.Receive().value_or(""), "DEVNAME"), "/dev/ttyACM2");
    ExpectPassage(Open(testbed.Folder() / "dev/ttyACM2"));
    EXPECT_EQ(Printed(), std::vector<std::string>{"tap: " + folder +
                                                  "/ttyACM3 is master 2, "
                                                  "/dev/ttyACM2 for COMMAND"});
}

TEST_F(TapTest, UnplugsTheClientsTtyUntilTheMasterIsBack) {
    Testbed testbed;
    const UeventMonitor monitor(testbed.Folder());
    Start(&testbed);
    const std::string node = testbed.Folder() / "dev/ttyACM2";
    const FileDescriptor client = Open(node);
    ExpectPassage(client);
    EXPECT_NE(monitor.Receive().value_or("").find("ACTION=add"), std::string::npos);
    Unplug();
    EXPECT_NE(monitor.Receive().value_or("").find("ACTION=remove"), std::string::npos);
    EXPECT_EQ(Receive(client.Get()), "");
    EXPECT_EQ(Open(node).Get(), -1);
    EXPECT_EQ(Printed().back(), "tap: " + folder + "/ttyACM3 has hung up; waiting for its return");
    PlugIn();
    EXPECT_NE(monitor.Receive().value_or("").find("ACTION=add"), std::string::npos);
    ExpectPassage(Open(node));
    tap.reset();
    EXPECT_EQ(RecordedKinds(),
              (std::vector<RecordedKind>{RecordedKind::Plug, RecordedKind::ToMaster,
                                         RecordedKind::FromMaster, RecordedKind::Unplug,
                                         RecordedKind::Plug, RecordedKind::ToMaster,
                                         RecordedKind::FromMaster}));
}

TEST_F(TapTest, PrintsTheNewTtyAfterAReplug) {
    Start(nullptr);
    Unplug();
    ASSERT_TRUE(WaitFor([this] { return Printed().size() == 2; }));
    PlugIn();
    ASSERT_TRUE(WaitFor([this] { return Printed().size() == 3; }));
    ExpectPassage(Open(PrintedNode()));
}

TEST_F(TapTest, PassesOnPendingBytesAndHangsUpAtTheEnd) {
    Start(nullptr);
    const FileDescriptor client = Open(PrintedNode());
    ExpectPassage(client);
    ASSERT_EQ(write(client.Get(), "MODE?\n", 6), 6);
    tap.reset();
    EXPECT_EQ(Receive(master->Descriptor()), "MODE?\n");
    EXPECT_EQ(Receive(client.Get()), "");
}

TEST_F(TapTest, EndsWhileTheMasterIsUnplugged) {
    Start(nullptr);
    Unplug();
    ASSERT_TRUE(WaitFor([this] { return Printed().size() == 2; }));
    EXPECT_LT(support::Measure([this] { tap.reset(); }), support::kPatience);
}

TEST_F(TapTest, FailsToStartWithoutAMaster) {
    Unplug();
    EXPECT_THROW(Start(nullptr), std::system_error);
}

}  // namespace
}  // namespace simulator
