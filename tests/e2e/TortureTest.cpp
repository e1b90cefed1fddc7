// Eight servers hammering one note with read-then-update cycles while others read it and race to
// create notes of one title: no update is lost or doubled, no reader sees a note that was never
// written whole, the racing creates take every number once, and nothing is left behind.
#include "e2e/Reliability.h"

namespace vorlo::testing {
namespace {

constexpr int kWriters = 8, kCreatesPerWriter = 5;

struct Outcome {
    int updated = 0, lostRaces = 0;
    std::vector<std::pair<std::string, std::string>> versions; // revision, digest of the body sent
    std::vector<std::string> created;
};

// One client: read, append a line naming the revision read, update on that revision; a lost race (a
// stale revision, a busy library) starts the cycle again; a call left unanswered fails as neither. Now and
// then it creates a note of the shared title. A writer that cannot get through fails; it does not hang.
Outcome runWriter(const TempLibrary& library, int writer, int updates) {
    Outcome out;
    ServerProcess server(library.preferences());
    for (int tries = 0; out.updated < updates && tries < updates * 200 && !::testing::Test::HasFailure();
         ++tries) {
        const Json note = succeeded(server.call("read_note", {{"path", "Contended.md"}}));
        const std::string revision = note.value("revision", "");
        const std::string body = note.value("content", "") + "w" + std::to_string(writer) + " n" +
                                 std::to_string(out.updated) + " r" + revision.substr(0, 16) + "\n";
        const Json result = server.call(
            "update_note", {{"path", "Contended.md"}, {"expected_revision", revision}, {"content", body}});
        if (result.value("isError", true)) {
            const std::string text = errorText(result);
            EXPECT_TRUE(text == kStale || text == kBusy) << text;
            ++out.lostRaces;
            continue;
        }
        out.versions.emplace_back(result["structuredContent"]["note"]["revision"], sha256Hex(body));
        ++out.updated;
        for (int attempt = 0;
             attempt < 100 && int(out.created.size()) * updates < out.updated * kCreatesPerWriter;
             ++attempt) {
            const Json made =
                server.call("create_note", {{"title", "Race"}, {"content", std::to_string(writer)}});
            if (!made.value("isError", true))
                out.created.push_back(made["structuredContent"]["note"]["path"]);
            else
                EXPECT_EQ(errorText(made), kBusy);
        }
    }
    return out;
}

TEST(Torture, EightWritersLoseNoUpdateAndReadersNeverSeeAPartialNote) {
    // 500 cycles a writer take one to two minutes on two cores, most of it in moving and hashing a
    // note that grows to 4,000 lines.
    const int updates = sizeFromEnvironment("VORLO_TORTURE_UPDATES", 500, 1000);
    TempLibrary library;
    const std::string initial = readFile(library.write("Contended.md", "---\ntitle: \"Contended\"\n---\n"));
    // A client reading through a server must be told the revision of the body it gets; someone
    // reading the file itself, as the notes application does, must only find a completed version.
    // The reader pauses between reads, so that on two cores it leaves the writers room.
    std::atomic<bool> writing{true};
    std::vector<std::array<std::string, 3>> reads; // revision, digests of the content and of the file
    std::thread reader([&] {
        ServerProcess server(library.preferences());
        for (; writing && !::testing::Test::HasFailure(); std::this_thread::sleep_for(1ms)) {
            const Json note = succeeded(server.call("read_note", {{"path", "Contended.md"}}));
            reads.push_back({note.value("revision", ""), sha256Hex(note.value("content", "")),
                             sha256Hex(library.read("Contended.md"))});
        }
    });
    std::vector<Outcome> outcomes(kWriters);
    std::vector<std::thread> writers;
    for (int writer = 0; writer < kWriters; ++writer)
        writers.emplace_back([&, writer] { outcomes[writer] = runWriter(library, writer, updates); });
    std::ranges::for_each(writers, &std::thread::join);
    writing = false;
    reader.join();

    std::map<std::string, std::string> versions = {{sha256Hex(initial), sha256Hex("")}};
    std::set<std::string> created;
    int lostRaces = 0;
    for (const Outcome& outcome : outcomes) {
        EXPECT_EQ(outcome.updated, updates);
        lostRaces += outcome.lostRaces;
        for (const auto& version : outcome.versions)
            EXPECT_TRUE(versions.insert(version).second) << "two updates made revision " << version.first;
        for (const auto& path : outcome.created)
            EXPECT_TRUE(created.insert(path).second && library.exists(path)) << path;
    }
    // Every successful update left exactly one line, each writer's lines in their order: none
    // overwrote another, as two updates built on one revision would.
    std::istringstream body(library::parseNote(library.read("Contended.md"), "", std::nullopt, "").content);
    std::vector<int> nextLine(kWriters, 0);
    for (std::string line; std::getline(body, line);) {
        int writer = -1, number = -1;
        ASSERT_EQ(std::sscanf(line.c_str(), "w%d n%d r", &writer, &number), 2) << line;
        EXPECT_EQ(number, nextLine.at(writer)++) << line;
    }
    EXPECT_EQ(nextLine, std::vector<int>(kWriters, updates)) << "updates lost";
    EXPECT_TRUE(leftovers(library).empty()) << leftovers(library).front();
    // Creates racing for one title got distinct names, numbered without a gap.
    EXPECT_EQ(created.size(), std::size_t(kWriters * kCreatesPerWriter));
    for (int number = 1; number <= kWriters * kCreatesPerWriter; ++number)
        EXPECT_TRUE(created.contains(number == 1 ? "Race.md" : "Race " + std::to_string(number) + ".md"));

    for (const auto& [revision, digest, file] : reads) {
        EXPECT_EQ(versions[revision], digest) << "a read named a revision nobody wrote, or another body";
        EXPECT_TRUE(versions.contains(file)) << "the file was read in a state nobody wrote";
    }
    std::printf("[ torture ] %d updates, %d races lost and retried, %zu reads\n", kWriters * updates,
                lostRaces, reads.size());
}

} // namespace
} // namespace vorlo::testing
