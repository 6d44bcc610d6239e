#include "pellix/HVA.h"

#include <gtest/gtest.h>

#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "pellix/MZD.h"
#include "pellix/Protocol.h"
#include "tests/unit/pellix/GripperOnLink.h"

using pellix::HVA;
using pellix::kCorvaneVendorId;
using pellix::MZD;
using support::Messages;

class HVATest : public GripperOnLink {
protected:
    /// @return messages of a model check about the model
    Messages Detected() const {
        Messages found;
        for (const std::string& message : log.OfThisThread()) {
            if (message.ends_with(" detected")) {
                found.push_back(message);
            }
        }
        return found;
    }
};

struct Model {
    std::uint32_t id;
    const char* name;  // empty if unknown
    bool isHva;
    bool isMzd;
};

std::ostream& operator<<(std::ostream& out, const Model& model) {
    return out << model.id;
}

class ModelCheckTest : public HVATest, public testing::WithParamInterface<Model> {};

TEST_P(ModelCheckTest, ModelIsRecognisedByItsDeviceId) {
    const Model& model = GetParam();
    SetDeviceInfo(9, kCorvaneVendorId, model.id);
    log.Clear();
    EXPECT_EQ(HVA::IsSupported(*link), model.isHva);
    EXPECT_EQ(MZD::IsSupported(*link), model.isMzd);
    EXPECT_EQ(TakeRequests(), Lines(2, "DEVINFO?"));
    const Messages expected = std::string(model.name).empty()
                                  ? Messages()
                                  : Messages(2, model.name + std::string(" detected"));
    EXPECT_EQ(Detected(), expected);
    EXPECT_FALSE(log.Contains("DeviceInfo"));
}

INSTANTIATE_TEST_SUITE_P(All, ModelCheckTest,
                         testing::Values(Model{10, "TLM", false, false},
                                         Model{20, "HVA", true, false},
                                         Model{40, "MZD S", true, true},
                                         Model{50, "MZD L", true, true},
                                         Model{30, "", false, false}, Model{0, "", false, false},
                                         Model{4294967295, "", false, false}),
                         [](const auto& model) { return "Id" + std::to_string(model.param.id); });

TEST_F(HVATest, OtherVendorsAreNotSupportedAndNotLogged) {
    for (const std::uint32_t vendor : {0U, kCorvaneVendorId - 1, kCorvaneVendorId + 65536}) {
        SetDeviceInfo(9, vendor, 20);
        EXPECT_FALSE(HVA::IsSupported(*link)) << vendor;
        EXPECT_FALSE(MZD::IsSupported(*link)) << vendor;
    }
    EXPECT_TRUE(Detected().empty());
}

TEST_F(HVATest, ShortDeviceInfoIsNotSupportedAndNotLogged) {
    for (const std::size_t count : {0U, 1U, 6U, 7U}) {
        SetDeviceInfo(count, kCorvaneVendorId, 20);
        EXPECT_FALSE(HVA::IsSupported(*link)) << count;
        EXPECT_FALSE(MZD::IsSupported(*link)) << count;
    }
    EXPECT_TRUE(Detected().empty());
}

TEST_F(HVATest, DeviceInfoThatEndsWithTheVendorThrows) {
    SetDeviceInfo(8, kCorvaneVendorId, 20);
    for (bool (*check)(pellix::Pellix&) : {HVA::IsSupported, MZD::IsSupported}) {
        try {
            check(*link);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::out_of_range& failure) {
            EXPECT_NE(std::string(failure.what()).find("vector::_M_range_check"),
                      std::string::npos);
        }
    }
}

TEST_F(HVATest, ShortDeviceInfoOfAnotherVendorDoesNotThrow) {
    SetDeviceInfo(8, kCorvaneVendorId + 1, 20);
    EXPECT_FALSE(HVA::IsSupported(*link));
    EXPECT_FALSE(MZD::IsSupported(*link));
}

