// The four reading tools called in-process as a client calls them. Each row is a call and what must
// come back: "TOOL ARGUMENTS ! TEXT" fails with exactly TEXT; "TOOL ARGUMENTS ~> JSON" succeeds with
// a structured result that holds JSON (for read_attachment with the delivered item as "delivered").
// What list_notes and search_notes find, and in what order, is held against a full sort in
// LibraryScanTest, as are which files are notes.
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vorlo::testing {
namespace {

const std::string kId = "12345678-90AB-CDEF-1234-567890ABCDEF";
const std::string kFolder = "Vorlo Data/Attachments/" + kId + "/";

// Whether `actual` holds all that `expected` does: objects key by key, arrays element by element.
bool holds(const Json& actual, const Json& expected) {
    if (!expected.is_structured() || actual.type() != expected.type() ||
        (expected.is_array() && actual.size() != expected.size()))
        return actual == expected;
    for (const auto& item : expected.items())
        if (const Json::json_pointer at("/" + item.key());
            !actual.contains(at) || !holds(actual.at(at), item.value()))
            return false;
    return true;
}

void expectCalls(const TempLibrary& library, const std::vector<std::string>& rows) {
    for (const std::string& row : rows) {
        SCOPED_TRACE(row);
        const std::size_t space = row.find(' '), arrow = row.find(" ~> "), bang = row.find(" ! ");
        const std::string tool = row.substr(0, space), expected = row.substr(std::min(arrow, bang) + 3);
        const Json arguments = Json::parse(row.substr(space + 1, std::min(arrow, bang) - space - 1));
        const Json result = library.call(tool, arguments).at("result");
        if (result.at("isError").get<bool>()) {
            EXPECT_EQ(result.at("content").at(0).at("text"), bang < arrow ? expected : "(a success)");
            continue;
        }
        Json structured = result.at("structuredContent");
        if (tool == "read_attachment") {
            EXPECT_EQ(result.at("content").at(0).at("text"), structured.dump(2));
            structured["delivered"] = result.at("content").at(1);
        }
        EXPECT_TRUE(arrow < bang && holds(structured, Json::parse(expected)))
            << structured.dump().substr(0, 2000);
    }
}

TEST(ReadTools, ArgumentsAreCheckedInOrderBeforeTheLibraryIsRead) {
    TempLibrary library;
    std::filesystem::remove_all(library.library()); // a call that passes every check says so
    std::string longest;
    for (std::size_t i = 0; i < kMaximumQueryCharacters; ++i)
        longest += "e\u0301"; // two code points, one character
    expectCalls(
        library,
        {
            R"(list_notes {"limit":"10","folder":1,"tag":1} ! limit must be a number.)",
            R"(list_notes {"folder":1,"tag":1} ! folder must be a short string.)",
            R"(list_notes {"tag":null} ! tag must be a short string.)",
            R"(list_notes {} ! The selected Vorlo library could not be read.)",
            R"(search_notes {"limit":"x"} ! query is required.)",
            R"(search_notes {"query":null} ! query is required.)",
            R"(search_notes {"query":" \n\t ","limit":"x"} ! query must contain 1 to 1000 characters.)",
            R"(search_notes {"query":")" + longest + R"(e"} ! query must contain 1 to 1000 characters.)",
            R"(search_notes {"query":"x","limit":"x"} ! limit must be a number.)",
            R"(search_notes {"query":"\n )" + longest +
                R"( \n"} ! The selected Vorlo library could not be read.)",
            R"(read_note {"path":"a.txt","max_characters":"x"} ! path must identify a Markdown note inside the Vorlo library.)",
            R"(read_note {"path":"a.md","max_characters":"100"} ! max_characters must be a number.)",
            R"(read_note {"path":"a.MD","max_characters":0} ! The selected Vorlo library could not be read.)",
            R"(read_attachment {"path":"a.txt","attachment_name":5} ! path must identify a Markdown note inside the Vorlo library.)",
            R"(read_attachment {"path":"a.md","attachment_name":5} ! attachment_name must be a short string.)",
            R"(read_attachment {"path":"a.md"} ! attachment_name must be a filename returned by read_note.)",
            R"(read_attachment {"path":"a.md","attachment_name":"a/b.png"} ! attachment_name must be a filename returned by read_note.)",
            R"(read_attachment {"path":"a.md","attachment_name":"a\\b.png"} ! attachment_name must be a filename returned by read_note.)",
            R"(read_attachment {"path":"a.md","attachment_name":" photo.png "} ! The selected Vorlo library could not be read.)",
        });
}

