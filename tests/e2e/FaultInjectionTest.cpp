// Every system call that create_note and update_note make, failed once in turn: the client gets a
// clear sentence, the note on disk is its old bytes or its complete new ones, nothing is left behind,
// and the next call goes through.
#include "e2e/Reliability.h"
#include "platform/SystemCalls.h"

#include <cstring>
#include <regex>

namespace vorlo::testing {
namespace {

using sys::Call;

const std::string kLocks = "Vorlo Data/Locks/", kMarker = kLocks + "Last Mutation.json";
const std::string kNewBody = std::string(200000, 'x') + "\nThe new body.\n"; // a short write leaves most
const std::string kWarning =
    "The note was saved, but Vorlo could not update its shared-library change marker: ";

// A traced call, with library-relative paths, and whether it comes after the note was moved into
// place (by the one rename outside "Locks").
struct Step {
    sys::TracedCall call;
    bool afterTheNote;
};

// The errors each call is failed with; 0 is a short write, and the last three say that a file system
// has no exclusive rename.
// clang-format off
const std::pair<int, std::optional<Call>> kErrors[] = {
    {ENOSPC, {}}, {EIO, {}}, {EACCES, {}}, {EEXIST, {}}, {EINTR, {}}, {0, Call::Write},
    {EINVAL, Call::RenameNoReplace}, {ENOSYS, Call::RenameNoReplace}, {ENOTSUP, Call::RenameNoReplace}};
// clang-format on

// What failing `step` must lead to: a failure (absent), a plain success (""), or a success with
// the marker's warning.
std::optional<std::string> expectationFor(const Step& step, const sys::Fault& fault) {
    const auto& [call, path] = step.call;
    const int error = fault.errorNumber;
    // Unheard of by the client: a write is retried after an interruption and continued after a short
    // count; a file system without an exclusive rename gets a hard link instead; a temporary file is
    // unlinked only once the note stands under its name, and that is tried again; a failed attempt
    // at the lock is cleared away and the next runs at once; a lock moved aside has freed the name
    // already; and a folder is flushed after the rename in it has happened.
    if ((call == Call::Write && (error == EINTR || fault.shortWrite)) ||
        (call == Call::RenameNoReplace && (error == EINVAL || error == ENOSYS || error == ENOTSUP)) ||
        (call == Call::Unlink && isTemporary(path)) || path.starts_with(kLocks + "Library Mutation.lock") ||
        isMovedAside(path) ||
        ((call == Call::Open || call == Call::Fsync || call == Call::Close) && !isTemporary(path)))
        return "";
    // The marker, and the walk to its folder once more, come after the note is in place.
    const std::string why = std::strerror(error) + std::string(".");
    if (path.starts_with(kLocks))
        return kWarning + "The file \u201C" + kMarker + "\u201D could not be written: " + why;
    if (step.afterTheNote && (path == "." || path == "Vorlo Data" || path == "Vorlo Data/Locks"))
        return kWarning + "The folder \u201CVorlo Data/Locks\u201D could not be created: " + why;
    return std::nullopt;
}

// The writes under test, each from a library of one note: an update, the same past the lock of a
// writer that died (no process has its id, above every system's highest), and a first create into
// new folders.
enum Operation { Update, UpdatePastADeadWriter, Create };
const char* const kOperations[] = {"update_note", "update_note past a dead writer's lock", "create_note"};

// The trials test what each failure leads to, not what reaches the disk after a power cut, so their
// libraries live in memory where there is such a file system: hundreds of trials that flush every
// file then take seconds, not a minute, on a busy disk.
const char* const kMemory = ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : std::getenv("TMPDIR");

void prepare(const TempLibrary& library, Operation operation) {
    library.write("Notes/Plan.md", "---\ntitle: \"Plan\"\n---\nThe original body.\n");
    if (operation == UpdatePastADeadWriter)
        library.write(
            kOwner, R"({"token":"0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D","processID":2147483647,"hostName":")" +
                        process::hostName() + R"(","createdAt":"2024-05-01T12:00:00Z"})");
}
Json write(const TempLibrary& library, Operation operation, const std::string& content) {
    const Json reply =
        operation == Create
            ? library.call("create_note",
                           {{"title", "Plan"}, {"folder", "Notes/New/Deep"}, {"content", content}})
            : library.call("update_note", updateOf(library, "Notes/Plan.md", {{"content", content}}));
    return reply.value("result", Json::object());
}

std::vector<Step> traceOf(Operation operation, const std::vector<sys::Fault>& faults) {
    const TempLibrary library(kMemory);
    prepare(library, operation);
    const sys::FaultInjection tracing(faults);
    succeeded(write(library, operation, kNewBody));
    std::vector<Step> steps;
    bool afterTheNote = false;
    for (auto [call, path] : tracing.calls()) {
        path = path == library.library() ? "." : path;
        for (std::size_t at; (at = path.find(library.library() + "/")) != std::string::npos;)
            path.erase(at, library.library().size() + 1); // both sides of a rename
        steps.push_back({{call, path}, afterTheNote});
        afterTheNote |= (call == Call::Rename || call == Call::RenameNoReplace || call == Call::Link) &&
                        !path.starts_with(kLocks);
    }
    return steps;
}

