#include "client/ExpectedCell.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/client/ExpectFailure.h"
#include "tests/unit/client/TemporaryFile.h"

namespace tavrik {
namespace {

using Names = std::vector<std::string>;

/// The differences as lines such as "HVA SN:1 is missing".
Names Changes(const Names& expected, const Names& found) {
    Names lines;
    for (const auto& each : ExpectedCell(expected).Compare(found)) {
        lines.push_back((each.found.empty() ? each.expected : each.found) + " " + each.Text());
    }
    return lines;
}

TEST(ExpectedCellTest, TheOrderDoesNotMatter) {
    EXPECT_EQ(Changes({"HVA SN:1", "TLM SN:2"}, {"TLM SN:2", "HVA SN:1"}), Names());
    EXPECT_EQ(ExpectedCell({"HVA SN:1", "TLM SN:2"}).FileText(),
              ExpectedCell({"TLM SN:2", "HVA SN:1"}).FileText());
}

TEST(ExpectedCellTest, MissingAndNewGrippersAreFound) {
    EXPECT_EQ(Changes({"HVA SN:1", "TLM SN:2"}, {"TLM SN:2", "MZD-S SN:3"}),
              (Names{"HVA SN:1 is missing", "MZD-S SN:3 is new"}));
}

TEST(ExpectedCellTest, OneOfTheSameProductIsAnExchange) {
    EXPECT_EQ(Changes({"HVA SN:1", "HVA SN:2", "TLM SN:3"}, {"HVA SN:2", "HVA SN:4", "TLM SN:5"}),
              (Names{"HVA SN:4 is in the place of 'HVA SN:1'",
                     "TLM SN:5 is in the place of 'TLM SN:3'"}));
}

TEST(ExpectedCellTest, AnAmbiguousExchangeIsNotGuessed) {
    EXPECT_EQ(Changes({"HVA SN:1", "HVA SN:2"}, {"HVA SN:3", "HVA SN:4"}),
              (Names{"HVA SN:1 is missing", "HVA SN:2 is missing", "HVA SN:3 is new",
                     "HVA SN:4 is new"}));
    EXPECT_EQ(Changes({"HVA SN:1", "HVA SN:2"}, {"HVA SN:3"}),
              (Names{"HVA SN:1 is missing", "HVA SN:2 is missing", "HVA SN:3 is new"}));
}

TEST(ExpectedCellTest, EqualNamesAreCounted) {
    EXPECT_EQ(Changes({"TLM SN:7", "TLM SN:7"}, {"TLM SN:7", "TLM SN:7"}), Names());
    EXPECT_EQ(Changes({"TLM SN:7", "TLM SN:7"}, {"TLM SN:7"}), Names{"TLM SN:7 is missing"});
    EXPECT_EQ(Changes({"TLM SN:7"}, {"TLM SN:7", "TLM SN:7"}), Names{"TLM SN:7 is new"});
}

TEST(ExpectedCellTest, TheFileHasTheNames) {
    const TemporaryFile file;
    const ExpectedCell cell({"HVA SN:1", "A \"\t\xc3\xa4"});
    EXPECT_EQ(cell.FileText(),
              "{\n"
              "  \"format\": \"TavrikDaemon cell\",\n"
              "  \"grippers\": [\n"
              "    \"A \\\"\\t\\u00e4\",\n"
              "    \"HVA SN:1\"\n"
              "  ],\n"
              "  \"version\": 1\n"
              "}\n");
    file.Write(cell.FileText());
    EXPECT_EQ(ExpectedCell::FromFile(file.path).FileText(), cell.FileText());
}

TEST(ExpectedCellTest, OtherFilesAreRejected) {
    const TemporaryFile file;
    const auto expectInvalid = [&](const std::string& rest, const std::string& reason) {
        file.Write(R"({"format": "TavrikDaemon cell", "version": 1)" + rest + "}");
        EXPECT_FAILURE(ExpectedCell::FromFile(file.path), Usage,
                       (file.path + ": " + reason).c_str());
    };
    const std::string noNames = "'grippers' must be an array of device strings";
    expectInvalid("", noNames);
    expectInvalid(R"(, "grippers": "HVA")", noNames);
    expectInvalid(R"(, "grippers": ["HVA", 1])", noNames);
    expectInvalid(R"(, "grippers": [], "cell": 1)",
                  "has more than 'format', 'version' and 'grippers'");
    file.Write(R"({"format": "TavrikDaemon gripper settings", "version": 1})");
    EXPECT_FAILURE(ExpectedCell::FromFile(file.path), Usage,
                   (file.path + ": 'format' is not 'TavrikDaemon cell'").c_str());
}

}  // namespace
}  // namespace tavrik
