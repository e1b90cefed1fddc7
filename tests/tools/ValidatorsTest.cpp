// Argument validators: the exact values and messages a client gets.
#include "support/Repeated.h"
#include "tools/Validators.h"

#include "mutation/NoteRenderer.h"
#include "mutation/SafePlacement.h"
#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::tools {
namespace {

const Json kAbsent = Json::value_t::discarded;

// The size of a note titled "Plan" with `content` as its body.
std::size_t planSize(std::string content) {
    mutation::NoteFields fields;
    fields.title = "Plan";
    fields.content = std::move(content);
    return mutation::renderNote(fields).size();
}

template <typename T> Json toJson(const std::optional<T>& value) {
    return value ? Json(*value) : Json();
}

// What the validator of an argument makes of a value (kAbsent for none): what it returns, as JSON,
// or the message it throws; for "stem", the file name a title gives, and for "note", the size of a
// note titled "Plan" with the value as its body.
std::string outcome(std::string_view argument, const Json& given) {
    const Json* value = given.is_discarded() ? nullptr : &given;
    try {
        if (argument == "limit") return Json(resultLimit(value, 50)).dump();
        if (argument == "folder") return toJson(optionalString(value, "folder")).dump();
        if (argument == "title") return Json(noteTitle(value)).dump();
        if (argument == "content") return Json(noteContent(value, "old")).dump();
        if (argument == "pinned") return toJson(optionalBoolean(value, "pinned")).dump();
        if (argument == "tags") return Json(noteTags(value)).dump();
        if (argument == "stem") return mutation::safeFilename(given.get<std::string>());
        if (argument == "note") return std::to_string(planSize(given.get<std::string>()));
        return Json(notePathArgument(value ? Json{{"path", *value}} : Json::object())).dump();
    } catch (const ServerError& error) {
        return error.what();
    }
}

// Short strings count characters before trimming; titles after it, and in characters: a letter with
// its accent is one. Only "#" is stripped from tags after the trim, so blanks inside the "#" signs
// stay. The transcripts play the messages for the wrong kinds of value through the server; here are
// the rest, the values that pass and those at and past each limit. Every form a tag may not take
// (no text, a backslash, an empty, "." or ".." component) and paths that could leave the library are
// the paths fuzz target's; what it cannot tell is that the paths below stay admitted. A file name
// loses the characters a name cannot hold, blanks and dots from its ends, and is cut to 160
// characters, not bytes, with nothing trimmed after the cut; category Zs is white space, category Cf
// and control characters inside vanish, so a joined emoji falls apart. The note size limit covers
// the whole file, header included.
TEST(Validators, ArgumentsGiveTheirValueOrTheExactMessage) {
    const std::string folder = "folder must be a short string.",
                      title = "title must contain 1 to 1000 characters.",
                      tooLarge = "content exceeds Vorlo's 16777216-byte limit.",
                      many = "tags must be an array containing no more than 256 items.",
                      invalid = "A tag is invalid or too long.",
                      outside = "path must identify a Markdown note inside the Vorlo library.";
    const std::string shortest(kMaximumShortStringCharacters, 'a'), longest(kMaximumTitleCharacters, 'x'),
        accented = repeated("e\u0301", kMaximumTitleCharacters), longestTag(kMaximumTagCharacters, 't');
    const std::size_t header = planSize("");
    Json sameTag = Json::array(), tooMany = Json::array({"tag"});
    for (std::size_t i = 0; i < kMaximumTags; ++i) {
        sameTag.push_back(i % 2 ? "Tag" : "tag");
        tooMany.push_back("tag");
    }
    const struct {
        const char* argument;
        Json value;
        std::string expected;
    } cases[] = {// clang-format off
        {"limit", kAbsent, "50"}, {"limit", 0, "1"}, {"limit", -5, "1"}, {"limit", 1000, "200"}, {"limit", 0.9, "1"},
        {"limit", false, "1"}, {"limit", Json::parse("-1e300"), "1"}, {"limit", Json::parse("1e300"), "200"},
        {"limit", nullptr, "limit must be a number."}, {"limit", Json::array(), "limit must be a number."},
        {"folder", kAbsent, "null"}, {"folder", "   ", "null"}, {"folder", " \u3000Projects\u0085 ", "\"Projects\""},
        {"folder", shortest, Json(shortest).dump()},
        {"folder", std::string(kMaximumShortStringCharacters + 1, ' '), folder},
        {"title", " \n\t", title}, {"title", "  " + longest + "  ", Json(longest).dump()},
        {"title", longest + "x", title}, {"title", accented, Json(accented).dump()},
        {"content", kAbsent, "\"old\""}, {"content", "", "\"\""},
        {"content", std::string(kMaximumNoteBytes + 1, 'a'), tooLarge},
        {"content", repeated("\u00e9", kMaximumNoteBytes / 2 + 1), tooLarge},
        {"pinned", kAbsent, "null"}, {"pinned", true, "true"}, {"pinned", false, "false"}, {"pinned", 1, "true"},
        {"pinned", 0, "false"}, {"pinned", 0.5, "pinned must be true or false."},
        {"tags", kAbsent, "[]"}, {"tags", Json::array(), "[]"}, {"tags", {"#Work", "work", "WORK#"}, R"(["Work"])"},
        {"tags", {"Café", "cafe"}, R"(["Café"])"}, {"tags", {"##a##"}, R"(["a"])"}, {"tags", {"# a"}, R"([" a"])"},
        {"tags", {"a#b"}, R"(["a#b"])"}, {"tags", {"a/b", "a.b"}, R"(["a.b","a/b"])"},
        {"tags", {"beta", "Alpha", "alpha2"}, R"(["Alpha","alpha2","beta"])"}, {"tags", sameTag, R"(["tag"])"},
        {"tags", tooMany, many}, {"tags", "work", many}, {"tags", {"a", 1}, "Every tag must be text."},
        {"tags", Json::array({longestTag}), Json::array({longestTag}).dump()},
        {"tags", Json::array({longestTag + "t"}), invalid}, {"tags", Json::array({std::string("a\0b", 3)}), invalid},
        {"path", "Notes\\Plan.MD", "\"Notes/Plan.MD\""}, {"path", 3, "path is required."}, {"path", "", outside},
        {"path", "..\\a.md", outside}, {"path", "/etc/x.md", outside}, {"path", ".md.txt", outside},
        {"path", "a.md/", outside}, {"note", std::string(kMaximumNoteBytes - header, 'x'), std::to_string(kMaximumNoteBytes)},
        {"note", std::string(kMaximumNoteBytes - header + 1, 'x'), "The note exceeds Vorlo's 16777216-byte limit."},
        {"stem", "Plan", "Plan"}, {"stem", "Re: Plan/Q3", "Re PlanQ3"}, {"stem", "a\\b*c?d\"e<f>g|h", "abcdefgh"},
        {"stem", "report.md", "report.md"}, {"stem", "  Trimmed\t\n", "Trimmed"}, {"stem", ".hidden", "hidden"},
        {"stem", "\u00A0No-break\u3000", "No-break"}, {"stem", "..double..", "double"}, {"stem", ". spaced .", " spaced "},
        {"stem", "Tab\tinside", "Tabinside"}, {"stem", "Zero\u200Bwidth", "Zerowidth"}, {"stem", "👩\u200D💻", "👩💻"},
        {"stem", "", "Untitled"}, {"stem", "   ", "Untitled"}, {"stem", "...", "Untitled"}, {"stem", ":/|", "Untitled"},
        {"stem", "vorlo data", "Untitled"}, {"stem", "VORLO DATA.", "Untitled"}, {"stem", "Vorlo Data 2", "Vorlo Data 2"},
        {"stem", repeated("a", 200), repeated("a", 160)}, {"stem", repeated("e\u0301", 161), repeated("e\u0301", 160)},
        {"stem", repeated("🇩🇪", 170), repeated("🇩🇪", 160)}, {"stem", repeated("a", 159) + " b", repeated("a", 159) + " "}};
    // clang-format on
    for (const auto& [argument, value, expected] : cases)
        EXPECT_EQ(outcome(argument, value), expected) << argument << " " << value.dump().substr(0, 60);
    const Json largest = std::string(kMaximumNoteBytes, 'a');
    EXPECT_EQ(noteContent(&largest, "").size(), kMaximumNoteBytes);
    for (const char* safe : {"a.md", "Projects/Travel/a.md", ".notes/a.md", "a\\b.md", "..x/a.md", "a/~b.md"})
        EXPECT_TRUE(isSafeRelativePath(safe)) << safe;
}

} // namespace
} // namespace vorlo::tools
