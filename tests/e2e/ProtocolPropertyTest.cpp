// One process fed a long seeded stream of random lines in chunks of random size: requests with ids
// of every JSON type, notifications, empty lines, lines cut short, random bytes and very long
// strings. Every line that must be answered is answered exactly once, in order, with its id, and
// nothing else reaches standard output. (What each kind of line must get in detail, the line
// handler's fuzz target checks on its corpus; here it is the stream.)
#include "e2e/Reliability.h"

#include <limits>

namespace vorlo::testing {
namespace {

// Requests answered with a result, the first three, which read no file, the most often; "~" stands
// for a string of up to sixty or, rarely, 200,000 characters.
// clang-format off
const char* const kAnswered[] = {
    R"("method":"initialize","params":{"protocolVersion":"2025-06-18"})", R"("method":"ping")", R"("method":"tools/list")",
    R"("method":"tools/call","params":{"name":"list_notes","arguments":{"limit":200}})",
    R"("method":"tools/call","params":{"name":"search_notes","arguments":{"query":"~"}})",
    R"("method":"tools/call","params":{"name":"read_note","arguments":{"path":"~.md"}})",
    R"("method":"tools/call","params":{"name":"read_note","arguments":{"path":"Note.md"}})",
    R"("method":"tools/call","params":{"name":"read_attachment","arguments":{"path":"Note.md","attachment_name":"photo.png"}})",
    R"("method":"tools/call","params":{"name":"create_note","arguments":{"title":""}})"};
// Writes that take the lock and flush files to the disk: a few dozen in a stream.
const char* const kWrites[] = {
    R"("method":"tools/call","params":{"name":"create_note","arguments":{"title":"Made","folder":"Made"}})",
    R"("method":"tools/call","params":{"name":"update_note","arguments":{"path":"Note.md","pinned":true,"expected_revision":"0000000000000000000000000000000000000000000000000000000000000000"}})"};
// clang-format on

// A random line and the reply it must get, told as "<id> result" or "<id> error <code>"; empty when
// it gets none.
std::pair<std::string, std::string> randomLine(std::mt19937& random) {
    const auto pick = [&](std::size_t count) { return random() % count; };
    // clang-format off
    const Json ids[] = {nullptr, pick(2) == 1, -static_cast<long long>(random()), random() / 7.0,
                        "id-" + std::to_string(random()) + "-\u00e9\u4e2d", Json{{"n", {random(), "two", nullptr}}},
                        Json::array({random()}), std::numeric_limits<std::uint64_t>::max(), random()};
    // clang-format on
    const std::string id = ids[pick(std::size(ids))].dump(), head = R"({"jsonrpc":"2.0","id":)" + id + ",";
    // clang-format off
    const std::pair<std::string, std::string> plain[] = {{"", ""}, {R"({"jsonrpc":"2.0","method":"notifications/initialized"})", ""},
        {head + R"("method":"resources/list"})", id + " error -32601"},
        {head + R"("method":"tools/call","params":{"name":"no_such_tool"}})", id + " error -32602"}};
    // clang-format on
    const std::size_t kind = pick(12);
    if (kind < std::size(plain)) return plain[kind];
    switch (kind) {
    case 4: { // random bytes but a line feed
        std::string bytes(1 + pick(64), '{');
        for (char& c : bytes)
            if (const char byte = static_cast<char>(pick(256)); byte != '\n') c = byte;
        return {bytes, "null error -32700"};
    }
    case 5: { // a request cut short
        const std::string whole = head + R"("method":"ping"})";
        return {whole.substr(0, 1 + pick(whole.size() - 1)), "null error -32700"};
    }
    default:
        std::string line =
            head +
            (pick(1500) ? kAnswered[pick(4) ? pick(3) : pick(std::size(kAnswered))] : kWrites[pick(2)]) + "}";
        if (const auto at = line.find('~'); at != std::string::npos)
            line.replace(at, 1, std::string(1 + pick(pick(150) ? 60 : 200000), 'q'));
        return {line, id + " result"};
    }
}

std::string signature(const std::optional<std::string>& line) {
    const Json reply = line ? Json::parse(*line, nullptr, false) : Json();
    if (!reply.is_object() || reply.size() != 3) return "no reply, or a malformed one: " + line.value_or("");
    return reply["id"].dump() +
           (reply.contains("result") ? " result" : " error " + reply["error"]["code"].dump());
}

TEST(ProtocolProperty, EveryRequestOfARandomStreamIsAnsweredOnceInOrder) {
    TempLibrary library;
    writeNoteWithAttachments(library);
    std::mt19937 random(20240501);
    std::vector<std::pair<std::string, std::string>> lines(
        sizeFromEnvironment("VORLO_PROTOCOL_LINES", 100000, 1000000));
    std::string stream;
    for (auto& line : lines)
        stream += (line = randomLine(random)).first + "\n";
    ServerProcess server(library.preferences());
    std::thread sender([&] {
        for (std::string_view rest = stream; !rest.empty();) {
            const std::size_t chunk = std::min<std::size_t>(rest.size(), 1 + random() % 9000);
            server.send(rest.substr(0, chunk));
            rest.remove_prefix(chunk);
        }
        server.closeInput();
    });
    for (const auto& [sent, expected] : lines) {
        if (expected.empty()) continue;
        EXPECT_EQ(signature(server.readLine(10s)), expected) << sent.substr(0, 200);
        // One failure says it all; the sender then ends.
        if (::testing::Test::HasFailure()) break;
    }
    if (::testing::Test::HasFailure()) ::kill(server.pid(), SIGKILL);
    sender.join();
    EXPECT_EQ(server.finish(), 0);
    EXPECT_EQ(server.unread() + server.standardError(), "") << "unasked output, or an error";
}

} // namespace
} // namespace vorlo::testing
