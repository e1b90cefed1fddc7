// update_note through the real binary: what each field becomes, the revision check, and refusals.
#include "e2e/WritingHelpers.h"
#include "platform/Crypto.h"
#include "support/ServerProcess.h"

#include <gtest/gtest.h>

namespace vorlo::testing {
namespace {

// A note as another editor might have left it: CR LF and a bare CR, an offset date, an unknown
// header line, header and inline tags.
constexpr std::string_view kFullNote = "---\r\n"
                                       "id: 0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d\r\n"
                                       "title: \"Old\"\r\n"
                                       "created: 2024-05-01T10:00:00+02:00\r\n"
                                       "modified: 2024-05-01T10:00:00+02:00\r\n"
                                       "tags: [\"head\"]\r\n"
                                       "pinned: true\r\n"
                                       "archived: true\r\n"
                                       "custom: dropped\r\n"
                                       "---\r\n"
                                       "Line one #inline\r\n"
                                       "Line two\r";

std::string replaced(std::string text, std::string_view placeholder, const std::string& value) {
    for (std::size_t at; (at = text.find(placeholder)) != std::string::npos;)
        text.replace(at, placeholder.size(), value);
    return text;
}

Json update(ServerProcess& server, const TempLibrary& library, const std::string& path, Json fields) {
    fields["path"] = path;
    fields["expected_revision"] = sha256Hex(library.read(path));
    return server.call("update_note", fields);
}

TEST(UpdateNote, RewritesTheWholeFileFromTheRecordAndTheGivenFields) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const std::string kept = "---\nid: 0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D\ntitle: \"Old\"\n"
                             "created: 2024-05-01T08:00:00Z\nmodified: {MODIFIED}\n";
    // {MODIFIED} and {ID} are the values the result reports.
    const struct {
        std::string name;
        std::string original;
        Json fields;
        std::string expected;
    } cases[] = {
        {"TitleOnly",
         std::string(kFullNote),
         {{"title", " New "}},
         "---\nid: 0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D\ntitle: \"New\"\ncreated: 2024-05-01T08:00:00Z\n"
         "modified: {MODIFIED}\ntags: [\"head\",\"inline\"]\npinned: true\narchived: true\n---\n"
         "Line one #inline\nLine two\n"},
        {"EmptyContent",
         std::string(kFullNote),
         {{"content", ""}},
         kept + "tags: [\"head\",\"inline\"]\npinned: true\narchived: true\n---\n"},
        {"ClearedTags",
         std::string(kFullNote),
         {{"tags", Json::array()}},
         kept + "tags: []\npinned: true\narchived: true\n---\nLine one #inline\nLine two\n"},
        {"PinnedOnly",
         std::string(kFullNote),
         {{"pinned", false}},
         kept +
             "tags: [\"head\",\"inline\"]\npinned: false\narchived: true\n---\nLine one #inline\nLine two\n"},
        {"ContentAndTags",
         std::string(kFullNote),
         {{"content", "Fresh\r\n#new"}, {"tags", {"b", "A"}}},
         kept + "tags: [\"A\",\"b\"]\npinned: true\narchived: true\n---\nFresh\r\n#new"},
        {"NoFrontMatter",
         "Just text #t",
         {{"pinned", 1}},
         "---\nid: {ID}\ntitle: \"NoFrontMatter\"\ncreated: {MODIFIED}\nmodified: {MODIFIED}\ntags: [\"t\"]\n"
         "pinned: true\narchived: false\n---\nJust text #t"},
        {"UnreadableCreated",
         "---\ntitle: \"T\"\ncreated: 2024-05-01T10:00:00.5Z\n---\nbody",
         {{"title", "T"}},
         "---\nid: {ID}\ntitle: \"T\"\ncreated: {MODIFIED}\nmodified: {MODIFIED}\ntags: []\n"
         "pinned: false\narchived: false\n---\nbody"},
    };
    for (const auto& c : cases) {
        const std::string path = "Notes/" + c.name + ".md";
        library.write(path, c.original);
        const Json result = succeeded(update(server, library, path, c.fields));
        EXPECT_EQ(result["updated"], true) << c.name;
        EXPECT_FALSE(result.contains("monitoring_warning")) << c.name;
        const Json note = result["note"];
        const std::string bytes = library.read(path);
        const std::string expected = replaced(replaced(c.expected, "{MODIFIED}", note.value("modified", "")),
                                              "{ID}", note.value("id", ""));
        EXPECT_EQ(bytes, expected) << c.name;
        EXPECT_EQ(note["revision"], sha256Hex(bytes)) << c.name;
        EXPECT_EQ(note["path"], path) << c.name;
        EXPECT_EQ(modeOf(library.path(path)), 0600u) << c.name;
    }
    // Header tags cleared; the body's inline tag is still found on reading.
    EXPECT_EQ(succeeded(server.call("read_note", {{"path", "Notes/ClearedTags.md"}}))["tags"],
              Json({"inline"}));
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(UpdateNote, NewIdOfANoteWithoutOneStaysOnLaterUpdates) {
    TempLibrary library;
    library.write("Bare.md", "no header");
    ServerProcess server(library.preferences());
    const std::string id =
        succeeded(update(server, library, "Bare.md", {{"pinned", true}}))["note"].value("id", "");
    ASSERT_TRUE(Uuid::parse(id));
    EXPECT_EQ(succeeded(update(server, library, "Bare.md", {{"title", "Named"}}))["note"]["id"], id);
}

TEST(UpdateNote, RefusesBadArgumentsAndLeavesTheNoteUntouched) {
    TempLibrary library;
    const std::string original = "---\ntitle: \"Keep\"\n---\nbody\n";
    library.write("Keep.md", original);
    library.write("Vorlo Data/Private.md", original);
    library.write("plain.txt", original);
    const std::string revision = sha256Hex(original);
    const std::string stale =
        "The note changed after it was read. Read it again, review the new contents, and "
        "retry with the new revision.";
    const std::string required =
        "expected_revision is required. Read the note first and pass its revision so "
        "Vorlo can prevent overwriting a newer edit.";
    const std::string notAPath = "path must identify a Markdown note inside the Vorlo library.";
    const std::string missing = "No unlocked Vorlo note exists at that path.";
    auto with = [&](Json fields) {
        fields["path"] = "Keep.md";
        fields["expected_revision"] = revision;
        return fields;
    };
    const struct {
        Json arguments;
        std::string message;
    } cases[] = {
        {{{"title", "T"}}, "path is required."},
        {{{"path", "../Keep.md"}, {"expected_revision", revision}, {"title", "T"}}, notAPath},
        {{{"path", "plain.txt"}, {"expected_revision", revision}, {"title", "T"}}, notAPath},
        {{{"path", "Keep.md"}, {"title", "T"}}, required},
        {{{"path", "Keep.md"}, {"expected_revision", 7}, {"title", "T"}}, required},
        {{{"path", "Keep.md"}, {"expected_revision", revision.substr(1)}, {"title", "T"}}, required},
        {{{"path", "Keep.md"}, {"expected_revision", revision + "0"}, {"title", "T"}}, required},
        {{{"path", "Keep.md"}, {"expected_revision", "A" + revision.substr(1)}, {"title", "T"}}, required},
        {with(Json::object()), "Provide content, title, tags, or pinned to update."},
        {{{"path", "Missing.md"}, {"expected_revision", revision}, {"title", "T"}}, missing},
        {{{"path", "Vorlo Data/Private.md"}, {"expected_revision", revision}, {"title", "T"}}, missing},
        {{{"path", "Keep.md"}, {"expected_revision", std::string(64, '0')}, {"title", "T"}}, stale},
        // A line end after the digits gets through the form check, and no digest equals it.
        {{{"path", "Keep.md"}, {"expected_revision", revision + "\n"}, {"title", "T"}}, stale},
        // The revision is compared before any field is looked at.
        {{{"path", "Keep.md"}, {"expected_revision", std::string(64, '0')}, {"title", nullptr}}, stale},
        {with({{"title", nullptr}}), "title is required."},
        {with({{"content", 5}}), "content must be text."},
        {with({{"tags", {"/a"}}}), "A tag is invalid or too long."},
        {with({{"pinned", nullptr}}), "pinned must be true or false."},
        {with({{"title", "Fine"}, {"pinned", 2}}), "pinned must be true or false."},
    };
    ServerProcess server(library.preferences());
    for (const auto& c : cases) {
        EXPECT_EQ(errorText(server.call("update_note", c.arguments)), c.message) << c.arguments;
    }
    EXPECT_EQ(library.read("Keep.md"), original);
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(UpdateNote, AStaleRevisionLosesAndWritesNothing) {
    TempLibrary library;
    library.write("Race.md", "first");
    const std::string read = sha256Hex(library.read("Race.md"));
    ServerProcess server(library.preferences());
    const Json arguments = {{"path", "Race.md"}, {"expected_revision", read}};
    Json first = arguments, second = arguments;
    first["content"] = "from the first client";
    second["content"] = "from the second client";
    succeeded(server.call("update_note", first));
    const std::string afterFirst = library.read("Race.md");
    EXPECT_EQ(
        errorText(server.call("update_note", second)),
        "The note changed after it was read. Read it again, review the new contents, and retry with the "
        "new revision.");
    EXPECT_EQ(errorText(server.call("update_note", first)).substr(0, 15), "The note change");
    EXPECT_EQ(library.read("Race.md"), afterFirst);
}

TEST(UpdateNote, FindsTheNoteAsReadNoteDoesAndReportsTheClientsPath) {
    TempLibrary library;
    library.write("Notes/Plan.md", "plan");
    library.write("Other.md", "other");
    std::filesystem::permissions(library.path("Notes/Plan.md"), std::filesystem::perms(0644));
    ServerProcess server(library.preferences());
    const std::string revision = sha256Hex(std::string("plan"));

    Json note = succeeded(server.call(
        "update_note",
        {{"path", "Notes\\Plan.md"}, {"expected_revision", revision}, {"content", "one"}}))["note"];
    EXPECT_EQ(note["path"], "Notes/Plan.md");
    EXPECT_EQ(modeOf(library.path("Notes/Plan.md")), 0600u);

    note =
        succeeded(server.call("update_note", {{"path", "notes/plan.MD"},
                                              {"expected_revision", sha256Hex(library.read("Notes/Plan.md"))},
                                              {"content", "two"}}))["note"];
    EXPECT_EQ(note["path"], "notes/plan.MD");
    EXPECT_EQ(note["folder"], "notes");
    EXPECT_TRUE(library.read("Notes/Plan.md").ends_with("---\ntwo"));
    EXPECT_FALSE(library.exists("notes"));
    EXPECT_EQ(library.read("Other.md"), "other");
}

TEST(UpdateNote, OfTwoNamesThatDifferInCaseWritesTheOneWhoseRevisionItChecked) {
    TempLibrary library;
    library.write("Twin.md", "upper");
    library.write("twin.md", "lower");
    ServerProcess server(library.preferences());
    // Whichever the scan meets first is the note that a read and an update of "TWIN.md" both find.
    const Json read = succeeded(server.call("read_note", {{"path", "TWIN.md"}}));
    const std::string chosen = read["content"] == "upper" ? "Twin.md" : "twin.md";
    const std::string other = chosen == "Twin.md" ? "twin.md" : "Twin.md";
    const std::string otherBytes = library.read(other);

    succeeded(
        server.call("update_note",
                    {{"path", "TWIN.md"}, {"expected_revision", read["revision"]}, {"content", "changed"}}));
    EXPECT_TRUE(library.read(chosen).ends_with("---\nchanged"));
    EXPECT_EQ(library.read(other), otherBytes);
}

} // namespace
} // namespace vorlo::testing
