#include "pellix/Device.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/support/Allocations.h"
#include "tests/support/LogCapture.h"

using pellix::Device;
using support::LogCapture;
using support::Messages;
using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<std::uint32_t>;

namespace {

/// @return device information with these process data lengths in bits
Numbers Info(std::uint32_t pdinBits, std::uint32_t pdoutBits) {
    return {1, 2, 3, pdinBits, pdoutBits, 6};
}

/// Stores a value in every member of the device.
void Fill(Device& device) {
    device.SetPDIN({1});
    device.SetPDOUT({2});
    device.SetDeviceInfo({1, 2, 3});
    device.SetParameter(19, 0, {0x41});
}

}  // namespace

TEST(DeviceTest, StartsEmptyInModeNone) {
    Device device;
    EXPECT_EQ(device.GetMode(), pellix::kModeNone);
    EXPECT_TRUE(device.GetPDIN().empty());
    EXPECT_TRUE(device.GetPDOUT().empty());
    EXPECT_TRUE(device.GetDeviceInfo().empty());
}

TEST(DeviceTest, SettersReplaceTheWholeValue) {
    const LogCapture log;
    Device device;
    device.SetPDIN({1, 2, 3});
    device.SetPDIN({4});
    EXPECT_EQ(device.GetPDIN(), Bytes{4});
    device.SetPDOUT({1, 2, 3});
    device.SetPDOUT({});
    EXPECT_TRUE(device.GetPDOUT().empty());
    EXPECT_TRUE(log.All().empty());
}

TEST(DeviceTest, GettersReturnCopies) {
    Device device;
    device.SetPDIN({1});
    Bytes copy = device.GetPDIN();
    copy[0] = 9;
    EXPECT_EQ(device.GetPDIN(), Bytes{1});
}

TEST(DeviceTest, WritingAParameterTwiceLeavesOneEntryWithTheSecondValue) {
    const LogCapture log;
    Device device;
    device.SetParameter(19, 0, {1, 2});
    device.SetParameter(19, 0, {3});
    EXPECT_EQ(device.GetParameter(19, 0), Bytes{3});
    EXPECT_EQ(log.All(), (Messages{"Creating parameter 19 / 0", "Updating parameter 19 / 0"}));
}

TEST(DeviceTest, ParametersDifferInIndexOrSubindex) {
    const LogCapture log;
    Device device;
    device.SetParameter(1, 2, {12});
    device.SetParameter(2, 1, {21});
    device.SetParameter(1, 1, {11});
    EXPECT_EQ(device.GetParameter(1, 2), Bytes{12});
    EXPECT_EQ(device.GetParameter(2, 1), Bytes{21});
    EXPECT_EQ(device.GetParameter(1, 1), Bytes{11});
    EXPECT_EQ(log.All(), (Messages{"Creating parameter 1 / 2", "Creating parameter 2 / 1",
                                   "Creating parameter 1 / 1"}));
}

TEST(DeviceTest, UnknownParameterIsEmptyAndLogged) {
    const LogCapture log;
    Device device;
    device.SetParameter(40, 1, {1});
    EXPECT_TRUE(device.GetParameter(40, 0).empty());
    EXPECT_EQ(log.All().back(), "Parameter 40 / 0 not found");
}

TEST(DeviceTest, ParameterMayBeEmpty) {
    const LogCapture log;
    Device device;
    device.SetParameter(40, 0, {});
    EXPECT_TRUE(device.GetParameter(40, 0).empty());
    EXPECT_EQ(log.All(), Messages{"Creating parameter 40 / 0"});
}

TEST(DeviceTest, LargestAddressIsValid) {
    const LogCapture log;
    Device device;
    device.SetParameter(4294967295, 4294967295, {1});
    EXPECT_EQ(device.GetParameter(4294967295, 4294967295), Bytes{1});
    EXPECT_EQ(log.All(), Messages{"Creating parameter 4294967295 / 4294967295"});
}

TEST(DeviceTest, DeviceInfoIsStoredAndLogged) {
    const LogCapture log;
    Device device;
    device.SetDeviceInfo({9, 8, 7, 16, 8, 5});
    EXPECT_EQ(device.GetDeviceInfo(), (Numbers{9, 8, 7, 16, 8, 5}));
    device.SetDeviceInfo({1});
    EXPECT_EQ(device.GetDeviceInfo(), Numbers{1});
    EXPECT_EQ(log.All(), (Messages{"DEVICE_INFO: 16/8", "DEVICE_INFO: 0/0"}));
}

