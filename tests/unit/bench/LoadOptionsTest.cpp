#include "bench/LoadOptions.h"

#include <gtest/gtest.h>

#include "simulator/TextTools.h"

namespace bench {
namespace {

LoadOptions Parse(std::vector<std::string> added) {
    std::vector<std::string> arguments{"--ports",  "1,2",    "--connections", "3",
                                       "--method", "GetPos", "--device",      "HVA SN:B00",
                                       "--expect", "25.0"};
    arguments.insert(arguments.end(), added.begin(), added.end());
    return ParseLoadOptions(arguments);
}

TEST(LoadOptionsTest, ReadsAll) {
    const LoadOptions options = Parse({"--calls", "7", "--int", "3", "--fin-file", "f"});
    EXPECT_EQ(options.ports, (std::vector<unsigned>{1, 2}));
    EXPECT_EQ(options.connections, 3U);
    EXPECT_EQ(options.calls, 7U);
    EXPECT_EQ(options.seconds, std::nullopt);
    EXPECT_EQ(options.method, "GetPos");
    EXPECT_EQ(options.device, "HVA SN:B00");
    EXPECT_EQ(options.number, 3U);
    EXPECT_EQ(options.expected, "25.0");
    EXPECT_EQ(options.finFile, "f");
    EXPECT_EQ(Parse({"--seconds", "0.5"}).seconds, 0.5);
}

TEST(LoadOptionsTest, RefusesWhatItDoesNotUnderstand) {
    EXPECT_THROW(Parse({}), simulator::UsageError) << "neither calls nor seconds";
    EXPECT_THROW(Parse({"--calls", "1", "--seconds", "1"}), simulator::UsageError);
    EXPECT_THROW(Parse({"--calls", "1", "--ports", "65536"}), simulator::UsageError);
    EXPECT_THROW(Parse({"--calls", "1", "--ports", ""}), simulator::UsageError);
    EXPECT_THROW(Parse({"--calls", "1", "--connections", "0"}), simulator::UsageError);
    EXPECT_THROW(Parse({"--calls", "1", "--device", "a<b"}), simulator::UsageError);
    EXPECT_THROW(Parse({"--seconds", "0"}), simulator::UsageError);
    EXPECT_THROW(Parse({"--calls"}), simulator::UsageError);
    EXPECT_THROW(Parse({"--cals", "1"}), simulator::UsageError);
}

TEST(LoadOptionsTest, NamesWhatIsMissing) {
    try {
        ParseLoadOptions(std::vector<std::string>{"--ports", "1", "--connections", "1", "--method",
                                                  "GetPos", "--device", "HVA"});
        FAIL();
    } catch (const simulator::UsageError& error) {
        EXPECT_STREQ(error.what(), "--expect is needed");
    }
}

TEST(LoadOptionsTest, RequestSaysItsOwnLength) {
    const std::string request = BuildRequest(Parse({"--calls", "1", "--int", "3"}));
    const std::string headerEnd = "\r\n\r\n";
    const std::size_t bodyStart = request.find(headerEnd) + headerEnd.size();
    EXPECT_TRUE(request.starts_with("POST /RPC2 HTTP/1.1\r\n"));
    EXPECT_NE(
        request.find("\r\nContent-Length: " + std::to_string(request.size() - bodyStart) + "\r\n"),
        std::string::npos);
    EXPECT_EQ(request.substr(bodyStart),
              "<?xml version=\"1.0\"?>\r\n<methodCall><methodName>GetPos</methodName><params>"
              "<param><value><string>HVA SN:B00</string></value></param>"
              "<param><value><int>3</int></value></param></params></methodCall>");
}

}  // namespace
}  // namespace bench
