#include "platform/Collation.h"

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

// Unset, C and POSIX must be the root locale: ICU's own choice for them is en_US_POSIX.
TEST(Collation, AdoptsLocaleNamesAsTheVariablesGiveThem) {
    const InLocale restore("");
    // clang-format off
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {"C", ""}, {"POSIX", ""}, {"C.UTF-8", ""}, {"de_DE.UTF-8", "de_DE"},
        {"sr_RS@latin", "sr_RS"}, {"tr_TR.ISO-8859-9@euro", "tr_TR"}, {"sv", "sv"}};
    // clang-format on
    for (const auto& [variable, icuName] : cases)
        EXPECT_EQ(adoptLocale(variable), icuName) << variable;
}

// Full case folding and canonical equivalence (marks in either order) count, accents and the Turkic
// dotless i do not match, and the locale does not matter. The matcher's shortcuts agree with the
// plain comparison, also on random names of pieces that fold to ASCII, grow, decompose or carry marks.
TEST(Collation, CaselessEqualityHonoursCanonicalEquivalenceInAnyLocale) {
    const InLocale turkish("tr_TR");
    // clang-format off
    const std::tuple<std::string, std::string, bool> cases[] = {
        {"Projects", "projects", true}, {"Zz", "zZ", true}, {"Projects", "Project", false}, {"Caf\u00E9", "CAFE\u0301", true},
        {"Caf\u00E9", "cafe", false}, {"Stra\u00DFe", "STRASSE", true}, {"\u212B", "\u00E5", true},
        {"\u212A", "k", true}, {"I", "i", true}, {"\u0131", "I", false}, {"", "", true},
        {"q\u0307\u0323", "Q\u0323\u0307", true}};
    const char* pieces[] = {
        "a", "A", "e", "E", "\u00e9", "\u00c9", "\u0301", "k", "K", "\u212a", "s", "S", "ss", "\u00df",
        "\u1e9e", "fi", "\ufb01", "i", "I", "\u0130", "\u0131", " ", "\u0307", "\u0323", "\u4e2d", "\u212b",
        "\u00e5", "."};
    // clang-format on
    for (const auto& [a, b, equal] : cases) {
        EXPECT_EQ(caseInsensitiveEqual(a, b), equal) << a << " / " << b;
        EXPECT_EQ(CaselessMatch(a).matches(b), equal) << a << " / " << b;
        EXPECT_EQ(CaselessMatch(b).matches(a), equal) << b << " / " << a;
    }
    std::mt19937 random(7);
    const auto name = [&] {
        std::string text;
        for (int n = static_cast<int>(random() % 5); n > 0; --n)
            text += pieces[random() % std::size(pieces)];
        return text;
    };
    int equal = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string a = name(), b = name();
        const bool expected = caseInsensitiveEqual(a, b);
        equal += expected;
        ASSERT_EQ(CaselessMatch(a).matches(b), expected) << a << " / " << b;
    }
    EXPECT_GT(equal, 200); // enough matching pairs to mean something
}

TEST(Collation, SortsIgnoringCaseAndKeepingAccents) {
    const InLocale root("");
    EXPECT_EQ(localizedCaseInsensitiveCompare("r\u00E9sum\u00E9", "RE\u0301SUME\u0301"), 0);
    std::vector<std::string> titles = {"APPLE",  "banana", "\u00C9clair", "Zebra", "apple",
                                       "eclair", "Cherry", "10",          "9"};
    std::stable_sort(titles.begin(), titles.end(),
                     [](const auto& a, const auto& b) { return localizedCaseInsensitiveCompare(a, b) < 0; });
    EXPECT_EQ(titles, (std::vector<std::string>{"10", "9", "APPLE", "apple", "banana", "Cherry", "eclair",
                                                "\u00C9clair", "Zebra"}));
}

} // namespace
} // namespace vorlo::text
