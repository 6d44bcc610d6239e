#include <gtest/gtest.h>

#include <string>

#include <xmlrpc-c/base.hpp>
#include <xmlrpc-c/registry.hpp>

#include "tests/unit/daemon/fence/EchoCall.h"

namespace {

std::string AsUtf16(const std::string& text) {
    std::string wide = "\xFF\xFE";
    for (const char c : text) {
        wide += c;
        wide += '\0';
    }
    return wide;
}

}  // namespace

TEST(DocumentTypeTest, DocumentTypeIsAFault) {
    const std::string declaration = "<!DOCTYPE a [<!ENTITY b \"c\">]>";
    EXPECT_TRUE(Contains(Answer("&b;", declaration), "Document types are not supported"));
    EXPECT_TRUE(
        Contains(Answer("&b;", "<?xml version=\"1.0\"?>\n<!-- a -->" + declaration), "<fault>"));
}

TEST(DocumentTypeTest, DocumentTypeInAnotherEncodingIsAFault) {
    xmlrpc_c::registry registry;
    std::string response;
    registry.processCall(AsUtf16("<!DOCTYPE a><methodCall><methodName>system.listMethods"
                                 "</methodName></methodCall>"),
                         &response);
    EXPECT_TRUE(Contains(response, "Document types are not supported"));
}

TEST(DocumentTypeTest, EntitiesOfEntitiesAreNotExpanded) {
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

TEST(DocumentTypeTest, OtherMarkupBeforeTheFirstElementIsParsed) {
    for (const char* const prologue :
         {"<?xml version=\"1.0\"?><!-- b -->", "<?xml version=\"1.0\"?>\r\n\t ",
          "<!-- <!DOCTYPE a> --><!----><!-- > -->", "<?a <!DOCTYPE b>?>"}) {
        EXPECT_TRUE(Contains(Answer("a", prologue), "a</string>")) << prologue;
    }
}

TEST(DocumentTypeTest, DocumentTypeTextIsAllowedInsideValuesAndComments) {
    EXPECT_TRUE(Contains(Answer("&lt;!DOCTYPE a&gt;"), "&lt;!DOCTYPE a"));
    EXPECT_TRUE(Contains(Answer("<![CDATA[<!DOCTYPE a>]]>"), "&lt;!DOCTYPE a"));
    EXPECT_TRUE(Contains(Answer("a<!-- <!DOCTYPE a> -->b"), "ab</string>"));
}

TEST(DocumentTypeTest, DocumentTypeAfterAnyPrologueIsAFault) {
    for (const char* const prologue :
         {"", " ", "\r\n", "<?xml version=\"1.0\"?>", "<!-- a -->", "<!---->", "<!-- <a> -->",
          "<?a <b>?>", "<?a?><!-- b --> <?c?>"}) {
        EXPECT_TRUE(Contains(Answer("a", prologue + std::string("<!DOCTYPE a>")),
                             "Document types are not supported"))
            << prologue;
    }
}

TEST(DocumentTypeTest, ParserRejectsADocumentTypeAfterTheFirstElement) {
    for (const char* const prologue : {"<a/>", "a", "<a>", "<!-- -- ", "<?a", "<!ELEMENT a>"}) {
        const std::string answer =
            Answer("&b;", prologue + std::string("<!DOCTYPE a [<!ENTITY b \"c\">]>"));
        EXPECT_TRUE(Contains(answer, "<fault>")) << prologue;
    }
}
