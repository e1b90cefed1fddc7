#pragma once
// A library and a preferences file under $TMPDIR, removed (permissions restored first) even after a
// failed assertion.

#include "platform/Json.h"
#include "protocol/VorloMCPServer.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::testing {

// Reads and writes whole files by absolute path.
inline std::string readFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}
inline void writeFile(const std::string& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out.write(bytes.data(), static_cast<std::streamsize>(bytes.size())))
        throw std::runtime_error("cannot write " + path);
}

// The permission bits of an entry itself, as an octal number such as 0600.
inline unsigned modeOf(const std::string& path) {
    return static_cast<unsigned>(std::filesystem::symlink_status(path).permissions() &
                                 std::filesystem::perms::mask);
}

class TempLibrary {
  public:
    // Makes <base>/vorlo-test-XXXXXX/Library and Preferences.json with access and writing on; the base
    // is $TMPDIR unless given, and /tmp when that is empty.
    explicit TempLibrary(const char* base = std::getenv("TMPDIR")) {
        root_ = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/vorlo-test-XXXXXX";
        if (::mkdtemp(root_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        library_ = root_ + "/Library";
        preferences_ = root_ + "/Preferences.json";
        ::mkdir(library_.c_str(), 0755);
        writePreferences(true, true);
    }
    // Restores owner permissions on every folder first, so that a test's chmod 000 cannot stop removal.
    ~TempLibrary() {
        namespace stdfs = std::filesystem;
        std::error_code ignored;
        ::chmod(root_.c_str(), 0700);
        for (auto it = stdfs::recursive_directory_iterator(
                 root_, stdfs::directory_options::skip_permission_denied, ignored);
             it != stdfs::recursive_directory_iterator(); it.increment(ignored))
            if (it->is_directory(ignored) && !it->is_symlink(ignored)) ::chmod(it->path().c_str(), 0700);
        stdfs::remove_all(root_, ignored);
    }
    TempLibrary(const TempLibrary&) = delete;
    TempLibrary& operator=(const TempLibrary&) = delete;

    const std::string& root() const { return root_; }       // the temporary folder
    const std::string& library() const { return library_; } // root() + "/Library"
    const std::string& preferences() const { return preferences_; }

    void writePreferences(bool enabled, bool allowWriting) const {
        writePreferencesText(
            Json{{"libraryPath", library_}, {"mcp", {{"enabled", enabled}, {"allowWriting", allowWriting}}}}
                .dump(2));
    }
    void writePreferencesText(std::string_view text) const { writeFile(preferences_, text); }

    // Absolute path of a library-relative path.
    std::string path(std::string_view relative) const { return (library_ + "/").append(relative); }
    // Writes a file (parents made as needed) and returns its absolute path.
    std::string write(std::string_view relativePath, std::string_view bytes) const {
        std::filesystem::create_directories(std::filesystem::path(path(relativePath)).parent_path());
        writeFile(path(relativePath), bytes);
        return path(relativePath);
    }
    std::string read(std::string_view relativePath) const { return readFile(path(relativePath)); }
    bool exists(std::string_view relativePath) const {
        std::error_code unreachable; // a folder without permission hides what it holds
        return std::filesystem::exists(std::filesystem::symlink_status(path(relativePath), unreachable));
    }
    void makeFolder(std::string_view relative) const { std::filesystem::create_directories(path(relative)); }
    // A symbolic link at `relativePath` pointing at `target` (taken as given).
    void link(std::string_view relativePath, const std::string& target) const {
        std::filesystem::create_directories(std::filesystem::path(path(relativePath)).parent_path());
        std::filesystem::create_symlink(target, path(relativePath));
    }
    // Sets the file's modification time, seconds since the epoch.
    void touch(std::string_view relativePath, long long secondsSinceEpoch) const {
        const timespec time{static_cast<time_t>(secondsSinceEpoch), 0}, times[2] = {time, time};
        if (::utimensat(AT_FDCWD, path(relativePath).c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
            throw std::runtime_error("utimensat failed");
    }

    VorloMCPServer server() const { return VorloMCPServer(library_, preferences_); }

    // Calls a tool in-process through the dispatch layer and returns the JSON-RPC reply.
    Json call(std::string_view tool, const Json& arguments) const {
        const Json params = {{"name", tool}, {"arguments", arguments}};
        const auto reply = server().handle(
            Json{{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"}, {"params", params}}.dump());
        return reply ? Json::parse(*reply) : Json();
    }

  private:
    std::string root_, library_, preferences_;
};

} // namespace vorlo::testing
