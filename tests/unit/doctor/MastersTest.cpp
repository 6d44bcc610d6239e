#include "doctor/Masters.h"

#include <gtest/gtest.h>
#include <sys/xattr.h>

#include <array>

#include "doctor/Host.h"
#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

const UsbTty kMaster{"/dev/ttyACM0", "0483", "5740", "Zentrova", "PELLIX", "PX1"};

TEST(UsbTtyTest, BothProductsAreMasters) {
    UsbTty tty = kMaster;
    EXPECT_TRUE(tty.IsMaster());
    tty.product = "MARROK-7";
    EXPECT_TRUE(tty.IsMaster());
}

TEST(UsbTtyTest, EveryMismatchIsNamed) {
    UsbTty tty = kMaster;
    tty.vendor = "0403";
    tty.product = "PELLIX ";
    EXPECT_EQ(tty.Mismatch(),
              "vendor is \"0403\", not \"0483\"; "
              "product is \"PELLIX \", not \"PELLIX\" or \"MARROK-7\"");
}

TEST(UsbTtyTest, AMissingValueIsNamed) {
    UsbTty tty = kMaster;
    tty.manufacturer.clear();
    EXPECT_EQ(tty.Mismatch(), "manufacturer is missing, not \"Zentrova\"");
}

UsbTty MasterAt(const std::string& node) {
    return {node, "0483", "5740", "Zentrova", "PELLIX", "PX1"};
}

/// The findings for a node that user nobody may not open by its mode.
Findings CheckForNobody(const UsbTty& tty) {
    const FakeFolder proc;
    proc.AddProcess(1, "init");
    const Host host{
        ProcessTable(proc.Path()), std::nullopt, std::nullopt, Account::OfUser("nobody"), {}};
    return CheckTty(host, tty);
}

TEST(TtyCheckTest, AUserWithoutPermissionIsNamed) {
    const FakeFolder dev;
    dev.Write("ttyACM0", "");
    const Findings findings = CheckForNobody(MasterAt(dev.Path() + "/ttyACM0"));
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings.front().mark, Mark::Wrong);
    EXPECT_EQ(findings.front().text.find("master, but user nobody may not open it: "), 0U);
}

TEST(TtyCheckTest, AnAccessListMayGrantPermission) {
    const FakeFolder dev;
    dev.Write("ttyACM0", "");
    const std::string node = dev.Path() + "/ttyACM0";
    // rw for the owner and for user 65534, of the kernel's version 2: tag, rights, id
    constexpr std::array<unsigned char, 44> kList{
        2,  0, 0, 0,                                                         //
        1,  0, 6, 0, 255, 255, 255, 255, 2,    0, 6, 0, 254, 255, 0,   0,    //
        4,  0, 0, 0, 255, 255, 255, 255, 0x10, 0, 6, 0, 255, 255, 255, 255,  //
        32, 0, 0, 0, 255, 255, 255, 255};
    if (setxattr(node.c_str(), "system.posix_acl_access", kList.data(), kList.size(), 0) != 0) {
        GTEST_SKIP() << "the file system has no access lists";
    }
    const Findings findings = CheckForNobody(MasterAt(node));
    ASSERT_EQ(findings.size(), 1U);
    EXPECT_EQ(findings.front().mark, Mark::Unknown);
    EXPECT_EQ(findings.front().remedy, "see: getfacl " + node);
}

}  // namespace
}  // namespace tavrik
