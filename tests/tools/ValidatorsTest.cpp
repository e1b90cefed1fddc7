// Argument validators: the exact values and messages a client gets.
#include "support/Repeated.h"
#include "tools/Validators.h"

#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <functional>

namespace vorlo::tools {
namespace {

const Json kAbsent = Json::value_t::discarded;

template <typename T> Json toJson(const std::optional<T>& value) {
    return value ? Json(*value) : Json();
}

// What a validator makes of each value (kAbsent for a missing argument): what it returns, as JSON,
// or the message it throws.
void expectOutcomes(const std::function<Json(const Json*)>& validate,
                    const std::vector<std::pair<Json, std::string>>& cases) {
    for (const auto& [value, expected] : cases) {
        std::string outcome;
        try {
            outcome = validate(value.is_discarded() ? nullptr : &value).dump();
        } catch (const ServerError& error) {
            outcome = error.what();
        }
        EXPECT_EQ(outcome, expected) << value.dump().substr(0, 60);
    }
}

// Short strings count characters before trimming; titles after it, and in characters: a letter with
// its accent is one.
TEST(Validators, NumbersStringsTitlesContentAndBooleans) {
    const std::string limit = "limit must be a number.", folder = "folder must be a short string.",
                      title = "title must contain 1 to 1000 characters.", required = "title is required.",
                      pinned = "pinned must be true or false.",
                      tooLarge = "content exceeds Vorlo's 16777216-byte limit.";
    const std::string shortest(kMaximumShortStringCharacters, 'a'), longest(kMaximumTitleCharacters, 'x'),
        accented = repeated("e\u0301", kMaximumTitleCharacters);
    // clang-format off
    expectOutcomes([](const Json* v) { return Json(resultLimit(v, 50)); }, {
        {kAbsent, "50"}, {0, "1"}, {-5, "1"}, {1000, "200"}, {2.9, "2"}, {0.9, "1"}, {true, "1"},
        {false, "1"}, {Json::parse("1e300"), "200"}, {Json::parse("-1e300"), "1"},
        {Json::parse("18446744073709551615"), "200"}, {"10", limit}, {nullptr, limit},
        {Json::array(), limit}});
    expectOutcomes([](const Json* v) { return toJson(optionalString(v, "folder")); }, {
        {kAbsent, "null"}, {"   ", "null"}, {" \u3000Projects\u0085 ", "\"Projects\""}, {5, folder},
        {shortest, Json(shortest).dump()}, {std::string(kMaximumShortStringCharacters + 1, ' '), folder}});
    expectOutcomes([](const Json* v) { return Json(noteTitle(v)); }, {
        {kAbsent, required}, {nullptr, required}, {5, required}, {" \n\t", title},
        {"  " + longest + "  ", Json(longest).dump()}, {longest + "x", title},
        {accented, Json(accented).dump()}});
    expectOutcomes([](const Json* v) { return Json(noteContent(v, "old")); }, {
        {kAbsent, "\"old\""}, {"", "\"\""}, {1, "content must be text."},
        {std::string(kMaximumNoteBytes + 1, 'a'), tooLarge},
        {repeated("\u00e9", kMaximumNoteBytes / 2 + 1), tooLarge}});
    expectOutcomes([](const Json* v) { return toJson(optionalBoolean(v, "pinned")); }, {
        {kAbsent, "null"}, {true, "true"}, {false, "false"}, {1, "true"}, {0, "false"}, {2, pinned},
        {0.5, pinned}, {"true", pinned}, {nullptr, pinned}});
    // clang-format on
    const Json largest = std::string(kMaximumNoteBytes, 'a');
    EXPECT_EQ(noteContent(&largest, "").size(), kMaximumNoteBytes);
}

// Only "#" is stripped after the trim, so blanks inside the "#" signs stay. Every form a tag may not
// take (no text, a backslash, an empty, "." or ".." component) is the paths fuzz target's.
TEST(Validators, TagsLoseTheirHashesGoOnceByFoldingAndSortByCollation) {
    const std::string many = "tags must be an array containing no more than 256 items.",
                      invalid = "A tag is invalid or too long.", longest(kMaximumTagCharacters, 't');
    Json sameTag = Json::array();
    for (std::size_t i = 0; i < kMaximumTags; ++i)
        sameTag.push_back(i % 2 ? "Tag" : "tag");
    // clang-format off
    std::vector<std::pair<Json, std::string>> cases = {
        {kAbsent, "[]"}, {Json::array(), "[]"}, {{"#Work", "work", "WORK#"}, R"(["Work"])"},
        {{"Café", "cafe"}, R"(["Café"])"}, {{"##a##"}, R"(["a"])"}, {{"# a"}, R"([" a"])"},
        {{"a#b"}, R"(["a#b"])"}, {{"a/b", "a.b"}, R"(["a.b","a/b"])"},
        {{"beta", "Alpha", "alpha2"}, R"(["Alpha","alpha2","beta"])"}, {sameTag, R"(["tag"])"},
        {"work", many}, {{"a", 1}, "Every tag must be text."},
        {Json::array({longest}), Json::array({longest}).dump()}, {Json::array({longest + "t"}), invalid},
        {Json::array({std::string("a\0b", 3)}), invalid}};
    // clang-format on
    sameTag.push_back("tag");
    cases.push_back({sameTag, many});
    expectOutcomes([](const Json* v) { return Json(noteTags(v)); }, cases);
}

// Paths that could leave the library are the paths fuzz target's; what it cannot tell is that these
// stay admitted.
TEST(Validators, NotePathsAreSafeRelativeMarkdownPaths) {
    for (const char* safe : {"a.md", "Projects/Travel/a.md", ".notes/a.md", "a\\b.md", "..x/a.md", "a/~b.md"})
        EXPECT_TRUE(isSafeRelativePath(safe)) << safe;
    const std::string outside = "path must identify a Markdown note inside the Vorlo library.";
    // clang-format off
    expectOutcomes([](const Json* v) { return Json(notePathArgument(*v)); }, {
        {{{"path", "Notes\\Plan.MD"}}, "\"Notes/Plan.MD\""}, {Json::object(), "path is required."},
        {{{"path", 3}}, "path is required."}, {{{"path", ""}}, outside}, {{{"path", "a.txt"}}, outside},
        {{{"path", "..\\a.md"}}, outside}, {{{"path", "/etc/x.md"}}, outside},
        {{{"path", ".md.txt"}}, outside}, {{{"path", "a.md/"}}, outside}});
    // clang-format on
}

} // namespace
} // namespace vorlo::tools
