#include "platform/Files.h"

#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::fs {
namespace {

using vorlo::testing::TempLibrary;

TEST(Files, PathArithmetic) {
    EXPECT_EQ(standardizedPath("/a/./b/../c/"), "/a/c");
    EXPECT_EQ(standardizedPath("/../a"), "/a");
    EXPECT_TRUE(isDescendantPath("/lib/a/../b", "/lib"));
    EXPECT_TRUE(isDescendantPath("/lib", "/lib/"));
    EXPECT_FALSE(isDescendantPath("/lib-evil/a", "/lib"));
    EXPECT_FALSE(isDescendantPath("/lib/../etc", "/lib"));
    EXPECT_EQ(pathExtension("a/archive.tar.GZ"), "GZ");
    EXPECT_EQ(pathExtension("a/.hidden"), "");
    EXPECT_EQ(pathExtension("README"), "");
    EXPECT_EQ(lastComponent("a/b/c.md"), "c.md");
}

TEST(Files, ReadingRefusesLinksFifosAndOversizedFiles) {
    TempLibrary library;
    library.write("a.md", "hello");
    library.link("link.md", library.path("a.md"));
    ASSERT_EQ(::mkfifo(library.path("fifo.md").c_str(), 0600), 0);
    int error = 0;
    EXPECT_EQ(readRegularFile(library.path("a.md"), 5)->bytes, "hello");
    EXPECT_FALSE(readRegularFile(library.path("a.md"), 4, &error));
    EXPECT_EQ(error, EFBIG);
    EXPECT_FALSE(readRegularFile(library.path("link.md"), 100, &error));
    EXPECT_FALSE(readRegularFile(library.path("fifo.md"), 100, &error)); // and does not block
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(linkStatus(library.path("link.md"))->kind, EntryKind::SymbolicLink);
}

TEST(Files, ResolvedPathFollowsLinksOfTheExistingPrefix) {
    TempLibrary library;
    library.makeFolder("real");
    library.link("alias", library.path("real"));
    const std::string real = resolvedPath(library.path("real"));
    EXPECT_EQ(resolvedPath(library.path("alias/missing/x.png")), real + "/missing/x.png");
}

TEST(Files, AtomicPlacementNeverReplacesWhenAskedNotToAndLeavesNoTemporary) {
    TempLibrary library;
    const std::string target = library.path("note.md");
    EXPECT_EQ(createFileAtomically(target, "first", 0600), 0);
    EXPECT_EQ(createFileAtomically(target, "second", 0600), EEXIST);
    EXPECT_EQ(library.read("note.md"), "first");
    EXPECT_EQ(replaceFileAtomically(target, "third", 0600), 0);
    EXPECT_EQ(library.read("note.md"), "third");
    struct stat status;
    ASSERT_EQ(::stat(target.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    EXPECT_EQ(createFileAtomically(library.path("missing/x.md"), "x", 0600), ENOENT);
    const auto entries = listDirectory(library.library());
    ASSERT_TRUE(entries);
    ASSERT_EQ(entries->size(), 1u); // hidden temporaries are listed by nothing, and none remains anyway
    EXPECT_EQ(::access((library.library() + "/.Vorlo MCP").c_str(), F_OK), -1);
}

TEST(Files, DirectoriesArePrivateWhateverTheUmask) {
    TempLibrary library;
    const mode_t previous = ::umask(0);
    EXPECT_EQ(makeDirectories(library.path("a/b/c")), 0);
    ::umask(previous);
    for (const char* folder : {"a", "a/b", "a/b/c"}) {
        struct stat status;
        ASSERT_EQ(::stat(library.path(folder).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0700u) << folder;
    }
    EXPECT_EQ(makeDirectory(library.path("a")), EEXIST);
    EXPECT_EQ(removeTree(library.path("a")), 0);
    EXPECT_FALSE(exists(library.path("a")));
}

TEST(Files, RemoveTreeNeverFollowsLinks) {
    TempLibrary library;
    library.write("outside/keep.txt", "keep");
    library.makeFolder("doomed");
    library.link("doomed/link", library.path("outside"));
    EXPECT_EQ(removeTree(library.path("doomed")), 0);
    EXPECT_EQ(library.read("outside/keep.txt"), "keep");
}

} // namespace
} // namespace vorlo::fs
