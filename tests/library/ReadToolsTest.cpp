// The four reading tools called in-process as a client calls them. Each row is a call and what must
// come back: the exact text of the failure, or the parts of the structured result that matter (for
// read_attachment with the delivered item under "delivered"). What list_notes and search_notes
// find, and in what order, is held against a full sort in StreamedScanTest; which files are notes,
// against the rules in NoteLookupTest.
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vorlo::testing {
namespace {

const std::string kNoNote = "No unlocked Vorlo note exists at that path.";
const std::string kBadPath = "path must identify a Markdown note inside the Vorlo library.";
const std::string kNotAName = "attachment_name must be a filename returned by read_note.";
const std::string kNotListed = "That attachment does not belong to the requested note.";
const std::string kUnreadable = "The selected Vorlo library could not be read.";
const std::string kId = "12345678-90AB-CDEF-1234-567890ABCDEF";
const std::string kFolder = "Vorlo Data/Attachments/" + kId + "/";

struct Call {
    const char* tool;
    std::string arguments; // JSON
    std::string expected;  // a failure's text, or JSON that the result must hold
};

// Whether `actual` holds all that `expected` does: objects key by key, arrays element by element.
bool holds(const Json& actual, const Json& expected) {
    if (expected.is_object())
        return actual.is_object() &&
               std::all_of(expected.items().begin(), expected.items().end(), [&](const auto& item) {
                   return actual.contains(item.key()) && holds(actual.at(item.key()), item.value());
               });
    if (!expected.is_array()) return actual == expected;
    if (!actual.is_array() || actual.size() != expected.size()) return false;
    for (std::size_t i = 0; i < expected.size(); ++i)
        if (!holds(actual.at(i), expected.at(i))) return false;
    return true;
}

void expectCalls(const TempLibrary& library, const std::vector<Call>& calls) {
    for (const Call& call : calls) {
        SCOPED_TRACE(std::string(call.tool) + " " + call.arguments);
        const Json result = library.call(call.tool, Json::parse(call.arguments)).at("result");
        if (result.at("isError").get<bool>()) {
            EXPECT_EQ(result.at("content").at(0).at("text"), call.expected);
            continue;
        }
        Json structured = result.at("structuredContent");
        if (std::string_view(call.tool) == "read_attachment") {
            EXPECT_EQ(result.at("content").at(0).at("text"), structured.dump(2));
            structured["delivered"] = result.at("content").at(1);
        }
        EXPECT_TRUE(call.expected.starts_with("{") && holds(structured, Json::parse(call.expected)))
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
            {"list_notes", R"({"limit":"10","folder":1,"tag":1})", "limit must be a number."},
            {"list_notes", R"({"folder":1,"tag":1})", "folder must be a short string."},
            {"list_notes", R"({"tag":null})", "tag must be a short string."},
            {"list_notes", R"({})", kUnreadable},
            {"search_notes", R"({"limit":"x"})", "query is required."},
            {"search_notes", R"({"query":null})", "query is required."},
            {"search_notes", R"({"query":" \n\t ","limit":"x"})", "query must contain 1 to 1000 characters."},
            {"search_notes", R"({"query":")" + longest + R"(e"})",
             "query must contain 1 to 1000 characters."},
            {"search_notes", R"({"query":"x","limit":"x"})", "limit must be a number."},
            {"search_notes", R"({"query":"\n )" + longest + R"( \n"})", kUnreadable},
            {"read_note", R"({"path":5,"max_characters":"x"})", "path is required."},
            {"read_note", R"({"path":"a.txt","max_characters":"x"})", kBadPath},
            {"read_note", R"({"path":"a\\..\\b.md"})", kBadPath},
            {"read_note", R"({"path":"a.md","max_characters":"100"})", "max_characters must be a number."},
            {"read_note", R"({"path":"a.MD","max_characters":0})", kUnreadable},
            {"read_attachment", R"({"attachment_name":"x.png"})", "path is required."},
            {"read_attachment", R"({"path":"a.txt","attachment_name":5})", kBadPath},
            {"read_attachment", R"({"path":"a.md","attachment_name":5})",
             "attachment_name must be a short string."},
            {"read_attachment", R"({"path":"a.md"})", kNotAName},
            {"read_attachment", R"({"path":"a.md","attachment_name":"   "})", kNotAName},
            {"read_attachment", R"({"path":"a.md","attachment_name":"sub/photo.png"})", kNotAName},
            {"read_attachment", R"({"path":"a.md","attachment_name":"sub\\photo.png"})", kNotAName},
            {"read_attachment", R"({"path":"a.md","attachment_name":" photo.png "})", kUnreadable},
        });
}

TEST(ReadTools, AnswerWithTheNoteTheScanFindsAndItsAttachments) {
    TempLibrary library;
    library.write("abc.md", "abc");
    library.write("Emoji/e.md", "😀👍🏽🇩🇪");
    library.write("long.md", std::string(kMaximumReadCharacters, 'x') + "y");
    library.write("Note.md", "---\nid: " + std::string("12345678-90ab-cdef-1234-567890abcdef") + "\n---\n");
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
    library.write("Vorlo Data/Attachments/FFFFFFFF-BBBB-CCCC-DDDD-EEEEEEEEEEEE/at.txt",
                  std::string(kMaximumAttachmentBytes, 'a'));
    library.write("Vorlo Data/Attachments/FFFFFFFF-BBBB-CCCC-DDDD-EEEEEEEEEEEE/over.txt",
                  std::string(kMaximumAttachmentBytes + 1, 'a'));
    const std::string uri = R"("uri":"vorlo://attachment/)" + kId + "/"; // a blank in a name stays as it is
    expectCalls(
        library,
        {
            {"read_note", R"({"path":"ABC.md","max_characters":0})", R"({"content":"a","truncated":true})"},
            {"read_note", R"({"path":"abc.md","max_characters":-3})", R"({"content":"a","truncated":true})"},
            {"read_note", R"({"path":"abc.md","max_characters":true})",
             R"({"content":"a","truncated":true})"},
            {"read_note", R"({"path":"abc.md","max_characters":2.9})",
             R"({"content":"ab","truncated":true})"},
            {"read_note", R"({"path":"abc.md","max_characters":3})",
             R"({"content":"abc","truncated":false})"},
            {"read_note", R"({"path":"emoji\\E.MD","max_characters":2})",
             R"({"path":"Emoji/e.md","content":"😀👍🏽","truncated":true,"preview":"😀👍🏽🇩🇪"})"},
            {"read_note", R"({"path":"Emoji/e.md","max_characters":3})",
             R"({"content":"😀👍🏽🇩🇪","truncated":false})"},
            {"read_note", R"({"path":"long.md"})", R"({"truncated":true})"},
            {"read_note", R"({"path":"long.md","max_characters":999999})", R"({"truncated":true})"},
            {"read_note", R"({"path":" abc.md"})", kNoNote},
            {"read_note", R"({"path":"Note.md"})",
             R"({"attachments":[
            {"name":"a.tar.GZ","type":"gz","size_bytes":3,"library_relative_path":")" +
                 kFolder + R"(a.tar.GZ"},
            {"name":"bad.txt"},{"name":"drawing.svg"},{"name":"my Report.PDF"},{"name":"notes.txt"},
            {"name":"photo.png"},{"name":"README","type":""}]})"},
            {"read_note", R"({"path":"Linked.md"})", R"({"attachments":[]})"},
            {"read_note", R"({"path":"NoId.md"})", R"({"attachments":[]})"},
            {"read_attachment", R"({"path":"note.MD","attachment_name":"PHOTO.PNG"})",
             R"({"note_path":"Note.md","name":"photo.png","type":"png","mime_type":"image/png","size_bytes":4,
             "delivered":{"type":"image","data":"iVBORw==","mimeType":"image/png"}})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"drawing.svg"})",
             R"({"delivered":{"type":"image","data":"PHN2Zy8+","mimeType":"image/svg+xml"}})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"notes.txt"})",
             R"({"mime_type":"text/plain","delivered":{"type":"text","text":"héllo"}})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"bad.txt"})",
             R"({"delivered":{"type":"resource","resource":{)" + uri +
                 R"(bad.txt","mimeType":"text/plain","blob":"/w=="}}})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"my Report.PDF"})",
             R"({"type":"pdf","delivered":{"resource":{)" + uri + R"(my Report.PDF","name":"my Report.PDF",
             "mimeType":"application/pdf","blob":"JVBERg=="}}})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"README"})",
             R"({"type":"","mime_type":"application/octet-stream","delivered":{"resource":{"blob":""}}})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"a.tar.GZ"})",
             R"({"type":"gz","mime_type":"application/octet-stream"})"},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"link.png"})", kNotListed},
            {"read_attachment", R"({"path":"Note.md","attachment_name":".hidden.png"})", kNotListed},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"sub"})", kNotListed},
            {"read_attachment", R"({"path":"Note.md","attachment_name":"inner.png"})", kNotListed},
            {"read_attachment", R"({"path":"NoId.md","attachment_name":"x.png"})", kNotListed},
            {"read_attachment", R"({"path":"Other.md","attachment_name":"photo.png"})", kNoNote},
            {"read_attachment", R"({"path":"Big.md","attachment_name":"at.txt"})",
             "{\"size_bytes\":" + std::to_string(kMaximumAttachmentBytes) + "}"},
            {"read_attachment", R"({"path":"Big.md","attachment_name":"over.txt"})",
             "The attachment exceeds Vorlo's 33554432-byte MCP transfer limit."},
        });
}

