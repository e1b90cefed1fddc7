#include "platform/Files.h"

#include "support/TempLibrary.h"

#include <gtest/gtest.h>

namespace vorlo::fs {
namespace {

using vorlo::testing::TempLibrary;

TEST(Files, PathArithmetic) {
    EXPECT_EQ(standardizedPath("/a/./b/../c/"), "/a/c");
    EXPECT_EQ(standardizedPath("/../a"), "/a");
    // clang-format off
    for (const auto& [path, root, inside] : {std::tuple("/lib/a/../b", "/lib", true), {"/lib", "/lib/", true},
                                             {"/lib-evil/a", "/lib", false}, {"/lib/../etc", "/lib", false}})
        EXPECT_EQ(isDescendantPath(path, root), inside) << path << " in " << root;
    for (const auto& [path, extension] : {std::pair("a/archive.tar.GZ", "GZ"), {"a/.hidden", ""}, {"README", ""}})
        EXPECT_EQ(pathExtension(path), extension) << path;
    // clang-format on
    EXPECT_EQ(lastComponent("a/b/c.md"), "c.md");
}

// Reading itself is pinned by the batch reader's test, against the reader of one file.
TEST(Files, LinksAreSeenAsLinksAndResolvingFollowsThem) {
    TempLibrary library;
    library.write("a.md", "hello");
    library.link("link.md", library.path("a.md"));
    library.makeFolder("real");
    library.link("alias", library.path("real"));
    EXPECT_EQ(linkStatus(library.path("link.md"))->kind, EntryKind::SymbolicLink);
    EXPECT_EQ(resolvedPath(library.path("alias/missing/x.png")),
              resolvedPath(library.path("real")) + "/missing/x.png");
}

} // namespace
} // namespace vorlo::fs
