// The file system over POSIX. Every entry is examined without following a final symbolic link,
// and every write goes through a hidden temporary file and a rename.
#include "platform/Files.h"

#include "platform/Crypto.h"
#include "platform/SystemCalls.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#ifdef __APPLE__
#include <sys/param.h>
#endif
#include <unistd.h>
#include <vector>

namespace vorlo::fs {

Timestamp timestampOf(const struct stat& status) {
#ifdef __APPLE__
    const auto& time = status.st_mtimespec;
#else
    const auto& time = status.st_mtim;
#endif
    return Timestamp(std::chrono::duration_cast<Timestamp::duration>(std::chrono::seconds(time.tv_sec) +
                                                                      std::chrono::nanoseconds(time.tv_nsec)));
}

namespace {

EntryKind kindOf(mode_t mode) {
    if (S_ISREG(mode)) return EntryKind::RegularFile;
    if (S_ISDIR(mode)) return EntryKind::Directory;
    if (S_ISLNK(mode)) return EntryKind::SymbolicLink;
    return EntryKind::Other;
}

FileStatus statusFrom(const struct stat& status) {
    return FileStatus{kindOf(status.st_mode), static_cast<std::uint64_t>(status.st_size), timestampOf(status)};
}

void setError(int* errorNumber, int value) {
    if (errorNumber != nullptr) *errorNumber = value;
}

std::string parentOf(const std::string& path) {
    const auto slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
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

int syncDirectory(const std::string& path) {
    const int fd = sys::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return errno;
    const int result = sys::fsync(fd) == 0 ? 0 : errno;
    sys::close(fd);
    return result;
}

int renameExclusive(const char* from, const char* to) {
    if (sys::renameNoReplace(AT_FDCWD, from, AT_FDCWD, to) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS && errno != ENOTSUP) return errno;
    // A file system that refuses the flag: a hard link fails on an existing name just the same.
    if (sys::link(from, to) != 0) return errno;
    sys::unlink(from);
    return 0;
}

// Writes a temporary file beside `path`, then moves it into place with `move`. The temporary file
// is removed on every way out; after a successful move there is nothing left to remove.
template <typename Move>
int placeThroughTemporary(const std::string& path, std::string_view bytes, unsigned mode, Move move) {
    const std::string folder = parentOf(path);
    const std::string temporary = joinPath(folder, ".Vorlo MCP " + Uuid::random().text() + ".tmp");
    int fd = sys::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) return errno;
    int result = writeAll(fd, bytes);
    if (result == 0 && sys::fchmod(fd, static_cast<mode_t>(mode)) != 0) result = errno;
    // The bytes reach the disk before the name does, so a power cut never leaves an empty note.
    if (result == 0 && sys::fsync(fd) != 0) result = errno;
    if (sys::close(fd) != 0 && result == 0) result = errno;
    if (result == 0) result = move(temporary.c_str(), path.c_str());
    if (result != 0) {
        sys::unlink(temporary.c_str());
        return result;
    }
    // The move by hard link leaves the temporary name to be removed; one more try if that failed.
    if (exists(temporary)) sys::unlink(temporary.c_str());
    syncDirectory(folder); // the rename itself is durable once its folder is flushed
    return 0;
}

int removeTreeAt(int parentFd, const char* name) {
    struct stat status;
    if (::fstatat(parentFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return errno;
    if (!S_ISDIR(status.st_mode)) return sys::unlinkat(parentFd, name, 0) == 0 ? 0 : errno;
    const int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return errno;
    DIR* directory = ::fdopendir(fd);
    if (directory == nullptr) {
        const int error = errno;
        ::close(fd);
        return error;
    }
    int result = 0;
    std::vector<std::string> names;
    while (const dirent* entry = ::readdir(directory)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
        names.emplace_back(entry->d_name);
    }
    for (const auto& child : names) {
        const int error = removeTreeAt(::dirfd(directory), child.c_str());
        if (error != 0 && result == 0) result = error;
    }
    ::closedir(directory);
    if (sys::unlinkat(parentFd, name, AT_REMOVEDIR) != 0 && result == 0) result = errno;
    return result;
}

} // namespace

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = other.release();
    }
    return *this;
}

UniqueFd::~UniqueFd() {
    if (fd_ >= 0) ::close(fd_);
}

int UniqueFd::release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
}

std::optional<FileStatus> linkStatus(const std::string& path, int* errorNumber) {
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0) {
        setError(errorNumber, errno);
        return std::nullopt;
    }
    return statusFrom(status);
}

