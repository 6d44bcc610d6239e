#include "pellix/DeviceHandler.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "pellix/Protocol.h"
#include "tests/support/LogCapture.h"

using pellix::DeviceHandler;
using support::LogCapture;
using support::Messages;
using Bytes = std::vector<std::uint8_t>;
using Numbers = std::vector<std::uint32_t>;

class DeviceHandlerTest : public testing::Test {
protected:
    LogCapture log;
    DeviceHandler handler;
    pellix::Device& device = handler.GetDevice();
};

TEST_F(DeviceHandlerTest, StartsWithoutIdAndWithAnEmptyDevice) {
    EXPECT_EQ(handler.GetID(), "");
    EXPECT_EQ(device.GetMode(), pellix::kModeNone);
    EXPECT_TRUE(log.All().empty());
}

TEST_F(DeviceHandlerTest, IdIsStoredWithoutItsQuotes) {
    handler.HandleResponse("ID", R"("ABC")");
    EXPECT_EQ(handler.GetID(), "ABC");
    handler.HandleResponse("ID", "PELLIX");
    EXPECT_EQ(handler.GetID(), "PELLIX");
}

TEST_F(DeviceHandlerTest, OnlyPairedQuotesAreRemoved) {
    for (const char* id : {"\"ABC", "ABC\"", "A\"B", "\"", "ABC\"\r"}) {
        handler.HandleResponse("ID", id);
        EXPECT_EQ(handler.GetID(), id);
    }
    handler.HandleResponse("ID", R"(""ABC"")");
    EXPECT_EQ(handler.GetID(), R"("ABC")");
}

TEST_F(DeviceHandlerTest, EmptyIdClearsTheId) {
    for (const char* empty : {"", "\"\""}) {
        handler.HandleResponse("ID", "PELLIX");
        handler.HandleResponse("ID", empty);
        EXPECT_EQ(handler.GetID(), "");
    }
}

TEST_F(DeviceHandlerTest, ModeOtherThanOperateEmptiesTheProcessData) {
    for (const int mode : {0, 1, 2, 3, 5, 6, 7, 8, -4}) {
        device.SetPDIN({1});
        device.SetPDOUT({2});
        log.Clear();
        handler.HandleResponse("MODE", std::to_string(mode));
        EXPECT_TRUE(device.GetPDIN().empty()) << mode;
        EXPECT_TRUE(device.GetPDOUT().empty()) << mode;
        EXPECT_EQ(device.GetMode(), mode);
        EXPECT_EQ(log.All(), Messages{"Setting device mode to " + std::to_string(mode)});
    }
}

TEST_F(DeviceHandlerTest, OperateKeepsTheProcessData) {
    device.SetPDIN({1});
    device.SetPDOUT({2});
    handler.HandleResponse("MODE", "4");
    EXPECT_EQ(device.GetPDIN(), Bytes{1});
    EXPECT_EQ(device.GetPDOUT(), Bytes{2});
    EXPECT_EQ(device.GetMode(), pellix::kModeOperate);
    EXPECT_EQ(log.All(), Messages{"Setting device mode to 4"});
}

TEST_F(DeviceHandlerTest, InvalidModeNumberIsZero) {
    for (const char* value : {"", "OPERATE", "\"4\"", "[4]"}) {
        handler.HandleResponse("MODE", "4");
        handler.HandleResponse("MODE", value);
        EXPECT_EQ(device.GetMode(), 0) << value;
        EXPECT_EQ(log.All().back(), "Setting device mode to 0");
    }
}

TEST_F(DeviceHandlerTest, IdSurvivesEveryMode) {
    handler.HandleResponse("ID", "PELLIX");
    for (const char* mode : {"1", "7", "4", "0"}) {
        handler.HandleResponse("MODE", mode);
    }
    EXPECT_EQ(handler.GetID(), "PELLIX");
}

TEST_F(DeviceHandlerTest, ModesOneAndSevenClearParametersAndDeviceInfo) {
    for (const char* mode : {"1", "7"}) {
        handler.HandleResponse("PARAM[19][0]", "[41]");
        handler.HandleResponse("DEVINFO", "[1,2,3]");
        handler.HandleResponse("MODE", "3");
        EXPECT_EQ(device.GetParameter(19, 0), Bytes{0x41});
        handler.HandleResponse("MODE", mode);
        EXPECT_TRUE(device.GetParameter(19, 0).empty());
        EXPECT_TRUE(device.GetDeviceInfo().empty());
    }
}

TEST_F(DeviceHandlerTest, ParameterLineStoresItsBytes) {
    handler.HandleResponse("PARAM[19][0]", "[41,42]");
    EXPECT_EQ(device.GetParameter(19, 0), (Bytes{0x41, 0x42}));
    handler.HandleResponse("PARAM[19][0]", "[]");
    EXPECT_TRUE(device.GetParameter(19, 0).empty());
    EXPECT_EQ(log.All(), (Messages{"Creating parameter 19 / 0", "Updating parameter 19 / 0"}));
}

