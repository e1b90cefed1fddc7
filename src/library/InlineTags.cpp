// Inline tags: a hand-written matcher for kInlineTagPattern. Every note's body goes through it on
// every scan, and "#" is rare, so it jumps from one "#" to the next.
#include "library/InlineTags.h"

#include "platform/CharacterSets.h"
#include "platform/Utf8.h"

#include <cstring>
#include <unordered_set>

namespace vorlo::library {
namespace {

// [\p{L}\p{N}_-]: the characters of a tag's segments.
bool isSegmentCharacter(char32_t c) {
    return c == '_' || c == '-' || text::isLetter(c) || text::isNumber(c);
}

char32_t codePointBefore(std::string_view body, std::size_t offset) {
    std::size_t start = offset - 1;
    while (start > 0 && (static_cast<unsigned char>(body[start]) & 0xC0) == 0x80)
        --start;
    return text::nextCodePoint(body, start);
}

// The end of the tag behind the "#" at `hash`, or `hash` + 1 when none starts there. The lookahead
// of the pattern asks for a letter or "_" anywhere in the run of segment characters and "/" behind
// the "#", even past an empty segment that ends the tag itself ("#1//a" is the tag "1").
std::size_t tagEnd(std::string_view body, std::size_t hash) {
    const std::size_t start = hash + 1;
    std::size_t end = start;  // the end of the tag so far
    bool tagOpen = true;      // false once an empty segment has ended the tag
    bool segmentEmpty = true; // no character yet in the current segment
    bool hasLetterOrUnderscore = false;
    std::size_t offset = start;
    while (offset < body.size() && (tagOpen || !hasLetterOrUnderscore)) {
        std::size_t next = offset;
        const char32_t c = text::nextCodePoint(body, next);
        if (c == '/') {
            if (segmentEmpty) tagOpen = false;
            segmentEmpty = true;
        } else if (isSegmentCharacter(c)) {
            if (c == '_' || text::isLetter(c)) hasLetterOrUnderscore = true;
            segmentEmpty = false;
            if (tagOpen) end = next;
        } else {
            break;
        }
        offset = next;
    }
    return hasLetterOrUnderscore && end > start ? end : start;
}

} // namespace

void forEachInlineTag(std::string_view body, const std::function<bool(std::string_view tag)>& visit) {
    std::size_t from = 0;
    while (from < body.size()) {
        const void* found = std::memchr(body.data() + from, '#', body.size() - from);
        if (found == nullptr) break;
        const auto hash = static_cast<std::size_t>(static_cast<const char*>(found) - body.data());
        from = hash + 1;
        if (hash > 0) {
            const char32_t before = codePointBefore(body, hash);
            if (before == '\\' || text::isRegexWordCharacter(before)) continue;
        }
        const std::size_t end = tagEnd(body, hash);
        if (end == hash + 1) continue;
        if (!visit(body.substr(hash + 1, end - hash - 1))) return;
        from = end;
    }
}

std::vector<std::string> inlineTags(std::string_view body) {
    std::vector<std::string> tags;
    forEachInlineTag(body, [&](std::string_view tag) {
        tags.emplace_back(tag);
        return true;
    });
    return tags;
}

std::vector<std::string_view> distinctInlineTags(std::string_view body) {
    std::vector<std::string_view> tags;
    std::unordered_set<std::string_view> seen;
    forEachInlineTag(body, [&](std::string_view tag) {
        if (seen.insert(tag).second) tags.push_back(tag);
        return true;
    });
    return tags;
}

} // namespace vorlo::library
