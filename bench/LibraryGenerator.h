#pragma once
// A deterministic library of Markdown notes shaped like a real one, and the facts about it that a
// checker needs to judge the server's answers.

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorlo::bench {

// A text whose number of matching notes is known because the generator put it there.
struct KnownWord {
    std::string label;         // what the row of the table calls it
    std::string query;         // what the client searches for
    std::uint64_t notes = 0;   // notes whose title, body or tags contain it once folded
};

struct LibraryFacts {
    std::uint64_t seed = 0;
    std::uint64_t notes = 0;      // note files the server should list
    std::uint64_t noteBytes = 0;  // their total size
    // In this order: a word in 1% of notes, one in 50%, one in none, one that only folding finds.
    std::vector<KnownWord> words;
    std::string folder;           // a folder three levels deep, and how many notes lie directly in it
    std::uint64_t folderNotes = 0;
    std::string tag;              // a nested tag, from headers and bodies alike, and how many notes carry it
    std::uint64_t tagNotes = 0;
    std::string readPath;         // a ~4 KB note with front matter and a non-ASCII title
    std::string readTitle;
    std::string attachmentName;   // a small image in the attachment folder of that note
    std::uint64_t attachmentBytes = 0;
};

// Changes whenever the generated files change, so that a library kept from an older generator is
// written again rather than checked against counts that no longer hold.
inline constexpr int kGeneratorVersion = 1;
inline constexpr std::uint64_t kDefaultSeed = 20261123;

// Writes a library of `notes` notes into the folder `libraryPath`, which must not exist yet. The
// same seed and count give the same files, byte for byte, with the same modification times.
LibraryFacts generateLibrary(const std::string& libraryPath, std::uint64_t notes, std::uint64_t seed);

// Makes `folder`/Library and `folder`/manifest.json, or reuses them when the manifest says they were
// made by this generator with these inputs: a large library takes a while to write. A library
// without a manifest (an interrupted run) is removed and written again.
LibraryFacts prepareLibrary(const std::string& folder, std::uint64_t notes, std::uint64_t seed);

nlohmann::json factsToJson(const LibraryFacts& facts);
std::optional<LibraryFacts> factsFromJson(const nlohmann::json& json);

} // namespace vorlo::bench
