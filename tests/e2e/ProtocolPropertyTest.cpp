// One process fed a long seeded stream of random lines in chunks of random size: requests of every
// method and tool, notifications, malformed and non-object JSON, ids of every type, invalid UTF-8 and
// very long strings. Every line that must be answered is answered exactly once, in order, with its
// id, and nothing else reaches standard output.
#include "e2e/Reliability.h"

namespace vorlo::testing {
namespace {

// What lines are made of. In them "$" stands for an id of any JSON type, "%" for the params of a
// tool call, "~" for a string of up to sixty or, rarely, 200,000 characters, and "#" for a number.
// clang-format off
const char* const kMethods[] = {
    R"("method":"initialize","params":{"protocolVersion":"2025-06-18"})", R"("method":"initialize")",
    R"("method":"initialize","params":{"protocolVersion":"1999-01-01"})", R"("method":"ping")",
    R"("method":"ping","params":[])", R"("method":"tools/list")", R"("method":"tools/call")",
    R"("method":"tools/call","params":%)", R"("method":"tools/call","params":%)", R"("method":"tools/call","params":%)",
    R"("method":"notifications/initialized")", R"("method":"resources/list")", R"("method":"Ping")",
    R"("method":"")", R"("method":7)", R"("result":{})"};
const char* const kCalls[] = {
    R"({"name":"list_notes","arguments":{"limit":#}})", R"({"name":"list_notes","arguments":{"tag":"a","folder":"Folder"}})",
    R"({"name":"search_notes","arguments":{"query":"body"}})", R"({"name":"search_notes","arguments":{"query":"~"}})",
    R"({"name":"read_note","arguments":{"path":"Note.md"}})", R"({"name":"read_note","arguments":{"path":"folder\\inner.md"}})",
    R"({"name":"read_note","arguments":{"path":"~.md"}})", R"({"name":"read_note","arguments":{"path":"Note.md","max_characters":3}})",
    R"({"name":"read_attachment","arguments":{"path":"Note.md","attachment_name":"photo.png"}})",
    R"({"name":"create_note","arguments":{"title":""}})", R"({"name":"update_note","arguments":{"path":"x"}})",
    R"({"name":"no_such_tool"})", R"({"arguments":{}})", R"({"name":5})", R"({"name":"read_note","arguments":"no object"})"};
const char* const kOddLines[] = {"42", "\"ping\"", "null", "true", "[]", "-0.5e-7", "{}", " ", "\r", "",
    R"([{"jsonrpc":"2.0","id":1,"method":"ping"}])", R"({"jsonrpc":"2.0","id":1,"id":2,"method":"ping"})"};
const char* const kOddStrings[] = {"\xff", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x01", "\xe2\x82",
    R"(\ud800)", R"(a\u0000b)", R"(\ud83d\ude00\u2028)"};
// Writes take the lock and flush files to the disk: a few dozen in a run.
const char* const kCreate = R"({"name":"create_note","arguments":{"title":"Made","folder":"Made"}})";
const char* const kStaleUpdate = R"({"name":"update_note","arguments":{"path":"Note.md","pinned":true,"expected_revision":"0000000000000000000000000000000000000000000000000000000000000000"}})";
// clang-format on

struct LineMaker {
    std::mt19937 random{20240501};

    std::string next() {
        switch (pick(11)) {
        case 0:
            return kOddLines[pick(std::size(kOddLines))];
        case 1:
            return R"({"jsonrpc":"2.0","id":")" + std::string(kOddStrings[pick(std::size(kOddStrings))]) +
                   R"(","method":"ping"})";
        case 2: { // random bytes but a line feed
            std::string bytes(1 + pick(64), '{');
            for (char& c : bytes)
                if (const char byte = static_cast<char>(pick(256)); byte != '\n') c = byte;
            return bytes;
        }
        default: { // mostly well formed; now and then a notification, of another version, or cut short
            const char* version = pick(8) ? R"("jsonrpc":"2.0",)" : pick(2) ? R"("jsonrpc":"1.0",)" : "";
            const char* id = pick(6) ? R"("id":$,)" : "";
            const std::string line =
                fill("{" + std::string(version) + id + kMethods[pick(std::size(kMethods))] + "}");
            return pick(9) ? line : line.substr(0, 1 + pick(line.size() - 1));
        }
        }
    }

    unsigned pick(std::size_t count) { return static_cast<unsigned>(random() % count); }

    std::string fill(std::string line) {
        for (std::size_t at = 0; (at = line.find_first_of("$%~#", at)) != std::string::npos;) {
            const std::string by = line[at] == '$' ? id()
                                   : line[at] == '%'
                                       ? fill(pick(900) == 0   ? kCreate
                                              : pick(180) == 0 ? kStaleUpdate
                                                               : kCalls[pick(std::size(kCalls))])
                                   : line[at] == '~' ? std::string(1 + pick(pick(150) ? 60 : 200000), 'q')
                                                     : std::to_string(static_cast<int>(pick(300)) - 50);
            line.replace(at, 1, by);
            at += by.size();
        }
        return line;
    }

    std::string id() {
        const std::string n = std::to_string(random());
        // clang-format off
        const std::string ids[] = {"null", "true", "-" + n, n, n + ".5", n + n + n, "1e400", "18446744073709551615",
                                   "\"id-" + n + "-\u00e9\u4e2d\"", R"({"n":[1,"two",null]})", "[" + n + "]"};
        // clang-format on
        return ids[pick(std::size(ids))];
    }
};

