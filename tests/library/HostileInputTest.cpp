// Inputs that a client or a library's files can choose to make a call slow, huge or dead, at sizes
// where a cost that grows faster than the input would take many seconds. This file checks their
// outcome; the benchmark judges their time and memory.
#include "support/Repeated.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <tuple>

namespace vorlo::testing {
namespace {

// One character, "’" and 34,000 joiners: longer than the 64 KiB windows of the folded searches.
const std::string kQuery = "\u2019" + repeated("\u200D", 34000);
const std::string kProse = repeated("It\u2019s plain prose. ", 100000); // 2 MB, 18 characters a piece
const std::string kTitled = "---\ntitle: \"" + kQuery + "\"\n---\n" + repeated("\u00E9t\u00E9 ", 50000);
// ASCII that passes the quick filter of the ASCII search at every place and differs late.
const std::string kLate = repeated("a", 300) + "b" + repeated("a", 300),
                  kLATE = repeated("A", 300) + "B" + repeated("A", 300);

TEST(HostileInput, LongQueriesLongTitlesAndRepeatedTagsKeepTheirOutcome) {
    // A note, a query, and the snippet or the tags the note is listed with; null when it does not match.
    const std::tuple<std::string, std::string, Json> rows[] = {
        {kProse, kQuery, nullptr},
        {kProse + kQuery, kQuery, "\u2026in prose. " + repeated("It\u2019s plain prose. ", 5) + kQuery},
        {kTitled, kQuery, repeated("\u00E9t\u00E9 ", 80)},
        {kTitled + kQuery, kQuery, "\u2026" + repeated("\u00E9t\u00E9 ", 25) + kQuery},
        {repeated("a", 200000), kLate, nullptr},
        {repeated("a", 65251) + kLATE + repeated("a", 65000), kLate,
         "\u2026" + repeated("a", 100) + repeated("A", 220) + "\u2026"},
        {"---\ntags: [\"b\",\"e\u0301\",\"b\"]\n---\n" + repeated("#a #b ", 700000) + "#\u00E9", "",
         Json::array({"a", "b", "e\u0301"})},
    };
    for (const auto& [note, query, expected] : rows) {
        SCOPED_TRACE(note.substr(0, 30));
        TempLibrary library;
        library.write("Note.md", note);
        const bool tags = expected.is_array(); // listed by a tag that only the body holds
        const Json found =
            library.call(tags ? "list_notes" : "search_notes",
                         tags ? Json{{"tag", "A"}} : Json{{"query", query}})["result"]["structuredContent"];
        EXPECT_EQ(found["total_matches"] == 0 ? Json() : found["notes"][0][tags ? "tags" : "snippet"],
                  expected);
    }
}

} // namespace
} // namespace vorlo::testing
