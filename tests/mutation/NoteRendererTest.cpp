#include "mutation/NoteRenderer.h"

#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::mutation {
namespace {

// The transcripts show the rendered header byte for byte; a note at the limit is beyond their reach.
TEST(RenderNote, LimitCoversTheWholeFileHeaderIncluded) {
    NoteFields fields;
    fields.title = "Plan";
    fields.content.assign(kMaximumNoteBytes - renderNote(fields).size(), 'x');
    EXPECT_EQ(renderNote(fields).size(), kMaximumNoteBytes);
    fields.content += 'x';
    try {
        renderNote(fields);
        ADD_FAILURE() << "one byte over the limit was rendered";
    } catch (const ServerError& error) {
        EXPECT_STREQ(error.what(), "The note exceeds Vorlo's 16777216-byte limit.");
    }
}

} // namespace
} // namespace vorlo::mutation
