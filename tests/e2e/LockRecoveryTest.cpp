// The mutation lock between real processes: abandoned locks cleared, held ones waited for.
#include "e2e/WritingHelpers.h"
#include "platform/Crypto.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "support/ServerProcess.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>

namespace vorlo::testing {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr std::string_view kLock = "Vorlo Data/Locks/Library Mutation.lock";
constexpr std::string_view kOwner = "Vorlo Data/Locks/Library Mutation.lock/Owner.json";
const std::string kBusy = "The Vorlo library is busy. Wait a moment and try again.";

long long now() {
    return std::chrono::duration_cast<std::chrono::seconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string upperCase(std::string text) {
    for (char& c : text)
        if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return text;
}

// The id of a process that has ended and been reaped.
int deadProcessId() {
    ServerProcess process(std::nullopt);
    const int id = process.pid();
    process.finish();
    return id;
}

std::string ownerRecord(const std::string& host, int processId,
                        std::string_view createdAt = "2024-05-01T12:00:00Z") {
    return Json{{"token", "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D"},
                {"processID", processId},
                {"hostName", host},
                {"createdAt", createdAt}}
        .dump(2);
}

void holdLock(const TempLibrary& library, const std::string& record, long long recordDate) {
    library.write(kOwner, record);
    library.touch(kOwner, recordDate);
}

struct Row {
    std::string name;
    std::function<void(const TempLibrary&)> craft;
    bool recovered;
};

TEST(LockRecovery, ClearsAbandonedLocksAndWaitsForHeldOnes) {
    const std::string host = process::hostName();
    const int dead = deadProcessId();
    const int alive = process::currentProcessId();
    const std::vector<Row> rows = {
        {"this host, process gone, any age (host name in another case)",
         [&](const TempLibrary& l) { holdLock(l, ownerRecord(upperCase(host), dead), now()); }, true},
        {"this host, process alive",
         [&](const TempLibrary& l) { holdLock(l, ownerRecord(host, alive), now()); }, false},
        {"this host, process alive, held longer than 300 s",
         [&](const TempLibrary& l) { holdLock(l, ownerRecord(host, alive), now() - 310); }, true},
        {"another host, older than 300 s",
         [&](const TempLibrary& l) { holdLock(l, ownerRecord("elsewhere.example", alive), now() - 310); },
         true},
        {"another host, younger than 300 s",
         [&](const TempLibrary& l) { holdLock(l, ownerRecord("elsewhere.example", alive), now() - 290); },
         false},
        {"another host, its process never examined",
         [&](const TempLibrary& l) { holdLock(l, ownerRecord("elsewhere.example", dead), now()); }, false},
        {"the record's file date outranks an ancient createdAt",
         [&](const TempLibrary& l) {
             holdLock(l, ownerRecord("elsewhere.example", alive, "2001-01-01T00:00:00Z"), now());
         },
         false},
        {"an undecodable record counts as none, judged by its file date",
         [&](const TempLibrary& l) { holdLock(l, "{\"token\": 1}", now() - 10); }, true},
        {"no record, older than 2 s",
         [&](const TempLibrary& l) {
             l.makeFolder(kLock);
             l.touch(kLock, now() - 10);
         },
         true},
        {"no record, younger than 2 s", [&](const TempLibrary& l) { l.makeFolder(kLock); }, false},
        {"no record, turning 2 s old while waited for",
         [&](const TempLibrary& l) {
             l.makeFolder(kLock);
             l.touch(kLock, now() - 1);
         },
         true},
        {"a plain file at the lock's name, older than 2 s",
         [&](const TempLibrary& l) {
             l.write(kLock, "stray");
             l.touch(kLock, now() - 10);
         },
         true},
        {"a plain file at the lock's name, younger than 2 s",
         [&](const TempLibrary& l) { l.write(kLock, "stray"); }, false},
    };

    // The rows run at once, each server on its own library, so the waits overlap. The locks are
    // made once every server answers, since starting a dozen servers of a slow build takes long
    // enough to age a lock that should be young; a ping reads nothing of the library.
    std::vector<std::unique_ptr<TempLibrary>> libraries;
    std::vector<std::unique_ptr<ServerProcess>> servers;
    std::vector<std::string> crafted;
    for (std::size_t i = 0; i < rows.size(); ++i) {
        libraries.push_back(std::make_unique<TempLibrary>());
        servers.push_back(std::make_unique<ServerProcess>(libraries.back()->preferences()));
    }
    for (auto& server : servers)
        server->request({{"jsonrpc", "2.0"}, {"id", 0}, {"method", "ping"}});
    for (std::size_t i = 0; i < rows.size(); ++i) {
        rows[i].craft(*libraries[i]);
        crafted.push_back(libraries[i]->exists(kOwner) ? libraries[i]->read(kOwner) : "");
    }
    const auto start = Clock::now();
    for (auto& server : servers)
        server->send(R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"create_note",)"
                     R"("arguments":{"title":"After"}}})"
                     "\n");
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].name);
        const auto line = servers[i]->readLine();
        ASSERT_TRUE(line);
        const Json result = Json::parse(*line)["result"];
        const TempLibrary& library = *libraries[i];
        if (rows[i].recovered) {
            EXPECT_EQ(succeeded(result)["note"]["path"], "After.md");
            EXPECT_TRUE(leftovers(library).empty()) << leftovers(library).front();
        } else {
            EXPECT_EQ(errorText(result), kBusy);
            EXPECT_GE(Clock::now() - start, 900ms) << "gave up before about one second of waiting";
            EXPECT_FALSE(library.exists("After.md"));
            ASSERT_TRUE(library.exists(kLock)) << "a held lock is never moved aside";
            if (library.exists(kOwner)) {
                EXPECT_EQ(library.read(kOwner), crafted[i]);
            }
        }
    }
}

