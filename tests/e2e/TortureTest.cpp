// Eight servers hammering one note with read-then-update cycles while others read it and race to
// create notes of one title: no update is lost or doubled, no reader sees a note that was never
// written whole, and nothing is left behind.
#include "e2e/WritingHelpers.h"
#include "library/NoteParser.h"
#include "platform/Crypto.h"
#include "support/ServerProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <thread>

namespace vorlo::testing {
namespace {

constexpr int kWriters = 8;
constexpr int kCreatesPerWriter = 5;
const std::string kStale =
    "The note changed after it was read. Read it again, review the new contents, and retry "
    "with the new revision.";
const std::string kBusy = "The Vorlo library is busy. Wait a moment and try again.";
// Readers pause between reads so that on a machine of two cores they leave the writers room.
constexpr auto kReaderPause = std::chrono::milliseconds(1);
const std::string kInitial = "---\ntitle: \"Contended\"\n---\n";

// Every version of the note that a writer brought about: its revision, and the digest of the body
// it sent. A reader's revision must name one of them, and its body must be that body.
class Versions {
public:
    void add(const std::string& revision, const std::string& bodyDigest) {
        const std::lock_guard<std::mutex> hold(mutex_);
        const bool fresh = bodies_.emplace(revision, bodyDigest).second;
        EXPECT_TRUE(fresh) << "two updates produced the same revision " << revision;
    }
    std::map<std::string, std::string> all() const {
        const std::lock_guard<std::mutex> hold(mutex_);
        return bodies_;
    }

private:
    mutable std::mutex mutex_;
    std::map<std::string, std::string> bodies_;
};

struct WriterOutcome {
    int updated = 0;
    int staleRefusals = 0, busyRefusals = 0;
    std::vector<std::string> createdPaths;
    std::vector<std::string> surprises; // any failure other than a lost race
};

// A tool call's result, or nothing when the server gave no answer; the reason is then recorded, with what
// the server wrote to its standard error before it was stopped.
std::optional<Json> callTool(ServerProcess& server, std::string_view tool, const Json& arguments,
                             std::vector<std::string>& surprises) {
    Json result = server.call(tool, arguments);
    if (result.is_object() && result.contains("isError")) return result;
    const ExitResult ended = server.finish(std::chrono::seconds(5));
    surprises.push_back(std::string(tool) + " got no answer: " + result.dump().substr(0, 300) + "; status " +
                        std::to_string(ended.status) + ", standard error: " + ended.standardError.substr(0, 2000));
    return std::nullopt;
}

// One client: read, append a line naming the revision read, update on that revision; a lost race
// starts the cycle again. Every so often it creates a note of the shared title.
WriterOutcome runWriter(const TempLibrary& library, int writer, int updates, Versions& versions) {
    WriterOutcome outcome;
    ServerProcess server(library.preferences());
    const int createEvery = std::max(1, updates / kCreatesPerWriter);
    const int maximumTries = updates * 200; // a writer that cannot get through fails; it does not hang
    const auto createOne = [&] {
        if (outcome.createdPaths.size() >= static_cast<std::size_t>(kCreatesPerWriter)) return;
        for (int attempt = 0; attempt < 100; ++attempt) {
            const auto answer =
                callTool(server, "create_note", {{"title", "Race"}, {"content", std::to_string(writer)}}, outcome.surprises);
            if (!answer) return;
            const Json& created = *answer;
            if (!created.value("isError", true)) {
                outcome.createdPaths.push_back(created["structuredContent"]["note"]["path"]);
                return;
            }
            if (errorText(created) != kBusy) outcome.surprises.push_back(created.dump());
        }
    };
    for (int tries = 0; outcome.updated < updates && tries < maximumTries; ++tries) {
        const auto answer = callTool(server, "read_note", {{"path", "Contended.md"}}, outcome.surprises);
        if (!answer) break;
        const Json& read = *answer;
        if (read.value("isError", true)) {
            outcome.surprises.push_back(read.dump());
            continue;
        }
        const Json& note = read["structuredContent"];
        if (note.value("truncated", true)) {
            outcome.surprises.push_back("the note came back truncated");
            break;
        }
        const std::string revision = note["revision"];
        const std::string body = note["content"].get<std::string>() + "w" + std::to_string(writer) + " n" +
                                 std::to_string(outcome.updated) + " r" + revision.substr(0, 16) + "\n";
        const auto updated = callTool(
            server, "update_note", {{"path", "Contended.md"}, {"expected_revision", revision}, {"content", body}},
            outcome.surprises);
        if (!updated) break;
        const Json& result = *updated;
        if (!result.value("isError", true)) {
            versions.add(result["structuredContent"]["note"]["revision"], sha256Hex(body));
            if (++outcome.updated % createEvery == 0) createOne();
            continue;
        }
        const std::string text = errorText(result);
        if (text == kStale) ++outcome.staleRefusals;
        else if (text == kBusy) ++outcome.busyRefusals;
        else outcome.surprises.push_back(text);
    }
    while (outcome.createdPaths.size() < static_cast<std::size_t>(kCreatesPerWriter) && outcome.surprises.empty())
        createOne();
    return outcome;
}

// What a reader got: the revision and the digest of what it read under it.
struct Sample {
    std::string revision;
    std::string digest;
};

TEST(Torture, EightWritersLoseNoUpdateAndReadersNeverSeeAPartialNote) {
    // 500 cycles a writer take one to two minutes on two cores, most of it in moving and hashing a
    // note that grows to 4,000 lines; the long run doubles them.
    int updates = longTests() ? 1000 : 500;
    if (const char* value = std::getenv("VORLO_TORTURE_UPDATES")) updates = std::atoi(value);

    TempLibrary library;
    library.write("Contended.md", kInitial);
    Versions versions;
    versions.add(sha256Hex(kInitial), sha256Hex(""));

    std::atomic<bool> writing{true};
    // A client reading through the server: the revision it is told must be that of the body it gets.
    std::vector<Sample> served;
    std::vector<std::string> readerSurprises;
    std::thread serverReader([&] {
        ServerProcess server(library.preferences());
        while (writing.load()) {
            const auto answer = callTool(server, "read_note", {{"path", "Contended.md"}}, readerSurprises);
            if (!answer) break;
            const Json& read = *answer;
            if (read.value("isError", true)) {
                readerSurprises.push_back(read.dump());
                continue;
            }
            const Json& note = read["structuredContent"];
            served.push_back({note["revision"], sha256Hex(note["content"].get<std::string>())});
            std::this_thread::sleep_for(kReaderPause);
        }
    });
    // Someone reading the file itself, as the notes application does: it must only ever find the
    // bytes of a version that a writer completed.
    std::vector<std::string> fileDigests;
    std::thread fileReader([&] {
        while (writing.load()) {
            fileDigests.push_back(sha256Hex(library.read("Contended.md")));
            std::this_thread::sleep_for(kReaderPause);
        }
    });

    std::vector<WriterOutcome> outcomes(kWriters);
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer)
        writers.emplace_back([&, writer] { outcomes[writer] = runWriter(library, writer, updates, versions); });
    for (auto& thread : writers)
        thread.join();
    writing.store(false);
    serverReader.join();
    fileReader.join();

