#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace vorlo::testing {
namespace {

constexpr const char* kId = "12345678-90AB-CDEF-1234-567890ABCDEF";
constexpr const char* kNotListed = "That attachment does not belong to the requested note.";
constexpr const char* kUnsafe = "The requested attachment is not a safe Vorlo file.";
constexpr const char* kTooLarge = "The attachment exceeds Vorlo's 33554432-byte MCP transfer limit.";
constexpr const char* kNotAName = "attachment_name must be a filename returned by read_note.";

// The whole result of a successful call, or the text of its failure.
Json outcome(const TempLibrary& library, const Json& arguments) {
    const Json result = library.call("read_attachment", arguments).at("result");
    return result.at("isError").get<bool>() ? result.at("content").at(0).at("text") : result;
}

std::string attachmentPath(std::string_view name) {
    return std::string("Vorlo Data/Attachments/") + kId + "/" + std::string(name);
}

// A library with the note "Note.md" that owns the attachment folder.
struct AttachmentLibrary : TempLibrary {
    AttachmentLibrary() { write("Note.md", std::string("---\nid: ") + kId + "\n---\nbody"); }
    void attach(std::string_view name, std::string_view bytes) const { write(attachmentPath(name), bytes); }
    Json readAttachment(std::string_view name) const {
        return outcome(*this, {{"path", "note.MD"}, {"attachment_name", name}});
    }
};

TEST(ReadAttachment, ArgumentsAreCheckedInOrderBeforeTheLibraryIsRead) {
    TempLibrary library;
    std::filesystem::remove_all(library.library());
    const struct {
        Json arguments;
        std::string message;
    } cases[] = {
        {{{"attachment_name", "x.png"}}, "path is required."},
        {{{"path", "a.txt"}, {"attachment_name", 5}},
         "path must identify a Markdown note inside the Vorlo library."},
        {{{"path", "a.md"}, {"attachment_name", 5}}, "attachment_name must be a short string."},
        {{{"path", "a.md"}}, kNotAName},
        {{{"path", "a.md"}, {"attachment_name", "   "}}, kNotAName},
        {{{"path", "a.md"}, {"attachment_name", "sub/photo.png"}}, kNotAName},
        {{{"path", "a.md"}, {"attachment_name", "../photo.png"}}, kNotAName},
        {{{"path", "a.md"}, {"attachment_name", "sub\\photo.png"}}, kNotAName},
        {{{"path", "a.md"}, {"attachment_name", " photo.png "}},
         "The selected Vorlo library could not be read."},
    };
    for (const auto& c : cases)
        EXPECT_EQ(outcome(library, c.arguments), c.message) << c.arguments.dump();
}

TEST(ReadAttachment, DeliversImagesTextAndResourcesByMimeType) {
    AttachmentLibrary library;
    const auto image = [](const char* data, const char* mimeType) {
        return Json{{"type", "image"}, {"data", data}, {"mimeType", mimeType}};
    };
    const auto text = [](const char* text) { return Json{{"type", "text"}, {"text", text}}; };
    const auto resource = [](const std::string& name, const char* mimeType, const char* blob) {
        const std::string uri =
            std::string("vorlo://attachment/") + kId + "/" + name; // the blank stays as it is
        return Json{{"type", "resource"},
                    {"resource", {{"uri", uri}, {"name", name}, {"mimeType", mimeType}, {"blob", blob}}}};
    };
    const struct {
        const char* name;
        const char* bytes;
        const char* type;
        const char* mimeType;
        Json item;
    } cases[] = {
        {"photo.png", "\x89PNG", "png", "image/png", image("iVBORw==", "image/png")},
        {"empty.png", "", "png", "image/png", image("", "image/png")},
        {"drawing.svg", "<svg/>", "svg", "image/svg+xml", image("PHN2Zy8+", "image/svg+xml")},
        {"notes.txt", "héllo", "txt", "text/plain", text("héllo")},
        {"empty.txt", "", "txt", "text/plain", text("")},
        {"bad.txt", "\xff", "txt", "text/plain", resource("bad.txt", "text/plain", "/w==")},
        {"data.json", "{}", "json", "application/json", resource("data.json", "application/json", "e30=")},
        {"my Report.PDF", "%PDF", "pdf", "application/pdf",
         resource("my Report.PDF", "application/pdf", "JVBERg==")},
        {"README", "", "", "application/octet-stream", resource("README", "application/octet-stream", "")},
    };
    for (const auto& c : cases)
        library.attach(c.name, c.bytes);
    for (const auto& c : cases) {
        const Json result = library.readAttachment(c.name);
        ASSERT_TRUE(result.is_object()) << c.name << ": " << result;
        const Json metadata = {{"note_path", "Note.md"},
                               {"name", c.name},
                               {"type", c.type},
                               {"mime_type", c.mimeType},
                               {"size_bytes", std::string_view(c.bytes).size()}};
        EXPECT_EQ(result.at("structuredContent"), metadata) << c.name;
        ASSERT_EQ(result.at("content").size(), 2u) << c.name;
        EXPECT_EQ(Json::parse(result.at("content").at(0).at("text").get<std::string>()), metadata) << c.name;
        EXPECT_EQ(result.at("content").at(1), c.item) << c.name;
    }
    // The name is matched ignoring case, and the reply shows the name on disk.
    EXPECT_EQ(library.readAttachment("PHOTO.PNG").at("structuredContent").at("name"), "photo.png");
}

TEST(ReadAttachment, ReadsOnlyWhatTheNotesListHolds) {
    AttachmentLibrary library;
    library.attach("real.png", "x");
    library.attach(".hidden.png", "x");
    library.attach("sub/inner.png", "x");
    library.link(attachmentPath("link.png"), library.path(attachmentPath("real.png")));
    library.write("NoId.md", "no header");
    library.write(std::string("Vorlo Data/Attachments/NoId/x.png"), "x");
    for (const char* name : {"link.png", ".hidden.png", "sub", "inner.png", "missing.png"})
        EXPECT_EQ(library.readAttachment(name), kNotListed) << name;
    EXPECT_EQ(outcome(library, {{"path", "NoId.md"}, {"attachment_name", "x.png"}}), kNotListed);
    EXPECT_EQ(outcome(library, {{"path", "Other.md"}, {"attachment_name", "real.png"}}),
              "No unlocked Vorlo note exists at that path.");
}

TEST(ReadAttachment, PrivateFolderLeadingOutOfTheLibraryIsUnsafe) {
    TempLibrary library;
    library.write("Note.md", std::string("---\nid: ") + kId + "\n---\n");
    writeFile(library.root() + "/outside.png", "x");
    std::filesystem::create_directories(library.root() + "/Outside/Attachments/" + kId);
    writeFile(library.root() + "/Outside/Attachments/" + kId + "/x.png", "outside");
    library.link("Vorlo Data", library.root() + "/Outside");
    // The listing follows the link, so the file is offered, but never delivered.
    const Json note = library.call("read_note", {{"path", "Note.md"}}).at("result").at("structuredContent");
    EXPECT_EQ(note.at("attachments").at(0).at("name"), "x.png");
    EXPECT_EQ(outcome(library, {{"path", "Note.md"}, {"attachment_name", "x.png"}}), kUnsafe);
}

TEST(ReadAttachment, LibraryReachedThroughALinkWorks) {
    AttachmentLibrary library;
    library.attach("a.txt", "text");
    const std::string linkedRoot = library.root() + "/Linked";
    std::filesystem::create_directory_symlink(library.root(), linkedRoot);
    const VorloMCPServer server(linkedRoot + "/Library", library.preferences());
    const Json request = {
        {"jsonrpc", "2.0"},
        {"id", 1},
        {"method", "tools/call"},
        {"params",
         {{"name", "read_attachment"}, {"arguments", {{"path", "Note.md"}, {"attachment_name", "a.txt"}}}}}};
    const Json reply = Json::parse(*server.handle(request.dump()));
    EXPECT_EQ(reply.at("result").at("content").at(1).at("text"), "text") << reply;
}

TEST(ReadAttachment, SizeLimitIsInclusive) {
    AttachmentLibrary library;
    library.attach("at.txt", std::string(kMaximumAttachmentBytes, 'a'));
    library.attach("over.txt", std::string(kMaximumAttachmentBytes + 1, 'a'));
    EXPECT_EQ(library.readAttachment("at.txt").at("structuredContent").at("size_bytes"),
              kMaximumAttachmentBytes);
    EXPECT_EQ(library.readAttachment("over.txt"), kTooLarge);
}

} // namespace
} // namespace vorlo::testing
