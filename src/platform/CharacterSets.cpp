// Character classes from ICU's properties, answered without ICU for ASCII.
#include "platform/CharacterSets.h"

#include "platform/TextInternals.h"

namespace vorlo::text {
namespace {

template <typename Predicate> std::string_view trim(std::string_view text, Predicate belongs) {
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t next = start;
        if (!belongs(nextCodePoint(text, next))) break;
        start = next;
    }
    std::size_t end = text.size();
    while (end > start) {
        std::size_t begin = end - 1;
        while (begin > start && isContinuation(static_cast<unsigned char>(text[begin]))) --begin;
        std::size_t cursor = begin;
        if (!belongs(nextCodePoint(text, cursor))) break;
        end = begin;
    }
    return text.substr(start, end - start);
}

} // namespace

bool isWhitespaceOrNewline(char32_t c) {
    if (c < 0x80) return c == ' ' || (c >= 0x09 && c <= 0x0D);
    return c == 0x85 || (generalCategoryMask(c) & U_GC_Z_MASK) != 0;
}

bool isHorizontalWhitespace(char32_t c) {
    if (c < 0x80) return c == ' ' || c == '\t';
    return (generalCategoryMask(c) & U_GC_ZS_MASK) != 0;
}

bool isRegexWhitespace(char32_t c) {
    if (c < 0x80) return c == ' ' || (c >= 0x09 && c <= 0x0D);
    return u_isUWhiteSpace(static_cast<UChar32>(c));
}

bool isControlCharacter(char32_t c) { return (generalCategoryMask(c) & (U_GC_CC_MASK | U_GC_CF_MASK)) != 0; }

bool isLetter(char32_t c) {
    if (c < 0x80) return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    return (generalCategoryMask(c) & U_GC_L_MASK) != 0;
}

bool isNumber(char32_t c) {
    if (c < 0x80) return c >= '0' && c <= '9';
    return (generalCategoryMask(c) & U_GC_N_MASK) != 0;
}

// The word class of ICU's regular expressions, which are the reference for every pattern here.
bool isRegexWordCharacter(char32_t c) {
    if (c < 0x80) return isLetter(c) || isNumber(c) || c == '_';
    if (c == 0x200C || c == 0x200D) return true;
    if (generalCategoryMask(c) & (U_GC_M_MASK | U_GC_ND_MASK | U_GC_PC_MASK)) return true;
    return u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_ALPHABETIC);
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) { return trim(text, isWhitespaceOrNewline); }

std::string_view trimHorizontalWhitespace(std::string_view text) { return trim(text, isHorizontalWhitespace); }

} // namespace vorlo::text
