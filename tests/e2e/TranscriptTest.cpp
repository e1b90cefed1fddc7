// Replays the sessions in tests/e2e/transcripts through the real binary. A file is a list of cases,
// each opened by "== Name" and run in a fresh library with access and writing on. A line holds one
// step, or several separated by " ; ":
//
//   let NAME = TEXT         later lines of the file read TEXT for $NAME ($LIB, $ROOT and the source
//                           tree's $SRC are built in)
//   file PATH[ | PATH...][ = TEXT]   files in the library that hold TEXT, or "text"
//   link PATH -> TARGET     a symbolic link;  folder PATH: an empty folder
//   rm PATH                 removes PATH, which must be there
//   sh COMMAND => STATUS[ TEXT]   runs COMMAND in the shell (for a mode, a fifo, a file's date, a
//                           script): it must end with STATUS, and its output, standard error included,
//                           contain TEXT
//   prefs TEXT              the preferences file;  prefs-path [PATH|unset]: the variable naming it
//   env NAME=VALUE          one more variable for the next server's environment
//   > LINE[ => JSON]        sends LINE; the reply must then equal JSON (with ~>, contain it)
//   > LINE | LINE... => JSON      each line in turn, each with the same expectation; likewise TOOL
//   >| BYTES                sends BYTES without a line feed, and nothing may come back for 100 ms
//   TOOL ARGS[ ! TEXT]      tools/call; the tool must fail with exactly TEXT, or else succeed and,
//   TOOL ARGS => JSON       given JSON, its structured result must equal (~>, contain) it
//   => JSON  /  ~> JSON     the next reply
//   eof                     closes the server's input
//   exit STATUS[ TEXT]      the server ends with STATUS, TEXT its stderr line, nothing left unread;
//                           a later step starts a new server
//   is PATH = TEXT  /  absent PATH  /  mode PATH[ | PATH...] = MODE     the library after the calls
//
// TEXT, LINE and BYTES take \n \r \\ \xHH and \*Nc (N times c). Anywhere, {rev:PATH} is the digest of
// a library file as it is now, and {id} {modified} {revision} are those fields of the last successful
// call's note (or of its result when it has none), {pid} this process's id, and {host} {HOST} the host
// name as the system gives it and in capitals. To contain: every member given is there and
// contains what is given (null: is absent); an array contains one of its length whose elements
// contain the given ones in order, or for objects in any order (a listing follows the file system).
// A server still running when its case ends must pass "exit 0", no case may leave a lock or a
// temporary file behind, and a busy library is reported only after about a second of waiting. The
// cases of locks.txt wait for locks: they run all at once, as one test.
#include "e2e/Reliability.h"
#include "platform/Errors.h"
#include "support/Split.h"
#include "tools/Limits.h"

#include <gmock/gmock.h>

#include <functional>
#include <regex>

