// Listing and examining entries of a folder that is already open.
#include "platform/FilesAt.h"

#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::fs {
namespace {

EntryKind kindOfMode(mode_t mode) {
    if (S_ISREG(mode)) return EntryKind::RegularFile;
    if (S_ISDIR(mode)) return EntryKind::Directory;
    if (S_ISLNK(mode)) return EntryKind::SymbolicLink;
    return EntryKind::Other;
}

EntryKind kindOfEntry(int directoryFd, const dirent& entry) {
    switch (entry.d_type) {
    case DT_REG:
        return EntryKind::RegularFile;
    case DT_DIR:
        return EntryKind::Directory;
    case DT_LNK:
        return EntryKind::SymbolicLink;
    case DT_UNKNOWN: {
        // Some file systems leave the type out of the listing; ask the entry itself.
        struct stat status;
        if (::fstatat(directoryFd, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) return EntryKind::Other;
        return kindOfMode(status.st_mode);
    }
    default:
        return EntryKind::Other;
    }
}

} // namespace

std::optional<std::vector<DirectoryEntry>> listDirectoryAt(int directoryFd,
                                                           const std::function<bool(std::string_view name)>& keep) {
    // A fresh open of "." has its own position, so the caller's descriptor is left as it was and
    // can go on serving openat for the entries listed here.
    UniqueFd own(::openat(directoryFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!own) return std::nullopt;
    DIR* directory = ::fdopendir(own.get());
    if (directory == nullptr) return std::nullopt;
    own.release(); // now owned by `directory`
    std::optional<std::vector<DirectoryEntry>> entries(std::in_place);
    for (;;) {
        errno = 0;
        const dirent* entry = ::readdir(directory);
        if (entry == nullptr) {
            // A listing that broke off halfway would make the walk depend on where it broke.
            if (errno != 0) entries.reset();
            break;
        }
        if (isHiddenName(entry->d_name)) continue; // also "." and ".."
        if (keep && !keep(entry->d_name)) continue;
        entries->push_back(DirectoryEntry{entry->d_name, kindOfEntry(directoryFd, *entry)});
    }
    ::closedir(directory);
    return entries;
}

UniqueFd duplicate(int fd) {
    return UniqueFd(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
}

bool sameFile(int fd, int otherFd) {
    struct stat one, other;
    return ::fstat(fd, &one) == 0 && ::fstat(otherFd, &other) == 0 && one.st_dev == other.st_dev &&
           one.st_ino == other.st_ino;
}

std::optional<FileStatus> linkStatusAt(int directoryFd, const char* name) {
    struct stat status;
    if (::fstatat(directoryFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
    return FileStatus{kindOfMode(status.st_mode), static_cast<std::uint64_t>(status.st_size), timestampOf(status)};
}

} // namespace vorlo::fs
