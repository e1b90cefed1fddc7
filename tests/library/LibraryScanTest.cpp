#include "library/LibraryScan.h"

#include "platform/Errors.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::testing {
namespace {

std::vector<std::string> scannedPaths(const TempLibrary& library) {
    std::vector<std::string> paths;
    for (const auto& note : library.server().scanNotes())
        paths.push_back(note.relativePath);
    return paths;
}

TEST(LibraryScan, NoteSizeLimitIsInclusive) {
    TempLibrary library;
    library.write("AtLimit.md", std::string(kMaximumNoteBytes, 'a'));
    library.write("OverLimit.md", std::string(kMaximumNoteBytes + 1, 'a'));
    EXPECT_EQ(scannedPaths(library), std::vector<std::string>{"AtLimit.md"});
}

TEST(LibraryScan, RevisionIsTheDigestOfTheRawBytes) {
    TempLibrary library;
    library.write("Empty.md", "");
    library.write("Unix.md", "line\n");
    library.write("Windows.md", "line\r\n");
    std::map<std::string, NoteRecord> notes;
    for (auto& note : library.server().scanNotes())
        notes[note.relativePath] = note;
    ASSERT_EQ(notes.size(), 3u);
    EXPECT_EQ(notes["Empty.md"].revision, "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(notes["Unix.md"].content, notes["Windows.md"].content);
    EXPECT_NE(notes["Unix.md"].revision, notes["Windows.md"].revision);
}

TEST(LibraryScan, WalkIsDepthFirstWithEachFolderContiguous) {
    TempLibrary library;
    for (const char* path : {"a.md", "A/1.md", "A/2.md", "A/B/3.md", "A/B/C/4.md", "A/B/5.md", "A/6.md",
                             "D/7.md", "D/E/8.md", "z.md", "D/9.md"})
        library.write(path, "x");
    const auto paths = scannedPaths(library);
    ASSERT_EQ(paths.size(), 11u);
    // Whatever order the file system lists entries in, a folder's notes come as one run.
    for (const std::string folder : {"A/", "A/B/", "A/B/C/", "D/", "D/E/"}) {
        const auto inside = [&](const std::string& path) { return path.starts_with(folder); };
        const auto first = std::find_if(paths.begin(), paths.end(), inside);
        const auto afterRun = std::find_if_not(first, paths.end(), inside);
        EXPECT_EQ(std::find_if(afterRun, paths.end(), inside), paths.end()) << folder;
    }
}

TEST(LibraryScan, LookupYieldsTheFirstNoteOfTheWalkThatMatchesIgnoringCase) {
    TempLibrary library;
    library.write("Notes/plan.md", "lower");
    library.write("Notes/PLAN.md", "upper");
    library.write("bad.md", "\xff"); // left out: its bytes are not UTF-8...
    library.write("BAD.md", "good"); // ...so the lookup goes on to the variant that is a note
    const auto server = library.server();
    const auto scan = scannedPaths(library);
    const auto firstPlan =
        *std::find_if(scan.begin(), scan.end(), [](const std::string& p) { return p.starts_with("Notes/"); });
    for (const char* asked : {"notes/plan.md", "NOTES/PLAN.MD", "Notes/Plan.md"}) {
        const auto found = server.findNote(asked);
        ASSERT_TRUE(found) << asked;
        EXPECT_EQ(found->relativePath, firstPlan) << asked;
    }
    ASSERT_TRUE(server.findNote("bad.md"));
    EXPECT_EQ(server.findNote("bad.md")->relativePath, "BAD.md");
    EXPECT_FALSE(server.findNote("Notes/missing.md"));
}

TEST(LibraryScan, UnreadableFolderIsPassedOver) {
    if (::geteuid() == 0) GTEST_SKIP() << "permissions do not bind root";
    TempLibrary library;
    library.write("Open/a.md", "x");
    library.write("Closed/b.md", "x");
    library.write("Unreadable.md", "x");
    ::chmod(library.path("Closed").c_str(), 0);
    ::chmod(library.path("Unreadable.md").c_str(), 0);
    EXPECT_EQ(scannedPaths(library), std::vector<std::string>{"Open/a.md"});
}

TEST(LibraryScan, LibraryThatCannotBeOpenedFailsTheScan) {
    TempLibrary library;
    library.write("Elsewhere/a.md", "x");
    library.link("Linked", library.path("Elsewhere"));
    for (const std::string& root :
         {library.path("Missing"), library.path("Elsewhere/a.md"), library.path("Linked")}) {
        try {
            VorloMCPServer(root, library.preferences()).scanNotes();
            ADD_FAILURE() << root;
        } catch (const ServerError& error) {
            EXPECT_STREQ(error.what(), "The selected Vorlo library could not be read.");
        }
    }
}

TEST(LibraryScan, RelativePathIsLexicalAndOnlyBelowTheLibrary) {
    TempLibrary library;
    const auto server = library.server();
    const std::string root = library.library();
    const struct {
        std::string path;
        std::string relative;
    } cases[] = {
        {root + "/a/b.md", "a/b.md"},
        {root + "/./a/../b.md", "b.md"},
        {root + "/Vorlo Data/Attachments/ID/x.png", "Vorlo Data/Attachments/ID/x.png"},
        {root, ""},
        {root + "/", ""},
        {root + "Sibling/a.md", ""}, // shares the library's text, not its folder
        {"/elsewhere/a.md", ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(server.relativePath(c.path), c.relative) << c.path;
}

} // namespace
} // namespace vorlo::testing