TEST(DeviceTest, DeviceInfoFillsEmptyProcessDataWithZeros) {
    const LogCapture log;
    Device device;
    device.SetDeviceInfo(Info(16, 8));
    EXPECT_EQ(device.GetPDIN(), (Bytes{0, 0}));
    EXPECT_EQ(device.GetPDOUT(), Bytes{0});
}

TEST(DeviceTest, DeviceInfoKeepsExistingProcessData) {
    const LogCapture log;
    Device device;
    device.SetPDIN({7});
    device.SetDeviceInfo(Info(32, 16));
    EXPECT_EQ(device.GetPDIN(), Bytes{7});
    EXPECT_EQ(device.GetPDOUT(), (Bytes{0, 0}));
    device.SetDeviceInfo(Info(8, 8));
    EXPECT_EQ(device.GetPDOUT(), (Bytes{0, 0}));
}

TEST(DeviceTest, LengthsBelowEightBitsLeaveProcessDataEmpty) {
    const LogCapture log;
    for (std::uint32_t bits = 0; bits < 8; ++bits) {
        Device device;
        device.SetDeviceInfo(Info(bits, bits));
        EXPECT_TRUE(device.GetPDIN().empty()) << bits;
        EXPECT_TRUE(device.GetPDOUT().empty()) << bits;
    }
}

TEST(DeviceTest, LengthsAreRoundedDownToBytes) {
    const LogCapture log;
    Device device;
    device.SetDeviceInfo(Info(15, 31));
    EXPECT_EQ(device.GetPDIN().size(), 1U);
    EXPECT_EQ(device.GetPDOUT().size(), 3U);
}

TEST(DeviceTest, MissingElementsOfTheDeviceInfoCountAsZero) {
    const Numbers whole{1, 2, 3, 16, 8};
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const LogCapture log;
        Device device;
        device.SetDeviceInfo(Numbers(whole.begin(), whole.begin() + static_cast<long>(size)));
        EXPECT_EQ(device.GetPDIN().size(), size > 3 ? 2U : 0U);
        EXPECT_EQ(device.GetPDOUT().size(), size > 4 ? 1U : 0U);
        EXPECT_EQ(log.All(), Messages{std::string("DEVICE_INFO: ") + (size > 3 ? "16" : "0") +
                                      (size > 4 ? "/8" : "/0")});
    }
}

TEST(DeviceTest, ImpossibleLengthsAllocateNothing) {
    const LogCapture log;
    Device device;
    device.SetDeviceInfo(Info(4294967295, 65537 * 8));
    EXPECT_TRUE(device.GetPDIN().empty());
    EXPECT_TRUE(device.GetPDOUT().empty());
    EXPECT_EQ(log.All(), Messages{"DEVICE_INFO: 4294967295/524296"});
    device.SetDeviceInfo(Info(65536 * 8, 65536 * 8 + 7));
    EXPECT_EQ(device.GetPDIN().size(), 65536U);
    EXPECT_EQ(device.GetPDOUT().size(), 65536U);
}

TEST(DeviceTest, NumberOfParametersIsLimited) {
    constexpr unsigned kMost = 4096;
    const LogCapture log;
    Device device;
    for (unsigned index = 0; index < kMost + 10; ++index) {
        device.SetParameter(index, 0, {1});
    }
    device.SetParameter(kMost - 1, 0, {2});
    EXPECT_EQ(device.GetParameter(kMost - 1, 0), Bytes{2});
    EXPECT_TRUE(device.GetParameter(kMost, 0).empty());
    EXPECT_EQ(log.BeginningWith("Creating parameter ").size(), kMost);
    EXPECT_EQ(log.BeginningWith("Too many parameters: ").size(), 10U);
    EXPECT_EQ(log.BeginningWith("Too many").front(), "Too many parameters: 4096 / 0 ignored");
    EXPECT_EQ(log.All().size(), kMost + 12U);
    device.SetMode(pellix::kModeEstablishCommunication);
    device.SetParameter(kMost, 0, {3});
    EXPECT_EQ(device.GetParameter(kMost, 0), Bytes{3});
}

