#pragma once
// The note file format: an optional front matter of `key: value` lines between two "---" lines,
// then the Markdown body. Parsing never fails; unusable values fall back field by field.

#include "library/NoteRecord.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorlo::library {

// `text` must be valid UTF-8 and may hold any line ends. Takes the text by value so that a caller
// who no longer needs it can move its buffer in and the body is cut from it without a copy.
NoteRecord parseNote(std::string text, std::string relativePath, std::optional<Timestamp> modificationDate,
                     std::string revision);

// The header values and where the body starts, as `parseNote` finds them in text whose line ends
// are already normalised. The views point into that text.
struct NoteParts {
    std::optional<std::string_view> id, title, created, modified, tags, pinned, archived;
    std::size_t bodyStart = 0;
};
NoteParts splitNote(std::string_view normalisedText);

// "\r\n" and then lone "\r" become "\n", in place: the text only ever shrinks.
void normaliseLineEnds(std::string& text);

// The title that `parseNote` gives: the header's JSON string when it decodes, else the file name.
std::string noteTitle(const NoteParts& parts, std::string_view relativePath);

// The folder part of a library-relative path: everything before its last "/", or "".
std::string_view folderOf(std::string_view relativePath);

// The last component of the path without its last extension.
std::string_view defaultTitle(std::string_view relativePath);

} // namespace vorlo::library
