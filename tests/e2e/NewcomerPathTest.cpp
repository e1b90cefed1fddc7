// What a newcomer meets first: the README's snippets, the preferences writer, install and the .deb.
// Each is checked against the real thing, so the documentation cannot drift from the program.
#include "support/ServerProcess.h"
#include "support/TempLibrary.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>

namespace vorlo::testing {
namespace {

struct CommandResult {
    int status = -1;
    std::string output; // standard output and standard error together
};

CommandResult runCommand(const std::string& command) {
    CommandResult result;
    FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
    if (pipe == nullptr) return result;
    std::array<char, 4096> buffer{};
    for (std::size_t n; (n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0;) result.output.append(buffer.data(), n);
    const int status = ::pclose(pipe);
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return result;
}

std::string shellQuoted(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::vector<Json> readmeJsonBlocks() {
    const std::string readme = readFile(std::string(VORLO_SOURCE_DIR) + "/README.md");
    std::vector<Json> blocks;
    const std::regex block("```json\n([\\s\\S]*?)```");
    for (auto it = std::sregex_iterator(readme.begin(), readme.end(), block); it != std::sregex_iterator(); ++it) {
        const std::string text = (*it)[1].str();
        auto parsed = Json::parse(text, nullptr, false);
        EXPECT_FALSE(parsed.is_discarded()) << "a JSON snippet of the README does not parse:\n" << text;
        if (!parsed.is_discarded()) blocks.push_back(std::move(parsed));
    }
    return blocks;
}

// Every snippet parses, every client configuration starts the installed command with the
// preferences variable, and every example call does against the example library what the README
// says it does: each succeeds except the stale update, which is refused.
TEST(Readme, EverySnippetParsesAndEveryExampleCallBehavesAsShown) {
    const auto blocks = readmeJsonBlocks();
    ASSERT_GE(blocks.size(), 10u);

    TempLibrary library;
    std::filesystem::remove(library.library());
    std::filesystem::copy(std::string(VORLO_SOURCE_DIR) + "/examples/library", library.library(),
                          std::filesystem::copy_options::recursive);
    ServerProcess server(library.preferences());

    int configurations = 0;
    int calls = 0;
    for (const Json& block : blocks) {
        for (const char* key : {"mcpServers", "servers"}) {
            if (!block.contains(key)) continue;
            const Json& entry = block[key]["vorlo"];
            EXPECT_EQ(entry["command"], "/usr/local/bin/vorlo-mcp") << block.dump();
            EXPECT_TRUE(entry["env"].contains("VORLO_MCP_PREFERENCES")) << block.dump();
            ++configurations;
        }
        if (!block.contains("name") || !block.contains("arguments")) continue;
        const std::string tool = block["name"];
        const Json result = server.call(tool, block["arguments"]);
        ASSERT_TRUE(result.contains("isError")) << result.dump();
        EXPECT_EQ(result["isError"].get<bool>(), tool == "update_note") << tool << ": " << result.dump();
        ++calls;
    }
    EXPECT_EQ(configurations, 4); // Claude Desktop, Claude Code, VS Code, Cursor
    EXPECT_EQ(calls, 6);
}

class WritePreferences : public ::testing::Test {
protected:
    std::string script = std::string(VORLO_SOURCE_DIR) + "/scripts/write-preferences";
    TempLibrary library;
    std::string output = library.root() + "/Written/Preferences.json";

    CommandResult write(const std::string& arguments) { return runCommand(shellQuoted(script) + " " + arguments); }
};

// The file it writes is one the server starts with, at mode 0600, and the writing switch is honoured.
TEST_F(WritePreferences, WritesAFileTheServerStartsWith) {
    library.write("Hello.md", "Hello");
    const auto written = write(shellQuoted(library.library()) + " --allow-writing --output " + shellQuoted(output));
    ASSERT_EQ(written.status, 0) << written.output;

    struct stat status {};
    ASSERT_EQ(::stat(output.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    const Json preferences = Json::parse(readFile(output));
    EXPECT_EQ(preferences["mcp"]["enabled"], true);
    EXPECT_EQ(preferences["mcp"]["allowWriting"], true);

    ServerProcess server(output);
    const Json listed = structuredText(server.call("list_notes", Json::object()));
    EXPECT_EQ(listed["total_matches"], 1);
    const Json created = server.call("create_note", {{"title", "Written"}});
    EXPECT_EQ(created["isError"], false) << created.dump();
}

// It refuses what is not a folder, and never replaces a file it did not write unless forced; its
// own file it replaces freely (here: turning writing off again).
TEST_F(WritePreferences, RefusesBadLibrariesAndForeignFiles) {
    const std::string file = library.write("note.md", "x");
    EXPECT_NE(write(shellQuoted(file) + " --output " + shellQuoted(output)).status, 0);
    EXPECT_NE(write(shellQuoted(library.root() + "/missing") + " --output " + shellQuoted(output)).status, 0);
    library.link("Linked", library.library());
    EXPECT_NE(write(shellQuoted(library.path("Linked")) + " --output " + shellQuoted(output)).status, 0);
    EXPECT_FALSE(std::filesystem::exists(output));

    ASSERT_EQ(write(shellQuoted(library.library()) + " --allow-writing --output " + shellQuoted(output)).status, 0);
    ASSERT_EQ(write(shellQuoted(library.library()) + " --output " + shellQuoted(output)).status, 0);
    EXPECT_EQ(Json::parse(readFile(output))["mcp"]["allowWriting"], false);

    const std::string foreign = R"({"libraryPath": "/elsewhere", "mcp": {"enabled": true}})";
    writeFile(output, foreign);
    const auto refused = write(shellQuoted(library.library()) + " --output " + shellQuoted(output));
    EXPECT_NE(refused.status, 0);
    EXPECT_NE(refused.output.find("--force"), std::string::npos) << refused.output;
    EXPECT_EQ(readFile(output), foreign);
    EXPECT_EQ(write(shellQuoted(library.library()) + " --force --output " + shellQuoted(output)).status, 0);
    EXPECT_EQ(Json::parse(readFile(output))["libraryPath"], std::filesystem::canonical(library.library()).string());
}

// `make install` puts the executable and its man page under the prefix.
TEST(Packaging, InstallPlacesTheExecutableAndTheManPage) {
    TempLibrary scratch;
    const std::string stage = scratch.root() + "/stage";
    const auto installed = runCommand("DESTDIR=" + shellQuoted(stage) + " cmake --install " + shellQuoted(VORLO_BINARY_DIR) +
                                      " --prefix /opt/vorlo");
    ASSERT_EQ(installed.status, 0) << installed.output;
    struct stat status {};
    ASSERT_EQ(::stat((stage + "/opt/vorlo/bin/vorlo-mcp").c_str(), &status), 0);
    EXPECT_TRUE(status.st_mode & S_IXUSR);
    EXPECT_TRUE(std::filesystem::exists(stage + "/opt/vorlo/share/man/man1/vorlo-mcp.1.gz") ||
                std::filesystem::exists(stage + "/opt/vorlo/share/man/man1/vorlo-mcp.1"));
}

std::set<std::string> lines(const std::string& text) {
    std::set<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty()) out.insert(line);
    return out;
}

// The shared libraries an executable names, by their file names.
std::set<std::string> neededLibraries(const std::string& executable) {
    const auto needed = runCommand("readelf -d " + shellQuoted(executable) + " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\]/\\1/p'");
    EXPECT_EQ(needed.status, 0) << needed.output;
    return lines(needed.output);
}

// The packages that hold those libraries, as the package manager on this machine knows them.
std::set<std::string> packagesOfNeededLibraries(const std::string& executable) {
    const auto resolved = runCommand("ldd " + shellQuoted(executable));
    EXPECT_EQ(resolved.status, 0) << resolved.output;
    // "libc.so.6 => /lib/x86_64-linux-gnu/libc.so.6 (0x...)", and for the loader only its path.
    std::map<std::string, std::string> paths;
    for (const std::string& line : lines(resolved.output)) {
        std::istringstream words(line);
        std::string name, arrow, path;
        words >> name >> arrow >> path;
        if (arrow == "=>") paths[name] = path;
        else paths[std::filesystem::path(name).filename()] = name;
    }
    std::set<std::string> packages;
    for (const std::string& library : neededLibraries(executable)) {
        if (!paths.count(library)) {
            ADD_FAILURE() << library << " is not resolved:\n" << resolved.output;
            continue;
        }
        // With /lib merged into /usr/lib a package may have registered the file under either name.
        const std::string& path = paths[library];
        std::string names = shellQuoted(path);
        if (path.rfind("/usr/", 0) == 0) names += " " + shellQuoted(path.substr(4));
        else names += " " + shellQuoted("/usr" + path);
        const auto owner = runCommand("for name in " + names + "; do dpkg -S \"$name\" 2>/dev/null && break; done | " +
                                      "sed -n 's/^\\([^:,]*\\).*/\\1/p'");
        EXPECT_FALSE(lines(owner.output).empty()) << "no package holds " << path << "\n" << owner.output;
        for (const std::string& package : lines(owner.output)) packages.insert(package);
    }
    return packages;
}

// The package names of a Depends field, without versions or alternatives.
std::set<std::string> dependedPackages(const std::string& field) {
    std::set<std::string> packages;
    const std::regex name("(?:^|[,|])\\s*([a-z0-9][a-z0-9.+-]*)");
    for (auto it = std::sregex_iterator(field.begin(), field.end(), name); it != std::sregex_iterator(); ++it)
        packages.insert((*it)[1].str());
    return packages;
}

// The .deb holds exactly the executable and the man page, and depends on exactly the packages of
// the shared libraries its executable needs: libc6 alone when the others are linked in.
TEST(Packaging, DebianPackageListsItsFilesAndRuntimeLibraries) {
    if (runCommand("command -v cpack && command -v dpkg-deb && command -v readelf").status != 0)
        GTEST_SKIP() << "no cpack, dpkg-deb or readelf here";
    TempLibrary scratch;
    const std::string out = scratch.root() + "/package";
    const auto packaged = runCommand("cd " + shellQuoted(VORLO_BINARY_DIR) + " && cpack -G DEB -B " + shellQuoted(out));
    ASSERT_EQ(packaged.status, 0) << packaged.output;
    std::string deb;
    for (const auto& entry : std::filesystem::directory_iterator(out))
        if (entry.path().extension() == ".deb") deb = entry.path();
    ASSERT_FALSE(deb.empty()) << packaged.output;

    const auto contents = runCommand("dpkg-deb -c " + shellQuoted(deb) + " | awk '{print $NF}' | grep -v '/$'");
    ASSERT_EQ(contents.status, 0) << contents.output;
    EXPECT_EQ(contents.output, "./usr/bin/vorlo-mcp\n./usr/share/man/man1/vorlo-mcp.1.gz\n");

    const auto depends = runCommand("dpkg-deb -f " + shellQuoted(deb) + " Depends");
    ASSERT_EQ(depends.status, 0) << depends.output;
    const std::string unpacked = scratch.root() + "/unpacked";
    const auto extracted = runCommand("dpkg-deb -x " + shellQuoted(deb) + " " + shellQuoted(unpacked));
    ASSERT_EQ(extracted.status, 0) << extracted.output;
    const auto packages = packagesOfNeededLibraries(unpacked + "/usr/bin/vorlo-mcp");
    EXPECT_TRUE(packages.count("libc6")) << depends.output;
    EXPECT_EQ(dependedPackages(depends.output), packages) << depends.output;
}

// The executable that clients start carries ICU, libcrypto and the C++ runtime inside it, when the
// build links them in: a shared one among its libraries would cost most of its start-up again.
TEST(Packaging, StaticallyLinkedExecutableNeedsOnlyTheCLibrary) {
#ifndef VORLO_EXECUTABLE_LINKS_STATICALLY
    GTEST_SKIP() << "this build links the libraries shared";
#endif
    if (runCommand("command -v readelf").status != 0) GTEST_SKIP() << "no readelf here";
    const auto needed = neededLibraries(VORLO_EXECUTABLE);
    EXPECT_TRUE(needed.count("libc.so.6"));
    for (const std::string& library : needed)
        EXPECT_TRUE(library == "libc.so.6" || library == "libm.so.6" || library.rfind("ld-linux", 0) == 0) << library;
}

// The man page is well-formed roff that names what a user needs.
TEST(Packaging, ManPageRendersWithItsSections) {
    if (runCommand("command -v man").status != 0) GTEST_SKIP() << "no man here";
    const auto page = runCommand("MANWIDTH=100 man -l " + shellQuoted(std::string(VORLO_SOURCE_DIR) + "/man/vorlo-mcp.1") +
                                 " | col -b");
    ASSERT_EQ(page.status, 0) << page.output;
    for (const char* section : {"SYNOPSIS", "DESCRIPTION", "ENVIRONMENT", "FILES", "EXIT STATUS", "EXAMPLES"})
        EXPECT_NE(page.output.find(section), std::string::npos) << section;
    EXPECT_NE(page.output.find("VORLO_MCP_PREFERENCES"), std::string::npos);
}

} // namespace
} // namespace vorlo::testing