bool exists(const std::string& path) {
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

// O_NOFOLLOW refuses a link and O_NONBLOCK keeps a FIFO from blocking the open; fstat then judges
// the file actually opened, not whatever stood at the name a moment earlier.
static UniqueFd openForReading(int directoryFd, const char* name, int* errorNumber) {
    UniqueFd fd(::openat(directoryFd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd) setError(errorNumber, errno);
    return fd;
}

// Where the open file lies, every link resolved; "" when the system cannot tell.
static std::string openedPath(int fd) {
#ifdef __APPLE__
    char buffer[MAXPATHLEN];
    return ::fcntl(fd, F_GETPATH, buffer) == 0 ? std::string(buffer) : std::string();
#else
    char buffer[PATH_MAX];
    const ssize_t n = ::readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), buffer, sizeof buffer);
    return n > 0 && static_cast<std::size_t>(n) < sizeof buffer ? std::string(buffer, static_cast<std::size_t>(n))
                                                                : std::string();
#endif
}

static std::optional<FileContents> readOpened(const UniqueFd& fd, std::uint64_t maximumBytes, int* errorNumber);

std::optional<FileContents> readRegularFileAt(int directoryFd, const char* name, std::uint64_t maximumBytes,
                                              int* errorNumber) {
    const UniqueFd fd = openForReading(directoryFd, name, errorNumber);
    if (!fd) return std::nullopt;
    return readOpened(fd, maximumBytes, errorNumber);
}

std::optional<FileContents> readRegularFileInside(const std::string& path, const std::string& root,
                                                  std::uint64_t maximumBytes, int* errorNumber) {
    const UniqueFd fd = openForReading(AT_FDCWD, path.c_str(), errorNumber);
    if (!fd) return std::nullopt;
    // The folders on the way may have been swapped for links since anyone looked: what counts is
    // where the file that is open lies.
    const std::string opened = openedPath(fd.get());
    if (opened.empty() || !isDescendantPath(opened, resolvedPath(root))) {
        setError(errorNumber, EXDEV);
        return std::nullopt;
    }
    return readOpened(fd, maximumBytes, errorNumber);
}

