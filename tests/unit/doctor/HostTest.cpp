#include "doctor/Host.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace tavrik {
namespace {

constexpr uid_t kNobody = 65534;
constexpr gid_t kGroup = 65534;  // of nobody
constexpr uid_t kStranger = 4242;

struct stat Node(uid_t user, gid_t group, mode_t mode) {
    struct stat node = {};
    node.st_uid = user;
    node.st_gid = group;
    node.st_mode = S_IFCHR | mode;
    return node;
}

TEST(AccountTest, ReadAndWritePermissionAreBothNeeded) {
    const auto nobody = Account::OfUser("nobody");
    ASSERT_TRUE(nobody);
    EXPECT_TRUE(nobody->MayReadAndWrite(Node(kNobody, kStranger, 0600)));
    EXPECT_FALSE(nobody->MayReadAndWrite(Node(kNobody, kStranger, 0466)));
    EXPECT_TRUE(nobody->MayReadAndWrite(Node(kStranger, kGroup, 0060)));
    EXPECT_FALSE(nobody->MayReadAndWrite(Node(kStranger, kGroup, 0646)));
    EXPECT_TRUE(nobody->MayReadAndWrite(Node(kStranger, kStranger, 0006)));
    EXPECT_FALSE(nobody->MayReadAndWrite(Node(kStranger, kStranger, 0664)));
}

TEST(AccountTest, RootMayDoEverything) {
    EXPECT_TRUE(Account::OfUser("root")->MayReadAndWrite(Node(kStranger, kStranger, 0)));
}

TEST(AccountTest, AnUnknownUserHasNoAccount) {
    EXPECT_FALSE(Account::OfUser("no such user"));
}

TEST(AccountTest, AProcessHasItsUser) {
    EXPECT_EQ(Account::OfProcess(getpid())->Name(), UserName(geteuid()));
    EXPECT_FALSE(Account::OfProcess(0));
}

TEST(AccountTest, UsersWithoutANameAreShownAsNumbers) {
    EXPECT_EQ(UserName(0), "root");
    EXPECT_EQ(UserName(3999999999), "3999999999");
    EXPECT_EQ(PermissionText(Node(0, 3999999999, 0660)), "root:3999999999 0660");
}

TEST(ThisMachineTest, LoopbackIsThisMachineInAnyForm) {
    for (const char* const host : {"127.0.0.1", "127.1", "localhost", "2130706433", "0.0.0.0"}) {
        EXPECT_TRUE(IsThisMachine(host)) << host;
    }
}

TEST(ThisMachineTest, OthersAreNot) {
    for (const char* const host : {"192.0.2.1", "no such name", ""}) {
        EXPECT_FALSE(IsThisMachine(host)) << host;
    }
}

}  // namespace
}  // namespace tavrik
