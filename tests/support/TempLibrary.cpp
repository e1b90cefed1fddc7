#include "support/TempLibrary.h"

#include "protocol/JsonRpc.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::testing {
namespace {

namespace stdfs = std::filesystem;

std::string makeTemporaryFolder() {
    const char* base = std::getenv("TMPDIR");
    std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/vorlo-test-XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    return pattern;
}

// Restores owner permissions on every folder so that removal cannot fail on a test's chmod 000.
void restorePermissions(const std::string& root) {
    std::error_code ignored;
    ::chmod(root.c_str(), 0700);
    for (auto it = stdfs::recursive_directory_iterator(root, stdfs::directory_options::skip_permission_denied, ignored);
         it != stdfs::recursive_directory_iterator(); it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) ::chmod(it->path().c_str(), 0700);
    }
}

} // namespace

TempLibrary::TempLibrary()
    : root_(makeTemporaryFolder()), library_(root_ + "/Library"), preferences_(root_ + "/Preferences.json") {
    ::mkdir(library_.c_str(), 0755);
    writePreferences(true, true);
}

TempLibrary::~TempLibrary() {
    restorePermissions(root_);
    std::error_code ignored;
    stdfs::remove_all(root_, ignored);
}

void TempLibrary::writePreferences(bool enabled, bool allowWriting) const {
    Json preferences = {{"libraryPath", library_}, {"mcp", {{"enabled", enabled}, {"allowWriting", allowWriting}}}};
    writePreferencesText(preferences.dump(2));
}

void TempLibrary::writePreferencesText(std::string_view text) const { writeFile(preferences_, text); }

std::string TempLibrary::path(std::string_view relativePath) const { return library_ + "/" + std::string(relativePath); }

std::string TempLibrary::write(std::string_view relativePath, std::string_view bytes) const {
    const std::string target = path(relativePath);
    stdfs::create_directories(stdfs::path(target).parent_path());
    writeFile(target, bytes);
    return target;
}

std::string TempLibrary::read(std::string_view relativePath) const { return readFile(path(relativePath)); }

bool TempLibrary::exists(std::string_view relativePath) const {
    struct stat status;
    return ::lstat(path(relativePath).c_str(), &status) == 0;
}

void TempLibrary::makeFolder(std::string_view relativePath) const { stdfs::create_directories(path(relativePath)); }

void TempLibrary::link(std::string_view relativePath, const std::string& target) const {
    const std::string at = path(relativePath);
    stdfs::create_directories(stdfs::path(at).parent_path());
    if (::symlink(target.c_str(), at.c_str()) != 0) throw std::runtime_error("symlink failed");
}

void TempLibrary::touch(std::string_view relativePath, long long secondsSinceEpoch) const {
    timespec times[2] = {{static_cast<time_t>(secondsSinceEpoch), 0}, {static_cast<time_t>(secondsSinceEpoch), 0}};
    if (::utimensat(AT_FDCWD, path(relativePath).c_str(), times, AT_SYMLINK_NOFOLLOW) != 0)
        throw std::runtime_error("utimensat failed");
}

Json TempLibrary::call(std::string_view tool, const Json& arguments) const {
    const Json request = {{"jsonrpc", "2.0"}, {"id", 1}, {"method", "tools/call"},
                          {"params", {{"name", tool}, {"arguments", arguments}}}};
    const auto reply = server().handle(request.dump());
    if (!reply) return nullptr;
    return Json::parse(*reply);
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const std::string& path, std::string_view bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

} // namespace vorlo::testing
