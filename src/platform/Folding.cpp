// Folding over ICU's normalizers and case folding, and searching as if folded. Most text the
// server sees is ASCII, so every operation has a path that never calls ICU.
#include "platform/Folding.h"

#include "platform/Collation.h"
#include "platform/TextInternals.h"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/stringpiece.h>
#include <unicode/unorm2.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstring>
#if defined(__SSE2__)
#include <immintrin.h>
#endif
#include <vector>

namespace vorlo::text {

// ICU owns these singletons; they are safe to share between threads.
const Normalizers& normalizers() {
    static const Normalizers instances = [] {
        UErrorCode status = U_ZERO_ERROR;
        Normalizers n;
        n.nfd = icu::Normalizer2::getNFDInstance(status);
        n.nfc = icu::Normalizer2::getNFCInstance(status);
        if (U_FAILURE(status)) n = Normalizers{};
        return n;
    }();
    return instances;
}

void appendNormalized(const icu::Normalizer2* normalizer, std::string_view text, std::string& out) {
    if (normalizer == nullptr) {
        out.append(text);
        return;
    }
    UErrorCode status = U_ZERO_ERROR;
    icu::StringByteSink<std::string> sink(&out);
    normalizer->normalizeUTF8(0, icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())), sink,
                              nullptr, status);
}

void appendCaseFolded(std::string_view text, bool turkic, std::string& out) {
    UErrorCode status = U_ZERO_ERROR;
    icu::StringByteSink<std::string> sink(&out);
    icu::CaseMap::utf8Fold(turkic ? U_FOLD_CASE_EXCLUDE_SPECIAL_I : U_FOLD_CASE_DEFAULT,
                           icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())), sink, nullptr,
                           status);
}

