// Text compared and searched without regard to case or accents, as the locale has it.
#include "support/Repeated.h"
#include "platform/Folding.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Utf8.h"

#include <gtest/gtest.h>
#include <unicode/normalizer2.h>
#include <unicode/unistr.h>

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

// Unset, C and POSIX must be the root locale: ICU's own choice for them is en_US_POSIX. Equality
// honours full case folding and canonical equivalence (marks in either order), accents and the
// Turkic dotless i do not match, and the locale does not matter; the matcher's shortcuts agree with
// the plain comparison (the lookup's differential holds them against it on many more names). The
// root locale's collation (the order given; "?" where ICU's own rules for sharp s and the order of
// marks decide) ignores case and keeps accents.
TEST(Collation, AdoptsLocaleNamesComparesCaselesslyInAnyLocaleAndSortsKeepingAccents) {
    const InLocale restore("");
    // clang-format off
    const std::pair<const char*, const char*> names[] = {
        {"C", ""}, {"POSIX", ""}, {"C.UTF-8", ""}, {"de_DE.UTF-8", "de_DE"},
        {"sr_RS@latin", "sr_RS"}, {"tr_TR.ISO-8859-9@euro", "tr_TR"}, {"sv", "sv"}, {"", ""}};
    for (const auto& [variable, icuName] : names)
        EXPECT_EQ(adoptLocale(variable), icuName) << variable;
    const std::tuple<std::string, std::string, bool, char> cases[] = {
        {"Projects", "projects", true, '='}, {"Zz", "zZ", true, '='}, {"Projects", "Project", false, '>'},
        {"Caf\u00E9", "CAFE\u0301", true, '='}, {"Caf\u00E9", "cafe", false, '>'}, {"Stra\u00DFe", "STRASSE", true, '?'},
        {"\u212B", "\u00E5", true, '='}, {"\u212A", "k", true, '='}, {"I", "i", true, '='}, {"\u0131", "I", false, '>'},
        {"", "", true, '='}, {"q\u0307\u0323", "Q\u0323\u0307", true, '?'}, {"\uFB01le", "FILE", true, '='},
        {"\u0130", "i\u0307", true, '='}, {"s\u00DFS", "\u1E9Ess", true, '?'}, {"ab\u00E9", "BA\u00C9", false, '<'},
        {"r\u00E9sum\u00E9", "RE\u0301SUME\u0301", true, '='}, {"10", "9", false, '<'}, {"9", "APPLE", false, '<'},
        {"APPLE", "apple", true, '='}, {"apple", "banana", false, '<'}, {"banana", "Cherry", false, '<'},
        {"Cherry", "eclair", false, '<'}, {"eclair", "\u00C9clair", false, '<'}, {"\u00C9clair", "Zebra", false, '<'}};
    // clang-format on
    for (const char* locale : {"", "tr_TR"}) {
        adoptLocale(locale);
        for (const auto& [a, b, equal, order] : cases) {
            EXPECT_EQ(caseInsensitiveEqual(a, b), equal) << locale << " " << a << " / " << b;
            EXPECT_EQ(CaselessMatch(a).matches(b), equal) << locale << " " << a << " / " << b;
            EXPECT_EQ(CaselessMatch(b).matches(a), equal) << locale << " " << b << " / " << a;
            const int compared = localizedCaseInsensitiveCompare(a, b);
            const char shown = *locale == 0 && order != '?' ? "<=>"[(compared >= 0) + (compared > 0)] : order;
            EXPECT_EQ(shown, order) << a << " / " << b;
        }
    }
}

