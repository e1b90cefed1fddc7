// Files and folders as the library reads and writes them: paths, links, folders opened once and
// written through, and the reader of many files in one batch.
#include "platform/Files.h"
#include "platform/BatchRead.h"
#include "platform/Folder.h"

#include "support/IoMode.h"
#include "support/Repeated.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <pthread.h>
#include <sys/stat.h>

namespace vorlo::fs {
namespace {

using vorlo::testing::IoMode;
using vorlo::testing::modeOf;
using vorlo::testing::TempLibrary;

// Extensions and last components are the scan's and every attachment transcript's.
TEST(Files, PathArithmetic) {
    EXPECT_EQ(standardizedPath("/a/./b/../c/"), "/a/c");
    EXPECT_EQ(standardizedPath("/../a"), "/a");
    // clang-format off
    for (const auto& [path, root, inside] : {std::tuple("/lib/a/../b", "/lib", true), {"/lib", "/lib/", true},
                                             {"/lib-evil/a", "/lib", false}, {"/lib/../etc", "/lib", false}})
        EXPECT_EQ(isDescendantPath(path, root), inside) << path << " in " << root;
    // clang-format on
}

// Files are placed atomically one step down, leaving no temporary; folders are private whatever the
// umask. What path-based writing gets wrong: the folder is swapped for a link to outside between the
// moment it was opened and the moment it is written into; writes land in the folder opened, and a
// walk that starts afterwards, like every walk, refuses the link instead of following it. (Reading
// itself is pinned by the batch reader's test, against the reader of one file.) A tree goes without
// following its links, even a chain planted deeper than a small stack would hold a frame a level.
TEST(Folder, PlacesFilesAndMakesPrivateFoldersAndNeverWritesOrWalksThroughALink) {
    TempLibrary library;
    library.write("../outside/keep.txt", "keep");
    library.write("../outside/Plan.md", "outside");
    library.write("Notes/Plan.md", "old");
    library.link("alias", library.root() + "/outside");
    library.link("doomed" + repeated("/d", 600) + "/link", library.root() + "/outside");
    EXPECT_EQ(linkStatus(library.path("alias"))->kind, EntryKind::SymbolicLink);
    EXPECT_EQ(resolvedPath(library.path("alias/missing/x.png")),
              resolvedPath(library.root() + "/outside") + "/missing/x.png");
    int error = 0;
    const Folder root = Folder::open(library.library(), &error).value();
    EXPECT_EQ(root.createFile("file.md", "first", 0600), 0);
    EXPECT_EQ(root.createFile("file.md", "second", 0600), EEXIST);
    EXPECT_EQ(library.read("file.md"), "first");
    EXPECT_EQ(root.replaceFile("file.md", "third", 0600), 0);
    EXPECT_EQ(library.read("file.md"), "third");
    EXPECT_EQ(modeOf(library.path("file.md")), 0600u);
    for (const char* name : {"missing/x.md", "..", ".", ""})
        EXPECT_EQ(root.createFile(name, "x", 0600), EINVAL) << name;
    EXPECT_EQ(listDirectory(library.library())->size(), 4u); // hidden temporaries included

    const mode_t previous = ::umask(0);
    const auto deep = root.descend("a/b/c", Folder::Missing::Make, &error);
    ::umask(previous);
    ASSERT_TRUE(deep) << error;
    EXPECT_EQ(deep->path(), library.path("a/b/c"));
    for (const char* folder : {"a", "a/b", "a/b/c"})
        EXPECT_EQ(modeOf(library.path(folder)), 0700u) << folder;
    EXPECT_FALSE(root.makeChild("a", &error));
    EXPECT_EQ(error, EEXIST);

    const auto notes = root.descend("Notes", Folder::Missing::Fail, &error);
    ASSERT_TRUE(notes) << error;
    ASSERT_EQ(std::rename(library.path("Notes").c_str(), library.path("Moved").c_str()), 0);
    library.link("Notes", library.root() + "/outside");
    EXPECT_EQ(notes->replaceFile("Plan.md", "new", 0600) + notes->createFile("Other.md", "other", 0600), 0);
    EXPECT_TRUE(notes->makeChild("Sub", &error)) << error;
    EXPECT_EQ(library.read("Moved/Plan.md") + library.read("Moved/Other.md"), "newother");
    EXPECT_TRUE(library.exists("Moved/Sub"));
    // A link, even to a real folder, and a file are no folders to walk into or to make inside.
    for (const auto& [path, missing, expected] : {std::tuple("a/missing", Folder::Missing::Fail, ENOENT),
                                                  {"Notes", Folder::Missing::Fail, ENOTDIR},
                                                  {"alias", Folder::Missing::Make, ENOTDIR},
                                                  {"alias/new", Folder::Missing::Make, ENOTDIR},
                                                  {"file.md/new", Folder::Missing::Make, ENOTDIR}}) {
        error = 0;
        EXPECT_FALSE(root.descend(path, missing, &error)) << path;
        EXPECT_EQ(error, expected) << path;
    }
    int removed = -1;
    auto removeBoth = [&] { removed = root.removeTree("a") + root.removeTree("doomed"); };
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 64 << 10);
    pthread_t thread;
    const auto run =
        +[](void* work) -> void* { return (*static_cast<decltype(removeBoth)*>(work))(), nullptr; };
    ASSERT_EQ(pthread_create(&thread, &small, run, &removeBoth), 0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(removed, 0);
    EXPECT_FALSE(library.exists("a") || library.exists("doomed"));
    EXPECT_EQ(library.read("../outside/keep.txt") + library.read("../outside/Plan.md"), "keepoutside");
    EXPECT_EQ(listDirectory(library.root() + "/outside")->size(), 2u);
}

// Every kind of file the reader must refuse, and more files than one batch holds, a few large
// enough that a batch's reads go in several groups, read as one call: each comes out in order, as
// written and as the reader of one file gives it. A FIFO with no writer would block a plain open or
// read. Handing buffers back must not disturb anything delivered before. The files are made once
// and read in every mode.
TEST(BatchRead, EachFileComesOutInOrderAsReadRegularFileAtGivesItInEveryMode) {
    TempLibrary library;
    constexpr std::uint64_t kLimit = 4 << 20;
    library.link("link.md", library.path("plain.md"));
    library.link("dangling.md", library.path("nowhere.md"));
    ASSERT_EQ(::mkfifo(library.path("fifo.md").c_str(), 0600), 0);
    library.makeFolder("folder.md");
    // Each file's name, what is written to it, and what its refusal sets errno to.
    // clang-format off
    std::vector<std::tuple<std::string, std::optional<std::string>, int>> files = {
        {"plain.md", "hello", 0},        {"empty.md", "", 0},
        {"at-limit.md", std::string(kLimit, 'x'), 0}, {"over-limit.md", std::string(kLimit + 1, 'x'), EFBIG},
        {"link.md", {}, ELOOP},          {"dangling.md", {}, ELOOP},
        {"fifo.md", {}, EINVAL},         {"folder.md", {}, EINVAL},
        {"locked.md", "secret", 0},      {"missing.md", {}, ENOENT}};
    // clang-format on
    for (int i = 0; i < 150; ++i) {
        const std::size_t size = i % 37 == 5 ? (3u << 20) + i : static_cast<std::size_t>(i * 31 % 5000);
        std::string bytes(size, static_cast<char>('a' + i % 26));
        if (size > 0) bytes.front() = static_cast<char>('0' + i % 10);
        files.emplace_back("note " + std::to_string(i) + ".md", bytes, 0);
    }
    for (const auto& [name, bytes, refusal] : files)
        if (bytes) library.write(name, *bytes);
    ::chmod(library.path("locked.md").c_str(), 0); // read or refused, as the user may read it or not
    std::get<2>(files[8]) = ::access(library.path("locked.md").c_str(), R_OK) == 0 ? 0 : EACCES;
    library.touch("plain.md", 1700000000);

    const UniqueFd folder = openDirectory(library.library());
    std::vector<FileRequest> requests;
    for (const auto& file : files)
        requests.push_back({folder.get(), std::get<0>(file).c_str()});
    for (const std::string mode : vorlo::testing::kIoModes) {
        SCOPED_TRACE(vorlo::testing::ioModeName(mode));
        const IoMode chosen(mode);
        FileBatchReader reader(kLimit);
        std::vector<std::optional<FileContents>> delivered;
        reader.read(requests, [&](std::optional<FileContents>&& contents) {
            delivered.push_back(std::move(contents));
            if (delivered.size() % 3 == 0 && delivered.back())
                reader.recycle(std::string(delivered.back()->bytes));
        });
        ASSERT_EQ(delivered.size(), files.size());
        for (std::size_t i = 0; i < files.size(); ++i) {
            const auto& [name, bytes, refusal] = files[i];
            SCOPED_TRACE(name);
            int error = 0;
            const auto expected = readRegularFileAt(folder.get(), name.c_str(), kLimit, &error);
            ASSERT_EQ(delivered[i].has_value(), expected.has_value());
            EXPECT_EQ(std::pair(expected.has_value(), error), std::pair(refusal == 0, refusal));
            if (!expected) continue;
            EXPECT_TRUE(delivered[i]->bytes == expected->bytes && expected->bytes == bytes);
            EXPECT_EQ(delivered[i]->modified, expected->modified);
        }
        EXPECT_EQ(delivered[0]->modified, Timestamp(std::chrono::seconds(1700000000)));
        EXPECT_TRUE(mode == "ring" || !reader.usesRing()) << "only the environment asks for the ring";
    }
}

} // namespace
} // namespace vorlo::fs