namespace {

constexpr std::size_t kShortAsciiGap = 64;

// Drops the nonspacing marks of decomposed text in place. A Turkish capital dotted I decomposes to
// "I" and U+0307; dropping the dot would leave an "I" that Turkic folding makes dotless, so in a
// Turkic locale that dot turns its "I" into the "i" it stands for.
void dropNonspacingMarks(std::string& text, bool turkic) {
    std::size_t write = 0;
    std::size_t read = 0;
    std::size_t capitalI = std::string::npos;
    while (read < text.size()) {
        const std::size_t start = read;
        const char32_t c = nextCodePoint(text, read);
        if (generalCategoryMask(c) & U_GC_MN_MASK) {
            if (turkic && c == 0x0307 && capitalI != std::string::npos) {
                text[capitalI] = 'i';
                capitalI = std::string::npos;
            }
            continue;
        }
        capitalI = c == 'I' ? write : std::string::npos;
        if (write != start) std::memmove(text.data() + write, text.data() + start, read - start);
        write += read - start;
    }
    text.resize(write);
}

void appendFoldedNonAscii(std::string_view text, bool turkic, std::string& out) {
    thread_local std::string decomposed;
    thread_local std::string folded;
    decomposed.clear();
    folded.clear();
    appendNormalized(normalizers().nfd, text, decomposed);
    dropNonspacingMarks(decomposed, turkic);
    appendCaseFolded(decomposed, turkic, folded);
    appendNormalized(normalizers().nfc, folded, out);
}

void appendFoldedAscii(std::string_view text, bool turkic, std::string& out) {
    if (turkic && text.find('I') != std::string_view::npos) {
        for (const char c : text) {
            if (c == 'I') out += "\u0131";
            else out += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
        }
        return;
    }
    const std::size_t start = out.size();
    out.resize(start + text.size());
    char* folded = out.data() + start;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        folded[i] = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
}

// Cuts `text` into the pieces that folding treats apart: runs of ASCII, lowered byte by byte, and
// stretches around other characters, which go through ICU whole. Cutting just before an ASCII
// character is safe: it is a starter that nothing before it composes with, and case folding looks
// at no context. The ASCII character in front of a non-ASCII stretch goes with it, as it may take
// the marks that follow ("e" + U+0301). Each callback returns false to stop.
template <typename OnAsciiRun, typename OnStretch>
void forEachFoldPiece(std::string_view text, OnAsciiRun onAsciiRun, OnStretch onStretch) {
    std::size_t offset = 0;
    while (offset < text.size()) {
        const std::size_t nonAscii = firstNonAscii(text, offset);
        if (nonAscii == text.size()) {
            onAsciiRun(text.substr(offset));
            return;
        }
        const std::size_t stretchStart = nonAscii > offset ? nonAscii - 1 : nonAscii;
        if (stretchStart > offset && !onAsciiRun(text.substr(offset, stretchStart - offset))) return;
        std::size_t stretchEnd = firstAscii(text, nonAscii);
        // A short ASCII gap goes to ICU with the stretches around it: a call costs more than the gap.
        while (stretchEnd < text.size()) {
            const std::size_t nextNonAscii = firstNonAscii(text, stretchEnd);
            if (nextNonAscii == text.size() || nextNonAscii - stretchEnd > kShortAsciiGap) break;
            stretchEnd = firstAscii(text, nextNonAscii);
        }
        if (!onStretch(text.substr(stretchStart, stretchEnd - stretchStart))) return;
        offset = stretchEnd;
    }
}

std::string foldText(std::string_view text, bool turkic) {
    std::string out;
    out.reserve(text.size());
    forEachFoldPiece(
        text,
        [&](std::string_view run) {
            appendFoldedAscii(run, turkic, out);
            return true;
        },
        [&](std::string_view stretch) {
            appendFoldedNonAscii(stretch, turkic, out);
            return true;
        });
    return out;
}

// How many leading bytes of `text`, its capitals lowered, equal those of the lower-case ASCII `needle`.
std::size_t loweredPrefixLength(const char* text, std::string_view needle) {
    std::size_t i = 0;
    while (i < needle.size() && lowerAscii(text[i]) == needle[i])
        ++i;
    return i;
}

// containsLowered by memmem over lowered copies of one block at a time: memmem's cost stays within
// a fixed multiple of the text's length whatever the needle. A block repeats the last
// needle-length - 1 bytes of the one before, where a match may begin, and brings at least as many
// new ones, so no byte is lowered more than twice.
bool containsLoweredByBlocks(std::string_view haystack, std::string_view needle) {
    const std::size_t block = std::max<std::size_t>(65536, needle.size());
    std::string lowered;
    for (std::size_t from = 0; from < haystack.size(); from += block) {
        const std::size_t start = from == 0 ? 0 : from - (needle.size() - 1);
        lowered.clear();
        appendFoldedAscii(haystack.substr(start, from + block - start), false, lowered);
        if (::memmem(lowered.data(), lowered.size(), needle.data(), needle.size()) != nullptr) return true;
    }
    return false;
}

#if defined(__SSE2__)
// Which of sixteen bytes, their capitals lowered, equal the byte of a lower-case needle that
// `wanted` repeats. For a letter that is the byte with 0x20 set, which makes a capital of the
// letter lower-case and no other byte the letter; any other byte is taken as it is.
class EqualLowered16 {
  public:
    explicit EqualLowered16(char wanted)
        : wanted_(_mm_set1_epi8(wanted)), lower_(_mm_set1_epi8(wanted >= 'a' && wanted <= 'z' ? 0x20 : 0)) {}
    __m128i operator()(const char* bytes) const {
        const __m128i loaded = _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
        return _mm_cmpeq_epi8(_mm_or_si128(loaded, lower_), wanted_);
    }

