// A library that fights back: while the server serves every tool in a loop, another thread keeps
// swapping a note, a folder, the private data folder and an attachment for symbolic links to files
// outside, and clients send paths built to climb out. Every outside file holds a marker that no
// reply may show, and the outside tree must end exactly as it began.
#include "platform/Crypto.h"
#include "support/ServerProcess.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <thread>
#include <unistd.h>

namespace vorlo::testing {
namespace {

namespace stdfs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kId = "0F0E0D0C-0B0A-4988-8766-554433221100";
constexpr std::string_view kMarker = "HOSTILE-MARKER";

// Every entry under `root` with what it is: a file's bytes, a link's target, or a folder.
std::map<std::string, std::string> snapshot(const stdfs::path& root) {
    std::map<std::string, std::string> entries;
    for (auto it = stdfs::recursive_directory_iterator(root); it != stdfs::recursive_directory_iterator(); ++it) {
        const auto status = it->symlink_status();
        const std::string name = stdfs::relative(it->path(), root).string();
        if (stdfs::is_symlink(status)) entries[name] = "link " + stdfs::read_symlink(it->path()).string();
        else if (stdfs::is_directory(status)) entries[name] = "folder";
        else entries[name] = "file " + readFile(it->path().string());
    }
    return entries;
}

bool longRun() {
    const char* value = std::getenv("VORLO_LONG_TESTS");
    return value != nullptr && std::string_view(value) == "1";
}

// A library with a note that has attachments, a note in a folder, and outside it a tree that
// mirrors those names: its own folder beside it, and a sibling whose name extends the library's.
class HostileLibrary {
public:
    HostileLibrary() : outside_(library_.root() + "/Outside"), evil_(library_.root() + "/Library-evil") {
        library_.write("Note.md", std::string("---\nid: ") + kId + "\ntitle: \"Note\"\n---\nInside body");
        library_.write("Folder/Inner.md", "Inner body");
        library_.write(std::string("Vorlo Data/Attachments/") + kId + "/photo.png", "inside png");
        library_.write(std::string("Vorlo Data/Attachments/") + kId + "/text.txt", "inside text");
        for (const std::string& name :
             {outside_ + "/note.md", outside_ + "/folder/Inner.md", outside_ + "/folder/Note.md",
              outside_ + "/photo.png", evil_ + "/secret.md", evil_ + "/Note.md",
              evil_ + "/Vorlo Data/Attachments/" + kId + "/photo.png",
              evil_ + "/Vorlo Data/Attachments/" + kId + "/text.txt"}) {
            stdfs::create_directories(stdfs::path(name).parent_path());
            // Each file its own marker, and note-shaped so that a leak would be read as a note.
            writeFile(name, "---\ntitle: \"" + std::string(kMarker) + "\"\n---\n" + std::string(kMarker) + " " + name);
        }
        stdfs::create_directories(outside_ + "/folder/Sub");
        before_ = outsideState();
    }

    TempLibrary& library() { return library_; }
    const std::string& outside() const { return outside_; }
    const std::string& evil() const { return evil_; }
    std::map<std::string, std::string> outsideState() const {
        auto state = snapshot(outside_);
        for (auto& [name, what] : snapshot(evil_)) state["evil/" + name] = what;
        // The root holds the library, the preferences and the two outside trees, nothing else.
        for (const auto& entry : stdfs::directory_iterator(library_.root()))
            state["root/" + entry.path().filename().string()] = "entry";
        return state;
    }
    void expectOutsideUnchanged() const { EXPECT_EQ(outsideState(), before_); }

private:
    TempLibrary library_;
    std::string outside_;
    std::string evil_;
    std::map<std::string, std::string> before_;
};

// Checks every reply for the markers, and that no call blocks: a read returns well within a second;
// a write may wait about a second for a busy lock before it says so.
class CheckedServer {
public:
    explicit CheckedServer(const TempLibrary& library) : server_(library.preferences()) {}

