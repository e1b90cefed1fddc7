#include "library/InlineTags.h"

#include "platform/RegexReference.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace vorlo::library {
namespace {

using Tags = std::vector<std::string>;

TEST(InlineTags, FindsTagsAsThePatternDoes) {
    struct Case {
        std::string body;
        Tags tags;
    };
    const Case cases[] = {
        {"#v2", {"v2"}},
        {"#2024", {}},
        {"#2024/q1", {"2024/q1"}},
        {"#a/b/c d", {"a/b/c"}},
        {"#a/", {"a"}},
        {"#a//b", {"a"}},
        {"#1//a", {"1"}}, // the letter may stand past the end of the tag
        {"#/a", {}},
        {"#a-", {"a-"}},
        {"#-", {}},
        {"#_", {"_"}},
        {"#a.b", {"a"}},
        {"##a", {"a"}},
        {"(#a)", {"a"}},
        {"-#a", {"a"}},
        {"\\#a", {}},
        {"x#a", {}},
        {"_#a", {}},
        {"3#a", {}},
        {"\u00E9#a", {}},
        {"e\u0301#a", {}},  // a mark is a word character
        {"\u200D#a", {}},
        {"\u00B2#a", {"a"}}, // a superscript digit is a number but no word character
        {"# Title", {}},
        {"#Gr\u00F6\u00DFe/\u00DCbersicht", {"Gr\u00F6\u00DFe/\u00DCbersicht"}},
        {"#Cafe\u0301", {"Cafe"}},        // marks are neither letters nor numbers
        {"#\u0939\u093F\u0928\u094D\u0926\u0940", {"\u0939"}},
        {"#\u65E5\u672C\u8A9E #\u0444\u043E\u0442\u043E", {"\u65E5\u672C\u8A9E", "\u0444\u043E\u0442\u043E"}},
        {"#a-#b #c", {"a-", "b", "c"}},
        {"#a#b", {"a"}},
        {"page/#part", {"part"}},
        {"line one\n#todo and #done.", {"todo", "done"}},
        {"", {}},
        {"#", {}},
    };
    for (const Case& c : cases) EXPECT_EQ(inlineTags(c.body), c.tags) << c.body;
}

// Builds texts from pieces that sit on every edge of the pattern: letters of many scripts, numbers
// that are and are not decimal digits, marks, joiners, the pattern's own punctuation and emoji.
TEST(InlineTags, AgreesWithTheRegularExpressionEngine) {
    const std::vector<std::string> pieces = {
        "#", "#", "#", "#", "/", "/", "\\", "_", "-", ".", " ", "\n", "\t", "a", "Z", "q7",
        "\u00E9", "e\u0301", "\u00DF", "\u01C5", "\u02B0",             // Latin, Lt, Lm
        "\u03A9", "\u03BB\u03CC",                                        // Greek
        "\u0416", "\u044B",                                              // Cyrillic
        "\u4E2D", "\u65E5\u672C",                                        // CJK
        "\u0634", "\u0645\u064E",                                        // Arabic with a mark
        "\u0915", "\u093F", "\u094D", "\u0902",                          // Devanagari with its marks
        "0", "9", "\u0663", "\u096A", "\u216B", "\u00B2", "\u3007",     // digits and other numbers
        "\u0301", "\u0308", "\u200D", "\u200C", "\u203F", "\u00A0",
        "\U0001F600", "\U0001F468\u200D\U0001F469", "\U0001F1E9\U0001F1EA", "@", "(", ")",
    };
    std::mt19937 random(20240501);
    std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(0, 24);
    text::RegexReference reference(kInlineTagPattern);
    for (int round = 0; round < 20000; ++round) {
        std::string body;
        for (int n = length(random); n > 0; --n) body += pieces[pick(random)];
        ASSERT_EQ(inlineTags(body), reference.allGroupOneMatches(body)) << body;
    }
}

} // namespace
} // namespace vorlo::library
