// The note file format: front matter, header values and the merged tag list.
#include "library/NoteParser.h"

#include "library/InlineTags.h"
#include "platform/CharacterSets.h"
#include "platform/Crypto.h"
#include "platform/Folding.h"
#include "platform/Json.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vorlo::library {
namespace {

constexpr std::string_view kOpeningDelimiter = "---\n";
constexpr std::string_view kClosingDelimiter = "\n---\n";

void setHeaderValue(NoteParts& parts, std::string_view key, std::string_view value) {
    if (key == "id") parts.id = value;
    else if (key == "title") parts.title = value;
    else if (key == "created") parts.created = value;
    else if (key == "modified") parts.modified = value;
    else if (key == "tags") parts.tags = value;
    else if (key == "pinned") parts.pinned = value;
    else if (key == "archived") parts.archived = value;
}

// The header keys the reader knows, each holding the value of its last line.
void readHeader(std::string_view header, NoteParts& parts) {
    while (!header.empty()) {
        const std::size_t lineEnd = std::min(header.find('\n'), header.size());
        const std::string_view line = header.substr(0, lineEnd);
        header.remove_prefix(std::min(lineEnd + 1, header.size()));
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        setHeaderValue(parts, text::trimHorizontalWhitespace(line.substr(0, colon)),
                       text::trimHorizontalWhitespace(line.substr(colon + 1)));
    }
}

// Header tags then inline tags; of canonically equivalent spellings the first stays, and the
// order is that of the code points of the composed form, whatever the locale. Both lists come
// without exact repeats, so the work follows the distinct tags, not their occurrences.
std::vector<std::string> mergeTags(std::vector<std::string> headerTags,
                                   const std::vector<std::string_view>& inlineTags) {
    std::vector<std::pair<std::string, std::string>> keyed; // composed form, spelling
    keyed.reserve(headerTags.size() + inlineTags.size());
    for (std::string& tag : headerTags)
        keyed.emplace_back(text::canonicalComposition(tag), std::move(tag));
    for (const std::string_view tag : inlineTags)
        keyed.emplace_back(text::canonicalComposition(tag), tag);
    // UTF-8 byte order is code point order; the stable sort keeps the first spelling of equals first.
    std::stable_sort(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    keyed.erase(std::unique(keyed.begin(), keyed.end(), [](const auto& a, const auto& b) { return a.first == b.first; }),
                keyed.end());
    std::vector<std::string> tags;
    tags.reserve(keyed.size());
    for (auto& [key, spelling] : keyed) tags.push_back(std::move(spelling));
    return tags;
}

} // namespace

// The text between carriage returns moves down in one piece: a line is copied, not each byte.
void normaliseLineEnds(std::string& text) {
    char* const data = text.data();
    const std::size_t size = text.size();
    const auto nextReturn = [&](std::size_t from) {
        const void* found = std::memchr(data + from, '\r', size - from);
        return found == nullptr ? size : static_cast<std::size_t>(static_cast<const char*>(found) - data);
    };
    std::size_t write = nextReturn(0);
    std::size_t read = write;
    while (read < size) { // text[read] is a carriage return
        data[write++] = '\n';
        read += read + 1 < size && data[read + 1] == '\n' ? 2 : 1;
        const std::size_t end = nextReturn(read);
        std::memmove(data + write, data + read, end - read);
        write += end - read;
        read = end;
    }
    text.resize(write);
}

NoteParts splitNote(std::string_view text) {
    NoteParts parts;
    // The closing delimiter is searched from behind the opening one, so that "---\n---\n" is no
    // front matter: the opening line feed cannot also begin the closing delimiter.
    if (text.starts_with(kOpeningDelimiter)) {
        const std::size_t closing = text.find(kClosingDelimiter, kOpeningDelimiter.size());
        if (closing != std::string_view::npos) {
            readHeader(text.substr(kOpeningDelimiter.size(), closing - kOpeningDelimiter.size()), parts);
            parts.bodyStart = closing + kClosingDelimiter.size();
        }
    }
    return parts;
}

namespace {

// A JSON string without escapes, quotes or control characters inside stands for its inner text as
// it is (the text is valid UTF-8); such titles are the rule, and the full decoder is costly.
std::optional<std::string_view> plainJsonString(std::string_view text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::nullopt;
    const std::string_view inner = text.substr(1, text.size() - 2);
    for (const char c : inner)
        if (c == '"' || c == '\\' || static_cast<unsigned char>(c) < 0x20) return std::nullopt;
    return inner;
}

} // namespace

std::string noteTitle(const NoteParts& parts, std::string_view relativePath) {
    if (parts.title) {
        if (const auto plain = plainJsonString(*parts.title)) return std::string(*plain);
        if (auto title = decodeJsonString(*parts.title)) return std::move(*title);
    }
    return std::string(defaultTitle(relativePath));
}

std::string_view folderOf(std::string_view relativePath) {
    const std::size_t slash = relativePath.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : relativePath.substr(0, slash);
}

std::string_view defaultTitle(std::string_view relativePath) {
    std::string_view name = relativePath.substr(relativePath.rfind('/') + 1);
    // A leading dot starts a name, not an extension.
    const std::size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
    return name;
}

NoteRecord parseNote(std::string text, std::string relativePath, std::optional<Timestamp> modificationDate,
                     std::string revision) {
    normaliseLineEnds(text);

    const NoteParts parts = splitNote(text);
    NoteRecord note;
    note.title = noteTitle(parts, relativePath);
    std::vector<std::string> headerTags;
    if (parts.id)
        if (auto uuid = Uuid::parse(*parts.id)) note.id = uuid->text();
    if (parts.created) note.created = std::string(*parts.created);
    if (parts.modified) note.modified = std::string(*parts.modified);
    if (parts.tags)
        if (auto tags = decodeDistinctJsonStringArray(*parts.tags)) headerTags = std::move(*tags);
    note.pinned = parts.pinned == "true";
    note.archived = parts.archived == "true";
    // The header views point into `text`, so the body is cut out only after they are read.
    text.erase(0, parts.bodyStart);

    note.tags = mergeTags(std::move(headerTags), distinctInlineTags(text));
    note.content = std::move(text);
    note.relativeFolder = folderOf(relativePath);
    note.relativePath = std::move(relativePath);
    note.fileModificationDate = modificationDate;
    note.revision = std::move(revision);
    return note;
}

} // namespace vorlo::library
