// A server killed at a random moment while it writes: every note on disk is whole, the dead
// server's lock does not hold up the next writer, and what the kill left behind is never a note.
#include "e2e/WritingHelpers.h"
#include "library/NoteParser.h"
#include "mutation/NoteRenderer.h"
#include "platform/Crypto.h"
#include "platform/Time.h"
#include "support/ServerProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <set>
#include <thread>

namespace vorlo::testing {
namespace {

namespace stdfs = std::filesystem;
using Clock = std::chrono::steady_clock;

const std::string kBusy = "The Vorlo library is busy. Wait a moment and try again.";
constexpr std::string_view kLock = "Vorlo Data/Locks/Library Mutation.lock";
constexpr std::string_view kOwner = "Vorlo Data/Locks/Library Mutation.lock/Owner.json";

// A body of several megabytes, so that a kill falls inside the writing of the file as often as not.
std::string largeBody(std::size_t bytes) {
    std::string body;
    body.reserve(bytes + 80);
    for (int line = 0; body.size() < bytes; ++line)
        body += "Line " + std::to_string(line) + " of a large note, long enough to take a while to write.\n";
    return body;
}

// `bytes` is a whole note as the server renders it with the fields given, its own id and dates
// aside: the header complete, the body complete, nothing after it.
void expectRenderedNote(const std::string& bytes, const std::string& title, const std::string& body) {
    const NoteRecord record = library::parseNote(bytes, "", std::nullopt, "");
    ASSERT_EQ(record.title, title);
    ASSERT_TRUE(record.id && record.created && record.modified);
    const auto id = Uuid::parse(*record.id);
    const auto created = parseIso8601(*record.created), modified = parseIso8601(*record.modified);
    ASSERT_TRUE(id && created && modified);
    const std::string expected =
        mutation::renderNote({*id, title, *created, *modified, {}, false, false, body});
    ASSERT_EQ(bytes.size(), expected.size());
    ASSERT_TRUE(bytes == expected) << "the note's bytes are not those the server renders";
}

// The hidden temporary files of the library's root, where every write of this test goes.
std::set<std::string> temporaryFiles(const TempLibrary& library) {
    std::set<std::string> names;
    for (const auto& entry : stdfs::directory_iterator(library.library())) {
        const std::string name = entry.path().filename().string();
        if (name.starts_with(".Vorlo MCP ")) names.insert(name);
    }
    return names;
}

struct Figures {
    int kills = 0;
    int updates = 0, creates = 0;
    int oldBytes = 0, newBytes = 0, answered = 0;
    int locksLeft = 0, recordlessLocks = 0, temporaryFilesLeft = 0;
    std::size_t noteBytes = 0;
};

// One library with its own victims and survivor, killed `trials` times.
void runLane(int trials, std::uint64_t seed, Figures& figures) {
    std::mt19937_64 random(seed);

    TempLibrary library;
    const std::string body = largeBody(3 * 1024 * 1024);
    const std::string createdBody = largeBody(900 * 1024); // a request line stays below 1 MiB
    const Timestamp start = currentTime();
    library.write("Large.md",
                  mutation::renderNote({Uuid::random(), "Trial 0", start, start, {}, false, false, body}));
    library.write("Small.md", "---\ntitle: \"Small\"\n---\nUntouched.\n");
    const std::string small = library.read("Small.md");

    // The survivor writes after every kill from another process; it never dies.
    ServerProcess survivor(library.preferences());
    int survivorNotes = 0;

    // How long one update of the large note takes from request to reply, so that the kills spread
    // over the whole of it: reading the request, the scan, the lock, the write, the marker, the reply.
    std::vector<Clock::duration> durations;
    for (int i = 0; i < 3; ++i) {
        const std::string title = "Warm-up " + std::to_string(i);
        const auto before = Clock::now();
        succeeded(survivor.call("update_note", {{"path", "Large.md"},
                                                {"expected_revision", sha256Hex(library.read("Large.md"))},
                                                {"title", title}}));
        durations.push_back(Clock::now() - before);
    }
    std::sort(durations.begin(), durations.end());
    // The window then follows the machine's pace: it shrinks a little after each write that was
    // answered before its kill and grows after each that was not, which keeps about six kills in ten
    // inside the work however busy the machine is.
    double window = static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(durations[1]).count());

