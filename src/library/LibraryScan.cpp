// The library scan: what counts as a note, and the one walk that finds the notes.
#include "library/LibraryScan.h"

#include "library/NoteParser.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/Files.h"
#include "platform/FilesAt.h"
#include "platform/Text.h"
#include "protocol/VorloMCPServer.h"
#include "tools/Limits.h"
#include "tools/Validators.h"

#include <vector>

namespace vorlo::library {
namespace {

// The folder in the library's root where the notes application keeps attachments and locks.
constexpr std::string_view kPrivateFolderName = "Vorlo Data";

// Asked of a candidate's library-relative path once it has passed the textual tests, before the
// file is opened; a walk without one takes every note.
using PathFilter = std::function<bool(std::string_view)>;

// Only "M" and "D" lower-case to "m" and "d" in all of Unicode, so a byte comparison decides
// "the extension in lower case is md" for any name.
bool hasMarkdownExtension(std::string_view name) {
    const std::string_view extension = fs::pathExtension(name);
    return extension.size() == 2 && (extension[0] | 0x20) == 'm' && (extension[1] | 0x20) == 'd';
}

// What the walk does with one entry of a folder.
struct Verdict {
    bool enter = false;           // a folder whose contents the walk takes next
    std::optional<NoteFile> note; // an admitted note file
};

// The one definition of what the walk enters and what it admits. Anything that finds a note by
// another route must come to the same verdict for every entry on its way. Hidden entries never
// reach it: the listing leaves them out with everything below them.
Verdict judgeEntry(int folderFd, const fs::DirectoryEntry& entry, const std::string& relativePath,
                   bool inRoot, const PathFilter& wanted) {
    Verdict verdict;
    if (entry.kind == fs::EntryKind::Directory) {
        // Only the root's private folder is the system's; one of that name further down is the user's.
        // A link to a folder is no Directory here, so the walk never leaves the library through one.
        verdict.enter = !(inRoot && entry.name == kPrivateFolderName);
        return verdict;
    }
    if (!hasMarkdownExtension(entry.name)) return verdict;
    // A name that is not UTF-8 could never be written into a reply.
    if (!text::isValidUtf8(relativePath) || !tools::isSafeRelativePath(relativePath)) return verdict;
    if (wanted && !wanted(relativePath)) return verdict;
    if (entry.kind != fs::EntryKind::RegularFile) return verdict;
    // The listing's kind may be stale: the read refuses a link, a FIFO or a device that took the
    // file's place since, without blocking, and judges the size of what it actually opened.
    auto contents = fs::readRegularFileAt(folderFd, entry.name.c_str(), kMaximumNoteBytes);
    if (!contents || !text::isValidUtf8(contents->bytes)) return verdict;
    verdict.note = NoteFile{relativePath, std::move(contents->bytes), contents->modified};
    return verdict;
}

struct OpenFolder {
    fs::UniqueFd fd;
    std::vector<fs::DirectoryEntry> entries;
    std::size_t next = 0;
    std::string relativePath;
};

std::optional<OpenFolder> openFolder(fs::UniqueFd fd, std::string relativePath) {
    if (!fd) return std::nullopt;
    auto entries = fs::listDirectoryAt(fd.get());
    if (!entries) return std::nullopt;
    return OpenFolder{std::move(fd), std::move(*entries), 0, std::move(relativePath)};
}

// Depth-first, each folder's entries in listing order and a folder's contents right after the
// folder, so the order is a function of the listings alone. The stack holds one open folder per
// level, not the call stack, so no depth of nesting can overflow it; a level that cannot be opened
// (out of descriptors, no permission, swapped for a link) is passed over like any unreadable folder.
// `visit` returns false to end the walk.
void walk(const std::string& libraryPath, const PathFilter& wanted,
          const std::function<bool(NoteFile&&)>& visit) {
    std::vector<OpenFolder> stack;
    auto root = openFolder(fs::openDirectory(libraryPath), "");
    if (!root) throw ServerError("The selected Vorlo library could not be read.");
    stack.push_back(std::move(*root));
    while (!stack.empty()) {
        OpenFolder& folder = stack.back();
        if (folder.next == folder.entries.size()) {
            stack.pop_back();
            continue;
        }
        const fs::DirectoryEntry& entry = folder.entries[folder.next++];
        std::string relativePath =
            folder.relativePath.empty() ? entry.name : folder.relativePath + "/" + entry.name;
        Verdict verdict = judgeEntry(folder.fd.get(), entry, relativePath, stack.size() == 1, wanted);
        if (verdict.note && !visit(std::move(*verdict.note))) return;
        if (verdict.enter) {
            auto inner =
                openFolder(fs::openDirectoryAt(folder.fd.get(), entry.name.c_str()), std::move(relativePath));
            if (inner) stack.push_back(std::move(*inner)); // `folder` and `entry` are stale from here on
        }
    }
}

} // namespace

void walkNoteFiles(const std::string& libraryPath, const std::function<void(NoteFile&&)>& visit) {
    walk(libraryPath, {}, [&](NoteFile&& file) {
        visit(std::move(file));
        return true;
    });
}

std::optional<NoteFile> findNoteFile(const std::string& libraryPath, std::string_view relativePath) {
    std::optional<NoteFile> found;
    walk(
        libraryPath,
        [&](std::string_view candidate) { return text::caseInsensitiveEqual(candidate, relativePath); },
        [&](NoteFile&& file) {
            found = std::move(file);
            return false;
        });
    return found;
}

NoteRecord makeRecord(NoteFile&& file) {
    // The revision is taken over the raw bytes, before the parser normalises line ends.
    std::string revision = sha256Hex(file.bytes);
    return parseNote(std::move(file.bytes), std::move(file.relativePath), file.modified, std::move(revision));
}

} // namespace vorlo::library

namespace vorlo {

std::vector<NoteRecord> VorloMCPServer::scanNotes() const {
    std::vector<NoteRecord> notes;
    library::walkNoteFiles(libraryURL_, [&](library::NoteFile&& file) {
        notes.push_back(library::makeRecord(std::move(file)));
    });
    return notes;
}

std::optional<NoteRecord> VorloMCPServer::findNote(std::string_view relativePath) const {
    auto file = library::findNoteFile(libraryURL_, relativePath);
    if (!file) return std::nullopt;
    return library::makeRecord(std::move(*file));
}

std::string VorloMCPServer::relativePath(std::string_view path) const {
    const std::string standardized = fs::standardizedPath(path);
    const std::string root = fs::standardizedPath(libraryURL_) + "/";
    if (standardized.size() <= root.size() || standardized.compare(0, root.size(), root) != 0) return {};
    return standardized.substr(root.size());
}

} // namespace vorlo