    Json call(std::string_view tool, const Json& arguments) {
        const bool writes = tool == "create_note" || tool == "update_note";
        const auto guard = writes ? std::chrono::milliseconds(2500) : std::chrono::milliseconds(1000);
        const Json message = {{"jsonrpc", "2.0"}, {"id", ++calls_}, {"method", "tools/call"},
                              {"params", {{"name", tool}, {"arguments", arguments}}}};
        const auto start = Clock::now();
        server_.send(message.dump() + "\n");
        const auto line = server_.readLine(std::chrono::seconds(20));
        const auto elapsed = Clock::now() - start;
        EXPECT_LT(elapsed, guard) << tool << " " << arguments.dump().substr(0, 200);
        if (!line) {
            ADD_FAILURE() << "no reply to " << tool << " " << arguments.dump().substr(0, 200);
            return Json::object();
        }
        EXPECT_EQ(line->find(kMarker), std::string::npos) << *line;
        EXPECT_EQ(line->find(base64Encode("---\ntitle: \"" + std::string(kMarker))), std::string::npos) << *line;
        const Json reply = Json::parse(*line);
        EXPECT_EQ(reply["id"], calls_);
        return reply.contains("result") ? reply["result"] : reply;
    }

    int finish() { return server_.finish().status; }
    long long calls() const { return calls_; }

private:
    ServerProcess server_;
    long long calls_ = 0;
};

// Swaps one entry of the library for a link to `target` and back, `rounds` times or until told to
// stop. Whatever the server made at the name meanwhile (a folder for a new note, a rewritten note)
// goes, and the original comes back.
class Swapper {
public:
    Swapper(std::vector<std::pair<std::string, std::string>> swaps) : swaps_(std::move(swaps)) {
        thread_ = std::thread([this] { run(); });
    }
    ~Swapper() { stop(); }
    void stop() {
        stop_ = true;
        if (thread_.joinable()) thread_.join();
    }
    long long rounds() const { return rounds_; }

private:
    void run() {
        std::mt19937 random(11);
        while (!stop_) {
            const auto& [entry, target] = swaps_[random() % swaps_.size()];
            const std::string held = stdfs::path(entry).parent_path() / (".held-" + stdfs::path(entry).filename().string());
            std::error_code error;
            stdfs::rename(entry, held, error);
            if (error) continue;
            ::symlink(target.c_str(), entry.c_str());
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
            if (stdfs::is_symlink(stdfs::symlink_status(entry, error))) {
                stdfs::remove(entry, error);
            } else if (stdfs::is_regular_file(stdfs::symlink_status(entry, error))) {
                stdfs::remove(held, error); // the server's rewrite of the note stays
                ++rounds_;
                continue;
            } else {
                stdfs::remove_all(entry, error);
            }
            stdfs::rename(held, entry, error);
            ++rounds_;
        }
    }

