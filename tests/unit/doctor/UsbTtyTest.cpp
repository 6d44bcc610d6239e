#include "doctor/UsbTty.h"

#include <gtest/gtest.h>

namespace tavrik {
namespace {

const UsbTty kMaster{"/dev/ttyACM0", "0483", "5740", "Zentrova", "PELLIX", "PX1"};

TEST(UsbTtyTest, BothProductsAreMasters) {
    UsbTty tty = kMaster;
    EXPECT_TRUE(tty.IsMaster());
    tty.product = "MARROK-7";
    EXPECT_TRUE(tty.IsMaster());
}

TEST(UsbTtyTest, EveryValueThatFailsIsNamed) {
    UsbTty tty = kMaster;
    tty.vendor = "0403";
    tty.product = "PELLIX ";
    EXPECT_EQ(tty.Mismatch(),
              "vendor is \"0403\", not \"0483\"; "
              "product is \"PELLIX \", not \"PELLIX\" or \"MARROK-7\"");
}

TEST(UsbTtyTest, AValueThatIsMissingIsNamed) {
    UsbTty tty = kMaster;
    tty.manufacturer.clear();
    EXPECT_EQ(tty.Mismatch(), "manufacturer is missing, not \"Zentrova\"");
}

}  // namespace
}  // namespace tavrik
