#include "platform/Collation.h"
#include "platform/Folding.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace vorlo::text {
namespace {

struct LocaleRestorer {
    ~LocaleRestorer() { adoptLocaleFromEnvironment(); }
};

std::string repeatedAb(std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i)
        out += "ab";
    return out;
}

bool reference(std::string_view text, std::string_view query) {
    return fold(text).find(fold(query)) != std::string::npos;
}

TEST(FoldedSearch, FindsWhatFoldingBothSidesFinds) {
    LocaleRestorer restorer;
    adoptLocale("");
    const struct {
        std::string text, query;
        bool found;
    } cases[] = {
        {"I drink CAFE daily", "caf\u00e9", true},
        {"Caf\u00e9 au lait", "CAFE AU", true},
        {"Cafe\u0301 au lait", "cafe au", true},
        {"Stra\u00dfe", "strasse", true},
        {"STRASSE", "stra\u00dfe", true},
        {"\ufb01le", "fil", true},
        {"ab\u0301c", "abc", true},      // the mark on the ASCII letter before the stretch goes
        {"ab\u0301c", "b\u0301c", true}, // and the query loses it just the same
        {"\u212a", "k", true},           // Kelvin sign folds into ASCII
        {"plain ascii text", "ascii", true},
        {"plain ascii text", "asci\u00ef", true},
        {"plain ascii text", "\u00e9", true}, // the query folds too
        {"plain ascii text", "\u4e2d", false},
        {"line\nbreak", "line break", false},
        {"", "x", false},
        {"x", "", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(FoldedSearch(c.query).foundIn(c.text), c.found) << c.text << " / " << c.query;
        EXPECT_EQ(reference(c.text, c.query), c.found) << c.text << " / " << c.query;
    }
}

// Random texts of ASCII runs of every length (the search cuts long ones), accents, marks and
// characters that fold into ASCII or grow, against folding the whole text.
TEST(FoldedSearch, AgreesWithFoldingTheWholeTextOnRandomTexts) {
    LocaleRestorer restorer;
    const char* pieces[] = {"a", "b", "e", "A", "E", " ", "\n", "ab", "be", "\u00e9", "\u00c9", "\u0301",
                            "\u00df", "ss", "\ufb01", "fi", "\u212a", "k", "\u4e2d", "\u0130", "I", "i",
                            "\u0131", "\U0001F600", "\r\n",
                            // characters that do not fold on their own: jamo that compose, marks that
                            // are not nonspacing or decompose, letters whose folding grows marks
                            "\u1100", "\u1161", "\u11a8", "\uac00", "\u0b47", "\u0b3e", "\u0bbe", "\u0344",
                            "\u0345", "\u0390", "\u1e9e", "\u304c", "\u3099", "\u304b", "\u0149", "\u01f0"};
    const char* queries[] = {"a",        "e",      "ab",     "bea",     "ss",
                             "fi",       "k",      "e a",    "aaaa",    "\u00e9b",
                             "be\u0301", "i",      "\u0131", "\u4e2db", "ababababab",
                             "abab ab",  "kss",    "e\na",   "\uac00",  "\u1100\u1161",
                             "\u304b",   "\u03b9", "n",      "j"};
    std::mt19937 random(2026);
    for (const char* locale : {"", "tr_TR"}) {
        adoptLocale(locale);
        for (int round = 0; round < 3000; ++round) {
            std::string text;
            const int count = static_cast<int>(random() % 40);
            for (int i = 0; i < count; ++i) {
                if (random() % 10 == 0) { // ASCII runs of mixed case, most long enough to be searched where they stand
                    const std::size_t length = random() % 4 == 0 ? 4000 + random() % 3000 : random() % 200;
                    const char* letters = random() % 2 == 0 ? "aAbB " : "a";
                    for (std::size_t n = 0; n < length; ++n) text += letters[random() % std::strlen(letters)];
                }
                else
                    text += pieces[random() % std::size(pieces)];
            }
            // Now and then a query longer than half a long run, whose ends then overlap.
            const std::string query =
                round % 50 == 0 ? repeatedAb(1200 + random() % 1000) : queries[random() % std::size(queries)];
            const FoldedSearch search(query);
            ASSERT_EQ(search.foundIn(text), fold(text).find(search.folded()) != std::string::npos)
                << "locale " << locale << ", text \"" << text << "\", query \"" << search.folded() << "\"";
        }
    }
}

// ASCII text is searched sixteen start positions at a time: a match at every offset around those
// blocks and at the very end, capitals in the text, and the bytes on either side of A-Z, which must
// not be taken for letters.
TEST(FoldedSearch, FindsAsciiMatchesAtEveryOffsetAndNoLookAlikes) {
    LocaleRestorer restorer;
    adoptLocale("");
    for (const std::string needle : {"q", "qz", "q@z", "quartz", "q[z`{z\x7f@q", "z@", "z[", "q`", "q{"}) {
        const FoldedSearch search(needle);
        std::string capitals = needle;
        for (char& c : capitals) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        for (std::size_t size = needle.size(); size < 70; ++size) {
            for (std::size_t at = 0; at + needle.size() <= size; ++at) {
                for (const std::string& spelling : {needle, capitals}) {
                    std::string text(size, '.');
                    text.replace(at, needle.size(), spelling);
                    ASSERT_TRUE(search.foundIn(text)) << needle << " at " << at << " of " << size;
                    text[at + needle.size() - 1] ^= 0x20; // a letter changes case, anything else changes
                    EXPECT_EQ(search.foundIn(text), std::isalpha(static_cast<unsigned char>(needle.back())) != 0)
                        << needle << " at " << at << " of " << size;
                }
            }
        }
    }
}

TEST(FoldedSearch, FindsMatchesAcrossTheWindowOfALongNonAsciiText) {
    LocaleRestorer restorer;
    adoptLocale("");
    std::string text;
    while (text.size() < 300000)
        text += "\u00e9\u4e2d\u00c5 ";
    EXPECT_FALSE(FoldedSearch("needle").foundIn(text));
    EXPECT_TRUE(FoldedSearch("NE\u00c9DLE").foundIn(text + "n\u00e9edle"));
    // A match that straddles the point where the window is cut.
    for (const std::size_t at : {65530u, 65536u, 65540u, 131070u}) {
        std::string straddling = text;
        straddling.insert(straddling.find(' ', at) + 1, "Cre\u0300me Br\u00fbl\u00e9e");
        EXPECT_TRUE(FoldedSearch("creme brulee").foundIn(straddling)) << at;
    }
}

} // namespace
} // namespace vorlo::text