    // Every successful update left exactly one line, each writer's lines in their order, and no two
    // updates built on the same revision: none overwrote another.
    int successes = 0, stale = 0, busy = 0;
    std::set<std::string> paths;
    for (int writer = 0; writer < kWriters; ++writer) {
        const WriterOutcome& outcome = outcomes[writer];
        EXPECT_EQ(outcome.updated, updates) << "writer " << writer;
        EXPECT_TRUE(outcome.surprises.empty()) << outcome.surprises.front();
        successes += outcome.updated;
        stale += outcome.staleRefusals;
        busy += outcome.busyRefusals;
        for (const auto& path : outcome.createdPaths) {
            EXPECT_TRUE(paths.insert(path).second) << path << " reported twice";
            EXPECT_TRUE(library.exists(path)) << path;
        }
    }
    std::istringstream body(library::parseNote(library.read("Contended.md"), "", std::nullopt, "").content);
    std::vector<int> nextLine(kWriters, 0);
    std::set<std::string> readRevisions;
    int lines = 0;
    for (std::string line; std::getline(body, line);) {
        int writer = -1, number = -1;
        char revision[17] = {};
        ASSERT_EQ(std::sscanf(line.c_str(), "w%d n%d r%16s", &writer, &number, revision), 3) << line;
        ASSERT_TRUE(writer >= 0 && writer < kWriters) << line;
        EXPECT_EQ(number, nextLine[writer]++) << line;
        EXPECT_TRUE(readRevisions.insert(revision).second) << "two updates built on one revision: " << line;
        ++lines;
    }
    const int updatesLost = successes - lines;
    EXPECT_EQ(updatesLost, 0);
    EXPECT_TRUE(leftovers(library).empty()) << leftovers(library).front();

    // Creates racing for one title got distinct names, numbered without a gap.
    ASSERT_EQ(paths.size(), static_cast<std::size_t>(kWriters * kCreatesPerWriter));
    EXPECT_TRUE(paths.contains("Race.md"));
    for (int number = 2; number <= kWriters * kCreatesPerWriter; ++number)
        EXPECT_TRUE(paths.contains("Race " + std::to_string(number) + ".md")) << number;

    // Every read found a version that was written whole, under its own revision.
    const auto written = versions.all();
    EXPECT_TRUE(readerSurprises.empty()) << readerSurprises.front();
    for (const Sample& sample : served) {
        const auto version = written.find(sample.revision);
        ASSERT_NE(version, written.end()) << "a reader was told a revision nobody wrote";
        EXPECT_EQ(version->second, sample.digest) << "a reader got another body than its revision's";
    }
    for (const std::string& digest : fileDigests)
        EXPECT_TRUE(written.contains(digest)) << "the file was read in a state nobody wrote";

    std::printf("[ torture ] %d writers: %d updates, %d updates lost, %d stale and %d busy refusals retried; "
                "%zu reads through a server and %zu of the file, all of whole versions; %zu creates of one title\n",
                kWriters, successes, updatesLost, stale, busy, served.size(), fileDigests.size(), paths.size());
}

} // namespace
} // namespace vorlo::testing
