// One process fed a long seeded stream of random lines, in chunks of random size: valid requests of
// every method and tool, notifications, malformed and non-object JSON, ids of every type, invalid
// UTF-8 and very long strings. Every line that must be answered is answered exactly once, in order,
// with its id, and nothing else reaches standard output.
#include "support/ServerProcess.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <random>
#include <set>
#include <thread>

namespace vorlo::testing {
namespace {

constexpr const char* kId = "0F0E0D0C-0B0A-4988-8766-554433221100";

// What a line must get: nothing, an error with a code, or a result; and the id it comes back with.
struct Expected {
    bool answered = false;
    int errorCode = 0; // 0: a result
    Json id;
};

// The reply a line must get, judged from the line alone by the rules of the protocol.
Expected expectedFor(const std::string& line) {
    const Expected invalid{true, -32700, nullptr};
    // The JSON library takes a NUL for the end of its input; a raw NUL is never JSON.
    if (line.find('\0') != std::string::npos) return invalid;
    const Json message = Json::parse(line, nullptr, false);
    if (message.is_discarded() || !message.is_object()) return invalid;
    const auto jsonrpc = message.find("jsonrpc");
    const auto method = message.find("method");
    if (jsonrpc == message.end() || *jsonrpc != "2.0" || method == message.end() || !method->is_string())
        return invalid;
    if (!message.contains("id")) return {};
    Expected expected{true, 0, message["id"]};
    if (*method == "tools/call") {
        const Json params = message.value("params", Json());
        static const std::set<std::string> kTools = {"list_notes",      "search_notes", "read_note",
                                                     "read_attachment", "create_note",  "update_note"};
        if (!params.is_object() || !params.contains("name") || !params["name"].is_string() ||
            !kTools.contains(params["name"].get<std::string>()))
            expected.errorCode = -32602;
    } else if (*method != "initialize" && *method != "ping" && *method != "tools/list") {
        expected.errorCode = -32601;
    }
    return expected;
}

class LineMaker {
public:
    explicit LineMaker(unsigned seed) : random_(seed) {}

    std::string next() {
        switch (pick(14)) {
        case 0: return request("initialize", pick(2) ? Json{{"protocolVersion", version()}} : Json());
        case 1: return request("ping", pick(4) == 0 ? Json::array() : Json());
        case 2: return request("tools/list", Json());
        case 3:
        case 4:
        case 5: return request("tools/call", toolCall());
        case 6: { // a notification, of any method
            Json message = {{"jsonrpc", "2.0"}, {"method", method()}};
            if (pick(2)) message["params"] = toolCall();
            return message.dump();
        }
        case 7: return request(method(), Json());
        case 8: { // a good request cut short
            const std::string whole = request("ping", Json());
            return whole.substr(0, 1 + pick(static_cast<unsigned>(whole.size() - 1)));
        }
        case 9: { // valid JSON that is no object
            const char* lines[] = {"42", "\"ping\"", "null", "true", "[]", "[{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}]",
                                   "-0.5e-7", "{}", " ", "\r"};
            return lines[pick(10)];
        }
        case 10: { // a broken envelope: wrong version, method of another type, a reply
            Json message = {{"id", id()}, {"method", "ping"}};
            const unsigned how = pick(5);
            if (how == 0) message["jsonrpc"] = "1.0";
            if (how == 1) message["jsonrpc"] = 2.0;
            if (how == 2) message["jsonrpc"] = "2.0", message["method"] = 7;
            if (how == 3) message = {{"jsonrpc", "2.0"}, {"id", 1}, {"result", Json::object()}};
            if (how == 4) message.erase("method"), message["jsonrpc"] = "2.0";
            return message.dump();
        }
        case 11: { // invalid UTF-8 or a raw control character inside a string
            const char* bad[] = {"\xff", "\xc0\xaf", "\xed\xa0\x80", "\xf4\x90\x80\x80", "\x01", "\xe2\x82"};
            return "{\"jsonrpc\":\"2.0\",\"id\":\"" + std::string(bad[pick(6)]) + "\",\"method\":\"ping\"}";
        }
        case 12: { // random bytes, no line feed
            std::string bytes(1 + pick(64), ' ');
            for (char& c : bytes) c = static_cast<char>(pick(256));
            for (char& c : bytes)
                if (c == '\n') c = '{';
            return bytes;
        }
        default: { // escapes that must be refused or carried through whole
            const char* lines[] = {
                R"({"jsonrpc":"2.0","id":"\ud800","method":"ping"})",
                R"({"jsonrpc":"2.0","id":"a\u0000b","method":"ping"})",
                R"({"jsonrpc":"2.0","id":"\ud83d\ude00\u2028","method":"ping"})",
                R"({"jsonrpc":"2.0","id":1e400,"method":"ping"})",
                R"({"jsonrpc":"2.0","id":123456789012345678901234567890,"method":"ping"})",
                R"({"jsonrpc":"2.0","id":1,"id":2,"method":"ping"})",
                R"({"jsonrpc":"2.0","method":"tools/call","params":{"name":"create_note","arguments":{"title":"never"}}})",
            };
            return lines[pick(7)];
        }
        }
    }

