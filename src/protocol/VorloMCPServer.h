#pragma once
// The server: one value built at start-up, whose methods are the protocol front, the tool layer,
// note reading and note writing. Each group is defined in the files of its subsystem.

#include "library/NoteRecord.h"
#include "platform/Json.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vorlo {

namespace fs {
class Folder;
}

// What read_attachment returns: the metadata and ready-made MCP content items.
struct AttachmentReadResult {
    Json structuredContent;
    Json content;
};

class VorloMCPServer {
public:
    // No I/O: tests build a server on a temporary library in one line.
    VorloMCPServer(std::string libraryPath, std::string preferencesPath);

    // --- Protocol front (protocol/) ---
    // Finds and reads the preferences and checks the library; throws what must end the process.
    static VorloMCPServer start();
    // One input line in; the reply line out (without its newline), or nothing when none is due.
    std::optional<std::string> handle(std::string_view line) const;

    // --- Tool layer (tools/) ---
    static const Json& toolDefinitions(); // built on first use
    // Always yields exactly one reply line (absent only when it cannot be serialised).
    std::optional<std::string> handleToolCall(const Json& id, const Json* params) const;

    // --- Note reading (library/) ---
    std::vector<NoteRecord> scanNotes() const;
    // The first note of the scan whose path compares equal ignoring case, or absent.
    std::optional<NoteRecord> findNote(std::string_view relativePath) const;
    // `path` relative to the library, "" when it is not below it.
    std::string relativePath(std::string_view path) const;
    Json listNotes(const Json& arguments) const;
    Json searchNotes(const Json& arguments) const;
    Json readNote(const Json& arguments) const;
    Json attachments(const NoteRecord& note) const; // sorted array of attachment entries
    AttachmentReadResult readAttachment(const Json& arguments) const;

    // --- Note writing (mutation/) ---
    // Absent on success, else the warning for the client.
    std::optional<std::string> recordCompletedMutation() const;
    // The folder for a new note, made if missing, opened without ever passing through a link.
    fs::Folder writableFolderURL(std::string_view relativeFolder) const;
    // The path of a free name in `folder` for a note of that title.
    std::string uniqueNoteURL(const fs::Folder& folder, std::string_view title) const;
    // Writes the note at `target`, whose last component names it inside `folder`.
    void writeNewDataAtomically(std::string_view bytes, const fs::Folder& folder, const std::string& target) const;
    Json createNote(const Json& arguments) const;
    Json updateNote(const Json& arguments) const;

    const std::string& libraryURL() const { return libraryURL_; }
    const std::string& preferencesURL() const { return preferencesURL_; }

private:
    std::string libraryURL_;
    std::string preferencesURL_;
};

} // namespace vorlo
