#include "mutation/NoteRenderer.h"

#include "library/NoteParser.h"
#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::mutation {
namespace {

Timestamp at(std::string_view iso) { return *parseIso8601(iso); }

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

TEST(RenderNote, EmptyBodyEndsWithTheClosingDelimiterLine) {
    NoteFields fields = sampleFields();
    fields.archived = true;
    const std::string text = renderNote(fields);
    EXPECT_TRUE(text.ends_with("tags: []\npinned: false\narchived: true\n---\n")) << text;
}

TEST(RenderNote, TitleStaysOnOneLineInJsonEscapes) {
    const struct {
        std::string title;
        std::string line;
    } cases[] = {
        {"a/b", R"(title: "a\/b")"},
        {"say \"hi\"", R"(title: "say \"hi\"")"},
        {"back\\slash", R"(title: "back\\slash")"},
        {"two\nlines\r\n", R"(title: "two\nlines\r\n")"},
        {"tab\there", R"(title: "tab\there")"},
        {std::string("bell\x07", 5), R"(title: "bell\u0007")"},
        {"Café ☕ 日本", "title: \"Café ☕ 日本\""},
    };
    for (const auto& c : cases) {
        NoteFields fields = sampleFields();
        fields.title = c.title;
        const std::string text = renderNote(fields);
        EXPECT_NE(text.find("\n" + c.line + "\n"), std::string::npos) << c.title << "\n" << text;
    }
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
    fields.content = "First line\r\n---\ntitle: \"not the title\"\n#inline tag\n";
    const NoteRecord note = library::parseNote(renderNote(fields), "Folder/Note.md", std::nullopt, "rev");

    EXPECT_EQ(note.id, "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D");
    EXPECT_EQ(note.title, fields.title);
    EXPECT_EQ(note.created, "2024-05-01T10:34:56Z");
    EXPECT_EQ(note.modified, "2024-05-02T08:00:00Z");
    EXPECT_EQ(note.tags, (std::vector<std::string>{"Zeta", "inline", "project/alpha"}));
    EXPECT_TRUE(note.pinned);
    EXPECT_FALSE(note.archived);
    // The body's own "---" line does not end the header again; only line ends are normalised.
    EXPECT_EQ(note.content, "First line\n---\ntitle: \"not the title\"\n#inline tag\n");
}

} // namespace
} // namespace vorlo::mutation
