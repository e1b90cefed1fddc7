#include "platform/BatchRead.h"

#include "support/IoMode.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace vorlo::fs {
namespace {

using vorlo::testing::IoMode;
using vorlo::testing::TempLibrary;

class BatchRead : public ::testing::TestWithParam<const char*> {};

// Reads `names` in the library's root as one call of the reader and returns what it delivered.
std::vector<std::optional<FileContents>>
readAll(const TempLibrary& library, const std::vector<std::string>& names, std::uint64_t maximumBytes) {
    const UniqueFd folder = openDirectory(library.library());
    std::vector<FileRequest> requests;
    for (const auto& name : names)
        requests.push_back({folder.get(), name.c_str()});
    FileBatchReader reader(maximumBytes);
    std::vector<std::optional<FileContents>> delivered;
    reader.read(requests, [&](std::optional<FileContents>&& contents) {
        delivered.push_back(std::move(contents));
        // Handing buffers back must not disturb anything delivered before.
        if (delivered.size() % 3 == 0 && delivered.back())
            reader.recycle(std::string(delivered.back()->bytes));
    });
    return delivered;
}

// A FIFO with no writer would block a plain open or read; the whole batch must come back, each file
// as the reader of one file gives it.
TEST_P(BatchRead, EachFileComesOutAsReadRegularFileAtGivesIt) {
    const IoMode mode(GetParam());
    TempLibrary library;
    library.write("plain.md", "hello");
    library.write("empty.md", "");
    library.write("at-limit.md", std::string(64, 'x'));
    library.write("over-limit.md", std::string(65, 'x'));
    library.link("link.md", library.path("plain.md"));
    library.link("dangling.md", library.path("nowhere.md"));
    ASSERT_EQ(::mkfifo(library.path("fifo.md").c_str(), 0600), 0);
    library.makeFolder("folder.md");
    library.write("locked.md", "secret");
    ::chmod(library.path("locked.md").c_str(), 0);
    library.touch("plain.md", 1700000000);
    const std::vector<std::string> names = {"plain.md",  "empty.md",    "at-limit.md", "over-limit.md",
                                            "link.md",   "dangling.md", "fifo.md",     "folder.md",
                                            "locked.md", "missing.md"};
    // What each refusal sets errno to; locked.md is read or refused, as the user may read it or not.
    const int locked = ::access(library.path("locked.md").c_str(), R_OK) == 0 ? 0 : EACCES;
    const int errors[] = {0, 0, 0, EFBIG, ELOOP, ELOOP, EINVAL, EINVAL, locked, ENOENT};
    const auto delivered = readAll(library, names, 64);
    ASSERT_EQ(delivered.size(), names.size());
    const UniqueFd folder = openDirectory(library.library());
    for (std::size_t i = 0; i < names.size(); ++i) {
        int error = 0;
        const auto expected = readRegularFileAt(folder.get(), names[i].c_str(), 64, &error);
        SCOPED_TRACE(names[i]);
        ASSERT_EQ(delivered[i].has_value(), expected.has_value());
        EXPECT_EQ(std::pair(expected.has_value(), error), std::pair(errors[i] == 0, errors[i]));
        if (!expected) continue;
        EXPECT_EQ(delivered[i]->bytes, expected->bytes);
        EXPECT_EQ(delivered[i]->modified, expected->modified);
    }
    EXPECT_EQ(delivered[0]->bytes, "hello");
    EXPECT_EQ(delivered[0]->modified, Timestamp(std::chrono::seconds(1700000000)));
}

// More files than one batch holds, and a few large enough that a batch's reads go in several groups.
TEST_P(BatchRead, ManyFilesOfMixedSizesComeBackInOrder) {
    const IoMode mode(GetParam());
    TempLibrary library;
    std::vector<std::string> names, contents;
    for (int i = 0; i < 150; ++i) {
        const std::size_t size = i % 37 == 5 ? (3u << 20) + i : static_cast<std::size_t>(i * 31 % 5000);
        contents.emplace_back(size, static_cast<char>('a' + i % 26));
        if (size > 0) contents.back().front() = static_cast<char>('0' + i % 10);
        names.push_back("note " + std::to_string(i) + ".md");
        library.write(names.back(), contents.back());
    }
    const auto delivered = readAll(library, names, 16 << 20);
    ASSERT_EQ(delivered.size(), names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        EXPECT_EQ(delivered[i].value_or(FileContents{"(refused)", {}}).bytes, contents[i]) << names[i];
}

TEST(BatchReadMode, TheEnvironmentForcesOneCallAtATime) {
    const IoMode mode("sync");
    EXPECT_FALSE(FileBatchReader(1).usesRing());
}

INSTANTIATE_TEST_SUITE_P(IoModes, BatchRead, ::testing::ValuesIn(vorlo::testing::kIoModes),
                         [](const auto& info) { return vorlo::testing::ioModeName(info.param); });

} // namespace
} // namespace vorlo::fs
