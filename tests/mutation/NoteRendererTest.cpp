#include "mutation/NoteRenderer.h"

#include "library/NoteParser.h"
#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::mutation {
namespace {

Timestamp at(std::string_view iso) {
    return *parseIso8601(iso);
}

NoteFields sampleFields() {
    NoteFields fields;
    fields.id = *Uuid::parse("0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d");
    fields.title = "Plan";
    fields.created = at("2024-05-01T12:34:56+02:00");
    fields.modified = at("2024-05-02T08:00:00Z");
    return fields;
}

TEST(RenderNote, WritesTheHeaderLinesThenTheBodyUnchanged) {
    NoteFields fields = sampleFields();
    fields.title = "Re: Plan/Q3";
    fields.tags = {"a/b", "Größe"};
    fields.pinned = true;
    fields.content = "Body\r\n---\nno line feed at the end";
    EXPECT_EQ(renderNote(fields), "---\n"
                                  "id: 0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D\n"
                                  "title: \"Re: Plan\\/Q3\"\n"
                                  "created: 2024-05-01T10:34:56Z\n"
                                  "modified: 2024-05-02T08:00:00Z\n"
                                  "tags: [\"a\\/b\",\"Größe\"]\n"
                                  "pinned: true\n"
                                  "archived: false\n"
                                  "---\n"
                                  "Body\r\n---\nno line feed at the end");
}

TEST(RenderNote, LimitCoversTheWholeFile) {
    NoteFields fields = sampleFields();
    const std::size_t headerBytes = renderNote(fields).size();
    fields.content.assign(kMaximumNoteBytes - headerBytes, 'x');
    EXPECT_EQ(renderNote(fields).size(), kMaximumNoteBytes);

    fields.content += 'x';
    try {
        renderNote(fields);
        FAIL() << "one byte over the limit was rendered";
    } catch (const ServerError& error) {
        EXPECT_STREQ(error.what(), "The note exceeds Vorlo's 16777216-byte limit.");
    }
}

TEST(RenderNote, ParsesBackIntoTheFieldsGiven) {
    NoteFields fields = sampleFields();
    fields.title = "A \"quoted\" / slashed\ntitle: é";
    fields.tags = {"project/alpha", "Zeta"};
    fields.pinned = true;
    fields.archived = true;
    fields.content = "First line\r\n---\ntitle: \"not the title\"\n#inline tag\n";
    const NoteRecord note = library::parseNote(renderNote(fields), "Folder/Note.md", std::nullopt, "rev");

    EXPECT_EQ(note.id, "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D");
    EXPECT_EQ(note.title, fields.title);
    EXPECT_EQ(note.created, "2024-05-01T10:34:56Z");
    EXPECT_EQ(note.modified, "2024-05-02T08:00:00Z");
    EXPECT_EQ(note.tags, (std::vector<std::string>{"Zeta", "inline", "project/alpha"}));
    EXPECT_TRUE(note.pinned);
    EXPECT_TRUE(note.archived);
    // The body's own "---" line does not end the header again; only line ends are normalised.
    EXPECT_EQ(note.content, "First line\n---\ntitle: \"not the title\"\n#inline tag\n");
}

} // namespace
} // namespace vorlo::mutation