  private:
    __m128i wanted_;
    __m128i lower_;
};
#endif

#if defined(__x86_64__)
// The filter of containsLowered, 32 start positions at a time, for processors with AVX2. Stops
// where fewer than 32 positions are left or the comparisons have cost too much, `at` and `compared`
// saying how far it came; true on a match.
__attribute__((target("avx2"))) bool filteredAvx2(const char* text, std::size_t starts,
                                                  std::string_view needle,
                                                  std::pair<std::size_t, std::size_t> anchors,
                                                  std::size_t& at, std::size_t& compared) {
    const auto lowerBit = [](char c) { return static_cast<char>(c >= 'a' && c <= 'z' ? 0x20 : 0); };
    const __m256i firstWanted = _mm256_set1_epi8(needle[anchors.first]);
    const __m256i firstLower = _mm256_set1_epi8(lowerBit(needle[anchors.first]));
    const __m256i secondWanted = _mm256_set1_epi8(needle[anchors.second]);
    const __m256i secondLower = _mm256_set1_epi8(lowerBit(needle[anchors.second]));
    while (at + 32 <= starts) {
        const __m256i first = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + at + anchors.first));
        const __m256i second =
            _mm256_loadu_si256(reinterpret_cast<const __m256i*>(text + at + anchors.second));
        auto candidates = static_cast<std::uint32_t>(_mm256_movemask_epi8(
            _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_or_si256(first, firstLower), firstWanted),
                             _mm256_cmpeq_epi8(_mm256_or_si256(second, secondLower), secondWanted))));
        while (candidates != 0) {
            const auto offset = static_cast<std::size_t>(__builtin_ctz(candidates));
            const std::size_t same = loweredPrefixLength(text + at + offset, needle);
            if (same == needle.size()) return true;
            compared += same + 1;
            candidates &= candidates - 1;
        }
        at += 32;
        if (compared > 4 * at + 4096) break;
    }
    return false;
}
#endif

// The positions of the needle's two bytes least likely in text, by the frequency of letters in
// European languages: they filter candidates best. "saxifrage" is filtered by its "x" and "f",
// where its first and last letters would let most words through.
std::pair<std::size_t, std::size_t> rareAnchors(std::string_view needle) {
    constexpr std::string_view kMostCommonFirst = " etaoinsrhldcumfpgwybvkxjqz";
    const auto rarity = [&](char c) {
        const std::size_t rank = kMostCommonFirst.find(c);
        return rank == std::string_view::npos ? kMostCommonFirst.size() / 2 : rank; // digits, signs
    };
    std::pair<std::size_t, std::size_t> anchors;
    auto& [first, second] = anchors;
    if (needle.empty()) return anchors;
    for (std::size_t i = 1; i < needle.size(); ++i)
        if (rarity(needle[i]) > rarity(needle[first])) first = i;
    second = first == 0 ? needle.size() - 1 : 0;
    for (std::size_t i = 0; i < needle.size(); ++i)
        if (i != first && rarity(needle[i]) > rarity(needle[second])) second = i;
    return anchors;
}

// Whether the lower-case ASCII `needle` occurs in `haystack` with its capitals lowered, read where
// it stands: no lowered copy is made. Sixteen start positions at a time are filtered by the
// needle's bytes at the two anchors, and only the survivors are compared in full. A text and a
// needle made to pass the filter everywhere and differ elsewhere ("aaaa…" against "aa…b…aa") would
// cost the needle's length at every position, so once the comparisons have cost a few times the
// text passed, the rest is left to containsLoweredByBlocks.
bool containsLowered(std::string_view haystack, std::string_view needle,
                     std::pair<std::size_t, std::size_t> anchors) {
    const std::size_t length = needle.size();
    if (length == 0) return true;
    if (length > haystack.size()) return false;
    const char* text = haystack.data();
    const std::size_t starts = haystack.size() - length + 1; // positions where a match may begin
    std::size_t at = 0;
    std::size_t compared = 0;
    const auto tooCostly = [&] { return compared > 4 * at + 4096; };
#if defined(__x86_64__)
    if (processorHasAvx2()) {
        if (filteredAvx2(text, starts, needle, anchors, at, compared)) return true;
        if (tooCostly()) return containsLoweredByBlocks(haystack.substr(at), needle);
    }
#endif
#if defined(__SSE2__)
    const EqualLowered16 first(needle[anchors.first]);
    const EqualLowered16 second(needle[anchors.second]);
    for (; at + 16 <= starts; at += 16) {
        auto candidates = static_cast<unsigned>(_mm_movemask_epi8(
            _mm_and_si128(first(text + at + anchors.first), second(text + at + anchors.second))));
        while (candidates != 0) {
            const auto offset = static_cast<std::size_t>(__builtin_ctz(candidates));
            const std::size_t same = loweredPrefixLength(text + at + offset, needle);
            if (same == length) return true;
            compared += same + 1;
            candidates &= candidates - 1;
        }
        if (tooCostly()) return containsLoweredByBlocks(haystack.substr(at + 16), needle);
    }
#endif
    for (; at < starts; ++at) {
        const std::size_t same = loweredPrefixLength(text + at, needle);
        if (same == length) return true;
        compared += same + 1;
        if (tooCostly()) return containsLoweredByBlocks(haystack.substr(at + 1), needle);
    }
    return false;
}