TEST_F(HVATest, FailedRequestKeepsTheKnownModel) {
    master.SetAnswers("DEVINFO?", {"ERR DEVINFO 7\n"});
    EXPECT_TRUE(HVA::IsSupported(*link));
    link->Stop();
    EXPECT_TRUE(HVA::IsSupported(*link));
}

// Side effect of the request: empty process data become valid zeros.
TEST_F(HVATest, CheckFillsEmptyProcessDataWithZeros) {
    StorePdin({});
    StorePdout({});
    EXPECT_TRUE(HVA::IsSupported(*link));
    EXPECT_EQ(link->GetDevice().GetPDIN(), Bytes(4, 0));
    EXPECT_EQ(link->GetDevice().GetPDOUT(), Bytes(2, 0));
}

TEST_F(HVATest, ReferenceSetsEnableAndReferenceRun) {
    const std::vector<std::pair<Bytes, std::string>> rows = {{{0x00, 0x00}, "[6,0]"},
                                                             {{0x19, 0x07}, "[1f,7]"},
                                                             {{0xFF, 0xFF}, "[ff,ff]"},
                                                             {{0xF8, 0x01}, "[fe,1]"}};
    for (const auto& [pdout, sent] : rows) {
        StorePdout(pdout);
        EXPECT_EQ(HVA::Reference(*link), pellix::kResultOk);
        EXPECT_EQ(TakeRequests(), Lines{"PDOUT=" + sent});
    }
    StorePdout({1});
    EXPECT_EQ(HVA::Reference(*link), pellix::kResultBadPdout);
    EXPECT_TRUE(TakeRequests().empty());
}

TEST_F(HVATest, ForceIsReadAsOneByteOfItsSet) {
    master.SetValue("PARAM[99][3]", "[50]");
    EXPECT_EQ(HVA::GetForce(*link, 3), 80);
    EXPECT_EQ(TakeRequests(), Lines{"PARAM[99][3]?"});
    HVA::GetForce(*link, 255);
    EXPECT_EQ(TakeRequests(), Lines{"PARAM[351][3]?"});
    for (const char* value : {"[]", "[1,2]"}) {
        master.SetValue("PARAM[99][3]", value);
        EXPECT_EQ(HVA::GetForce(*link, 3), 0) << value;
    }
}

TEST_F(HVATest, ForceIsSentAsOneByteToItsSet) {
    EXPECT_EQ(HVA::SetForce(*link, 3, 44), pellix::kResultOk);
    EXPECT_EQ(HVA::SetForce(*link, 0, 255), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[99][3]=[2c]", "PARAM[96][3]=[ff]"}));
    master.SetAnswers("PARAM[96][3]=[1]", {"ERR PARAM[96][3] 9\n"});
    EXPECT_EQ(HVA::SetForce(*link, 0, 1), 9U);
}

TEST_F(HVATest, OverridesAreSentAsOneByte) {
    EXPECT_EQ(HVA::SetOverrideGrip(*link, 100), pellix::kResultOk);
    EXPECT_EQ(HVA::SetOverrideRelease(*link, 0), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[64][1]=[64]", "PARAM[64][2]=[0]"}));
}

TEST_F(HVATest, ReferenceDirectionIsSentAsAllBitsOrNone) {
    EXPECT_EQ(HVA::SetReferenceDirection(*link, true), pellix::kResultOk);
    EXPECT_EQ(HVA::SetReferenceDirection(*link, false), pellix::kResultOk);
    EXPECT_EQ(TakeRequests(), (Lines{"PARAM[64][3]=[ff]", "PARAM[64][3]=[0]"}));
}

TEST_F(HVATest, AnyReferenceDirectionExceptZeroIsTrue) {
    const std::vector<std::pair<std::string, bool>> rows = {
        {"[ff]", true}, {"[1]", true}, {"[0]", false}, {"[]", false}, {"[ff,ff]", false}};
    for (const auto& [value, direction] : rows) {
        master.SetValue("PARAM[64][3]", value);
        EXPECT_EQ(HVA::GetReferenceDirection(*link), direction) << value;
    }
    EXPECT_EQ(TakeRequests(), Lines(5, "PARAM[64][3]?"));
}