// Runs `operation` with `faults` and checks what the last of them must lead to, that nothing is
// lost or left behind, and that the next write goes through.
void runTrial(Operation operation, const std::vector<sys::Fault>& faults, const Step& step) {
    const sys::Fault& fault = faults.back();
    const auto expected = expectationFor(step, fault);
    const std::string error = std::strerror(fault.errorNumber);
    SCOPED_TRACE(kOperations[operation] + std::string(": call ") + std::to_string(fault.call) + ", " +
                 sys::callName(step.call.call) + " " + step.call.path + ": " +
                 (fault.shortWrite ? "short write" : error) + ", expecting " +
                 (expected ? "success with \"" + *expected + "\"" : "a failure"));
    const TempLibrary library(kMemory);
    prepare(library, operation);
    const std::string notePath = operation == Create ? "Notes/New/Deep/Plan.md" : "Notes/Plan.md";
    // Files only, and none in the private folder: a failed write may leave the folders it made.
    auto before = snapshot(library.library(), "Vorlo Data", false);
    const auto leftBefore = leftovers(library);
    const sys::FaultInjection injection(faults); // the write's own faults; none are planned after it
    const Json result = write(library, operation, kNewBody);
    EXPECT_EQ(injection.faultsInjected(), faults.size()) << "a planned fault was never reached";

    const bool failed = result.value("isError", false);
    EXPECT_EQ(failed, !expected) << result;
    if (failed) {
        // One sentence from the operation, a library-relative path and the system's words; nothing
        // of where the library lies.
        const std::string text = errorText(result);
        const std::regex sentence("The (file|folder)( \u201C[^/].*\u201D)? could not be [a-z]+: " + error +
                                  "\\.");
        EXPECT_TRUE(std::regex_match(text, sentence) && text.find(library.root()) == std::string::npos)
            << text;
    } else {
        const Json saved = result.value("structuredContent", Json::object());
        const std::string bytes = library.read(notePath);
        EXPECT_EQ(
            Json({saved.value("monitoring_warning", ""), saved["note"]["path"], saved["note"]["revision"],
                  library::parseNote(bytes, "", std::nullopt, "").content, modeOf(library.path(notePath))}),
            Json({expected.value_or(""), notePath, sha256Hex(bytes), kNewBody, 0600}));
        before[notePath] = bytes;
    }
    EXPECT_EQ(snapshot(library.library(), "Vorlo Data", false), before)
        << "a write changed another note, or a failed one its own";
    // No temporary file anywhere, and the lock free. A lock moved aside whose removal failed is the
    // one harmless leftover; a dead writer's lock stays where a failure came before it was reached.
    for (const std::string& left : leftovers(library))
        EXPECT_TRUE((isMovedAside(step.call.path) && isMovedAside(left)) ||
                    (failed && std::ranges::count(leftBefore, left) == 1))
            << "left behind: " << left;

    // The next write goes through (a lock still held would make it report busy), and leaves a new
    // change marker, private to the user, for others to notice.
    const std::string oldToken =
        library.exists(kMarker) ? Json::parse(library.read(kMarker)).value("token", "") : "";
    succeeded(write(library, operation, "Again.\n"));
    EXPECT_TRUE(leftovers(library).empty() || isMovedAside(step.call.path));
    const Json marker = Json::parse(library.read(kMarker));
    EXPECT_TRUE(marker.size() == 2 && Uuid::parse(marker.value("token", "")) &&
                parseIso8601(marker.value("createdAt", "")) && marker["token"] != oldToken &&
                modeOf(library.path(kMarker)) == 0600)
        << marker;
}

// The last of the writes is a create on a file system without an exclusive rename: the new note
// arrives by a hard link, and the temporary name is removed afterwards; every call on that road is
// failed in turn as well.
TEST(FaultInjection, EveryFailedCallOfAWriteLeavesTheLibraryConsistent) {
    for (const auto& [operation, byHardLink] :
         {std::pair(Update, false), {UpdatePastADeadWriter, false}, {Create, false}, {Create, true}}) {
        SCOPED_TRACE(kOperations[operation] + std::string(byHardLink ? " by a hard link" : ""));
        std::vector<sys::Fault> before; // by a hard link: the exclusive rename refused as unsupported
        auto steps = traceOf(operation, before);
        if (byHardLink) {
            const auto rename =
                std::ranges::find(steps, Call::RenameNoReplace, [](auto& s) { return s.call.call; });
            before = {{std::uint64_t(rename - steps.begin()) + 1, EINVAL}};
            ASSERT_EQ((steps = traceOf(Create, before)).at(before[0].call).call.call, Call::Link);
        }
        const std::uint64_t from = before.empty() ? 1 : before[0].call + 1; // the hard link's number
        // Every kind of outcome is on the way, and the dead writer's lock is moved aside: the trials
        // cover every path of the write. One durable write a change: the note's file and then its
        // folder reach the disk, and nothing of the lock or the marker waits for it.
        std::set<std::optional<std::string>> outcomes;
        std::string paths, flushed;
        for (const Step& step : steps) {
            outcomes.insert(expectationFor(step, {1, EIO}));
            paths += step.call.path + "\n";
            if (step.call.call == Call::Fsync) flushed += step.call.path + "\n";
        }
        EXPECT_EQ(outcomes.size(), 4u) << "success, failure, and either warning";
        EXPECT_EQ(paths.find("Abandoned ") != std::string::npos, operation == UpdatePastADeadWriter);
        const std::string folder = operation == Create ? "Notes/New/Deep" : "Notes";
        EXPECT_TRUE(std::regex_match(flushed, std::regex(folder + "/\\.Vorlo MCP .*\n" + folder + "\n")))
            << flushed;
        // Then every call from number `from` on fails in turn with every error its call can meet, on
        // top of the faults `before`.
        for (std::uint64_t number = from; number <= steps.size() && !HasFatalFailure(); ++number)
            for (const auto& [error, only] : kErrors)
                if (!only || steps[number - 1].call.call == *only) {
                    std::vector<sys::Fault> faults = before;
                    faults.push_back({number, error, error == 0});
                    runTrial(operation, faults, steps[number - 1]);
                }
    }
}

} // namespace
} // namespace vorlo::testing
