// The walk and the lookup over generated libraries: the walk admits what the rules admit; the lookup
// by path gives the note that the walk yields first among those whose path matches, or nothing;
// every way of reading gives the plain records; and the streaming list and search, which keep only
// their best notes, give what a full sort of the plain scan gives. VORLO_LOOKUP_SEED=<seed> replays
// the one small library that a failure names.
#include "library/LibraryScan.h"

#include "GeneratedLibrary.h"
#include "library/Summaries.h"
#include "platform/CharacterSets.h"
#include "platform/Collation.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/Folding.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "support/IoMode.h"

#include <gtest/gtest.h>

#include <thread>

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
        const std::string path = generated.pick(generated.entries()).relativePath;
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

TEST(LibraryScan, WalkFollowsTheRulesAndLookupAgreesWithItsFirstMatch) {
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

// The plain way: every note in memory and a stable sort of all that match, the arguments taken as
// the tools take them: blank folders and tags are no filter, and a query that folds to nothing, such
// as a lone combining mark, matches no note rather than all. A search puts title matches first, then
// body or tag matches; within each, the `modified` texts of the summaries descending.
std::vector<std::size_t> referenceOrder(const std::vector<NoteRecord>& notes,
                                        const std::vector<Json>& summaries, const Json& arguments) {
    const auto trimmed = [&](const char* key) {
        return std::string(text::trimWhitespaceAndNewlines(arguments.value(key, "")));
    };
    const std::string folder = trimmed("folder"), tag = trimmed("tag"), query = text::fold(trimmed("query"));
    const bool search = arguments.contains("query");
    const auto holds = [&](const std::string& text) {
        return !query.empty() && text::fold(text).find(query) != std::string::npos;
    };
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < notes.size(); ++i) {
        const bool tagged =
            std::any_of(notes[i].tags.begin(), notes[i].tags.end(), [&](const std::string& t) {
                return search ? holds(t) : text::caseInsensitiveEqual(t, tag);
            });
        if (search ? holds(notes[i].title) || holds(notes[i].content) || tagged
                   : (folder.empty() || text::caseInsensitiveEqual(notes[i].relativeFolder, folder)) &&
                         (tag.empty() || tagged))
            order.push_back(i);
    }
    const auto modified = [&](std::size_t i) {
        return summaries[i]["modified"].is_null() ? "" : summaries[i]["modified"].get<std::string>();
    };
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) {
        if (!search) return library::newestFirst(notes[a], notes[b]);
        const bool titleA = holds(notes[a].title), titleB = holds(notes[b].title);
        return titleA != titleB ? titleA : modified(a) > modified(b);
    });
    return order;
}