TEST(ReadTools, AnswerWithTheNoteTheScanFindsAndItsAttachments) {
    TempLibrary library;
    library.write("abc.md", "abc");
    library.write("Emoji/e.md", "😀👍🏽🇩🇪");
    library.write("long.md", std::string(kMaximumReadCharacters, 'x') + "y");
    library.write("Note.md",
                  "---\nid: 12345678-90ab-cdef-1234-567890abcdef\n---\n"); // its folder's name is canonical
    const std::pair<const char*, const char*> attachments[] = {
        {"photo.png", "\x89PNG"}, {"drawing.svg", "<svg/>"}, {"notes.txt", "héllo"},
        {"bad.txt", "\xff"},      {"my Report.PDF", "%PDF"}, {"README", ""},
        {"a.tar.GZ", "abc"},      {".hidden.png", "x"},      {"sub/inner.png", "x"},
        {"\xff.png", "x"}};
    for (const auto& [name, bytes] : attachments)
        library.write(kFolder + name, bytes);
    library.link(kFolder + "link.png", library.path(kFolder + "photo.png"));
    library.write("NoId.md", "no header");
    library.write("Vorlo Data/Attachments/NoId/x.png", "x");
    library.write("Linked.md", "---\nid: AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE\n---\n");
    library.link("Vorlo Data/Attachments/AAAAAAAA-BBBB-CCCC-DDDD-EEEEEEEEEEEE", library.path(kFolder));
    library.write("Big.md", "---\nid: FFFFFFFF-BBBB-CCCC-DDDD-EEEEEEEEEEEE\n---\n");
    const std::string big = "Vorlo Data/Attachments/FFFFFFFF-BBBB-CCCC-DDDD-EEEEEEEEEEEE/";
    library.write(big + "at.txt", std::string(kMaximumAttachmentBytes, 'a'));
    library.write(big + "over.txt", std::string(kMaximumAttachmentBytes + 1, 'a'));
    expectCalls(
        library,
        {
            R"(read_note {"path":"ABC.md","max_characters":0} ~> {"content":"a","truncated":true})",
            R"(read_note {"path":"abc.md","max_characters":2.9} ~> {"content":"ab","truncated":true})",
            R"(read_note {"path":"emoji\\E.MD","max_characters":2} ~> {"path":"Emoji/e.md","content":"😀👍🏽","truncated":true,"preview":"😀👍🏽🇩🇪"})",
            R"(read_note {"path":"Emoji/e.md","max_characters":3} ~> {"content":"😀👍🏽🇩🇪","truncated":false})",
            R"(read_note {"path":"long.md"} ~> {"truncated":true})",
            R"(read_note {"path":"long.md","max_characters":999999} ~> {"truncated":true})",
            R"(read_note {"path":" abc.md"} ! No unlocked Vorlo note exists at that path.)",
            R"(read_note {"path":"Note.md"} ~> {"attachments":[{"name":"a.tar.GZ","type":"gz","size_bytes":3,"library_relative_path":")" +
                kFolder + R"(a.tar.GZ"},{"name":"bad.txt"},{"name":"drawing.svg"},{"name":"my Report.PDF"},
            {"name":"notes.txt"},{"name":"photo.png"},{"name":"README","type":""}]})",
            R"(read_note {"path":"Linked.md"} ~> {"attachments":[]})",
            R"(read_note {"path":"NoId.md"} ~> {"attachments":[]})",
            R"(read_attachment {"path":"note.MD","attachment_name":"PHOTO.PNG"} ~> {"note_path":"Note.md","name":"photo.png","type":"png","mime_type":"image/png","size_bytes":4,"delivered":{"type":"image","data":"iVBORw==","mimeType":"image/png"}})",
            R"(read_attachment {"path":"Note.md","attachment_name":"drawing.svg"} ~> {"delivered":{"type":"image","data":"PHN2Zy8+","mimeType":"image/svg+xml"}})",
            R"(read_attachment {"path":"Note.md","attachment_name":"notes.txt"} ~> {"mime_type":"text/plain","delivered":{"type":"text","text":"héllo"}})",
            R"(read_attachment {"path":"Note.md","attachment_name":"bad.txt"} ~> {"delivered":{"type":"resource","resource":{"mimeType":"text/plain","blob":"/w=="}}})",
            R"(read_attachment {"path":"Note.md","attachment_name":"my Report.PDF"} ~> {"type":"pdf","delivered":{"resource":{"uri":"vorlo://attachment/)" +
                kId +
                R"(/my Report.PDF","name":"my Report.PDF","mimeType":"application/pdf","blob":"JVBERg=="}}})",
            R"(read_attachment {"path":"Note.md","attachment_name":"README"} ~> {"type":"","mime_type":"application/octet-stream","delivered":{"resource":{"blob":""}}})",
            R"(read_attachment {"path":"Note.md","attachment_name":"link.png"} ! That attachment does not belong to the requested note.)",
            R"(read_attachment {"path":"Note.md","attachment_name":".hidden.png"} ! That attachment does not belong to the requested note.)",
            R"(read_attachment {"path":"Note.md","attachment_name":"sub"} ! That attachment does not belong to the requested note.)",
            R"(read_attachment {"path":"Note.md","attachment_name":"inner.png"} ! That attachment does not belong to the requested note.)",
            R"(read_attachment {"path":"NoId.md","attachment_name":"x.png"} ! That attachment does not belong to the requested note.)",
            R"(read_attachment {"path":"Other.md","attachment_name":"photo.png"} ! No unlocked Vorlo note exists at that path.)",
            R"(read_attachment {"path":"Big.md","attachment_name":"at.txt"} ~> {"size_bytes":)" +
                std::to_string(kMaximumAttachmentBytes) + "}",
            R"(read_attachment {"path":"Big.md","attachment_name":"over.txt"} ! The attachment exceeds Vorlo's 33554432-byte MCP transfer limit.)",
        });
}

