#include "library/Summaries.h"

#include "library/NoteParser.h"
#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/RegexReference.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

namespace vorlo::library {
namespace {

const std::string kEllipsis = "\u2026";

std::string repeated(std::string_view piece, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) out += piece;
    return out;
}

// Distinct ASCII characters, so that a cut at the wrong place shows.
std::string numberedText(std::size_t length) {
    std::string out;
    for (std::size_t i = 0; i < length; ++i) out += static_cast<char>('a' + i % 26);
    return out;
}

TEST(Summaries, SummaryOfANoteWithoutFrontMatter) {
    const Timestamp date = Timestamp(std::chrono::seconds(1714550400)); // 2024-05-01T08:00:00Z
    const Json summary = library::summary(parseNote("Body #tag", "Projects/Plan.md", date, "r1"));
    EXPECT_EQ(summary, Json::parse(R"({"path":"Projects/Plan.md","folder":"Projects","title":"Plan",
        "tags":["tag"],"pinned":false,"archived":false,"preview":"Body #tag","revision":"r1",
        "modified":"2024-05-01T08:00:00Z"})"));
}

TEST(Summaries, SummaryReportsHeaderValuesAsWritten) {
    const Timestamp date = Timestamp(std::chrono::seconds(1714550400));
    const Json summary = library::summary(parseNote("---\n"
                                                    "id: 0a1b2c3d-4e5f-6789-abcd-ef0123456789\n"
                                                    "title: \"Plan\"\n"
                                                    "created:\n"
                                                    "modified: yesterday\n"
                                                    "pinned: true\n"
                                                    "---\n",
                                                    "Plan.md", date, "r2"));
    EXPECT_EQ(summary["id"], "0A1B2C3D-4E5F-6789-ABCD-EF0123456789");
    EXPECT_EQ(summary["created"], "");
    EXPECT_EQ(summary["modified"], "yesterday");
    EXPECT_EQ(summary["folder"], "");
    EXPECT_EQ(summary["pinned"], true);
    EXPECT_EQ(summary["preview"], "");

    const Json undated = library::summary(parseNote("Body", "Plan.md", std::nullopt, "r3"));
    ASSERT_TRUE(undated.contains("modified"));
    EXPECT_TRUE(undated["modified"].is_null());
    EXPECT_FALSE(undated.contains("id"));
    EXPECT_FALSE(undated.contains("created"));
}

TEST(Summaries, PreviewDropsHeadingMarksAndCollapsesWhitespace) {
    struct Case {
        std::string body;
        std::string preview;
    };
    const Case cases[] = {
        {"# Title\n\nFirst line\nSecond line", "Title First line Second line"},
        {"####### Seven", "####### Seven"},
        {"###### Six", "Six"},
        {"#NoSpace", "#NoSpace"},
        {"  # Indented", "# Indented"},
        {"a ## b", "a ## b"},
        {"#\n\n# x", "x"},                 // a lone "#" takes the blank lines behind it
        {"## \n   # y", "# y"},            // the next "#" does not start a line
        {"a\r\n# b", "a b"},
        {"a\u000B# b\u000C## c", "a b c"},
        {"a\u0085# b\u2028# c\u2029# d", "a b c d"},
        {"#\u3000Wide", "Wide"},
        {"x\t\t y\u00A0\u00A0z", "x y z"},
        {"**bold** [link](url) - item", "**bold** [link](url) - item"},
        {"", ""},
        {" \n\t\u3000", ""},
    };
    for (const Case& c : cases) EXPECT_EQ(compactPreview(c.body), c.preview) << c.body;
}

TEST(Summaries, PreviewKeepsTheFirstCharacters) {
    const std::string exact = numberedText(kPreviewCharacters);
    EXPECT_EQ(compactPreview(exact), exact);
    EXPECT_EQ(compactPreview(numberedText(kPreviewCharacters + 1)), exact);
    EXPECT_EQ(compactPreview("# " + numberedText(kPreviewCharacters + 1) + "\n"), exact);

    // Characters, not bytes: each of these is one letter with a combining accent.
    const std::string accented = repeated("e\u0301", kPreviewCharacters);
    EXPECT_EQ(compactPreview(accented + "e\u0301"), accented);

    // The character at the cut may go on for many code points after the preview could stop.
    const std::string prefix = numberedText(kPreviewCharacters - 1);
    const std::string heavy = "e" + repeated("\u0301", 2000);
    EXPECT_EQ(compactPreview(prefix + heavy + "z"), prefix + heavy);

    // A long run of whitespace at the cut is no reason to stop early.
    EXPECT_EQ(compactPreview(numberedText(kPreviewCharacters - 1) + repeated(" ", 5000) + "z tail"),
              numberedText(kPreviewCharacters - 1) + " ");
}

// The preview is a hand-written pass; the engine's own replacements are the reference.
TEST(Summaries, PreviewAgreesWithTheRegularExpressionEngine) {
    const std::vector<std::string> pieces = {
        "#", "#", "##", "###", "#######", " ", " ", "\n", "\n", "\r", "\r\n", "\t", "\u000B", "\u000C",
        "\u0085", "\u2028", "\u2029", "\u3000", "\u00A0", "a", "word", "\u00E9", "e\u0301", "\u4E2D",
        "\U0001F1E9\U0001F1EA", "\u0301", "-", "*",
    };
    std::mt19937 random(7);
    std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(0, 400);
    text::RegexReference headingMarks(R"((?m)^#{1,6}\s+)"), whitespace(R"(\s+)");
    for (int round = 0; round < 2000; ++round) {
        std::string body;
        for (int n = length(random); n > 0; --n) body += pieces[pick(random)];
        const std::string withoutHeadings = headingMarks.replaceAllMatches(body, "");
        const std::string collapsed = whitespace.replaceAllMatches(withoutHeadings, " ");
        const std::string_view expected =
            text::firstCharacters(text::trimWhitespaceAndNewlines(collapsed), kPreviewCharacters);
        ASSERT_EQ(compactPreview(body), expected) << body;
    }
}

TEST(Summaries, SnippetCentresOnTheFirstMatch) {
    // The query sits at character `at` of a body `length` characters long.
    const auto bodyWithQueryAt = [](std::size_t at, std::size_t length) {
        return repeated("x", at) + "NEEDLE" + repeated("y", length - at - 6);
    };
    const auto characters = [](const std::string& text, std::size_t from, std::size_t count) {
        return text.substr(from, count);
    };
    struct Case {
        const char* name;
        std::size_t at, length;
        std::size_t from, count;
        bool leading, trailing;
    };
    const std::size_t before = kSnippetCharactersBeforeMatch, width = kSnippetCharacters;
    const Case cases[] = {
        {"middle of a long body", 300, 1000, 300 - before, width, true, true},
        {"body ends inside the excerpt", 300, 500, 300 - before, 500 - (300 - before), true, false},
        {"match at the start", 0, 1000, 0, width, false, true},
        {"match right at the leading limit", before, 1000, 0, width, false, true},
        {"one past the leading limit", before + 1, 1000, 1, width, true, true},
        {"excerpt reaches the end exactly", 300, 300 - before + width, 300 - before, width, true, false},
        {"short body", 10, 50, 0, 50, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string body = bodyWithQueryAt(c.at, c.length);
        const std::string expected =
            (c.leading ? kEllipsis : "") + characters(body, c.from, c.count) + (c.trailing ? kEllipsis : "");
        EXPECT_EQ(snippet(body, "needle"), expected);
    }
}

TEST(Summaries, SnippetSearchesTheCompactBodyIgnoringCaseAndDiacritics) {
    struct Case {
        std::string body;
        std::string query;
        std::string snippet;
    };
    const std::string longTail = numberedText(kSnippetCharacters + 10);
    const Case cases[] = {
        {"Un CAF\u00C9 noir", "cafe", "Un CAF\u00C9 noir"},
        {"Un Cafe\u0301 noir", "caf\u00E9", "Un Cafe\u0301 noir"},
        {"two\n\n  words here", "two words", "two words here"},
        {"two words", "two  words", "two words"},
        {"", "x", ""},
        {" \n ", "x", ""},
        {longTail, "absent", longTail.substr(0, kSnippetCharacters)}, // no ellipsis without a match
        {"# Heading stays", "heading", "# Heading stays"},
    };
    for (const Case& c : cases) EXPECT_EQ(snippet(c.body, c.query), c.snippet) << c.body << " / " << c.query;

    // Positions are characters of the body, not bytes and not folded bytes.
    const std::string accents = repeated("e\u0301", kSnippetCharactersBeforeMatch + 50);
    const std::string body = accents + " Stra\u00DFe " + repeated("\u00DF", 400);
    const std::string result = snippet(body, "STRASSE");
    EXPECT_EQ(result, kEllipsis + repeated("e\u0301", 99) + " Stra\u00DFe " + repeated("\u00DF", 213) + kEllipsis);
}

TEST(Summaries, NewestFirstOrdersByDateThenTitle) {
    const auto note = [](std::string title, std::optional<std::string> modified, std::optional<long long> fileDate) {
        NoteRecord record;
        record.title = std::move(title);
        record.modified = std::move(modified);
        if (fileDate) record.fileModificationDate = Timestamp(std::chrono::seconds(*fileDate));
        return record;
    };
    const long long may1 = 1714550400; // 2024-05-01T08:00:00Z
    struct Case {
        const char* name;
        NoteRecord a, b;
        bool aFirst, bFirst;
    };
    const Case cases[] = {
        {"later modified first", note("B", "2024-05-02T00:00:00Z", std::nullopt),
         note("A", "2024-05-01T00:00:00Z", std::nullopt), true, false},
        {"equal instants in other zones, titles decide", note("b", "2024-05-01T10:00:00+02:00", std::nullopt),
         note("a", "2024-05-01T08:00:00Z", std::nullopt), false, true},
        {"offset without colon", note("a", "2024-05-01T10:00:00+0200", std::nullopt),
         note("b", std::nullopt, may1), true, false},
        {"fraction does not parse, file date decides", note("a", "2024-05-01T10:00:00.000Z", may1 - 10),
         note("b", std::nullopt, may1), false, true},
        {"header date beats file date", note("a", "2024-05-02T00:00:00Z", may1 - 10 * 86400),
         note("b", "bad", may1), true, false},
        {"no dates at all tie, titles decide", note("Beta", std::nullopt, std::nullopt),
         note("alpha", "not a date", std::nullopt), false, true},
        {"any date beats none", note("z", std::nullopt, 0), note("a", std::nullopt, std::nullopt), true, false},
        {"titles equal ignoring case", note("Plan", std::nullopt, may1), note("plan", std::nullopt, may1), false,
         false},
    };
    text::adoptLocale("");
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(newestFirst(c.a, c.b), c.aFirst);
        EXPECT_EQ(newestFirst(c.b, c.a), c.bFirst);
    }
    text::adoptLocaleFromEnvironment();
}

} // namespace
} // namespace vorlo::library
