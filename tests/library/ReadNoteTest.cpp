#include "platform/Files.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vorlo::testing {
namespace {

constexpr const char* kId = "12345678-90AB-CDEF-1234-567890ABCDEF";
constexpr const char* kNoNote = "No unlocked Vorlo note exists at that path.";
constexpr const char* kBadPath = "path must identify a Markdown note inside the Vorlo library.";

Json outcome(const TempLibrary& library, std::string_view tool, const Json& arguments) {
    const Json result = library.call(tool, arguments).at("result");
    return result.at("isError").get<bool>() ? result.at("content").at(0).at("text")
                                            : result.at("structuredContent");
}

std::string withId(std::string_view id, std::string_view body = "") {
    return "---\nid: " + std::string(id) + "\n---\n" + std::string(body);
}

TEST(ReadNote, ArgumentsAreCheckedInOrderBeforeTheLibraryIsRead) {
    TempLibrary library;
    std::filesystem::remove_all(library.library());
    const struct {
        Json arguments;
        std::string message;
    } cases[] = {
        {Json::object(), "path is required."},
        {{{"path", 5}, {"max_characters", "x"}}, "path is required."},
        {{{"path", nullptr}}, "path is required."},
        {{{"path", "a.txt"}, {"max_characters", "x"}}, kBadPath},
        {{{"path", "../a.md"}}, kBadPath},
        {{{"path", "/a.md"}}, kBadPath},
        {{{"path", "~/a.md"}}, kBadPath},
        {{{"path", "a\\..\\b.md"}}, kBadPath}, // backslashes are separators before the test
        {{{"path", "a//b.md"}}, kBadPath},
        {{{"path", "a.md"}, {"max_characters", "100"}}, "max_characters must be a number."},
        {{{"path", "a.md"}, {"max_characters", nullptr}}, "max_characters must be a number."},
        {{{"path", "a.MD"}, {"max_characters", 0}}, "The selected Vorlo library could not be read."},
    };
    for (const auto& c : cases)
        EXPECT_EQ(outcome(library, "read_note", c.arguments), c.message) << c.arguments.dump();
}

TEST(ReadNote, NamesANoteOnlyThroughTheScan) {
    TempLibrary library;
    library.write("Projects/Travel.md", "trip");
    library.write("Bad.md", "\xc3\x28");
    library.write("Vorlo Data/Inside.md", "private");
    const struct {
        const char* path;
        Json expected; // the path of the note found, or the failure
    } cases[] = {
        {"Projects/Travel.md", "Projects/Travel.md"},
        {"projects\\TRAVEL.MD", "Projects/Travel.md"},
        {" Projects/Travel.md", kNoNote}, // not trimmed
        {"Bad.md", kNoNote},
        {"Vorlo Data/Inside.md", kNoNote},
        {"Projects/Missing.md", kNoNote},
    };
    for (const auto& c : cases) {
        const Json result = outcome(library, "read_note", {{"path", c.path}});
        EXPECT_EQ(result.is_object() ? result.at("path") : result, c.expected) << c.path;
    }
}

TEST(ReadNote, MaxCharactersIsClampedAndCutsBetweenCharacters) {
    TempLibrary library;
    library.write("abc.md", "abc");
    library.write("emoji.md", "😀👍🏽🇩🇪");
    library.write("empty.md", "");
    const std::string longest(static_cast<std::size_t>(kMaximumReadCharacters), 'x');
    library.write("long.md", longest + "y");
    const struct {
        const char* path;
        Json limit; // null: absent
        std::string content;
        bool truncated;
    } cases[] = {
        {"abc.md", 0, "a", true},
        {"abc.md", -3, "a", true},
        {"abc.md", true, "a", true},
        {"abc.md", false, "a", true},
        {"abc.md", 2.9, "ab", true},
        {"abc.md", 3, "abc", false},
        {"emoji.md", 2, "😀👍🏽", true},
        {"emoji.md", 3, "😀👍🏽🇩🇪", false},
        {"empty.md", nullptr, "", false},
        {"long.md", nullptr, longest, true},
        {"long.md", 999999, longest, true},
    };
    for (const auto& c : cases) {
        Json arguments = {{"path", c.path}};
        if (!c.limit.is_null()) arguments["max_characters"] = c.limit;
        const Json result = outcome(library, "read_note", arguments);
        EXPECT_EQ(result.at("content"), c.content) << arguments.dump();
        EXPECT_EQ(result.at("truncated"), c.truncated) << arguments.dump();
    }
    // The summary's keys describe the whole note, not the cut text.
    EXPECT_EQ(outcome(library, "read_note", {{"path", "abc.md"}, {"max_characters", 1}}).at("preview"),
              "abc");
}

TEST(Attachments, ListsPlainFilesOfTheNotesFolderSortedByName) {
    TempLibrary library;
    library.write("Note.md",
                  withId("12345678-90ab-cdef-1234-567890abcdef")); // the folder is named canonically
    const std::string folder = std::string("Vorlo Data/Attachments/") + kId;
    for (const char* name :
         {"b.png", "A.png", "a.PNG", "README", "archive.tar.GZ", ".hidden.png", "sub/inner.png", "\xff.png"})
        library.write(folder + "/" + name, "abc");
    library.link(folder + "/link.png", library.path(folder + "/b.png"));

    std::vector<std::string> sameName; // "A.png" and "a.PNG" tie and keep the listing's order
    const auto listing = fs::listDirectory(library.path(folder));
    for (const auto& entry : *listing)
        if (entry.name == "A.png" || entry.name == "a.PNG") sameName.push_back(entry.name);
    const Json attachments = outcome(library, "read_note", {{"path", "Note.md"}}).at("attachments");
    std::vector<std::string> names;
    for (const auto& entry : attachments)
        names.push_back(entry.at("name"));
    EXPECT_EQ(names,
              (std::vector<std::string>{sameName[0], sameName[1], "archive.tar.GZ", "b.png", "README"}));
    EXPECT_EQ(attachments.at(2), (Json{{"name", "archive.tar.GZ"},
                                       {"type", "gz"},
                                       {"size_bytes", 3},
                                       {"library_relative_path", folder + "/archive.tar.GZ"}}));
    EXPECT_EQ(attachments.at(4).at("type"), "");
}

TEST(Attachments, NoteWithoutUsableFolderHasNone) {
    TempLibrary library;
    const std::string other = "AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE";
    library.write(std::string("Vorlo Data/Attachments/") + kId + "/x.png", "x");
    library.link("Vorlo Data/Attachments/" + other,
                 library.path(std::string("Vorlo Data/Attachments/") + kId));
    library.write("Linked.md", withId(other));
    library.write("NoId.md", withId("not-a-uuid"));
    library.write("Missing.md", withId("FFFFFFFF-BBBB-CCCC-DDDD-EEEEEEEEEEEE"));
    for (const char* path : {"Linked.md", "NoId.md", "Missing.md"})
        EXPECT_EQ(outcome(library, "read_note", {{"path", path}}).at("attachments"), Json::array()) << path;
}

} // namespace
} // namespace vorlo::testing
