// Writing inside a folder held open: every call names its entry relative to the folder's descriptor,
// so no path is ever looked up again from the top once it has been checked.
#include "platform/Folder.h"

#include "platform/Crypto.h"
#include "platform/FilesAt.h"
#include "platform/SystemCalls.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vorlo::fs {
namespace {

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

void setError(int* errorNumber, int value) {
    if (errorNumber != nullptr) *errorNumber = value;
}

int writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = sys::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return errno;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return 0;
}

int renameExclusive(int folderFd, const char* from, const char* to) {
    if (sys::renameNoReplace(folderFd, from, folderFd, to) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return errno;
    // A file system that refuses the flag: a hard link fails on an existing name just the same.
    if (sys::linkat(folderFd, from, folderFd, to) != 0) return errno;
    sys::unlinkat(folderFd, from, 0);
    return 0;
}

// The names in the open folder `fd`, "." and ".." left out; absent with errno set. The listing is
// read through a descriptor of its own, so `fd` keeps its place and stays open.
std::optional<std::vector<std::string>> entryNames(int fd) {
    const int listing = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (listing < 0) return std::nullopt;
    DIR* directory = ::fdopendir(listing);
    if (directory == nullptr) {
        const int error = errno;
        ::close(listing);
        errno = error;
        return std::nullopt;
    }
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        names.emplace_back(entry->d_name);
    }
    ::closedir(directory);
    return names;
}