TEST(ReadTools, AttachmentFolderLeadingOutOfTheLibraryIsListedButNeverRead) {
    TempLibrary library;
    library.write("Note.md", "---\nid: " + kId + "\n---\n");
    writeFile(library.root() + "/outside.png", "x");
    std::filesystem::create_directories(library.root() + "/Outside/Attachments/" + kId);
    writeFile(library.root() + "/Outside/Attachments/" + kId + "/x.png", "outside");
    library.link("Vorlo Data", library.root() + "/Outside");
    expectCalls(library, {{"read_note", R"({"path":"Note.md"})", R"({"attachments":[{"name":"x.png"}]})"},
                          {"read_attachment", R"({"path":"Note.md","attachment_name":"x.png"})",
                           "The requested attachment is not a safe Vorlo file."}});
}

// Only what lies past the library's own path is judged, so a library reached through a link works.
TEST(ReadTools, LibraryReachedThroughALinkWorks) {
    TempLibrary library;
    library.write("Note.md", "---\nid: " + kId + "\n---\n");
    library.write(kFolder + "a.txt", "text");
    std::filesystem::create_directory_symlink(library.root(), library.root() + "/Linked");
    const VorloMCPServer server(library.root() + "/Linked/Library", library.preferences());
    const Json request = {
        {"jsonrpc", "2.0"},
        {"id", 1},
        {"method", "tools/call"},
        {"params",
         {{"name", "read_attachment"}, {"arguments", {{"path", "Note.md"}, {"attachment_name", "a.txt"}}}}}};
    const Json reply = Json::parse(*server.handle(request.dump()));
    EXPECT_EQ(reply.at("result").at("content").at(1).at("text"), "text") << reply;
}

} // namespace
} // namespace vorlo::testing