// The attachment folder is listed through links on the way to it, so its file is offered; what
// lies outside the library is never delivered. Only what lies past the library's own path is
// judged, so a library reached through a link works.
TEST(ReadTools, AttachmentsOutsideTheLibraryAreNeverRead) {
    TempLibrary library;
    library.write("Note.md", "---\nid: " + kId + "\n---\n");
    std::filesystem::create_directories(library.root() + "/Outside/Attachments/" + kId);
    writeFile(library.root() + "/Outside/Attachments/" + kId + "/x.png", "outside");
    library.link("Vorlo Data", library.root() + "/Outside");
    expectCalls(
        library,
        {R"(read_note {"path":"Note.md"} ~> {"attachments":[{"name":"x.png"}]})",
         R"(read_attachment {"path":"Note.md","attachment_name":"x.png"} ! The requested attachment is not a safe Vorlo file.)"});

    std::filesystem::remove(library.path("Vorlo Data"));
    library.write(kFolder + "a.txt", "text");
    std::filesystem::create_directory_symlink(library.root(), library.root() + "/Linked");
    const Json params = {{"name", "read_attachment"},
                         {"arguments", {{"path", "Note.md"}, {"attachment_name", "a.txt"}}}};
    const auto reply =
        VorloMCPServer(library.root() + "/Linked/Library", library.preferences())
            .handle(Json{{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"}, {"params", params}}.dump());
    EXPECT_EQ(Json::parse(*reply).at("result").at("content").at(1).at("text"), "text") << *reply;
}

} // namespace
} // namespace vorlo::testing
