#pragma once
// One parsed note.

#include "platform/Time.h"

#include <optional>
#include <string>
#include <vector>

namespace vorlo {

struct NoteRecord {
    std::optional<std::string> id; // canonical upper-case UUID
    std::string title;
    std::optional<std::string> created;
    std::optional<std::string> modified;
    std::vector<std::string> tags; // header and inline tags, without duplicates, sorted
    bool pinned = false;
    bool archived = false;
    std::string content; // the body, line ends normalised to "\n"
    std::string relativePath;
    std::string relativeFolder;
    std::optional<Timestamp> fileModificationDate;
    std::string revision;
};

} // namespace vorlo
