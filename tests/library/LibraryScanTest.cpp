// The walk and the lookup over generated libraries: the walk admits what the rules admit; the lookup
// by path gives the note that the walk yields first among those whose path matches, or nothing;
// every way of reading gives the plain records; and the streaming list and search, which keep only
// their best notes, give what a full sort of the plain scan gives. VORLO_LOOKUP_SEED=<seed> replays
// the one small library that a failure names.
#include "library/LibraryScan.h"

#include "library/Summaries.h"
#include "platform/CharacterSets.h"
#include "platform/Collation.h"
#include "platform/Crypto.h"
#include "platform/Errors.h"
#include "platform/Folding.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "support/IoMode.h"
#include "support/Split.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <random>
#include <regex>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace vorlo::testing {
namespace {

using library::NoteFile;

// A name is a stem and an extension, each in one of the spellings of its group ("|" between them),
// which compare equal: in case, by full case folding (the Kelvin sign is k, "\u00df" is "ss"), by
// canonical equivalence (the Ohm sign is omega; marks in either order). Stems 9 and 10 are not
// UTF-8; 11 and 12 are what a lenient decoder would make of them and a look-alike of "/"; then a
// ligature, the dotted capital I and the dotless i, which matches neither i nor I. A number tells
// names apart as well, so that a wide folder can hold many.
const std::vector<std::string> kStems =
    split("plan|Plan|PLAN;caf\u00e9|cafe\u0301|CAF\u00c9|CAFE\u0301;stra\u00dfe|STRASSE|Strasse;\u212a|k|K;"
          "\u2126|\u03c9|\u03a9;\u1e69|s\u0323\u0307|s\u0307\u0323|\u1e68;Vorlo Data|vorlo data|VORLO DATA;"
          "~draft|~DRAFT;a|A;\xff;x\xc3|X\xc3;\xef\xbf\xbd;\xe2\x88\x95;\ufb01le|file|FILE;\u0130|i\u0307|"
          "I\u0307;\u0131",
          ";");
const std::vector<std::string> kExtensions = split(".md|.MD|.Md|.mD;;.txt|.TXT;.markdown", ";");
struct Name {
    std::size_t stem, extension;
    bool hidden;
    std::size_t number;
};

// A library made from a seed, full of what makes walking, looking up and ordering hard: names that
// compare equal in other spellings, names that are not UTF-8, hidden entries, the private folder,
// folders that cannot be listed, files at and past the size limit, FIFOs, links to files, folders
// and nowhere; and notes whose few distinct titles, dates and tags leave every tie-break work to do.
// About `width` entries in the root and up to that many in each folder, three levels deep.
struct GeneratedLibrary {
    TempLibrary library;
    std::mt19937_64 random;
    std::size_t width;
    std::vector<std::pair<std::vector<Name>, std::string>> entries; // each path made, and its names
    std::set<std::string> notes; // what the walk must find, worked out from how each entry was made
    bool atLimitMade = false;

    GeneratedLibrary(std::uint64_t seed, std::size_t width) : random(seed), width(width) {
        if (below(10) < 6) folder({Name{6, 1, false, 0}}, "Vorlo Data", 1, true, 6); // the private folder
        fill({}, "", width, 0, true);
    }

    std::size_t below(std::size_t count) { return static_cast<std::size_t>(random() % count); }
    template <class T> const T& pick(const std::vector<T>& items) { return items[below(items.size())]; }
    std::string pick(std::string_view choices) { return pick(split(choices, "|")); }
    std::string spell(const std::vector<Name>& names) {
        std::string path;
        for (const Name& name : names)
            path += (path.empty() ? "" : "/") + std::string(name.hidden ? "." : "") +
                    pick(kStems[name.stem]) + (name.number ? " " + std::to_string(name.number) : "") +
                    pick(kExtensions[name.extension]);
        return path;
    }
    // Mostly Markdown names of a few groups, so that notes and equivalent names are common; in a wide
    // library most entries are notes.
    Name randomName() {
        return Name{below(10) < 7 ? below(4) : below(kStems.size()),
                    below(width > 10 ? 5 : 2) ? 0 : below(kExtensions.size()), below(100) < 8,
                    width > 10 ? below(width) : 0};
    }

    std::string noteText() {
        std::string text;
        if (below(10) != 0) {
            text = "---\ntitle: \"" + pick("Alpha|alpha|Beta|b\u00e9ta|\u00c9cole|ecole") + "\"\n";
            if (below(6) != 0)
                text += "modified: " +
                        pick("2024-05-01T10:00:00Z|2024-05-01T12:00:00+02:00|2023-01-01T00:00:00Z|yesterday|"
                             "2024-05-01T10:00:00.000Z|") +
                        "\n";
            text += "tags: " +
                    pick("[]|[\"work\"]|[\"Work\",\"idea\"]|[\"caf\u00e9\"]|[\"Cafe\u0301\"]|not json");
            text += "\n---\n";
        }
        for (std::size_t w = below(12); w > 0; --w)
            text += pick("lantern|LANTERN|cr\u00e8me br\u00fbl\u00e9e|Cre\u0300me Bru\u0302le\u0301e|#work|"
                         "#idea/sub|stra\u00dfe|STRASSE|\u0130stanbul|\ufb01ne") +
                    (below(4) == 0 ? "\n" : " ");
        if (below(20) == 0) text += std::string(70000, 'x') + " lantern"; // longer than one read
        return below(10) == 0 ? std::regex_replace(text, std::regex("\n"), "\r\n") : text;
    }

