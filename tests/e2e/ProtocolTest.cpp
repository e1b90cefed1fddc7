// The process boundary: framing, exit statuses, the stderr line and every JSON-RPC answer.
#include "support/ServerProcess.h"
#include "support/TempLibrary.h"
#include "tools/Limits.h"

#include <gtest/gtest.h>

#include <thread>

namespace vorlo::testing {
namespace {

std::vector<Json> replies(const std::string& output) {
    std::vector<Json> lines;
    std::size_t start = 0;
    for (std::size_t end; (end = output.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(Json::parse(output.substr(start, end - start)));
    EXPECT_EQ(start, output.size()) << "output must end with a complete line";
    return lines;
}

std::string ping(const Json& id) { return Json{{"jsonrpc", "2.0"}, {"id", id}, {"method", "ping"}}.dump(); }

const Json kInvalid = {{"jsonrpc", "2.0"}, {"id", nullptr}, {"error", {{"code", -32700}, {"message", "Invalid JSON-RPC request."}}}};

TEST(Framing, EmptyInputAndBlankLinesEndCleanlyWithNoOutput) {
    TempLibrary library;
    for (const char* input : {"", "\n\n\n"}) {
        const auto result = runServer(input, library.preferences());
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.standardOutput, "");
        EXPECT_EQ(result.standardError, "");
    }
}

TEST(Framing, CutsLinesAtLineFeedsWhateverTheChunks) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const std::string two = ping(1) + "\r\n" + ping(2) + "\n";
    server.send(two.substr(0, 10)); // a message split across writes is handled when its end arrives
    EXPECT_FALSE(server.readLine(std::chrono::milliseconds(200)));
    server.send(two.substr(10));
    server.send(ping("last")); // no final line feed: handled at end of input
    const auto result = server.finish();
    EXPECT_EQ(result.status, 0);
    const auto lines = replies(result.standardOutput);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0]["id"], 1); // CRLF: the CR is JSON whitespace
    EXPECT_EQ(lines[1]["id"], 2);
    EXPECT_EQ(lines[2]["id"], "last");
}

TEST(Framing, LineOfOnlyCarriageReturnOrBlanksIsAnsweredAsInvalid) {
    TempLibrary library;
    const auto result = runServer("\r\n   \n", library.preferences());
    const auto lines = replies(result.standardOutput);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], kInvalid);
    EXPECT_EQ(lines[1], kInvalid);
}

std::string paddedPing(std::size_t length) {
    std::string line = ping(1);
    line.insert(line.size() - 1, length - line.size(), ' ');
    return line;
}

TEST(Framing, InputLimitCountsTheBufferAfterEachAppend) {
    TempLibrary library;
    { // the longest message that can arrive with its line feed
        const auto result = runServer(paddedPing(kMaximumInputBufferBytes - 1) + "\n", library.preferences());
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(replies(result.standardOutput).size(), 1u);
    }
    { // exactly the limit, unterminated at end of input, is within it
        const auto result = runServer(paddedPing(kMaximumInputBufferBytes), library.preferences());
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(replies(result.standardOutput).size(), 1u);
    }
    { // the separator counts: one byte over ends the process
        const auto result = runServer(paddedPing(kMaximumInputBufferBytes) + "\n", library.preferences());
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.standardOutput, "");
        EXPECT_EQ(result.standardError, "Vorlo MCP: An MCP request exceeded Vorlo's safety limit.\n");
    }
}

TEST(Framing, MalformedLinesAreAnsweredAndTheLoopGoesOn) {
    TempLibrary library;
    const std::string deep(100000, '[');
    const std::string lines[] = {
        "not json", "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"ping\"}\x01", std::string("{\"a\":1}\0", 8),
        "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"p\xff\"}", deep, deep + std::string(100000, ']'),
        "[" + ping(1) + "]", "42", "{}", "{\"jsonrpc\":\"1.0\",\"id\":1,\"method\":\"ping\"}",
        "{\"jsonrpc\":2.0,\"id\":1,\"method\":\"ping\"}", "{\"id\":1,\"method\":\"ping\"}",
        "{\"jsonrpc\":\"2.0\",\"id\":1,\"result\":{}}", "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":7}",
        "{\"jsonrpc\":\"2.0\",\"id\":\"\\ud800\",\"method\":\"ping\"}"};
    std::string input;
    for (const auto& line : lines) input += line + "\n";
    input += ping("after");
    const auto result = runServer(input, library.preferences());
    EXPECT_EQ(result.status, 0);
    const auto answers = replies(result.standardOutput);
    ASSERT_EQ(answers.size(), std::size(lines) + 1);
    for (std::size_t i = 0; i < std::size(lines); ++i) EXPECT_EQ(answers[i], kInvalid) << "line " << i;
    EXPECT_EQ(answers.back()["id"], "after");
}