TEST(LockRecovery, ArgumentsAreCheckedWithoutWaitingForTheLock) {
    TempLibrary library;
    library.write("Note.md", "body");
    holdLock(library, ownerRecord(process::hostName(), process::currentProcessId()), now());
    ServerProcess server(library.preferences());

    auto start = Clock::now();
    EXPECT_EQ(errorText(server.call("create_note", {{"content", "no title"}})), "title is required.");
    EXPECT_EQ(errorText(server.call("update_note", {{"path", "Note.md"}, {"title", "T"}})).substr(0, 28),
              "expected_revision is require");
    EXPECT_LT(Clock::now() - start, 500ms);

    // The revision is compared under the lock, so even a stale one waits for it.
    start = Clock::now();
    EXPECT_EQ(errorText(server.call(
                  "update_note",
                  {{"path", "Note.md"}, {"expected_revision", std::string(64, 'f')}, {"title", "T"}})),
              kBusy);
    EXPECT_GE(Clock::now() - start, 900ms);
    EXPECT_EQ(library.read("Note.md"), "body");
}

TEST(ChangeMarker, EveryWriteReplacesItWithANewToken) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const std::string marker = "Vorlo Data/Locks/Last Mutation.json";

    const Json note = succeeded(server.call("create_note", {{"title", "Marked"}}))["note"];
    ASSERT_TRUE(library.exists(marker));
    EXPECT_EQ(modeOf(library.path(marker)), 0600u);
    const Json first = Json::parse(library.read(marker));
    EXPECT_EQ(first.size(), 2u);
    EXPECT_TRUE(parseIso8601(first.value("createdAt", "")));
    EXPECT_TRUE(Uuid::parse(first.value("token", "")));

    std::filesystem::remove_all(library.path("Vorlo Data/Locks"));
    succeeded(server.call(
        "update_note", {{"path", "Marked.md"}, {"expected_revision", note["revision"]}, {"pinned", true}}));
    const Json second = Json::parse(library.read(marker));
    EXPECT_NE(second["token"], first["token"]);
    EXPECT_EQ(modeOf(library.path("Vorlo Data/Locks")), 0700u);
    EXPECT_TRUE(leftovers(library).empty());
}

TEST(ChangeMarker, AFailedMarkerIsAWarningBesideASuccess) {
    TempLibrary library;
    library.makeFolder("Vorlo Data/Locks/Last Mutation.json");
    ServerProcess server(library.preferences());
    const std::string warning =
        "The note was saved, but Vorlo could not update its shared-library change marker: "
        "The file \u201CVorlo Data/Locks/Last Mutation.json\u201D could not be written: "
        "Is a directory.";

    const Json created = succeeded(server.call("create_note", {{"title", "Saved"}}));
    EXPECT_EQ(created["created"], true);
    EXPECT_EQ(created["monitoring_warning"], warning);
    EXPECT_TRUE(library.exists("Saved.md"));

    const Json updated = succeeded(server.call(
        "update_note",
        {{"path", "Saved.md"}, {"expected_revision", created["note"]["revision"]}, {"title", "T"}}));
    EXPECT_EQ(updated["updated"], true);
    EXPECT_EQ(updated["monitoring_warning"], warning);
    EXPECT_NE(library.read("Saved.md").find("title: \"T\""), std::string::npos);
    EXPECT_TRUE(leftovers(library).empty());
}

} // namespace
} // namespace vorlo::testing
