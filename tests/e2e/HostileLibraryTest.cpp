// A library that fights back: while a server runs every tool, another thread keeps swapping a note,
// a folder, the private data folder and an attachment for symbolic links to files outside, and the
// client sends paths built to climb out. Every outside file holds a marker that no reply may show,
// no call may hang, and everything beside the library must end exactly as it began.
#include "e2e/Reliability.h"
#include "support/Repeated.h"

namespace vorlo::testing {
namespace {

namespace stdfs = std::filesystem;

const std::string kMarker = "HOSTILE-MARKER";

TEST(HostileLibrary, NeitherSwappedEntriesNorClimbingPathsLeadOutside) {
    // A note with attachments and a note in a folder, and beside the library trees that mirror those
    // names: "Outside", and "Library-evil", whose name extends the library's. The outside files are
    // note-shaped, so that a leak would be taken for a note.
    TempLibrary library;
    const std::string outside = library.root() + "/Outside/", evil = library.root() + "/Library-evil/";
    writeNoteWithAttachments(library);
    library.write("Folder/Inner.md", "Inner body");
    stdfs::create_directories(outside + "folder/Sub");
    for (const std::string& name :
         {outside + "note.md", outside + "folder/Inner.md", outside + "folder/Note.md", outside + "photo.png",
          evil + "secret.md", evil + "Note.md", evil + kAttachments + "photo.png",
          evil + kAttachments + "text.txt"}) {
        stdfs::create_directories(stdfs::path(name).parent_path());
        writeFile(name, "---\ntitle: \"" + kMarker + "\"\n---\n" + kMarker + " " + name);
    }
    const auto before = snapshot(library.root(), "Library");

    // Swaps an entry for a link and back. Whatever the server made at the name meanwhile goes, but
    // for a rewrite of the note, which replaces the link and so stays.
    const std::pair<std::string, std::string> swaps[] = {
        {library.path("Note.md"), outside + "note.md"},
        {library.path("Folder"), outside + "folder"},
        {library.path("Folder/Inner.md"), outside + "folder/Inner.md"},
        {library.path("Vorlo Data"), evil + "Vorlo Data"},
        {library.path(kAttachments + "photo.png"), outside + "photo.png"}};
    std::atomic<bool> serving{true};
    std::atomic<long long> swapped{0};
    std::thread swapper([&] {
        for (std::mt19937 random(11); serving; ++swapped) {
            const auto& [entry, target] = swaps[random() % std::size(swaps)];
            const auto held =
                stdfs::path(entry).replace_filename(".held-" + stdfs::path(entry).filename().string());
            std::error_code error;
            stdfs::rename(entry, held, error);
            if (error) continue;
            stdfs::create_symlink(target, entry, error);
            std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
            if (stdfs::is_regular_file(stdfs::symlink_status(entry, error)))
                stdfs::remove(held, error);
            else
                stdfs::remove_all(entry, error), stdfs::rename(held, entry, error);
        }
    });
    // No reply may show a marker (the file's, or in base64 of a prefix of whole three-byte groups) or
    // be slow: a read returns well within a second, a write may wait about a second for a busy lock.
    ServerProcess server(library.preferences());
    const auto call = [&](std::string_view tool, const Json& arguments) {
        const auto start = Clock::now();
        const std::string reply = server.call(tool, arguments).dump();
        EXPECT_FALSE(Clock::now() - start >
                         (tool == "create_note" || tool == "update_note" ? 2500ms : 1000ms) ||
                     reply.find(kMarker) != std::string::npos ||
                     reply.find(base64Encode("---\ntitle: \"" + kMarker.substr(0, 12))) != std::string::npos)
            << tool << " " << arguments.dump().substr(0, 300) << ": " << reply.substr(0, 1000);
        return Json::parse(reply);
    };

    // clang-format off
    const std::string paths[] = {
        "..", "../Library-evil/secret.md", "..\\Library-evil\\secret.md", "Folder/../../Library-evil/secret.md",
        "Folder\\..\\..\\Outside\\note.md", "./../Outside/note.md", outside + "note.md", evil + "secret.md",
        "/" + evil + "secret.md", "~/../../" + evil + "secret.md", std::string("Note.md\0/../../Library-evil/secret.md", 37),
        std::string("\0", 1), "%2e%2e/Library-evil/secret.md", "%2E%2E%2FLibrary-evil%2Fsecret.md", "..%2fLibrary-evil%2fsecret.md",
        // one-dot leaders, full-width full stops, a division slash, a full-width solidus, a dot with a combining mark
        "\u2024\u2024/Library-evil/secret.md", "\uFF0E\uFF0E/Library-evil/secret.md", "..\u2215Library-evil\u2215secret.md",
        "..\uFF0FLibrary-evil\uFF0Fsecret.md", ".\u0338./Library-evil/secret.md", "Vorlo Data/../../Library-evil/secret.md",
        "VORLO DATA\\Attachments\\..\\..\\..\\Library-evil\\secret.md", repeated("a/", 32768) + "Note.md", std::string(65536, 'x') + ".md",
        "Folder//Inner.md", "Folder/./Inner.md"};
    // clang-format on
    // Each round one climbing path to every tool, every read tool in turn, and every other round the
    // writing tools as well; every path is sent at least once.
    const auto end = Clock::now() + std::chrono::seconds(sizeFromEnvironment("VORLO_HOSTILE_SECONDS", 4, 60));
    for (int round = 0; Clock::now() < end || round < int(std::size(paths)); ++round) {
        const std::string& path = paths[round % std::size(paths)];
        EXPECT_TRUE(call("read_note", {{"path", path}}).value("isError", false)) << path.substr(0, 80);
        call("read_attachment", {{"path", path}, {"attachment_name", "photo.png"}});
        call("read_attachment", {{"path", "Note.md"}, {"attachment_name", path}});
        call("update_note", {{"path", path}, {"expected_revision", std::string(64, '0')}, {"content", "x"}});
        call("list_notes", {{"folder", path}});
        // A folder name may be odd and still lie inside; wherever the note goes, it goes in here.
        call("create_note", {{"title", path}, {"folder", path}});
        call("create_note", {{"title", "Note"}, {"folder", path}});
        call("list_notes", {{"limit", 200}});
        call("search_notes", {{"query", kMarker}});
        call("search_notes", {{"query", "body"}});
        for (const char* note : {"Note.md", "Folder/Inner.md"}) {
            const Json read = call("read_note", {{"path", note}});
            const std::string revision =
                read.value("structuredContent", Json::object()).value("revision", "");
            if (round % 2 == 1 && revision.size() == 64)
                call("update_note",
                     {{"path", note}, {"expected_revision", revision}, {"content", "rewritten"}});
        }
        for (const char* name : {"photo.png", "text.txt"})
            call("read_attachment", {{"path", "Note.md"}, {"attachment_name", name}});
        const char* folders[] = {"", "Folder", "Folder/Sub"};
        if (round % 2 == 1) call("create_note", {{"title", "New"}, {"folder", folders[round / 2 % 3]}});
    }
    serving = false;
    swapper.join();
    EXPECT_GT(swapped, 100) << "too few swaps to race the calls";
    EXPECT_EQ(server.finish(), 0);
    EXPECT_EQ(snapshot(library.root(), "Library"), before);
}

} // namespace
} // namespace vorlo::testing
