// Every system call that create_note and update_note make, failed once in turn: the client gets a
// clear sentence, the note on disk is its old bytes or its complete new ones, nothing is left behind,
// and the next call goes through.
#include "e2e/WritingHelpers.h"
#include "library/NoteParser.h"
#include "platform/Crypto.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "platform/SystemCalls.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::testing {
namespace {

namespace stdfs = std::filesystem;
using sys::Call;

constexpr std::string_view kOriginal = "---\ntitle: \"Plan\"\n---\nThe original body.\n";
const std::string kWarningStart = "The note was saved, but Vorlo could not update its shared-library change marker: ";
const std::string kMarkerFailure = "The file \u201CVorlo Data/Locks/Last Mutation.json\u201D could not be written: ";
const std::string kMarkerFolderFailure = "The folder \u201CVorlo Data/Locks\u201D could not be created: ";
const int kErrors[] = {ENOSPC, EIO, EACCES, EEXIST, EINTR};
const std::string kLocks = "Vorlo Data/Locks/";

// What one failed call must lead to.
enum class Expect {
    Success, // retried or recovered from: the client never hears of it
    Warning, // the note is saved and the result carries the marker warning
    Failure, // the tool fails with the platform's description, and the note is as it was
};

// The part of a write that a traced call belongs to, told by the library-relative path it worked on.
enum class Phase {
    PrivateFolders, // opening or making the library, "Vorlo Data" and "Locks": the first step of taking the lock
    Lock,           // the lock folder and its owner record
    MovedAside,     // removing a lock moved aside, released or abandoned
    FolderFlush,    // making a rename durable; the rename has happened by then
    MarkerFolders,  // the same walk to "Locks" once more, for the marker, after the note is in place
    Marker,         // "Last Mutation.json"
    Note,           // the note's folders, its temporary file and its rename
};

// One call of a write as traced, with library-relative paths, and the part of the write it belongs to.
struct Step {
    sys::TracedCall call;
    Phase phase;
};

bool isTemporary(const std::string& path) {
    return stdfs::path(path).filename().string().starts_with(".Vorlo MCP ");
}

Phase phaseOf(Call call, const std::string& path) {
    if (path.starts_with(kLocks + "Library Mutation.lock")) return Phase::Lock;
    if (path.starts_with(kLocks + "Released ") || path.starts_with(kLocks + "Abandoned ")) return Phase::MovedAside;
    if ((call == Call::Open || call == Call::Fsync || call == Call::Close) && !isTemporary(path))
        return Phase::FolderFlush;
    if (path.starts_with(kLocks)) return Phase::Marker;
    if (path == "." || path == "Vorlo Data" || path == "Vorlo Data/Locks") return Phase::PrivateFolders;
    return Phase::Note;
}

// The walk to the private folders is made twice, for the lock and for the marker: the second comes
// after the note's own move, the one rename that happens outside "Locks".
std::vector<Step> stepsOf(const std::vector<sys::TracedCall>& calls) {
    std::size_t noteMoved = calls.size();
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const Call call = calls[i].call;
        if ((call == Call::Rename || call == Call::RenameNoReplace || call == Call::Link) &&
            !calls[i].path.starts_with(kLocks))
            noteMoved = i;
    }
    std::vector<Step> steps;
    for (std::size_t i = 0; i < calls.size(); ++i) {
        Phase phase = phaseOf(calls[i].call, calls[i].path);
        if (phase == Phase::PrivateFolders && noteMoved < i) phase = Phase::MarkerFolders;
        steps.push_back({calls[i], phase});
    }
    return steps;
}

Expect expectationFor(const Step& step, const sys::Fault& fault) {
    const sys::TracedCall& call = step.call;
    // A write is retried after an interruption and continued after a short count.
    if (call.call == Call::Write && (fault.errorNumber == EINTR || fault.shortWrite)) return Expect::Success;
    // A file system without an exclusive rename: the move goes by hard link instead.
    if (call.call == Call::RenameNoReplace &&
        (fault.errorNumber == EINVAL || fault.errorNumber == ENOSYS || fault.errorNumber == ENOTSUP))
        return Expect::Success;
    // In a write that goes well a temporary file is only ever unlinked once the note stands under
    // its name (after a move by hard link), and the removal is tried once more.
    if (call.call == Call::Unlink && isTemporary(call.path)) return Expect::Success;
    switch (step.phase) {
    case Phase::Lock:        // a failed attempt is cleared away and the next one runs at once
    case Phase::MovedAside:  // the lock's name is free already; a leftover folder is harmless
    case Phase::FolderFlush: return Expect::Success;
    case Phase::MarkerFolders:
    case Phase::Marker: return Expect::Warning;
    case Phase::PrivateFolders:
    case Phase::Note: return Expect::Failure;
    }
    return Expect::Failure;
}