// Folds one character without locale, skipping ICU for the common characters that folding leaves
// as they are.
void appendFoldedCharacter(std::string_view character, std::string& out) {
    if (isAscii(character)) { // one byte, or "\r\n"
        appendFoldedAscii(character, false, out);
        return;
    }
    std::size_t end = 0;
    const char32_t c = nextCodePoint(character, end);
    const icu::Normalizer2* nfd = normalizers().nfd;
    if (end == character.size() && nfd != nullptr && !(generalCategoryMask(c) & U_GC_MN_MASK) &&
        nfd->isInert(static_cast<UChar32>(c)) &&
        !u_hasBinaryProperty(static_cast<UChar32>(c), UCHAR_CHANGES_WHEN_CASEFOLDED)) {
        out.append(character);
        return;
    }
    appendFoldedNonAscii(character, false, out);
}

} // namespace

std::string fold(std::string_view text) { return foldText(text, currentLocaleIsTurkic()); }

std::string foldWithoutLocale(std::string_view text) { return foldText(text, false); }

// Folds the text one character at a time, so that every folded byte is known to come from one
// character, and searches a sliding window as it goes: the match is usually early in a long body,
// and the window keeps the offset table small. A match that starts before the window's last
// needle-length bytes would already lie whole inside it, so only those bytes are carried over.
// A search waits for at least a window's worth of new bytes, and never fewer than the needle's
// length, beyond what was carried over: however long the needle, and however large the folding of
// one character, each byte is searched and moved a bounded number of times.
// Runs of plain ASCII characters fold byte for byte and take one table entry per run.
std::optional<std::size_t> findFoldedCharacterOffset(std::string_view text, std::string_view foldedNeedle) {
    if (foldedNeedle.empty()) return std::nullopt;
    constexpr std::size_t kWindowBytes = 65536;
    struct Piece {
        std::size_t folded;    // where its folding begins in the window
        std::size_t character; // the index of its first character in the text
        bool byteForByte;      // a run of one-byte characters, else one character
    };
    const auto characterAt = [](const Piece& piece, std::size_t folded) {
        return piece.byteForByte ? piece.character + (folded - piece.folded) : piece.character;
    };
    const auto pieceContaining = [](std::vector<Piece>& pieces, std::size_t folded) {
        return std::upper_bound(pieces.begin(), pieces.end(), folded,
                                [](std::size_t offset, const Piece& piece) { return offset < piece.folded; }) -
               1;
    };

    const std::size_t fresh = std::max(kWindowBytes, foldedNeedle.size());
    std::size_t carried = 0; // bytes of the window kept from the last search
    CharacterCursor cursor(text);
    std::string window;
    std::vector<Piece> pieces;
    std::size_t character = 0;
    std::size_t offset = 0;
    std::size_t asciiEnd = 0; // the first non-ASCII byte at or after `offset`
    while (offset < text.size()) {
        // An ASCII character is one on its own unless it is the CR of "\r\n" or marks follow it.
        if (offset == 0 || offset > asciiEnd) asciiEnd = firstNonAscii(text, offset);
        std::size_t runEnd = offset;
        const std::size_t safeEnd = asciiEnd < text.size() ? asciiEnd - std::min<std::size_t>(asciiEnd, 1) : asciiEnd;
        while (runEnd < safeEnd && runEnd - offset < kWindowBytes && text[runEnd] != '\r') ++runEnd;
        if (runEnd > offset) {
            pieces.push_back({window.size(), character, true});
            appendFoldedAscii(text.substr(offset, runEnd - offset), false, window);
            character += runEnd - offset;
            offset = runEnd;
        } else {
            const std::size_t end = cursor.next(offset);
            pieces.push_back({window.size(), character, false});
            appendFoldedCharacter(text.substr(offset, end - offset), window);
            ++character;
            offset = end;
        }
        if (window.size() - carried < fresh && offset < text.size()) continue;

        if (const void* found =
                ::memmem(window.data(), window.size(), foldedNeedle.data(), foldedNeedle.size())) {
            const auto match = static_cast<std::size_t>(static_cast<const char*>(found) - window.data());
            return characterAt(*pieceContaining(pieces, match), match);
        }
        const std::size_t keepFrom = window.size() >= foldedNeedle.size() ? window.size() - foldedNeedle.size() + 1 : 0;
        const auto kept = pieceContaining(pieces, keepFrom);
        if (kept->byteForByte) {
            kept->character = characterAt(*kept, keepFrom);
            kept->folded = keepFrom;
        }
        const std::size_t cut = kept->folded;
        pieces.erase(pieces.begin(), kept);
        for (Piece& piece : pieces) piece.folded -= cut;
        window.erase(0, cut);
        carried = window.size();
    }
    return std::nullopt;
}

