#include "mutation/MutationLock.h"

#include "mutation/MutationMarker.h"
#include "platform/Errors.h"
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

MCPMutationLockOwner sampleOwner() {
    return {*Uuid::parse(kToken), 4242, "Studio.local", std::nullopt, *parseIso8601("2024-05-01T12:34:56Z")};
}

std::string validRecord(std::string_view extra = "") {
    return R"({"token": "0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d", "processID": 4242, "hostName": "Studio.local",
               "createdAt": "2024-05-01T14:34:56+02:00")" +
           std::string(extra) + "}";
}

stdfs::perms permissions(const std::string& path) {
    return stdfs::symlink_status(path).permissions() & stdfs::perms::mask;
}

TEST(LockOwnerRecord, EncodesPrettyWithSortedKeys) {
    EXPECT_EQ(sampleOwner().encode(), "{\n"
                                      "  \"createdAt\": \"2024-05-01T12:34:56Z\",\n"
                                      "  \"hostName\": \"Studio.local\",\n"
                                      "  \"processID\": 4242,\n"
                                      "  \"token\": \"0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D\"\n"
                                      "}");
    MCPMutationLockOwner withHost = sampleOwner();
    withHost.hostID = "H-1";
    EXPECT_NE(withHost.encode().find("\"createdAt\": \"2024-05-01T12:34:56Z\",\n  \"hostID\": \"H-1\",\n"),
              std::string::npos);
    EXPECT_EQ(MCPMutationLockOwner::decode(withHost.encode())->hostID, "H-1");
}

TEST(LockOwnerRecord, DecodesWhatOtherParticipantsMayWrite) {
    const auto owner =
        MCPMutationLockOwner::decode(validRecord(R"(, "hostID": null, "extra": [1, {"x": 2}])"));
    ASSERT_TRUE(owner);
    EXPECT_EQ(owner->token.text(), kToken); // lower-case text is accepted
    EXPECT_EQ(owner->processID, 4242);
    EXPECT_EQ(owner->hostName, "Studio.local");
    EXPECT_FALSE(owner->hostID);
    EXPECT_EQ(formatIso8601(owner->createdAt), "2024-05-01T12:34:56Z");

    const struct {
        std::string processID;
        std::optional<int> decoded;
    } processIDs[] = {
        {"2147483647", 2147483647},
        {"-2147483648", -2147483647 - 1},
        {"0", 0},
        {"2147483648", std::nullopt},
        {"-2147483649", std::nullopt},
        {"18446744073709551615", std::nullopt},
        {"42.5", std::nullopt},
        {"\"42\"", std::nullopt},
        {"true", std::nullopt},
        {"null", std::nullopt},
    };
    for (const auto& c : processIDs) {
        const auto record = R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "hostName": "h",
                                "createdAt": "2024-05-01T12:34:56Z", "processID": )" +
                            c.processID + "}";
        const auto decoded = MCPMutationLockOwner::decode(record);
        EXPECT_EQ(decoded ? std::optional<int>(decoded->processID) : std::nullopt, c.decoded) << c.processID;
    }
}

TEST(LockOwnerRecord, RefusesWholeRecordsWithAnyUnusableRequiredValue) {
    const std::string undecodable[] = {
        "",
        "[]",
        "not json",
        R"({"processID": 1, "hostName": "h", "createdAt": "2024-05-01T12:34:56Z"})",
        R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "hostName": "h", "createdAt": "2024-05-01T12:34:56Z"})",
        R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "processID": 1, "createdAt": "2024-05-01T12:34:56Z"})",
        R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "processID": 1, "hostName": "h"})",
        R"({"token": "not-a-uuid", "processID": 1, "hostName": "h", "createdAt": "2024-05-01T12:34:56Z"})",
        R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "processID": 1, "hostName": 7,
            "createdAt": "2024-05-01T12:34:56Z"})",
        R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "processID": 1, "hostName": "h",
            "createdAt": "2024-05-01T12:34:56.000Z"})",
        R"({"token": "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D", "processID": 1, "hostName": "h",
            "createdAt": 1714566896})",
        validRecord(R"(, "hostID": 12)"),
    };
    for (const auto& record : undecodable)
        EXPECT_FALSE(MCPMutationLockOwner::decode(record)) << record;
}

TEST(LockOwnerRecord, SizeLimitIsInclusive) {
    std::string record = validRecord();
    record.append(kMaximumLockRecordBytes - record.size(), ' ');
    EXPECT_TRUE(MCPMutationLockOwner::decode(record));
    record += ' ';
    EXPECT_FALSE(MCPMutationLockOwner::decode(record));
}

TEST(MutationMarkerRecord, EncodesPrettyWithSortedKeys) {
    const MCPMutationMarker marker{*Uuid::parse(kToken), *parseIso8601("2024-05-01T12:34:56Z")};
    EXPECT_EQ(marker.encode(), "{\n"
                               "  \"createdAt\": \"2024-05-01T12:34:56Z\",\n"
                               "  \"token\": \"0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D\"\n"
                               "}");
}

