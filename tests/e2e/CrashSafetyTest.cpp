// A server killed at a random moment while it writes: every note on disk is whole, the dead
// server's lock does not hold up the next writer, and what the kill left behind is never a note.
#include "e2e/Reliability.h"
#include "support/Repeated.h"

namespace vorlo::testing {
namespace {

constexpr std::string_view kLine = "A line of a large note, long enough to take a while to write.\n";

struct Figures {
    std::atomic<int> newBytes = 0, answered = 0, locksLeft = 0, recordless = 0, leftBehind = 0;
};

// One library with its own victims and survivor, killed `trials` times.
void runLane(int trials, std::uint64_t seed, Figures& figures) {
    std::mt19937_64 random(seed);
    TempLibrary library;
    // Megabytes, so that a kill falls inside the writing of the file as often as not; a request stays
    // below 1 MiB.
    const std::string body = repeated(kLine, 51000), createdBody = repeated(kLine, 14800);
    library.write("Large.md", "---\ntitle: \"Trial 0\"\n---\n" + body);
    const std::string small = readFile(library.write("Small.md", "---\ntitle: \"Small\"\n---\nUntouched.\n"));
    // The survivor writes after every kill, from another process; it never dies.
    ServerProcess survivor(library.preferences());
    int survivorNotes = 0;
    // How long an update takes from request to reply, so that the kills spread over all of it: the
    // request read, the scan, the lock, the write, the marker, the reply. The window then follows the
    // machine's pace: it shrinks a little after each write answered before its kill and grows after
    // each that was not, which keeps about six kills in ten inside the work however busy the machine.
    double window = 0;
    for (const char* title : {"Warm-up", "Measured"}) { // the first fills the caches
        const auto start = Clock::now();
        succeeded(survivor.call("update_note", updateOf(library, "Large.md", {{"title", title}})));
        window = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    }

    for (int trial = 1; trial <= trials && !::testing::Test::HasFatalFailure(); ++trial) {
        SCOPED_TRACE("trial " + std::to_string(trial) + " of lane seed " + std::to_string(seed));
        const std::string oldLarge = library.read("Large.md"), title = "Trial " + std::to_string(trial);
        const bool create = random() % 4 == 0;
        const Json arguments = create ? Json{{"title", title}, {"content", createdBody}}
                                      : updateOf(library, "Large.md", {{"title", title}});
        std::optional<std::string> reply;
        {
            // The victim answers a ping first, so that the delay counts from the request and not
            // from the start of the process.
            ServerProcess victim(library.preferences());
            EXPECT_TRUE(victim.send(victim.requestLine("ping", {}) + "\n") && victim.readLine());
            const std::string line =
                victim.requestLine("tools/call", {{"name", create ? "create_note" : "update_note"},
                                                  {"arguments", arguments}}) +
                "\n";
            std::thread sender([&] { victim.send(line); });
            std::this_thread::sleep_for(std::chrono::microseconds(random() % (std::uint64_t(window) + 1)));
            ::kill(victim.pid(), SIGKILL);
            sender.join();
            reply = victim.readLine(std::chrono::milliseconds(0));
        } // reaped here: a process not yet waited for still answers kill(pid, 0)
        figures.answered += reply.has_value();
        window *= reply ? 0.97 : 1.02;

        // Every note is its old bytes or its whole new ones, and a write reported is on disk.
        EXPECT_EQ(library.read("Small.md"), small);
        const std::string path = create ? title + ".md" : "Large.md";
        const bool changed = create ? library.exists(path) : library.read(path) != oldLarge;
        figures.newBytes += changed;
        if (changed) {
            const NoteRecord note = library::parseNote(library.read(path), "", std::nullopt, "");
            EXPECT_TRUE(note.title == title && note.id && note.modified) << "an incomplete header";
            EXPECT_TRUE(note.content == (create ? createdBody : body)) << "an incomplete body";
        }
        EXPECT_TRUE(changed || !reply || Json::parse(*reply)["result"].value("isError", true))
            << "the write was reported but is not on disk";
        // Created notes go again, so that later scans stay as quick as the first.
        if (create) std::filesystem::remove(library.path(path));

        // What the kill left of the lock: nothing, the dead owner's record, or (killed between
        // making the folder and renaming the record into it) a folder without one.
        const bool lockLeft = library.exists(kLock), recordless = lockLeft && !library.exists(kOwner);
        figures.locksLeft += lockLeft;
        figures.recordless += recordless;
        // The next writer goes through at once: a dead owner's lock is judged abandoned by its
        // process id. Only a lock without a record is waited out, for the two seconds that a lock
        // being taken is given.
        for (const auto deadline = Clock::now() + std::chrono::seconds(10);;) {
            const Json result =
                survivor.call("create_note", {{"title", "Survivor"}, {"folder", "Survivors"}});
            if (!result.value("isError", true)) break;
            ASSERT_EQ(errorText(result), kBusy);
            ASSERT_TRUE(recordless) << "the next writer was held up by a dead owner's lock";
            ASSERT_LT(Clock::now(), deadline) << "the lock was never cleared";
        }
        EXPECT_FALSE(library.exists(kLock));
        ++survivorNotes;

        // A temporary file left by the kill is hidden: no scan takes it for a note. Besides, only a
        // lock folder the dead writer was removing may be left, under a name no writer waits on.
        if (const auto left = leftovers(library); !left.empty()) {
            ++figures.leftBehind;
            EXPECT_EQ(succeeded(survivor.call("list_notes", {{"limit", 200}}))["total_matches"],
                      2 + survivorNotes);
            for (const auto& path : left) {
                EXPECT_NE(std::filesystem::path(path).filename(), "Library Mutation.lock") << path;
                std::filesystem::remove_all(library.path(path));
            }
        }
    }
    // The survivor's notes are all there.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(library.path("Survivors")), {}),
              survivorNotes);
}

TEST(CrashSafety, AWriterKilledAtAnyMomentLeavesEveryNoteWholeAndTheLibraryFree) {
    // Independent libraries side by side, so that one lane's sleeps, flushes and lock waits overlap
    // with another's work.
    constexpr int kLanes = 4;
    const int trials = sizeFromEnvironment("VORLO_CRASH_KILLS", 200, 1000);
    const int seed = sizeFromEnvironment("VORLO_CRASH_SEED", 20240501, 20240501);
    Figures figures;
    std::vector<std::thread> lanes;
    for (int lane = 0; lane < kLanes; ++lane)
        lanes.emplace_back(
            [&, lane] { runLane(trials / kLanes + (lane < trials % kLanes), seed + lane, figures); });
    std::ranges::for_each(lanes, &std::thread::join);
    std::printf("[ crash safety ] %d kills: %d new, %d answered, %d locks left, %d bare, %d leftovers\n",
                trials, figures.newBytes.load(), figures.answered.load(), figures.locksLeft.load(),
                figures.recordless.load(), figures.leftBehind.load());
}

} // namespace
} // namespace vorlo::testing
