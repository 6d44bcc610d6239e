#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

namespace {

/// Answers its parameter.
class Echo : public xmlrpc_c::method {
public:
    void execute(const xmlrpc_c::paramList& params, xmlrpc_c::value* result) override {
        *result = xmlrpc_c::value_string(params.getString(0));
    }
};

/// The response to a call of Echo with the XML of one value.
std::string Answer(const std::string& value, const std::string& prologue = {}) {
    xmlrpc_c::registry registry;
    registry.addMethod("Echo", xmlrpc_c::methodPtr(new Echo));
    std::string response;
    registry.processCall(prologue +
                             "<methodCall><methodName>Echo</methodName><params><param><value>" +
                             value + "</value></param></params></methodCall>",
                         &response);
    return response;
}

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string AsUtf16(const std::string& text) {
    std::string wide = "\xFF\xFE";
    for (const char c : text) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

}  // namespace

TEST(RequestGuardTest, LargeIntegerThatIsNoneIsAFault) {
    for (const char* text : {"x", "", "1|||", "99999999999999999999"}) {
        EXPECT_TRUE(Contains(Answer(std::string("<i8>") + text + "</i8>"), "<fault>")) << text;
        EXPECT_TRUE(Contains(Answer(std::string("<ex:i8>") + text + "</ex:i8>"), "<fault>"));
    }
    EXPECT_TRUE(Contains(Answer("<i8>x</i8>"),
                         "value is invalid because it does not represent a 64 bit integer"));
}

TEST(RequestGuardTest, OtherFaultsKeepTheirTexts) {
    EXPECT_TRUE(Contains(Answer("<int>x</int>"), "'x'"));
    EXPECT_TRUE(Contains(Answer("<double>x</double>"), "'x'"));
}

TEST(RequestGuardTest, DocumentTypeIsAFault) {
    const std::string declaration = "<!DOCTYPE a [<!ENTITY b \"c\">]>";
    EXPECT_TRUE(Contains(Answer("&b;", declaration), "Document types are not supported"));
    EXPECT_TRUE(
        Contains(Answer("&b;", "<?xml version=\"1.0\"?>\n<!-- a -->" + declaration), "<fault>"));
}

TEST(RequestGuardTest, DocumentTypeInAnotherEncodingIsAFault) {
    xmlrpc_c::registry registry;
    std::string response;
    registry.processCall(AsUtf16("<!DOCTYPE a><methodCall><methodName>system.listMethods"
                                 "</methodName></methodCall>"),
                         &response);
    EXPECT_TRUE(Contains(response, "Document types are not supported"));
}

TEST(RequestGuardTest, EntitiesOfEntitiesAreNotExpanded) {
    std::string declaration = "<!DOCTYPE a [<!ENTITY e0 \"lol\">";
    for (int i = 1; i < 12; ++i) {
        declaration += "<!ENTITY e" + std::to_string(i) + " \"";
        for (int copy = 0; copy < 10; ++copy) {
            declaration += "&e" + std::to_string(i - 1) + ";";
        }
        declaration += "\">";
    }
    EXPECT_TRUE(Contains(Answer("&e11;", declaration + "]>"), "<fault>"));
}

TEST(RequestGuardTest, OtherMarkupIsParsed) {
    EXPECT_TRUE(Contains(Answer("a", "<?xml version=\"1.0\"?><!-- b -->"), "a</string>"));
    EXPECT_TRUE(Contains(Answer("&lt;!DOCTYPE a&gt;"), "&lt;!DOCTYPE a"));
    EXPECT_TRUE(Contains(Answer("<![CDATA[<!DOC]]>"), "&lt;!DOC"));
}
