#pragma once
// What counts as a note, and the one walk of the library that finds them.

#include "library/NoteRecord.h"
#include "platform/Time.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vorlo::library {

// A note file as the scan admitted it: its bytes from the one read that also gives the revision.
struct NoteFile {
    std::string relativePath;
    std::string bytes; // valid UTF-8, at most kMaximumNoteBytes
    std::optional<Timestamp> modified;
    int mark = 0; // what the walk's judge gave it, for the visitor
};

// Asked of a candidate's library-relative path once it has passed the textual tests, before the
// file is opened; a walk without one takes every note.
using PathFilter = std::function<bool(std::string_view)>;

// Judges a note on the thread that read it, before its turn to be visited, and may set its mark;
// false leaves the note out. The judging of a walk's notes runs at once on all its reading threads,
// in no particular order, so each thread makes its own judge, which then keeps its state unguarded.
using Judge = std::function<bool(NoteFile&)>;
using JudgeMaker = std::function<Judge()>;

// Walks the library depth-first, in the file system's own order, and hands every admitted note
// file that `wanted` and the judges of `judges` accept to `visit`, in that order. `visit` may run on other
// threads, one call after the other, while the walk reads ahead; it must share no unguarded state with
// anything but the caller, who waits, and what it throws comes out of the walk. Throws ServerError "The
// selected Vorlo library could not be read." when the library cannot be opened; nothing else
// fails the walk.
void walkNoteFiles(const std::string& libraryPath, const std::function<void(NoteFile&&)>& visit,
                   const PathFilter& wanted = {}, const JudgeMaker& judges = {});

// The note file that a full walk would yield first among those whose relative path compares equal
// to `relativePath` ignoring case (text::caseInsensitiveEqual); absent when there is none. Only the
// folders along the path are listed and only the matching files are read, at the time of the call.
// Throws as walkNoteFiles does when the library cannot be opened.
std::optional<NoteFile> findNoteFile(const std::string& libraryPath, std::string_view relativePath);

// Hashes and parses an admitted file into its record.
NoteRecord makeRecord(NoteFile&& file);

} // namespace vorlo::library
