// The streaming list and search against a plain reference over the full scan, and the two ways of
// reading against each other, on a generated library full of ties and awkward files.
#include "library/LibraryScan.h"
#include "library/Summaries.h"
#include "platform/Collation.h"
#include "platform/Folding.h"
#include "platform/Process.h"
#include "support/IoMode.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>

namespace vorlo::testing {
namespace {

// Few distinct dates and titles, so that the order is decided by every tie-break in turn; titles
// that differ only in case or accents; tags and words in headers and bodies; files that are no notes.
void generateLibrary(const TempLibrary& library, unsigned seed) {
    std::mt19937 random(seed);
    const auto pick = [&](const auto& items) { return items[random() % std::size(items)]; };
    const char* folders[] = {
        "",           "Inbox/",      "Projects/",          "projects/", "Projects/Deep/Er/",
        "Caf\u00e9/", "Cafe\u0301/", "Archive/Vorlo Data/"};
    const char* titles[] = {"Alpha", "alpha",      "ALPHA", "Beta", "b\u00e9ta",
                            "Gamma", "\u00c9cole", "ecole", "Zeta"};
    const char* modified[] = {"2024-05-01T10:00:00Z",     "2024-05-01T12:00:00+02:00",
                              "2023-01-01T00:00:00Z",     "yesterday",
                              "2024-05-01T10:00:00.000Z", ""};
    const char* tags[] = {
        "[]", R"(["work"])", R"(["Work","idea"])", R"(["caf\u00e9"])", "[\"Caf\u00e9\"]", "not json"};
    const char* words[] = {"lantern",
                           "Lantern",
                           "LANTERN",
                           "cr\u00e8me br\u00fbl\u00e9e",
                           "Cre\u0300me Bru\u0302le\u0301e",
                           "plain words",
                           "#work",
                           "#idea/sub",
                           "stra\u00dfe",
                           "STRASSE",
                           "\u0130stanbul",
                           "\ufb01ne"};
    for (int i = 0; i < 260; ++i) {
        std::string text;
        if (random() % 10 != 0) {
            text = "---\ntitle: \"" + std::string(pick(titles)) + "\"\n";
            if (random() % 6 != 0) text += "modified: " + std::string(pick(modified)) + "\n";
            text += "tags: " + std::string(pick(tags)) + "\n---\n";
        }
        for (int w = static_cast<int>(random() % 12); w > 0; --w) {
            text += pick(words);
            text += random() % 4 == 0 ? "\n" : " ";
        }
        if (random() % 8 == 0)
            text += std::string(70000 + random() % 1000, 'x') + " lantern"; // past a read group
        if (random() % 10 == 0) {
            std::string crlf;
            for (const char c : text)
                crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
            text = crlf;
        }
        const std::string path = std::string(pick(folders)) + "Note " + std::to_string(i) + ".md";
        library.write(path, text);
        // Few distinct file dates: those decide for notes without a usable `modified`.
        library.touch(path, 1700000000 + static_cast<long long>(random() % 3) * 86400);
    }
    library.write("Projects/Broken.md", "---\ntitle: \"lantern\"\n---\nbad \xff byte");
    library.write("Vorlo Data/Hidden.md", "lantern");
    library.write(".hidden/Note.md", "lantern");
    library.write("Projects/.Note.md", "lantern");
    library.link("Projects/Link.md", library.path("Inbox/Note 1.md"));
    library.link("Linked Folder", library.path("Projects"));
    ::mkfifo(library.path("Inbox/Pipe.md").c_str(), 0600);
    library.makeFolder("Folder.md");
}

// The plain way: every record in memory, a stable sort, summaries of the first `limit`.
Json referenceList(const VorloMCPServer& server, const Json& arguments) {
    auto notes = server.scanNotes();
    const long long limit = arguments.value("limit", 50);
    const std::string folder = arguments.value("folder", ""), tag = arguments.value("tag", "");
    std::erase_if(notes, [&](const NoteRecord& note) {
        if (!folder.empty() && !text::caseInsensitiveEqual(note.relativeFolder, folder)) return true;
        return !tag.empty() && std::none_of(note.tags.begin(), note.tags.end(), [&](const std::string& t) {
            return text::caseInsensitiveEqual(t, tag);
        });
    });
    std::stable_sort(notes.begin(), notes.end(), library::newestFirst);
    Json shown = Json::array();
    for (std::size_t i = 0; i < notes.size() && i < static_cast<std::size_t>(limit); ++i)
        shown.push_back(library::summary(notes[i]));
    return {{"notes", shown}, {"returned", shown.size()}, {"total_matches", notes.size()}};
}

Json referenceSearch(const VorloMCPServer& server, const std::string& query, long long limit) {
    const std::string folded = text::fold(query);
    const auto contains = [&](const std::string& text) {
        return text::fold(text).find(folded) != std::string::npos;
    };
    std::vector<std::pair<Json, int>> matches;
    for (const auto& note : server.scanNotes()) {
        const int score =
            contains(note.title)                                                                  ? 2
            : contains(note.content) || std::any_of(note.tags.begin(), note.tags.end(), contains) ? 1
                                                                                                  : 0;
        if (score == 0 || folded.empty()) continue;
        Json summary = library::summary(note);
        summary["snippet"] = library::snippet(note.content, query);
        matches.emplace_back(std::move(summary), score);
    }
    const auto modified = [](const Json& s) {
        return s["modified"].is_null() ? "" : s["modified"].get<std::string>();
    };
    std::stable_sort(matches.begin(), matches.end(), [&](const auto& a, const auto& b) {
        if (a.second != b.second) return a.second > b.second;
        return modified(a.first) > modified(b.first);
    });
    Json shown = Json::array();
    for (std::size_t i = 0; i < matches.size() && i < static_cast<std::size_t>(limit); ++i)
        shown.push_back(matches[i].first);
    return {{"notes", shown}, {"returned", shown.size()}, {"total_matches", matches.size()}};
}

class StreamedScan : public ::testing::TestWithParam<const char*> {};

TEST_P(StreamedScan, ListAndSearchEqualTheFullSortOfTheScan) {
    const IoMode mode(GetParam());
    TempLibrary library;
    generateLibrary(library, 7);
    const auto server = library.server();
    const auto structured = [&](std::string_view tool, const Json& arguments) {
        return library.call(tool, arguments).at("result").at("structuredContent");
    };
    for (const long long limit : {1, 3, 50, 200}) {
        for (const Json& filter :
             {Json::object(), Json{{"folder", "PROJECTS"}}, Json{{"folder", "Cafe\u0301"}},
              Json{{"tag", "WORK"}}, Json{{"tag", "caf\u00e9"}}, Json{{"tag", "idea/sub"}}}) {
            Json arguments = filter;
            arguments["limit"] = limit;
            EXPECT_EQ(structured("list_notes", arguments), referenceList(server, arguments))
                << arguments.dump();
        }
        for (const char* query : {"lantern", "LANTERN", "creme brulee", "alpha", "ecole", "work", "strasse",
                                  "fine", "istanbul", "lantern\nlantern", "xxxxxxxx lantern", "absent"}) {
            EXPECT_EQ(structured("search_notes", {{"query", query}, {"limit", limit}}),
                      referenceSearch(server, query, limit))
                << query << " " << limit;
        }
    }
}

TEST_P(StreamedScan, WhatTheVisitorThrowsEndsTheWalkAndComesOut) {
    const IoMode mode(GetParam());
    TempLibrary library;
    for (int i = 0; i < 400; ++i)
        library.write("Folder " + std::to_string(i % 7) + "/" + std::to_string(i) + ".md", "x");
    for (const int failAt : {0, 63, 64, 200, 399}) {
        int visited = 0;
        EXPECT_THROW(library::walkNoteFiles(library.library(),
                                            [&](library::NoteFile&&) {
                                                if (visited++ == failAt) throw std::runtime_error("stop");
                                            }),
                     std::runtime_error)
            << failAt;
        EXPECT_EQ(visited, failAt + 1) << "nothing is visited after the failure";
    }
    int all = 0;
    library::walkNoteFiles(library.library(), [&](library::NoteFile&&) { ++all; });
    EXPECT_EQ(all, 400);
}

INSTANTIATE_TEST_SUITE_P(IoModes, StreamedScan, ::testing::ValuesIn(kIoModes),
                         [](const auto& info) { return vorlo::testing::ioModeName(info.param); });

TEST(StreamedScanModes, EveryWayOfReadingYieldsTheSameRecordsInTheSameOrder) {
    TempLibrary library;
    generateLibrary(library, 11);
    const auto scan = [&](const char* mode) {
        const IoMode chosen(mode);
        return library.server().scanNotes();
    };
    const auto one = scan("sync");
    EXPECT_GT(one.size(), 200u);
    for (const char* mode : {"", "one core"}) {
        SCOPED_TRACE(ioModeName(mode));
        const auto other = scan(mode);
        ASSERT_EQ(one.size(), other.size());
        for (std::size_t i = 0; i < one.size(); ++i) {
            const NoteRecord &a = one[i], &b = other[i];
            EXPECT_EQ(a.relativePath, b.relativePath);
            EXPECT_EQ(a.revision, b.revision) << a.relativePath;
            EXPECT_EQ(a.content, b.content) << a.relativePath;
            EXPECT_EQ(a.fileModificationDate, b.fileModificationDate) << a.relativePath;
            EXPECT_EQ(library::summary(a), library::summary(b));
        }
    }
}

// The modes above are only as good as their difference: on one processor the notes are visited on
// the calling thread, and where there are more, on the second one.
TEST(StreamedScanModes, OneProcessorKeepsTheWorkOnTheCallingThread) {
    TempLibrary library;
    for (int i = 0; i < 100; ++i) library.write(std::to_string(i) + ".md", "x");
    const auto visitingThreads = [&](const char* mode) {
        const IoMode chosen(mode);
        std::set<std::thread::id> threads;
        library::walkNoteFiles(library.library(),
                               [&](library::NoteFile&&) { threads.insert(std::this_thread::get_id()); });
        return threads;
    };
    EXPECT_EQ(visitingThreads("one core"), std::set<std::thread::id>{std::this_thread::get_id()});
    EXPECT_EQ(visitingThreads("sync"), std::set<std::thread::id>{std::this_thread::get_id()});
    if (process::usableProcessors() > 1) {
        EXPECT_FALSE(visitingThreads("").contains(std::this_thread::get_id()));
    }
}

} // namespace
} // namespace vorlo::testing
