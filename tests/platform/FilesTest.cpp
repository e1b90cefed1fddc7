#include "platform/Files.h"

#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace vorlo::fs {
namespace {

using vorlo::testing::TempLibrary;

TEST(Files, PathArithmetic) {
    EXPECT_EQ(standardizedPath("/a/./b/../c/"), "/a/c");
    EXPECT_EQ(standardizedPath("/../a"), "/a");
    for (const auto& [path, root, inside] : {std::tuple("/lib/a/../b", "/lib", true),
                                             {"/lib", "/lib/", true},
                                             {"/lib-evil/a", "/lib", false},
                                             {"/lib/../etc", "/lib", false}})
        EXPECT_EQ(isDescendantPath(path, root), inside) << path << " in " << root;
    for (const auto& [path, extension] :
         {std::pair("a/archive.tar.GZ", "GZ"), {"a/.hidden", ""}, {"README", ""}})
        EXPECT_EQ(pathExtension(path), extension) << path;
    EXPECT_EQ(lastComponent("a/b/c.md"), "c.md");
}

TEST(Files, ReadingRefusesLinksFifosAndOversizedFilesAndResolvingFollowsLinks) {
    TempLibrary library;
    library.write("a.md", "hello");
    library.link("link.md", library.path("a.md"));
    library.makeFolder("real");
    library.link("alias", library.path("real"));
    ASSERT_EQ(::mkfifo(library.path("fifo.md").c_str(), 0600), 0);
    int error = 0;
    EXPECT_EQ(readRegularFile(library.path("a.md"), 5)->bytes, "hello");
    EXPECT_FALSE(readRegularFile(library.path("a.md"), 4, &error));
    EXPECT_EQ(error, EFBIG);
    EXPECT_FALSE(readRegularFile(library.path("link.md"), 100, &error));
    EXPECT_FALSE(readRegularFile(library.path("fifo.md"), 100, &error)); // and does not block
    EXPECT_EQ(error, EINVAL);
    EXPECT_EQ(linkStatus(library.path("link.md"))->kind, EntryKind::SymbolicLink);
    EXPECT_EQ(resolvedPath(library.path("alias/missing/x.png")),
              resolvedPath(library.path("real")) + "/missing/x.png");
}

} // namespace
} // namespace vorlo::fs
