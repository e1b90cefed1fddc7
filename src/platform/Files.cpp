// The file system over POSIX, for reading and examining. Every entry is examined without following a
// final symbolic link; writing happens inside an open Folder.
#include "platform/Files.h"

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

static std::optional<FileContents> readOpened(const UniqueFd& fd, std::uint64_t maximumBytes,
                                              int* errorNumber, std::string buffer = {});

std::optional<FileContents> readRegularFileAt(int directoryFd, const char* name, std::uint64_t maximumBytes,
                                              int* errorNumber, std::string buffer) {
    const UniqueFd fd = openForReading(directoryFd, name, errorNumber);
    if (!fd) return std::nullopt;
    return readOpened(fd, maximumBytes, errorNumber, std::move(buffer));
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

static std::optional<FileContents> readOpened(const UniqueFd& fd, std::uint64_t maximumBytes,
                                              int* errorNumber, std::string buffer) {
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
    FileContents contents{std::move(buffer), timestampOf(status)};
    // One byte more than the size, so that a file that grew since fstat is noticed at its end. A
    // read that stops short with exactly the size in hand has met the end: asking again for the
    // nothing that follows would cost a system call per file.
    const auto size = static_cast<std::size_t>(status.st_size);
    std::size_t capacity = size + 1;
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
        const bool short_ = static_cast<std::size_t>(n) < capacity - filled;
        filled += static_cast<std::size_t>(n);
        if (short_ && filled == size) break;
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
    if (out.empty()) out.assign(1, absolute ? '/' : '.');
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
