#include "platform/Characters.h"

#include <gtest/gtest.h>

#include <tuple>

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

} // namespace
} // namespace vorlo::text
