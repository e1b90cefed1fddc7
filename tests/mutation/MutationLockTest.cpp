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
using testing::TempLibrary;

constexpr std::string_view kToken = "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D";
const std::string kCreated = "\"createdAt\": \"2024-05-01T12:34:56Z\"";

std::string object(std::initializer_list<std::string> members) {
    std::string out;
    for (const std::string& member : members)
        out += (out.empty() ? "{" : ", ") + member;
    return out + "}";
}

TEST(LockOwnerRecord, EncodesPrettyWithSortedKeysAndDecodesWhatOthersMayWrite) {
    MCPMutationLockOwner owner{*Uuid::parse(kToken), 4242, "Studio.local", std::nullopt,
                               *parseIso8601("2024-05-01T12:34:56Z")};
    const std::string encoded = "{\n  " + kCreated + ",\n  \"hostName\": \"Studio.local\",\n" +
                                "  \"processID\": 4242,\n  \"token\": \"" + std::string(kToken) + "\"\n}";
    EXPECT_EQ(owner.encode(), encoded);
    // Lower-case tokens, local times, a null host ID and members of no meaning here are all accepted.
    const auto decoded = MCPMutationLockOwner::decode(
        R"({"token": "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d", "processID": 4242, "hostName": "Studio.local",
            "createdAt": "2024-05-01T14:34:56+02:00", "hostID": null, "extra": [1, {"x": 2}]})");
    EXPECT_EQ(decoded.value_or(MCPMutationLockOwner{}).encode(), encoded);
    owner.hostID = "H-1";
    EXPECT_NE(owner.encode().find(kCreated + ",\n  \"hostID\": \"H-1\",\n"), std::string::npos);
    EXPECT_EQ(MCPMutationLockOwner::decode(owner.encode())->hostID, "H-1");
    const MCPMutationMarker marker{*Uuid::parse(kToken), *parseIso8601("2024-05-01T12:34:56Z")};
    EXPECT_EQ(marker.encode(), "{\n  " + kCreated + ",\n  \"token\": \"" + std::string(kToken) + "\"\n}");
}

// Each record and the process ID it decodes to, or "" where the whole record is refused.
TEST(LockOwnerRecord, RefusesWholeRecordsWithAnyUnusableRequiredValue) {
    const std::string token = "\"token\": \"" + std::string(kToken) + "\"", pid = "\"processID\": 1",
                      host = "\"hostName\": \"h\"";
    const auto withPid = [&](const char* processID) {
        return object({token, host, kCreated, "\"processID\": " + std::string(processID)});
    };
    std::string largest = object({token, pid, host, kCreated});
    largest.append(kMaximumLockRecordBytes - largest.size(), ' ');
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {withPid("2147483647"), "2147483647"}, {withPid("-2147483648"), "-2147483648"}, {withPid("0"), "0"},
        {largest, "1"}, {largest + ' ', ""}, {withPid("2147483648"), ""}, {withPid("-2147483649"), ""},
        {withPid("18446744073709551615"), ""}, {withPid("42.5"), ""}, {withPid("\"42\""), ""},
        {withPid("true"), ""}, {withPid("null"), ""}, {"", ""}, {"[]", ""}, {"not json", ""},
        {object({pid, host, kCreated}), ""}, {object({token, host, kCreated}), ""},
        {object({token, pid, kCreated}), ""}, {object({token, pid, host}), ""},
        {object({"\"token\": \"not-a-uuid\"", pid, host, kCreated}), ""},
        {object({"\"token\": 7", pid, host, kCreated}), ""},
        {object({token, pid, "\"hostName\": 7", kCreated}), ""},
        {object({token, pid, host, "\"createdAt\": \"2024-05-01T12:34:56.000Z\""}), ""},
        {object({token, pid, host, "\"createdAt\": 1714566896"}), ""},
        {object({token, pid, host, kCreated, "\"hostID\": 12"}), ""}};
    // clang-format on
    for (const auto& [record, processID] : cases) {
        const auto decoded = MCPMutationLockOwner::decode(record);
        EXPECT_EQ(decoded ? std::to_string(decoded->processID) : "", processID) << record.substr(0, 200);
    }
}

stdfs::perms permissions(const std::string& path) {
    return stdfs::symlink_status(path).permissions() & stdfs::perms::mask;
}

// Acquiring writes this process's record into private folders; releasing leaves nothing, and a
// second release touches nothing, but it leaves a successor's lock alone. A waiter that judged the
// lock in the instant between its creation and its record may move it aside and take the name. The
// record then lands in the folder moved aside, and the lock is not held: the attempt counts as
// failed, and the lock is taken properly once the other owner's is judged in turn.
TEST(MutationLock, AcquireWritesItsRecordReleaseLeavesAnotherOwnersLockAndAMovedLockIsNotHeld) {
    TempLibrary library;
    const std::string locks = library.path("Vorlo Data/Locks"), held = locks + "/Library Mutation.lock";
    MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
    EXPECT_FALSE(library.exists("Vorlo Data")); // making the object touches no file
    lock.acquire();
    EXPECT_TRUE(lock.acquired());
    for (const std::string& folder : {library.path("Vorlo Data"), locks, lock.lockPath()})
        EXPECT_EQ(permissions(folder), stdfs::perms::owner_all) << folder;
    const std::string ownerPath = held + "/Owner.json";
    EXPECT_EQ(permissions(ownerPath), stdfs::perms::owner_read | stdfs::perms::owner_write);
    MCPMutationLockOwner expected = lock.owner();
    expected.processID = process::currentProcessId();
    expected.hostName = process::hostName();
    EXPECT_EQ(testing::readFile(ownerPath), expected.encode()); // and no host ID
    for (int release = 0; release < 2; ++release) {
        lock.release();
        EXPECT_FALSE(lock.acquired());
        EXPECT_TRUE(stdfs::is_empty(locks)) << "no lock and no Released folder remain";
    }
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
    expected = lock.owner();
    expected.token = Uuid::random();
    testing::writeFile(ownerPath, expected.encode()); // a successor's
    lock.release();
    EXPECT_FALSE(lock.acquired());
    EXPECT_EQ(testing::readFile(ownerPath), expected.encode());
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
    const auto record = MCPMutationLockOwner::decode(testing::readFile(ownerPath));
    EXPECT_EQ(record.value_or(other).token, lock.owner().token)
        << "acquire returned while another owner's lock stood";
    lock.release();
}

} // namespace
} // namespace vorlo
