#include "platform/Utf8.h"

#include <gtest/gtest.h>

#include <random>

namespace vorlo::text {
namespace {

// The vector validator against the bytewise one. Every run of four bytes drawn from those where
// UTF-8's rules change (and a lead of every low nibble) is placed across a block boundary at two
// cuts, before ASCII and at the very end, where its prefixes stand cut off too. Then valid text in
// every length up to several blocks, with one byte changed at random.
TEST(Utf8, TheVectorValidatorAgreesWithTheBytewiseOne) {
    const std::string edges("\x00\x41\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc1\xc2\xcb\xdf\xe0\xe1\xe9\xec\xed\xee\xef"
                            "\xf0\xf1\xf3\xf4\xf5\xf6\xf7\xf8\xfa\xff",
                            31);
    std::size_t wrong = 0;
    const auto check = [&](const std::string& bytes) {
        if (isValidUtf8(bytes) != isValidUtf8Bytewise(bytes) && ++wrong < 5) ADD_FAILURE() << ::testing::PrintToString(bytes);
    };
    for (std::size_t n = 0; n < 31 * 31 * 31 * 31; ++n) {
        std::string run;
        for (std::size_t k = n; run.size() < 4; k /= 31)
            run += edges[k % 31];
        for (std::size_t cut : {29, 31}) {
            check(std::string(cut, 'a') + run + "aa");
            check(std::string(cut, 'a') + run.substr(0, 1 + n % 4));
        }
    }
    std::mt19937 random(7);
    const char* valid[] = {"a", "\u00e9", "\u07ff", "\u0800", "\ud7ff", "\ue000", "\U00010000", "\U0010FFFF"};
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        for (std::size_t length = random() % 120; text.size() < length;)
            text += valid[random() % 8];
        if (round % 2 && !text.empty()) text[random() % text.size()] = static_cast<char>(random());
        check(text);
    }
    EXPECT_EQ(wrong, 0u);
}

} // namespace
} // namespace vorlo::text
