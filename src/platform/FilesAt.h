#pragma once
// Folders examined through an open descriptor, for walks in which no step may follow a link that
// was swapped in after the folder was opened.

#include "platform/Files.h"

#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace vorlo::fs {

// One level of the open folder `directoryFd`, hidden entries left out, in the order the file system
// gives. A kind comes from the listing itself, or from the entry (a final link not followed) where the
// file system gives none; an entry that cannot be examined is Other. Absent when the folder cannot be
// read. The descriptor stays open and is not moved.
// With `keep`, only the entries whose names it accepts are examined and kept.
std::optional<std::vector<DirectoryEntry>> listDirectoryAt(
    int directoryFd, const std::function<bool(std::string_view name)>& keep = {});

// Status of `name` in the open folder, a final link not followed; absent when it cannot be examined.
std::optional<FileStatus> linkStatusAt(int directoryFd, const char* name);

// Whether two open descriptors stand for the same file or folder.
bool sameFile(int fd, int otherFd);

// A second descriptor of what `fd` has open, which stays open whatever becomes of the first.
UniqueFd duplicate(int fd);

} // namespace vorlo::fs