FoldedSearch::FoldedSearch(std::string_view query)
    : folded_(fold(query)), turkic_(currentLocaleIsTurkic()), asciiNeedle_(isAscii(folded_)),
      anchors_(rareAnchors(folded_)) {}

// Folding a stretch is NFD, nonspacing marks dropped, case folding, NFC. A code point is
// independent when that chain, run over a stretch of independent code points, gives the
// concatenation of what it gives for each alone:
// - its decomposition is a starter or a nonspacing mark, followed by nonspacing marks only: the
//   marks go, so canonical reordering across neighbours changes nothing that stays;
// - what is left, case folded (which looks at no context outside the Turkic locales), holds only
//   starters that never combine with a character before them: such text is in NFC already and
//   stays so when joined to more of it.
// The accented letters of the Latin, Greek and Cyrillic scripts, CJK and most symbols are
// independent; Hangul jamo, Indic vowel signs and the like are not, and their stretch goes whole
// through ICU.
FoldedSearch::Kind FoldedSearch::kindOfFolding(const CharacterFolding& folding) {
    if (!folding.independent) return Kind::dependent;
    return folding.keepsMatchesApart ? Kind::keepsMatchesApart : Kind::joinsMatches;
}

const FoldedSearch::CharacterFolding& FoldedSearch::characterFolding(char32_t c) const {
    constexpr char32_t kBmpEnd = 0x10000;
    std::uint32_t* position = nullptr;
    if (c < kBmpEnd) {
        if (bmpPositions_.empty()) {
            bmpPositions_.resize(kBmpEnd);
            bmpKinds_.resize(kBmpEnd);
        }
        position = &bmpPositions_[c];
    } else {
        position = &otherPositions_[c];
    }
    if (*position != 0) return foldings_[*position - 1];
    CharacterFolding folding;
    std::string one;
    const auto cp = static_cast<UChar32>(c);
    UBool error = false;
    char buffer[U8_MAX_LENGTH];
    std::int32_t length = 0;
    U8_APPEND(buffer, length, U8_MAX_LENGTH, cp, error);
    one.assign(buffer, static_cast<std::size_t>(length));
    const icu::Normalizer2* nfd = normalizers().nfd;
    if (!error && nfd != nullptr && normalizers().nfc != nullptr) {
        std::string decomposed;
        appendNormalized(nfd, one, decomposed);
        std::string kept;
        bool independent = true;
        for (std::size_t offset = 0; offset < decomposed.size() && independent;) {
            const std::size_t start = offset;
            const auto d = static_cast<UChar32>(nextCodePoint(decomposed, offset));
            const bool nonspacing = (generalCategoryMask(static_cast<char32_t>(d)) & U_GC_MN_MASK) != 0;
            if (nonspacing) continue;
            if (start > 0 || u_getCombiningClass(d) != 0) independent = false;
            else kept.append(decomposed, start, offset - start);
        }
        if (independent) {
            appendCaseFolded(kept, false, folding.folded);
            for (std::size_t offset = 0; offset < folding.folded.size() && independent;) {
                const auto f = static_cast<UChar32>(nextCodePoint(folding.folded, offset));
                independent = u_getCombiningClass(f) == 0 && u_getIntPropertyValue(f, UCHAR_NFC_QUICK_CHECK) == UNORM_YES;
            }
        }
        folding.independent = independent;
        folding.keepsMatchesApart = independent && !folding.folded.empty() &&
                                    folding.folded.find_first_of(folded_) == std::string::npos;
    }
    if (c < kBmpEnd) bmpKinds_[c] = kindOfFolding(folding);
    foldings_.push_back(std::move(folding));
    *position = static_cast<std::uint32_t>(foldings_.size());
    return foldings_.back();
}

