// create_note through the real binary: the bytes on disk, modes, names and every refusal.
#include "e2e/WritingHelpers.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/Time.h"
#include "support/ServerProcess.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

namespace vorlo::testing {
namespace {

TEST(CreateNote, WritesTheRenderedNoteAndReportsWhatItWrote) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const Json result = server.call("create_note", {{"title", "  Re: Plan  "},
                                                    {"content", "Body #work\r\nnext"},
                                                    {"tags", {"#home", "Home"}},
                                                    {"pinned", 1}});
    const Json created = succeeded(result);
    EXPECT_EQ(created["created"], true);
    EXPECT_FALSE(created.contains("monitoring_warning"));
    EXPECT_EQ(structuredText(result), created);

    const Json note = created["note"];
    const std::string id = note.value("id", ""), date = note.value("created", "");
    ASSERT_TRUE(Uuid::parse(id));
    EXPECT_EQ(Uuid::parse(id)->text(), id);
    ASSERT_TRUE(parseIso8601(date));
    EXPECT_LT(std::chrono::abs(currentTime() - *parseIso8601(date)), std::chrono::minutes(1));

    const std::string bytes = library.read("Re Plan.md");
    EXPECT_EQ(bytes, "---\nid: " + id + "\ntitle: \"Re: Plan\"\ncreated: " + date + "\nmodified: " + date +
                         "\ntags: [\"home\"]\npinned: true\narchived: false\n---\nBody #work\r\nnext");
    EXPECT_EQ(note["path"], "Re Plan.md");
    EXPECT_EQ(note["folder"], "");
    EXPECT_EQ(note["title"], "Re: Plan");
    EXPECT_EQ(note["tags"], Json({"home", "work"})); // the body's inline tag joins the header's
    EXPECT_EQ(note["pinned"], true);
    EXPECT_EQ(note["archived"], false);
    EXPECT_EQ(note["modified"], date);
    EXPECT_EQ(note["revision"], sha256Hex(bytes));

