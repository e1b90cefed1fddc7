// What the transcripts cannot say: a note past its limit, which no request line can carry, and an
// outcome that rests on the order in which the file system lists a folder.
#include "e2e/Reliability.h"
#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gmock/gmock.h>

namespace vorlo::testing {
namespace {

TEST(Limits, OversizedNoteLeavesOnlyTheFolderItMadeAndReleasesTheLock) {
    TempLibrary library;
    const Json big = {{"title", "Big"}, {"folder", "New"}, {"content", std::string(kMaximumNoteBytes, 'x')}};
    EXPECT_THAT([&] { library.server().createNote(big); },
                ::testing::ThrowsMessage<ServerError>(
                    ::testing::StrEq("The note exceeds Vorlo's 16777216-byte limit.")));
    EXPECT_TRUE(std::filesystem::is_empty(library.path("New")));
    EXPECT_EQ(leftovers(library), std::vector<std::string>());
}

// Whichever of two names that differ in case the scan meets first is the note that a read and an
// update of a third spelling both find; the update must write the one whose revision it checked.
TEST(UpdateNote, OfTwoNamesThatDifferInCaseWritesTheOneWhoseRevisionItChecked) {
    TempLibrary library;
    library.write("Twin.md", "upper");
    library.write("twin.md", "lower");
    ServerProcess server(library.preferences());
    const Json read = succeeded(server.call("read_note", {{"path", "TWIN.md"}}));
    const auto [chosen, other] =
        read["content"] == "upper" ? std::pair("Twin.md", "twin.md") : std::pair("twin.md", "Twin.md");
    succeeded(
        server.call("update_note",
                    {{"path", "TWIN.md"}, {"expected_revision", read["revision"]}, {"content", "changed"}}));
    EXPECT_TRUE(library.read(chosen).ends_with("---\nchanged"));
    EXPECT_EQ(library.read(other), read["content"] == "upper" ? "lower" : "upper");
}

} // namespace
} // namespace vorlo::testing
