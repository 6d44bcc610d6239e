#include "doctor/ReservationCheck.h"

#include <gtest/gtest.h>

#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

Finding CheckPorts(const std::string& range, const std::string& reserved) {
    const FakeFolder settings;
    settings.Write("ip_local_port_range", range);
    settings.Write("ip_local_reserved_ports", reserved);
    return ReservationCheck(settings.Path() + "/").Run().front();
}

TEST(ReservationCheckTest, BothPortsMustBeReserved) {
    EXPECT_EQ(CheckPorts("32768\t60999\n", "44221-44222\n").mark, Mark::Ok);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "44222\n").mark, Mark::Warning);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "44221\n").mark, Mark::Warning);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "\n").mark, Mark::Warning);
}

TEST(ReservationCheckTest, PortsOutsideOfTheRangeNeedNotBeReserved) {
    EXPECT_EQ(CheckPorts("50000\t60999\n", "\n").mark, Mark::Ok);
    EXPECT_EQ(CheckPorts("32768\t44220\n", "\n").mark, Mark::Ok);
    EXPECT_EQ(CheckPorts("44222\t60999\n", "\n").mark, Mark::Warning);
    EXPECT_EQ(CheckPorts("32768\t44221\n", "\n").mark, Mark::Warning);
}

TEST(ReservationCheckTest, TheRemedyKeepsWhatOthersHaveReserved) {
    EXPECT_EQ(CheckPorts("32768\t60999\n", "50000,50010-50020\n")
                  .remedy.find("sysctl -w net.ipv4.ip_local_reserved_ports="
                               "50000,50010-50020,44221,44222 ; "),
              0U);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "\n")
                  .remedy.find("sysctl -w net.ipv4.ip_local_reserved_ports=44221,44222 ; "),
              0U);
}

TEST(ReservationCheckTest, WithoutTheSettingsNothingIsSaid) {
    EXPECT_EQ(ReservationCheck("/no/such/folder/").Run().front().mark, Mark::Unknown);
}

}  // namespace
}  // namespace tavrik