inline FoldedSearch::Kind FoldedSearch::kindOf(char32_t c) const {
    if (c < bmpKinds_.size() && bmpKinds_[c] != Kind::unknown) return bmpKinds_[c];
    return kindOfFolding(characterFolding(c));
}

// Appends the folding of `stretch` when all its code points are independent; else appends
// nothing and returns false.
bool FoldedSearch::appendFoldedByCharacters(std::string_view stretch, std::string& out) const {
    const std::size_t mark = out.size();
    for (std::size_t offset = 0; offset < stretch.size();) {
        const auto byte = static_cast<unsigned char>(stretch[offset]);
        if (byte < 0x80) {
            out += lowerAscii(stretch[offset++]);
            continue;
        }
        const CharacterFolding& folding = characterFolding(nextCodePoint(stretch, offset));
        if (!folding.independent) {
            out.resize(mark);
            return false;
        }
        out += folding.folded;
    }
    return true;
}

// fold(text) is the concatenation of the folded pieces of forEachFoldPiece. The pieces are folded
// into a window that is searched and cut whenever it grows large: a cut keeps the last
// needle-length - 1 bytes, where a match still to come may begin, and the next search waits for
// at least a window's worth of new bytes and never fewer than the needle's length, so that a
// needle longer than the window costs no more a byte than a short one. No match lies in an ASCII
// run alone (an ASCII needle has been looked for in the whole text where it stands before this, and
// any other needle holds a byte that no ASCII run has), so one that touches a long run reaches at
// most needle-length - 1 bytes into it at either end: only those ends go into the window, and the
// window is searched and emptied between them.
bool FoldedSearch::foundIn(std::string_view text, bool* partsLack) const {
    const std::string_view needle = folded_;
    if (partsLack != nullptr) *partsLack = false;
    if (needle.empty()) return true;
    const bool ascii = isAscii(text);
    // Turkic folding turns an ASCII "I" into a dotless i, two bytes: that rare case takes the plain road.
    if (turkic_ && (!ascii || text.find('I') != std::string_view::npos)) {
        const std::string folded = foldText(text, true);
        return ::memmem(folded.data(), folded.size(), needle.data(), needle.size()) != nullptr;
    }
    const auto lacking = [&] {
        if (partsLack != nullptr) *partsLack = true;
        return false;
    };
    if (ascii) return (asciiNeedle_ && containsLowered(text, needle, anchors_)) || lacking();
    if (asciiNeedle_)
        if (const std::optional<bool> found = asciiNeedleFoundIn(text)) return *found || lacking();

    constexpr std::size_t kWindowBytes = 65536;
    // Runs at least this long give only their ends to the window, which costs less than copying them.
    constexpr std::size_t kLongRun = 64;
    const std::size_t keep = needle.size() - 1;
    const std::size_t searchAt = keep + std::max(kWindowBytes, needle.size());
    thread_local std::string window;
    window.clear();
    bool found = false;
    // memmem rather than find: the needle's first byte is often common, and find stops at each one.
    const auto searchWindow = [&] { return ::memmem(window.data(), window.size(), needle.data(), needle.size()) != nullptr; };
    const auto grown = [&] {
        if (window.size() < searchAt) return false;
        if (searchWindow()) return true;
        window.erase(0, window.size() - keep);
        return false;
    };
    forEachFoldPiece(
        text,
        [&](std::string_view run) {
            if (run.size() > kLongRun && run.size() > 2 * keep) {
                appendFoldedAscii(run.substr(0, keep), false, window);
                if (searchWindow()) return !(found = true);
                window.clear();
                appendFoldedAscii(run.substr(run.size() - keep), false, window);
                return true;
            }
            appendFoldedAscii(run, false, window);
            return !(found = grown());
        },
        [&](std::string_view stretch) {
            if (!appendFoldedByCharacters(stretch, window)) appendFoldedNonAscii(stretch, false, window);
            return !(found = grown());
        });
    return found || searchWindow();
}

