#pragma once
// Libraries and arguments built to make a careless server slow, huge or dead. Each grows with one
// number, so that rows at n and 2n show whether the cost follows the size or outgrows it.

#include <cstddef>
#include <string>

namespace vorlo::bench {

// "’" followed by `joiners` zero-width joiners: one character of 3 + 3 × `joiners` bytes, which
// folding leaves as it is.
std::string oneCharacterQuery(std::size_t joiners);

// Notes written straight into the folder `libraryPath`, which must exist:
// "Prose.md", up to `bytes` bytes of ordinary prose with a curly apostrophe on every line;
void writeProseNote(const std::string& libraryPath, std::size_t bytes);
// "Accents.md", titled `title`, its body "été " repeated to up to `bytes` bytes;
void writeAccentedNote(const std::string& libraryPath, const std::string& title, std::size_t bytes);
// "Tags.md", "#a " repeated to up to `bytes` bytes.
void writeRepeatedTagNote(const std::string& libraryPath, std::size_t bytes);

// "Vorlo Data/Locks/Library Mutation.lock" without an owner record, an hour old, holding a chain of
// `depth` nested folders.
void writeDeepAbandonedLock(const std::string& libraryPath, std::size_t depth);

// Removes `path` with everything below it, at any depth: std::filesystem::remove_all works by whole
// paths, which a deep chain takes past PATH_MAX.
void removeTree(const std::string& path);

} // namespace vorlo::bench