namespace vorlo::testing {
namespace {

using Steps = std::vector<std::string>;

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

// `text` cut at the first `separator`: what precedes it, and what follows if it occurs.
std::pair<std::string, std::optional<std::string>> cut(const std::string& text, std::string_view separator) {
    const std::size_t at = text.find(separator);
    if (at == std::string::npos) return {text, std::nullopt};
    return {text.substr(0, at), text.substr(at + separator.size())};
}

// Runs a shell command: its exit status, and the standard output and error of all its parts together.
std::pair<int, std::string> shell(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen(("{ " + command + "\n} 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, n);
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

std::string unescape(const std::string& text) {
    std::string out;
    for (std::size_t i = 0, digits; i < text.size(); ++i) {
        if (text[i] != '\\') {
            out += text[i];
        } else if (text[++i] == 'x') {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else if (text[i] == '*') {
            const std::size_t count = std::stoul(text.substr(i + 1), &digits);
            out.append(count, text[i += digits + 1]);
        } else {
            out += text[i] == 'n' ? '\n' : text[i] == 'r' ? '\r' : text[i];
        }
    }
    return out;
}

bool contains(const Json& actual, const Json& expected) {
    if (expected.is_object()) {
        for (const auto& [key, value] : expected.items())
            if (value.is_null() ? actual.contains(key)
                                : !actual.contains(key) || !contains(actual[key], value))
                return false;
        return actual.is_object();
    }
    if (!expected.is_array() || !actual.is_array() || actual.size() != expected.size())
        return actual == expected;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        const auto within = [&](const Json& a) { return contains(a, expected[i]); };
        if (expected[i].is_object() ? std::none_of(actual.begin(), actual.end(), within) : !within(actual[i]))
            return false;
    }
    return true;
}

std::vector<std::pair<std::string, Steps>> loadTranscripts(bool locks) {
    std::vector<std::pair<std::string, Steps>> cases;
    for (const auto& file : std::filesystem::directory_iterator(VORLO_SOURCE_DIR "/tests/e2e/transcripts")) {
        if ((file.path().stem() == "locks") != locks) continue;
        std::vector<std::pair<std::string, std::string>> variables;
        std::istringstream in(readFile(file.path()));
        for (std::string line; std::getline(in, line);) {
            for (const auto& [name, value] : variables)
                replaceAll(line, "$" + name, value);
            if (line.starts_with("== "))
                cases.emplace_back(file.path().stem().string() + "_" + line.substr(3), Steps());
            else if (line.starts_with("let "))
                variables.emplace_back(line.substr(4, line.find(" = ") - 4), *cut(line, " = ").second);
            else if (!line.empty() && line[0] != '#')
                for (const std::string& step : split(line, " ; "))
                    cases.back().second.push_back(step);
        }
    }
    return cases;
}

class Session {
  public:
    void run(const Steps& steps) {
        for (const std::string& step : steps) {
            SCOPED_TRACE(step);
            this->step(withPlaceholders(step));
        }
        if (server_) step("exit 0");
        EXPECT_EQ(leftovers(library_), std::vector<std::string>());
    }

  private:
    std::string withPlaceholders(std::string text) const {
        std::string host = process::hostName(), upper = host;
        std::ranges::transform(host, upper.begin(), [](unsigned char c) { return std::toupper(c); });
        // clang-format off
        const std::pair<const char*, std::string> values[] = {{"$LIB", library_.library()},
            {"$ROOT", library_.root()}, {"$SRC", VORLO_SOURCE_DIR}, {"{id}", last_.value("id", "")},
            {"{modified}", last_.value("modified", "")}, {"{revision}", last_.value("revision", "")},
            {"{host}", host}, {"{HOST}", upper}, {"{pid}", std::to_string(::getpid())}};
        // clang-format on
        for (const auto& [name, value] : values)
            replaceAll(text, name, value);
        for (std::size_t at; (at = text.find("{rev:")) != std::string::npos;) {
            const std::size_t end = text.find('}', at);
            text.replace(at, end + 1 - at, sha256Hex(library_.read(text.substr(at + 5, end - at - 5))));
        }
        return text;
    }

    ServerProcess& server() { return server_ ? *server_ : server_.emplace(preferencesPath_, environment_); }

    void expect(const Json& actual, const std::string& expectation) {
        const std::string text = expectation.substr(expectation.find(' ', 1) + 1);
        const Json expected = expectation.starts_with(" ! ") ? Json(text) : Json::parse(text);
        EXPECT_TRUE(expectation.starts_with(" ~> ") ? contains(actual, expected) : actual == expected)
            << "got " << actual << "\nnot " << expected;
    }

    Json reply() { return Json::parse(server().readLine().value_or(R"("no reply")")); }

    // What a tool call's expectation is matched against: the reply for a protocol error, the
    // message of a failed call, or the structured result, which the text content must repeat.
    Json toolOutcome(const Json& result) {
        if (result.contains("error")) return result;
        if (result.value("isError", false)) {
            const Json text = result.at("content").at(0).at("text");
            EXPECT_EQ(result, (Json{{"content", {{{"type", "text"}, {"text", text}}}}, {"isError", true}}));
            return text;
        }
        const Json& structured = result["structuredContent"];
        EXPECT_EQ(Json::parse(result["content"][0].value("text", "")), structured);
        last_ = structured.value("note", structured);
        if (!structured.contains("note")) return structured;
        // A write: the note it reports is the one on disk, unless an update named it in another case.
        const std::string id = last_.value("id", ""), file = library_.path(last_.value("path", ""));
        const auto modified = parseIso8601(last_.value("modified", ""));
        EXPECT_TRUE(Uuid::parse(id) && Uuid::parse(id)->text() == id) << id;
        EXPECT_TRUE(modified && std::chrono::abs(currentTime() - *modified) < std::chrono::minutes(1))
            << last_;
        const bool onDisk = ::access(file.c_str(), F_OK) == 0;
        EXPECT_TRUE(onDisk || structured.contains("updated")) << file;
        if (onDisk) {
            EXPECT_EQ(std::pair(last_.value("revision", ""), modeOf(file)),
                      std::pair(sha256Hex(readFile(file)), 0600u));
        }
        return structured;
    }

    void step(const std::string& line) {
        const auto [word, rest] = cut(line, " ");
        const std::string argument = rest.value_or("");
        const auto [path, text] = cut(argument, " =");
        const auto content = [&] { return text ? unescape(text->substr(text->empty() ? 0 : 1)) : "text"; };
        std::size_t mark = std::string::npos; // where the expectation of a request begins
        for (const char* arrow : {" => ", " ~> ", " ! "})
            mark = std::min(mark, argument.find(arrow));
        const std::string request = argument.substr(0, mark),
                          expectation = argument.substr(std::min(mark, argument.size()));
        const auto forEach = [](const std::string& list, auto action) {
            for (const std::string& each : split(list, " | "))
                action(each);
        };
        // clang-format off
        const std::map<std::string_view, std::function<void()>> kinds = {
            {"file", [&] { forEach(path, [&](auto& each) { library_.write(unescape(each), content()); }); }},
            {"link", [&] { library_.link(cut(argument, " -> ").first, *cut(argument, " -> ").second); }},
            {"folder", [&] { library_.makeFolder(argument); }},
            {"rm", [&] {
                EXPECT_TRUE(library_.exists(argument));
                std::filesystem::remove_all(library_.path(argument)); }},
            {"mode", [&] { forEach(path, [&](auto& each) {
                EXPECT_EQ(modeOf(library_.path(each)), std::stoul(content(), nullptr, 8)) << each; }); }},
            {"prefs", [&] { library_.writePreferencesText(unescape(argument)); }},
            {"prefs-path", [&] {
                preferencesPath_ = argument == "unset" ? std::nullopt : std::optional(argument); }},
            {"env", [&] { environment_.push_back(argument); }},
            {"sh", [&] {
                const auto [status, output] = cut(expectation.substr(4), " "); // after " => "
                const auto [code, log] = shell(request);
                EXPECT_EQ(code, std::stoi(status)) << log;
                EXPECT_THAT(log, ::testing::HasSubstr(output.value_or(""))); }},
            {">|", [&] {
                server().send(unescape(argument));
                EXPECT_EQ(server().readLine(std::chrono::milliseconds(100)), std::nullopt); }},
            {"=>", [&] { expect(reply(), " " + line); }},
            {"~>", [&] { expect(reply(), " " + line); }},
            {"eof", [&] { server().closeInput(); }},
            {"exit", [&] {
                const auto [status, message] = cut(argument, " ");
                EXPECT_EQ(server().finish(), std::stoi(status));
                EXPECT_EQ(server().standardError(), message ? unescape(*message) + "\n" : "");
                EXPECT_EQ(server().unread(), "");
                server_.reset(); }},
            {"is", [&] { EXPECT_EQ(library_.read(path), content()); }},
            {"absent", [&] { EXPECT_FALSE(library_.exists(argument)); }},
            {">", [&] { forEach(request, [&](auto& each) {
                server().send(unescape(each) + "\n");
                if (!expectation.empty()) expect(reply(), expectation); }); }},
        };
        // clang-format on
        if (const auto kind = kinds.find(word); kind != kinds.end()) return kind->second();
        forEach(request, [&](auto& each) { // any other word names a tool; no expectation: any success
            const auto start = Clock::now();
            const Json outcome = toolOutcome(server().call(word, Json::parse(each)));
            EXPECT_TRUE(outcome != kBusy || Clock::now() - start >= 900ms) << "busy without waiting";
            expect(outcome, expectation.empty() ? R"( ~> {"error":null})" : expectation);
        });
    }

    TempLibrary library_;
    std::optional<std::string> preferencesPath_ = library_.preferences();
    std::vector<std::string> environment_;
    std::optional<ServerProcess> server_;
    Json last_ = Json::object();
};

class Transcript : public ::testing::TestWithParam<std::pair<std::string, Steps>> {};

TEST_P(Transcript, Replays) {
    Session().run(GetParam().second);
}

INSTANTIATE_TEST_SUITE_P(E2e, Transcript, ::testing::ValuesIn(loadTranscripts(false)),
                         [](const auto& info) { return info.param.first; });

TEST(LockRecovery, CasesWaitingForLocksRunAtOnce) {
    const auto cases = loadTranscripts(true);
    std::vector<std::thread> sessions;
    for (const auto& each : cases)
        sessions.emplace_back([&each] {
            SCOPED_TRACE(each.first);
            Session().run(each.second);
        });
    for (std::thread& session : sessions)
        session.join();
}

// What the transcripts cannot say: a note past its limit, which no request line can carry, and an
// outcome that rests on the order in which the file system lists a folder.
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
    succeeded(
        server.call("update_note",
                    {{"path", "TWIN.md"}, {"expected_revision", read["revision"]}, {"content", "changed"}}));
    const bool upper = read["content"] == "upper";
    EXPECT_TRUE(library.read(upper ? "Twin.md" : "twin.md").ends_with("---\nchanged"));
    EXPECT_EQ(library.read(upper ? "twin.md" : "Twin.md"), upper ? "lower" : "upper");
}

// What a newcomer meets first besides newcomer.txt: the README's snippets, install and the .deb, each
// checked against the real thing so that the documentation cannot drift from the program.
const auto quoted = [](const std::string& path) { return "'" + path + "'"; };

// Every snippet parses, every client configuration starts the installed command with the
// preferences variable, and every example call does against the example library what the README
// says it does: each succeeds except the stale update, which is refused.
TEST(Readme, EverySnippetParsesAndEveryExampleCallBehavesAsShown) {
    const std::string readme = readFile(VORLO_SOURCE_DIR "/README.md");
    TempLibrary library;
    std::filesystem::remove(library.library());
    std::filesystem::copy(VORLO_SOURCE_DIR "/examples/library", library.library(),
                          std::filesystem::copy_options::recursive);
    ServerProcess server(library.preferences());
    int configurations = 0, calls = 0;
    const std::regex fenced("```json\n([\\s\\S]*?)```");
    for (auto it = std::sregex_iterator(readme.begin(), readme.end(), fenced); it != std::sregex_iterator();
         ++it) {
        const Json snippet = Json::parse((*it)[1].str(), nullptr, false);
        EXPECT_FALSE(snippet.is_discarded()) << "a JSON snippet of the README does not parse:\n" << (*it)[1];
        for (const char* key : {"mcpServers", "servers"}) {
            if (!snippet.contains(key)) continue;
            EXPECT_EQ(snippet[key]["vorlo"]["command"], "/usr/local/bin/vorlo-mcp") << snippet;
            EXPECT_TRUE(snippet[key]["vorlo"]["env"].contains("VORLO_MCP_PREFERENCES")) << snippet;
            ++configurations;
        }
        if (!snippet.contains("name") || !snippet.contains("arguments")) continue;
        const Json result = server.call(snippet["name"].get<std::string>(), snippet["arguments"]);
        EXPECT_EQ(result.value("isError", true), snippet["name"] == "update_note") << result;
        ++calls;
    }
    EXPECT_EQ(configurations, 4); // Claude Desktop, Claude Code, VS Code, Cursor
    EXPECT_EQ(calls, 6);
}

// Install places the executable and the man page; the .deb holds exactly those two, and
// depends on exactly the packages that hold the shared libraries its executable needs: libc6 alone when the
// others are linked in, as the build does where it can.
TEST(Packaging, InstallAndTheDebianPackagePlaceTheExecutableAndTheManPage) {
    TempLibrary scratch;
    const auto [status, output] = shell("DESTDIR=" + quoted(scratch.root()) + " cmake --install " +
                                        quoted(VORLO_BINARY_DIR) + " --prefix /opt/vorlo");
    ASSERT_EQ(status, 0) << output;
    const std::string prefix = scratch.root() + "/opt/vorlo";
    EXPECT_EQ(modeOf(prefix + "/bin/vorlo-mcp") & 0100, 0100u);
    EXPECT_TRUE(std::filesystem::exists(prefix + "/share/man/man1/vorlo-mcp.1.gz") ||
                std::filesystem::exists(prefix + "/share/man/man1/vorlo-mcp.1"));
    if (shell("command -v cpack && command -v dpkg-deb && command -v readelf").first != 0)
        GTEST_SKIP() << "no cpack, dpkg-deb or readelf here";
    const std::string deb = quoted(scratch.root()) + "/*.deb",
                      unpacked = quoted(scratch.root() + "/unpacked");
    const auto packaged = shell("cd " + quoted(VORLO_BINARY_DIR) + " && cpack -G DEB -B " +
                                quoted(scratch.root()) + " && dpkg-deb -x " + deb + " " + unpacked);
    ASSERT_EQ(packaged.first, 0) << packaged.second;
    EXPECT_EQ(shell("dpkg-deb -c " + deb + " | awk '{print $NF}' | grep -v '/$'").second,
              "./usr/bin/vorlo-mcp\n./usr/share/man/man1/vorlo-mcp.1.gz\n");
    // Names only, without versions or alternatives. With /lib merged into /usr/lib a package may
    // have registered a library under either name.
    const auto depends =
        shell("dpkg-deb -f " + deb + " Depends | tr ',|' '\\n\\n' | sed 's/(.*//; s/ //g' | sort -u");
    const std::string executable = unpacked + "/usr/bin/vorlo-mcp";
    const auto needed = shell(
        "for l in $(readelf -d " + executable + " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\]/\\1/p'); do " +
        "p=$(ldd " + executable + " | awk -v l=$l '$1 == l {print $3}'); [ -n \"$p\" ] || continue; " +
        "dpkg -S $p || dpkg -S /usr$p || dpkg -S ${p#/usr}; done 2>/dev/null | sed 's/[:,].*//' | sort -u");
    EXPECT_EQ(depends.second, needed.second);
    EXPECT_NE(needed.second.find("libc6\n"), std::string::npos) << needed.second;
#ifdef VORLO_EXECUTABLE_LINKS_STATICALLY
    // ICU, libcrypto and the C++ runtime are inside it: a shared one would cost most of the start-up again.
    EXPECT_EQ(needed.second, "libc6\n");
#endif
    // The description reads as prose: no list separator where CMake joined its pieces.
    const std::string description = shell("dpkg-deb -f " + deb + " Description").second;
    EXPECT_TRUE(description.find("safe access") != std::string::npos &&
                description.find(';') == std::string::npos)
        << description;
}

} // namespace
} // namespace vorlo::testing
