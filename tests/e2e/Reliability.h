#pragma once
// What the end-to-end tests share: the built executable as a client starts it, checks of tool
// results, what a writer must never leave behind, the stress tests' sizes, and the lock.

#include "ServerClient.h" // the benchmark's client
#include "library/NoteParser.h"
#include "platform/Crypto.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <map>
#include <random>
#include <set>
#include <thread>

namespace vorlo::testing {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// build/vorlo-mcp with a clean environment: PATH, HOME, the preferences variable when given, and
// `environment`. Killed when it goes, so that a hung server fails its test instead of the suite.
struct ServerProcess : bench::ServerClient {
    explicit ServerProcess(std::optional<std::string> preferences, std::vector<std::string> environment = {})
        : ServerClient(VORLO_EXECUTABLE, std::move(preferences), std::move(environment)) {}
};

inline const std::string kBusy = "The Vorlo library is busy. Wait a moment and try again.";
inline const std::string kStale = "The note changed after it was read. Read it again, review the new "
                                  "contents, and retry with the new revision.";
inline constexpr std::string_view kLock = "Vorlo Data/Locks/Library Mutation.lock",
                                  kOwner = "Vorlo Data/Locks/Library Mutation.lock/Owner.json";

// The text of a failed tool result; records a failure when the call succeeded.
inline std::string errorText(const Json& result) {
    EXPECT_EQ(result.value("isError", false), true) << result.dump();
    return result.contains("content") ? result["content"].at(0).value("text", "") : "";
}

// The structured result of a successful tool call; records a failure otherwise.
inline Json succeeded(const Json& result) {
    EXPECT_EQ(result.value("isError", true), false) << result.dump();
    return result.value("structuredContent", Json::object());
}

// The arguments of an update of `path` on the revision now on disk, with `changes`.
inline Json updateOf(const TempLibrary& library, const std::string& path, Json changes) {
    changes["path"] = path, changes["expected_revision"] = sha256Hex(library.read(path));
    return changes;
}

// A writer's temporary file, and (by library-relative path) a lock moved aside to be removed.
inline bool isTemporary(std::string_view path) {
    return path.substr(path.rfind('/') + 1).starts_with(".Vorlo MCP ");
}
inline bool isMovedAside(std::string_view path) {
    return path.starts_with("Vorlo Data/Locks/Released ") || path.starts_with("Vorlo Data/Locks/Abandoned ");
}

// Everything a writer must never leave behind: a held lock, a lock moved aside, a temporary file.
inline std::vector<std::string> leftovers(const TempLibrary& library) {
    std::vector<std::string> found;
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(library.library(), error);
         it != std::filesystem::recursive_directory_iterator(); it.increment(error))
        if (std::string path = it->path().string().substr(library.library().size() + 1);
            path == kLock || isTemporary(path) || isMovedAside(path))
            found.push_back(path);
    return found;
}

// Every entry under `root` but the subtree `skip`, by relative path: a file's bytes, a link's
// target, or "folder" unless folders are left out.
inline std::map<std::string, std::string> snapshot(const std::string& root, std::string_view skip,
                                                   bool folders = true) {
    namespace stdfs = std::filesystem;
    std::map<std::string, std::string> state;
    for (auto it = stdfs::recursive_directory_iterator(root); it != stdfs::end(it); ++it)
        if (std::string path = it->path().string().substr(root.size() + 1); path == skip)
            it.disable_recursion_pending();
        else if (it->is_symlink() || !it->is_directory() || folders)
            state[path] = it->is_symlink()     ? "link " + stdfs::read_symlink(it->path()).string()
                          : it->is_directory() ? "folder"
                                               : readFile(it->path());
    return state;
}

// A note, "Note.md", with the attachments photo.png and text.txt.
inline const std::string kNoteId = "0F0E0D0C-0B0A-4988-8766-554433221100",
                         kAttachments = "Vorlo Data/Attachments/" + kNoteId + "/";
inline void writeNoteWithAttachments(const TempLibrary& library) {
    library.write("Note.md", "---\nid: " + kNoteId + "\ntitle: \"Note\"\n---\nInside body");
    for (const char* name : {"photo.png", "text.txt"})
        library.write(kAttachments + name, "inside");
}

// A stress test's size: the environment variable `name` when set, else `usual`, or `longer` under
// VORLO_LONG_TESTS=1, which searches further for rare interleavings.
inline int sizeFromEnvironment(const char* name, int usual, int longer) {
    if (const char* value = std::getenv(name)) return std::atoi(value);
    const char* longTests = std::getenv("VORLO_LONG_TESTS");
    return longTests != nullptr && std::string_view(longTests) == "1" ? longer : usual;
}

} // namespace vorlo::testing
