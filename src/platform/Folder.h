#pragma once
// A folder held open, into which files are written by name. Reached from the library one component
// at a time without following a symbolic link, it stays the same folder whatever is renamed or
// swapped for a link on the way afterwards: what was checked is what is written into, and no write
// can land outside the library.

#include "platform/Files.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorlo::fs {

class Folder {
public:
    // The folder at `path`, links in the path followed: the library as the person chose it, which
    // may well be reached through one. Absent with errno in `errorNumber`.
    static std::optional<Folder> open(const std::string& path, int* errorNumber);

    // The folder `name` inside this one. A link, a file or anything else that stands at the name
    // gives ENOTDIR.
    std::optional<Folder> child(std::string_view name, int* errorNumber) const;
    // Creates the folder `name` inside this one, with mode 0700 whatever the umask, and opens it.
    // EEXIST when anything stands at the name already. A folder that cannot be made private is
    // taken away again, so that EEXIST always means that something stood there before.
    std::optional<Folder> makeChild(std::string_view name, int* errorNumber) const;
    // Each folder of the "/"-separated `relativePath` in turn, with `Missing::Make` made where
    // missing as `makeChild` makes it. A component that is no folder gives ENOTDIR.
    enum class Missing { Fail, Make };
    std::optional<Folder> descend(std::string_view relativePath, Missing missing, int* errorNumber) const;
    // `relativePath` below the folder at `root`: the root as `open` finds it, the rest as `descend`.
    static std::optional<Folder> openBelow(const std::string& root, std::string_view relativePath, Missing missing,
                                           int* errorNumber);

    // The entry `name` itself, a link not followed; absent when it cannot be examined.
    std::optional<FileStatus> status(std::string_view name, int* errorNumber = nullptr) const;
    bool contains(std::string_view name) const { return status(name).has_value(); }
    // Whether the entry `name` in this folder is `folder` itself, and not another that took its name.
    bool holds(std::string_view name, const Folder& folder) const;
    // As `readRegularFile`, for `name` in this folder.
    std::optional<FileContents> readFile(std::string_view name, std::uint64_t maximumBytes,
                                         int* errorNumber = nullptr) const;

    // Writes `bytes` to a hidden temporary file in this folder (".Vorlo MCP <UUID>.tmp"), sets
    // `mode` and renames it to `name`; `Flush::Durable` also flushes the file before the rename and
    // the folder after it. The temporary file is gone on every way out. Returns 0 or errno.
    enum class Flush { Durable, No };
    int replaceFile(std::string_view name, std::string_view bytes, unsigned mode,
                    Flush flush = Flush::Durable) const;
    // The same, but the final move never replaces anything: EEXIST when `name` is taken.
    int createFile(std::string_view name, std::string_view bytes, unsigned mode,
                   Flush flush = Flush::Durable) const;
    // Renames an entry of this folder within it. Returns 0 or errno.
    int rename(std::string_view from, std::string_view to) const;
    // Removes `name`, with all it holds when it is a folder, never following a link. 0 or errno.
    int removeTree(std::string_view name) const;

    // The path by which the folder was reached, for messages and tests; never used to find it again.
    const std::string& path() const { return path_; }

private:
    Folder(UniqueFd fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}
    template <typename Move>
    int placeThroughTemporary(std::string_view name, std::string_view bytes, unsigned mode, Flush flush,
                              Move move) const;

    UniqueFd fd_;
    std::string path_;
};

} // namespace vorlo::fs
