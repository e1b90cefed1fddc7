#pragma once
// What the text services of this folder share over ICU. Not for use outside src/platform: it
// brings ICU's headers with it.

#include "platform/Utf8.h"

#include <unicode/normalizer2.h>
#include <unicode/ubrk.h>
#include <unicode/uchar.h>
#include <unicode/utext.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vorlo::text {

inline std::uint32_t generalCategoryMask(char32_t c) { return U_GET_GC_MASK(static_cast<UChar32>(c)); }

// ICU's NFD and NFC singletons, both null when ICU's data is missing.
struct Normalizers {
    const icu::Normalizer2* nfd = nullptr;
    const icu::Normalizer2* nfc = nullptr;
};
const Normalizers& normalizers();
// Appends `text` normalized, or as it is when `normalizer` is null.
void appendNormalized(const icu::Normalizer2* normalizer, std::string_view text, std::string& out);
// Appends the full case folding of `text`, with the Turkic dotted and dotless i when `turkic`.
void appendCaseFolded(std::string_view text, bool turkic, std::string& out);

// Walks `text` character by character. Between two ASCII bytes there is always a boundary, except
// inside "\r\n", so ICU is asked only where a non-ASCII byte is near.
class CharacterCursor {
public:
    explicit CharacterCursor(std::string_view text) : text_(text) {}
    ~CharacterCursor();
    CharacterCursor(const CharacterCursor&) = delete;
    CharacterCursor& operator=(const CharacterCursor&) = delete;

    // The end of the character that starts at `offset`, which must be a boundary before the end.
    std::size_t next(std::size_t offset) {
        const auto c = static_cast<unsigned char>(text_[offset]);
        if (c < 0x80) {
            if (offset + 1 == text_.size()) return offset + 1;
            const auto d = static_cast<unsigned char>(text_[offset + 1]);
            if (d < 0x80) return c == '\r' && d == '\n' ? offset + 2 : offset + 1;
        }
        if (!attach()) return nextCodePointEnd(offset);
        // Stepping on from where the iterator stands is much cheaper than seeking.
        const auto position = static_cast<std::int32_t>(offset);
        const std::int32_t boundary =
            ubrk_current(iterator_) == position ? ubrk_next(iterator_) : ubrk_following(iterator_, position);
        return boundary == UBRK_DONE ? text_.size() : static_cast<std::size_t>(boundary);
    }

private:
    bool attach();
    // Without ICU's data a code point is the best approximation of a character.
    std::size_t nextCodePointEnd(std::size_t offset) const {
        do ++offset;
        while (offset < text_.size() && isContinuation(static_cast<unsigned char>(text_[offset])));
        return offset;
    }

    std::string_view text_;
    UText utext_ = UTEXT_INITIALIZER;
    UBreakIterator* iterator_ = nullptr;
    bool failed_ = false;
};

} // namespace vorlo::text
