#include "support/Repeated.h"
#include "platform/Folding.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <tuple>

namespace vorlo::text {
namespace {

// Chooses a locale for one test and puts the process's own back afterwards.
struct InLocale {
    explicit InLocale(const char* name) { adoptLocale(name); }
    ~InLocale() { adoptLocaleFromEnvironment(); }
};

// Greek final sigma, Ё and Й lose their marks; the mark on the ASCII letter before a non-ASCII
// stretch goes too. Outside Turkic locales the dotted capital I is a plain i.
TEST(Folding, FoldsCaseAndDiacriticsAndComposes) {
    const InLocale root("");
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"Caf\u00E9", "cafe"}, {"CAF\u00C9", "cafe"}, {"Cafe\u0301", "cafe"}, {"Stra\u00DFe", "strasse"},
        {"\u1E9E", "ss"}, {"\uFB01le", "file"}, {"\u212A", "k"}, {"\u0130stanbul", "istanbul"}, {"", ""},
        {"\u03A3\u038A\u03A3\u03A5\u03A6\u039F\u03A3", "\u03C3\u03B9\u03C3\u03C5\u03C6\u03BF\u03C3"},
        {"\u0416\u0401\u041B\u0422\u042B\u0419", "\u0436\u0435\u043B\u0442\u044B\u0438"},
        {"\u00C5ngstr\u00F6m \u212B", "angstrom a"}, {"xe\u0301y", "xey"},
        {"\u4E2D\u6587 ABC", "\u4E2D\u6587 abc"}, {"\U0001F1E9\U0001F1EA Flag", "\U0001F1E9\U0001F1EA flag"}};
    // clang-format on
    for (const auto& [text, folded] : cases)
        EXPECT_EQ(fold(text) + "|" + foldWithoutLocale(text), folded + "|" + folded) << text;
    EXPECT_EQ(canonicalComposition("Cafe\u0301 \u212B \u1100\u1161"), "Caf\u00E9 \u00C5 \uAC00");
    EXPECT_EQ(canonicalComposition("plain"), "plain");
}

TEST(Folding, TurkicLocalesFoldDottedAndDotlessI) {
    for (const char* name : {"tr_TR.UTF-8", "az_AZ"}) {
        const InLocale turkic(name);
        EXPECT_TRUE(currentLocaleIsTurkic()) << name;
        EXPECT_EQ(fold("ISPARTA \u0130stanbul I\u0307stanbul D\u0130YARBAKIR"),
                  "\u0131sparta istanbul istanbul diyarbak\u0131r")
            << name;
        EXPECT_EQ(foldWithoutLocale("ISPARTA \u0130"), "isparta i") << name;
    }
    const InLocale german("de_DE.UTF-8");
    EXPECT_FALSE(currentLocaleIsTurkic());
    EXPECT_EQ(fold("ISPARTA"), "isparta");
}

// The reference folds one character at a time, with a table from folded offsets to characters; the
// search folds in windows with fast paths of its own. A match may start inside a character that
// folds to more than one.
TEST(Folding, FindsFoldedTextByCharacterOffsetAsFoldingCharacterByCharacterDoes) {
    // clang-format off
    const std::tuple<std::string, std::string, std::optional<std::size_t>> cases[] = {
        {"stra\u00DFe", "se", 4}, {"a\r\nb", "\r\nb", 1}, {"abc", "", std::nullopt}, {"", "a", std::nullopt},
        {repeated("ab\r\n", 30000) + "Z", "\nz", 89999},
        {repeated("e\u0301", 9000) + "Target", "target", 9000}};
    // clang-format on
    for (const auto& [text, needle, offset] : cases)
        EXPECT_EQ(findFoldedCharacterOffset(text, needle), offset) << text.substr(0, 40) << " / " << needle;

    // clang-format off
    const std::vector<std::string> pieces = {
        "a", "B", "xyz ", " ", "\r\n", "\r", "\n", "I", "\u00E9", "E\u0301", "\u00DF", "\uFB01", "\u0130",
        "\u212A", "\u03A3", "\u4E2D", "\U0001F1E9\U0001F1EA", "\u0301", "\u0345",
        "\U0001F468\u200D\U0001F469"};
    // clang-format on
    std::mt19937 random(11);
    const auto below = [&](std::size_t n) {
        return std::uniform_int_distribution<std::size_t>(0, n - 1)(random);
    };
    for (int round = 0; round < 60; ++round) {
        std::string text;
        for (std::size_t n = round < 3 ? 60000 : below(201); n > 0; --n)
            text += pieces[below(pieces.size())];
        std::string folded;
        std::vector<std::size_t> starts;
        for (std::string_view rest = text; !rest.empty();) {
            const std::string_view character = firstCharacters(rest, 1);
            starts.push_back(folded.size());
            folded += foldWithoutLocale(character);
            rest.remove_prefix(character.size());
        }
        ASSERT_EQ(foldWithoutLocale(text), folded);
        for (int probe = 0; probe < 5 && !folded.empty(); ++probe) {
            const std::string needle = folded.substr(below(folded.size()), 1 + below(12)); // mostly found
            if (!isValidUtf8(needle)) continue;
            std::optional<std::size_t> expected;
            if (const std::size_t match = folded.find(needle); match != std::string::npos)
                expected = std::upper_bound(starts.begin(), starts.end(), match) - starts.begin() - 1;
            ASSERT_EQ(findFoldedCharacterOffset(text, needle), expected) << needle;
        }
        ASSERT_EQ(findFoldedCharacterOffset(text, "\u00E9"), std::nullopt); // never in folded text
    }
}

