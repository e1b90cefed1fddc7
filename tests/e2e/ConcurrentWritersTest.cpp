// Several server processes writing one library at once: no update lost, no name taken twice.
#include "e2e/WritingHelpers.h"
#include "support/ServerProcess.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <thread>

namespace vorlo::testing {
namespace {

constexpr int kWriters = 4;
constexpr int kAppendsPerWriter = 25;
constexpr int kCreatesPerWriter = 5;
constexpr int kMaximumTries = 2000; // a writer that cannot get through is a failure, not a hang

const std::string kStale =
    "The note changed after it was read. Read it again, review the new contents, and retry "
    "with the new revision.";
const std::string kBusy = "The Vorlo library is busy. Wait a moment and try again.";

struct WriterOutcome {
    int appended = 0;
    std::vector<std::string> createdPaths;
    std::vector<std::string> surprises; // any failure other than a lost race
};

// Read, append one line, write back on the revision read; a lost race starts the cycle again.
WriterOutcome runWriter(const TempLibrary& library, int writer) {
    WriterOutcome outcome;
    ServerProcess server(library.preferences());
    for (int tries = 0; outcome.appended < kAppendsPerWriter && tries < kMaximumTries; ++tries) {
        const Json read = server.call("read_note", {{"path", "Shared.md"}});
        if (read.value("isError", true)) {
            outcome.surprises.push_back(read.dump());
            continue;
        }
        const Json& note = read["structuredContent"];
        const std::string line =
            "writer " + std::to_string(writer) + " line " + std::to_string(outcome.appended) + "\n";
        const Json result =
            server.call("update_note", {{"path", "Shared.md"},
                                        {"expected_revision", note["revision"]},
                                        {"content", note["content"].get<std::string>() + line}});
        if (!result.value("isError", true)) {
            ++outcome.appended;
            continue;
        }
        const std::string text = result["content"][0].value("text", "");
        if (text != kStale && text != kBusy) outcome.surprises.push_back(text);
    }
    for (int i = 0, tries = 0; i < kCreatesPerWriter && tries < kMaximumTries; ++tries) {
        const Json result =
            server.call("create_note", {{"title", "Same"}, {"content", std::to_string(writer)}});
        if (!result.value("isError", true)) {
            outcome.createdPaths.push_back(result["structuredContent"]["note"]["path"]);
            ++i;
        } else if (result["content"][0].value("text", "") != kBusy) {
            outcome.surprises.push_back(result.dump());
        }
    }
    return outcome;
}

TEST(ConcurrentWriters, NoUpdateIsLostAndNoNameIsTakenTwice) {
    TempLibrary library;
    library.write("Shared.md", "---\ntitle: \"Shared\"\n---\n");
    std::vector<WriterOutcome> outcomes(kWriters);
    std::vector<std::thread> threads;
    for (int writer = 0; writer < kWriters; ++writer)
        threads.emplace_back([&, writer] { outcomes[writer] = runWriter(library, writer); });
    for (auto& thread : threads)
        thread.join();

    std::set<std::string> paths;
    for (int writer = 0; writer < kWriters; ++writer) {
        EXPECT_EQ(outcomes[writer].appended, kAppendsPerWriter) << "writer " << writer;
        EXPECT_TRUE(outcomes[writer].surprises.empty()) << outcomes[writer].surprises.front();
        for (const auto& path : outcomes[writer].createdPaths) {
            EXPECT_TRUE(paths.insert(path).second) << path << " reported twice";
            EXPECT_TRUE(library.exists(path)) << path;
        }
    }
    EXPECT_EQ(paths.size(), static_cast<std::size_t>(kWriters * kCreatesPerWriter));
    EXPECT_TRUE(paths.contains("Same.md"));
    EXPECT_TRUE(paths.contains("Same " + std::to_string(kWriters * kCreatesPerWriter) + ".md"));

    // Every appended line is in the note exactly once, and each writer's lines keep their order.
    std::istringstream body(library.read("Shared.md"));
    std::vector<int> nextLine(kWriters, 0);
    int lines = 0;
    for (std::string line; std::getline(body, line);) {
        int writer = -1, number = -1;
        if (std::sscanf(line.c_str(), "writer %d line %d", &writer, &number) != 2) continue;
        ++lines;
        ASSERT_TRUE(writer >= 0 && writer < kWriters) << line;
        EXPECT_EQ(number, nextLine[writer]++) << line;
    }
    EXPECT_EQ(lines, kWriters * kAppendsPerWriter);
    EXPECT_TRUE(leftovers(library).empty());
}

} // namespace
} // namespace vorlo::testing
