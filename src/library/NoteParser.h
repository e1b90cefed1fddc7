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

// The folder part of a library-relative path: everything before its last "/", or "".
std::string_view folderOf(std::string_view relativePath);

// The last component of the path without its last extension.
std::string_view defaultTitle(std::string_view relativePath);

} // namespace vorlo::library
