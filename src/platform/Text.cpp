// Unicode text services over ICU. (Being written; temporary ASCII-only bodies.)
#include "platform/Text.h"

#include <stdexcept>

namespace vorlo::text {
void adoptLocaleFromEnvironment() {}
bool currentLocaleIsTurkic() { return false; }
bool isValidUtf8(std::string_view) { throw std::logic_error("not implemented"); }
bool isAscii(std::string_view bytes) {
    for (unsigned char c : bytes) if (c >= 0x80) return false;
    return true;
}
char32_t nextCodePoint(std::string_view text, std::size_t& offset) { return (unsigned char)text[offset++]; }
std::size_t characterCount(std::string_view text) { return text.size(); }
std::string_view firstCharacters(std::string_view text, std::size_t count) { return text.substr(0, count); }
bool hasMoreCharactersThan(std::string_view text, std::size_t count) { return text.size() > count; }
bool isWhitespaceOrNewline(char32_t c) { return c == ' ' || (c >= 9 && c <= 13); }
bool isHorizontalWhitespace(char32_t c) { return c == ' ' || c == 9; }
bool isRegexWhitespace(char32_t c) { return c == ' ' || c == 9 || c == 10 || c == 12 || c == 13; }
bool isControlCharacter(char32_t c) { return c < 32 || c == 127; }
bool isLetter(char32_t) { throw std::logic_error("not implemented"); }
bool isNumber(char32_t) { throw std::logic_error("not implemented"); }
bool isRegexWordCharacter(char32_t) { throw std::logic_error("not implemented"); }
std::string_view trimWhitespaceAndNewlines(std::string_view t) {
    while (!t.empty() && isWhitespaceOrNewline((unsigned char)t.front())) t.remove_prefix(1);
    while (!t.empty() && isWhitespaceOrNewline((unsigned char)t.back())) t.remove_suffix(1);
    return t;
}
std::string_view trimHorizontalWhitespace(std::string_view t) {
    while (!t.empty() && isHorizontalWhitespace((unsigned char)t.front())) t.remove_prefix(1);
    while (!t.empty() && isHorizontalWhitespace((unsigned char)t.back())) t.remove_suffix(1);
    return t;
}
std::string fold(std::string_view) { throw std::logic_error("not implemented"); }
std::string foldWithoutLocale(std::string_view) { throw std::logic_error("not implemented"); }
std::optional<std::size_t> findFoldedCharacterOffset(std::string_view, std::string_view) {
    throw std::logic_error("not implemented");
}
bool caseInsensitiveEqual(std::string_view, std::string_view) { throw std::logic_error("not implemented"); }
int localizedCaseInsensitiveCompare(std::string_view, std::string_view) { throw std::logic_error("not implemented"); }
std::string canonicalComposition(std::string_view) { throw std::logic_error("not implemented"); }
} // namespace vorlo::text
