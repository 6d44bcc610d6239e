#include "daemon/methods/ServiceMethods.h"

#include <regex.h>

#include <string>

#include "tests/unit/daemon/GripperTest.h"

using support::Messages;
using values::Execute;
using values::Parameters;

namespace {

/// @return whether the extended regular expression matches the whole `text`
bool Matches(const std::string& text, const std::string& form) {
    regex_t expression{};
    EXPECT_EQ(::regcomp(&expression, ("^" + form + "$").c_str(), REG_EXTENDED | REG_NOSUB), 0);
    const bool matches = ::regexec(&expression, text.c_str(), 0, nullptr, 0) == 0;
    ::regfree(&expression);
    return matches;
}

TEST(GetVersionTest, ReturnsVersionRevisionAndBuildTime) {
    const std::string time = "[0-9]{2}:[0-9]{2}:[0-9]{2}";
    const std::string commitTime =
        "[A-Z][a-z]{2}, [0-9]{1,2} [A-Z][a-z]{2} [0-9]{4} " + time + " [+-][0-9]{4}";
    const std::string buildTime = "[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{4} " + time;
    const std::string form = R"(string 2\.2\.4 \([0-9a-f]{7} \(changed\), )" + commitTime +
                             ", build date: " + buildTime + R"(\))";
    GetVersion method;
    const std::string version = Execute(method, {});
    EXPECT_TRUE(Matches(version, form)) << version;
}

TEST(GetVersionTest, TakesNoParameter) {
    GetVersion method;
    EXPECT_THROW(Execute(method, Parameters("x")), xmlrpc_c::fault);
}

TEST(GetVersionTest, DeclaresItsFixedSignatureAndNoHelp) {
    const GetVersion method;
    EXPECT_EQ(method.signature(), "i:S");
    EXPECT_EQ(method.help(), "");
}

class GetGrippersTest : public GripperTest {
protected:
    GetGrippers method{&GripperCell::Manager()};
};

TEST_F(GetGrippersTest, ReturnsAnEmptyArrayWithoutMasters) {
    cell.Log().Clear();
    EXPECT_EQ(Execute(method, {}), "array []");
    EXPECT_EQ(cell.Log().OfThisThread(), Messages());
}

TEST_F(GetGrippersTest, ListsDeviceStringsInTheOrderOfPlugging) {
    support::FakeMaster& first = cell.Plug("MZD-L", "9");
    cell.Plug("TLM", "5");
    cell.Plug("HVA", "7");
    EXPECT_EQ(Execute(method, {}), "array [string MZD-L SN:9, string TLM SN:5, string HVA SN:7]");

    cell.Unplug(first);
    cell.Plug("MZD-L", "9");
    EXPECT_EQ(Execute(method, {}), "array [string TLM SN:5, string HVA SN:7, string MZD-L SN:9]");
}

TEST_F(GetGrippersTest, WritesNoLogLineOfItsOwn) {
    cell.Plug("HVA");
    cell.Log().Clear();
    EXPECT_EQ(Execute(method, {}), "array [string HVA SN:100001]");
    EXPECT_EQ(cell.Log().OfThisThread(), Messages());
}

TEST_F(GetGrippersTest, TakesNoParameter) {
    EXPECT_THROW(Execute(method, Parameters("x")), xmlrpc_c::fault);
}

TEST_F(GetGrippersTest, DeclaresAnArrayAndNoHelp) {
    EXPECT_EQ(method.signature(), "A:");
    EXPECT_EQ(method.help(), "");
}

}  // namespace
