#include "daemon/methods/GripperMethod.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "daemon/methods/MotionMethods.h"
#include "daemon/methods/ParameterMethods.h"
#include "daemon/methods/StateMethods.h"
#include "tests/support/FakeMaster.h"
#include "tests/support/LogCapture.h"
#include "tests/unit/daemon/GripperTest.h"
#include "tests/unit/daemon/MethodTable.h"
#include "tests/unit/daemon/Values.h"

using support::FakeMaster;
using support::LogCapture;
using support::Messages;
using values::Execute;
using values::Parameters;

namespace {

constexpr const char* kNobody = "nobody";

/// Tests of every class that addresses a gripper.
class AllGripperMethodsTest : public testing::Test {
protected:
    /// Expects the library's fault and no lookup.
    void ExpectFault(const MethodFacts& facts, const std::vector<xmlrpc_c::value>& arguments) {
        log.Clear();
        try {
            const std::string answer = Execute(*facts.create(&manager), ToParameters(arguments));
            ADD_FAILURE() << "answers " << answer;
        } catch (const xmlrpc_c::fault& fault) {
            EXPECT_EQ(fault.getCode(), xmlrpc_c::fault::CODE_TYPE);
        }
        EXPECT_EQ(log.OfThisThread(), Messages());
    }

    GripperManager& manager = GripperCell::Manager();
    LogCapture log;
};

TEST_F(AllGripperMethodsTest, HaveTheirSignatureAndNoHelp) {
    for (const MethodFacts& facts : AllMethods()) {
        const auto method = facts.create(&manager);
        EXPECT_EQ(method->signature(), facts.signature) << facts.className;
        EXPECT_EQ(method->help(), "") << facts.className;
    }
}

TEST_F(AllGripperMethodsTest, AMissingParameterIsAFaultBeforeAnyLookup) {
    for (const MethodFacts& facts : AllMethods()) {
        SCOPED_TRACE(facts.className);
        for (auto arguments = Arguments(facts, kNobody); !arguments.empty();) {
            arguments.pop_back();
            ExpectFault(facts, arguments);
        }
    }
}

TEST_F(AllGripperMethodsTest, ASurplusParameterIsAFaultBeforeAnyLookup) {
    for (const MethodFacts& facts : AllMethods()) {
        SCOPED_TRACE(facts.className);
        for (const xmlrpc_c::value& surplus : {values::ToValue(1), values::ToValue("1")}) {
            auto arguments = Arguments(facts, kNobody);
            arguments.push_back(surplus);
            ExpectFault(facts, arguments);
        }
    }
}

/// @return `arguments` with the one at `position` replaced
std::vector<xmlrpc_c::value> Replace(const std::vector<xmlrpc_c::value>& arguments,
                                     std::size_t position, const xmlrpc_c::value& other) {
    std::vector<xmlrpc_c::value> replaced;
    replaced.reserve(arguments.size());
    for (const xmlrpc_c::value& argument : arguments) {
        replaced.push_back(replaced.size() == position ? other : argument);
    }
    return replaced;
}

TEST_F(AllGripperMethodsTest, AParameterOfAnotherTypeIsAFaultBeforeAnyLookup) {
    const std::vector<xmlrpc_c::value> others{values::ToValue("1"),  values::ToValue(1),
                                              values::ToValue(1.0),  values::ToValue(true),
                                              xmlrpc_c::value_i8(1), xmlrpc_c::value_nil()};
    for (const MethodFacts& facts : AllMethods()) {
        SCOPED_TRACE(facts.className);
        const auto arguments = Arguments(facts, kNobody);
        for (std::size_t position = 0; position < arguments.size(); ++position) {
            for (const xmlrpc_c::value& other : others) {
                if (other.type() != arguments[position].type()) {
                    ExpectFault(facts, Replace(arguments, position, other));
                }
            }
        }
    }
}

TEST_F(AllGripperMethodsTest, ThePlaceholderReturnsAtOnceWithoutALogLine) {
    log.Clear();
    for (const MethodFacts& facts : AllMethods()) {
        EXPECT_EQ(SampleAnswer(facts, "---"),
                  facts.className == "GetGripperInterface" ? "int -2" : facts.fallback)
            << facts.className;
    }
    EXPECT_EQ(log.OfThisThread(), Messages());
}

TEST_F(AllGripperMethodsTest, AnUnknownDeviceIsLoggedUnderTheClassNameAndReturnsTheFallback) {
    for (const MethodFacts& facts : AllMethods()) {
        log.Clear();
        EXPECT_EQ(SampleAnswer(facts, kNobody), facts.fallback) << facts.className;
        EXPECT_EQ(log.OfThisThread(),
                  facts.className == "UpdatePDIN"
                      ? Messages()
                      : (Messages{"Device 'nobody' not found",
                                  facts.className + ": Failed to get PELLIX handle"}));
    }
}

/// Tests of each gripper model.
class EachModelTest : public GripperTest, public testing::WithParamInterface<std::string> {
protected:
    static bool Has(const MethodFacts& method) {
        switch (method.check) {
            case Check::kHva:
                return GetParam() != "TLM";
            case Check::kMzd:
                return GetParam().starts_with("MZD");
            default:
                return true;
        }
    }

