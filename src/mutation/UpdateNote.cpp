// The update_note tool: a conditional rewrite of one note under the mutation lock.
#include "library/NoteParser.h"
#include "library/Summaries.h"
#include "mutation/MutationLock.h"
#include "mutation/NoteRenderer.h"
#include "platform/Errors.h"
#include "platform/Folder.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Validators.h"

namespace vorlo {
namespace {

constexpr std::size_t kRevisionDigits = 64;

bool isLineTerminator(std::string_view tail) {
    return tail == "\n" || tail == "\v" || tail == "\f" || tail == "\r" || tail == "\r\n" ||
           tail == "\u0085" || tail == "\u2028" || tail == "\u2029";
}

// 64 lower-case hexadecimal digits, as the pattern "^[0-9a-f]{64}$" reads them: its "$" also
// matches before one line terminator at the very end. Such a revision passes here and is then
// reported as stale, since no digest ever equals it.
bool hasRevisionForm(std::string_view revision) {
    if (revision.size() < kRevisionDigits) return false;
    for (std::size_t i = 0; i < kRevisionDigits; ++i) {
        const char c = revision[i];
        if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
    }
    const std::string_view tail = revision.substr(kRevisionDigits);
    return tail.empty() || isLineTerminator(tail);
}

} // namespace

Json VorloMCPServer::updateNote(const Json& arguments) const {
    const std::string path = tools::notePathArgument(arguments);
    const Json* expected = tools::argument(arguments, "expected_revision");
    if (expected == nullptr || !expected->is_string() ||
        !hasRevisionForm(expected->get_ref<const std::string&>()))
        throw ServerError(
            "expected_revision is required. Read the note first and pass its revision so Vorlo can "
            "prevent overwriting a newer edit.");
    const Json* titleArgument = tools::argument(arguments, "title");
    const Json* contentArgument = tools::argument(arguments, "content");
    const Json* tagsArgument = tools::argument(arguments, "tags");
    const Json* pinnedArgument = tools::argument(arguments, "pinned");
    // Presence alone counts here; a null value is refused by its validator under the lock.
    if (!titleArgument && !contentArgument && !tagsArgument && !pinnedArgument)
        throw ServerError("Provide content, title, tags, or pinned to update.");

    // From the scan to the rename no other server can change the note, so the revision compared
    // below still holds when the new text replaces the file.
    MutationLockGuard lock(libraryURL_, std::string(kLocksFolder));
    std::optional<NoteRecord> note = findNote(path);
    if (!note) throw ServerError("No unlocked Vorlo note exists at that path.");
    if (note->revision != expected->get_ref<const std::string&>())
        throw ServerError(
            "The note changed after it was read. Read it again, review the new contents, and retry "
            "with the new revision.");

    const Timestamp now = currentTime();
    mutation::NoteFields fields;
    fields.id = note->id ? Uuid::parse(*note->id).value_or(Uuid::random()) : Uuid::random();
    fields.title = titleArgument ? tools::noteTitle(titleArgument) : std::move(note->title);
    fields.content =
        contentArgument ? tools::noteContent(contentArgument, std::string()) : std::move(note->content);
    // Without a tags argument the record's tags are kept, and they include the body's inline tags:
    // those now stand in the header and stay there even if the new body drops them.
    fields.tags = tagsArgument ? tools::noteTags(tagsArgument) : std::move(note->tags);
    fields.pinned = tools::optionalBoolean(pinnedArgument, "pinned").value_or(note->pinned);
    fields.archived = note->archived;
    const std::optional<Timestamp> created = note->created ? parseIso8601(*note->created) : std::nullopt;
    fields.created = created.value_or(now);
    fields.modified = now;
    std::string text = mutation::renderNote(fields);

    // The file written is the one whose revision was compared. Where two names differ in case alone,
    // the client's spelling could name the other file, whose content this would silently replace.
    // Its folder is opened from the library without following a link, as the scan found it: a
    // folder swapped for a link since then cannot lead the write outside.
    const std::string_view notePath = note->relativePath;
    const std::size_t slash = notePath.rfind('/');
    const std::string_view folderPath = slash == std::string_view::npos ? std::string_view() : notePath.substr(0, slash);
    const std::string_view name = slash == std::string_view::npos ? notePath : notePath.substr(slash + 1);
    int error = 0;
    const auto folder = fs::Folder::openBelow(libraryURL_, folderPath, fs::Folder::Missing::Fail, &error);
    if (!folder) throwFileFailure("file", note->relativePath, "examined", error);
    const auto before = folder->status(name, &error);
    if (!before) throwFileFailure("file", note->relativePath, "examined", error);
    if (before->kind != fs::EntryKind::RegularFile)
        throw ServerError("The requested note is no longer a regular Vorlo file.");
    // A rename replaces a link that appears at the name now, and never writes through it.
    if (const int writeError = folder->replaceFile(name, text, 0600); writeError != 0)
        throwFileFailure("file", note->relativePath, "saved", writeError);
    const std::optional<std::string> warning = recordCompletedMutation();

    const auto after = folder->status(name, &error);
    if (!after) throwFileFailure("file", note->relativePath, "examined", error);

    // Reported under the client's spelling of the path, with the revision of the bytes written.
    std::string revision = sha256Hex(text);
    Json result = Json::object();
    result["updated"] = true;
    result["note"] =
        library::summary(library::parseNote(std::move(text), path, after->modified, std::move(revision)));
    if (warning) result["monitoring_warning"] = *warning;
    return result;
}

} // namespace vorlo
