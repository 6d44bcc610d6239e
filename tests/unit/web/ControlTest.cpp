#include "web/Control.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace {

using std::chrono::seconds;
using tavrik::Control;
using Denial = Control::Denial;

class ControlTest : public testing::Test {
protected:
    Denial Take(const std::string& code) { return control.Take(code, "10.0.0.1", token); }

    Control::Clock::time_point now{std::chrono::hours(1)};
    Control control{true, [this] { return now; }};
    std::string token;
};

TEST_F(ControlTest, NobodyHasItAtTheStart) {
    EXPECT_FALSE(control.IsHeldBy(""));
    EXPECT_EQ(control.Json()["held"], false);
}

TEST_F(ControlTest, TheCodeGivesIt) {
    EXPECT_EQ(Take(control.Code()), Denial::None);
    EXPECT_EQ(token.size(), 32U);
    EXPECT_TRUE(control.IsHeldBy(token));
    EXPECT_FALSE(control.IsHeldBy(token + "0"));
    EXPECT_EQ(control.Json()["by"], "10.0.0.1");
}

TEST_F(ControlTest, IsNeverGivenUnlessAllowed) {
    Control other(false);
    EXPECT_EQ(other.Take(other.Code(), "10.0.0.1", token), Denial::NotAllowed);
    EXPECT_EQ(token, "");
}

TEST_F(ControlTest, EndsAMinuteAfterTheLastSignOfLife) {
    Take(control.Code());
    now += seconds(59);
    EXPECT_TRUE(control.IsHeldBy(token));
    now += seconds(59);
    EXPECT_TRUE(control.IsHeldBy(token));
    now += seconds(60);
    EXPECT_FALSE(control.IsHeldBy(token));
    EXPECT_EQ(control.Json()["held"], false);
}

TEST_F(ControlTest, GoesToTheNextPageWithTheCode) {
    Take(control.Code());
    const std::string first = token;
    const auto number = control.Json()["holder"];
    Take(control.Code());
    EXPECT_FALSE(control.IsHeldBy(first));
    EXPECT_TRUE(control.IsHeldBy(token));
    EXPECT_NE(control.Json()["holder"], number);
    control.Release(first);
    EXPECT_TRUE(control.IsHeldBy(token));
    control.Release(token);
    EXPECT_FALSE(control.IsHeldBy(token));
}

TEST_F(ControlTest, RefusesAllCodesForAMinuteAfterFiveWrongOnes) {
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(Take("0"), Denial::WrongCode);
    }
    EXPECT_EQ(Take(control.Code()), Denial::TooManyAttempts);
    now += seconds(59);
    EXPECT_EQ(Take(control.Code()), Denial::TooManyAttempts);
    now += seconds(1);
    EXPECT_EQ(Take(control.Code()), Denial::None);
}

TEST_F(ControlTest, TheCodeIsEightDigitsAndNewAtEachStart) {
    EXPECT_EQ(control.Code().size(), 8U);
    EXPECT_EQ(control.Code().find_first_not_of("0123456789"), std::string::npos);
    EXPECT_NE(control.Code() + Control(true).Code(), Control(true).Code() + Control(true).Code());
}

}  // namespace