const char* describe(Expect expect) {
    switch (expect) {
    case Expect::Success: return "a plain success";
    case Expect::Warning: return "a success with the marker warning";
    case Expect::Failure: return "a failure";
    }
    return "?";
}

// Every entry below the library with the bytes of its files; folders made on the way to a new note
// and the private data folder are left out, as a failed write may leave those behind.
std::map<std::string, std::string> notesOf(const TempLibrary& library) {
    std::map<std::string, std::string> files;
    for (const auto& entry : stdfs::recursive_directory_iterator(library.library())) {
        const std::string relative = entry.path().string().substr(library.library().size() + 1);
        if (entry.is_regular_file() && !relative.starts_with("Vorlo Data/"))
            files[relative] = readFile(entry.path().string());
    }
    return files;
}

struct Operation {
    std::string name;
    // Makes the library that every trial of this operation starts from.
    std::function<void(const TempLibrary&)> prepare;
    // The call under test, and a second one that must succeed once the fault has passed.
    std::function<Json(const TempLibrary&)> run;
    std::function<Json(const TempLibrary&)> runAgain;
    // Checks that the call's effect is complete on disk, given its successful structured result.
    std::function<void(const TempLibrary&, const Json&)> checkSaved;
};

Json updateCall(const TempLibrary& library, const std::string& content) {
    return library.call("update_note", {{"path", "Notes/Plan.md"},
                                        {"expected_revision", sha256Hex(library.read("Notes/Plan.md"))},
                                        {"content", content}});
}

// Large enough that a short write leaves most of it unwritten.
const std::string kNewBody = std::string(200000, 'x') + "\nThe new body.\n";

void checkNoteFile(const TempLibrary& library, const std::string& path, const Json& result) {
    const std::string bytes = library.read(path);
    EXPECT_EQ(result["note"]["path"], path);
    EXPECT_EQ(result["note"]["revision"], sha256Hex(bytes));
    EXPECT_EQ(library::parseNote(bytes, path, std::nullopt, "").content, kNewBody);
    EXPECT_EQ(modeOf(library.path(path)), 0600u);
}

const Operation kUpdate = {
    "update_note",
    [](const TempLibrary& library) { library.write("Notes/Plan.md", kOriginal); },
    [](const TempLibrary& library) { return updateCall(library, kNewBody); },
    [](const TempLibrary& library) { return updateCall(library, "Again.\n"); },
    [](const TempLibrary& library, const Json& result) { checkNoteFile(library, "Notes/Plan.md", result); },
};

// The same update, with the lock left behind by a writer that died: it is moved aside first.
const Operation kUpdatePastADeadWriter = {
    "update_note past a dead writer's lock",
    [](const TempLibrary& library) {
        library.write("Notes/Plan.md", kOriginal);
        // No process has this id: it lies above every system's highest.
        library.write(kLocks + "Library Mutation.lock/Owner.json",
                      Json{{"token", Uuid::random().text()},
                           {"processID", 2147483647},
                           {"hostName", process::hostName()},
                           {"createdAt", formatIso8601(currentTime())}}
                          .dump(2));
    },
    kUpdate.run,
    kUpdate.runAgain,
    kUpdate.checkSaved,
};

// A first write to a fresh library: the private folders, the note's folders and a name collision
// are all on its way.
const Operation kCreate = {
    "create_note",
    [](const TempLibrary& library) {
        library.write("Projects/Plan.md", kOriginal);
    },
    [](const TempLibrary& library) {
        return library.call("create_note", {{"title", "Plan"}, {"folder", "Projects/New/Deep"}, {"content", kNewBody}});
    },
    [](const TempLibrary& library) { return library.call("create_note", {{"title", "Plan"}, {"content", "Later"}}); },
    [](const TempLibrary& library, const Json& result) {
        checkNoteFile(library, "Projects/New/Deep/Plan.md", result);
    },
};

// The traced path made relative to the library (both sides of a rename); the library itself is ".".
std::string relativeTo(const TempLibrary& library, std::string path) {
    if (path == library.library()) return ".";
    const std::string prefix = library.library() + "/";
    for (std::size_t at; (at = path.find(prefix)) != std::string::npos;)
        path.erase(at, prefix.size());
    return path;
}

// The calls that `operation` makes when `faults` (possibly none) are injected, with library-relative
// paths.
std::vector<Step> traceOf(const Operation& operation, const std::vector<sys::Fault>& faults) {
    TempLibrary library;
    operation.prepare(library);
    sys::FaultInjection tracing(faults);
    const Json reply = operation.run(library);
    EXPECT_FALSE(reply["result"].value("isError", true)) << reply.dump();
    std::vector<sys::TracedCall> calls = tracing.calls();
    for (auto& call : calls)
        call.path = relativeTo(library, call.path);
    return stepsOf(calls);
}