// Greek final sigma, Ё and Й lose their marks; the mark on the ASCII letter before a non-ASCII
// stretch goes too. Outside Turkic locales the dotted capital I is a plain i; in them, folding
// with the locale keeps the dotless i apart, and folding without it does not.
TEST(Folding, FoldsCaseAndDiacriticsAndComposes) {
    const std::string turkic = "ISPARTA \u0130stanbul I\u0307stanbul D\u0130YARBAKIR";
    // clang-format off
    const std::tuple<const char*, std::string, std::string, std::string> cases[] = {
        {"", "Caf\u00E9", "cafe", ""}, {"", "CAF\u00C9", "cafe", ""}, {"", "Cafe\u0301", "cafe", ""},
        {"", "Stra\u00DFe", "strasse", ""}, {"", "\u1E9E", "ss", ""}, {"", "\uFB01le", "file", ""},
        {"", "\u212A", "k", ""}, {"", "\u0130stanbul", "istanbul", ""}, {"", "", "", ""},
        {"", "\u03A3\u038A\u03A3\u03A5\u03A6\u039F\u03A3", "\u03C3\u03B9\u03C3\u03C5\u03C6\u03BF\u03C3", ""},
        {"", "\u0416\u0401\u041B\u0422\u042B\u0419", "\u0436\u0435\u043B\u0442\u044B\u0438", ""},
        {"", "\u00C5ngstr\u00F6m \u212B", "angstrom a", ""}, {"", "xe\u0301y", "xey", ""},
        {"", "\u4E2D\u6587 ABC", "\u4E2D\u6587 abc", ""}, {"", "\U0001F1E9\U0001F1EA Flag", "\U0001F1E9\U0001F1EA flag", ""},
        {"tr_TR.UTF-8", turkic, "\u0131sparta istanbul istanbul diyarbak\u0131r", "isparta istanbul istanbul diyarbakir"},
        {"az_AZ", turkic, "\u0131sparta istanbul istanbul diyarbak\u0131r", "isparta istanbul istanbul diyarbakir"},
        {"de_DE.UTF-8", "ISPARTA", "isparta", ""}};
    // clang-format on
    for (const auto& [locale, text, folded, withoutLocale] : cases) {
        const InLocale chosen(locale);
        EXPECT_EQ(fold(text) + "|" + foldWithoutLocale(text),
                  folded + "|" + (withoutLocale.empty() ? folded : withoutLocale))
            << locale << " " << text;
        EXPECT_EQ(currentLocaleIsTurkic(), !withoutLocale.empty()) << locale;
    }
    EXPECT_EQ(canonicalComposition("Cafe\u0301 \u212B \u1100\u1161"), "Caf\u00E9 \u00C5 \uAC00");
    EXPECT_EQ(canonicalComposition("plain"), "plain");
}

