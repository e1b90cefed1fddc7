#include "platform/Utf8.h"

#include <gtest/gtest.h>

namespace vorlo::text {
namespace {

// The vector validator against the bytewise one. Every run of four bytes drawn from those where
// UTF-8's rules change (and a lead of every low nibble) is placed across a block boundary at two
// cuts, before ASCII and at the very end, where its prefixes stand cut off too. The json_string
// fuzz target compares the two on longer texts.
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
    EXPECT_EQ(wrong, 0u);
}

} // namespace
} // namespace vorlo::text
