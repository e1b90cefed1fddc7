#pragma once
// A library and a preferences file under $TMPDIR, removed (permissions restored first) even after a
// failed assertion.

#include "platform/Json.h"
#include "protocol/VorloMCPServer.h"

#include <string>
#include <string_view>

namespace vorlo::testing {

class TempLibrary {
public:
    // Makes <tmp>/vorlo-test-XXXXXX/Library and Preferences.json with access and writing on.
    TempLibrary();
    ~TempLibrary();
    TempLibrary(const TempLibrary&) = delete;
    TempLibrary& operator=(const TempLibrary&) = delete;

    const std::string& root() const { return root_; }       // the temporary folder
    const std::string& library() const { return library_; } // root() + "/Library"
    const std::string& preferences() const { return preferences_; }

    void writePreferences(bool enabled, bool allowWriting) const;
    void writePreferencesText(std::string_view text) const;

    // Absolute path of a library-relative path.
    std::string path(std::string_view relativePath) const;
    // Writes a file (parents made as needed) and returns its absolute path.
    std::string write(std::string_view relativePath, std::string_view bytes) const;
    std::string read(std::string_view relativePath) const;
    bool exists(std::string_view relativePath) const;
    void makeFolder(std::string_view relativePath) const;
    // A symbolic link at `relativePath` pointing at `target` (taken as given).
    void link(std::string_view relativePath, const std::string& target) const;
    // Sets the file's modification time, seconds since the epoch.
    void touch(std::string_view relativePath, long long secondsSinceEpoch) const;

    VorloMCPServer server() const { return VorloMCPServer(library_, preferences_); }

    // Calls a tool in-process through the dispatch layer and returns the JSON-RPC reply.
    Json call(std::string_view tool, const Json& arguments) const;

private:
    std::string root_;
    std::string library_;
    std::string preferences_;
};

// Reads and writes whole files by absolute path.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view bytes);

} // namespace vorlo::testing