// Random texts against folding them whole and one character at a time, in the root and a Turkic
// locale. Pieces fold into ASCII, grow, decompose or carry marks, and some do not fold on their own
// (jamo that compose, marks that are not nonspacing or decompose, letters whose folding grows
// marks). A third of the texts are ASCII alone, searched sixteen start positions at a time, where
// the bytes either side of A-Z must not pass for letters. Runs of mixed case come in every length,
// as the search cuts long ones; the first texts are long enough to cross the search windows, and
// one is searched for needles as long as the windows or longer, cut around where windows are cut. A
// match by character offset may start inside a character that folds to more than one.
TEST(FoldedSearch, AgreesWithFoldingTheWholeTextAndEachCharacter) {
    // clang-format off
    // The first kFoldOneByOne fold the same alone as among the others.
    constexpr std::size_t kFoldOneByOne = 35;
    const std::vector<std::string> pieces = {
        "a", "b", "e", "A", "E", "B", "I", "i", " ", "xyz ", "\n", "\r", "\r\n", "ab", "be", "q", "Z", "@", "[", "`",
        "{", "\x7f", "\u00e9", "\u00c9", "E\u0301", "\u0301", "\u00df", "\ufb01", "\u212a", "\u4e2d", "\u0130",
        "\u03A3", "\u0345", "\U0001F1E9\U0001F1EA", "\U0001F468\u200D\U0001F469", "ss", "fi", "k", "\u0131",
        "\U0001F600", "\u1100", "\u1161", "\u11a8", "\uac00", "\u0b47", "\u0b3e", "\u0bbe", "\u0344", "\u0390",
        "\u1e9e", "\u304c", "\u3099", "\u304b", "\u0149", "\u01f0"};
    const char* queries[] = {
        "a", "e", "ab", "bea", "ss", "fi", "k", "e a", "aaaa", "\u00e9b", "be\u0301", "i", "\u0131",
        "\u4e2db", "ababababab", "abab ab", "kss", "e\na", "\uac00", "\u1100\u1161", "\u304b", "\u03b9", "n",
        "j", "qz", "q@z", "z[", "q`", "q{", "a\x7f", "zab"};
    // clang-format on
    std::mt19937 random(2026);
    const auto below = [&](std::size_t n) { return random() % n; };
    for (const char* locale : {"", "tr_TR"}) {
        const InLocale chosen(locale);
        for (int round = 0; round < 3000; ++round) {
            std::string text;
            // Every eighth text is folded one character at a time too, so made of pieces that allow it.
            const bool byCharacter = round % 8 == 1;
            for (std::size_t count = round < 2 ? 60000 : below(40); count > 0; --count) {
                // Now and then a run of mixed case, most long enough to be searched where it stands.
                if (round >= 2 && below(10) == 0) {
                    const std::size_t length = below(4) == 0 ? 4000 + below(3000) : below(200);
                    const std::string_view letters = below(2) == 0 ? "aAbB " : "a";
                    for (std::size_t n = 0; n < length; ++n)
                        text += letters[below(letters.size())];
                    continue;
                }
                std::string piece;
                do
                    piece = pieces[below(byCharacter ? kFoldOneByOne : pieces.size())];
                while (round % 3 == 0 && !isAscii(piece));
                text += piece;
            }
            // Now and then a query longer than half a long run, whose ends then overlap.
            const FoldedSearch search(round % 50 == 0 ? repeated("ab", 1200 + below(1000))
                                                      : std::string(queries[below(std::size(queries))]));
            bool partsLack = false;
            ASSERT_EQ(search.foundIn(text, &partsLack), fold(text).find(search.folded()) != std::string::npos)
                << "locale " << locale << ", text \"" << text << "\", query \"" << search.folded() << "\"";
            // Then no stretch between two characters holds it either.
            for (int cut = 0; partsLack && cut < 4; ++cut) {
                std::size_t from = below(text.size() + 1);
                std::size_t to = from + below(text.size() - from + 1);
                while (from > 0 && isContinuation(static_cast<unsigned char>(text[from])))
                    --from;
                while (to < text.size() && isContinuation(static_cast<unsigned char>(text[to])))
                    ++to;
                ASSERT_EQ(fold(text.substr(from, to - from)).find(search.folded()), std::string::npos)
                    << text.substr(from, to - from) << " / " << search.folded();
            }
            if (!byCharacter) continue;
            std::string folded;
            std::vector<std::size_t> starts;
            for (std::string_view rest = text; !rest.empty();) {
                const std::string_view character = firstCharacters(rest, 1);
                starts.push_back(folded.size());
                folded += foldWithoutLocale(character);
                rest.remove_prefix(character.size());
            }
            ASSERT_EQ(foldWithoutLocale(text), folded);
            std::vector<std::string> needles; // mostly found
            for (int probe = 0; probe < 5 && !folded.empty(); ++probe)
                needles.push_back(folded.substr(below(folded.size()), 1 + below(12)));
            constexpr std::size_t kLength[] = {65535, 65537, 140000};
            for (std::size_t n = 0; round == 1 && *locale == 0 && folded.size() > 100000 && n < 6; ++n) {
                const auto first = std::lower_bound(starts.begin(), starts.end(), n % 2 * 30000);
                const auto last = std::lower_bound(first, starts.end(), *first + kLength[n / 2]);
                needles.push_back(
                    folded.substr(*first, (last == starts.end() ? folded.size() : *last) - *first));
            }
            const std::string whole = fold(text);
            for (const std::string& needle : needles) {
                if (!isValidUtf8(needle)) continue;
                std::optional<std::size_t> expected;
                if (const std::size_t match = folded.find(needle); match != std::string::npos)
                    expected = std::upper_bound(starts.begin(), starts.end(), match) - starts.begin() - 1;
                ASSERT_EQ(findFoldedCharacterOffset(text, needle), expected) << needle.substr(0, 40);
                for (const FoldedSearch& query : {FoldedSearch(needle), FoldedSearch(needle + "\u4E2Dq")})
                    ASSERT_EQ(query.foundIn(text), whole.find(query.folded()) != std::string::npos);
            }
            ASSERT_EQ(findFoldedCharacterOffset(text, "\u00E9"), std::nullopt); // never in folded text
        }
    }
    // A long non-ASCII text, 6 folded bytes a unit, with a phrase after `units` of them: at 10922 and
    // 21845 it straddles where the 64 KiB windows of folded text are cut. A vowel that composes with
    // the letter before it cannot be folded on its own.
    const auto units = [](std::size_t count) { return repeated("\u00e9\u4e2d\u00c5 ", count); };
    const auto phraseAfter = [&](std::size_t count) {
        return units(count) + "Cre\u0300me Br\u00fbl\u00e9e" + units(9000);
    };
    // clang-format off
    const std::tuple<std::string, std::string, std::optional<std::size_t>> cases[] = {
        {"stra\u00DFe", "se", 4}, {"a\r\nb", "\r\nb", 1}, {"abc", "", std::nullopt}, {"", "a", std::nullopt},
        {repeated("ab\r\n", 30000) + "Z", "\nz", 89999},
        {repeated("e\u0301", 9000) + "Target", "target", 9000}, {units(37500), "needle", std::nullopt},
        {units(37500) + "N\u00c9edle", "needle", 150000}, {phraseAfter(8192), "creme brulee", 32768},
        {phraseAfter(10922), "creme brulee", 43688}, {phraseAfter(21845), "creme brulee", 87380},
        {"x\u1100\u1161y", "\uac00", 1}, {"x\u0b47\u0b3ey", "\u0b4b", 0},
        {repeated("\u00e9", 8190) + "\u00fcber", "euber", 8189}}; // across the cut of a 16 KiB slice
    // clang-format on
    for (const auto& [text, needle, offset] : cases) {
        EXPECT_EQ(findFoldedCharacterOffset(text, needle), offset) << text.substr(0, 40) << " / " << needle;
        EXPECT_EQ(FoldedSearch(needle).foundIn(text), offset || needle.empty())
            << text.substr(0, 40) << " / " << needle;
    }
}

