#include "HostileInputs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

namespace vorlo::bench {
namespace {

namespace fs = std::filesystem;

void writeRepeated(const fs::path& file, const std::string& head, const std::vector<std::string>& pieces,
                   std::size_t bytes) {
    std::string text = head;
    text.reserve(head.size() + bytes + 128);
    // Whole pieces only, and never past `bytes`: a note one byte over the size limit is no note.
    for (std::size_t i = 0; text.size() - head.size() + pieces[i % pieces.size()].size() <= bytes; ++i)
        text += pieces[i % pieces.size()];
    std::ofstream out(file, std::ios::binary);
    out << text;
    if (!out) throw std::runtime_error("cannot write " + file.string());
}

[[noreturn]] void fail(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

} // namespace

std::string oneCharacterQuery(std::size_t joiners) {
    std::string query = "\u2019";
    query.reserve(3 + 3 * joiners);
    for (std::size_t i = 0; i < joiners; ++i)
        query += "\u200D";
    return query;
}

void writeProseNote(const std::string& libraryPath, std::size_t bytes) {
    writeRepeated(fs::path(libraryPath) / "Prose.md", "",
                  {"The river\u2019s edge was quiet that morning, and nobody had left the pier yet.\n",
                   "She didn\u2019t answer at once; the letter lay open on the table between them.\n",
                   "By noon the market\u2019s stalls were full of pears, cheese and cheap tin spoons.\n"},
                  bytes);
}

void writeAccentedNote(const std::string& libraryPath, const std::string& title, std::size_t bytes) {
    writeRepeated(fs::path(libraryPath) / "Accents.md", "---\ntitle: \"" + title + "\"\n---\n",
                  {"\u00E9t\u00E9 "}, bytes);
}

void writeRepeatedTagNote(const std::string& libraryPath, std::size_t bytes) {
    writeRepeated(fs::path(libraryPath) / "Tags.md", "", {"#a "}, bytes);
}

void writeDeepAbandonedLock(const std::string& libraryPath, std::size_t depth) {
    const fs::path lock = fs::path(libraryPath) / "Vorlo Data" / "Locks" / "Library Mutation.lock";
    fs::create_directories(lock);
    // Built one level at a time from the folder above, holding one descriptor: no path grows long.
    int fd = ::open(lock.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) fail("cannot open " + lock.string());
    for (std::size_t level = 0; level < depth; ++level) {
        if (::mkdirat(fd, "d", 0700) != 0) fail("cannot make level " + std::to_string(level));
        const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        if (next < 0) fail("cannot open level " + std::to_string(level));
        fd = next;
    }
    ::close(fd);
    // Without a record the lock's own date decides, and an hour is far past the two seconds allowed.
    const timespec hourAgo{::time(nullptr) - 3600, 0};
    const timespec times[2] = {hourAgo, hourAgo};
    if (::utimensat(AT_FDCWD, lock.c_str(), times, 0) != 0) fail("cannot date " + lock.string());
}

void removeTree(const std::string& path) {
    // Down by name and up by "..", one descriptor at a time: these trees are the benchmark's own,
    // and a chain deeper than the descriptor limit must go as well.
    int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        std::error_code ignored;
        fs::remove(path, ignored);
        return;
    }
    std::vector<std::string> names; // of the folders entered below `path`
    for (;;) {
        std::string inner;
        const int listing = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (DIR* folder = listing < 0 ? nullptr : ::fdopendir(listing)) {
            while (const dirent* entry = ::readdir(folder)) {
                const std::string name = entry->d_name;
                if (name == "." || name == "..") continue;
                struct stat status;
                if (::fstatat(fd, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                    S_ISDIR(status.st_mode)) {
                    inner = name;
                    break;
                }
                ::unlinkat(fd, name.c_str(), 0);
            }
            ::closedir(folder);
        }
        if (!inner.empty()) {
            const int next = ::openat(fd, inner.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (next < 0) fail("cannot enter a folder below " + path);
            ::close(fd);
            fd = next;
            names.push_back(inner);
            continue;
        }
        if (names.empty()) break;
        const int up = ::openat(fd, "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(fd);
        if (up < 0) fail("cannot climb out of " + path);
        fd = up;
        ::unlinkat(fd, names.back().c_str(), AT_REMOVEDIR);
        names.pop_back();
    }
    ::close(fd);
    ::rmdir(path.c_str());
}

} // namespace vorlo::bench