// The reply a line must get, judged from the line alone by the rules of the protocol, told as "<id>
// result" or "<id> error <code>"; empty when it gets none.
std::string expectedFor(const std::string& line) {
    if (line.empty()) return ""; // skipped
    // The JSON library takes a NUL for the end of its input; a raw NUL is never JSON.
    const Json message = line.find('\0') == std::string::npos ? Json::parse(line, nullptr, false) : Json();
    if (!message.is_object() || message.value("jsonrpc", Json()) != "2.0" ||
        !message.value("method", Json()).is_string())
        return "null error -32700";
    if (!message.contains("id")) return "";
    static const std::set<std::string> kTools = {"list_notes",      "search_notes", "read_note",
                                                 "read_attachment", "create_note",  "update_note"};
    const std::string method = message["method"], id = message["id"].dump();
    const Json params = message.value("params", Json()),
               name = params.is_object() ? params.value("name", Json()) : Json();
    if (method == "tools/call")
        return id +
               (name.is_string() && kTools.contains(name.get<std::string>()) ? " result" : " error -32602");
    return id + (method == "initialize" || method == "ping" || method == "tools/list" ? " result"
                                                                                      : " error -32601");
}

std::string signature(const std::optional<std::string>& line) {
    const Json reply = line ? Json::parse(*line, nullptr, false) : Json();
    if (!reply.is_object() || reply.size() != 3) return "no reply, or a malformed one: " + line.value_or("");
    return reply["id"].dump() +
           (reply.contains("result") ? " result" : " error " + reply["error"]["code"].dump());
}

TEST(ProtocolProperty, EveryRequestOfARandomStreamIsAnsweredOnceInOrder) {
    TempLibrary library;
    const std::string id = "0F0E0D0C-0B0A-4988-8766-554433221100";
    library.write("Note.md", "---\nid: " + id + "\ntitle: \"Note\"\ntags: [\"a\"]\n---\nbody #a");
    library.write("Folder/Inner.md", "inner body");
    library.write("Vorlo Data/Attachments/" + id + "/photo.png", "png");
    LineMaker maker;
    std::vector<std::string> lines(sizeFromEnvironment("VORLO_PROTOCOL_LINES", 100000, 1000000));
    for (auto& line : lines)
        line = maker.next();

    ServerProcess server(library.preferences());
    std::thread sender([&] {
        std::mt19937 random(99);
        std::string pending;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            pending += lines[i] + "\n";
            while (pending.size() > 65536 || (i + 1 == lines.size() && !pending.empty())) {
                const std::size_t chunk = std::min<std::size_t>(pending.size(), 1 + random() % 9000);
                server.send(std::string_view(pending).substr(0, chunk));
                pending.erase(0, chunk);
            }
        }
        server.closeInput();
    });
    std::size_t answered = 0;
    for (const std::string& sent : lines) {
        const std::string expected = expectedFor(sent);
        if (expected.empty()) continue;
        ++answered;
        EXPECT_EQ(signature(server.readLine(std::chrono::seconds(10))), expected) << sent.substr(0, 200);
        if (::testing::Test::HasFailure()) {
            ::kill(server.pid(), SIGKILL); // one failure says it all; the sender then ends
            break;
        }
    }
    sender.join();
    const ExitResult exit = server.finish();
    EXPECT_EQ(exit.status, 0);
    EXPECT_EQ(exit.standardOutput, "") << "unasked output";
    EXPECT_EQ(exit.standardError, "");
    std::printf("[ protocol ] %zu random lines sent, %zu answered\n", lines.size(), answered);
}

} // namespace
} // namespace vorlo::testing
