// The locale, caseless equality by canonical keys, and collation through one ICU collator.
#include "platform/Collation.h"

#include "platform/TextInternals.h"

#include <unicode/ucol.h>
#include <unicode/uloc.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace vorlo::text {
namespace {

// Canonical equivalence plus full case folding: two texts are equal when these keys are.
std::string caselessKey(std::string_view text) {
    std::string decomposed;
    appendNormalized(normalizers().nfd, text, decomposed);
    std::string folded;
    appendCaseFolded(decomposed, false, folded);
    std::string key;
    appendNormalized(normalizers().nfd, folded, key);
    return key;
}

bool isCLocale(std::string_view name) { return name == "C" || name == "POSIX"; }

struct CollatorCloser {
    void operator()(UCollator* collator) const { ucol_close(collator); }
};

UCollator* openCollator() {
    UErrorCode status = U_ZERO_ERROR;
    UCollator* collator = ucol_open(uloc_getDefault(), &status);
    if (U_FAILURE(status)) {
        if (collator != nullptr) ucol_close(collator);
        return nullptr;
    }
    ucol_setStrength(collator, UCOL_SECONDARY);
    return collator;
}

} // namespace

void adoptLocaleFromEnvironment() {
    std::string_view chosen;
    for (const char* variable : {"LC_ALL", "LC_COLLATE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            chosen = value;
            break;
        }
    }
    adoptLocale(chosen);
}

std::string adoptLocale(std::string_view posixName) {
    std::string name(posixName.substr(0, posixName.find_first_of(".@")));
    if (isCLocale(name)) name.clear();
    // An empty name is ICU's root locale. Leaving the default alone would not do: ICU derives it from
    // the same variables and maps "C" to en_US_POSIX, whose collation tells case apart.
    UErrorCode status = U_ZERO_ERROR;
    uloc_setDefault(name.c_str(), &status);
    return uloc_getDefault();
}

bool currentLocaleIsTurkic() {
    char language[ULOC_LANG_CAPACITY] = {};
    UErrorCode status = U_ZERO_ERROR;
    uloc_getLanguage(uloc_getDefault(), language, sizeof language, &status);
    if (U_FAILURE(status)) return false;
    return std::strcmp(language, "tr") == 0 || std::strcmp(language, "az") == 0;
}

bool caseInsensitiveEqual(std::string_view a, std::string_view b) {
    if (isAscii(a) && isAscii(b)) {
        if (a.size() != b.size()) return false;
        for (std::size_t i = 0; i < a.size(); ++i) {
            const char x = a[i] >= 'A' && a[i] <= 'Z' ? static_cast<char>(a[i] - 'A' + 'a') : a[i];
            const char y = b[i] >= 'A' && b[i] <= 'Z' ? static_cast<char>(b[i] - 'A' + 'a') : b[i];
            if (x != y) return false;
        }
        return true;
    }
    return caselessKey(a) == caselessKey(b);
}

CaselessMatch::CaselessMatch(std::string_view text)
    : key_(isAscii(text) ? std::string(text) : caselessKey(text)) {
    if (isAscii(key_))
        for (char& c : key_) c = lowerAscii(c);
}

bool CaselessMatch::matches(std::string_view other) const {
    // The key of ASCII text is the text lowered.
    if (isAscii(other)) {
        if (other.size() != key_.size()) return false;
        for (std::size_t i = 0; i < other.size(); ++i)
            if (lowerAscii(other[i]) != key_[i]) return false;
        return true;
    }
    // Decomposition and case folding keep every ASCII character where it stands among the others,
    // lowered, and reordering moves only marks: the ASCII of `other`, lowered, must appear in this
    // order in its key, and so in ours if the keys are equal.
    std::size_t at = 0;
    for (const char c : other) {
        if (static_cast<unsigned char>(c) >= 0x80) continue;
        const char lowered = lowerAscii(c);
        while (at < key_.size() && key_[at] != lowered) ++at;
        if (at == key_.size()) return false;
        ++at;
    }
    return caselessKey(other) == key_;
}

int localizedCaseInsensitiveCompare(std::string_view a, std::string_view b) {
    // Opening a collator builds its tailoring, far too slow to repeat for every comparison of a
    // sort; the locale is fixed at start-up, so one collator serves the whole process.
    static const std::unique_ptr<UCollator, CollatorCloser> collator(openCollator());
    if (!collator) {
        const int order = a.compare(b);
        return (order > 0) - (order < 0);
    }
    UErrorCode status = U_ZERO_ERROR;
    const UCollationResult result =
        ucol_strcollUTF8(collator.get(), a.data(), static_cast<std::int32_t>(a.size()), b.data(),
                         static_cast<std::int32_t>(b.size()), &status);
    return result == UCOL_LESS ? -1 : result == UCOL_GREATER ? 1 : 0;
}

} // namespace vorlo::text
