#pragma once
// What the stress tests of writing share: their sizes, the refusals a writer retries, where the lock
// lives, and the owner records that other writers leave in it.

#include "e2e/WritingHelpers.h"
#include "library/NoteParser.h"
#include "platform/Crypto.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "support/ServerProcess.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>

namespace vorlo::testing {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

inline const std::string kBusy = "The Vorlo library is busy. Wait a moment and try again.";
inline const std::string kStale = "The note changed after it was read. Read it again, review the new "
                                  "contents, and retry with the new revision.";
inline constexpr std::string_view kLock = "Vorlo Data/Locks/Library Mutation.lock",
                                  kOwner = "Vorlo Data/Locks/Library Mutation.lock/Owner.json";

// A stress test's size: the environment variable `name` when set, else `usual`, or `longer` under
// VORLO_LONG_TESTS=1, which searches further for rare interleavings.
inline int sizeFromEnvironment(const char* name, int usual, int longer) {
    if (const char* value = std::getenv(name)) return std::atoi(value);
    return longTests() ? longer : usual;
}

// The id of a process that has ended and been reaped.
inline int deadProcessId() {
    ServerProcess process(std::nullopt);
    const int id = process.pid();
    process.finish();
    return id;
}

// The record a writer on `host` leaves in the lock it holds.
inline std::string ownerRecord(const std::string& host, int processId,
                               std::string_view createdAt = "2024-05-01T12:00:00Z") {
    const std::string token = "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D";
    return Json{{"token", token}, {"processID", processId}, {"hostName", host}, {"createdAt", createdAt}}
        .dump(2);
}

// A tools/call request as the line a client sends.
inline std::string toolCallLine(int id, std::string_view tool, const Json& arguments) {
    return R"({"jsonrpc":"2.0","id":)" + std::to_string(id) + R"(,"method":"tools/call","params":{"name":")" +
           std::string(tool) + R"(","arguments":)" + arguments.dump() + "}}\n";
}

} // namespace vorlo::testing
