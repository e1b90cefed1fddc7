#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Folding.h"
#include "platform/RegexReference.h"
#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace vorlo::text {
namespace {

// Puts the process's own locale back after a test that chose another.
struct LocaleRestorer {
    ~LocaleRestorer() { adoptLocaleFromEnvironment(); }
};

std::string utf8(char32_t c) {
    std::string out;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | c >> 6);
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | c >> 12);
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | c >> 18);
        out += static_cast<char>(0x80 | (c >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (c >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
    return out;
}

std::string repeated(std::string_view piece, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i) out += piece;
    return out;
}

TEST(TextEncoding, ValidatesUtf8Strictly) {
    const std::string longAscii(37, 'a');
    struct Case {
        std::string bytes;
        bool valid;
    };
    const Case cases[] = {
        {"", true},
        {"plain ASCII", true},
        {"Gr\xC3\xB6\xC3\x9F" "e", true},
        {"\xE2\x82\xAC", true},            // U+20AC
        {"\xF0\x9F\x98\x80", true},        // U+1F600
        {"\xF4\x8F\xBF\xBF", true},        // U+10FFFF
        {"\xED\x9F\xBF", true},            // U+D7FF, just below the surrogates
        {"\xEE\x80\x80", true},            // U+E000, just above them
        {"\xC0\xAF", false},               // overlong "/"
        {"\xC1\xBF", false},               // overlong
        {"\xE0\x9F\xBF", false},           // overlong three-byte form
        {"\xF0\x8F\xBF\xBF", false},       // overlong four-byte form
        {"\xED\xA0\x80", false},           // U+D800
        {"\xED\xBF\xBF", false},           // U+DFFF
        {"\xF4\x90\x80\x80", false},       // U+110000
        {"\xF5\x80\x80\x80", false},
        {"\xFF", false},
        {"\x80", false},                   // lone continuation byte
        {"\xC3", false},                   // truncated at the end
        {"\xE2\x82", false},
        {"\xE2\x28\xA1", false},           // broken continuation
        {longAscii + "\xC3", false},       // after the word-at-a-time path
        {longAscii + "\xC3\xA9" + longAscii, true},
        {std::string("a\0b", 3), true},
    };
    for (const Case& c : cases) EXPECT_EQ(isValidUtf8(c.bytes), c.valid) << testing::PrintToString(c.bytes);
}

TEST(TextEncoding, DecodesEveryWidth) {
    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::size_t offset = 0;
    std::vector<char32_t> decoded;
    while (offset < text.size()) decoded.push_back(nextCodePoint(text, offset));
    EXPECT_EQ(decoded, (std::vector<char32_t>{U'a', U'\u00E9', U'\u20AC', U'\U0001F600'}));
    EXPECT_TRUE(isAscii("abc\r\n"));
    EXPECT_FALSE(isAscii(std::string(20, 'a') + "\xC3\xA9"));
}

TEST(TextCharacters, CountsExtendedGraphemeClusters) {
    struct Case {
        const char* text;
        std::size_t count;
    };
    const Case cases[] = {
        {"", 0},
        {"abc", 3},
        {"\r\n", 1},
        {"\n\r", 2},
        {"a\r\nb\r\n", 4},
        {"caf\u00E9", 4},                    // precomposed
        {"cafe\u0301", 4},                   // combining accent
        {"e\u0301\u0323\u0308", 1},          // several marks on one letter
        {"\U0001F1E9\U0001F1EA", 1},         // a flag
        {"\U0001F1E9\U0001F1EA\U0001F1EB", 2}, // a flag and a lone indicator
        {"\U0001F468\u200D\U0001F469\u200D\U0001F467", 1}, // family: emoji joined by ZWJ
        {"\U0001F44D\U0001F3FD", 1},         // emoji with skin tone
        {"1\uFE0F\u20E3", 1},                // keycap behind an ASCII digit
        {"\u1100\u1161\u11A8", 1},           // Hangul syllable from jamo
        {"x\r\n\u0301", 3},                  // a mark cannot attach to CR LF
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(characterCount(c.text), c.count);
        if (c.count > 0) {
            EXPECT_TRUE(hasMoreCharactersThan(c.text, c.count - 1));
        }
        EXPECT_FALSE(hasMoreCharactersThan(c.text, c.count));
        EXPECT_EQ(firstCharacters(c.text, c.count), c.text);
    }
}

TEST(TextCharacters, CutsOnlyBetweenCharacters) {
    struct Case {
        std::string text;
        std::size_t count;
        std::string expected;
    };
    const Case cases[] = {
        {"abc", 2, "ab"},
        {"a\r\nb", 2, "a\r\n"},
        {"e\u0301\u0301x", 1, "e\u0301\u0301"},
        {"\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7", 1, "\U0001F1E9\U0001F1EA"},
        {"ab\U0001F468\u200D\U0001F469z", 3, "ab\U0001F468\u200D\U0001F469"},
        {"abc", 10, "abc"},
        {"abc", 0, ""},
    };
    for (const Case& c : cases) EXPECT_EQ(firstCharacters(c.text, c.count), c.expected) << c.text;
}

TEST(TextCharacters, TrimsUnicodeWhitespace) {
    struct Case {
        std::string text;
        std::string both;       // whitespace and newlines
        std::string horizontal; // tab and Zs only
    };
    const Case cases[] = {
        {" \t a b \n", "a b", "a b \n"},
        {"\u0085x\u0085", "x", "\u0085x\u0085"},
        {"\u3000x\u3000", "x", "x"},
        {"\u00A0\u2028x\u2029", "x", "\u2028x\u2029"},
        {"\u200Bx", "\u200Bx", "\u200Bx"}, // a zero-width space is format, not whitespace
        {"\u3000\u3000", "", ""},
        {"", "", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(trimWhitespaceAndNewlines(c.text), c.both) << c.text;
        EXPECT_EQ(trimHorizontalWhitespace(c.text), c.horizontal) << c.text;
    }
}

// The regular expressions are ICU's, so ICU decides what \s, \w, \p{L} and \p{N} hold.
TEST(TextCharacters, ClassesAgreeWithTheRegularExpressionEngine) {
    std::string everyCodePoint;
    for (char32_t c = 1; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) everyCodePoint += utf8(c);
    struct Class {
        const char* pattern;
        bool (*predicate)(char32_t);
    };
    const Class classes[] = {
        {"(\\s)", isRegexWhitespace},
        {"(\\w)", isRegexWordCharacter},
        {"(\\p{L})", isLetter},
        {"(\\p{N})", isNumber},
        {"([\\p{Z}\\t-\\r\\x{85}])", isWhitespaceOrNewline},
    };
    for (const Class& cls : classes) {
        SCOPED_TRACE(cls.pattern);
        std::vector<std::string> expected;
        for (char32_t c = 1; c <= 0x10FFFF; ++c)
            if ((c < 0xD800 || c > 0xDFFF) && cls.predicate(c)) expected.push_back(utf8(c));
        EXPECT_EQ(RegexReference(cls.pattern).allGroupOneMatches(everyCodePoint), expected);
    }
}

TEST(TextFolding, FoldsCaseAndDiacritics) {
    LocaleRestorer restorer;
    adoptLocale("");
    struct Case {
        std::string text;
        std::string folded;
    };
    const Case cases[] = {
        {"Caf\u00E9", "cafe"},
        {"CAF\u00C9", "cafe"},
        {"Cafe\u0301", "cafe"},
        {"Stra\u00DFe", "strasse"},
        {"\u1E9E", "ss"},                        // capital sharp s
        {"\uFB01le", "file"},                    // ligature
        {"\u212A", "k"},                         // Kelvin sign
        {"\u0130stanbul", "istanbul"},           // dotted capital I outside Turkic locales
        {"\u03A3\u038A\u03A3\u03A5\u03A6\u039F\u03A3", "\u03C3\u03B9\u03C3\u03C5\u03C6\u03BF\u03C3"},
        {"\u0416\u0401\u041B\u0422\u042B\u0419", "\u0436\u0435\u043B\u0442\u044B\u0438"}, // Ё and Й lose marks
        {"\u00C5ngstr\u00F6m \u212B", "angstrom a"},
        {"xe\u0301y", "xey"},                    // mark on the ASCII letter before a non-ASCII stretch
        {"\u4E2D\u6587 ABC", "\u4E2D\u6587 abc"},
        {"\U0001F1E9\U0001F1EA Flag", "\U0001F1E9\U0001F1EA flag"},
        {"", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(fold(c.text), c.folded) << c.text;
        EXPECT_EQ(foldWithoutLocale(c.text), c.folded) << c.text;
    }
}

TEST(TextFolding, TurkicLocaleFoldsDottedAndDotlessI) {
    LocaleRestorer restorer;
    for (const char* name : {"tr_TR.UTF-8", "az_AZ"}) {
        adoptLocale(name);
        EXPECT_TRUE(currentLocaleIsTurkic()) << name;
        EXPECT_EQ(fold("ISPARTA"), "\u0131sparta") << name;
        EXPECT_EQ(fold("\u0130stanbul"), "istanbul") << name;
        EXPECT_EQ(fold("I\u0307stanbul"), "istanbul") << name;
        EXPECT_EQ(fold("D\u0130YARBAKIR"), "diyarbak\u0131r") << name;
        EXPECT_EQ(foldWithoutLocale("ISPARTA \u0130"), "isparta i") << name;
    }
    adoptLocale("de_DE.UTF-8");
    EXPECT_FALSE(currentLocaleIsTurkic());
    EXPECT_EQ(fold("ISPARTA"), "isparta");
}

TEST(TextFolding, AdoptsLocaleNamesAsTheVariablesGiveThem) {
    LocaleRestorer restorer;
    struct Case {
        const char* variable;
        const char* icuName;
    };
    // Unset, C and POSIX must be the root locale: ICU's own choice for them is en_US_POSIX.
    const Case cases[] = {
        {"", ""},           {"C", ""},
        {"POSIX", ""},      {"C.UTF-8", ""},
        {"de_DE.UTF-8", "de_DE"}, {"sr_RS@latin", "sr_RS"},
        {"tr_TR.ISO-8859-9@euro", "tr_TR"}, {"sv", "sv"},
    };
    for (const Case& c : cases) EXPECT_EQ(adoptLocale(c.variable), c.icuName) << c.variable;
}

TEST(TextFolding, FindsFoldedTextByCharacterOffset) {
    const std::string longAscii(20000, 'a');
    std::string longAccented;
    for (int i = 0; i < 9000; ++i) longAccented += "e\u0301";
    struct Case {
        std::string text;
        std::string needle; // as the caller folds it
        std::optional<std::size_t> offset;
    };
    const Case cases[] = {
        {"Caf\u00E9 au lait", "cafe", 0},
        {"Un CAF\u00C9", "cafe", 3},
        {"\U0001F1E9\U0001F1EA e\u0301\u0301 CAFE\u0301", "cafe", 4},
        {"stra\u00DFe", "ss", 4},          // starts in the character that folds to two
        {"stra\u00DFe", "se", 4},          // starts in the second half of that character
        {"\uFB01x", "ix", 0},
        {"a\r\nb", "\r\nb", 1},
        {"abc", "d", std::nullopt},
        {"", "a", std::nullopt},
        {"abc", "", std::nullopt},
        {longAscii + "XYZ", "xyz", 20000},
        {repeated("ab\r\n", 30000) + "Z", "\nz", 89999},
        {longAccented + "Target", "target", 9000},
        {longAccented, "ee", 0},
        {longAscii, "b", std::nullopt},
    };
    for (const Case& c : cases)
        EXPECT_EQ(findFoldedCharacterOffset(c.text, c.needle), c.offset) << c.text.substr(0, 40) << " / " << c.needle;
}

// The reference folds the text one character at a time through the whole-text folding, with a
// table from folded offsets to characters; the real search folds in windows with its own fast paths.
TEST(TextFolding, SearchAgreesWithCharacterByCharacterFolding) {
    const std::vector<std::string> pieces = {
        "a", "B", "xyz ", " ", "\r\n", "\r", "\n", "I", "\u00E9", "E\u0301", "\u00DF", "\uFB01", "\u0130",
        "\u212A", "\u03A3", "\u4E2D", "\U0001F1E9\U0001F1EA", "\u0301", "\u0345", "\U0001F468\u200D\U0001F469",
    };
    std::mt19937 random(11);
    std::uniform_int_distribution<std::size_t> pick(0, pieces.size() - 1);
    for (int round = 0; round < 60; ++round) {
        const std::size_t count = round < 3 ? 60000 : std::uniform_int_distribution<std::size_t>(0, 200)(random);
        std::string text;
        for (std::size_t n = 0; n < count; ++n) text += pieces[pick(random)];

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
            // Needles cut from the folded text itself, so most are found, some only late.
            const std::size_t from = std::uniform_int_distribution<std::size_t>(0, folded.size() - 1)(random);
            std::string needle = folded.substr(from, std::uniform_int_distribution<std::size_t>(1, 12)(random));
            if (!isValidUtf8(needle)) continue;
            std::optional<std::size_t> expected;
            if (const std::size_t match = folded.find(needle); match != std::string::npos)
                expected = static_cast<std::size_t>(std::upper_bound(starts.begin(), starts.end(), match) - starts.begin()) - 1;
            ASSERT_EQ(findFoldedCharacterOffset(text, needle), expected) << needle;
        }
        ASSERT_EQ(findFoldedCharacterOffset(text, "\u00E9"), std::nullopt); // never in folded text
    }
}

TEST(TextComparison, CaseInsensitiveEqualityHonoursCanonicalEquivalence) {
    LocaleRestorer restorer;
    adoptLocale("tr_TR"); // the locale must not matter
    struct Case {
        std::string a, b;
        bool equal;
    };
    const Case cases[] = {
        {"Projects", "projects", true},
        {"Projects", "Project", false},
        {"Caf\u00E9", "CAFE\u0301", true},
        {"Caf\u00E9", "cafe", false},       // diacritics count
        {"Stra\u00DFe", "STRASSE", true},   // full case folding
        {"\u212B", "\u00E5", true},          // Angstrom sign and a-ring
        {"\u212A", "k", true},
        {"I", "i", true},
        {"\u0131", "I", false},
        {"q\u0307\u0323", "Q\u0323\u0307", true}, // marks in either canonical order
        {"", "", true},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(caseInsensitiveEqual(c.a, c.b), c.equal) << c.a << " / " << c.b;
        EXPECT_EQ(CaselessMatch(c.a).matches(c.b), c.equal) << c.a << " / " << c.b;
        EXPECT_EQ(CaselessMatch(c.b).matches(c.a), c.equal) << c.b << " / " << c.a;
    }
}

// The matcher's shortcuts against the plain comparison, on names built from pieces that fold to
// ASCII, grow, decompose or carry marks in either order.
TEST(TextComparison, CaselessMatchAgreesWithCaseInsensitiveEquality) {
    const char* pieces[] = {"a",      "A",      "e",      "E",      "\u00e9", "\u00c9", "\u0301", "k",
                            "K",      "\u212a", "s",      "S",      "ss",     "\u00df", "\u1e9e", "fi",
                            "\ufb01", "i",      "I",      "\u0130", "\u0131", " ",      "\u0307", "\u0323",
                            "\u4e2d", "\u212b", "\u00e5", "."};
    std::mt19937 random(7);
    const auto name = [&] {
        std::string text;
        for (int n = static_cast<int>(random() % 5); n > 0; --n) text += pieces[random() % std::size(pieces)];
        return text;
    };
    int equal = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string a = name(), b = name();
        const bool expected = caseInsensitiveEqual(a, b);
        equal += expected;
        ASSERT_EQ(CaselessMatch(a).matches(b), expected) << a << " / " << b;
    }
    EXPECT_GT(equal, 200); // the pairs that match are many enough to mean something
}

TEST(TextComparison, CollationIgnoresCaseAndKeepsAccents) {
    LocaleRestorer restorer;
    adoptLocale("");
    EXPECT_EQ(localizedCaseInsensitiveCompare("apple", "APPLE"), 0);
    EXPECT_NE(localizedCaseInsensitiveCompare("resume", "r\u00E9sum\u00E9"), 0);
    EXPECT_EQ(localizedCaseInsensitiveCompare("r\u00E9sum\u00E9", "RE\u0301SUME\u0301"), 0);

    std::vector<std::string> titles = {"banana", "\u00C9clair", "Zebra", "apple", "eclair", "Cherry", "10", "9"};
    std::stable_sort(titles.begin(), titles.end(),
                     [](const std::string& a, const std::string& b) { return localizedCaseInsensitiveCompare(a, b) < 0; });
    EXPECT_EQ(titles, (std::vector<std::string>{"10", "9", "apple", "banana", "Cherry", "eclair", "\u00C9clair", "Zebra"}));
}

TEST(TextComparison, ComposesCanonically) {
    EXPECT_EQ(canonicalComposition("Cafe\u0301"), "Caf\u00E9");
    EXPECT_EQ(canonicalComposition("\u212B"), "\u00C5");
    EXPECT_EQ(canonicalComposition("plain"), "plain");
    EXPECT_EQ(canonicalComposition("\u1100\u1161"), "\uAC00");
}

} // namespace
} // namespace vorlo::text