TEST(MutationLock, AcquireWritesThisProcessRecordAndReleaseLeavesNothing) {
    TempLibrary library;
    const std::string locks = library.path("Vorlo Data/Locks");
    MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
    EXPECT_FALSE(library.exists("Vorlo Data")); // making the object touches no file
    lock.acquire();
    EXPECT_TRUE(lock.acquired());
    EXPECT_EQ(permissions(library.path("Vorlo Data")), stdfs::perms::owner_all);
    EXPECT_EQ(permissions(locks), stdfs::perms::owner_all);
    EXPECT_EQ(permissions(lock.lockPath()), stdfs::perms::owner_all);
    const std::string ownerPath = lock.lockPath() + "/Owner.json";
    EXPECT_EQ(permissions(ownerPath), stdfs::perms::owner_read | stdfs::perms::owner_write);
    const auto record = MCPMutationLockOwner::decode(testing::readFile(ownerPath));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->token, lock.owner().token);
    EXPECT_EQ(record->processID, process::currentProcessId());
    EXPECT_EQ(record->hostName, process::hostName());
    EXPECT_EQ(testing::readFile(ownerPath).find("hostID"), std::string::npos);

    lock.release();
    EXPECT_FALSE(lock.acquired());
    EXPECT_TRUE(stdfs::is_empty(locks)) << "no lock and no Released folder remain";
    lock.release(); // a second release touches nothing
    EXPECT_TRUE(stdfs::is_empty(locks));
}

TEST(MutationLock, ReleaseLeavesALockThatAnotherOwnerTookOver) {
    TempLibrary library;
    MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
    lock.acquire();
    MCPMutationLockOwner successor = lock.owner();
    successor.token = Uuid::random();
    const std::string ownerPath = lock.lockPath() + "/Owner.json";
    testing::writeFile(ownerPath, successor.encode());

    lock.release();
    EXPECT_FALSE(lock.acquired());
    EXPECT_EQ(testing::readFile(ownerPath), successor.encode());
}

TEST(MutationLock, UncreatableLocksFolderIsAPlatformErrorWithoutAbsolutePath) {
    TempLibrary library;
    library.write("Vorlo Data", "a file where the folder belongs");
    MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
    try {
        lock.acquire();
        FAIL() << "acquired below a file";
    } catch (const PlatformError& error) {
        EXPECT_STREQ(error.what(),
                     "The folder \u201CVorlo Data/Locks\u201D could not be created: Not a directory.");
    }
    EXPECT_FALSE(lock.acquired());
}

TEST(MutationLock, PrivateFolderThatIsALinkIsRefusedNotFollowed) {
    for (const char* link : {"Vorlo Data", "Vorlo Data/Locks"}) {
        SCOPED_TRACE(link);
        TempLibrary library;
        library.write("../outside/keep", "");
        if (std::string_view(link) != "Vorlo Data") library.makeFolder("Vorlo Data");
        library.link(link, library.root() + "/outside");
        MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
        try {
            lock.acquire();
            FAIL() << "acquired through a link";
        } catch (const PlatformError& error) {
            EXPECT_STREQ(error.what(),
                         "The folder \u201CVorlo Data/Locks\u201D could not be created: Not a directory.");
        }
        EXPECT_FALSE(lock.acquired());
        EXPECT_EQ(std::distance(stdfs::directory_iterator(library.root() + "/outside"), stdfs::directory_iterator()), 1);
    }
}

// A waiter that judged the lock in the instant between its creation and its record may move it aside
// and take the name. The record then lands in the folder moved aside, and the lock is not held: the
// attempt counts as failed, and the lock is taken properly once the other owner's is judged in turn.
TEST(MutationLock, ALockMovedAsideBeforeItsRecordArrivedIsNotHeld) {
    TempLibrary library;
    const std::string locks = library.path("Vorlo Data/Locks");
    const auto acquireAndRelease = [&] {
        MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
        lock.acquire();
        lock.release();
    };
    acquireAndRelease(); // the private folders exist from here on, so every acquisition runs alike
    std::uint64_t recordMove = 0;
    {
        const sys::FaultInjection tracing;
        acquireAndRelease();
        const auto calls = tracing.calls();
        for (std::size_t i = 0; i < calls.size() && recordMove == 0; ++i)
            if (calls[i].call == sys::Call::Rename && calls[i].path.ends_with("/Owner.json")) recordMove = i + 1;
    }
    ASSERT_NE(recordMove, 0u);

    // The other owner's process is gone, so its lock is judged abandoned at once.
    const MCPMutationLockOwner other{Uuid::random(), 2147483647, process::hostName(), std::nullopt, currentTime()};
    const sys::FaultInjection takeover({{recordMove, 0, false, [&] {
                                             stdfs::rename(locks + "/Library Mutation.lock", locks + "/Moved");
                                             stdfs::create_directory(locks + "/Library Mutation.lock");
                                             testing::writeFile(locks + "/Library Mutation.lock/Owner.json",
                                                                other.encode());
                                         }}});
    MCPMutationLock lock(library.library(), "Vorlo Data/Locks");
    lock.acquire();
    EXPECT_EQ(takeover.faultsInjected(), 1u);
    const auto record = MCPMutationLockOwner::decode(testing::readFile(lock.lockPath() + "/Owner.json"));
    ASSERT_TRUE(record);
    EXPECT_EQ(record->token, lock.owner().token) << "acquire returned while another owner's lock stood";
    lock.release();
}

} // namespace
} // namespace vorlo
