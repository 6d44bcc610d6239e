#include "client/JsonFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <string>

#include "tests/unit/client/ExpectFailure.h"
#include "tests/unit/client/TemporaryFile.h"

namespace tavrik {
namespace {

namespace fs = std::filesystem;

class JsonFileTest : public testing::Test {
protected:
    void ExpectInvalid(const std::string& text, const std::string& reason) const {
        file.Write(text);
        EXPECT_FAILURE(ReadJsonFile(path), Usage, (path + ": " + reason).c_str());
    }

    const TemporaryFile file;
    const std::string path = file.path;
    const fs::path folder = file.folder;
};

TEST_F(JsonFileTest, OnlyOneCompleteObjectIsAccepted) {
    file.Write(R"({"a": [1, {"a": 2}]})");
    EXPECT_EQ(ReadJsonFile(path)["a"][1]["a"], 2);
    ExpectInvalid("", "not JSON, or truncated, at byte 1");
    ExpectInvalid(R"({"a": [1, )", "not JSON, or truncated, at byte 11");
    ExpectInvalid("{} {}", "not JSON, or truncated, at byte 4");
    ExpectInvalid("[1]", "not a JSON object");
    ExpectInvalid("{\"\xff\": 1}", "not JSON, or truncated, at byte 3");
    ExpectInvalid(R"({"a": 1e999})", "has a number that is too large");
}

TEST_F(JsonFileTest, DuplicateNamesAreRejected) {
    ExpectInvalid(R"({"a": 1, "a": 2})", "duplicate name 'a'");
    ExpectInvalid(R"({"a": [{"b": 1, "c": {"b": 1}, "b": 2}]})", "duplicate name 'b'");
}

TEST_F(JsonFileTest, LargeFilesAreRejected) {
    ExpectInvalid(std::string((1U << 20U) + 1, ' '), "too large");
    EXPECT_FAILURE(ReadJsonFile("/dev/zero"), Usage, "/dev/zero: too large");
}

TEST_F(JsonFileTest, NestedArraysAreReadToTheEnd) {
    ExpectInvalid(std::string(1U << 14U, '['), "not JSON, or truncated, at byte 16385");
}

TEST_F(JsonFileTest, AMillionNestedArraysAreReadToTheEnd) {
    ExpectInvalid(std::string(1U << 20U, '['), "not JSON, or truncated, at byte 1048577");
}

TEST_F(JsonFileTest, AFileThatCannotBeReadIsNamedWithTheReason) {
    EXPECT_FAILURE(ReadJsonFile(path), Usage,
                   (path + ": cannot be read: No such file or directory").c_str());
    EXPECT_FAILURE(ReadJsonFile(folder), Usage,
                   (folder.string() + ": cannot be read: Is a directory").c_str());
}

TEST_F(JsonFileTest, TheTextIsSortedAndHasALineForEachElement) {
    EXPECT_EQ(JsonFileText({{"b", 2.5},
                            {"a", {{{"y", 1}, {"x", true}}, {{"x", false}}}},
                            {"c", nlohmann::json::array()},
                            {"d", "\u00e4"}}),
              "{\n"
              "  \"a\": [\n"
              "    {\"x\":true,\"y\":1},\n"
              "    {\"x\":false}\n"
              "  ],\n"
              "  \"b\": 2.5,\n"
              "  \"c\": [],\n"
              "  \"d\": \"\\u00e4\"\n"
              "}\n");
}

TEST_F(JsonFileTest, AFileIsReplacedAndNothingElseIsLeft) {
    ReplaceFile(path, "old");
    ReplaceFile(path, "new");
    EXPECT_EQ(file.Content(), "new");
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1);
}

TEST_F(JsonFileTest, ASymbolicLinkIsFollowed) {
    file.Write("old");
    fs::create_symlink(path, folder / "link");
    ReplaceFile(folder / "link", "new");
    EXPECT_EQ(file.Content(), "new");
    EXPECT_TRUE(fs::is_symlink(folder / "link"));
}

TEST_F(JsonFileTest, OnlyRegularFilesAreReplaced) {
    EXPECT_FAILURE(ReplaceFile(folder, "new"), Failed,
                   ("failed to write " + folder.string() + ": it is not a regular file").c_str());
    EXPECT_FAILURE(ReplaceFile("/dev/null", "new"), Failed,
                   "failed to write /dev/null: it is not a regular file");
    EXPECT_FAILURE(
        ReplaceFile(folder / "none" / "file", "new"), Failed,
        ("failed to write " + (folder / "none" / "file").string() + ": No such file or directory")
            .c_str());
}

TEST_F(JsonFileTest, FormatAndVersionAreChecked) {
    ExpectFormat({{"format", "cell"}, {"version", 1}}, "f", "cell", 1);
    EXPECT_FAILURE(ExpectFormat({{"version", 1}}, "f", "cell", 1), Usage,
                   "f: 'format' is not 'cell'");
    EXPECT_FAILURE(ExpectFormat({{"format", "cell"}, {"version", 2}}, "f", "cell", 1), Usage,
                   "f: version 2 of its format is not supported, only 1");
    EXPECT_FAILURE(ExpectFormat({{"format", "cell"}, {"version", "1"}}, "f", "cell", 1), Usage,
                   "f: version \"1\" of its format is not supported, only 1");
}

}  // namespace
}  // namespace tavrik
