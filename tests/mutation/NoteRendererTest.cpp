#include "mutation/NoteRenderer.h"

#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gmock/gmock.h>

namespace vorlo::mutation {
namespace {

// The transcripts show the rendered header byte for byte; a note at the limit is beyond their reach.
TEST(RenderNote, LimitCoversTheWholeFileHeaderIncluded) {
    NoteFields fields;
    fields.title = "Plan";
    fields.content.assign(kMaximumNoteBytes - renderNote(fields).size(), 'x');
    EXPECT_EQ(renderNote(fields).size(), kMaximumNoteBytes);
    fields.content += 'x';
    EXPECT_THAT([&] { renderNote(fields); }, ::testing::ThrowsMessage<ServerError>(::testing::StrEq(
                                                 "The note exceeds Vorlo's 16777216-byte limit.")));
}

} // namespace
} // namespace vorlo::mutation