// The trials test what each failure leads to, not what reaches the disk after a power cut, so their
// libraries may live in memory where there is such a file system: hundreds of trials that flush
// every file then take seconds, not a minute, on a busy disk.
class LibrariesInMemory {
public:
    LibrariesInMemory() {
        if (const char* old = std::getenv("TMPDIR")) previous_ = old;
        struct stat status;
        if (::stat("/dev/shm", &status) == 0 && S_ISDIR(status.st_mode) && ::access("/dev/shm", W_OK) == 0)
            ::setenv("TMPDIR", "/dev/shm", 1);
    }
    ~LibrariesInMemory() {
        if (previous_) ::setenv("TMPDIR", previous_->c_str(), 1);
        else ::unsetenv("TMPDIR");
    }
    LibrariesInMemory(const LibrariesInMemory&) = delete;
    LibrariesInMemory& operator=(const LibrariesInMemory&) = delete;

private:
    std::optional<std::string> previous_;
};

// What the trials of one test added up to, printed at its end for the record.
std::size_t gFaultsInjected = 0;
std::size_t gTrials = 0;

void printTally(const char* what) {
    std::printf("[ fault injection ] %zu faults injected in %zu trials: %s\n", gFaultsInjected, gTrials, what);
    gFaultsInjected = gTrials = 0;
}

// Runs `operation` once with `faults` and checks what the last of them must lead to, and that
// nothing is lost or left behind.
void runTrial(const Operation& operation, const std::vector<sys::Fault>& faults, const Step& step) {
    const sys::TracedCall& call = step.call;
    const sys::Fault& fault = faults.back();
    const Expect expect = expectationFor(step, fault);
    SCOPED_TRACE(operation.name + ": call " + std::to_string(fault.call) + ", " + sys::callName(call.call) + " " +
                 call.path + ": " + (fault.shortWrite ? "short write" : std::strerror(fault.errorNumber)) +
                 ", expecting " + describe(expect));
    TempLibrary library;
    operation.prepare(library);
    const auto before = notesOf(library);
    const auto leftBefore = leftovers(library);

    Json reply;
    {
        sys::FaultInjection injection(faults);
        reply = operation.run(library);
        gFaultsInjected += injection.faultsInjected();
        EXPECT_EQ(injection.faultsInjected(), faults.size()) << "a planned fault was never reached";
    }
    ++gTrials;
    ASSERT_TRUE(reply.is_object() && reply.contains("result")) << reply.dump();
    const Json& result = reply["result"];
    const char* home = std::getenv("HOME");
    const auto revealsAbsolutePath = [&](const std::string& text) {
        return text.find(library.root()) != std::string::npos ||
               (home != nullptr && std::strlen(home) > 1 && text.find(home) != std::string::npos);
    };

    if (result.value("isError", false)) {
        const std::string text = errorText(result);
        EXPECT_EQ(expect, Expect::Failure) << "got the failure: " << text;
        // One sentence built from the operation, a library-relative path and the system's words.
        EXPECT_TRUE(text.starts_with("The ") && text.ends_with(".")) << text;
        EXPECT_NE(text.find(" could not be "), std::string::npos) << text;
        EXPECT_NE(text.find(std::strerror(fault.errorNumber)), std::string::npos) << text;
        EXPECT_FALSE(revealsAbsolutePath(text)) << text;
        EXPECT_EQ(notesOf(library), before) << "a failed write changed a note";
    } else {
        const Json structured = succeeded(result);
        operation.checkSaved(library, structured);
        auto after = notesOf(library);
        for (const auto& [path, bytes] : before) {
            if (path != structured["note"]["path"]) {
                EXPECT_EQ(after[path], bytes) << path;
            }
        }
        if (structured.contains("monitoring_warning")) {
            const std::string warning = structured["monitoring_warning"];
            EXPECT_EQ(expect, Expect::Warning) << "got the warning: " << warning;
            EXPECT_EQ(warning, kWarningStart + (step.phase == Phase::MarkerFolders ? kMarkerFolderFailure : kMarkerFailure) +
                                   std::strerror(fault.errorNumber) + ".");
            EXPECT_FALSE(revealsAbsolutePath(warning)) << warning;
        } else {
            EXPECT_EQ(expect, Expect::Success) << "got a plain success";
        }
    }

    // Nothing is left behind: no temporary file anywhere, and the lock is free. A lock folder moved
    // aside whose removal failed is the one harmless leftover, and only when that removal was hit; a
    // dead writer's lock stays where a failure came before anyone could reach it.
    for (const std::string& left : leftovers(library)) {
        const bool allowed = (step.phase == Phase::MovedAside &&
                              (left.starts_with(kLocks + "Released ") || left.starts_with(kLocks + "Abandoned "))) ||
                             (expect == Expect::Failure &&
                              std::find(leftBefore.begin(), leftBefore.end(), left) != leftBefore.end());
        EXPECT_TRUE(allowed) << "left behind: " << left;
    }

    // The next call, with no fault, goes through: a lock still held would make it report busy.
    const Json again = operation.runAgain(library);
    EXPECT_FALSE(again["result"].value("isError", true)) << again.dump();
    EXPECT_TRUE(leftovers(library).empty() || step.phase == Phase::MovedAside);
}