    unsigned pick(unsigned count) { return static_cast<unsigned>(random_() % count); }

private:
    std::string request(const std::string& method, const Json& params) {
        Json message = {{"jsonrpc", "2.0"}, {"id", id()}, {"method", method}};
        if (!params.is_null()) message["params"] = params;
        return message.dump();
    }

    Json id() {
        switch (pick(9)) {
        case 0: return nullptr;
        case 1: return pick(2) == 1;
        case 2: return static_cast<long long>(random_()) - 2147483648LL;
        case 3: return static_cast<double>(random_()) / 7.0;
        case 4: return "id-" + std::to_string(random_()) + "-\u00e9\u4e2d";
        case 5: return Json{{"n", random_()}, {"nested", {1, "two", nullptr}}};
        case 6: return Json::array({random_(), "x"});
        case 7: return std::numeric_limits<std::uint64_t>::max();
        default: return static_cast<long long>(random_());
        }
    }

    std::string method() {
        const char* methods[] = {"notifications/initialized", "notifications/cancelled", "ping", "tools/call",
                                 "resources/list", "prompts/list", "Ping", ""};
        return methods[pick(8)];
    }

    std::string version() {
        const char* versions[] = {"2025-06-18", "2025-03-26", "2024-11-05", "1999-01-01"};
        return versions[pick(4)];
    }

    std::string longText() {
        return pick(200) == 0 ? std::string(100000 + pick(100000), 'q') : std::string(1 + pick(40), 'w');
    }

    Json toolCall() {
        switch (pick(12)) {
        case 0: return {{"name", "list_notes"}, {"arguments", {{"limit", static_cast<int>(pick(300)) - 50}}}};
        case 1: return {{"name", "list_notes"}, {"arguments", {{"tag", "a"}, {"folder", "Folder"}}}};
        case 2: return {{"name", "search_notes"}, {"arguments", {{"query", pick(2) ? "body" : longText()}}}};
        case 3: return {{"name", "read_note"}, {"arguments", {{"path", pick(2) ? "Note.md" : "folder\\inner.md"}}}};
        case 4:
            return {{"name", "read_attachment"},
                    {"arguments", {{"path", "Note.md"}, {"attachment_name", pick(2) ? "photo.png" : "text.txt"}}}};
        case 5: // a write that its validation refuses, so the library stays small
            return {{"name", pick(2) ? "create_note" : "update_note"}, {"arguments", {{"title", ""}, {"path", "x"}}}};
        case 6: // writes that take the lock, a few: each flushes files to the disk
            if (pick(100) == 0) return {{"name", "create_note"}, {"arguments", {{"title", "Made"}, {"folder", "Made"}}}};
            if (pick(20) == 0)
                return {{"name", "update_note"},
                        {"arguments", {{"path", "Note.md"}, {"expected_revision", std::string(64, 'a')}, {"pinned", true}}}};
            return {{"name", "read_note"}, {"arguments", {{"path", "Folder/Inner.md"}, {"max_characters", 3}}}};
        case 7: return {{"name", "no_such_tool"}};
        case 8: return {{"arguments", Json::object()}};
        case 9: return {{"name", 5}};
        case 10: return {{"name", "read_note"}, {"arguments", "not an object"}};
        default: {
            const unsigned length = pick(100) == 0 ? 1 + pick(70000) : 1 + pick(70);
            return {{"name", "read_note"}, {"arguments", {{"path", std::string(length, 'p') + ".md"}}}};
        }
        }
    }