    for (int trial = 1; trial <= trials && !::testing::Test::HasFatalFailure(); ++trial) {
        SCOPED_TRACE("trial " + std::to_string(trial) + " of lane seed " + std::to_string(seed));
        const std::string oldLarge = library.read("Large.md");
        const bool create = random() % 4 == 0;
        const std::string title = "Trial " + std::to_string(trial);
        const auto delay = std::chrono::microseconds(random() % (static_cast<std::uint64_t>(window) + 1));
        const auto temporaryBefore = temporaryFiles(library);

        // The victim is started and answers a ping before its write is sent, so that the delay
        // counts from the request and not from the start of the process.
        std::optional<std::string> reply;
        {
            ServerProcess victim(library.preferences());
            victim.request({{"jsonrpc", "2.0"}, {"id", 0}, {"method", "ping"}});
            const Json arguments =
                create ? Json{{"title", title}, {"content", createdBody}}
                       : Json{{"path", "Large.md"}, {"expected_revision", sha256Hex(oldLarge)}, {"title", title}};
            const Json request = {{"jsonrpc", "2.0"},
                                  {"id", 1},
                                  {"method", "tools/call"},
                                  {"params", {{"name", create ? "create_note" : "update_note"}, {"arguments", arguments}}}};
            std::thread sender([&] { victim.send(request.dump() + "\n"); });
            std::this_thread::sleep_for(delay);
            ::kill(victim.pid(), SIGKILL);
            sender.join();
            reply = victim.readLine(std::chrono::milliseconds(0));
        } // reaped here: a process that has not been waited for still answers kill(pid, 0)
        ++figures.kills;
        if (reply) ++figures.answered;
        window *= reply ? 0.97 : 1.02;
        const bool reportedSuccess = reply && !Json::parse(*reply)["result"].value("isError", true);

        // Every note is its old bytes or its whole new ones.
        EXPECT_EQ(library.read("Small.md"), small);
        if (create) {
            ++figures.creates;
            if (library.exists(title + ".md")) {
                ++figures.newBytes;
                expectRenderedNote(library.read(title + ".md"), title, createdBody);
                // Created notes are taken away again, so that later scans stay as quick as the first.
                stdfs::remove(library.path(title + ".md"));
            } else {
                ++figures.oldBytes;
                EXPECT_FALSE(reportedSuccess) << "the note was reported created but is missing";
            }
        } else {
            ++figures.updates;
            const std::string now = library.read("Large.md");
            if (now == oldLarge) {
                ++figures.oldBytes;
                EXPECT_FALSE(reportedSuccess) << "the update was reported but is not on disk";
            } else {
                ++figures.newBytes;
                expectRenderedNote(now, title, body);
            }
        }

        // What the kill left of the lock: nothing, a lock with the dead owner's record, or (killed
        // between making the folder and renaming the record into it) a folder without one.
        const bool lockLeft = library.exists(kLock);
        const bool recordless = lockLeft && !library.exists(kOwner);
        figures.locksLeft += lockLeft;
        figures.recordlessLocks += recordless;

        // The next writer, in another process, goes through at once: a dead owner's lock is judged
        // abandoned by its process id. Only a lock without a record must be waited out, for the two
        // seconds that a lock being taken is given.
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        for (int attempt = 1;; ++attempt) {
            const Json result = survivor.call("create_note", {{"title", "Survivor"}, {"folder", "Survivors"}});
            if (!result.value("isError", true)) {
                ++survivorNotes;
                break;
            }
            const std::string text = errorText(result);
            ASSERT_EQ(text, kBusy);
            ASSERT_TRUE(recordless) << "the next writer was held up by a dead owner's lock";
            ASSERT_LT(Clock::now(), deadline) << "the lock was never cleared";
        }
        EXPECT_FALSE(library.exists(kLock));

        // A temporary file left by the kill is hidden: no scan takes it for a note.
        const auto temporaryAfter = temporaryFiles(library);
        if (temporaryAfter != temporaryBefore) {
            ++figures.temporaryFilesLeft;
            const Json listed = succeeded(survivor.call("list_notes", {{"limit", 200}}));
            for (const auto& note : listed["notes"])
                EXPECT_EQ(note["path"].get<std::string>().find(".Vorlo MCP "), std::string::npos) << note.dump();
            EXPECT_EQ(listed["total_matches"], 2 + survivorNotes);
            for (const auto& name : temporaryAfter)
                stdfs::remove(library.path(name));
        }
    }

    // Every survivor note is there and whole, numbered without a gap.
    EXPECT_TRUE(library.exists("Survivors/Survivor.md"));
    EXPECT_TRUE(library.exists("Survivors/Survivor " + std::to_string(survivorNotes) + ".md"));
    EXPECT_FALSE(library.exists("Survivors/Survivor " + std::to_string(survivorNotes + 1) + ".md"));

    figures.noteBytes = body.size();
}

TEST(CrashSafety, AWriterKilledAtAnyMomentLeavesEveryNoteWholeAndTheLibraryFree) {
    // Independent libraries side by side, so that one lane's sleeps, flushes and lock waits overlap
    // with another's work.
    constexpr int kLanes = 4;
    const int trials = longTests() ? 1000 : 200;
    std::uint64_t seed = 20240501;
    if (const char* value = std::getenv("VORLO_CRASH_SEED")) seed = std::strtoull(value, nullptr, 10);
    std::vector<Figures> lanes(kLanes);
    std::vector<std::thread> threads;
    for (int lane = 0; lane < kLanes; ++lane)
        threads.emplace_back([&, lane] {
            runLane(trials / kLanes + (lane < trials % kLanes ? 1 : 0), seed + lane, lanes[lane]);
        });
    for (auto& thread : threads)
        thread.join();

    Figures figures;
    for (const Figures& lane : lanes) {
        figures.kills += lane.kills;
        figures.updates += lane.updates;
        figures.creates += lane.creates;
        figures.oldBytes += lane.oldBytes;
        figures.newBytes += lane.newBytes;
        figures.answered += lane.answered;
        figures.locksLeft += lane.locksLeft;
        figures.recordlessLocks += lane.recordlessLocks;
        figures.temporaryFilesLeft += lane.temporaryFilesLeft;
    }
    EXPECT_EQ(figures.kills, trials);
    std::printf("[ crash safety ] seed %llu: %d kills survived (%d updates of a %zu-byte note, %d creates), "
                "%d notes left at their old bytes, %d at their new ones, %d writes answered before the kill, "
                "%d locks left by the dead (%d without a record), %d kills left a temporary file\n",
                static_cast<unsigned long long>(seed), figures.kills, figures.updates, lanes[0].noteBytes,
                figures.creates, figures.oldBytes, figures.newBytes, figures.answered, figures.locksLeft,
                figures.recordlessLocks, figures.temporaryFilesLeft);
}

} // namespace
} // namespace vorlo::testing
