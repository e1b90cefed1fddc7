// Every way the walk can read (one call at a time, the submission ring, a second thread, one
// processor) against the plain one, on a generated library; and the streaming list and search,
// which keep only their best notes, against a full sort of the plain scan.
#include "GeneratedLibrary.h"
#include "library/LibraryScan.h"
#include "library/Summaries.h"
#include "platform/CharacterSets.h"
#include "platform/Collation.h"
#include "platform/Crypto.h"
#include "platform/Folding.h"
#include "platform/Process.h"
#include "support/IoMode.h"

#include <gtest/gtest.h>

#include <set>
#include <thread>

namespace vorlo::testing {
namespace {

using library::NoteFile;

// The plain way: every note in memory and a stable sort of all that match. The arguments are taken
// as the tools take them: blank folders and tags are no filter, and a query that folds to nothing,
// such as a lone combining mark, matches no note rather than all.
std::vector<std::size_t> referenceList(const std::vector<NoteRecord>& notes, std::string_view folder,
                                       std::string_view tag) {
    folder = text::trimWhitespaceAndNewlines(folder), tag = text::trimWhitespaceAndNewlines(tag);
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < notes.size(); ++i) {
        const auto isTag = [&](const std::string& t) { return text::caseInsensitiveEqual(t, tag); };
        if ((folder.empty() || text::caseInsensitiveEqual(notes[i].relativeFolder, folder)) &&
            (tag.empty() || std::any_of(notes[i].tags.begin(), notes[i].tags.end(), isTag)))
            order.push_back(i);
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](auto a, auto b) { return library::newestFirst(notes[a], notes[b]); });
    return order;
}

// `folded` holds each note's title, body and tags folded. Title matches come first, then body or
// tag matches; within each, the `modified` texts of the summaries descending.
std::vector<std::size_t> referenceSearch(const std::vector<std::vector<std::string>>& folded,
                                         const std::vector<Json>& summaries, std::string_view query) {
    const std::string wanted = text::fold(text::trimWhitespaceAndNewlines(query));
    const auto holds = [&](const std::string& text) {
        return !wanted.empty() && text.find(wanted) != std::string::npos;
    };
    const auto modified = [&](std::size_t i) {
        return summaries[i]["modified"].is_null() ? "" : summaries[i]["modified"].get<std::string>();
    };
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < folded.size(); ++i)
        if (std::any_of(folded[i].begin(), folded[i].end(), holds)) order.push_back(i);
    std::stable_sort(order.begin(), order.end(), [&](auto a, auto b) {
        return holds(folded[a][0]) != holds(folded[b][0]) ? holds(folded[a][0]) : modified(a) > modified(b);
    });
    return order;
}

TEST(StreamedScan, EveryWayOfReadingGivesThePlainRecordsAndListAndSearchTheirFullSort) {
    GeneratedLibrary generated(7, 120);
    const TempLibrary& library = generated.library();
    const auto plain = [&] {
        const IoMode sync("sync");
        return library.server().scanNotes();
    }();
    ASSERT_GT(plain.size(), 200u);
    std::vector<Json> summaries;
    std::vector<std::vector<std::string>> folded;
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
        folded.push_back({text::fold(plain[i].title), text::fold(plain[i].content)});
        for (const std::string& tag : plain[i].tags)
            folded.back().push_back(text::fold(tag));
    }
    std::vector<std::tuple<std::string, Json, std::vector<std::size_t>>> calls; // tool, arguments, full order
    const std::pair<std::string, std::string> filters[] = {{"", ""},
                                                           {folders[0], ""},
                                                           {folders[1], " WORK "},
                                                           {folders[2] + "/", ""},
                                                           {"   ", "caf\u00e9"},
                                                           {"", "idea/sub"},
                                                           {"", "#work"}};
    for (const auto& [folder, tag] : filters)
        calls.emplace_back("list_notes", Json{{"folder", folder}, {"tag", tag}},
                           referenceList(plain, folder, tag));
    for (const char* query : {"lantern", " creme brulee\n", "alpha", "ECOLE", "work", "strasse", "fine",
                              "istanbul", "lantern\nlantern", "xxxxxxxx lantern", "plan", "\u0301"})
        calls.emplace_back("search_notes", Json{{"query", query}}, referenceSearch(folded, summaries, query));

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
        // The modes are only as good as their difference: on one processor, or read the plain way, the
        // notes are visited on the calling thread, and where there are more, on a second one.
        std::set<std::thread::id> threads;
        library::walkNoteFiles(library.library(),
                               [&](NoteFile&&) { threads.insert(std::this_thread::get_id()); });
        EXPECT_EQ(threads == std::set{std::this_thread::get_id()},
                  !mode.empty() || process::usableProcessors() == 1);
        // What the visitor throws ends the walk, in the first batch or a later one, and comes out.
        for (const std::size_t failAt :
             {std::size_t{0}, std::size_t{63}, std::size_t{64}, plain.size() - 1}) {
            std::size_t visited = 0;
            const auto visit = [&](NoteFile&&) {
                if (visited++ == failAt) throw std::runtime_error("stop");
            };
            EXPECT_THROW(library::walkNoteFiles(library.library(), visit), std::runtime_error);
            EXPECT_EQ(visited, failAt + 1) << "nothing is visited after the failure";
        }
        for (const long long limit : {1, 50, 200}) {
            for (const auto& [tool, arguments, order] : calls) {
                Json expected = Json::array();
                for (std::size_t k = 0; k < order.size() && k < static_cast<std::size_t>(limit); ++k) {
                    expected.push_back(summaries[order[k]]);
                    if (tool == "search_notes")
                        expected.back()["snippet"] = library::snippet(
                            plain[order[k]].content,
                            text::trimWhitespaceAndNewlines(arguments["query"].get<std::string>()));
                }
                Json asked = arguments;
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