TEST(Framing, DuplicateKeysAndHugeNumbersDoNotBreakTheServer) {
    TempLibrary library;
    const auto result = runServer(
        "{\"jsonrpc\":\"2.0\",\"id\":1,\"id\":2,\"method\":\"ping\"}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":123456789012345678901234567890,\"method\":\"ping\"}\n"
        "{\"jsonrpc\":\"2.0\",\"id\":1e400,\"method\":\"ping\"}\n" + ping("after"),
        library.preferences());
    EXPECT_EQ(result.status, 0);
    const auto answers = replies(result.standardOutput);
    ASSERT_FALSE(answers.empty());
    EXPECT_EQ(answers.back()["id"], "after");
    EXPECT_LE(answers.size(), 4u);
}

TEST(JsonRpc, IdComesBackUnchangedWhateverItsType) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    for (const Json& id : {Json(7), Json("seven"), Json(nullptr), Json(-1.5), Json(true), Json::array({1, "a"}),
                           Json{{"k", Json::array()}}}) {
        const Json reply = server.request(Json::parse(ping(id)));
        EXPECT_EQ(reply, (Json{{"jsonrpc", "2.0"}, {"id", id}, {"result", Json::object()}}));
    }
}

TEST(JsonRpc, NotificationsAreNeverAnsweredAndNeverRun) {
    TempLibrary library;
    const auto result = runServer(
        "{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n"
        "{\"jsonrpc\":\"2.0\",\"method\":\"no/such\"}\n"
        "{\"jsonrpc\":\"2.0\",\"method\":\"tools/call\",\"params\":{\"name\":\"create_note\",\"arguments\":{\"title\":\"x\"}}}\n",
        library.preferences());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.standardOutput, "");
    EXPECT_FALSE(library.exists("x.md"));
}

TEST(JsonRpc, UnknownMethodsGetMethodNotFound) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    for (const char* method : {"resources/list", "prompts/list", "Ping", "nothing"}) {
        const Json reply = server.request({{"jsonrpc", "2.0"}, {"id", 7}, {"method", method}});
        EXPECT_EQ(reply["error"], (Json{{"code", -32601}, {"message", "Method not found."}})) << method;
        EXPECT_EQ(reply["id"], 7);
    }
}

TEST(JsonRpc, InitializeNegotiatesTheProtocolVersion) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const std::pair<Json, std::string> cases[] = {
        {{{"protocolVersion", "2024-11-05"}}, "2024-11-05"}, {{{"protocolVersion", "2025-03-26"}}, "2025-03-26"},
        {{{"protocolVersion", "2025-06-18"}}, "2025-06-18"}, {{{"protocolVersion", "1999-01-01"}}, "2025-06-18"},
        {{{"protocolVersion", 1}}, "2025-06-18"},            {Json::object(), "2025-06-18"},
        {Json("params of the wrong type"), "2025-06-18"},
    };
    for (const auto& [params, expected] : cases) {
        const Json reply = server.request({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "initialize"}, {"params", params}});
        const Json expectedResult = {
            {"protocolVersion", expected},
            {"capabilities", {{"tools", {{"listChanged", false}}}}},
            {"serverInfo", {{"name", "Vorlo"}, {"title", "Vorlo Notes"}, {"version", "1.2.1"}}},
            {"instructions", "Access unlocked Markdown notes and their attachments in the selected Vorlo library. "
                             "Creating and updating notes requires the separate Allow Writing setting in Vorlo."}};
        EXPECT_EQ(reply["result"], expectedResult) << params.dump();
    }
    const Json bare = server.request({{"jsonrpc", "2.0"}, {"id", 2}, {"method", "initialize"}});
    EXPECT_EQ(bare["result"]["protocolVersion"], "2025-06-18");
}

