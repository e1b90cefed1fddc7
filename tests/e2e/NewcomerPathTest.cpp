// What a newcomer meets first: the README's snippets, install and the .deb. (The preferences writer
// and the man page are played in transcripts/newcomer.txt.)
// Each is checked against the real thing, so the documentation cannot drift from the program.
#include "e2e/Reliability.h"

#include <regex>

namespace vorlo::testing {
namespace {

// Runs a shell command: its exit status, and its standard output and error together.
std::pair<int, std::string> shell(const std::string& command) {
    std::string output;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        output.append(buffer, n);
    const int status = ::pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

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
    EXPECT_TRUE(description.find("safe access") != std::string::npos && description.find(';') == std::string::npos)
        << description;
}

} // namespace
} // namespace vorlo::testing
