#include "support/Repeated.h"
#include "mutation/SafePlacement.h"

#include <gtest/gtest.h>

namespace vorlo::mutation {
namespace {

// Characters a file name cannot hold go, blanks and dots go from the ends, and the stem is cut to 160
// characters, not bytes, with nothing trimmed after the cut. Category Zs is white space; category Cf
// and control characters inside vanish, so a joined emoji falls apart.
TEST(SafeFilename, TurnsTitlesIntoLegalStemsOfAtMostOneHundredSixtyCharacters) {
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"Plan", "Plan"}, {"Re: Plan/Q3", "Re PlanQ3"}, {"a\\b*c?d\"e<f>g|h", "abcdefgh"},
        {"report.md", "report.md"}, {"  Trimmed\t\n", "Trimmed"}, {"\u00A0No-break\u3000", "No-break"},
        {".hidden", "hidden"}, {"..double..", "double"}, {". spaced .", " spaced "},
        {"Tab\tinside", "Tabinside"}, {"Zero\u200Bwidth", "Zerowidth"}, {"👩\u200D💻", "👩💻"}, {"", "Untitled"},
        {"   ", "Untitled"}, {"...", "Untitled"}, {":/|", "Untitled"}, {"vorlo data", "Untitled"},
        {"VORLO DATA.", "Untitled"}, {"Vorlo Data 2", "Vorlo Data 2"},
        {repeated("a", 200), repeated("a", 160)}, {repeated("e\u0301", 161), repeated("e\u0301", 160)},
        {repeated("🇩🇪", 170), repeated("🇩🇪", 160)}, {repeated("a", 159) + " b", repeated("a", 159) + " "}};
    // clang-format on
    for (const auto& [title, stem] : cases)
        EXPECT_EQ(safeFilename(title), stem) << title;
}

} // namespace
} // namespace vorlo::mutation
