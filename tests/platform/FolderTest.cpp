#include "platform/Folder.h"

#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

namespace vorlo::fs {
namespace {

using vorlo::testing::TempLibrary;

unsigned modeOf(const std::string& path) {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 0777 : 0;
}

TEST(Folder, PlacesFilesAtomicallyOneStepDownAndLeavesNoTemporary) {
    TempLibrary library;
    int error = 0;
    const Folder root = Folder::open(library.library(), &error).value();
    EXPECT_EQ(root.createFile("note.md", "first", 0600), 0);
    EXPECT_EQ(root.createFile("note.md", "second", 0600), EEXIST);
    EXPECT_EQ(library.read("note.md"), "first");
    EXPECT_EQ(root.replaceFile("note.md", "third", 0600), 0);
    EXPECT_EQ(library.read("note.md"), "third");
    EXPECT_EQ(modeOf(library.path("note.md")), 0600u);
    for (const char* name : {"missing/x.md", "..", ".", ""})
        EXPECT_EQ(root.createFile(name, "x", 0600), EINVAL) << name;
    EXPECT_EQ(listDirectory(library.library())->size(), 1u); // hidden temporaries included
}

TEST(Folder, MakesPrivateFoldersWhateverTheUmaskAndNeverWalksThroughALink) {
    TempLibrary library;
    library.write("../outside/keep.txt", "keep");
    library.link("alias", library.root() + "/outside");
    library.write("file.md", "x");
    library.link("doomed/link", library.root() + "/outside");
    int error = 0;
    const Folder root = Folder::open(library.library(), &error).value();
    const mode_t previous = ::umask(0);
    const auto deep = root.descend("a/b/c", Folder::Missing::Make, &error);
    ::umask(previous);
    ASSERT_TRUE(deep) << error;
    EXPECT_EQ(deep->path(), library.path("a/b/c"));
    for (const char* folder : {"a", "a/b", "a/b/c"})
        EXPECT_EQ(modeOf(library.path(folder)), 0700u) << folder;
    EXPECT_FALSE(root.makeChild("a", &error));
    EXPECT_EQ(error, EEXIST);
    // A link, even to a real folder, and a file are no folders to walk into or to make inside.
    for (const auto& [path, missing, expected] : {std::tuple("a/missing", Folder::Missing::Fail, ENOENT),
                                                  {"alias", Folder::Missing::Make, ENOTDIR},
                                                  {"alias/new", Folder::Missing::Make, ENOTDIR},
                                                  {"file.md/new", Folder::Missing::Make, ENOTDIR}}) {
        error = 0;
        EXPECT_FALSE(root.descend(path, missing, &error)) << path;
        EXPECT_EQ(error, expected) << path;
    }
    EXPECT_EQ(root.removeTree("a") + root.removeTree("doomed"), 0);
    EXPECT_FALSE(library.exists("a") || library.exists("doomed") || library.exists("../outside/new"));
    EXPECT_EQ(library.read("../outside/keep.txt"), "keep");
}

// What path-based writing gets wrong: the folder is swapped for a link to outside between the
// moment it was checked and the moment it is written into.
TEST(Folder, WritesLandInTheFolderOpenedWhateverIsSwappedInAtItsName) {
    TempLibrary library;
    library.write("Notes/Plan.md", "old");
    library.write("../outside/Plan.md", "outside");
    int error = 0;
    const Folder root = Folder::open(library.library(), &error).value();
    const auto notes = root.descend("Notes", Folder::Missing::Fail, &error);
    ASSERT_TRUE(notes) << error;
    ASSERT_EQ(std::rename(library.path("Notes").c_str(), library.path("Moved").c_str()), 0);
    library.link("Notes", library.root() + "/outside");

    EXPECT_EQ(notes->replaceFile("Plan.md", "new", 0600) + notes->createFile("Other.md", "other", 0600), 0);
    EXPECT_TRUE(notes->makeChild("Sub", &error)) << error;
    EXPECT_EQ(library.read("Moved/Plan.md") + library.read("Moved/Other.md"), "newother");
    EXPECT_TRUE(library.exists("Moved/Sub"));
    EXPECT_EQ(library.read("../outside/Plan.md"), "outside");
    EXPECT_FALSE(library.exists("../outside/Other.md") || library.exists("../outside/Sub"));
    // A walk that starts afterwards refuses the link instead of following it.
    EXPECT_FALSE(root.descend("Notes", Folder::Missing::Fail, &error));
    EXPECT_EQ(error, ENOTDIR);
}

} // namespace
} // namespace vorlo::fs
