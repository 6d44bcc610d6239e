#include "bench/ExpectedValue.h"

#include <gtest/gtest.h>

namespace bench {
namespace {

std::string XmlAnswer(const std::string& values) {
    return "<?xml version=\"1.0\"?>\r\n<methodResponse>\r\n<params>\r\n<param>" + values +
           "</param>\r\n</params>\r\n</methodResponse>\r\n";
}

TEST(ExpectedValueTest, NumberMayBeWrittenInAnyWay) {
    const ExpectedValue expected("25.0");
    EXPECT_TRUE(expected.IsOnlyValueOf(XmlAnswer("<value><double>25.0</double></value>")));
    EXPECT_TRUE(expected.IsOnlyValueOf(XmlAnswer("<value><double>25</double></value>")));
    EXPECT_TRUE(expected.IsOnlyValueOf(XmlAnswer("<value><int>25</int></value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value><double>25.01</double></value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value><double>-25</double></value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value><double>25.0x</double></value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value><double></double></value>")));
}

TEST(ExpectedValueTest, TextIsComparedToTheLetter) {
    const ExpectedValue expected("HVA");
    EXPECT_TRUE(expected.IsOnlyValueOf(XmlAnswer("<value><string>HVA</string></value>")));
    EXPECT_TRUE(expected.IsOnlyValueOf(XmlAnswer("<value>HVA</value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value>hva</value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value>HVA </value>")));
}

TEST(ExpectedValueTest, EmptyTextIsAValueToo) {
    const ExpectedValue expected("");
    EXPECT_TRUE(expected.IsOnlyValueOf(XmlAnswer("<value><string></string></value>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value><int>0</int></value>")));
}

TEST(ExpectedValueTest, RefusesNoValueAndTwo) {
    const ExpectedValue expected("0");
    EXPECT_FALSE(expected.IsOnlyValueOf(""));
    EXPECT_FALSE(expected.IsOnlyValueOf("<value>0"));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("")));
    EXPECT_FALSE(expected.IsOnlyValueOf(XmlAnswer("<value><int>0</int>")));
    EXPECT_FALSE(expected.IsOnlyValueOf(
        XmlAnswer("<value><int>0</int></value></param><param><value><int>0</int></value>")));
}

TEST(ExpectedValueTest, RefusesAFault) {
    const ExpectedValue expected("0");
    EXPECT_FALSE(expected.IsOnlyValueOf(
        "<methodResponse><fault><value><struct><member><name>faultCode</name>"
        "<value><int>0</int></value></member></struct></value></fault></methodResponse>"));
}

}  // namespace
}  // namespace bench