TEST(Catalogue, ListsTheSixToolsInOrderWithTheirSchemas) {
    TempLibrary library;
    library.writePreferences(true, false); // writing tools are listed even when writing is off
    ServerProcess server(library.preferences());
    const Json first = server.request({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/list"}});
    const Json second = server.request({{"jsonrpc", "2.0"}, {"id", 2}, {"method", "tools/list"}});
    EXPECT_EQ(first["result"], second["result"]);
    const Json& tools = first["result"]["tools"];
    ASSERT_EQ(tools.size(), 6u);
    const char* names[] = {"list_notes", "search_notes", "read_note", "read_attachment", "create_note", "update_note"};
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(tools[i]["name"], names[i]);
        EXPECT_EQ(tools[i].size(), 5u);
        EXPECT_EQ(tools[i]["inputSchema"]["additionalProperties"], false);
        EXPECT_EQ(tools[i]["annotations"]["readOnlyHint"], i < 4);
        EXPECT_EQ(tools[i]["annotations"]["idempotentHint"], i < 4);
        EXPECT_EQ(tools[i]["annotations"]["destructiveHint"], false);
        EXPECT_EQ(tools[i]["annotations"]["openWorldHint"], false);
        EXPECT_EQ(tools[i]["inputSchema"].contains("required"), i != 0);
    }
    EXPECT_EQ(tools[0]["inputSchema"]["properties"]["limit"],
              (Json{{"type", "integer"}, {"minimum", 1}, {"maximum", 200}, {"default", 50}}));
    EXPECT_EQ(tools[1]["inputSchema"]["properties"]["query"], (Json{{"type", "string"}, {"minLength", 1}, {"maxLength", 1000}}));
    EXPECT_EQ(tools[2]["inputSchema"]["properties"]["max_characters"]["default"], 250000);
    EXPECT_EQ(tools[3]["inputSchema"]["required"], (Json{"path", "attachment_name"}));
    EXPECT_EQ(tools[4]["inputSchema"]["properties"]["pinned"], (Json{{"type", "boolean"}, {"default", false}}));
    EXPECT_EQ(tools[4]["inputSchema"]["properties"]["tags"],
              (Json{{"type", "array"}, {"maxItems", 256}, {"items", {{"type", "string"}, {"maxLength", 100}}}}));
    EXPECT_FALSE(tools[4]["inputSchema"]["properties"].contains("path"));
    EXPECT_EQ(tools[5]["inputSchema"]["properties"]["pinned"], (Json{{"type", "boolean"}}));
    EXPECT_FALSE(tools[5]["inputSchema"]["properties"].contains("folder"));
    EXPECT_EQ(tools[5]["inputSchema"]["properties"]["expected_revision"]["pattern"], "^[0-9a-f]{64}$");
    EXPECT_EQ(tools[5]["inputSchema"]["required"], (Json{"path", "expected_revision"}));
}

TEST(ToolCall, ProtocolErrorsForMissingOrUnknownNames) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    for (const Json& params : {Json(), Json("list_notes"), Json::object(), Json{{"name", 5}}}) {
        Json request = {{"jsonrpc", "2.0"}, {"id", 9}, {"method", "tools/call"}};
        if (!params.is_null()) request["params"] = params;
        EXPECT_EQ(server.request(request)["error"], (Json{{"code", -32602}, {"message", "A tool name is required."}}));
    }
    const Json unknown = server.request(
        {{"jsonrpc", "2.0"}, {"id", 9}, {"method", "tools/call"}, {"params", {{"name", "delete_everything"}}}});
    EXPECT_EQ(unknown["error"], (Json{{"code", -32602}, {"message", "Unknown tool: delete_everything"}}));
    const Json empty =
        server.request({{"jsonrpc", "2.0"}, {"id", 9}, {"method", "tools/call"}, {"params", {{"name", ""}}}});
    EXPECT_EQ(empty["error"]["message"], "Unknown tool: ");
}

