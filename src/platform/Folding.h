#pragma once
// Case- and diacritic-insensitive folding, and searching text as if it were folded.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vorlo::text {

// Case- and diacritic-insensitive folding: NFD, nonspacing marks dropped, full case folding
// (Turkic dotted/dotless i when the current locale is Turkish or Azeri), NFC.
std::string fold(std::string_view text);
// The same folding with no locale (never Turkic).
std::string foldWithoutLocale(std::string_view text);

// A query folded once with the current locale, then looked for in many texts as if each were folded
// the same way: foundIn(t) is exactly fold(t).find(folded()) != npos. A text of ASCII alone is
// matched without a folded copy, and so is mixed text for an ASCII query, but for the few stretches
// where a match may take bytes from other characters; the rest is folded piece by piece into a
// bounded window, without ICU wherever characters fold one by one. One object serves one thread.
class FoldedSearch {
public:
    explicit FoldedSearch(std::string_view query);
    const std::string& folded() const { return folded_; }
    // `partsLack`, when given, is set when the text lacks the query and folds one character at a
    // time, so that no stretch of it cut between two characters can hold the query either.
    bool foundIn(std::string_view text, bool* partsLack = nullptr) const;

  private:
    // How one code point folds where it stands among others; see characterFolding().
    struct CharacterFolding {
        bool independent = false;
        // Independent, and folds to something without a single byte of the needle: no match can
        // take a byte from it or reach across it.
        bool keepsMatchesApart = false;
        std::string folded;
    };
    std::string folded_;
    bool turkic_ = false;
    bool asciiNeedle_ = false;
    // Two positions of the query by whose bytes texts are filtered before a full comparison.
    std::pair<std::size_t, std::size_t> anchors_;
    // For this query's texts only: the foldings met so far, found for the code points of the Basic
    // Multilingual Plane (every script in common use) by a table of their positions, for the rest
    // (emoji, historic scripts) by a map.
    mutable std::vector<CharacterFolding> foldings_;
    mutable std::vector<std::uint32_t> bmpPositions_; // position + 1, or 0 when not met yet
    mutable std::unordered_map<char32_t, std::uint32_t> otherPositions_;
    // What an ASCII query's search asks of a character, a byte for each of the Basic Multilingual
    // Plane once met: a quarter of the position table, so mixed text runs through it in cache.
    enum class Kind : std::uint8_t { unknown, keepsMatchesApart, joinsMatches, dependent };
    mutable std::vector<Kind> bmpKinds_;

    const CharacterFolding& characterFolding(char32_t c) const;
    static Kind kindOfFolding(const CharacterFolding& folding);
    Kind kindOf(char32_t c) const;
    std::optional<bool> asciiNeedleFoundIn(std::string_view text) const;
    bool appendFoldedByCharacters(std::string_view stretch, std::string& out) const;
};

// The character offset in `text` at which `foldedNeedle` (already folded without locale) first
// occurs when `text` is folded without locale; absent when it does not occur.
std::optional<std::size_t> findFoldedCharacterOffset(std::string_view text, std::string_view foldedNeedle);

// Canonical composition (NFC); tags are de-duplicated and sorted by code points of this form.
std::string canonicalComposition(std::string_view text);

} // namespace vorlo::text
