// The read_attachment tool: one file of a note's attachment folder, as an image, as text or as an
// embedded resource.
#include "library/MimeTypes.h"
#include "platform/CaseMapping.h"
#include "platform/Collation.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/Utf8.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/Validators.h"

#include <algorithm>
#include <cerrno>

namespace vorlo {
namespace {

constexpr const char* kNotListedMessage = "That attachment does not belong to the requested note.";
constexpr const char* kUnsafeMessage = "The requested attachment is not a safe Vorlo file.";
constexpr const char* kTooLargeMessage = "The attachment exceeds Vorlo's 33554432-byte MCP transfer limit.";

// The trimmed name, if it can be a name that read_note listed: nothing to look for, or anything
// with a separator in it, is refused before the library is walked.
std::string attachmentName(const Json& arguments) {
    const auto name = tools::optionalString(tools::argument(arguments, "attachment_name"), "attachment_name");
    // Without "/" a name is its own last path component. A backslash is refused as well, because in
    // a note's path it acts as a separator and a client may expect the same here.
    if (!name || name->find('/') != std::string::npos || name->find('\\') != std::string::npos)
        throw ServerError("attachment_name must be a filename returned by read_note.");
    return *name;
}

// The second content item: images as images, UTF-8 text as text, and everything else (text files
// that are not UTF-8 included) as an embedded resource.
Json deliveredItem(std::string bytes, const std::string& mimeType, const std::string& noteId,
                   const std::string& name) {
    Json item = Json::object();
    if (mimeType.starts_with("image/")) {
        item["type"] = "image";
        item["data"] = base64Encode(bytes);
        item["mimeType"] = mimeType;
    } else if (mimeType.starts_with("text/") && text::isValidUtf8(bytes)) {
        item["type"] = "text";
        item["text"] = std::move(bytes);
    } else {
        Json resource = Json::object();
        // Joined as it stands, blanks and all: clients only hand the uri back, never parse it.
        resource["uri"] = "vorlo://attachment/" + noteId + "/" + name;
        resource["name"] = name;
        resource["mimeType"] = mimeType;
        resource["blob"] = base64Encode(bytes);
        item["type"] = "resource";
        item["resource"] = std::move(resource);
    }
    return item;
}

} // namespace

AttachmentReadResult VorloMCPServer::readAttachment(const Json& arguments) const {
    const std::string path = tools::notePathArgument(arguments);
    const std::string requestedName = attachmentName(arguments);

    const std::optional<NoteRecord> note = findNote(path);
    if (!note) throw ServerError("No unlocked Vorlo note exists at that path.");
    // Only a file in the note's own list can be read, found the way read_note showed it.
    const Json listed = attachments(*note);
    const auto entry = std::find_if(listed.begin(), listed.end(), [&](const Json& candidate) {
        return text::caseInsensitiveEqual(candidate["name"].get_ref<const std::string&>(), requestedName);
    });
    if (entry == listed.end()) throw ServerError(kNotListedMessage);
    const Json& listedPath = (*entry)["library_relative_path"];
    if (!listedPath.is_string() || !tools::isSafeRelativePath(listedPath.get_ref<const std::string&>()))
        throw ServerError(kNotListedMessage);
    const std::string& displayPath = listedPath.get_ref<const std::string&>();
    const std::string& name = (*entry)["name"].get_ref<const std::string&>();
    const std::string location = fs::joinPath(libraryURL_, displayPath);

    // The file is examined anew rather than trusted from the listing, which is a moment old. The
    // listing followed links on the way to the attachment folder, so the resolved location must
    // still lie in the library: a "Vorlo Data" that leads elsewhere yields nothing.
    int error = 0;
    const auto status = fs::linkStatus(location, &error);
    if (!status) throwFileFailure("file", displayPath, "read", error);
    if (status->kind != fs::EntryKind::RegularFile ||
        !fs::isDescendantPath(fs::resolvedPath(location), fs::resolvedPath(libraryURL_)))
        throw ServerError(kUnsafeMessage);
    if (status->size > kMaximumAttachmentBytes) throw ServerError(kTooLargeMessage);

    // The read stops one byte past the limit, so a file that grew since it was examined is refused too.
    // What is read is judged again where it lies, as a folder on the way may be a link by now.
    auto contents = fs::readRegularFileInside(location, libraryURL_, kMaximumAttachmentBytes, &error);
    if (!contents) {
        if (error == EFBIG) throw ServerError(kTooLargeMessage);
        // Replaced by a link, a FIFO or a device since it was examined, or reached through a link
        // that leads out of the library.
        if (error == ELOOP || error == EINVAL || error == EXDEV) throw ServerError(kUnsafeMessage);
        throwFileFailure("file", displayPath, "read", error);
    }

    const std::string extension(fs::pathExtension(location));
    const std::string mimeType(library::mimeType(extension));
    Json metadata = Json::object();
    metadata["note_path"] = note->relativePath;
    metadata["name"] = name;
    metadata["type"] = text::lowercased(extension);
    metadata["mime_type"] = mimeType;
    metadata["size_bytes"] = contents->bytes.size();

    Json content = Json::array();
    content.push_back(Json{{"type", "text"}, {"text", writePrettyJson(metadata)}});
    content.push_back(deliveredItem(std::move(contents->bytes), mimeType, *note->id, name));
    return AttachmentReadResult{std::move(metadata), std::move(content)};
}

} // namespace vorlo
