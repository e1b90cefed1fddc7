// What the transcripts cannot say: sizes taken from the named limits, and an outcome that rests on
// the order in which the file system lists a folder.
#include "e2e/Reliability.h"
#include "platform/Errors.h"
#include "tools/Limits.h"

#include <gmock/gmock.h>

namespace vorlo::testing {
namespace {

// The exit status, then the output and standard error of a server given `input` and nothing more.
std::string outcome(std::string_view input, const std::string& preferences) {
    ServerProcess server(preferences);
    server.send(input);
    const int status = server.finish();
    return std::to_string(status) + " " + server.unread() + server.standardError();
}

// The limit bounds the unfinished input the server holds, counted after each read and with the
// line feed: the longest line that fits is answered, one byte more ends the process.
TEST(Limits, InputBufferHoldsTheLongestLineWithItsLineFeedAndNoMore) {
    TempLibrary library;
    // A ping padded with blanks inside its object to the limit, less one byte.
    std::string ping = R"({"jsonrpc":"2.0","id":1,"method":"ping"})";
    ping.insert(ping.size() - 1, kMaximumInputBufferBytes - 1 - ping.size(), ' ');
    const std::string answered = "0 {\"id\":1,\"jsonrpc\":\"2.0\",\"result\":{}}\n";
    EXPECT_EQ(outcome(ping + "\n", library.preferences()), answered);
    EXPECT_EQ(outcome(" " + ping, library.preferences()), answered); // unterminated, handed over at the end
    EXPECT_EQ(outcome(" " + ping + "\n", library.preferences()),
              "2 Vorlo MCP: An MCP request exceeded Vorlo's safety limit.\n");
}

TEST(Limits, PreferencesPastTheirLimitReadAsAbsent) {
    TempLibrary library;
    std::string padded = R"({"libraryPath":")" + library.library() + R"(","mcp":{"enabled":true}})";
    writeFile(library.preferences(), padded.append(kMaximumPreferencesBytes - padded.size(), ' '));
    EXPECT_EQ(outcome("", library.preferences()), "0 ");
    writeFile(library.preferences(), padded + " ");
    EXPECT_EQ(outcome("", library.preferences()),
              "2 Vorlo MCP: MCP access is disabled. Enable it in Vorlo Settings > MCP before connecting.\n");
}

// No request line can carry a note near its limit, so the tool's method is called directly.
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
