// The mutation lock between real processes: abandoned locks are moved aside, held ones waited for.
#include "e2e/Reliability.h"

#include <cctype>
#include <deque>

namespace vorlo::testing {
namespace {

// What stands at the lock's name: a record of a writer on `host` whose process is alive or gone, an
// undecodable record, a folder without one or a plain file, written `age` seconds ago.
struct Row {
    const char* name;
    enum { Record, Undecodable, NoRecord, PlainFile } kind;
    std::string host;
    bool alive;
    int age;
    bool recovered;
    std::string createdAt = "2024-05-01T12:00:00Z";
};

TEST(LockRecovery, MovesAbandonedLocksAsideAndWaitsForHeldOnes) {
    const std::string host = process::hostName(), elsewhere = "elsewhere.example";
    std::string otherCase = host;
    for (char& c : otherCase)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    // clang-format off
    const Row rows[] = {
        {"this host, owner alive", Row::Record, host, true, 0, false},
        {"this host, owner gone, any age, host name in another case", Row::Record, otherCase, false, 0, true},
        {"this host, owner alive, held longer than 300 s", Row::Record, host, true, 310, true},
        {"another host, older than 300 s", Row::Record, elsewhere, true, 310, true},
        {"another host, younger than 300 s", Row::Record, elsewhere, true, 290, false},
        {"another host, whose processes cannot be examined", Row::Record, elsewhere, false, 0, false},
        {"the record's file date outranks an ancient createdAt", Row::Record, elsewhere, true, 0, false, "2001-01-01T00:00:00Z"},
        {"an undecodable record counts as none, judged by its file date", Row::Undecodable, host, true, 10, true},
        {"no record, older than 2 s", Row::NoRecord, host, true, 10, true},
        {"no record, younger than 2 s", Row::NoRecord, host, true, 0, false},
        {"no record, turning 2 s old while waited for", Row::NoRecord, host, true, 1, true},
        {"a plain file at the lock's name, older than 2 s", Row::PlainFile, host, true, 10, true},
        {"a plain file at the lock's name, younger than 2 s", Row::PlainFile, host, true, 0, false}};
    // clang-format on
    // The rows run at once, each server on its own library, so that the waits overlap. The locks
    // are made once every server answers a ping (which reads nothing of the library): starting a
    // dozen servers of a slow build takes long enough to age a lock that should be young.
    TempLibrary libraries[std::size(rows)];
    std::deque<ServerProcess> servers;
    for (const TempLibrary& library : libraries)
        servers.emplace_back(library.preferences());
    for (auto& server : servers)
        EXPECT_TRUE(server.send(server.requestLine("ping", {}) + "\n") && server.readLine());
    ServerProcess gone(std::nullopt); // a process that has ended and been reaped
    const int dead = gone.pid();
    gone.finish();
    std::vector<std::string> records;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Row& row = rows[i];
        const std::string_view at = row.kind == Row::Record || row.kind == Row::Undecodable ? kOwner : kLock;
        records.push_back(row.kind == Row::Undecodable
                              ? "{\"token\": 1}"
                              : ownerRecord(row.host, row.alive ? ::getpid() : dead, row.createdAt));
        if (row.kind == Row::NoRecord)
            libraries[i].makeFolder(kLock);
        else
            libraries[i].write(at, row.kind == Row::PlainFile ? "stray" : records.back());
        // A young lock keeps the moment it was made, not one rounded down to the second.
        if (row.age > 0)
            libraries[i].touch(
                at,
                std::chrono::floor<std::chrono::seconds>(currentTime()).time_since_epoch().count() - row.age);
    }
    const auto start = Clock::now();
    for (auto& server : servers)
        server.send(
            server.requestLine("tools/call", {{"name", "create_note"}, {"arguments", {{"title", "After"}}}}) +
            "\n");
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        SCOPED_TRACE(rows[i].name);
        const TempLibrary& library = libraries[i];
        const Json result = Json::parse(servers[i].readLine().value_or("{}")).value("result", Json());
        if (rows[i].recovered) {
            EXPECT_EQ(succeeded(result)["note"]["path"], "After.md");
            EXPECT_TRUE(leftovers(library).empty()) << leftovers(library).front();
            continue;
        }
        EXPECT_EQ(errorText(result), kBusy);
        EXPECT_GE(Clock::now() - start, 900ms) << "gave up before about one second of waiting";
        EXPECT_FALSE(library.exists("After.md"));
        ASSERT_TRUE(library.exists(kLock)) << "a held lock is never moved aside";
        EXPECT_EQ(library.exists(kOwner) ? library.read(kOwner) : records[i], records[i]);
    }

    // While the lock is held, arguments are checked without waiting for it; but the revision is
    // compared under the lock, so even a stale one waits for it.
    libraries[0].write("Note.md", "body");
    for (const auto& [arguments, error, waits] :
         {std::tuple<Json, std::string, bool>{{{"content", "no title"}}, "title is required.", false},
          {{{"path", "Note.md"}, {"title", "T"}}, "expected_revision is require", false},
          {{{"path", "Note.md"}, {"expected_revision", std::string(64, 'f')}, {"title", "T"}},
           kBusy,
           true}}) {
        const auto begin = Clock::now();
        const std::string tool = arguments.contains("path") ? "update_note" : "create_note";
        EXPECT_EQ(errorText(servers[0].call(tool, arguments)).substr(0, error.size()), error);
        EXPECT_EQ(Clock::now() - begin >= 900ms, waits) << error;
    }
    EXPECT_EQ(libraries[0].read("Note.md"), "body");
}

} // namespace
} // namespace vorlo::testing
