#pragma once
// What no answer built from a fresh walk of the library can beat, measured on the same machine in
// the same run: the benchmark reports every scanning tool as a multiple of it.

#include <cstdint>
#include <string>

namespace vorlo::bench {

struct FloorPass {
    std::uint64_t notes = 0;    // .md files read and hashed
    std::uint64_t bytes = 0;
    std::uint64_t checksum = 0; // of the digests, so the work cannot be optimised away
};

// One pass the way the server's scan walks: every folder except hidden ones and the private folder
// in the root, `lstat` of each .md entry, then open, `fstat`, a read of the whole file into one
// buffer reused across files, and SHA-256 (OpenSSL EVP). Single-threaded; parsing, JSON and
// replies are left out. Throws when the library cannot be opened.
FloorPass floorPass(const std::string& libraryPath);

// One durable small-file write as the writing tools make it: a 4 KB temporary file written and
// flushed, renamed over a name in `folder`, the folder flushed. Returns its seconds; throws on
// failure. The file is removed afterwards, outside the time.
double durableWriteSeconds(const std::string& folder);

} // namespace vorlo::bench