// Removes `name` from the open folder `parentFd` with everything below it. The folders on the way
// down stand on a stack of our own, each open by descriptor with the names still to remove, so a
// planted chain of any depth costs memory in proportion to it and never the call stack. Every
// folder is opened without following a link and every entry removed relative to its folder's
// descriptor, so a link met anywhere is removed itself and its target is never touched. A chain
// deeper than the descriptors the process may hold stops at the first folder that cannot be opened
// and is left in place; the first error is reported.
int removeTreeAt(int parentFd, const char* name) {
    struct Level {
        UniqueFd fd;
        std::vector<std::string> pending; // entries still to remove
        std::string name;                 // in the folder one level up
    };
    std::vector<Level> stack;
    int result = 0;
    const auto note = [&result](int error) {
        if (result == 0) result = error;
    };
    // Removes the entry `name` of `folderFd` if it is no folder, else opens it onto the stack.
    const auto take = [&](int folderFd, std::string entry) {
        struct stat status;
        if (::fstatat(folderFd, entry.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return note(errno);
        if (!S_ISDIR(status.st_mode)) {
            if (sys::unlinkat(folderFd, entry.c_str(), 0) != 0) note(errno);
            return;
        }
        UniqueFd fd(::openat(folderFd, entry.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!fd) return note(errno);
        auto names = entryNames(fd.get());
        if (!names) return note(errno);
        stack.push_back(Level{std::move(fd), std::move(*names), std::move(entry)});
    };
    take(parentFd, name);
    while (!stack.empty()) {
        Level& level = stack.back();
        if (level.pending.empty()) {
            const std::string done = std::move(level.name);
            stack.pop_back();
            const int parent = stack.empty() ? parentFd : stack.back().fd.get();
            if (sys::unlinkat(parent, done.c_str(), AT_REMOVEDIR) != 0) note(errno);
            continue;
        }
        std::string entry = std::move(level.pending.back());
        level.pending.pop_back();
        take(level.fd.get(), std::move(entry)); // `level` may be stale from here on
    }
    return result;
}

// One component, never "", "." or "..", never holding a "/": anything else could lead the walk
// somewhere other than one step down.
bool isPlainName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

} // namespace

std::optional<Folder> Folder::open(const std::string& path, int* errorNumber) {
    UniqueFd fd(sys::open(path.c_str(), kFolderFlags));
    if (!fd) {
        setError(errorNumber, errno);
        return std::nullopt;
    }
    return Folder(std::move(fd), path);
}

std::optional<Folder> Folder::child(std::string_view name, int* errorNumber) const {
    if (!isPlainName(name)) {
        setError(errorNumber, EINVAL);
        return std::nullopt;
    }
    const std::string entry(name);
    UniqueFd fd(sys::openat(fd_.get(), entry.c_str(), kFolderFlags | O_NOFOLLOW));
    if (!fd) {
        // A link at the name is refused as "loop"; what it means here is that no folder stands there.
        setError(errorNumber, errno == ELOOP ? ENOTDIR : errno);
        return std::nullopt;
    }
    return Folder(std::move(fd), joinPath(path_, entry));
}

std::optional<Folder> Folder::makeChild(std::string_view name, int* errorNumber) const {
    if (!isPlainName(name)) {
        setError(errorNumber, EINVAL);
        return std::nullopt;
    }
    const std::string entry(name);
    if (sys::mkdirat(fd_.get(), entry.c_str(), 0700) != 0) {
        setError(errorNumber, errno);
        return std::nullopt;
    }
    // mkdir's mode passes through the umask; the folder must be private whatever it is. The mode is
    // set through the folder opened, not by name, so a link swapped in meanwhile lends nothing.
    auto made = child(name, errorNumber);
    if (made && sys::fchmod(made->fd_.get(), 0700) == 0) return made;
    if (made) setError(errorNumber, errno);
    // A lock folder left over from a failed attempt would hold the library for seconds.
    sys::unlinkat(fd_.get(), entry.c_str(), AT_REMOVEDIR);
    return std::nullopt;
}

std::optional<Folder> Folder::descend(std::string_view relativePath, Missing missing, int* errorNumber) const {
    // The walk starts from this folder under a descriptor of its own, so that the result never
    // shares one with the folder it came from. "." is this very folder: nothing can be swapped in.
    UniqueFd self(::openat(fd_.get(), ".", kFolderFlags));
    if (!self) {
        setError(errorNumber, errno);
        return std::nullopt;
    }
    Folder current(std::move(self), path_);
    while (!relativePath.empty()) {
        const std::size_t slash = relativePath.find('/');
        const std::string_view name = relativePath.substr(0, slash);
        relativePath = slash == std::string_view::npos ? std::string_view() : relativePath.substr(slash + 1);
        if (name.empty()) continue;
        int error = 0;
        std::optional<Folder> next = current.child(name, &error);
        if (!next && error == ENOENT && missing == Missing::Make) {
            next = current.makeChild(name, &error);
            // Made by someone else since: fine, as long as it is a folder. Anything else that stands
            // there, or nothing at all, is reported as the failure to make it that it was.
            if (!next && error == EEXIST) next = current.child(name, nullptr);
        }
        if (!next) {
            setError(errorNumber, error);
            return std::nullopt;
        }
        current = std::move(*next);
    }
    return current;
}

std::optional<Folder> Folder::openBelow(const std::string& root, std::string_view relativePath, Missing missing,
                                        int* errorNumber) {
    const auto top = open(root, errorNumber);
    return top ? top->descend(relativePath, missing, errorNumber) : std::nullopt;
}

std::optional<FileStatus> Folder::status(std::string_view name, int* errorNumber) const {
    const std::string entry(name);
    auto result = linkStatusAt(fd_.get(), entry.c_str());
    if (!result) setError(errorNumber, errno);
    return result;
}

bool Folder::holds(std::string_view name, const Folder& folder) const {
    const std::string entry(name);
    struct stat here, there;
    return ::fstatat(fd_.get(), entry.c_str(), &here, AT_SYMLINK_NOFOLLOW) == 0 &&
           ::fstat(folder.fd_.get(), &there) == 0 && here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

std::optional<FileContents> Folder::readFile(std::string_view name, std::uint64_t maximumBytes,
                                             int* errorNumber) const {
    const std::string entry(name);
    return readRegularFileAt(fd_.get(), entry.c_str(), maximumBytes, errorNumber);
}

// Writes a temporary file in this folder, then moves it to `name` with `move`. The temporary file
// is removed on every way out; after a successful move there is nothing left to remove.
template <typename Move>
int Folder::placeThroughTemporary(std::string_view name, std::string_view bytes, unsigned mode, Flush flush,
                                  Move move) const {
    if (!isPlainName(name)) return EINVAL;
    const std::string target(name);
    const std::string temporary = ".Vorlo MCP " + Uuid::random().text() + ".tmp";
    const int fd =
        sys::openat(fd_.get(), temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    int result = writeAll(fd, bytes);
    if (result == 0 && sys::fchmod(fd, static_cast<mode_t>(mode)) != 0) result = errno;
    // The bytes reach the disk before the name does, so a power cut never leaves an empty note.
    if (result == 0 && flush == Flush::Durable && sys::fsync(fd) != 0) result = errno;
    if (sys::close(fd) != 0 && result == 0) result = errno;
    if (result == 0) result = move(fd_.get(), temporary.c_str(), target.c_str());
    if (result != 0) {
        sys::unlinkat(fd_.get(), temporary.c_str(), 0);
        return result;
    }
    // The move by hard link leaves the temporary name to be removed; one more try if that failed.
    if (contains(temporary)) sys::unlinkat(fd_.get(), temporary.c_str(), 0);
    // The rename itself is durable once its folder is flushed.
    if (flush == Flush::Durable) sys::fsync(fd_.get());
    return 0;
}

int Folder::replaceFile(std::string_view name, std::string_view bytes, unsigned mode, Flush flush) const {
    return placeThroughTemporary(name, bytes, mode, flush,
                                 [](int folderFd, const char* from, const char* to) {
                                     return sys::renameat(folderFd, from, folderFd, to) == 0 ? 0 : errno;
                                 });
}

int Folder::createFile(std::string_view name, std::string_view bytes, unsigned mode, Flush flush) const {
    return placeThroughTemporary(name, bytes, mode, flush, renameExclusive);
}

int Folder::rename(std::string_view from, std::string_view to) const {
    if (!isPlainName(from) || !isPlainName(to)) return EINVAL;
    const std::string source(from), target(to);
    return sys::renameat(fd_.get(), source.c_str(), fd_.get(), target.c_str()) == 0 ? 0 : errno;
}

int Folder::removeTree(std::string_view name) const {
    if (!isPlainName(name)) return EINVAL;
    const std::string entry(name);
    return removeTreeAt(fd_.get(), entry.c_str());
}

} // namespace vorlo::fs
