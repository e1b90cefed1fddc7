#include "mutation/MutationLock.h"

#include "mutation/MutationMarker.h"
#include "platform/Process.h"
#include "platform/SystemCalls.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vorlo {
namespace {

namespace stdfs = std::filesystem;
using testing::readFile;

const std::string kToken = "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", kCreated = "2024-05-01T12:34:56Z";

// Each change to a record of process 1, and the process ID the changed record decodes to, or "" where
// the whole record is refused. What other writers may add (lower-case tokens, local times, a null or
// textual host ID, members of no meaning here) the lock transcripts show accepted.
TEST(LockOwnerRecord, RefusesWholeRecordsWithAnyUnusableRequiredValue) {
    const std::string token = "\"token\": \"" + kToken + "\", ", pid = "\"processID\": 1, ",
                      host = "\"hostName\": \"h\", ", created = "\"createdAt\": \"" + kCreated + "\"",
                      record = "{" + token + pid + host + created + "}";
    const auto changed = [&](const std::string& from, const std::string& to) {
        return std::string(record).replace(record.find(from), from.size(), to);
    };
    const auto withPid = [&](const std::string& value) { return changed(": 1,", ": " + value + ","); };
    const std::string largest = record + std::string(kMaximumLockRecordBytes - record.size(), ' ');
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {withPid("2147483647"), "2147483647"}, {withPid("-2147483648"), "-2147483648"}, {withPid("0"), "0"},
        {largest, "1"}, {largest + ' ', ""}, {withPid("2147483648"), ""}, {withPid("-2147483649"), ""},
        {withPid("18446744073709551615"), ""}, {withPid("42.5"), ""}, {withPid("\"42\""), ""},
        {withPid("true"), ""}, {withPid("null"), ""}, {"", ""}, {"[]", ""}, {"not json", ""},
        {changed(token, ""), ""}, {changed(pid, ""), ""}, {changed(host, ""), ""}, {changed(", " + created, ""), ""},
        {changed(kToken, "not-a-uuid"), ""}, {changed("\"" + kToken + "\"", "7"), ""}, {changed("\"h\"", "7"), ""},
        {changed("56Z", "56.000Z"), ""}, {changed("\"" + kCreated + "\"", "1714566896"), ""},
        {changed("}", ", \"hostID\": 12}"), ""}};
    // clang-format on
    for (const auto& [text, processID] : cases) {
        const auto decoded = MCPMutationLockOwner::decode(text);
        EXPECT_EQ(decoded ? std::to_string(decoded->processID) : "", processID) << text.substr(0, 200);
    }
}

// Acquiring writes this process's record, pretty with sorted keys, into private folders; releasing
// leaves nothing (as every written transcript also checks), and a second release touches nothing,
// but it leaves a successor's lock alone. A waiter that judged the lock in the instant between its
// creation and its record may move it aside and take the name. The record then lands in the folder
// moved aside, and the lock is not held: the attempt counts as failed, and the lock is taken
// properly once the other owner's is judged in turn.
TEST(MutationLock, AcquireWritesItsRecordReleaseLeavesAnotherOwnersLockAndAMovedLockIsNotHeld) {
    testing::TempLibrary library;
    const std::string locks = library.path("Vorlo Data/Locks"), held = locks + "/Library Mutation.lock",
                      ownerPath = held + "/Owner.json";
    MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
    lock.acquire();
    EXPECT_TRUE(lock.acquired());
    // The modes of the folders above are the written transcripts'.
    EXPECT_EQ(std::pair(testing::modeOf(lock.lockPath()), testing::modeOf(ownerPath)),
              std::pair(0700u, 0600u));
    const std::string token = lock.owner().token.text(), created = formatIso8601(lock.owner().createdAt);
    EXPECT_EQ(readFile(ownerPath),
              "{\n  \"createdAt\": \"" + created + "\",\n  \"hostName\": \"" + process::hostName() +
                  "\",\n  \"processID\": " + std::to_string(process::currentProcessId()) +
                  ",\n  \"token\": \"" + token + "\"\n}"); // and no host ID
    MCPMutationLockOwner successor = lock.owner();         // with a host ID, which a successor may write
    successor.token = Uuid::random();
    successor.hostID = "H-1";
    EXPECT_NE(successor.encode().find(created + "\",\n  \"hostID\": \"H-1\",\n  \"hostName\""),
              std::string::npos);
    const MCPMutationMarker marker{*Uuid::parse(kToken), *parseIso8601(kCreated)};
    EXPECT_EQ(marker.encode(),
              "{\n  \"createdAt\": \"" + kCreated + "\",\n  \"token\": \"" + kToken + "\"\n}");
    lock.release();
    lock.release();
    EXPECT_FALSE(lock.acquired());
    EXPECT_TRUE(stdfs::is_empty(locks)) << "no lock and no Released folder remain";

    std::uint64_t recordMove = 0; // the private folders exist from here on, so every acquisition runs alike
    {
        const sys::FaultInjection tracing;
        lock.acquire();
        const auto calls = tracing.calls();
        for (std::size_t i = 0; i < calls.size() && recordMove == 0; ++i)
            if (calls[i].call == sys::Call::Rename && calls[i].path.ends_with("/Owner.json"))
                recordMove = i + 1;
    }
    ASSERT_NE(recordMove, 0u);
    testing::writeFile(ownerPath, successor.encode());
    lock.release();
    EXPECT_FALSE(lock.acquired());
    EXPECT_EQ(readFile(ownerPath), successor.encode());
    stdfs::remove_all(held);

    // The other owner's process is gone, so its lock is judged abandoned at once.
    const MCPMutationLockOwner other{Uuid::random(), 2147483647, process::hostName(), std::nullopt,
                                     currentTime()};
    const sys::FaultInjection takeover({{recordMove, 0, false, [&] {
                                             stdfs::rename(held, locks + "/Moved");
                                             stdfs::create_directory(held);
                                             testing::writeFile(held + "/Owner.json", other.encode());
                                         }}});
    lock.acquire();
    EXPECT_EQ(takeover.faultsInjected(), 1u);
    const auto record = MCPMutationLockOwner::decode(readFile(ownerPath));
    EXPECT_EQ(record.value_or(other).token, lock.owner().token)
        << "acquire returned while another owner's lock stood";
    lock.release();
}

} // namespace
} // namespace vorlo