// Fails every call in `calls` from number `from` on, once per error (and once short, for a write),
// each on top of the faults in `before`.
void failEachCall(const Operation& operation, const std::vector<Step>& steps, std::uint64_t from,
                  const std::vector<sys::Fault>& before) {
    for (std::uint64_t number = from; number <= steps.size(); ++number) {
        const Step& step = steps[number - 1];
        std::vector<sys::Fault> faults = before;
        for (const int error : kErrors) {
            faults.push_back({number, error, false});
            runTrial(operation, faults, step);
            faults.pop_back();
        }
        if (step.call.call == Call::Write) {
            faults.push_back({number, 0, true});
            runTrial(operation, faults, step);
        }
        if (::testing::Test::HasFatalFailure()) return;
    }
}

TEST(FaultInjection, EveryFailedCallOfAWriteLeavesTheLibraryConsistent) {
    const LibrariesInMemory inMemory;
    for (const Operation* operation : {&kUpdate, &kCreate, &kUpdatePastADeadWriter}) {
        const auto steps = traceOf(*operation, {});
        // Every kind of call is on the way, so a write that bypassed the seam would show here.
        std::set<Call> kinds;
        std::set<Phase> phases;
        for (const auto& step : steps) {
            kinds.insert(step.call.call);
            phases.insert(step.phase);
        }
        for (const Call kind : {Call::Open, Call::OpenFolder, Call::Write, Call::Fsync, Call::Fchmod, Call::Close,
                                Call::Rename, Call::Mkdir, Call::Unlink, Call::Rmdir})
            EXPECT_TRUE(kinds.contains(kind)) << operation->name << " made no " << sys::callName(kind);
        for (const Phase phase : {Phase::PrivateFolders, Phase::Lock, Phase::MovedAside, Phase::FolderFlush,
                                  Phase::MarkerFolders, Phase::Marker, Phase::Note})
            EXPECT_TRUE(phases.contains(phase)) << operation->name << " lacks a phase: " << static_cast<int>(phase);
        if (operation == &kCreate) {
            EXPECT_TRUE(kinds.contains(Call::RenameNoReplace));
        }
        if (operation == &kUpdatePastADeadWriter) {
            EXPECT_TRUE(std::any_of(steps.begin(), steps.end(), [](const Step& step) {
                return step.call.path.find("Abandoned ") != std::string::npos;
            })) << "the dead writer's lock was not moved aside";
        }
        failEachCall(*operation, steps, 1, {});
    }
    printTally("every call of create_note and update_note, the latter also past a dead writer's lock");
}

// A file system without an exclusive rename: the new note arrives by a hard link, and the temporary
// name is removed afterwards. Every call on that road is failed in turn as well.
TEST(FaultInjection, EveryFailedCallOfTheHardLinkFallbackIsHandledAlike) {
    const LibrariesInMemory inMemory;
    const auto steps = traceOf(kCreate, {});
    std::uint64_t exclusiveRename = 0;
    for (std::uint64_t i = 0; i < steps.size(); ++i)
        if (steps[i].call.call == Call::RenameNoReplace) exclusiveRename = i + 1;
    ASSERT_NE(exclusiveRename, 0u);
    for (const int missing : {EINVAL, ENOSYS, ENOTSUP}) {
        const std::vector<sys::Fault> noExclusiveRename = {{exclusiveRename, missing, false}};
        const auto fallback = traceOf(kCreate, noExclusiveRename);
        ASSERT_GT(fallback.size(), exclusiveRename + 1);
        EXPECT_EQ(fallback[exclusiveRename].call.call, Call::Link);
        runTrial(kCreate, noExclusiveRename, fallback[exclusiveRename - 1]);
        if (missing == EINVAL) failEachCall(kCreate, fallback, exclusiveRename + 1, noExclusiveRename);
    }
    printTally("the hard-link fallback of create_note");
}

} // namespace
} // namespace vorlo::testing
