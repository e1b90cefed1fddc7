#pragma once
// Unicode text: validation, characters (extended grapheme clusters), trimming, folding and
// comparison. All text is UTF-8 held in std::string / std::string_view.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

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

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);
bool isAscii(std::string_view bytes);

// Decodes the code point at `offset` of valid UTF-8 and moves `offset` behind it.
char32_t nextCodePoint(std::string_view text, std::size_t& offset);

// Characters are extended grapheme clusters (a CR LF pair, a flag, a letter with its accents: one each).
std::size_t characterCount(std::string_view text);
// The first `count` characters of `text`, cut between characters.
std::string_view firstCharacters(std::string_view text, std::size_t count);
// True when `text` holds more than `count` characters; stops counting early.
bool hasMoreCharactersThan(std::string_view text, std::size_t count);

// Character sets.
bool isWhitespaceOrNewline(char32_t c); // category Z, U+0009–U+000D, U+0085
bool isHorizontalWhitespace(char32_t c); // U+0009 and category Zs
bool isRegexWhitespace(char32_t c);     // `\s` of the regex engine: White_Space (U+0009–U+000D, U+0085, Z)
bool isControlCharacter(char32_t c);    // categories Cc and Cf
bool isLetter(char32_t c);              // \p{L}
bool isNumber(char32_t c);              // \p{N}
bool isRegexWordCharacter(char32_t c);  // \w: alphabetic, marks, decimal digits, connector punctuation, ZWNJ, ZWJ

// Trimming from both ends.
std::string_view trimWhitespaceAndNewlines(std::string_view text);
std::string_view trimHorizontalWhitespace(std::string_view text);

// Case- and diacritic-insensitive folding: NFD, nonspacing marks dropped, full case folding
// (Turkic dotted/dotless i when the current locale is Turkish or Azeri), NFC.
std::string fold(std::string_view text);
// The same folding with no locale (never Turkic).
std::string foldWithoutLocale(std::string_view text);

// A query folded once with the current locale, then looked for in many texts as if each were folded
// the same way: foundIn(t) is exactly fold(t).find(folded()) != npos. A text of ASCII alone is
// matched without a folded copy; others are folded piece by piece into a bounded window, without
// ICU wherever their characters fold one by one. One object serves one thread.
class FoldedSearch {
public:
    explicit FoldedSearch(std::string_view query);
    const std::string& folded() const { return folded_; }
    bool foundIn(std::string_view text) const;

private:
    // How one code point folds where it stands among others; see characterFolding().
    struct CharacterFolding {
        bool independent = false;
        std::string folded;
    };
    std::string folded_;
    bool turkic_ = false;
    bool asciiNeedle_ = false;
    mutable std::unordered_map<char32_t, CharacterFolding> characters_; // for this query's texts only

    const CharacterFolding& characterFolding(char32_t c) const;
    bool appendFoldedByCharacters(std::string_view stretch, std::string& out) const;
};

// The character offset in `text` at which `foldedNeedle` (already folded without locale) first
// occurs when `text` is folded without locale; absent when it does not occur.
std::optional<std::size_t> findFoldedCharacterOffset(std::string_view text, std::string_view foldedNeedle);

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

// Canonical composition (NFC); tags are de-duplicated and sorted by code points of this form.
std::string canonicalComposition(std::string_view text);

} // namespace vorlo::text
