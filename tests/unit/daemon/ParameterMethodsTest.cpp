#include "daemon/methods/ParameterMethods.h"

#include <limits>

#include "tests/unit/daemon/GripperTest.h"

using support::FakeMaster;
using support::Messages;

namespace {

class ParameterMethodsTest : public GripperTest {
protected:
    static constexpr const char* kDevice = "HVA SN:100001";

    FakeMaster& master = cell.Plug("HVA");
};

TEST_F(ParameterMethodsTest, TheChecksumIsLittleEndian) {
    SetValue(master, "PARAM[3][4]", "[1,2,3,4]");
    EXPECT_EQ(Answer<GetParameterChecksum>(kDevice), "i8 67305985");
}

TEST_F(ParameterMethodsTest, TheChecksumsTopBitIsItsSign) {
    SetValue(master, "PARAM[3][4]", "[ff,ff,ff,7f]");
    EXPECT_EQ(Answer<GetParameterChecksum>(kDevice), "i8 2147483647");
    SetValue(master, "PARAM[3][4]", "[0,0,0,80]");
    EXPECT_EQ(Answer<GetParameterChecksum>(kDevice), "i8 -2147483648");
    SetValue(master, "PARAM[3][4]", "[ff,ff,ff,ff]");
    EXPECT_EQ(Answer<GetParameterChecksum>(kDevice), "i8 -1");
}

TEST_F(ParameterMethodsTest, AChecksumOfTheWrongLengthIsZero) {
    SetValue(master, "PARAM[3][4]", "[1,2,3]");
    EXPECT_EQ(Answer<GetParameterChecksum>(kDevice), "i8 0");
}

TEST_F(ParameterMethodsTest, LimitsOfTheWrongLengthAreNaN) {
    SetValue(master, "PARAM[98][1]", "[1]");
    SetValue(master, "PARAM[98][2]", "[1,2,3]");
    EXPECT_EQ(Answer<GetNoPartLimit>(kDevice, 2), "double nan");
    EXPECT_EQ(Answer<GetReleaseLimit>(kDevice, 2), "double nan");
}

TEST_F(ParameterMethodsTest, BytesOfTheWrongLengthAreZero) {
    SetValue(master, "PARAM[98][3]", "[]");
    SetValue(master, "PARAM[64][1]", "[1,2]");
    SetValue(master, "PARAM[64][2]", "[1,2]");
    SetValue(master, "PARAM[64][3]", "[ff,ff]");
    EXPECT_EQ(Answer<GetForce>(kDevice, 2), "int 0");
    EXPECT_EQ(Answer<GetOverrideGrip>(kDevice), "int 0");
    EXPECT_EQ(Answer<GetOverrideRelease>(kDevice), "int 0");
    EXPECT_EQ(Answer<GetReferenceDirection>(kDevice), "boolean false");
}

TEST_F(ParameterMethodsTest, BytesAreWidenedAsUnsigned) {
    SetValue(master, "PARAM[98][3]", "[ff]");
    EXPECT_EQ(Answer<GetForce>(kDevice, 2), "int 255");
}

TEST_F(ParameterMethodsTest, AFailedReadReturnsTheStoredValue) {
    EXPECT_EQ(Answer<GetForce>(kDevice, 2), "int 100");
    master.SetAnswers("PARAM[98][3]?", {"ERR PARAM[98][3] 7\n"});
    EXPECT_EQ(Answer<GetForce>(kDevice, 2), "int 100");
}

TEST_F(ParameterMethodsTest, AnyByteExceptZeroIsTrue) {
    SetValue(master, "PARAM[64][3]", "[1]");
    EXPECT_EQ(Answer<GetReferenceDirection>(kDevice), "boolean true");
    SetValue(master, "PARAM[64][3]", "[0]");
    EXPECT_EQ(Answer<GetReferenceDirection>(kDevice), "boolean false");
}

TEST_F(ParameterMethodsTest, ADirectionIsSentAsAllBitsOrNone) {
    EXPECT_EQ(Answer<SetReferenceDirection>(kDevice, true), "int 0");
    EXPECT_EQ(Answer<SetReferenceDirection>(kDevice, false), "int 0");
    EXPECT_EQ(master.Requests(),
              (Messages{"DEVINFO?", "PARAM[64][3]=[ff]", "DEVINFO?", "PARAM[64][3]=[0]"}));
}

TEST_F(ParameterMethodsTest, LimitsAreSentAsHundredths) {
    EXPECT_EQ(Answer<SetNoPartLimit>(kDevice, 0, 12.5), "int 0");
    EXPECT_EQ(Answer<SetReleaseLimit>(kDevice, 2, 0.994), "int 0");
    EXPECT_EQ(Answer<SetReleaseLimit>(kDevice, 2, -2.0), "int 0");
    EXPECT_EQ(master.Requests(),
              (Messages{"PARAM[96][1]=[4,e2]", "PARAM[98][2]=[0,63]", "PARAM[98][2]=[ff,39]"}));
}

TEST_F(ParameterMethodsTest, MethodsDoNotRestrictLimits) {
    EXPECT_EQ(Answer<SetNoPartLimit>(kDevice, 0, std::numeric_limits<double>::max()), "int 0");
    EXPECT_EQ(Answer<SetReleaseLimit>(kDevice, 0, std::numeric_limits<double>::lowest()), "int 0");
    EXPECT_EQ(master.Requests(), (Messages{"PARAM[96][1]=[7f,ff]", "PARAM[96][2]=[80,0]"}));
}

TEST_F(ParameterMethodsTest, ForceOfATlmIsNotRead) {
    FakeMaster& tlm = cell.Plug("TLM");
    EXPECT_EQ(Answer<GetForce>("TLM SN:100001", 2), "int 0");
    EXPECT_EQ(tlm.Requests(), Messages{"DEVINFO?"});
}

}  // namespace