    std::vector<std::pair<std::string, std::string>> swaps_;
    std::atomic<bool> stop_{false};
    std::atomic<long long> rounds_{0};
    std::thread thread_;
};

// Serves every read tool, and the writing tools too when `withWrites`, while the entries are swapped.
void serveWhileSwapping(bool withWrites) {
    HostileLibrary hostile;
    TempLibrary& library = hostile.library();
    CheckedServer server(library);
    Swapper swapper({
        {library.path("Note.md"), hostile.outside() + "/note.md"},
        {library.path("Folder"), hostile.outside() + "/folder"},
        {library.path("Folder/Inner.md"), hostile.outside() + "/folder/Inner.md"},
        {library.path("Vorlo Data"), hostile.evil() + "/Vorlo Data"},
        {library.path(std::string("Vorlo Data/Attachments/") + kId + "/photo.png"), hostile.outside() + "/photo.png"},
    });

    const auto duration = longRun() ? std::chrono::seconds(60) : std::chrono::seconds(3);
    const auto end = Clock::now() + duration;
    std::mt19937 random(5);
    for (long long round = 0; Clock::now() < end; ++round) {
        server.call("list_notes", {{"limit", 200}});
        server.call("search_notes", {{"query", std::string(kMarker)}});
        server.call("search_notes", {{"query", "body"}});
        for (const char* note : {"Note.md", "Folder/Inner.md"}) {
            const Json read = server.call("read_note", {{"path", note}});
            const Json revision = read.value("structuredContent", Json::object()).value("revision", Json("0"));
            if (withWrites && revision.is_string() && revision.get<std::string>().size() == 64)
                server.call("update_note", {{"path", note},
                                            {"expected_revision", revision},
                                            {"content", "rewritten " + std::to_string(round)}});
        }
        for (const char* name : {"photo.png", "text.txt"})
            server.call("read_attachment", {{"path", "Note.md"}, {"attachment_name", name}});
        const char* folders[] = {"", "Folder", "Folder/Sub"};
        if (withWrites)
            server.call("create_note", {{"title", "New " + std::to_string(round)}, {"folder", folders[random() % 3]}});
    }
    swapper.stop();
    EXPECT_GT(swapper.rounds(), 100);
    EXPECT_EQ(server.finish(), 0);
    hostile.expectOutsideUnchanged();
}

TEST(HostileLibrary, EntriesSwappedForOutsideLinksNeverLeak) { serveWhileSwapping(false); }

TEST(HostileLibrary, WritesWhileEntriesAreSwappedStayInside) { serveWhileSwapping(true); }

TEST(HostileLibrary, PathsBuiltToClimbOutStayInside) {
    HostileLibrary hostile;
    TempLibrary& library = hostile.library();
    const std::string deep = [] {
        std::string path;
        while (path.size() < 65536) path += "a/";
        return path + "Note.md";
    }();
    const std::vector<std::string> paths = {
        "..",
        "../Library-evil/secret.md",
        "..\\Library-evil\\secret.md",
        "Folder/../../Library-evil/secret.md",
        "Folder\\..\\..\\Outside\\note.md",
        "./../Outside/note.md",
        hostile.outside() + "/note.md",
        hostile.evil() + "/secret.md",
        "/" + hostile.evil() + "/secret.md",
        "~/../../" + hostile.evil() + "/secret.md",
        std::string("Note.md\0/../../Library-evil/secret.md", 37),
        std::string("\0", 1),
        "%2e%2e/Library-evil/secret.md",
        "%2E%2E%2FLibrary-evil%2Fsecret.md",
        "..%2fLibrary-evil%2fsecret.md",
        "\u2024\u2024/Library-evil/secret.md",       // one-dot leaders
        "\uFF0E\uFF0E/Library-evil/secret.md",       // full-width full stops
        "..\u2215Library-evil\u2215secret.md",       // division slash
        "..\uFF0FLibrary-evil\uFF0Fsecret.md",       // full-width solidus
        ".\u0338./Library-evil/secret.md",           // a dot with a combining mark
        "Vorlo Data/../../Library-evil/secret.md",
        "VORLO DATA\\Attachments\\..\\..\\..\\Library-evil\\secret.md",
        deep,
        std::string(65536, 'x') + ".md",
        "Folder//Inner.md",
        "Folder/./Inner.md",
    };

    CheckedServer server(library);
    for (const auto& path : paths) {
        SCOPED_TRACE(path.substr(0, 80));
        const Json read = server.call("read_note", {{"path", path}});
        EXPECT_TRUE(read.value("isError", false)) << read.dump().substr(0, 300);
        server.call("read_attachment", {{"path", path}, {"attachment_name", "photo.png"}});
        server.call("read_attachment", {{"path", "Note.md"}, {"attachment_name", path}});
        server.call("update_note", {{"path", path}, {"expected_revision", std::string(64, '0')}, {"content", "x"}});
        server.call("list_notes", {{"folder", path}});
        // A folder name may be odd and still lie inside; wherever the note goes, it goes in here.
        server.call("create_note", {{"title", path}, {"folder", path}});
        server.call("create_note", {{"title", "Note"}, {"folder", path}});
    }
    EXPECT_EQ(server.finish(), 0);
    hostile.expectOutsideUnchanged();
}

} // namespace
} // namespace vorlo::testing
