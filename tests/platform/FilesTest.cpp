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

} // namespace
} // namespace vorlo::fs
