#pragma once
// What a client is told of a note: the summary object, the body's preview and a search snippet.

#include "library/NoteRecord.h"
#include "platform/Json.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorlo::library {

Json summary(const NoteRecord& note);

// Heading marks removed, whitespace collapsed, trimmed, first 240 characters.
std::string compactPreview(std::string_view body);

// Up to 320 characters of the compact body around the first case- and diacritic-insensitive
// occurrence of `query`, with "…" where the body goes on; the body's start when there is none.
std::string snippet(std::string_view body, std::string_view query);

// The date by which list_notes orders a note: `modified` when it parses, else the file's date, else
// the distant past.
Timestamp listingDate(std::optional<std::string_view> modified, std::optional<Timestamp> fileDate);

// The `modified` text of a note's summary: the header's text as it stands, else the file's date;
// absent (JSON null) when there is neither.
std::optional<std::string> shownModified(std::optional<std::string_view> modified, std::optional<Timestamp> fileDate);

// The comparator of list_notes: the later date first (`modified` when it parses, else the file's
// date, else the distant past), then titles under the locale's case-insensitive collation.
bool newestFirst(const NoteRecord& a, const NoteRecord& b);

} // namespace vorlo::library
