// Summaries, previews and snippets: what a client is told of a note, and the order of list_notes.
#include "library/Summaries.h"

#include "platform/CharacterSets.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Folding.h"
#include "platform/Time.h"
#include "platform/Utf8.h"
#include "tools/Limits.h"

namespace vorlo::library {
namespace {

// The line terminators after which the regular-expression engine's multi-line "^" matches.
bool isLineTerminator(char32_t c) {
    return c == '\n' || c == 0x0B || c == 0x0C || c == '\r' || c == 0x85 || c == 0x2028 || c == 0x2029;
}

bool isPlainAscii(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x80 && byte != ' ' && (byte < 0x09 || byte > 0x0D);
}

struct HeadingMark {
    std::size_t end = 0;
    char32_t last = 0; // its last code point, which decides whether a line starts behind it
};

// A match of "#{1,6}\s+" at `offset`. With seven or more "#" the sixth is followed by a "#", never
// by whitespace, so nothing matches.
std::optional<HeadingMark> headingMarkAt(std::string_view body, std::size_t offset) {
    std::size_t end = offset;
    while (end < body.size() && body[end] == '#' && end - offset < 7) ++end;
    if (end - offset > 6) return std::nullopt;
    HeadingMark mark;
    mark.end = end;
    while (mark.end < body.size()) {
        std::size_t next = mark.end;
        const char32_t c = text::nextCodePoint(body, next);
        if (!text::isRegexWhitespace(c)) break;
        mark.last = c;
        mark.end = next;
    }
    if (mark.end == end) return std::nullopt;
    return mark;
}

// Replaces each run of "\s" by one space and drops the runs at both ends, in one pass. With
// `dropHeadingMarks`, a match of "(?m)^#{1,6}\s+" first goes as a whole; where a line starts is
// decided on the original text, as the regular-expression engine decides it. With `enough`, stops
// once more than that many characters are out and the last code point is no whitespace, so no
// later trim can reach back into them: a note can be 16 MiB and a preview needs 240 characters.
std::string compactWhitespace(std::string_view body, bool dropHeadingMarks, std::optional<std::size_t> enough) {
    constexpr std::size_t kLongestCopy = 4096; // so that a long line still lets the preview stop early
    std::string out;
    if (!enough) out.reserve(body.size());
    bool pendingSpace = false;
    std::size_t nextCheck = enough ? *enough + 1 : 0;
    // After a code point that is no whitespace: true when the output holds enough. Counting
    // characters is linear, so the checks come at doubling sizes.
    const auto holdsEnough = [&](char32_t last) {
        if (!enough || out.size() < nextCheck || text::isWhitespaceOrNewline(last)) return false;
        nextCheck = out.size() * 2;
        return text::hasMoreCharactersThan(out, *enough);
    };
    const auto emit = [&](std::string_view piece) {
        if (pendingSpace) out += ' ';
        pendingSpace = false;
        out.append(piece);
    };
    char32_t previous = '\n'; // so that "^" matches at the start
    std::size_t offset = 0;
    while (offset < body.size()) {
        if (dropHeadingMarks && body[offset] == '#' && isLineTerminator(previous)) {
            if (const auto mark = headingMarkAt(body, offset)) {
                previous = mark->last;
                offset = mark->end;
                continue;
            }
        }
        // A run of ASCII that is no whitespace is copied whole; a "#" inside it starts no line.
        std::size_t next = offset;
        while (next < body.size() && next - offset < kLongestCopy && isPlainAscii(body[next])) ++next;
        if (next > offset) {
            emit(body.substr(offset, next - offset));
            previous = static_cast<unsigned char>(body[next - 1]);
            offset = next;
            if (holdsEnough(previous)) break;
            continue;
        }
        const char32_t c = text::nextCodePoint(body, next);
        if (!text::isRegexWhitespace(c)) {
            emit(body.substr(offset, next - offset));
            if (holdsEnough(c)) break;
        } else if (!out.empty()) {
            pendingSpace = true;
        }
        previous = c;
        offset = next;
    }
    return std::string(text::trimWhitespaceAndNewlines(out));
}

} // namespace

Json summary(const NoteRecord& note) {
    Json object = Json::object();
    object["path"] = note.relativePath;
    object["folder"] = note.relativeFolder;
    object["title"] = note.title;
    object["tags"] = note.tags;
    object["pinned"] = note.pinned;
    object["archived"] = note.archived;
    object["preview"] = compactPreview(note.content);
    object["revision"] = note.revision;
    if (note.id) object["id"] = *note.id;
    if (note.created) object["created"] = *note.created;
    auto modified = shownModified(note.modified, note.fileModificationDate);
    if (modified) object["modified"] = std::move(*modified);
    else object["modified"] = nullptr;
    return object;
}

Timestamp listingDate(std::optional<std::string_view> modified, std::optional<Timestamp> fileDate) {
    if (modified)
        if (const auto date = parseIso8601(*modified)) return *date;
    return fileDate.value_or(kDistantPast);
}

std::optional<std::string> shownModified(std::optional<std::string_view> modified, std::optional<Timestamp> fileDate) {
    if (modified) return std::string(*modified);
    if (fileDate) return formatIso8601(*fileDate);
    return std::nullopt;
}

std::string compactPreview(std::string_view body) {
    const std::string compact = compactWhitespace(body, true, kPreviewCharacters);
    return std::string(text::firstCharacters(compact, kPreviewCharacters));
}

std::string snippet(std::string_view body, std::string_view query) {
    const std::string compact = compactWhitespace(body, false, std::nullopt);
    const auto found = text::findFoldedCharacterOffset(compact, text::foldWithoutLocale(query));
    if (!found) return std::string(text::firstCharacters(compact, kSnippetCharacters));

    const std::size_t startCharacter = *found > kSnippetCharactersBeforeMatch ? *found - kSnippetCharactersBeforeMatch : 0;
    const std::size_t startByte = text::firstCharacters(compact, startCharacter).size();
    // Starting the count at a character boundary finds the same boundaries as counting from the start.
    const std::string_view excerpt = text::firstCharacters(std::string_view(compact).substr(startByte), kSnippetCharacters);
    std::string result;
    if (startCharacter > 0) result += "\u2026";
    result.append(excerpt);
    if (startByte + excerpt.size() < compact.size()) result += "\u2026";
    return result;
}

bool newestFirst(const NoteRecord& a, const NoteRecord& b) {
    const Timestamp dateA = listingDate(a.modified, a.fileModificationDate);
    const Timestamp dateB = listingDate(b.modified, b.fileModificationDate);
    if (dateA != dateB) return dateA > dateB;
    return text::localizedCaseInsensitiveCompare(a.title, b.title) < 0;
}

} // namespace vorlo::library
