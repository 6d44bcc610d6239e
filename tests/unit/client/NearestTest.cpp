#include "client/Nearest.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

using Texts = std::vector<std::string>;

const Texts kCommands{"list", "grip", "release", "home", "get", "set", "GetPos", "GetForce"};

TEST(NearestTest, TypingErrorsAreForgiven) {
    EXPECT_EQ(Nearest("gripp", kCommands), Texts{"grip"});
    EXPECT_EQ(Nearest("lst", kCommands), Texts{"list"});
    EXPECT_EQ(Nearest("relaese", kCommands), Texts{"release"});
}

TEST(NearestTest, CaseIsIgnored) {
    EXPECT_EQ(Nearest("getpos", kCommands), Texts{"GetPos"});
    EXPECT_EQ(Nearest("GRIP", kCommands), Texts{"grip"});
}

TEST(NearestTest, TheMostSimilarComesFirst) {
    EXPECT_EQ(Nearest("ge", kCommands), (Texts{"get", "GetPos", "GetForce"}));
    EXPECT_EQ(Nearest("cat", {"cut", "hat", "cart", "bat", "cat"}).front(), "cat");
    EXPECT_EQ(Nearest("cat", {"cut", "hat", "cart", "bat", "cat"}).size(), 3U);
}

TEST(NearestTest, DissimilarTextsAreNotSuggested) {
    EXPECT_EQ(Nearest("dance", kCommands), Texts());
    EXPECT_EQ(Nearest("", kCommands), Texts());
    EXPECT_EQ(Nearest(std::string(100000, 'g'), kCommands), Texts());
}

TEST(NearestTest, AQuestionNamesThem) {
    EXPECT_EQ(DidYouMean("gripp", kCommands), "; did you mean 'grip'?");
    EXPECT_EQ(DidYouMean("ge", {"get", "GetPos"}), "; did you mean 'get' or 'GetPos'?");
    EXPECT_EQ(DidYouMean("dance", kCommands), "");
}

}  // namespace
}  // namespace tavrik