static std::optional<FileContents> readOpened(const UniqueFd& fd, std::uint64_t maximumBytes, int* errorNumber) {
    struct stat status;
    if (::fstat(fd.get(), &status) != 0) {
        setError(errorNumber, errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        setError(errorNumber, EINVAL);
        return std::nullopt;
    }
    if (static_cast<std::uint64_t>(status.st_size) > maximumBytes) {
        setError(errorNumber, EFBIG);
        return std::nullopt;
    }
    FileContents contents;
    contents.modified = timestampOf(status);
    // One byte more than the size, so that a file that grew since fstat is noticed at its end.
    std::size_t capacity = static_cast<std::size_t>(status.st_size) + 1;
    contents.bytes.resize(capacity);
    std::size_t filled = 0;
    for (;;) {
        if (filled == capacity) {
            if (filled > maximumBytes) break;
            capacity = std::min<std::size_t>(capacity * 2, maximumBytes + 1);
            contents.bytes.resize(capacity);
        }
        const ssize_t n = ::read(fd.get(), contents.bytes.data() + filled, capacity - filled);
        if (n < 0) {
            if (errno == EINTR) continue;
            setError(errorNumber, errno);
            return std::nullopt;
        }
        if (n == 0) break;
        filled += static_cast<std::size_t>(n);
    }
    if (filled > maximumBytes) {
        setError(errorNumber, EFBIG);
        return std::nullopt;
    }
    contents.bytes.resize(filled);
    return contents;
}

std::optional<FileContents> readRegularFile(const std::string& path, std::uint64_t maximumBytes, int* errorNumber) {
    return readRegularFileAt(AT_FDCWD, path.c_str(), maximumBytes, errorNumber);
}

bool isHiddenName(std::string_view name) { return !name.empty() && name.front() == '.'; }

std::optional<std::vector<DirectoryEntry>> listDirectory(const std::string& path) {
    UniqueFd fd = openDirectory(path);
    if (!fd) return std::nullopt;
    DIR* directory = ::fdopendir(fd.get());
    if (directory == nullptr) return std::nullopt;
    fd.release(); // now owned by `directory`
    std::vector<DirectoryEntry> entries;
    while (const dirent* entry = ::readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (isHiddenName(name)) continue; // also "." and ".."
        struct stat status;
        if (::fstatat(::dirfd(directory), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) continue;
        entries.push_back(DirectoryEntry{std::string(name), kindOf(status.st_mode)});
    }
    ::closedir(directory);
    return entries;
}

UniqueFd openDirectory(const std::string& path) {
    return UniqueFd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

UniqueFd openDirectoryAt(int parentFd, const char* name) {
    return UniqueFd(::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

int makeDirectory(const std::string& path) {
    if (sys::mkdir(path.c_str(), 0700) != 0) return errno;
    // mkdir's mode passes through the umask; the folder must be private whatever it is. A folder
    // that cannot be made private is taken away again, so that a failure never leaves a new folder
    // behind and EEXIST always means that something stood there before: a lock folder left over
    // from a failed attempt would hold the library for seconds.
    if (sys::chmod(path.c_str(), 0700) == 0) return 0;
    const int error = errno;
    sys::rmdir(path.c_str());
    return error;
}

int makeDirectories(const std::string& path) {
    std::string prefix;
    std::size_t at = 0;
    while (at <= path.size()) {
        std::size_t slash = path.find('/', at);
        if (slash == std::string::npos) slash = path.size();
        prefix = path.substr(0, slash);
        at = slash + 1;
        if (prefix.empty()) continue;
        struct stat status;
        if (::stat(prefix.c_str(), &status) == 0) {
            if (!S_ISDIR(status.st_mode)) return ENOTDIR;
            continue;
        }
        const int error = makeDirectory(prefix);
        if (error == 0) continue;
        // Made by someone else since the test above: fine if it is a folder. Anything else that
        // stands there, or nothing at all, is reported as the failure it is, not as the missing
        // parent of the next component.
        if (error != EEXIST || ::stat(prefix.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) return error;
    }
    return 0;
}

int changeMode(const std::string& path, unsigned mode) {
    // Never through a link: a note swapped for one must not lend its mode to the target.
    return sys::fchmodat(AT_FDCWD, path.c_str(), static_cast<mode_t>(mode), AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int renameEntry(const std::string& from, const std::string& to) {
    return sys::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int renameNoReplace(const std::string& from, const std::string& to) { return renameExclusive(from.c_str(), to.c_str()); }

int removeTree(const std::string& path) { return removeTreeAt(AT_FDCWD, path.c_str()); }

int replaceFileAtomically(const std::string& path, std::string_view bytes, unsigned mode) {
    return placeThroughTemporary(path, bytes, mode,
                                 [](const char* from, const char* to) { return sys::rename(from, to) == 0 ? 0 : errno; });
}

int createFileAtomically(const std::string& path, std::string_view bytes, unsigned mode) {
    return placeThroughTemporary(path, bytes, mode, renameExclusive);
}

std::string standardizedPath(std::string_view path) {
    const bool absolute = !path.empty() && path.front() == '/';
    std::vector<std::string_view> parts;
    std::size_t at = 0;
    while (at <= path.size()) {
        std::size_t slash = path.find('/', at);
        if (slash == std::string_view::npos) slash = path.size();
        const std::string_view part = path.substr(at, slash - at);
        at = slash + 1;
        if (part.empty() || part == ".") continue;
        if (part == "..") {
            if (!parts.empty() && parts.back() != "..") parts.pop_back();
            else if (!absolute) parts.push_back(part);
            continue;
        }
        parts.push_back(part);
    }
    std::string out = absolute ? "/" : "";
    for (std::size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) out += '/';
        out += parts[i];
    }
    if (out.empty()) out = absolute ? "/" : ".";
    return out;
}

std::string resolvedPath(const std::string& path) {
    std::string prefix = standardizedPath(absolutePath(path));
    std::string rest;
    for (;;) {
        char buffer[PATH_MAX];
        if (::realpath(prefix.c_str(), buffer) != nullptr) {
            std::string resolved = buffer;
            if (!rest.empty()) resolved = standardizedPath(joinPath(resolved, rest));
            return resolved;
        }
        const auto slash = prefix.find_last_of('/');
        if (slash == std::string::npos || prefix == "/") return standardizedPath(path);
        rest = rest.empty() ? prefix.substr(slash + 1) : prefix.substr(slash + 1) + "/" + rest;
        prefix = slash == 0 ? "/" : prefix.substr(0, slash);
    }
}

std::string absolutePath(const std::string& path) {
    if (!path.empty() && path.front() == '/') return path;
    char buffer[PATH_MAX];
    if (::getcwd(buffer, sizeof buffer) == nullptr) return path;
    return path.empty() ? std::string(buffer) : joinPath(buffer, path);
}

bool isDescendantPath(std::string_view path, std::string_view root) {
    const std::string p = standardizedPath(path), r = standardizedPath(root);
    if (p == r) return true;
    if (r == "/") return !p.empty() && p.front() == '/';
    return p.size() > r.size() && p.compare(0, r.size(), r) == 0 && p[r.size()] == '/';
}

std::string joinPath(std::string_view base, std::string_view component) {
    std::string out(base);
    if (!out.empty() && out.back() != '/') out += '/';
    out += component;
    return out;
}

std::string_view lastComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    const auto slash = path.find_last_of('/');
    return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

std::string_view pathExtension(std::string_view path) {
    const std::string_view name = lastComponent(path);
    const auto dot = name.find_last_of('.');
    if (dot == std::string_view::npos || dot == 0) return {};
    return name.substr(dot + 1);
}

} // namespace vorlo::fs
