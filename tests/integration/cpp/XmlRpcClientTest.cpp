// The daemon as a C++ program sees it: every result type, through the XML-RPC library's own client.
// Its driver, test_cpp_client.py, prepares the one gripper whose values are expected here.

#include <gtest/gtest.h>

#include <string>
#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/client.hpp>
#include <xmlrpc-c/client_transport.hpp>

namespace {

const std::string kGripper = "HVA SN:100001";
const std::string kNobody = "HVA SN:999";

xmlrpc_c::paramList Parameters(const std::string& device) {
    return xmlrpc_c::paramList().add(xmlrpc_c::value_string(device));
}

class XmlRpcClientTest : public testing::TestWithParam<unsigned> {
protected:
    /// Makes one call to the tested port, on a new connection.
    static xmlrpc_c::rpcOutcome Call(const std::string& method,
                                     const xmlrpc_c::paramList& parameters) {
        xmlrpc_c::clientXmlTransport_curl transport;
        xmlrpc_c::client_xml client(&transport);
        xmlrpc_c::carriageParm_curl0 server("http://127.0.0.1:" + std::to_string(GetParam()) +
                                            "/RPC2");
        xmlrpc_c::rpcOutcome outcome;
        client.call(&server, method, parameters, &outcome);
        return outcome;
    }

    static xmlrpc_c::value Answer(const std::string& method,
                                  const xmlrpc_c::paramList& parameters) {
        return Call(method, parameters).getResult();
    }
};

TEST_P(XmlRpcClientTest, GrippersAreAnArrayOfStrings) {
    const xmlrpc_c::value_array grippers(Answer("GetGrippers", {}));
    ASSERT_EQ(grippers.size(), 1U);
    EXPECT_EQ(xmlrpc_c::value_string(grippers.cvalue()[0]).cvalue(), kGripper);
}

TEST_P(XmlRpcClientTest, TheVersionIsAString) {
    const std::string version = xmlrpc_c::value_string(Answer("GetVersion", {})).cvalue();
    EXPECT_EQ(version.rfind("2.2.4 (", 0), 0U) << version;
}

TEST_P(XmlRpcClientTest, StatusAndStateAreInts) {
    auto parameters = Parameters(kGripper);
    EXPECT_EQ(xmlrpc_c::value_int(Answer("GetState", parameters)).cvalue(), 3);
    EXPECT_EQ(xmlrpc_c::value_int(Answer("StoreRemanent", parameters)).cvalue(), 0);
    parameters.add(xmlrpc_c::value_int(1));
    EXPECT_EQ(xmlrpc_c::value_int(Answer("Grip", parameters)).cvalue(), 0);
}

TEST_P(XmlRpcClientTest, FlagsAreBooleans) {
    EXPECT_TRUE(xmlrpc_c::value_boolean(Answer("GetMaintenance", Parameters(kGripper))).cvalue());
    EXPECT_FALSE(xmlrpc_c::value_boolean(Answer("GetFault", Parameters(kGripper))).cvalue());
}

TEST_P(XmlRpcClientTest, PositionsAreDoubles) {
    EXPECT_EQ(xmlrpc_c::value_double(Answer("GetPos", Parameters(kGripper))).cvalue(), 25.0);
}

TEST_P(XmlRpcClientTest, NotANumberArrivesAsZero) {
    EXPECT_EQ(xmlrpc_c::value_double(Answer("GetPos", Parameters(kNobody))).cvalue(), 0.0);
}

TEST_P(XmlRpcClientTest, TheChecksumIsALongIntWithItsSign) {
    const auto checksum = Answer("GetParameterChecksum", Parameters(kGripper));
    EXPECT_EQ(xmlrpc_c::value_i8(checksum).cvalue(), -2147483647LL - 1);
}

TEST_P(XmlRpcClientTest, BooleansAndDoublesAreTakenAsParameters) {
    auto direction = Parameters(kGripper);
    direction.add(xmlrpc_c::value_boolean(true));
    EXPECT_EQ(xmlrpc_c::value_int(Answer("SetReferenceDirection", direction)).cvalue(), 0);
    auto limit = Parameters(kGripper);
    limit.add(xmlrpc_c::value_int(1)).add(xmlrpc_c::value_double(12.5));
    EXPECT_EQ(xmlrpc_c::value_int(Answer("SetReleaseLimit", limit)).cvalue(), 0);
}

TEST_P(XmlRpcClientTest, AMissingParameterIsAFault) {
    const auto outcome = Call("Grip", Parameters(kGripper));
    ASSERT_FALSE(outcome.succeeded());
    EXPECT_FALSE(outcome.getFault().getDescription().empty());
}

INSTANTIATE_TEST_SUITE_P(BothPorts, XmlRpcClientTest, testing::Values(44221U, 44222U));

}  // namespace
