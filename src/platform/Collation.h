#pragma once
// The locale, caseless equality and the locale's collation.

#include <string>
#include <string_view>

namespace vorlo::text {

// Chooses the locale for folding and collation from LC_ALL, LC_COLLATE and LANG. Unset, "C" and
// "POSIX" mean the root locale: clients usually start servers with no locale at all, and the POSIX
// collation would order by code point and tell case apart. Call once at start-up.
void adoptLocaleFromEnvironment();
// Adopts the locale that a locale variable's value names ("tr_TR.UTF-8", "C", ""), with the same
// rules, and returns the ICU name now in use ("" is the root locale). The collator is opened at
// the first comparison, so choose the locale before that.
std::string adoptLocale(std::string_view posixName);
bool currentLocaleIsTurkic();

// Equality that ignores case and treats canonically equivalent spellings alike, whatever the locale.
bool caseInsensitiveEqual(std::string_view a, std::string_view b);

// caseInsensitiveEqual of many texts against one, as when a folder's names are held against a
// path's component: the one's comparison key is made once, and most texts that differ are told
// apart without ICU.
class CaselessMatch {
public:
    explicit CaselessMatch(std::string_view text);
    bool matches(std::string_view other) const;

private:
    std::string key_;
};

// Collation of the current locale, ignoring case and keeping accents: <0, 0 or >0.
int localizedCaseInsensitiveCompare(std::string_view a, std::string_view b);

} // namespace vorlo::text
