#include "mutation/SafePlacement.h"

#include <gtest/gtest.h>

namespace vorlo::mutation {
namespace {

std::string repeated(std::string_view piece, std::size_t count) {
    std::string out;
    for (std::size_t i = 0; i < count; ++i)
        out += piece;
    return out;
}

TEST(SafeFilename, TurnsTitlesIntoLegalStems) {
    const struct {
        std::string title;
        std::string stem;
    } cases[] = {
        {"Plan", "Plan"},
        {"Re: Plan/Q3", "Re PlanQ3"},
        {"a\\b*c?d\"e<f>g|h", "abcdefgh"},
        {"report.md", "report.md"},
        {"  Trimmed\t\n", "Trimmed"},
        {"\u00A0No-break\u3000", "No-break"}, // category Zs is white space too
        {".hidden", "hidden"},
        {"..double..", "double"},
        {". spaced .", " spaced "},       // blanks uncovered by the dots stay
        {"Tab\tinside", "Tabinside"},     // a control character inside vanishes
        {"Zero\u200Bwidth", "Zerowidth"}, // category Cf vanishes
        {"👩\u200D💻", "👩💻"},               // a joined emoji falls apart
        {"", "Untitled"},
        {"   ", "Untitled"},
        {"...", "Untitled"},
        {":/|", "Untitled"},
        {"vorlo data", "Untitled"},
        {"VORLO DATA.", "Untitled"},
        {"Vorlo Data 2", "Vorlo Data 2"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(safeFilename(c.title), c.stem) << c.title;
}

TEST(SafeFilename, CutsToOneHundredSixtyCharactersNotBytes) {
    EXPECT_EQ(safeFilename(repeated("a", 200)), repeated("a", 160));
    // "e" with a combining accent is one character of three bytes.
    EXPECT_EQ(safeFilename(repeated("e\u0301", 161)), repeated("e\u0301", 160));
    EXPECT_EQ(safeFilename(repeated("🇩🇪", 170)), repeated("🇩🇪", 160));
    // Nothing is trimmed after the cut, so a stem may end in a blank.
    EXPECT_EQ(safeFilename(repeated("a", 159) + " b"), repeated("a", 159) + " ");
}

} // namespace
} // namespace vorlo::mutation
