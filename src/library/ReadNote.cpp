// The read_note tool and attachment discovery.
#include "library/Summaries.h"
#include "platform/CaseMapping.h"
#include "platform/Characters.h"
#include "platform/Collation.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/FilesAt.h"
#include "platform/Utf8.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/Validators.h"

#include <algorithm>

namespace vorlo {
namespace {

// Each note's attachments lie directly in a folder of this one named after the note's id.
constexpr std::string_view kAttachmentsFolder = "Vorlo Data/Attachments";

long long maximumCharacters(const Json& arguments) {
    const Json* value = tools::argument(arguments, "max_characters");
    if (value == nullptr) return kMaximumReadCharacters;
    if (!isNumberOrBoolean(*value)) throw ServerError("max_characters must be a number.");
    return std::clamp(integerValue(*value), 1LL, kMaximumReadCharacters);
}

} // namespace

Json VorloMCPServer::readNote(const Json& arguments) const {
    const std::string path = tools::notePathArgument(arguments);
    const auto limit = static_cast<std::size_t>(maximumCharacters(arguments));
    // Every argument is checked before this point, so a bad one never costs a walk of the library.
    std::optional<NoteRecord> note = findNote(path);
    if (!note) throw ServerError("No unlocked Vorlo note exists at that path.");

    Json result = library::summary(*note);
    result["attachments"] = attachments(*note);
    const bool truncated = text::hasMoreCharactersThan(note->content, limit);
    result["truncated"] = truncated;
    if (truncated)
        result["content"] = std::string(text::firstCharacters(note->content, limit));
    else
        result["content"] = std::move(note->content);
    return result;
}

Json VorloMCPServer::attachments(const NoteRecord& note) const {
    Json entries = Json::array();
    if (!note.id) return entries;
    const std::string folder = fs::joinPath(fs::joinPath(libraryURL_, kAttachmentsFolder), *note.id);
    // Opened without following a final link, so a folder that is a link lists nothing; listing and
    // examining through the descriptor keeps it the folder that was opened.
    const fs::UniqueFd folderFd = fs::openDirectory(folder);
    if (!folderFd) return entries;
    auto listing = fs::listDirectoryAt(folderFd.get());
    if (!listing) return entries;

    struct Attachment {
        std::string name;
        std::uint64_t size;
    };
    std::vector<Attachment> found;
    for (auto& item : *listing) {
        // A name that is not UTF-8 could never be written into a reply.
        if (!text::isValidUtf8(item.name)) continue;
        const auto status = fs::linkStatusAt(folderFd.get(), item.name.c_str());
        if (!status || status->kind != fs::EntryKind::RegularFile) continue;
        found.push_back(Attachment{std::move(item.name), status->size});
    }
    std::stable_sort(found.begin(), found.end(), [](const Attachment& a, const Attachment& b) {
        return text::localizedCaseInsensitiveCompare(a.name, b.name) < 0;
    });

    for (auto& attachment : found) {
        Json entry = Json::object();
        entry["type"] = text::lowercased(fs::pathExtension(attachment.name));
        entry["size_bytes"] = attachment.size;
        entry["library_relative_path"] = relativePath(fs::joinPath(folder, attachment.name));
        entry["name"] = std::move(attachment.name);
        entries.push_back(std::move(entry));
    }
    return entries;
}

} // namespace vorlo
