#include "library/Summaries.h"

#include "library/NoteParser.h"
#include "support/Repeated.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::library {
namespace {

const std::string kEllipsis = "\u2026";

// A summary shows the header's `modified` as written; list_notes orders by it where it parses, else
// by the file's date (that order is held against a full sort in LibraryScanTest).
TEST(Summaries, SummaryAndListingDateTakeTheHeaderDateAndTheFileDateOtherwise) {
    const Timestamp may1 = Timestamp(std::chrono::seconds(1714550400)),
                    file = Timestamp(std::chrono::seconds(5));
    const std::tuple<std::string, std::string, std::optional<Timestamp>, std::string> cases[] = {
        {"Body #tag", "Projects/Plan.md", may1,
         R"({"path":"Projects/Plan.md","folder":"Projects","title":"Plan","tags":["tag"],"pinned":false,
             "archived":false,"preview":"Body #tag","revision":"r","modified":"2024-05-01T08:00:00Z"})"},
        {"---\nid: 0a1b2c3d-4e5f-6789-abcd-ef0123456789\ntitle: \"T\"\ncreated:\nmodified: yesterday\n"
         "pinned: true\n---\n",
         "Plan.md", may1,
         R"({"path":"Plan.md","folder":"","title":"T","tags":[],"pinned":true,"archived":false,"preview":"",
             "revision":"r","id":"0A1B2C3D-4E5F-6789-ABCD-EF0123456789","created":"","modified":"yesterday"})"},
        {"Body", "Plan.md", std::nullopt,
         R"({"path":"Plan.md","folder":"","title":"Plan","tags":[],"pinned":false,"archived":false,
             "preview":"Body","revision":"r","modified":null})"},
    };
    for (const auto& [text, path, date, expected] : cases)
        EXPECT_EQ(summary(parseNote(text, path, date, "r")), Json::parse(expected));
    EXPECT_EQ(listingDate("2024-05-01T10:00:00+02:00", file), may1);
    EXPECT_EQ(listingDate("yesterday", file), file);
    EXPECT_EQ(listingDate(std::nullopt, file), file);
    EXPECT_EQ(listingDate("yesterday", std::nullopt), kDistantPast);
}

// A body of `length` characters with "NEEDLE" at character `at`, and its snippet: the characters
// from `from` on, `count` of them, between the ellipses asked for.
std::tuple<std::string, std::string, std::string> needleAt(std::size_t at, std::size_t length,
                                                           std::size_t from, std::size_t count, bool leading,
                                                           bool trailing) {
    const std::string body = std::string(at, 'x') + "NEEDLE" + std::string(length - at - 6, 'y');
    return {body, "needle",
            (leading ? kEllipsis : "") + body.substr(from, count) + (trailing ? kEllipsis : "")};
}

// The preview (no query: heading marks dropped, whitespace collapsed, the first characters kept) and
// the snippet (centred on the first folded match) are cut from the compact body. The note_parser fuzz
// target holds the preview against the regular-expression engine and bounds every snippet; these are
// the exact results of cases that random texts reach seldom.
TEST(Summaries, PreviewAndSnippetAreCutFromTheCompactBody) {
    const std::size_t before = kSnippetCharactersBeforeMatch, width = kSnippetCharacters;
    const std::string most(kPreviewCharacters - 1, 'a'), all(kPreviewCharacters, 'a'), tail(width + 10, 't');
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"# Title\n\nFirst line\n###### Six\n####### Seven", "", "Title First line Six ####### Seven"},
        {"#\n\n# x", "", "x"},                     // a lone "#" takes the blank lines behind it
        {"## \n   # y", "", "# y"},                // so the next "#" does not start a line
        {"a\r\rb\tc\x0b\x0c\r# d", "", "a b c d"}, // every ASCII blank and line end, as a caller may keep CR
        {"# " + all + "a\n", "", all},
        {most + "e" + repeated("\u0301", 2000) + "z", "",
         most + "e" + repeated("\u0301", 2000)}, // one character past the cut
        // A long run of blanks at the cut is no reason to stop early.
        {most + std::string(5000, ' ') + "z", "", most + " "},
        needleAt(300, 500, 300 - before, 500 - (300 - before), true, false),
        needleAt(300, 300 - before + width, 300 - before, width, true, false),
        needleAt(0, 1000, 0, width, false, true),
        needleAt(before, 1000, 0, width, false, true),
        needleAt(before + 1, 1000, 1, width, true, true),
        {"two\n\n  words here", "two words", "two words here"},
        {tail, "absent", tail.substr(0, width)}, // no ellipsis without a match
        {"# Heading stays", "heading", "# Heading stays"},
        // Positions count characters of the body, not its bytes nor those of its folded form.
        {repeated("e\u0301", before + 50) + " Stra\u00DFe " + repeated("\u00DF", 400), "STRASSE",
         kEllipsis + repeated("e\u0301", 99) + " Stra\u00DFe " + repeated("\u00DF", 213) + kEllipsis},
    };
    for (const auto& [body, query, expected] : cases)
        EXPECT_EQ(query.empty() ? compactPreview(body) : snippet(body, query), expected)
            << body.substr(0, 80) << " / " << query;
}

} // namespace
} // namespace vorlo::library
