#include "platform/Text.h"

#include <gtest/gtest.h>

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
                if (random() % 10 == 0) // ASCII runs, some long enough to be searched where they stand
                    text += std::string(random() % 4 == 0 ? 4000 + random() % 3000 : random() % 200,
                                        "ab "[random() % 3]);
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
