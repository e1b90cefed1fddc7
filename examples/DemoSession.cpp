// A readable walk through one real MCP session with vorlo-mcp, as `make demo` shows it.
// Usage: vorlo-demo <path to vorlo-mcp> <preferences file>
//
// This is a client of the server, not part of it: it starts the executable, speaks JSON-RPC over
// its standard streams, and prints each request with the essential part of its reply.

#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

using Json = nlohmann::json;

namespace {

class Session {
public:
    Session(const char* executable, const char* preferences) {
        int in[2], out[2];
        if (pipe(in) != 0 || pipe(out) != 0) throw std::runtime_error("pipe failed");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, in[0], 0);
        posix_spawn_file_actions_adddup2(&actions, out[1], 1);
        posix_spawn_file_actions_addclose(&actions, in[1]);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        std::string variable = std::string("VORLO_MCP_PREFERENCES=") + preferences;
        char* envp[] = {variable.data(), nullptr};
        char* argv[] = {const_cast<char*>(executable), nullptr};
        if (posix_spawn(&pid_, executable, &actions, nullptr, argv, envp) != 0)
            throw std::runtime_error(std::string("cannot start ") + executable);
        close(in[0]);
        close(out[1]);
        toServer_ = fdopen(in[1], "w");
        fromServer_ = fdopen(out[0], "r");
    }

    ~Session() {
        fclose(toServer_);
        int status = 0;
        waitpid(pid_, &status, 0);
        fclose(fromServer_);
    }

    Json request(const std::string& method, const Json& params = nullptr) {
        Json message = {{"jsonrpc", "2.0"}, {"id", nextId_++}, {"method", method}};
        if (!params.is_null()) message["params"] = params;
        const std::string line = message.dump();
        std::cout << "  \033[36m→\033[0m " << (line.size() > 160 ? line.substr(0, 157) + "..." : line) << "\n";
        fprintf(toServer_, "%s\n", line.c_str());
        fflush(toServer_);
        std::string reply;
        char buffer[65536];
        while (fgets(buffer, sizeof buffer, fromServer_) != nullptr) {
            reply += buffer;
            if (!reply.empty() && reply.back() == '\n') break;
        }
        if (reply.empty()) throw std::runtime_error("the server closed its output");
        return Json::parse(reply);
    }

    Json call(const std::string& tool, const Json& arguments) {
        return request("tools/call", {{"name", tool}, {"arguments", arguments}})["result"];
    }

private:
    pid_t pid_ = -1;
    FILE* toServer_ = nullptr;
    FILE* fromServer_ = nullptr;
    long nextId_ = 1;
};

void heading(int number, const std::string& title) {
    std::cout << "\n\033[1m" << number << ". " << title << "\033[0m\n";
}

void show(const std::string& text) { std::cout << "  \033[32m←\033[0m " << text << "\n"; }

std::string shortened(std::string text, std::size_t length = 90) {
    for (auto& c : text)
        if (c == '\n') c = ' ';
    return text.size() > length ? text.substr(0, length) + "…" : text;
}

// A failed tool call is shown as what it is, so the transcript never hides a problem.
bool failed(const Json& result) {
    if (result.is_object() && result.value("isError", false)) {
        show("\033[31mtool error:\033[0m " + result["content"][0]["text"].get<std::string>());
        return true;
    }
    if (!result.is_object() || !result.contains("content")) {
        show("\033[31munexpected reply\033[0m");
        return true;
    }
    return false;
}

