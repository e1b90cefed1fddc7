#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>

namespace vorlo::testing {
namespace {

// The structured result of a call, or the text of its failure.
Json outcome(const TempLibrary& library, std::string_view tool, const Json& arguments) {
    const Json result = library.call(tool, arguments).at("result");
    return result.at("isError").get<bool>() ? result.at("content").at(0).at("text")
                                            : result.at("structuredContent");
}

std::string note(std::string_view title, std::string_view modified, std::string_view tags,
                 std::string_view body) {
    return "---\ntitle: \"" + std::string(title) + "\"\nmodified: " + std::string(modified) +
           "\ntags: " + std::string(tags) + "\n---\n" + std::string(body);
}

std::vector<std::string> paths(const Json& result) {
    std::vector<std::string> out;
    for (const auto& summary : result.at("notes"))
        out.push_back(summary.at("path"));
    return out;
}

std::set<std::string> pathSet(const Json& result) {
    const auto list = paths(result);
    return {list.begin(), list.end()};
}

TEST(ListAndSearch, ArgumentsAreCheckedInOrderBeforeTheLibraryIsRead) {
    TempLibrary library;
    std::filesystem::remove_all(library.library()); // any call that gets as far as the scan says so
    const std::string unreadable = "The selected Vorlo library could not be read.";
    std::string longest;
    for (std::size_t i = 0; i < kMaximumQueryCharacters; ++i)
        longest += "e\u0301"; // two code points, one character
    const struct {
        const char* tool;
        Json arguments;
        std::string message;
    } cases[] = {
        {"list_notes", {{"limit", "10"}, {"folder", 1}, {"tag", 1}}, "limit must be a number."},
        {"list_notes", {{"limit", nullptr}}, "limit must be a number."},
        {"list_notes", {{"folder", 1}, {"tag", 1}}, "folder must be a short string."},
        {"list_notes",
         {{"folder", std::string(kMaximumShortStringCharacters + 1, ' ')}},
         "folder must be a short string."},
        {"list_notes", {{"tag", nullptr}}, "tag must be a short string."},
        {"list_notes", Json::object(), unreadable},
        {"search_notes", {{"limit", "x"}}, "query is required."},
        {"search_notes", {{"query", nullptr}}, "query is required."},
        {"search_notes", {{"query", " \n\t "}, {"limit", "x"}}, "query must contain 1 to 1000 characters."},
        {"search_notes", {{"query", longest + "e"}}, "query must contain 1 to 1000 characters."},
        {"search_notes", {{"query", "x"}, {"limit", "x"}}, "limit must be a number."},
        {"search_notes", {{"query", "\n " + longest + " \n"}}, unreadable},
    };
    for (const auto& c : cases)
        EXPECT_EQ(outcome(library, c.tool, c.arguments), c.message) << c.arguments.dump();
}

TEST(ListNotes, FiltersByWholeFolderAndWholeTagIgnoringCase) {
    TempLibrary library;
    library.write("Root.md", note("Root", "2024-01-01T00:00:00Z", R"(["work"])", ""));
    library.write("Projects/Plan.md", note("Plan", "2024-01-01T00:00:00Z", R"(["Work"])", ""));
    library.write("Projects/Travel/Trip.md", note("Trip", "2024-01-01T00:00:00Z", "[]", "#work/trip"));
    library.write("Other/Cafe.md", note("Cafe", "2024-01-01T00:00:00Z", R"(["Café"])", ""));
    const std::set<std::string> all = {"Root.md", "Projects/Plan.md", "Projects/Travel/Trip.md",
                                       "Other/Cafe.md"};
    const struct {
        Json arguments;
        std::set<std::string> expected;
    } cases[] = {
        {Json::object(), all},
        {{{"folder", "projects"}}, {"Projects/Plan.md"}},
        {{{"folder", "Projects/"}}, {}},
        {{{"folder", "   "}, {"tag", ""}}, all},
        {{{"tag", "WORK"}}, {"Root.md", "Projects/Plan.md"}},
        {{{"tag", "work/trip"}}, {"Projects/Travel/Trip.md"}},
        {{{"tag", "#work"}}, {}},
        {{{"tag", "Cafe"}}, {}},
        {{{"tag", "CAFÉ"}}, {"Other/Cafe.md"}},
        {{{"folder", "projects/TRAVEL"}, {"tag", " WORK/TRIP "}}, {"Projects/Travel/Trip.md"}},
    };
    for (const auto& c : cases) {
        const Json result = outcome(library, "list_notes", c.arguments);
        EXPECT_EQ(pathSet(result), c.expected) << c.arguments.dump();
        EXPECT_EQ(result.at("total_matches"), c.expected.size());
        EXPECT_EQ(result.at("returned"), c.expected.size());
    }
}

TEST(ListNotes, NewestFirstByParsedDateThenTitleAndLimitCutsAfterCounting) {
    TempLibrary library;
    library.write("A.md", note("beta", "2024-05-01T10:00:00+02:00", "[]", ""));
    library.write("B.md", note("Alpha", "2024-05-01T08:00:00Z", "[]", "")); // the same instant as A
    library.write("C.md", note("C", "2025-01-01T00:00:00Z", "[]", ""));
    library.write("D.md", "no header: the file's date decides");
    library.touch("D.md", 1893456000); // 2030
    library.write("E.md",
                  note("E", "2024-05-01T10:00:00.000Z", "[]", "")); // no parse: the file's date decides
    library.touch("E.md", 946684800);                               // 2000

    const Json all = outcome(library, "list_notes", Json::object());
    EXPECT_EQ(paths(all), (std::vector<std::string>{"D.md", "C.md", "B.md", "A.md", "E.md"}));
    EXPECT_EQ(all.at("notes").at(4).at("modified"), "2024-05-01T10:00:00.000Z");

    const Json two = outcome(library, "list_notes", {{"limit", 2}});
    EXPECT_EQ(paths(two), (std::vector<std::string>{"D.md", "C.md"}));
    EXPECT_EQ(two.at("returned"), 2);
    EXPECT_EQ(two.at("total_matches"), 5);
}

TEST(SearchNotes, MatchesTheWholeFoldedQueryInTitleBodyOrTag) {
    TempLibrary library;
    library.write("Cafe.md", note("Café au lait", "2024-01-01T00:00:00Z", "[]", "nothing"));
    library.write("Body.md", note("Plain", "2024-01-01T00:00:00Z", "[]", "I drink CAFE daily.\nsecond line"));
    library.write("Tagged.md", note("T", "2024-01-01T00:00:00Z", R"(["Rezepte"])", "start of body"));
    library.write("Needle/Other.md", note("Other", "2024-01-01T00:00:00Z", "[]", "nothing"));
    const struct {
        const char* query;
        std::set<std::string> expected;
    } cases[] = {
        {"cafe", {"Cafe.md", "Body.md"}},
        {" CAFÉ\n", {"Cafe.md", "Body.md"}},
        {"rezepte", {"Tagged.md"}},
        {"daily. second", {}}, // the body keeps its line feed
        {"daily.\nsecond", {"Body.md"}},
        {"drink daily", {}}, // no tokenising
        {"needle", {}},      // paths are not searched
        {"\u0301", {}},      // folds to nothing
    };
    for (const auto& c : cases) {
        const Json result = outcome(library, "search_notes", {{"query", c.query}});
        EXPECT_EQ(pathSet(result), c.expected) << c.query;
        EXPECT_EQ(result.at("total_matches"), c.expected.size()) << c.query;
    }
    const Json tagOnly = outcome(library, "search_notes", {{"query", "REZEPTE"}});
    EXPECT_EQ(tagOnly.at("notes").at(0).at("snippet"), "start of body");
}

TEST(SearchNotes, TitleMatchesFirstThenModifiedTextDescendingThenScanOrder) {
    TempLibrary library;
    library.write("Title.md", note("Rust notes", "2020-01-01T00:00:00Z", "[]", "x"));
    library.write("New.md", note("Other", "2025-01-01T00:00:00Z", "[]", "about rust"));
    library.write("Mid.md", note("Third", "2023-01-01T00:00:00Z", "[]", "rust"));
    library.write("Word.md", note("Fourth", "yesterday", "[]", "rust")); // "y" sorts after any digit
    library.write("Tie1.md", note("Tie", "2000-01-01T00:00:00Z", "[]", "rust"));
    library.write("Tie2.md", note("Tie", "2000-01-01T00:00:00Z", "[]", "rust"));
    library.write("None.md", note("None", "2030-01-01T00:00:00Z", "[]", "nothing"));
    std::vector<std::string> ties;
    for (const auto& scanned : library.server().scanNotes())
        if (scanned.relativePath.starts_with("Tie")) ties.push_back(scanned.relativePath);

    const Json all = outcome(library, "search_notes", {{"query", "RUST"}});
    EXPECT_EQ(paths(all),
              (std::vector<std::string>{"Title.md", "Word.md", "New.md", "Mid.md", ties[0], ties[1]}));
    EXPECT_EQ(all.at("notes").at(1).at("snippet"), "rust");

    const Json one = outcome(library, "search_notes", {{"query", "rust"}, {"limit", 1}});
    EXPECT_EQ(paths(one), std::vector<std::string>{"Title.md"});
    EXPECT_EQ(one.at("returned"), 1);
    EXPECT_EQ(one.at("total_matches"), 6);
}

} // namespace
} // namespace vorlo::testing
