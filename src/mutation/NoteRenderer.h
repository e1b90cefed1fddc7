#pragma once
// Note fields to the complete text of a note file.

#include "platform/Crypto.h"
#include "platform/Time.h"

#include <string>
#include <vector>

namespace vorlo::mutation {

struct NoteFields {
    Uuid id;
    std::string title;
    Timestamp created;
    Timestamp modified;
    std::vector<std::string> tags;
    bool pinned = false;
    bool archived = false;
    std::string content;
};

// The file text. Throws ServerError "The note exceeds Vorlo's 16777216-byte limit." when the whole
// text is longer than kMaximumNoteBytes.
std::string renderNote(const NoteFields& fields);

} // namespace vorlo::mutation