TEST(ToolCall, SwitchesAreReadAgainAtEveryCall) {
    TempLibrary library;
    ServerProcess server(library.preferences());
    const Json failure = server.call("create_note", {{"title", 5}}); // a validation failure: writing is on
    EXPECT_EQ(failure["isError"], true);
    EXPECT_EQ(failure["content"][0]["text"], "title is required.");

    library.writePreferences(true, false);
    const Json writingOff = server.call("create_note", {{"title", 5}});
    EXPECT_EQ(writingOff, (Json{{"content", {{{"type", "text"},
                                             {"text", "MCP writing is disabled. Enable Allow creating and editing "
                                                      "notes in Vorlo Settings > MCP."}}}},
                                {"isError", true}}));
    EXPECT_EQ(server.request({{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"}, {"params", {{"name", "nope"}}}})
                  ["error"]["code"],
              -32602);

    library.writePreferences(false, true);
    for (const char* tool : {"list_notes", "create_note", "nope"}) {
        const Json off = server.call(tool, Json::object());
        EXPECT_EQ(off["content"][0]["text"], "MCP access was disabled in Vorlo Settings.") << tool;
        EXPECT_FALSE(off.contains("structuredContent"));
    }
    EXPECT_EQ(server.request(Json::parse(ping(3)))["result"], Json::object()); // ping never reads the file

    library.writePreferencesText("{not json");
    const Json broken = server.call("list_notes", Json::object());
    EXPECT_EQ(broken["isError"], true);
    EXPECT_EQ(broken["content"][0]["text"], "The preferences file is not valid JSON.");
}

struct StartCase {
    const char* name;
    std::string preferences; // text of the file; empty means no file
    std::string expectedError;
};

TEST(StartUp, RefusalsEndWithOneStderrLineAndStatusTwo) {
    TempLibrary library;
    const std::string lib = library.library();
    const std::string disabled = "MCP access is disabled. Enable it in Vorlo Settings > MCP before connecting.";
    const StartCase cases[] = {
        {"no file", "", disabled},
        {"enabled false", R"({"libraryPath":")" + lib + R"(","mcp":{"enabled":false,"allowWriting":true}})", disabled},
        {"enabled absent", R"({"libraryPath":")" + lib + R"(","mcp":{"allowWriting":true}})", disabled},
        {"enabled null", R"({"libraryPath":")" + lib + R"(","mcp":{"enabled":null}})", disabled},
        {"empty object", "{}", "The preferences file is not valid: \u201ClibraryPath\u201D is missing."},
        {"no mcp", R"({"libraryPath":""})", "The preferences file is not valid: \u201Cmcp\u201D is missing."},
        {"enabled as string", R"({"libraryPath":"","mcp":{"enabled":"true"}})",
         "The preferences file is not valid: \u201Cmcp.enabled\u201D must be true or false."},
        {"library number", R"({"libraryPath":1,"mcp":{}})",
         "The preferences file is not valid: \u201ClibraryPath\u201D must be text."},
        {"not json", "libraryPath = here", "The preferences file is not valid JSON."},
        {"library is a file", R"({"libraryPath":")" + library.root() + R"(/Preferences.json","mcp":{"enabled":true}})",
         "The selected Vorlo library is unavailable."},
        {"library missing", R"({"libraryPath":")" + lib + R"(/none","mcp":{"enabled":true}})",
         "The Vorlo library folder could not be opened: No such file or directory."},
    };
    for (const auto& c : cases) {
        const std::string preferences = library.root() + "/case.json";
        ::unlink(preferences.c_str());
        if (!c.preferences.empty()) writeFile(preferences, c.preferences);
        const auto result = runServer(ping(1) + "\n", preferences);
        EXPECT_EQ(result.status, 2) << c.name;
        EXPECT_EQ(result.standardOutput, "") << c.name;
        EXPECT_EQ(result.standardError, "Vorlo MCP: " + c.expectedError + "\n") << c.name;
    }
}

TEST(StartUp, PreferencesThatAreLinksOrTooLargeReadAsAbsent) {
    TempLibrary library;
    const std::string disabled = "Vorlo MCP: MCP access is disabled. Enable it in Vorlo Settings > MCP before connecting.\n";
    const std::string link = library.root() + "/link.json";
    ASSERT_EQ(::symlink(library.preferences().c_str(), link.c_str()), 0);
    EXPECT_EQ(runServer("", link).standardError, disabled);
    EXPECT_EQ(runServer("", std::string()).standardError, disabled); // set but empty: no default file either

    const std::string good = R"({"libraryPath":")" + library.library() + R"(","mcp":{"enabled":true}})";
    std::string padded = good;
    padded.append(kMaximumPreferencesBytes - good.size(), ' ');
    writeFile(library.preferences(), padded);
    EXPECT_EQ(runServer("", library.preferences()).status, 0); // exactly the limit is read
    writeFile(library.preferences(), padded + " ");
    EXPECT_EQ(runServer("", library.preferences()).standardError, disabled);
}

TEST(StartUp, LibraryThatIsALinkIsUnavailable) {
    TempLibrary library;
    const std::string link = library.root() + "/LinkedLibrary";
    ASSERT_EQ(::symlink(library.library().c_str(), link.c_str()), 0);
    writeFile(library.preferences(), R"({"libraryPath":")" + link + R"(","mcp":{"enabled":true}})");
    const auto result = runServer("", library.preferences());
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.standardError, "Vorlo MCP: The selected Vorlo library is unavailable.\n");
}

TEST(StartUp, EmptyLibraryPathMeansTheDefaultLibrary) {
    TempLibrary library;
    writeFile(library.preferences(), R"({"libraryPath":"","mcp":{"enabled":true}})");
    const std::string data = "XDG_DATA_HOME=" + library.root() + "/data";
    EXPECT_EQ(runServer("", library.preferences(), {data}).status, 2); // not created when missing
    EXPECT_FALSE(std::filesystem::exists(library.root() + "/data/Vorlo/Library"));
    std::filesystem::create_directories(library.root() + "/data/Vorlo/Library");
    EXPECT_EQ(runServer(ping(1), library.preferences(), {data}).status, 0);
    // Without the variable the default preferences file lives in the same folder.
    writeFile(library.root() + "/data/Vorlo/Preferences.json", R"({"libraryPath":"","mcp":{"enabled":true}})");
    ServerProcess server(std::nullopt, {data});
    EXPECT_EQ(server.request(Json::parse(ping(1)))["result"], Json::object());
}

} // namespace
} // namespace vorlo::testing