    void fill(const std::vector<Name>& parent, const std::string& folderPath, std::size_t count, int depth,
              bool reachable) {
        for (; count > 0; --count) {
            std::vector<Name> names = parent;
            names.push_back(randomName());
            const std::string path = (folderPath.empty() ? "" : folderPath + "/") + spell({names.back()});
            if (library.exists(path)) continue; // the same bytes twice
            // Deep enough, a folder becomes a note; in a wide library, so does every other odd entry.
            std::size_t kind = below(100);
            if ((depth >= 3 && kind >= 45 && kind < 67) || (width > 10 && kind >= 67 && below(2))) kind = 0;
            bool note = kind < 45;
            if (note) {
                library.write(path, noteText());
                library.touch(path, 1700000000 + static_cast<long long>(below(3)) * 86400);
            } else if (kind < 67) {
                folder(names, path, depth + 1, reachable && (kind < 65 || ::geteuid() == 0),
                       std::min<std::size_t>(width, 12));
                if (kind >= 65)
                    ::chmod(library.path(path).c_str(), 0); // a folder that cannot be listed is passed over
                continue;
            } else if (kind < 73) {
                library.write(path, "bad \xff bytes");
            } else if (kind < 78) { // past the size limit, or once a small library exactly at it
                note = kind == 77 && !atLimitMade && width <= 10;
                atLimitMade |= note;
                library.write(path, "");
                EXPECT_EQ(::truncate(library.path(path).c_str(),
                                     static_cast<off_t>(kMaximumNoteBytes + (note ? 0 : 1))),
                          0);
            } else if (kind < 82) {
                EXPECT_EQ(::mkfifo(library.path(path).c_str(), 0600), 0);
            } else { // to the library itself, so looping back, to an entry made so far, or to nowhere
                library.link(path, kind >= 98                     ? library.path("nowhere")
                                   : kind < 86 || entries.empty() ? library.library()
                                                                  : library.path(pick(entries).second));
            }
            const bool plainNames = std::none_of(names.begin(), names.end(), [](const Name& name) {
                return name.hidden || name.stem == 9 || name.stem == 10;
            });
            if (note && reachable && plainNames && names.back().extension == 0 &&
                !path.starts_with("Vorlo Data/") && names.front().stem != 7)
                notes.insert(path);
            entries.emplace_back(std::move(names), path);
        }
    }

    void folder(const std::vector<Name>& names, const std::string& path, int depth, bool reachable,
                std::size_t breadth) {
        library.makeFolder(path);
        entries.emplace_back(names, path);
        fill(names, path, below(breadth), depth, reachable);
    }
};

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
    const auto lookupsAgree = [&](const std::string& root, const std::vector<NoteFile>& scan,
                                  const std::vector<std::string>& asked) {
        for (const std::string& path : asked) {
            std::vector<const NoteFile*> matches;
            for (const NoteFile& note : scan)
                if (text::caseInsensitiveEqual(note.relativePath, path)) matches.push_back(&note);
            const std::optional<NoteFile> lookup = library::findNoteFile(root, path);
            ASSERT_EQ(describe(lookup ? &*lookup : nullptr), describe(matches.empty() ? nullptr : matches[0]))
                << "asked for " << ::testing::PrintToString(path);
            found += !matches.empty();
            respelled += !matches.empty() && matches[0]->relativePath != path;
            several += matches.size() > 1;
        }
    };
    // Equivalent folders, each with the note in another spelling: whichever folder comes first, its
    // own listing decides, never one made ahead for the folder as the path spells it.
    const TempLibrary equivalent;
    for (const char* path :
         {"plan/X.md", "PLAN/x.md", "Plan/x.Md", "PLAN/a/y.md", "plan/A/Y.md", "Plan/a/y.MD"})
        equivalent.write(path, path);
    std::vector<NoteFile> notes;
    library::walkNoteFiles(equivalent.library(), [&](NoteFile&& file) { notes.push_back(std::move(file)); });
    lookupsAgree(equivalent.library(), notes,
                 {"plan/x.md", "PLAN/X.md", "Plan/x.Md", "PLAN/A/Y.md", "plan/a/y.MD"});
    for (std::uint64_t seed = first; seed < end && !HasFailure(); ++seed) {
        SCOPED_TRACE("replay with VORLO_LOOKUP_SEED=" + std::to_string(seed));
        GeneratedLibrary generated(seed, 6);
        const std::string& root = generated.library.library();
        std::vector<NoteFile> scan;
        std::set<std::string> scanned;
        library::walkNoteFiles(root, [&](NoteFile&& file) { scan.push_back(std::move(file)); });
        for (const NoteFile& note : scan)
            scanned.insert(note.relativePath);
        EXPECT_EQ(scanned, generated.notes);
        // Paths to ask for: every entry in its own and in other spellings, the notes in more (equivalent
        // spellings decide among matches), paths that nothing matches, and malformed ones.
        std::vector<std::string> asked = {""};
        for (const auto& [names, path] : generated.entries)
            for (int i = generated.notes.contains(path) ? 0 : 3; i < 5; ++i)
                asked.push_back(i == 0 ? path : generated.spell(names));
        for (int i = 0; i < 20; ++i)
            asked.push_back(generated.spell({generated.randomName(), generated.randomName()}));
        for (const std::string form : {"/", "./", "../Library/", "a//"}) {
            const std::string path = generated.pick(generated.entries).second;
            asked.insert(asked.end(), {form + path, path + "/", path + std::string("\0", 1)});
        }
        lookupsAgree(root, scan, asked);
    }
    // The generator must keep producing the cases that the comparison is about.
    EXPECT_TRUE(end - first == 1 || (respelled > found / 2 && several > 100)) << respelled << " " << several;
}

