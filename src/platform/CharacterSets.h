#pragma once
// Character classes of single code points, and trimming by them.

#include <string_view>

namespace vorlo::text {

bool isWhitespaceOrNewline(char32_t c);  // category Z, U+0009–U+000D, U+0085
bool isHorizontalWhitespace(char32_t c); // U+0009 and category Zs
bool isRegexWhitespace(char32_t c);      // `\s` of the regex engine: White_Space (U+0009–U+000D, U+0085, Z)
bool isControlCharacter(char32_t c);     // categories Cc and Cf
bool isLetter(char32_t c);               // \p{L}
bool isNumber(char32_t c);               // \p{N}
bool isRegexWordCharacter(char32_t c);   // \w: alphabetic, marks, decimal digits, connector punctuation, ZWNJ, ZWJ

// Trimming from both ends.
std::string_view trimWhitespaceAndNewlines(std::string_view text);
std::string_view trimHorizontalWhitespace(std::string_view text);

} // namespace vorlo::text