// An ASCII needle in text whose every character folds on its own, so that the folded text is the
// folded characters one after the other; absent for other text. A match then either lies in ASCII
// alone, where the text is searched as it stands (an ASCII character folds to itself lowered, and
// nothing that follows it composes with it: FoldingTest checks that over all of Unicode), or takes
// at least one byte from another character's folding, which must then hold a byte of the needle
// (an "ü" for "sum", not for "set"), or reaches across one that folds to nothing (a nonspacing
// mark). Only the stretches around those characters are folded: the needle's length less one byte
// to each side, never across a character whose folding keeps matches apart (CJK, emoji, and most
// accented letters for most needles), which no match crosses.
std::optional<bool> FoldedSearch::asciiNeedleFoundIn(std::string_view text) const {
    const std::string_view needle = folded_;
    if (containsLowered(text, needle, anchors_)) return true;
    const std::size_t reach = needle.size() - 1;
    // Bytes of text folded at a time, so the window stays small however long a stretch is; the cuts
    // fall between characters, all of which fold on their own here.
    constexpr std::size_t kSlice = 16384;
    thread_local std::string window;
    std::size_t from = 0;
    std::size_t to = 0; // the stretch still to fold, when from < to
    const auto searchStretch = [&] {
        window.clear();
        while (from < to) {
            std::size_t end = std::min(to, from + kSlice);
            while (end < to && isContinuation(static_cast<unsigned char>(text[end])))
                ++end;
            appendFoldedByCharacters(text.substr(from, end - from), window);
            from = end;
            if (window.size() < needle.size()) continue;
            if (::memmem(window.data(), window.size(), needle.data(), needle.size()) != nullptr) return true;
            window.erase(0, window.size() - reach);
        }
        return false;
    };
    std::size_t apartEnd = 0; // the end of the last character that keeps matches apart
    for (std::size_t at = firstNonAscii(text, 0); at < text.size(); at = firstNonAscii(text, at)) {
        const std::size_t start = at;
        const Kind kind = kindOf(nextCodePoint(text, at));
        if (kind == Kind::dependent) return std::nullopt;
        if (kind == Kind::keepsMatchesApart) {
            to = std::min(to, start);
            if (searchStretch()) return true;
            apartEnd = at;
            continue;
        }
        const std::size_t left = std::max(apartEnd, start > reach ? start - reach : 0);
        if (left > to) { // too far from the stretch so far for one match to hold bytes of both
            if (searchStretch()) return true;
            from = left;
        }
        to = std::min(text.size(), at + reach);
    }
    return searchStretch();
}

std::string canonicalComposition(std::string_view text) {
    if (isAscii(text)) return std::string(text);
    std::string composed;
    composed.reserve(text.size());
    appendNormalized(normalizers().nfc, text, composed);
    return composed;
}

} // namespace vorlo::text