    // What a later read computes from the file is what the create reported.
    const Json read = succeeded(server.call("read_note", {{"path", "Re Plan.md"}}));
    EXPECT_EQ(read["revision"], note["revision"]);
    EXPECT_EQ(read["content"], "Body #work\nnext");
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(CreateNote, GivesFilesMode0600AndFoldersItMakesMode0700) {
    TempLibrary library;
    library.makeFolder("A");
    std::filesystem::permissions(library.path("A"), std::filesystem::perms(0755));
    ServerProcess server(library.preferences());
    const Json note =
        succeeded(server.call("create_note", {{"title", "Deep"}, {"folder", "A\\B/C"}}))["note"];
    EXPECT_EQ(note["path"], "A/B/C/Deep.md");
    EXPECT_EQ(note["folder"], "A/B/C");
    EXPECT_EQ(modeOf(library.path("A")), 0755u); // an existing folder keeps its mode
    EXPECT_EQ(modeOf(library.path("A/B")), 0700u);
    EXPECT_EQ(modeOf(library.path("A/B/C")), 0700u);
    EXPECT_EQ(modeOf(library.path("A/B/C/Deep.md")), 0600u);
    EXPECT_EQ(modeOf(library.path("Vorlo Data")), 0700u);
    EXPECT_EQ(modeOf(library.path("Vorlo Data/Locks")), 0700u);
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(CreateNote, NumbersNamesThatAreTaken) {
    TempLibrary library;
    library.write("Lone 2.md", "a numbered name does not take the plain one");
    library.write("Notes/Vorlo Data/keep.txt", "");
    ServerProcess server(library.preferences());
    const struct {
        Json arguments;
        std::string path;
    } cases[] = {
        {{{"title", "Plan"}}, "Plan.md"},
        {{{"title", "Plan"}}, "Plan 2.md"},
        {{{"title", " Plan "}}, "Plan 3.md"},
        {{{"title", "Lone"}}, "Lone.md"},
        {{{"title", "..."}}, "Untitled.md"},
        {{{"title", "Vorlo Data"}}, "Untitled 2.md"},
        {{{"title", "report.md"}}, "report.md.md"},
        {{{"title", "Plan"}, {"folder", "   "}}, "Plan 4.md"}, // a blank folder is the root
        {{{"title", "Plan"}, {"folder", "Notes/Vorlo Data"}}, "Notes/Vorlo Data/Plan.md"},
        {{{"title", ".hidden"}, {"folder", ".private"}}, ".private/hidden.md"},
    };
    for (const auto& c : cases) {
        const Json note = succeeded(server.call("create_note", c.arguments))["note"];
        EXPECT_EQ(note["path"], c.path) << c.arguments.dump();
        EXPECT_TRUE(library.exists(c.path)) << c.path;
    }
    // The header keeps the title as given; only the file name is numbered.
    EXPECT_NE(library.read("Plan 2.md").find("\ntitle: \"Plan\"\n"), std::string::npos);
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(CreateNote, RefusesFoldersOutsideTheLibraryOrInsideItsPrivateData) {
    TempLibrary library;
    library.write("file.txt", "not a folder");
    library.makeFolder("Real");
    library.link("Inside", library.path("Real"));
    library.link("Outside", library.root());
    library.link("Dangling", library.path("nowhere"));
    ServerProcess server(library.preferences());
    const std::string normal = "folder must be a normal folder inside the Vorlo library.";
    const std::string inside = "folder must remain inside the selected Vorlo library.";
    const struct {
        Json folder;
        std::string message;
    } cases[] = {
        {"Vorlo Data", normal},
        {"vorlo data", normal},
        {"VORLO DATA/x", normal},
        {"Vorlo Data\\Locks", normal},
        {"../x", normal},
        {"/tmp", normal},
        {"~/x", normal},
        {"a//b", normal},
        {"a/./b", normal},
        {"file.txt", inside},
        {"file.txt/sub", inside},
        {"Inside", inside}, // even a link that stays inside the library is never walked through
        {"Outside", inside},
        {"Dangling", inside},
        {5, "folder must be a short string."},
        {nullptr, "folder must be a short string."},
    };
    for (const auto& c : cases) {
        const Json result = server.call("create_note", {{"title", "Escape"}, {"folder", c.folder}});
        EXPECT_EQ(errorText(result), c.message) << c.folder.dump();
        EXPECT_FALSE(result.contains("structuredContent"));
    }
    EXPECT_FALSE(library.exists("Real/Escape.md"));
    EXPECT_FALSE(library.exists("Real/sub"));
    EXPECT_FALSE(library.exists("x"));
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(CreateNote, ChecksArgumentsInOrderBeforeTouchingTheDisk) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const struct {
        Json arguments;
        std::string message;
    } cases[] = {
        {Json::object(), "title is required."},
        {{{"title", "T"}, {"content", 5}, {"folder", 5}}, "content must be text."},
        {{{"title", "T"}, {"folder", 5}, {"tags", "x"}}, "folder must be a short string."},
        // The folder's path is judged under the lock, after every argument.
        {{{"title", "T"}, {"folder", "Vorlo Data"}, {"tags", {"a/../b"}}}, "A tag is invalid or too long."},
        {{{"title", "T"}, {"folder", "../x"}, {"pinned", "true"}}, "pinned must be true or false."},
    };
    for (const auto& c : cases)
        EXPECT_EQ(errorText(server.call("create_note", c.arguments)), c.message) << c.arguments;
    EXPECT_FALSE(library.exists("Vorlo Data"))
        << "a refused argument neither waits for the lock nor makes it";
}

// No request line can carry a note near the size limit, so the tool's method is called directly.
TEST(CreateNote, OversizedNoteLeavesOnlyTheFolderItMadeAndReleasesTheLock) {
    TempLibrary library;
    const Json arguments = {
        {"title", "Big"}, {"folder", "New"}, {"content", std::string(kMaximumNoteBytes, 'x')}};
    try {
        library.server().createNote(arguments);
        ADD_FAILURE() << "an oversized note was written";
    } catch (const ServerError& error) {
        EXPECT_STREQ(error.what(), "The note exceeds Vorlo's 16777216-byte limit.");
    }
    EXPECT_TRUE(std::filesystem::is_empty(library.path("New")));
    EXPECT_TRUE(leftovers(library).empty());
}

} // namespace
} // namespace vorlo::testing
