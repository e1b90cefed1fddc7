// Note fields to the text of a note file, in the one format every reader and writer shares.
#include "mutation/NoteRenderer.h"

#include "platform/Errors.h"
#include "platform/Json.h"
#include "platform/Utf8.h"
#include "tools/Limits.h"

namespace vorlo::mutation {

std::string renderNote(const NoteFields& fields) {
    // Callers pass only validated text, which is UTF-8; the fallbacks keep the header parseable
    // should that ever not hold.
    const std::string title =
        text::isValidUtf8(fields.title) ? encodeHeaderJsonString(fields.title) : std::string("\"Untitled\"");
    bool tagsAreText = true;
    for (const auto& tag : fields.tags)
        tagsAreText = tagsAreText && text::isValidUtf8(tag);
    const std::string tags = tagsAreText ? encodeHeaderJsonStringArray(fields.tags) : std::string("[]");

    std::string header = "---\nid: " + fields.id.text() + "\ntitle: " + title +
                         "\ncreated: " + formatIso8601(fields.created) +
                         "\nmodified: " + formatIso8601(fields.modified) + "\ntags: " + tags +
                         "\npinned: " + (fields.pinned ? "true" : "false") +
                         "\narchived: " + (fields.archived ? "true" : "false") + "\n---\n";
    // The limit covers the whole file, header included: a body that passed its own check can still
    // make a file too large to be read back as a note.
    if (header.size() + fields.content.size() > kMaximumNoteBytes)
        throw ServerError("The note exceeds Vorlo's 16777216-byte limit.");
    header.reserve(header.size() + fields.content.size());
    header += fields.content; // unchanged: no line end is added or normalised
    return header;
}

} // namespace vorlo::mutation