TEST(DeviceTest, ModesOfANewOrRestartedDeviceClearAllData) {
    for (const int mode : {pellix::kModeEstablishCommunication, pellix::kModePowerFault}) {
        const LogCapture log;
        Device device;
        Fill(device);
        device.SetMode(mode);
        EXPECT_EQ(device.GetMode(), mode);
        EXPECT_TRUE(device.GetPDIN().empty()) << mode;
        EXPECT_TRUE(device.GetPDOUT().empty()) << mode;
        EXPECT_TRUE(device.GetDeviceInfo().empty()) << mode;
        EXPECT_TRUE(device.GetParameter(19, 0).empty()) << mode;
        EXPECT_EQ(log.All().back(), "Parameter 19 / 0 not found");
        device.SetParameter(19, 0, {5});
        EXPECT_EQ(log.All().back(), "Creating parameter 19 / 0");
        EXPECT_EQ(device.GetParameter(19, 0), Bytes{5});
    }
}

TEST(DeviceTest, OtherModesKeepAllData) {
    for (const int mode : {0, 2, 3, 4, 5, 6, 8, 9, -1}) {
        const LogCapture log;
        Device device;
        Fill(device);
        device.SetMode(mode);
        EXPECT_EQ(device.GetMode(), mode);
        EXPECT_EQ(device.GetPDIN(), Bytes{1}) << mode;
        EXPECT_EQ(device.GetPDOUT(), Bytes{2}) << mode;
        EXPECT_EQ(device.GetDeviceInfo(), (Numbers{1, 2, 3})) << mode;
        EXPECT_EQ(device.GetParameter(19, 0), Bytes{0x41}) << mode;
    }
}

// The parameters are dropped but not deleted, because a reader may still be copying from them.
TEST(DeviceTest, ClearedParametersAreNotDeleted) {
    const LogCapture log;
    Device device;
    device.SetParameter(19, 0, Bytes(1000, 1));
    const std::size_t before = support::LiveBytes();
    device.SetMode(pellix::kModePowerFault);
    EXPECT_EQ(support::LiveBytes(), before);
}

TEST(DeviceTest, DestructorDeletesTheParameters) {
    const LogCapture log;
    const std::size_t before = support::LiveBytes();
    {
        Device device;
        for (unsigned index = 0; index < 20; ++index) {
            device.SetParameter(index, 0, Bytes(100, 1));
        }
        EXPECT_GT(support::LiveBytes(), before + 2000);
    }
    EXPECT_EQ(support::LiveBytes(), before);
    EXPECT_TRUE(std::has_virtual_destructor_v<Device>);
}

TEST(DeviceTest, ReadersNeverSeeAPartlyReplacedValue) {
    Device device;
    device.SetPDIN(Bytes(64, 0));
    device.SetPDOUT(Bytes(64, 0));
    std::atomic<bool> running = true;
    std::thread writer([&] {
        for (std::uint8_t i = 0; running; ++i) {
            device.SetPDIN(Bytes(64, i));
            device.SetPDOUT(Bytes(64, i));
        }
    });
    for (int i = 0; i < 5000; ++i) {
        for (const Bytes& bytes : {device.GetPDIN(), device.GetPDOUT()}) {
            ASSERT_EQ(bytes, Bytes(64, bytes.at(0)));
        }
    }
    running = false;
    writer.join();
}

TEST(DeviceTest, ParametersAndDeviceInfoMayBeReadWhileTheyAreWritten) {
    const LogCapture log;
    Device device;
    device.SetParameter(0, 0, {});
    std::thread writer([&] {
        for (unsigned i = 0; i < 300; ++i) {
            device.SetParameter(i % 50, 0, Bytes(i, 1));
            device.SetDeviceInfo(Numbers(i, 1));
        }
    });
    for (int i = 0; i < 300; ++i) {
        const Bytes value = device.GetParameter(0, 0);
        ASSERT_EQ(value, Bytes(value.size(), 1));
        const Numbers numbers = device.GetDeviceInfo();
        ASSERT_EQ(numbers, Numbers(numbers.size(), 1));
    }
    writer.join();
}

// The race is accepted, see Device::ClearData(): a reader gets old bytes or none.
TEST(DeviceTest, ReadersSurviveClearedData) {
    const LogCapture log;
    Device device;
    std::thread writer([&] {
        for (int i = 0; i < 300; ++i) {
            Fill(device);
            device.SetMode(pellix::kModePowerFault);
        }
    });
    for (int i = 0; i < 1000; ++i) {
        const Bytes pdin = device.GetPDIN();
        ASSERT_TRUE(pdin.empty() || pdin == Bytes{1});
        const Bytes value = device.GetParameter(19, 0);
        ASSERT_TRUE(value.empty() || value == Bytes{0x41});
    }
    writer.join();
}
