// The note file format: front matter, header values and the merged tag list.
#include "library/NoteParser.h"

#include "library/InlineTags.h"
#include "platform/Crypto.h"
#include "platform/Json.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vorlo::library {
namespace {

constexpr std::string_view kOpeningDelimiter = "---\n";
constexpr std::string_view kClosingDelimiter = "\n---\n";

// The header keys the reader knows, each holding the value of its last line.
struct HeaderValues {
    std::optional<std::string_view> id, title, created, modified, tags, pinned, archived;

    void set(std::string_view key, std::string_view value) {
        if (key == "id") id = value;
        else if (key == "title") title = value;
        else if (key == "created") created = value;
        else if (key == "modified") modified = value;
        else if (key == "tags") tags = value;
        else if (key == "pinned") pinned = value;
        else if (key == "archived") archived = value;
    }
};

// "\r\n" and then lone "\r" become "\n", in place: the text only ever shrinks.
void normaliseLineEnds(std::string& text) {
    const char* firstReturn = static_cast<const char*>(std::memchr(text.data(), '\r', text.size()));
    if (firstReturn == nullptr) return;
    std::size_t write = static_cast<std::size_t>(firstReturn - text.data());
    for (std::size_t read = write; read < text.size(); ++read) {
        if (text[read] == '\r') {
            text[write++] = '\n';
            if (read + 1 < text.size() && text[read + 1] == '\n') ++read;
        } else {
            text[write++] = text[read];
        }
    }
    text.resize(write);
}

HeaderValues readHeader(std::string_view header) {
    HeaderValues values;
    while (!header.empty()) {
        const std::size_t lineEnd = std::min(header.find('\n'), header.size());
        const std::string_view line = header.substr(0, lineEnd);
        header.remove_prefix(std::min(lineEnd + 1, header.size()));
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        values.set(text::trimHorizontalWhitespace(line.substr(0, colon)),
                   text::trimHorizontalWhitespace(line.substr(colon + 1)));
    }
    return values;
}

// Header tags then inline tags; of canonically equivalent spellings the first stays, and the
// order is that of the code points of the composed form, whatever the locale.
std::vector<std::string> mergeTags(std::vector<std::string> headerTags, std::vector<std::string> inlineTags) {
    std::vector<std::pair<std::string, std::string>> keyed; // composed form, spelling
    keyed.reserve(headerTags.size() + inlineTags.size());
    for (auto* list : {&headerTags, &inlineTags})
        for (std::string& tag : *list) keyed.emplace_back(text::canonicalComposition(tag), std::move(tag));
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

    NoteRecord note;
    note.title = defaultTitle(relativePath);
    std::vector<std::string> headerTags;

    // The closing delimiter is searched from behind the opening one, so that "---\n---\n" is no
    // front matter: the opening line feed cannot also begin the closing delimiter.
    std::size_t bodyStart = 0;
    if (text.starts_with(kOpeningDelimiter)) {
        const std::size_t closing = text.find(kClosingDelimiter, kOpeningDelimiter.size());
        if (closing != std::string::npos) {
            const HeaderValues header =
                readHeader(std::string_view(text).substr(kOpeningDelimiter.size(), closing - kOpeningDelimiter.size()));
            if (header.id)
                if (auto uuid = Uuid::parse(*header.id)) note.id = uuid->text();
            if (header.title)
                if (auto title = decodeJsonString(*header.title)) note.title = std::move(*title);
            if (header.created) note.created = std::string(*header.created);
            if (header.modified) note.modified = std::string(*header.modified);
            if (header.tags)
                if (auto tags = decodeJsonStringArray(*header.tags)) headerTags = std::move(*tags);
            note.pinned = header.pinned == "true";
            note.archived = header.archived == "true";
            bodyStart = closing + kClosingDelimiter.size();
        }
    }
    // The header views point into `text`, so the body is cut out only after they are read.
    text.erase(0, bodyStart);

    note.tags = mergeTags(std::move(headerTags), inlineTags(text));
    note.content = std::move(text);
    note.relativeFolder = folderOf(relativePath);
    note.relativePath = std::move(relativePath);
    note.fileModificationDate = modificationDate;
    note.revision = std::move(revision);
    return note;
}

} // namespace vorlo::library
