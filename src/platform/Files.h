#pragma once
// The file system, as the rest of the system may use it. Paths are absolute or relative to the
// working folder, as given; nothing here follows a symbolic link unless its name says so.

#include "platform/Time.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct stat;

namespace vorlo::fs {

// The modification time that a status from `stat`, `lstat` or `fstat` records, to the nanosecond.
Timestamp timestampOf(const struct stat& status);

// An owned file descriptor, closed on destruction.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept;
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    ~UniqueFd();
    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release();

private:
    int fd_ = -1;
};

enum class EntryKind { RegularFile, Directory, SymbolicLink, Other };

struct FileStatus {
    EntryKind kind = EntryKind::Other;
    std::uint64_t size = 0;
    std::optional<Timestamp> modified;
};

// Status of the entry itself (a final symbolic link is not followed). Absent when the entry cannot
// be examined; `errorNumber`, when given, receives errno.
std::optional<FileStatus> linkStatus(const std::string& path, int* errorNumber = nullptr);

// Reads a whole regular file without following a final link or blocking on a FIFO. Absent when the
// entry is no regular file, holds more than `maximumBytes`, or cannot be read; `errorNumber`
// receives errno, or EFBIG when over the limit, or EINVAL when no regular file.
struct FileContents {
    std::string bytes;
    std::optional<Timestamp> modified;
};
std::optional<FileContents> readRegularFile(const std::string& path, std::uint64_t maximumBytes,
                                            int* errorNumber = nullptr);
// The same, but only if the file opened lies at or below `root` once every link is resolved, on
// both sides; EXDEV when it lies elsewhere. Folders swapped for links on the way cannot lead out.
std::optional<FileContents> readRegularFileInside(const std::string& path, const std::string& root,
                                                  std::uint64_t maximumBytes, int* errorNumber = nullptr);
// The same as readRegularFile, for `name` inside the open folder `directoryFd`. The bytes go into
// `buffer`, over what it held: a caller reading many files hands its capacity on from one to the next.
std::optional<FileContents> readRegularFileAt(int directoryFd, const char* name, std::uint64_t maximumBytes,
                                              int* errorNumber = nullptr, std::string buffer = {});

// One level of a folder, hidden entries left out, in the order the file system gives. Absent when
// the folder cannot be opened. The kind is that of each entry itself.
struct DirectoryEntry {
    std::string name;
    EntryKind kind = EntryKind::Other;
};
std::optional<std::vector<DirectoryEntry>> listDirectory(const std::string& path);

// Hidden: the name begins with "." (on macOS, also the hidden flag).
bool isHiddenName(std::string_view name);

// Opens a folder for walking, never through a symbolic link.
UniqueFd openDirectory(const std::string& path);
UniqueFd openDirectoryAt(int parentFd, const char* name);

// Lexical: drops "." components, resolves ".." lexically, drops a trailing "/".
std::string standardizedPath(std::string_view path);
// Symbolic links resolved in the longest existing prefix, the rest appended lexically.
std::string resolvedPath(const std::string& path);
// Absolute form of a path taken from the working folder, unchanged otherwise.
std::string absolutePath(const std::string& path);
// True when `path` equals `root` or lies below it, after `standardizedPath` of both.
bool isDescendantPath(std::string_view path, std::string_view root);

std::string joinPath(std::string_view base, std::string_view component);
std::string_view lastComponent(std::string_view path);
// The extension after the last "." of the last component; empty when there is none.
std::string_view pathExtension(std::string_view path);

} // namespace vorlo::fs
