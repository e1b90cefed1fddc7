// Characters as extended grapheme clusters, with ICU's break iterator asked only near non-ASCII bytes.
#include "platform/Characters.h"

#include "platform/TextInternals.h"

#include <vector>

namespace vorlo::text {
namespace {

// Character break iterators are costly to open and keep their text, so each thread keeps the ones
// it has opened and a cursor borrows one for its lifetime; two cursors may be alive at once.
class BreakIteratorPool {
public:
    ~BreakIteratorPool() {
        for (UBreakIterator* iterator : free_) ubrk_close(iterator);
    }
    UBreakIterator* take() {
        if (!free_.empty()) {
            UBreakIterator* iterator = free_.back();
            free_.pop_back();
            return iterator;
        }
        UErrorCode status = U_ZERO_ERROR;
        UBreakIterator* iterator = ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status);
        if (U_FAILURE(status)) {
            if (iterator != nullptr) ubrk_close(iterator);
            return nullptr;
        }
        return iterator;
    }
    void give(UBreakIterator* iterator) { free_.push_back(iterator); }

private:
    std::vector<UBreakIterator*> free_;
};

thread_local BreakIteratorPool breakIterators;

} // namespace

CharacterCursor::~CharacterCursor() {
    if (iterator_ != nullptr) {
        breakIterators.give(iterator_);
        utext_close(&utext_);
    }
}

bool CharacterCursor::attach() {
    if (iterator_ != nullptr) return true;
    if (failed_) return false;
    UErrorCode status = U_ZERO_ERROR;
    utext_openUTF8(&utext_, text_.data(), static_cast<std::int64_t>(text_.size()), &status);
    UBreakIterator* iterator = U_SUCCESS(status) ? breakIterators.take() : nullptr;
    if (iterator != nullptr) ubrk_setUText(iterator, &utext_, &status);
    if (iterator == nullptr || U_FAILURE(status)) {
        if (iterator != nullptr) breakIterators.give(iterator);
        utext_close(&utext_);
        failed_ = true;
        return false;
    }
    iterator_ = iterator;
    return true;
}

std::size_t characterCount(std::string_view text) {
    if (isAscii(text)) {
        std::size_t pairs = 0;
        for (std::size_t i = 0; i + 1 < text.size(); ++i)
            if (text[i] == '\r' && text[i + 1] == '\n') ++pairs;
        return text.size() - pairs;
    }
    CharacterCursor cursor(text);
    std::size_t count = 0;
    for (std::size_t offset = 0; offset < text.size(); ++count) offset = cursor.next(offset);
    return count;
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
    CharacterCursor cursor(text);
    std::size_t offset = 0;
    for (std::size_t taken = 0; taken < count && offset < text.size(); ++taken) offset = cursor.next(offset);
    return text.substr(0, offset);
}

bool hasMoreCharactersThan(std::string_view text, std::size_t count) {
    if (text.size() <= count) return false; // a character takes at least one byte
    return firstCharacters(text, count).size() < text.size();
}

} // namespace vorlo::text
