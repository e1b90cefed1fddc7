#include "library/NoteParser.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace vorlo::library {
namespace {

NoteRecord parse(std::string text, std::string path = "Projects/Trip.plan.md") {
    return parseNote(std::move(text), std::move(path), std::nullopt, "rev");
}

TEST(NoteParserFrontMatter, FindsDelimitersAndBody) {
    struct Case {
        const char* name;
        std::string text;
        std::string title;
        std::string body;
    };
    const Case cases[] = {
        {"empty text", "", "Trip.plan", ""},
        {"no front matter", "Just text\n---\n", "Trip.plan", "Just text\n---\n"},
        {"opening line feed cannot close", "---\n---\nBody", "Trip.plan", "---\n---\nBody"},
        {"empty front matter", "---\n\n---\nBody", "Trip.plan", "Body"},
        {"header and body", "---\ntitle: \"A\"\n---\nBody\n", "A", "Body\n"},
        {"nothing behind the header", "---\ntitle: \"A\"\n---\n", "A", ""},
        {"blank line behind the header stays", "---\ntitle: \"A\"\n---\n\nBody\n\n", "A", "\nBody\n\n"},
        {"closing line without line feed", "---\ntitle: \"A\"\n---", "Trip.plan", "---\ntitle: \"A\"\n---"},
        {"closing line with a blank behind", "---\ntitle: \"A\"\n--- \nBody", "Trip.plan",
         "---\ntitle: \"A\"\n--- \nBody"},
        {"first closing delimiter wins", "---\ntitle: \"A\"\n---\nB\n---\ntitle: \"C\"\n", "A",
         "B\n---\ntitle: \"C\"\n"},
        {"CR LF line ends", "---\r\ntitle: \"A\"\r\n---\r\nBody\r\n", "A", "Body\n"},
        {"bare CR line ends", "---\rtitle: \"A\"\r---\rBody\r", "A", "Body\n"},
        {"CR CR LF is two line ends", "---\ntitle: \"A\"\n---\nx\r\r\ny", "A", "x\n\ny"},
        {"byte-order mark hides the header", "\xEF\xBB\xBF---\ntitle: \"A\"\n---\nBody", "Trip.plan",
         "\xEF\xBB\xBF---\ntitle: \"A\"\n---\nBody"},
        {"text before the opening line", "\n---\ntitle: \"A\"\n---\nBody", "Trip.plan",
         "\n---\ntitle: \"A\"\n---\nBody"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const NoteRecord note = parse(c.text);
        EXPECT_EQ(note.title, c.title);
        EXPECT_EQ(note.content, c.body);
    }
}

TEST(NoteParserFrontMatter, ReadsTitleValues) {
    struct Case {
        std::string header; // the lines between the delimiters
        std::string title;
    };
    const Case cases[] = {
        {"title: \"Plans: 2024\"", "Plans: 2024"},
        {"title: Groceries", "Trip.plan"},
        {"title: \"\"", ""},
        {"title: \"A\"\ntitle: \"B\"", "B"},
        {"title: \"A\"\ntitle: B", "Trip.plan"}, // the last line decides even when unusable
        {"title:\t \"A\" \t", "A"},
        {"\u3000title\u3000: \"A\"\u3000", "A"}, // Zs is horizontal whitespace
        {"Title: \"A\"", "Trip.plan"},
        {"title: \"a\\/b \\u00e9\\n\"", "a/b \u00E9\n"},
        {"title: \"A\" trailing", "Trip.plan"},
        {"title: \"  padded  \"", "  padded  "},
        {"title", "Trip.plan"},
        {": \"A\"", "Trip.plan"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(parse("---\n" + c.header + "\n---\nBody").title, c.title) << c.header;
    }
}

TEST(NoteParserFrontMatter, ReadsTheOtherKeys) {
    const NoteRecord note = parse("---\n"
                                  "id: 0a1b2c3d-4e5f-6789-abcd-ef0123456789\n"
                                  "created:\n"
                                  "modified: \"2024-01-01T00:00:00Z\"\n"
                                  "pinned: true   \n"
                                  "archived: TRUE\n"
                                  "color: red\n"
                                  "#tag\n"
                                  "---\n"
                                  "Body");
    EXPECT_EQ(note.id, "0A1B2C3D-4E5F-6789-ABCD-EF0123456789");
    EXPECT_EQ(note.created, "");
    EXPECT_EQ(note.modified, "\"2024-01-01T00:00:00Z\"");
    EXPECT_TRUE(note.pinned);
    EXPECT_FALSE(note.archived);
    EXPECT_TRUE(note.tags.empty()); // "#tag" in the header is no inline tag

    struct Case {
        std::string header;
        std::optional<std::string> id;
        bool pinned;
    };
    const Case cases[] = {
        {"id: 1234", std::nullopt, false},
        {"id: {0A1B2C3D-4E5F-6789-ABCD-EF0123456789}", std::nullopt, false},
        {"pinned: True", std::nullopt, false},
        {"pinned: 1", std::nullopt, false},
        {"pinned: yes", std::nullopt, false},
        {"pinned:", std::nullopt, false},
        {"pinned: true\npinned: false", std::nullopt, false},
        {"pinned: false\npinned:true", std::nullopt, true},
    };
    for (const Case& c : cases) {
        const NoteRecord record = parse("---\n" + c.header + "\n---\n");
        EXPECT_EQ(record.id, c.id) << c.header;
        EXPECT_EQ(record.pinned, c.pinned) << c.header;
    }

    const NoteRecord bare = parse("Body");
    EXPECT_FALSE(bare.id || bare.created || bare.modified);
}

TEST(NoteParserTags, MergesHeaderAndInlineTags) {
    struct Case {
        std::string tagsLine; // "" for none
        std::string body;
        std::vector<std::string> tags;
    };
    const Case cases[] = {
        {"tags: [\"b\",\"a\"]", "", {"a", "b"}},
        {"tags: [a, b]", "#c", {"c"}},
        {"tags: [\"a\", 1]", "#c", {"c"}},
        {"tags: \"a\"", "", {}},
        {"tags:\n- a\n- b", "", {}},
        {"tags: [\"#a\"]", "Text #a", {"#a", "a"}},
        {"tags: [\"a\", \" b \", \"\"]", "", {"", " b ", "a"}},
        {"tags: [\"work\"]", "#work #Work #apple", {"Work", "apple", "work"}},
        {"tags: [\"Cafe\u0301\"]", "#Caf\u00E9", {"Cafe\u0301"}}, // canonical duplicates: first spelling stays
        {"tags: [\"a\\/b\"]", "#a/b #a", {"a", "a/b"}},
        {"", "#\u65E5\u672C\u8A9E #\u0395\u03BB\u03BB\u03AC\u03B4\u03B1 #\u0440\u0443\u0441\u0441\u043A\u0438\u0439",
         {"\u0395\u03BB\u03BB\u03AC\u03B4\u03B1", "\u0440\u0443\u0441\u0441\u043A\u0438\u0439", "\u65E5\u672C\u8A9E"}},
    };
    for (const Case& c : cases) {
        const std::string text = c.tagsLine.empty() ? c.body : "---\n" + c.tagsLine + "\n---\n" + c.body;
        EXPECT_EQ(parse(text).tags, c.tags) << text;
    }
}

TEST(NoteParserRecord, CarriesPathDateAndRevision) {
    const Timestamp date = Timestamp(std::chrono::seconds(1714550400));
    const NoteRecord note = parseNote("---\ntitle: \"A\"\n---\nBody", "Projects/Travel/Plan.md", date, "abc");
    EXPECT_EQ(note.relativePath, "Projects/Travel/Plan.md");
    EXPECT_EQ(note.relativeFolder, "Projects/Travel");
    EXPECT_EQ(note.fileModificationDate, date);
    EXPECT_EQ(note.revision, "abc");
}

TEST(NoteParserRecord, DerivesFolderAndDefaultTitleFromThePath) {
    struct Case {
        const char* path;
        const char* folder;
        const char* title;
    };
    const Case cases[] = {
        {"Plan.md", "", "Plan"},
        {"Note.MD", "", "Note"},
        {"Projects/Trip.plan.md", "Projects", "Trip.plan"},
        {"A/B/C/deep.md", "A/B/C", "deep"},
        {"Projects/README", "Projects", "README"},
        {"Projects/.md", "Projects", ".md"},
        {"Caf\u00E9/\u65E5\u8A18.md", "Caf\u00E9", "\u65E5\u8A18"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(folderOf(c.path), c.folder) << c.path;
        EXPECT_EQ(defaultTitle(c.path), c.title) << c.path;
    }
}

} // namespace
} // namespace vorlo::library
