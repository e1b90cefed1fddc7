// The create_note tool.
#include "library/NoteParser.h"
#include "library/Summaries.h"
#include "mutation/MutationLock.h"
#include "mutation/NoteRenderer.h"
#include "platform/Errors.h"
#include "platform/Folder.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Validators.h"

namespace vorlo {

Json VorloMCPServer::createNote(const Json& arguments) const {
    // Arguments are checked before the lock: a bad one neither waits nor touches the disk.
    std::string title = tools::noteTitle(tools::argument(arguments, "title"));
    std::string content = tools::noteContent(tools::argument(arguments, "content"), std::string());
    const std::string folder =
        tools::optionalString(tools::argument(arguments, "folder"), "folder").value_or("");
    std::vector<std::string> tags = tools::noteTags(tools::argument(arguments, "tags"));
    const bool pinned =
        tools::optionalBoolean(tools::argument(arguments, "pinned"), "pinned").value_or(false);

    // The lock covers the folder walk, the choice of the name, the write and the marker, so a
    // second server creating the same title sees this one's file when it picks its name.
    MutationLockGuard lock(libraryURL_, std::string(kLocksFolder));
    const fs::Folder placement = writableFolderURL(folder);
    const std::string target = uniqueNoteURL(placement, title);

    const Timestamp now = currentTime();
    std::string text = mutation::renderNote(
        {Uuid::random(), std::move(title), now, now, std::move(tags), pinned, false, std::move(content)});
    writeNewDataAtomically(text, placement, target);
    const std::optional<std::string> warning = recordCompletedMutation();

    const std::string path = relativePath(target);
    int error = 0;
    const auto status = placement.status(fs::lastComponent(target), &error);
    if (!status) throwFileFailure("file", path, "examined", error);

    // The result is parsed from the text in memory, not read back: it shows what was written even
    // if someone outside the lock changes the file at once, and its revision is that of these bytes.
    std::string revision = sha256Hex(text);
    Json result = Json::object();
    result["created"] = true;
    result["note"] =
        library::summary(library::parseNote(std::move(text), path, status->modified, std::move(revision)));
    if (warning) result["monitoring_warning"] = *warning;
    return result;
}

} // namespace vorlo
