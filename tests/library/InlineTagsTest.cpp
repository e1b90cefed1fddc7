#include "library/InlineTags.h"

#include "platform/RegexReference.h"

#include <gtest/gtest.h>

#include <random>

namespace vorlo::library {
namespace {

// Texts built from pieces on every edge of the pattern: letters of many scripts, numbers that are
// and are not decimal digits, marks, joiners, the pattern's own punctuation and emoji; first a few
// that random ones reach seldom ("#1//a" is the tag "1": the letter that the lookahead asks for may
// stand past the end of the tag).
TEST(InlineTags, AgreesWithTheRegularExpressionEngine) {
    const std::vector<std::string> pieces = {
        "#",      "#",      "#",      "#",      "/",      "/",          "\\",     "_",       "-",
        ".",      " ",      "\n",     "a",      "Z",      "q7",         "\u00E9", "e\u0301", "\u00DF",
        "\u01C5", "\u02B0", "\u03A9", "\u0416", "\u4E2D", "\u0634",     "\u064E", "\u0915",  "\u093F",
        "\u094D", "\u0902", "0",      "9",      "\u0663", "\u096A",     "\u216B", "\u00B2",  "\u3007",
        "\u0301", "\u200D", "\u200C", "\u203F", "\u00A0", "\U0001F600", "@",      "("};
    std::mt19937 random(20240501);
    text::RegexReference reference(kInlineTagPattern);
    for (const char* body : {"#1//a #a//b #/c #2024 #2024/q1", "\\#a x#a _#a \u00B2#a e\u0301#a \u200D#a",
                             "#\u0939\u093F #Cafe\u0301 #a-#b #c.d ##e (#f)"})
        ASSERT_EQ(inlineTags(body), reference.allGroupOneMatches(body)) << body;
    for (int round = 0; round < 20000; ++round) {
        std::string body;
        for (int n = static_cast<int>(random() % 25); n > 0; --n)
            body += pieces[random() % pieces.size()];
        ASSERT_EQ(inlineTags(body), reference.allGroupOneMatches(body)) << body;
    }
}

} // namespace
} // namespace vorlo::library
