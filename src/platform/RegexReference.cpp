// ICU regular expressions over UTF-8 text, for differential tests of the hand-written matchers.
#include "platform/RegexReference.h"

#include <unicode/uregex.h>
#include <unicode/utext.h>

#include <cstdint>
#include <stdexcept>

namespace vorlo::text {

RegexReference::RegexReference(std::string_view pattern) {
    UErrorCode status = U_ZERO_ERROR;
    UText patternText = UTEXT_INITIALIZER;
    utext_openUTF8(&patternText, pattern.data(), static_cast<std::int64_t>(pattern.size()), &status);
    UParseError parseError{};
    expression_ = uregex_openUText(&patternText, 0, &parseError, &status);
    utext_close(&patternText);
    if (U_FAILURE(status)) {
        if (expression_ != nullptr) uregex_close(expression_);
        throw std::invalid_argument("The pattern does not compile: " + std::string(u_errorName(status)));
    }
}

RegexReference::~RegexReference() { uregex_close(expression_); }

// Calls `visit` with the byte range of group `group` of each match; a UTF-8 UText indexes by byte.
template <typename Visit> void RegexReference::forEachMatch(std::string_view text, int group, Visit visit) {
    UErrorCode status = U_ZERO_ERROR;
    UText subject = UTEXT_INITIALIZER;
    utext_openUTF8(&subject, text.data(), static_cast<std::int64_t>(text.size()), &status);
    uregex_setUText(expression_, &subject, &status);
    while (U_SUCCESS(status) && uregex_findNext(expression_, &status)) {
        const std::int64_t start = uregex_start64(expression_, group, &status);
        const std::int64_t end = uregex_end64(expression_, group, &status);
        if (U_SUCCESS(status) && start >= 0) visit(static_cast<std::size_t>(start), static_cast<std::size_t>(end));
    }
    // The expression keeps a shallow clone of the subject; detach it before the text goes.
    UErrorCode resetStatus = U_ZERO_ERROR;
    uregex_setText(expression_, u"", 0, &resetStatus);
    utext_close(&subject);
    if (U_FAILURE(status)) throw std::runtime_error("The match failed: " + std::string(u_errorName(status)));
}

std::vector<std::string> RegexReference::allGroupOneMatches(std::string_view text) {
    std::vector<std::string> matches;
    forEachMatch(text, 1, [&](std::size_t start, std::size_t end) { matches.emplace_back(text.substr(start, end - start)); });
    return matches;
}

std::string RegexReference::replaceAllMatches(std::string_view text, std::string_view replacement) {
    std::string result;
    std::size_t copied = 0;
    forEachMatch(text, 0, [&](std::size_t start, std::size_t end) {
        result.append(text.substr(copied, start - copied));
        result.append(replacement);
        copied = end;
    });
    result.append(text.substr(copied));
    return result;
}

} // namespace vorlo::text