TEST(LibraryScan, EveryWayOfReadingGivesThePlainRecordsAndListAndSearchTheirFullSort) {
    GeneratedLibrary generated(7, 120);
    const TempLibrary& library = generated.library();
    const auto plain = [&] {
        const IoMode sync("sync");
        return library.server().scanNotes();
    }();
    ASSERT_GT(plain.size(), 200u);
    // A library that is missing, a file or a link is refused whole: the walk never starts through a
    // link (the message is pinned by the reading transcripts).
    library.link("../Linked", library.library());
    for (const std::string& root :
         {library.path("Missing"), library.path(plain[0].relativePath), library.root() + "/Linked"}) {
        EXPECT_THROW(library::walkNoteFiles(root, [](NoteFile&&) {}), ServerError) << root;
        EXPECT_THROW(library::findNoteFile(root, plain[0].relativePath), ServerError) << root;
    }
    std::vector<Json> summaries;
    std::vector<std::string> folders;
    for (std::size_t i = 0; i < plain.size(); ++i) {
        // The walk is depth-first: a folder's notes come as one run, whatever the order of the listings.
        const auto inside = [&](const NoteRecord& note) {
            return note.relativePath.starts_with(plain[i].relativeFolder + "/");
        };
        EXPECT_TRUE(i == 0 || inside(plain[i - 1]) || plain[i].relativeFolder.empty() ||
                    std::none_of(plain.begin(), plain.begin() + i, inside))
            << plain[i].relativePath;
        // The revision is the digest of the bytes on disk, not of the text with its line ends normalised.
        EXPECT_EQ(plain[i].revision, sha256Hex(library.read(plain[i].relativePath)));
        if (i % 50 == 0) folders.push_back(plain[i].relativeFolder);
        summaries.push_back(library::summary(plain[i]));
    }
    std::vector<std::tuple<std::string, Json, std::vector<std::size_t>>> calls; // tool, arguments, full order
    const auto add = [&](const char* tool, const Json& arguments) {
        calls.emplace_back(tool, arguments, referenceOrder(plain, summaries, arguments));
    };
    // Folder and tag, a pair at a time.
    const std::string filters[] = {"", "",    folders[0],  "", folders[1], " WORK ", folders[2] + "/",
                                   "", "   ", "caf\u00e9", "", "idea/sub", "",       "#work"};
    for (std::size_t i = 0; i < std::size(filters); i += 2)
        add("list_notes", Json{{"folder", filters[i]}, {"tag", filters[i + 1]}});
    for (const char* query : {"lantern", " creme brulee\n", "alpha", "ECOLE", "work", "strasse", "fine",
                              "istanbul", "lantern\nlantern", "xxxxxxxx lantern", "plan", "\u0301"})
        add("search_notes", Json{{"query", query}});

    for (const std::string mode : kIoModes) {
        SCOPED_TRACE(ioModeName(mode));
        const IoMode chosen(mode);
        const auto notes = library.server().scanNotes();
        ASSERT_EQ(notes.size(), plain.size());
        for (std::size_t i = 0; i < notes.size(); ++i) {
            EXPECT_EQ(notes[i].content, plain[i].content) << plain[i].relativePath;
            EXPECT_EQ(notes[i].fileModificationDate, plain[i].fileModificationDate) << plain[i].relativePath;
            EXPECT_EQ(library::summary(notes[i]), summaries[i]);
        }
        // What the visitor throws ends the walk, in the first batch or a later one, and comes out.
        std::set<std::thread::id> threads;
        for (const std::size_t failAt :
             {std::size_t{0}, std::size_t{63}, std::size_t{64}, plain.size() - 1}) {
            std::size_t visited = 0;
            const auto visit = [&](NoteFile&&) {
                threads.insert(std::this_thread::get_id());
                if (visited++ == failAt) throw std::runtime_error("stop");
            };
            EXPECT_THROW(library::walkNoteFiles(library.library(), visit), std::runtime_error);
            EXPECT_EQ(visited, failAt + 1) << "nothing is visited after the failure";
        }
        // The modes are only as good as their difference: on one processor the notes are visited on
        // the calling thread, and where there are more, on the threads that read them.
        EXPECT_EQ(threads == std::set{std::this_thread::get_id()},
                  mode == "one core" || process::usableProcessors() == 1);
        for (const auto& [tool, arguments, order] : calls) {
            for (const long long limit : {1, 50, 200}) {
                Json expected = Json::array(), asked = arguments;
                for (std::size_t k = 0; k < order.size() && k < static_cast<std::size_t>(limit); ++k) {
                    expected.push_back(summaries[order[k]]);
                    if (tool == "search_notes")
                        expected.back()["snippet"] = library::snippet(
                            plain[order[k]].content,
                            text::trimWhitespaceAndNewlines(arguments["query"].get<std::string>()));
                }
                asked["limit"] = limit;
                EXPECT_EQ(library.call(tool, asked).at("result").at("structuredContent"),
                          (Json{{"notes", expected},
                                {"returned", expected.size()},
                                {"total_matches", order.size()}}))
                    << asked.dump();
            }
        }
    }
}

} // namespace
} // namespace vorlo::testing
