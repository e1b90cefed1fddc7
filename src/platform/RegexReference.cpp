// ICU regular expressions over UTF-8 text, for differential tests of the hand-written matchers.
#include "platform/RegexReference.h"

#include <unicode/uregex.h>
#include <unicode/utext.h>

#include <cstdint>
#include <functional>
#include <stdexcept>

namespace vorlo::text {
namespace {

// Calls `visit` with the byte range of group `group` of each match; UTF-8 UTexts index by byte.
void forEachMatch(std::string_view pattern, std::string_view text, int group,
                  const std::function<void(std::int64_t, std::int64_t)>& visit) {
    UErrorCode status = U_ZERO_ERROR;
    UText patternText = UTEXT_INITIALIZER;
    utext_openUTF8(&patternText, pattern.data(), static_cast<std::int64_t>(pattern.size()), &status);
    UParseError parseError{};
    URegularExpression* expression = uregex_openUText(&patternText, 0, &parseError, &status);
    utext_close(&patternText);
    if (U_FAILURE(status)) {
        if (expression != nullptr) uregex_close(expression);
        throw std::invalid_argument("The pattern does not compile: " + std::string(u_errorName(status)));
    }
    UText subject = UTEXT_INITIALIZER;
    utext_openUTF8(&subject, text.data(), static_cast<std::int64_t>(text.size()), &status);
    uregex_setUText(expression, &subject, &status);
    while (U_SUCCESS(status) && uregex_findNext(expression, &status)) {
        const std::int64_t start = uregex_start64(expression, group, &status);
        const std::int64_t end = uregex_end64(expression, group, &status);
        if (U_SUCCESS(status) && start >= 0) visit(start, end);
    }
    uregex_close(expression);
    utext_close(&subject);
    if (U_FAILURE(status)) throw std::runtime_error("The match failed: " + std::string(u_errorName(status)));
}

} // namespace

std::vector<std::string> allGroupOneMatches(std::string_view pattern, std::string_view text) {
    std::vector<std::string> matches;
    forEachMatch(pattern, text, 1, [&](std::int64_t start, std::int64_t end) {
        matches.emplace_back(text.substr(static_cast<std::size_t>(start), static_cast<std::size_t>(end - start)));
    });
    return matches;
}

std::string replaceAllMatches(std::string_view pattern, std::string_view text, std::string_view replacement) {
    std::string result;
    std::size_t copied = 0;
    forEachMatch(pattern, text, 0, [&](std::int64_t start, std::int64_t end) {
        result.append(text.substr(copied, static_cast<std::size_t>(start) - copied));
        result.append(replacement);
        copied = static_cast<std::size_t>(end);
    });
    result.append(text.substr(copied));
    return result;
}

} // namespace vorlo::text
