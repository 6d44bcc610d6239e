#include "doctor/Ports.h"

#include <gtest/gtest.h>

#include "tests/unit/doctor/FakeFolder.h"

namespace tavrik {
namespace {

constexpr unsigned kLookedForPort = 44221;  // ACBD
constexpr const char* kTitles = "  sl  local_address rem_address   st tx_queue rx_queue tr\n";

/// A line of the kernel's table.
std::string Line(const std::string& local, const std::string& state, int user, int inode) {
    return "   0: " + local + " 00000000:0000 " + state +
           " 00000000:00000000 00:00000000 00000000 " + std::to_string(user) + " 0 " +
           std::to_string(inode) + " 1 0000000000000000 100\n";
}

std::vector<std::uint64_t> Inodes(const std::string& tcp, const std::string& tcp6) {
    const FakeFolder net;
    net.Write("tcp", kTitles + tcp);
    net.Write("tcp6", kTitles + tcp6);
    std::vector<std::uint64_t> inodes;
    const auto sockets = ListTcpSockets(kLookedForPort, net.Path() + "/");
    for (const TcpSocket& socket : sockets.value()) {
        inodes.push_back(socket.inode);
    }
    return inodes;
}

TEST(TcpSocketTest, OnlySocketsOfThePortAreListed) {
    EXPECT_EQ(Inodes(Line("0100007F:ACBD", "01", 0, 5) + Line("0100007F:ACBE", "01", 0, 6), ""),
              (std::vector<std::uint64_t>{5}));
}

TEST(TcpSocketTest, ListenersComeFirstAndOrphansLast) {
    EXPECT_EQ(Inodes(Line("0100007F:ACBD", "06", 0, 0) + Line("0100007F:ACBD", "01", 0, 6),
                     Line("00000000000000000000000000000000:ACBD", "0A", 0, 7)),
              (std::vector<std::uint64_t>{7, 6, 0}));
}

TEST(TcpSocketTest, Ipv6SocketsAreListedIfTheyAcceptIpv4) {
    EXPECT_EQ(Inodes("", Line("0000000000000000FFFF00000100007F:ACBD", "01", 0, 5) +
                             Line("00000000000000000000000000000000:ACBD", "0A", 0, 6) +
                             Line("00000000000000000000000001000000:ACBD", "0A", 0, 7)),
              (std::vector<std::uint64_t>{6, 5}));
}

TEST(TcpSocketTest, UserAndStateAreRead) {
    const FakeFolder net;
    net.Write("tcp", Line("00000000:ACBD", "0A", 998, 5));
    const auto sockets = ListTcpSockets(kLookedForPort, net.Path() + "/");
    ASSERT_EQ(sockets->size(), 1U);
    EXPECT_EQ(sockets->front().user, 998U);
    EXPECT_TRUE(sockets->front().IsListening());
}

TEST(TcpSocketTest, MalformedLinesAreIgnored) {
    EXPECT_TRUE(Inodes("   0: 0100007F:ACBD\n\n   1: x y z\n", "").empty());
}

TEST(TcpSocketTest, MissingTablesAreReported) {
    EXPECT_FALSE(ListTcpSockets(kLookedForPort, "/no/such/folder/"));
}

TEST(PortListTest, RangesAndSinglePorts) {
    const std::string list = "10-12,44222,50000-50001";
    for (const unsigned port : {10U, 11U, 12U, 44222U, 50000U, 50001U}) {
        EXPECT_TRUE(IsPortInList(port, list)) << port;
    }
    for (const unsigned port : {9U, 13U, 44221U, 44223U, 50002U}) {
        EXPECT_FALSE(IsPortInList(port, list)) << port;
    }
}

TEST(PortListTest, AnEmptyOrMalformedListHasNoPorts) {
    EXPECT_FALSE(IsPortInList(0, ""));
    EXPECT_FALSE(IsPortInList(0, ",x,-"));
}

Finding CheckPorts(const std::string& range, const std::string& reserved) {
    const FakeFolder settings;
    settings.Write("ip_local_port_range", range);
    settings.Write("ip_local_reserved_ports", reserved);
    return CheckReservation(settings.Path() + "/");
}

TEST(ReservationCheckTest, BothPortsMustBeReserved) {
    EXPECT_EQ(CheckPorts("32768\t60999\n", "44221-44222\n").mark, Mark::Ok);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "44222\n").mark, Mark::Warning);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "44221\n").mark, Mark::Warning);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "\n").mark, Mark::Warning);
}

TEST(ReservationCheckTest, PortsOutsideTheRangeNeedNoReservation) {
    EXPECT_EQ(CheckPorts("50000\t60999\n", "\n").mark, Mark::Ok);
    EXPECT_EQ(CheckPorts("32768\t44220\n", "\n").mark, Mark::Ok);
    EXPECT_EQ(CheckPorts("44222\t60999\n", "\n").mark, Mark::Warning);
    EXPECT_EQ(CheckPorts("32768\t44221\n", "\n").mark, Mark::Warning);
}

TEST(ReservationCheckTest, TheRemedyKeepsOtherReservations) {
    EXPECT_EQ(CheckPorts("32768\t60999\n", "50000,50010-50020\n")
                  .remedy.find("sysctl -w net.ipv4.ip_local_reserved_ports="
                               "50000,50010-50020,44221,44222 ; "),
              0U);
    EXPECT_EQ(CheckPorts("32768\t60999\n", "\n")
                  .remedy.find("sysctl -w net.ipv4.ip_local_reserved_ports=44221,44222 ; "),
              0U);
}

TEST(ReservationCheckTest, MissingSettingsAreReportedAsUnknown) {
    EXPECT_EQ(CheckReservation("/no/such/folder/").mark, Mark::Unknown);
}

}  // namespace
}  // namespace tavrik