    std::mt19937 random_;
};

void expectReply(const std::optional<std::string>& line, const Expected& expected, const std::string& sent) {
    ASSERT_TRUE(line) << "no reply to " << sent.substr(0, 200);
    const Json reply = Json::parse(*line, nullptr, false);
    ASSERT_FALSE(reply.is_discarded()) << *line;
    EXPECT_EQ(reply["id"].dump(), expected.id.dump()) << sent.substr(0, 200);
    if (expected.errorCode != 0) {
        EXPECT_EQ(reply["error"]["code"], expected.errorCode) << sent.substr(0, 200) << "\n" << line->substr(0, 200);
    } else {
        EXPECT_TRUE(reply.contains("result")) << sent.substr(0, 200) << "\n" << line->substr(0, 200);
    }
}

TEST(ProtocolProperty, EveryRequestOfARandomStreamIsAnsweredOnceInOrder) {
    TempLibrary library;
    library.write("Note.md", std::string("---\nid: ") + kId + "\ntitle: \"Note\"\ntags: [\"a\"]\n---\nbody #a");
    library.write("Folder/Inner.md", "inner body");
    library.write(std::string("Vorlo Data/Attachments/") + kId + "/photo.png", "png");
    library.write(std::string("Vorlo Data/Attachments/") + kId + "/text.txt", "text");

    const char* many = std::getenv("VORLO_LONG_TESTS");
    const int lineCount = many != nullptr && std::string_view(many) == "1" ? 1000000 : 100000;
    LineMaker maker(20240501);
    std::vector<std::string> lines;
    lines.reserve(lineCount + 2);
    for (int i = 0; i < lineCount; ++i) lines.push_back(maker.next());
    // The longest line that may arrive with its line feed, somewhere in the middle; empty lines are
    // skipped unanswered.
    std::string longest = Json{{"jsonrpc", "2.0"}, {"id", "longest"}, {"method", "ping"}}.dump();
    longest.insert(longest.size() - 1, kMaximumInputBufferBytes - 1 - longest.size(), ' ');
    const std::size_t longestAt = lines.size() / 2;
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(longestAt), longest);
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(longestAt) + 1, "");

    std::vector<std::size_t> answered; // indices of the lines that must be answered, in order
    std::vector<Expected> expected(lines.size());
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].empty()) continue;
        expected[i] = expectedFor(lines[i]);
        if (expected[i].answered) answered.push_back(i);
    }

    ServerProcess server(library.preferences());
    std::atomic<std::size_t> repliesRead{0};
    const std::size_t repliesBeforeLongest =
        std::lower_bound(answered.begin(), answered.end(), longestAt) - answered.begin();
    std::thread sender([&] {
        std::mt19937 random(99);
        std::string pending;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            pending += lines[i];
            pending += '\n';
            if (i + 1 == longestAt) {
                // Before the longest line, what came earlier must be cut off, or it would count
                // towards the limit together with it.
                server.send(pending);
                pending.clear();
                while (repliesRead < repliesBeforeLongest) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            while (pending.size() > 65536 || (i + 1 == lines.size() && !pending.empty())) {
                const std::size_t chunk = std::min<std::size_t>(pending.size(), 1 + random() % 9000);
                server.send(std::string_view(pending).substr(0, chunk));
                pending.erase(0, chunk);
            }
            if (i == longestAt) {
                server.send(pending);
                pending.clear();
                while (repliesRead <= repliesBeforeLongest) std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
        }
        // Last, a message of exactly the limit with no line feed: handled at the end of input.
        std::string last = Json{{"jsonrpc", "2.0"}, {"id", "last"}, {"method", "ping"}}.dump();
        last.insert(last.size() - 1, kMaximumInputBufferBytes - last.size(), ' ');
        server.send(last);
    });

    for (const std::size_t index : answered) {
        const auto line = server.readLine(std::chrono::seconds(10));
        expectReply(line, expected[index], lines[index]);
        ++repliesRead;
        if (::testing::Test::HasFatalFailure()) break;
    }
    if (::testing::Test::HasFatalFailure()) repliesRead = lines.size(); // let the sender finish
    sender.join();
    server.closeInput(); // the last line has no line feed: the end of input hands it over
    expectReply(server.readLine(std::chrono::seconds(10)), {true, 0, "last"}, "last");
    const auto exit = server.finish();
    EXPECT_EQ(exit.status, 0);
    EXPECT_EQ(exit.standardOutput, "") << "unasked output";
    EXPECT_EQ(exit.standardError, "");
    std::cout << "[          ] " << lines.size() << " lines sent, " << answered.size() + 1 << " answered\n";
}

TEST(ProtocolProperty, AStreamThatOutgrowsTheLimitIsAnsweredUpToItAndEndsWithStatusTwo) {
    TempLibrary library;
    LineMaker maker(7);
    std::string input;
    std::vector<Expected> expected;
    for (int i = 0; i < 200; ++i) {
        const std::string line = maker.next();
        input += line + "\n";
        if (const Expected e = expectedFor(line); e.answered) expected.push_back(e);
    }
    ServerProcess server(library.preferences());
    server.send(input);
    for (const auto& e : expected) expectReply(server.readLine(std::chrono::seconds(10)), e, "");
    // One byte over: a message of exactly the limit arriving with its line feed.
    std::string over = Json{{"jsonrpc", "2.0"}, {"id", "over"}, {"method", "ping"}}.dump();
    over.insert(over.size() - 1, kMaximumInputBufferBytes - over.size(), ' ');
    server.send(over + "\n" + maker.next() + "\n");
    const auto exit = server.finish();
    EXPECT_EQ(exit.status, 2);
    EXPECT_EQ(exit.standardOutput, "");
    EXPECT_EQ(exit.standardError, "Vorlo MCP: An MCP request exceeded Vorlo's safety limit.\n");
}

} // namespace
} // namespace vorlo::testing