    static Messages ExpectedRequests(const MethodFacts& method) {
        Messages requests;
        if (method.check != Check::kNone) {
            requests.emplace_back("DEVINFO?");
        }
        if (Has(method) && !method.request.empty()) {
            requests.push_back(method.request);
        }
        return requests;
    }

    const std::string device = GetParam() + " SN:100001";
};

TEST_P(EachModelTest, HasItsOwnOperationsAndRefusesTheOthersSilently) {
    FakeMaster& master = cell.Plug(GetParam());
    for (const MethodFacts& method : AllMethods()) {
        SCOPED_TRACE(method.className);
        EXPECT_EQ(SampleAnswer(method, device), Has(method) ? method.answer : method.fallback);
        EXPECT_EQ(master.Requests(), ExpectedRequests(method));
        master.ClearRequests();
    }
    EXPECT_EQ(cell.Log().Text().find("Failed to get PELLIX handle"), std::string::npos);
}

TEST_P(EachModelTest, TextsSimilarToItsDeviceStringAreUnknown) {
    cell.Plug(GetParam());
    for (const std::string& other : {device + " ", " " + device, device.substr(1), std::string()}) {
        EXPECT_EQ(Answer<GetGripperInterface>(other), "int -1") << other;
    }
}

INSTANTIATE_TEST_SUITE_P(, EachModelTest, testing::Values("TLM", "HVA", "MZD-S", "MZD-L"),
                         [](const auto& test) {
                             std::string name = test.param;
                             std::erase(name, '-');
                             return name;
                         });

using GripperMethodTest = GripperTest;

TEST_F(GripperMethodTest, OnlyTheExactPlaceholderIsOne) {
    for (const char* const device : {"--", "----", " ---", "--- ", ""}) {
        EXPECT_EQ(Answer<GetGripperInterface>(device), "int -1") << device;
    }
}

TEST_F(GripperMethodTest, TheMastersErrorIsPassedOn) {
    FakeMaster& master = cell.Plug("HVA");
    master.SetAnswers("PDOUT=[b,2]", {"ACK PDOUT\nERR PDOUT 77\n"});
    EXPECT_EQ(Answer<Grip>("HVA SN:100001", 2), "int 77");
}

TEST_F(GripperMethodTest, ASilentMastersTimeoutIsPassedOn) {
    FakeMaster& master = cell.Plug("HVA");
    master.SetSilent(true);
    EXPECT_EQ(Answer<StoreRemanent>("HVA SN:100001"), "int 5");
}

TEST_F(GripperMethodTest, ProcessOutputOfTheWrongLengthIsPassedOn) {
    FakeMaster& master = cell.Plug("HVA");
    master.Send("@PDOUT=[1,2,3]\n");
    ASSERT_TRUE(ReportPdin(master, "HVA SN:100001", "[0,0,0,0]"));
    EXPECT_EQ(Answer<Disable>("HVA SN:100001"), "int 21");
    EXPECT_EQ(master.Requests(), Messages());
}

TEST_F(GripperMethodTest, AGripperOfAnotherMakerIsRefused) {
    FakeMaster& master = cell.Plug("MZD-S");
    SetValue(master, "DEVINFO", "[1,2,3,32,16,5,6,1,40]");
    for (const MethodFacts& method : AllMethods()) {
        if (method.check != Check::kNone) {
            EXPECT_EQ(SampleAnswer(method, "MZD-S SN:100001"), method.fallback) << method.className;
        }
    }
    EXPECT_EQ(master.Count("DEVINFO?"), master.Requests().size());
}

/// The device information ends after the vendor id, so the model is missing.
class ShortDeviceInfoTest : public GripperMethodTest {
protected:
    ShortDeviceInfoTest() {
        SetValue(cell.Plug("HVA"), "DEVINFO",
                 "[1,2,3,32,16,5,6," + std::to_string(pellix::kCorvaneVendorId) + "]");
    }
};

TEST_F(ShortDeviceInfoTest, MakesEveryModelCheckThrow) {
    for (const MethodFacts& method : AllMethods()) {
        if (method.check != Check::kNone) {
            EXPECT_THROW(SampleAnswer(method, "HVA SN:100001"), std::out_of_range)
                << method.className;
        }
    }
}

TEST_F(ShortDeviceInfoTest, LeavesNoLinkInUse) {
    EXPECT_THROW(Answer<GetForce>("HVA SN:100001", 2), std::out_of_range);
    EXPECT_FALSE(IsInUse("HVA SN:100001"));
}

TEST_F(ShortDeviceInfoTest, IsAFaultForTheClient) {
    const xmlrpc_c::methodPtr method(new Reference(&GripperCell::Manager()));
    xmlrpc_c::registry registry;
    registry.addMethod("Reference", method);
    std::string answer;
    registry.processCall(
        "<?xml version=\"1.0\"?><methodCall><methodName>Reference</methodName><params><param>"
        "<value><string>HVA SN:100001</string></value></param></params></methodCall>",
        &answer);
    EXPECT_NE(answer.find("<fault>"), std::string::npos) << answer;
}

TEST_F(GripperMethodTest, NoCallLeavesItsLinkInUse) {
    cell.Plug("MZD-S");
    for (const MethodFacts& method : AllMethods()) {
        SampleAnswer(method, "MZD-S SN:100001");
    }
    EXPECT_FALSE(IsInUse("MZD-S SN:100001"));
}

/// A call whose int parameters are reduced to their low bytes.
struct CutCall {
    std::string className;
    std::vector<int> numbers;
    std::string request;
};

const std::vector<CutCall> kCutCalls{
    {"Grip", {256}, "PDOUT=[b,0]"},
    {"Grip", {-1}, "PDOUT=[b,ff]"},
    {"Grip", {300}, "PDOUT=[b,2c]"},
    {"Release", {256}, "PDOUT=[a,0]"},
    {"Release", {-1}, "PDOUT=[a,ff]"},
    {"Release", {300}, "PDOUT=[a,2c]"},
    {"GetReleaseLimit", {256}, "PARAM[96][2]?"},
    {"GetReleaseLimit", {-1}, "PARAM[351][2]?"},
    {"GetNoPartLimit", {256}, "PARAM[96][1]?"},
    {"GetNoPartLimit", {300}, "PARAM[140][1]?"},
    {"GetForce", {256}, "PARAM[96][3]?"},
    {"GetForce", {-2147483647 - 1}, "PARAM[96][3]?"},
    {"SetForce", {0, 300}, "PARAM[96][3]=[2c]"},
    {"SetForce", {2147483647, -1}, "PARAM[351][3]=[ff]"},
    {"SetForce", {300, 256}, "PARAM[140][3]=[0]"},
    {"SetOverrideRelease", {300}, "PARAM[64][2]=[2c]"},
    {"SetOverrideRelease", {-1}, "PARAM[64][2]=[ff]"},
    {"SetOverrideGrip", {256}, "PARAM[64][1]=[0]"},
    {"SetOverrideGrip", {300}, "PARAM[64][1]=[2c]"},
    {"GetLEDAnimation", {256}, "PARAM[128][1]?"},
    {"GetLEDColor", {-1}, "PARAM[383][2]?"},
    {"GetLEDSpeed", {300}, "PARAM[172][3]?"},
    {"SetLEDPreset", {9}, "PDOUT=[2a,5]"},
    {"SetLEDPreset", {-1}, "PDOUT=[ea,5]"},
    {"SetLEDPreset", {256}, "PDOUT=[a,5]"},
    {"SetLEDAnimation", {256, 300}, "PARAM[128][1]=[2c]"},
    {"SetLEDColor", {300, -1}, "PARAM[172][2]=[ff]"},
    {"SetLEDSpeed", {-1, 256}, "PARAM[383][3]=[0]"},
};

TEST_F(GripperMethodTest, IntParametersAreCutToTheirLowByte) {
    FakeMaster& master = cell.Plug("MZD-L");
    for (const CutCall& call : kCutCalls) {
        auto parameters = Parameters("MZD-L SN:100001");
        for (const int number : call.numbers) {
            parameters.add(values::ToValue(number));
        }
        Execute(*FactsOf(call.className).create(&GripperCell::Manager()), parameters);
        const Messages requests = master.Requests();
        ASSERT_FALSE(requests.empty()) << call.className;
        EXPECT_EQ(requests.back(), call.request) << call.className;
        master.ClearRequests();
    }
}

TEST_F(GripperMethodTest, ALimitsSetIsCutToItsLowByte) {
    FakeMaster& master = cell.Plug("TLM");
    EXPECT_EQ(Answer<SetReleaseLimit>("TLM SN:100001", 256, 1.0), "int 0");
    EXPECT_EQ(Answer<SetNoPartLimit>("TLM SN:100001", -1, 1.0), "int 0");
    EXPECT_EQ(master.Requests(), (Messages{"PARAM[96][2]=[0,64]", "PARAM[351][1]=[0,64]"}));
}

}  // namespace