TEST_F(DeviceHandlerTest, ParameterLineWithInvalidKeyOrValueIsIgnored) {
    handler.HandleResponse("PARAM[19][0]", "[41]");
    log.Clear();
    for (const char* key :
         {"PARAM", "PARAMETER[19][0]", "PARAM [19][0]", "PARAM[19]", "PARAM[19]["}) {
        handler.HandleResponse(key, "[99]");
    }
    for (const char* value : {"", "99", "99]", " [99]", "[99"}) {
        handler.HandleResponse("PARAM[19][0]", value);
    }
    EXPECT_EQ(device.GetParameter(19, 0), Bytes{0x41});
    EXPECT_TRUE(log.All().empty());
}

TEST_F(DeviceHandlerTest, ProcessDataLinesStoreTheirBytesWithoutALogLine) {
    handler.HandleResponse("PDIN", "[0a,FF,1]");
    handler.HandleResponse("PDOUT", "[7]");
    EXPECT_EQ(device.GetPDIN(), (Bytes{10, 255, 1}));
    EXPECT_EQ(device.GetPDOUT(), Bytes{7});
    handler.HandleResponse("PDIN", "[]");
    EXPECT_TRUE(device.GetPDIN().empty());
    EXPECT_TRUE(log.All().empty());
}

TEST_F(DeviceHandlerTest, InvalidListKeepsTheProcessData) {
    handler.HandleResponse("PDIN", "[1]");
    handler.HandleResponse("PDOUT", "[2]");
    for (const char* value : {"", "9]", "9", " [9]", "[9"}) {
        handler.HandleResponse("PDIN", value);
        handler.HandleResponse("PDOUT", value);
    }
    EXPECT_EQ(device.GetPDIN(), Bytes{1});
    EXPECT_EQ(device.GetPDOUT(), Bytes{2});
}

TEST_F(DeviceHandlerTest, DeviceInfoLineStoresDecimalNumbers) {
    handler.HandleResponse("DEVINFO", "[10,2,3,32,16,5,6,31249,20]");
    EXPECT_EQ(device.GetDeviceInfo(), (Numbers{10, 2, 3, 32, 16, 5, 6, 31249, 20}));
    EXPECT_EQ(device.GetPDIN(), Bytes(4, 0));
    EXPECT_EQ(device.GetPDOUT(), Bytes(2, 0));
    EXPECT_EQ(log.All(), Messages{"DEVICE_INFO: 32/16"});
    handler.HandleResponse("DEVINFO", "10,2]");
    EXPECT_EQ(device.GetDeviceInfo().size(), 9U);
    handler.HandleResponse("DEVINFO", "[]");
    EXPECT_TRUE(device.GetDeviceInfo().empty());
}

TEST_F(DeviceHandlerTest, ImpossibleLengthsInTheDeviceInfoAreHarmless) {
    handler.HandleResponse("DEVINFO", "[0,0,0,4294967295,99999999999999999999,x,-1]");
    EXPECT_TRUE(device.GetPDIN().empty());
    EXPECT_EQ(device.GetDeviceInfo().size(), 7U);
}

TEST_F(DeviceHandlerTest, UnusedReportsAndUnknownKeysChangeNothing) {
    handler.HandleResponse("ID", "PELLIX");
    handler.HandleResponse("PDIN", "[1]");
    log.Clear();
    for (const char* key : {"EV", "PDDIV", "CQ", "DQ", "", "id", "Mode", "pdin", "PDINX", "XPDIN",
                            "PDIN ", "PARA", "DEVINFO2", "OPERATE", "DOUTINFO"}) {
        handler.HandleResponse(key, "[9]");
    }
    EXPECT_EQ(handler.GetID(), "PELLIX");
    EXPECT_EQ(device.GetPDIN(), Bytes{1});
    EXPECT_TRUE(device.GetPDOUT().empty());
    EXPECT_TRUE(device.GetDeviceInfo().empty());
    EXPECT_EQ(device.GetMode(), 0);
    EXPECT_TRUE(log.All().empty());
}

TEST_F(DeviceHandlerTest, NoInputFromAMasterThrows) {
    std::mt19937 engine(20261121);
    const std::vector<std::string> keys = {"ID",   "MODE",  "PARAM[19][0]", "PARAM[",
                                           "PDIN", "PDOUT", "DEVINFO",      "PARAM[]["};
    for (int i = 0; i < 5000; ++i) {
        std::string value = i % 2 == 0 ? "[" : "";
        for (auto size = engine() % 20; size > 0; --size) {
            value +=
                i % 3 == 0 ? static_cast<char>(engine() % 256) : "0123456789,]f-x"[engine() % 15];
        }
        ASSERT_NO_THROW(handler.HandleResponse(keys[engine() % keys.size()], value)) << value;
        if (i % 100 == 0) {
            log.Clear();
        }
    }
}

TEST_F(DeviceHandlerTest, IdMayBeReadWhileItIsWritten) {
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            handler.HandleResponse("ID", i % 2 == 0 ? "a rather long name of a master" : "short");
        }
    });
    for (int i = 0; i < 2000; ++i) {
        const std::string id = handler.GetID();
        ASSERT_TRUE(id.empty() || id == "short" || id == "a rather long name of a master") << id;
    }
    writer.join();
}