// Texts of ASCII alone (a third of them: searched sixteen start positions at a time, where the bytes
// either side of A-Z must not pass for letters) or mixed with accents, marks, characters that fold
// into ASCII or grow, and characters that do not fold on their own (jamo that compose, marks that are
// not nonspacing or decompose, letters whose folding grows marks), against folding the whole text.
// ASCII runs come in every length, as the search cuts long ones.
TEST(FoldedSearch, AgreesWithFoldingTheWholeTextOnRandomTexts) {
    // clang-format off
    const std::vector<std::string> pieces = {
        "a", "b", "e", "A", "E", " ", "\n", "ab", "be", "q", "Z", "@", "[", "`", "{", "\x7f", "\r\n",
        "\u00e9", "\u00c9", "\u0301", "\u00df", "ss", "\ufb01", "fi", "\u212a", "k", "\u4e2d", "\u0130", "I",
        "i", "\u0131", "\U0001F600", "\u1100", "\u1161", "\u11a8", "\uac00", "\u0b47", "\u0b3e", "\u0bbe",
        "\u0344", "\u0345", "\u0390", "\u1e9e", "\u304c", "\u3099", "\u304b", "\u0149", "\u01f0"};
    const char* queries[] = {
        "a", "e", "ab", "bea", "ss", "fi", "k", "e a", "aaaa", "\u00e9b", "be\u0301", "i", "\u0131",
        "\u4e2db", "ababababab", "abab ab", "kss", "e\na", "\uac00", "\u1100\u1161", "\u304b", "\u03b9", "n",
        "j", "qz", "q@z", "z[", "q`", "q{", "a\x7f", "zab"};
    // clang-format on
    std::mt19937 random(2026);
    for (const char* locale : {"", "tr_TR"}) {
        const InLocale chosen(locale);
        for (int round = 0; round < 3000; ++round) {
            std::string text;
            for (int count = static_cast<int>(random() % 40); count > 0; --count) {
                // Now and then a run of mixed case, most long enough to be searched where it stands.
                if (random() % 10 == 0) {
                    const std::size_t length = random() % 4 == 0 ? 4000 + random() % 3000 : random() % 200;
                    const std::string_view letters = random() % 2 == 0 ? "aAbB " : "a";
                    for (std::size_t n = 0; n < length; ++n)
                        text += letters[random() % letters.size()];
                    continue;
                }
                std::string piece;
                do
                    piece = pieces[random() % pieces.size()];
                while (round % 3 == 0 && !isAscii(piece));
                text += piece;
            }
            // Now and then a query longer than half a long run, whose ends then overlap.
            const FoldedSearch search(round % 50 == 0 ? repeated("ab", 1200 + random() % 1000)
                                                      : std::string(queries[random() % std::size(queries)]));
            ASSERT_EQ(search.foundIn(text), fold(text).find(search.folded()) != std::string::npos)
                << "locale " << locale << ", text \"" << text << "\", query \"" << search.folded() << "\"";
        }
    }
}

TEST(FoldedSearch, FindsMatchesAcrossTheWindowOfALongNonAsciiText) {
    const InLocale root("");
    const std::string text = repeated("\u00e9\u4e2d\u00c5 ", 37500);
    EXPECT_FALSE(FoldedSearch("needle").foundIn(text));
    EXPECT_TRUE(FoldedSearch("NE\u00c9DLE").foundIn(text + "n\u00e9edle"));
    for (const std::size_t at : {65530u, 65536u, 65540u, 131070u}) { // straddling a cut of the window
        std::string straddling = text;
        straddling.insert(straddling.find(' ', at) + 1, "Cre\u0300me Br\u00fbl\u00e9e");
        EXPECT_TRUE(FoldedSearch("creme brulee").foundIn(straddling)) << at;
    }
}

} // namespace
} // namespace vorlo::text
