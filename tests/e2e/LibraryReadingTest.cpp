// The read tools through the real binary, on libraries that hold what a file system can hold.
#include "platform/Crypto.h"
#include "support/ServerProcess.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <set>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace vorlo::testing {
namespace {

constexpr const char* kId = "12345678-90AB-CDEF-1234-567890ABCDEF";
constexpr const char* kNoNote = "No unlocked Vorlo note exists at that path.";

void makeSocket(const std::string& path) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
}

std::set<std::string> listedPaths(ServerProcess& server) {
    std::set<std::string> paths;
    const Json result = server.call("list_notes", {{"limit", 200}});
    for (const auto& note : result.at("structuredContent").at("notes"))
        paths.insert(note.at("path").get<std::string>());
    return paths;
}

std::string failureText(const Json& result) {
    return result.at("isError").get<bool>() ? result.at("content").at(0).at("text").get<std::string>() : "";
}

TEST(LibraryReading, ScanAdmitsOnlyPlainUtf8MarkdownFilesOutsideThePrivateFolder) {
    TempLibrary library;
    const std::set<std::string> admitted = {
        "Root.md",
        "Note.MD",
        "Mixed.Md",
        "Empty.md",
        "vorlo data/Note.md",
        "Projects/Vorlo Data/Note.md",
        "Projects/~scratch.md",
        "Folder.md/inside.md",
    };
    for (const auto& path : admitted)
        library.write(path, path == "Empty.md" ? "" : "text");
    for (const char* path : {"Vorlo Data/Note.md", "Vorlo Data/Sub/Deep.md", ".hidden.md", ".trash/Note.md",
                             "Projects/.hidden/inner.md", "~scratch.md", "~old/Note.md", "Notes.markdown",
                             "Notes.md.txt", "\xff-name.md", "Folder\xff/inner.md"})
        library.write(path, "text");
    library.write("BadBytes.md", "valid start \xc3\x28");
    library.link("Link.md", library.path("Root.md"));
    library.link("LinkedFolder", library.path("Projects"));
    ASSERT_EQ(::mkfifo(library.path("fifo.md").c_str(), 0600), 0);
    makeSocket(library.path("socket.md"));

    ServerProcess server(library.preferences());
    EXPECT_EQ(listedPaths(server), admitted);
    // A file the scan leaves out cannot be read by name either, and a FIFO never blocks the server.
    for (const char* path : {"Vorlo Data/Sub/Deep.md", ".hidden.md", ".trash/Note.md", "BadBytes.md",
                             "Link.md", "LinkedFolder/Note.md", "fifo.md", "socket.md"})
        EXPECT_EQ(failureText(server.call("read_note", {{"path", path}})), kNoNote) << path;
    // The lookup ignores case, so the private folder's note names the user's folder of another case.
    EXPECT_EQ(server.call("read_note", {{"path", "Vorlo Data/Note.md"}}).at("structuredContent").at("path"),
              "vorlo data/Note.md");
    const auto exit = server.finish();
    EXPECT_EQ(exit.status, 0);
    EXPECT_EQ(exit.standardError, "");
}

TEST(LibraryReading, HostileLibraryNeverRevealsFilesOutsideIt) {
    TempLibrary library;
    const std::string marker = "OUTSIDE-THE-LIBRARY-5d1c9e";
    const std::string outside = library.root() + "/Outside";
    std::filesystem::create_directories(outside + "/Attachments/" + kId);
    for (const char* name : {"/secret.md", "/Attachments/12345678-90AB-CDEF-1234-567890ABCDEF/secret.png",
                             "/Attachments/12345678-90AB-CDEF-1234-567890ABCDEF/secret.txt"})
        writeFile(outside + name, marker);
    library.link("leak.md", outside + "/secret.md");
    library.link("Folder", outside);
    library.link("Vorlo Data", outside);
    const std::string line(100000, 'a');
    library.write("Long.md",
                  std::string("---\nid: ") + kId + "\n---\n" + line + "\n" + line + " needle " + line);

    ServerProcess server(library.preferences());
    std::vector<Json> results;
    const auto call = [&](std::string_view tool, const Json& arguments) {
        results.push_back(server.call(tool, arguments));
        return results.back();
    };
    EXPECT_EQ(listedPaths(server), std::set<std::string>{"Long.md"});
    EXPECT_EQ(call("search_notes", {{"query", marker}}).at("structuredContent").at("total_matches"), 0);
    EXPECT_EQ(call("search_notes", {{"query", "NEEDLE"}}).at("structuredContent").at("total_matches"), 1);
    EXPECT_EQ(failureText(call("read_note", {{"path", "leak.md"}})), kNoNote);
    EXPECT_EQ(failureText(call("read_note", {{"path", "Folder/secret.md"}})), kNoNote);
    const Json longNote = call("read_note", {{"path", "Long.md"}}).at("structuredContent");
    EXPECT_EQ(longNote.at("content").get<std::string>().size(),
              static_cast<std::size_t>(kMaximumReadCharacters));
    EXPECT_TRUE(longNote.at("truncated").get<bool>());
    for (const char* name : {"secret.png", "secret.txt"})
        EXPECT_EQ(failureText(call("read_attachment", {{"path", "Long.md"}, {"attachment_name", name}})),
                  "The requested attachment is not a safe Vorlo file.");
    EXPECT_EQ(
        failureText(call("read_attachment", {{"path", "Long.md"}, {"attachment_name", "../../secret.md"}})),
        "attachment_name must be a filename returned by read_note.");

    for (const auto& result : results) {
        const std::string text = result.dump();
        EXPECT_EQ(text.find(marker), std::string::npos);
        EXPECT_EQ(text.find(base64Encode(marker)), std::string::npos);
    }
    EXPECT_EQ(server.finish().status, 0);
}

} // namespace
} // namespace vorlo::testing