// An ASCII needle is looked for in mixed text where the text stands, which holds only if an ASCII
// character folds the same whatever follows it. Only a character that may combine with the one
// before it, or that folds to one, could change that: each of them is tried behind every ASCII one.
TEST(FoldedSearch, AnAsciiCharacterFoldsAloneWhateverFollowsIt) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::Normalizer2* nfc = icu::Normalizer2::getNFCInstance(status);
    ASSERT_TRUE(U_SUCCESS(status));
    std::size_t tried = 0;
    for (UChar32 c = 0x80; c <= 0x10FFFF; ++c) {
        std::string character;
        if (U_IS_SURROGATE(c) || icu::UnicodeString(c).toUTF8String(character).empty()) continue;
        const std::string folded = foldWithoutLocale(character);
        if (nfc->hasBoundaryBefore(c) &&
            (folded.empty() || nfc->hasBoundaryBefore(icu::UnicodeString::fromUTF8(folded).char32At(0))))
            continue;
        ++tried;
        for (char ascii = 1; ascii > 0; ++ascii)
            ASSERT_EQ(foldWithoutLocale(std::string(1, ascii) + character), lowerAscii(ascii) + folded)
                << "U+" << std::hex << c << " behind " << static_cast<int>(ascii);
    }
    EXPECT_GT(tried, 900u);
}

} // namespace
} // namespace vorlo::text
