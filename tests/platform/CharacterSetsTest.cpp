#include "platform/CharacterSets.h"
#include "platform/RegexReference.h"

#include <gtest/gtest.h>

#include <tuple>

namespace vorlo::text {
namespace {

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

// The regular expressions are ICU's, so ICU decides what \s, \w, \p{L} and \p{N} hold.
TEST(CharacterSets, ClassesAgreeWithTheRegularExpressionEngine) {
    std::string everyCodePoint;
    for (char32_t c = 1; c <= 0x10FFFF; ++c)
        if (c < 0xD800 || c > 0xDFFF) everyCodePoint += utf8(c);
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
