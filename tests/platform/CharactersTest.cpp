// Text at the level of bytes, code points and characters: strict UTF-8, extended grapheme
// clusters, and the Unicode classes that trimming and the hand-written matchers use.
#include "platform/Characters.h"
#include "platform/CharacterSets.h"
#include "platform/RegexReference.h"
#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

namespace vorlo::text {
namespace {

// A CR LF pair, a flag, a family of joined emoji, a keycap, Hangul jamo and a letter with its marks
// are one character each; a mark cannot attach to CR LF.
TEST(Characters, CountsAndCutsWholeExtendedGraphemeClusters) {
    // clang-format off
    const std::pair<std::string, std::size_t> counts[] = {
        {"", 0}, {"abc", 3}, {"\r\n", 1}, {"\n\r", 2}, {"a\r\nb\r\n", 4}, {"caf\u00E9", 4}, {"cafe\u0301", 4},
        {"e\u0301\u0323\u0308", 1}, {"\U0001F1E9\U0001F1EA", 1}, {"\U0001F1E9\U0001F1EA\U0001F1EB", 2},
        {"\U0001F468\u200D\U0001F469\u200D\U0001F467", 1}, {"\U0001F44D\U0001F3FD", 1}, {"1\uFE0F\u20E3", 1},
        {"\u1100\u1161\u11A8", 1}, {"x\r\n\u0301", 3}};
    const std::tuple<std::string, std::size_t, std::string> cuts[] = {
        {"abc", 2, "ab"}, {"a\r\nb", 2, "a\r\n"}, {"e\u0301\u0301x", 1, "e\u0301\u0301"}, {"abc", 10, "abc"},
        {"abc", 0, ""}, {"\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7", 1, "\U0001F1E9\U0001F1EA"},
        {"ab\U0001F468\u200D\U0001F469z", 3, "ab\U0001F468\u200D\U0001F469"}};
    // clang-format on
    for (const auto& [text, count] : counts) {
        EXPECT_EQ(characterCount(text), count) << text;
        EXPECT_EQ(hasMoreCharactersThan(text, count - 1), count > 0) << text;
        EXPECT_FALSE(hasMoreCharactersThan(text, count)) << text;
        EXPECT_EQ(firstCharacters(text, count), text);
    }
    for (const auto& [text, count, prefix] : cuts)
        EXPECT_EQ(firstCharacters(text, count), prefix) << text;
}

std::string utf8(char32_t c) {
    if (c < 0x80) return std::string(1, static_cast<char>(c));
    const int length = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    std::string out(length, '\0');
    for (int i = length - 1; i > 0; --i, c >>= 6)
        out[i] = static_cast<char>(0x80 | (c & 0x3F));
    out[0] = static_cast<char>((0xF00 >> length) | c); // C0, E0 or F0 before the remaining bits
    return out;
}

// Each text, trimmed of whitespace and newlines, then of horizontal whitespace (tab and Zs) only. A
// zero-width space is a format character, not whitespace.
TEST(CharacterSets, TrimsUnicodeWhitespace) {
    // clang-format off
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {" \t a b \n", "a b", "a b \n"}, {"\u0085x\u0085", "x", "\u0085x\u0085"}, {"\u3000x\u3000", "x", "x"},
        {"\u00A0\u2028x\u2029", "x", "\u2028x\u2029"}, {"\u200Bx", "\u200Bx", "\u200Bx"},
        {"\u3000\u3000", "", ""}, {"", "", ""}};
    // clang-format on
    for (const auto& [text, both, horizontal] : cases)
        EXPECT_EQ(std::string(trimWhitespaceAndNewlines(text)) + "|" +
                      std::string(trimHorizontalWhitespace(text)),
                  both + "|" + horizontal);
}

// The regular expressions are ICU's, so ICU decides what \s, \w, \p{L} and \p{N} hold; ICU also
// checks the encoding here, by which every code point, NUL included, is valid UTF-8 and decodes to
// itself. Only the first 128 are ASCII, the first non-ASCII bytes filling whole words of the ASCII
// check. Strictness (overlong forms, surrogates, beyond U+10FFFF, stray and truncated sequences,
// also past a run of ASCII skipped a word at a time) is held against the JSON parser's by the
// json_string fuzz target's utf8_* inputs.
TEST(CharacterSets, EveryCodePointDecodesAndClassesAgreeWithTheRegularExpressionEngine) {
    std::string everyCodePoint;
    for (char32_t c = 0; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) everyCodePoint += utf8(c);
    EXPECT_TRUE(isValidUtf8(everyCodePoint));
    EXPECT_TRUE(isAscii(everyCodePoint.substr(0, 128)) && !isAscii(everyCodePoint.substr(0, 144)));
    std::size_t offset = 0, wrong = 0;
    for (char32_t c = 0; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) wrong += nextCodePoint(everyCodePoint, offset) != c;
    EXPECT_EQ(wrong, 0u);
    const std::pair<const char*, bool (*)(char32_t)> classes[] = {
        {"(\\s)", isRegexWhitespace},
        {"(\\w)", isRegexWordCharacter},
        {"(\\p{L})", isLetter},
        {"(\\p{N})", isNumber},
        {"([\\p{Z}\\t-\\r\\x{85}])", isWhitespaceOrNewline}};
    for (const auto& [pattern, predicate] : classes) {
        std::vector<std::string> expected;
        for (char32_t c = 1; c <= 0x10FFFF; ++c)
            if ((c < 0xD800 || c > 0xDFFF) && predicate(c)) expected.push_back(utf8(c));
        EXPECT_EQ(RegexReference(pattern).allGroupOneMatches(everyCodePoint), expected) << pattern;
    }
}

} // namespace
} // namespace vorlo::text
