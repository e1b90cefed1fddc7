// Temporary bodies for the note-reading subsystem while it is being written. Each owner deletes
// the definitions they replace; the file goes when it is empty.
#include "library/InlineTags.h"
#include "library/LibraryScan.h"
#include "library/MimeTypes.h"
#include "library/NoteParser.h"
#include "library/Summaries.h"
#include "protocol/VorloMCPServer.h"

#include "platform/Errors.h"

#include <stdexcept>

namespace vorlo::library {
NoteRecord parseNote(std::string, std::string, std::optional<Timestamp>, std::string) { throw std::logic_error("todo"); }
std::string_view folderOf(std::string_view) { throw std::logic_error("todo"); }
std::string_view defaultTitle(std::string_view) { throw std::logic_error("todo"); }
std::vector<std::string> inlineTags(std::string_view) { throw std::logic_error("todo"); }
Json summary(const NoteRecord&) { throw std::logic_error("todo"); }
std::string compactPreview(std::string_view) { throw std::logic_error("todo"); }
std::string snippet(std::string_view, std::string_view) { throw std::logic_error("todo"); }
bool newestFirst(const NoteRecord&, const NoteRecord&) { throw std::logic_error("todo"); }
void walkNoteFiles(const std::string&, const std::function<void(NoteFile&&)>&) { throw std::logic_error("todo"); }
std::optional<NoteFile> findNoteFile(const std::string&, std::string_view) { throw std::logic_error("todo"); }
NoteRecord makeRecord(NoteFile&&) { throw std::logic_error("todo"); }
std::string_view mimeType(std::string_view) { throw std::logic_error("todo"); }
} // namespace vorlo::library

namespace vorlo {
std::vector<NoteRecord> VorloMCPServer::scanNotes() const { throw std::logic_error("todo"); }
std::optional<NoteRecord> VorloMCPServer::findNote(std::string_view) const { throw std::logic_error("todo"); }
std::string VorloMCPServer::relativePath(std::string_view) const { throw std::logic_error("todo"); }
Json VorloMCPServer::listNotes(const Json&) const { throw ServerError("list_notes is not available yet."); }
Json VorloMCPServer::searchNotes(const Json&) const { throw ServerError("search_notes is not available yet."); }
Json VorloMCPServer::readNote(const Json&) const { throw ServerError("read_note is not available yet."); }
Json VorloMCPServer::attachments(const NoteRecord&) const { throw std::logic_error("todo"); }
AttachmentReadResult VorloMCPServer::readAttachment(const Json&) const {
    throw ServerError("read_attachment is not available yet.");
}
} // namespace vorlo