// The plain way: every note in memory and a stable sort of all that match, the arguments taken as
// the tools take them: blank folders and tags are no filter, and a query that folds to nothing, such
// as a lone combining mark, matches no note rather than all. A search puts title matches first, then
// body or tag matches; within each, the `modified` texts of the summaries descending. The summaries of
// all that match, in that order, with a search's snippets.
Json reference(const std::vector<NoteRecord>& notes, const std::vector<Json>& summaries,
               const Json& arguments) {
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
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) {
        if (!search) return library::newestFirst(notes[a], notes[b]);
        const bool titleA = holds(notes[a].title), titleB = holds(notes[b].title);
        return titleA != titleB ? titleA : summaries[a]["modified"] > summaries[b]["modified"];
    });
    Json expected = Json::array();
    for (const std::size_t i : order) {
        expected.push_back(summaries[i]);
        if (search) expected.back()["snippet"] = library::snippet(notes[i].content, trimmed("query"));
    }
    return expected;
}

TEST(LibraryScan, EveryWayOfReadingGivesThePlainRecordsAndListAndSearchTheirFullSort) {
    GeneratedLibrary generated(7, 120);
    const TempLibrary& library = generated.library;
    std::optional<IoMode> plainWay(std::in_place, "");
    const auto plain = library.server().scanNotes();
    plainWay.reset();
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
    std::vector<std::pair<Json, Json>> calls; // the arguments, and every match in order
    const auto add = [&](const Json& arguments) {
        calls.emplace_back(arguments, reference(plain, summaries, arguments));
    };
    // Folder and tag, a pair at a time.
    const std::string filters[] = {"", "",    folders[0],  "", folders[1], " WORK ", folders[2] + "/",
                                   "", "   ", "caf\u00e9", "", "idea/sub", "",       "#work"};
    for (std::size_t i = 0; i < std::size(filters); i += 2)
        add(Json{{"folder", filters[i]}, {"tag", filters[i + 1]}});
    for (const char* query : {"lantern", " creme brulee\n", "alpha", "ECOLE", "work", "strasse", "fine",
                              "istanbul", "lantern\nlantern", "xxxxxxxx lantern", "plan", "\u0301"})
        add(Json{{"query", query}});

    for (const std::string mode : kIoModes) {
        SCOPED_TRACE(ioModeName(mode));
        const IoMode chosen(mode);
        const auto notes = library.server().scanNotes();
        ASSERT_EQ(notes.size(), plain.size());
        for (std::size_t i = 0; i < notes.size(); ++i) {
            EXPECT_EQ(std::tie(notes[i].content, notes[i].fileModificationDate),
                      std::tie(plain[i].content, plain[i].fileModificationDate))
                << plain[i].relativePath;
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
        // A batch held up on its thread (here by its judge) is visited before the later ones read meanwhile.
        std::vector<std::string> order;
        library::walkNoteFiles(
            library.library(), [&](NoteFile&& note) { order.push_back(note.relativePath); }, {},
            [&] {
                return [&](NoteFile& note) {
                    if (note.relativePath == plain[0].relativePath) process::sleepMilliseconds(30);
                    return true;
                };
            });
        EXPECT_TRUE(std::ranges::equal(order, plain, {}, {}, &NoteRecord::relativePath));
        // The modes are only as good as their difference: on one processor the notes are visited on
        // the calling thread, and where there are more, on the threads that read them.
        EXPECT_EQ(threads == std::set{std::this_thread::get_id()},
                  mode == "one core" || process::usableProcessors() == 1);
        for (const auto& [arguments, all] : calls) {
            for (const std::size_t limit : {1, 50, 200}) {
                Json asked = arguments, notes(all.begin(), all.begin() + std::min(limit, all.size()));
                asked["limit"] = limit;
                EXPECT_EQ(library.call(arguments.contains("query") ? "search_notes" : "list_notes", asked)
                              .at("result")
                              .at("structuredContent"),
                          (Json{{"notes", notes}, {"returned", notes.size()}, {"total_matches", all.size()}}))
                    << asked.dump();
            }
        }
    }
}

} // namespace
} // namespace vorlo::testing
