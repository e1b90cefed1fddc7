// The walk against the rules of what is a note, and the lookup by path against the walk, over
// generated libraries: whatever the lookup skips, it must give the note that the walk yields first
// among those whose path matches, or nothing when none does. VORLO_LOOKUP_SEED=<seed> replays the
// one library that a failure names.
#include "GeneratedLibrary.h"
#include "library/LibraryScan.h"
#include "platform/Collation.h"
#include "platform/Time.h"

#include <gtest/gtest.h>

namespace vorlo::testing {
namespace {

using library::NoteFile;

// Paths to ask for: every entry in its own and in other spellings, the notes in more (equivalent
// spellings decide among matches), paths that nothing matches, and malformed ones.
std::vector<std::string> askedPaths(GeneratedLibrary& generated) {
    std::vector<std::string> asked = {""};
    for (const Entry& entry : generated.entries())
        for (int i = generated.notes().contains(entry.relativePath) ? 0 : 3; i < 5; ++i)
            asked.push_back(i == 0 ? entry.relativePath : generated.spell(entry.names));
    for (int i = 0; i < 20; ++i)
        asked.push_back(generated.spell({generated.randomName(), generated.randomName()}));
    for (const std::string form : {"/", "./", "../Library/", "a//"}) {
        const std::string path =
            generated.entries().empty() ? "" : generated.pick(generated.entries()).relativePath;
        asked.insert(asked.end(), {form + path, path + "/", path + std::string("\0", 1)});
    }
    return asked;
}

std::string describe(const NoteFile* note) {
    return note ? ::testing::PrintToString(note->relativePath) + " of " + std::to_string(note->bytes.size()) +
                      " bytes " + ::testing::PrintToString(note->bytes.substr(0, 40)) +
                      (note->modified ? " modified " + formatIso8601(*note->modified) : "")
                : "no note";
}

TEST(NoteLookup, WalkFollowsTheRulesAndLookupAgreesWithItsFirstMatch) {
    std::uint64_t first = 20240501, end = first + 100;
    if (const char* replay = std::getenv("VORLO_LOOKUP_SEED"))
        end = (first = std::strtoull(replay, nullptr, 10)) + 1;
    std::size_t found = 0, respelled = 0, several = 0;
    for (std::uint64_t seed = first; seed < end && !HasFailure(); ++seed) {
        SCOPED_TRACE("replay with VORLO_LOOKUP_SEED=" + std::to_string(seed));
        GeneratedLibrary generated(seed, 6);
        const std::string& root = generated.library().library();
        std::vector<NoteFile> scan;
        std::set<std::string> scanned;
        library::walkNoteFiles(root, [&](NoteFile&& file) {
            scanned.insert(file.relativePath);
            scan.push_back(std::move(file));
        });
        EXPECT_EQ(scanned, generated.notes());
        for (const std::string& asked : askedPaths(generated)) {
            std::vector<const NoteFile*> matches;
            for (const NoteFile& note : scan)
                if (text::caseInsensitiveEqual(note.relativePath, asked)) matches.push_back(&note);
            const std::optional<NoteFile> lookup = library::findNoteFile(root, asked);
            ASSERT_EQ(describe(lookup ? &*lookup : nullptr), describe(matches.empty() ? nullptr : matches[0]))
                << "asked for " << ::testing::PrintToString(asked);
            found += !matches.empty();
            respelled += !matches.empty() && matches[0]->relativePath != asked;
            several += matches.size() > 1;
        }
    }
    // The generator must keep producing the cases that the comparison is about.
    EXPECT_TRUE(end - first == 1 || (respelled > found / 2 && several > 100)) << respelled << " " << several;
}

} // namespace
} // namespace vorlo::testing
