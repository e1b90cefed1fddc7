#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <vector>

namespace vorlo::text {
namespace {

// Valid: the largest code point and those either side of the surrogates. Invalid: overlong forms,
// surrogates, beyond U+10FFFF, bytes that never lead, truncated and broken sequences, also after a
// run of ASCII long enough to be skipped a word at a time.
TEST(Utf8, ValidatesStrictlyAndDecodesEveryWidth) {
    const std::string ascii(37, 'a');
    // clang-format off
    const std::pair<std::string, bool> cases[] = {
        {"", true}, {"plain", true}, {std::string("a\0b", 3), true}, {"Gr\u00F6\u00DFe", true},
        {"\xE2\x82\xAC", true}, {"\xF0\x9F\x98\x80", true}, {"\xF4\x8F\xBF\xBF", true},
        {"\xED\x9F\xBF", true}, {"\xEE\x80\x80", true}, {"\xC0\xAF", false}, {"\xC1\xBF", false},
        {"\xE0\x9F\xBF", false}, {"\xF0\x8F\xBF\xBF", false}, {"\xED\xA0\x80", false},
        {"\xED\xBF\xBF", false}, {"\xF4\x90\x80\x80", false}, {"\xF5\x80\x80\x80", false}, {"\xFF", false},
        {"\x80", false}, {"\xC3", false}, {"\xE2\x82", false}, {"\xE2\x28\xA1", false},
        {ascii + "\xC3", false}, {ascii + "\xC3\xA9" + ascii, true}};
    // clang-format on
    for (const auto& [bytes, valid] : cases)
        EXPECT_EQ(isValidUtf8(bytes), valid) << ::testing::PrintToString(bytes);

    const std::string text = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80";
    std::vector<char32_t> decoded;
    for (std::size_t offset = 0; offset < text.size();)
        decoded.push_back(nextCodePoint(text, offset));
    EXPECT_EQ(decoded, (std::vector<char32_t>{U'a', U'\u00E9', U'\u20AC', U'\U0001F600'}));
    EXPECT_TRUE(isAscii("abc\r\n"));
    EXPECT_FALSE(isAscii(std::string(20, 'a') + "\xC3\xA9"));
}

} // namespace
} // namespace vorlo::text