void showNotes(const Json& structured) {
    for (const auto& note : structured["notes"]) {
        std::string line = note["path"].get<std::string>() + "  \"" + note["title"].get<std::string>() + "\"";
        if (note.contains("snippet")) line += "\n        " + shortened(note["snippet"].get<std::string>());
        show(line);
    }
    show("returned " + structured["returned"].dump() + " of " + structured["total_matches"].dump() + " matches");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: vorlo-demo <vorlo-mcp> <preferences file>\n";
        return 64;
    }
    try {
        Session session(argv[1], argv[2]);
        int step = 0;

        heading(++step, "initialize: the client introduces itself");
        const Json init = session.request("initialize", {{"protocolVersion", "2025-06-18"},
                                                          {"clientInfo", {{"name", "demo"}, {"version", "1"}}}});
        show(init["result"]["serverInfo"]["title"].get<std::string>() + " " +
             init["result"]["serverInfo"]["version"].get<std::string>() + ", protocol " +
             init["result"]["protocolVersion"].get<std::string>());

        heading(++step, "tools/list: what the server offers");
        const Json catalogue = session.request("tools/list");
        for (const auto& tool : catalogue["result"]["tools"])
            show(tool["name"].get<std::string>() + " — " + tool["title"].get<std::string>());

        heading(++step, "ping");
        show("result " + session.request("ping")["result"].dump());

        heading(++step, "list_notes: the five newest notes");
        Json result = session.call("list_notes", {{"limit", 5}});
        if (!failed(result)) showNotes(result["structuredContent"]);

        heading(++step, "list_notes in the folder \"projects/travel\" (case does not matter)");
        result = session.call("list_notes", {{"folder", "projects/travel"}});
        if (!failed(result)) showNotes(result["structuredContent"]);

        heading(++step, "search_notes for \"creme brulee\" (accents and case folded)");
        result = session.call("search_notes", {{"query", "creme brulee"}});
        if (!failed(result)) showNotes(result["structuredContent"]);

        heading(++step, "read_note with its attachments");
        result = session.call("read_note", {{"path", "Work/Meeting Notes.md"}});
        std::string revision;
        if (!failed(result)) {
            const Json& note = result["structuredContent"];
            revision = note["revision"];
            show("\"" + note["title"].get<std::string>() + "\", tags " + note["tags"].dump());
            show("revision " + revision);
            show("content: " + shortened(note["content"].get<std::string>()));
            for (const auto& attachment : note["attachments"])
                show("attachment " + attachment["name"].get<std::string>() + " (" +
                     attachment["size_bytes"].dump() + " bytes)");
        }

        heading(++step, "read_attachment: a text file comes back as text, an image as an image");
        for (const char* name : {"agenda.txt", "whiteboard.png"}) {
            result = session.call("read_attachment", {{"path", "Work/Meeting Notes.md"}, {"attachment_name", name}});
            if (failed(result)) continue;
            const Json& item = result["content"][1];
            if (item["type"] == "text") show(std::string(name) + ": text \"" + shortened(item["text"]) + "\"");
            else show(std::string(name) + ": " + item["type"].get<std::string>() + " " +
                      item.value("mimeType", "") + ", " + std::to_string(item.value("data", "").size()) +
                      " characters of Base64");
        }

        heading(++step, "create_note in a new folder");
        result = session.call("create_note", {{"title", "Demo: shopping list"},
                                              {"folder", "Demo"},
                                              {"content", "- oranges\n- coffee #errands"},
                                              {"tags", {"lists"}}});
        std::string createdPath;
        if (!failed(result)) {
            createdPath = result["structuredContent"]["note"]["path"];
            show("created " + createdPath + ", tags " + result["structuredContent"]["note"]["tags"].dump());
        }

        heading(++step, "update_note with the revision that read_note returned");
        result = session.call("update_note", {{"path", "Work/Meeting Notes.md"},
                                              {"expected_revision", revision},
                                              {"pinned", true}});
        if (!failed(result)) show("updated; new revision " + result["structuredContent"]["note"]["revision"].get<std::string>());

        heading(++step, "update_note again with the old revision: refused, nothing is overwritten");
        result = session.call("update_note", {{"path", "Work/Meeting Notes.md"},
                                              {"expected_revision", revision},
                                              {"content", "This would overwrite a newer edit."}});
        if (result.value("isError", false)) show("refused as it should be: " + result["content"][0]["text"].get<std::string>());
        else show("\033[31mthe stale update was accepted\033[0m");

        std::cout << "\n\033[1mConnect a real client\033[0m\n"
                     "  Point your MCP client at the built executable, for example in Claude Desktop's\n"
                     "  claude_desktop_config.json:\n\n"
                     "    {\"mcpServers\": {\"vorlo\": {\"command\": \"/usr/local/bin/vorlo-mcp\",\n"
                     "      \"env\": {\"VORLO_MCP_PREFERENCES\": \"/path/to/Preferences.json\"}}}}\n\n"
                     "  The README shows the same for Claude Code, VS Code and Cursor.\n";
    } catch (const std::exception& error) {
        std::cerr << "demo failed: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
