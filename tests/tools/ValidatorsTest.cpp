// Argument validators: the exact values and messages a client gets.
#include "tools/Validators.h"

#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::tools {
namespace {

template <typename F>
std::string messageOf(F&& f) {
    try {
        f();
    } catch (const ServerError& error) {
        return error.what();
    }
    return "(no error)";
}

TEST(Validators, ResultLimitClampsNumbersAndBooleansAndRefusesOthers) {
    const std::pair<Json, long long> cases[] = {{0, 1},     {-5, 1},    {1000, 200}, {2.9, 2},
                                                {0.9, 1},   {true, 1},  {false, 1},  {Json::parse("1e300"), 200},
                                                {Json::parse("-1e300"), 1}, {Json::parse("18446744073709551615"), 200}};
    for (const auto& [value, expected] : cases) EXPECT_EQ(resultLimit(&value, 50), expected) << value.dump();
    EXPECT_EQ(resultLimit(nullptr, 50), 50);
    for (const Json& bad : {Json("10"), Json(nullptr), Json::array()})
        EXPECT_EQ(messageOf([&] { resultLimit(&bad, 20); }), "limit must be a number.");
}

TEST(Validators, OptionalStringCountsBeforeTrimming) {
    const Json blanks = "   ";
    EXPECT_EQ(optionalString(&blanks, "folder"), std::nullopt);
    const Json padded = " \u3000Projects\u0085 ";
    EXPECT_EQ(optionalString(&padded, "folder"), "Projects");
    const Json manyBlanks = std::string(kMaximumShortStringCharacters + 1, ' ');
    EXPECT_EQ(messageOf([&] { optionalString(&manyBlanks, "folder"); }), "folder must be a short string.");
    const Json longest = std::string(kMaximumShortStringCharacters, 'a');
    EXPECT_EQ(optionalString(&longest, "tag")->size(), kMaximumShortStringCharacters);
    const Json number = 5;
    EXPECT_EQ(messageOf([&] { optionalString(&number, "attachment_name"); }), "attachment_name must be a short string.");
    EXPECT_EQ(optionalString(nullptr, "tag"), std::nullopt);
}

TEST(Validators, NoteTitleMessages) {
    for (const Json& bad : {Json(nullptr), Json(5)}) EXPECT_EQ(messageOf([&] { noteTitle(&bad); }), "title is required.");
    EXPECT_EQ(messageOf([] { noteTitle(nullptr); }), "title is required.");
    const Json blanks = " \n\t";
    EXPECT_EQ(messageOf([&] { noteTitle(&blanks); }), "title must contain 1 to 1000 characters.");
    const Json longest = "  " + std::string(kMaximumTitleCharacters, 'x') + "  ";
    EXPECT_EQ(noteTitle(&longest), std::string(kMaximumTitleCharacters, 'x'));
    const Json tooLong = std::string(kMaximumTitleCharacters + 1, 'x');
    EXPECT_EQ(messageOf([&] { noteTitle(&tooLong); }), "title must contain 1 to 1000 characters.");
    // Characters, not bytes: 1000 accented letters of two code points each are fine.
    std::string accented;
    for (std::size_t i = 0; i < kMaximumTitleCharacters; ++i) accented += "e\u0301";
    const Json wide = accented;
    EXPECT_EQ(noteTitle(&wide), accented);
}

TEST(Validators, NoteContentMeasuresBytes) {
    EXPECT_EQ(noteContent(nullptr, "old"), "old");
    const Json empty = "";
    EXPECT_EQ(noteContent(&empty, "old"), "");
    const Json exact = std::string(kMaximumNoteBytes, 'a');
    EXPECT_EQ(noteContent(&exact, "").size(), kMaximumNoteBytes);
    const Json over = std::string(kMaximumNoteBytes + 1, 'a');
    EXPECT_EQ(messageOf([&] { noteContent(&over, ""); }), "content exceeds Vorlo's 16777216-byte limit.");
    std::string twoByte;
    for (std::size_t i = 0; i < kMaximumNoteBytes / 2 + 1; ++i) twoByte += "\u00e9";
    const Json fewerCharacters = twoByte;
    EXPECT_EQ(messageOf([&] { noteContent(&fewerCharacters, ""); }), "content exceeds Vorlo's 16777216-byte limit.");
    const Json number = 1;
    EXPECT_EQ(messageOf([&] { noteContent(&number, ""); }), "content must be text.");
}

TEST(Validators, NoteTagsDeduplicateByFoldingAndSortByCollation) {
    const std::pair<Json, std::vector<std::string>> cases[] = {
        {Json::array(), {}},
        {{"#Work", "work", "WORK#"}, {"Work"}},
        {{"Café", "cafe"}, {"Café"}},
        {{"##a##"}, {"a"}},
        {{"# a"}, {" a"}},
        {{"a#b"}, {"a#b"}},
        {{"a/b", "a.b"}, {"a.b", "a/b"}},
        {{"beta", "Alpha", "alpha2"}, {"Alpha", "alpha2", "beta"}},
    };
    for (const auto& [value, expected] : cases) EXPECT_EQ(noteTags(&value), expected) << value.dump();
    EXPECT_TRUE(noteTags(nullptr).empty());

    Json sameTag = Json::array();
    for (std::size_t i = 0; i < kMaximumTags; ++i) sameTag.push_back(i % 2 ? "Tag" : "tag");
    EXPECT_EQ(noteTags(&sameTag).size(), 1u);
    sameTag.push_back("tag");
    EXPECT_EQ(messageOf([&] { noteTags(&sameTag); }), "tags must be an array containing no more than 256 items.");
}

TEST(Validators, NoteTagsRefusals) {
    const Json notArray = "work";
    EXPECT_EQ(messageOf([&] { noteTags(&notArray); }), "tags must be an array containing no more than 256 items.");
    const Json notText = {"a", 1};
    EXPECT_EQ(messageOf([&] { noteTags(&notText); }), "Every tag must be text.");
    for (const std::string& bad : std::vector<std::string>{"###", "a\\b", "/a", "a/", "a//b", "a/./b", "a/../b", ".", "..", "   ",
                                  std::string("a\0b", 3), std::string(kMaximumTagCharacters + 1, 't')}) {
        const Json tags = {bad};
        EXPECT_EQ(messageOf([&] { noteTags(&tags); }), "A tag is invalid or too long.") << bad;
    }
    const Json longest = {std::string(kMaximumTagCharacters, 't')};
    EXPECT_EQ(noteTags(&longest).size(), 1u);
}

TEST(Validators, OptionalBooleanTakesOneAndZero) {
    const std::pair<Json, bool> cases[] = {{true, true}, {false, false}, {1, true}, {0, false}};
    for (const auto& [value, expected] : cases) EXPECT_EQ(optionalBoolean(&value, "pinned"), expected);
    for (const Json& bad : {Json(2), Json(0.5), Json("true"), Json(nullptr)})
        EXPECT_EQ(messageOf([&] { optionalBoolean(&bad, "pinned"); }), "pinned must be true or false.");
    EXPECT_EQ(optionalBoolean(nullptr, "pinned"), std::nullopt);
}

TEST(Validators, SafeRelativePaths) {
    for (const char* safe : {"a.md", "Projects/Travel/a.md", ".notes/a.md", "a\\b.md", "..x/a.md", "a/~b.md"})
        EXPECT_TRUE(isSafeRelativePath(safe)) << safe;
    for (const std::string& unsafe : std::vector<std::string>{"", "/a.md", "~/a.md", "~a.md", "a//b.md", "a/", "./a.md", "a/./b.md", "../a.md",
                                     "a/../b.md", "..", std::string("a\0.md", 5)})
        EXPECT_FALSE(isSafeRelativePath(unsafe)) << unsafe;
}

TEST(Validators, NotePathArgument) {
    EXPECT_EQ(notePathArgument({{"path", "Notes\\Plan.MD"}}), "Notes/Plan.MD");
    EXPECT_EQ(messageOf([] { notePathArgument(Json::object()); }), "path is required.");
    EXPECT_EQ(messageOf([] { notePathArgument({{"path", 3}}); }), "path is required.");
    for (const char* bad : {"", "a.txt", "..\\a.md", "/etc/x.md", ".md.txt", "a.md/"})
        EXPECT_EQ(messageOf([&] { notePathArgument({{"path", bad}}); }),
                  "path must identify a Markdown note inside the Vorlo library.")
            << bad;
}

} // namespace
} // namespace vorlo::tools
