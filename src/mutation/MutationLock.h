#pragma once
// The library-wide write lock shared by every server process: a folder whose creation is the
// atomic step, with an owner record that lets a waiter judge and clear an abandoned lock.

#include "platform/Crypto.h"
#include "platform/Folder.h"
#include "platform/Time.h"

#include <optional>
#include <string>
#include <string_view>

namespace vorlo {

// Where every server keeps the lock and the change marker, relative to the library.
inline constexpr std::string_view kLocksFolder = "Vorlo Data/Locks";

// The content of "Owner.json". The format is a protocol between processes, not a detail.
struct MCPMutationLockOwner {
    Uuid token;
    int processID = 0;
    std::string hostName;
    std::optional<std::string> hostID;
    Timestamp createdAt;

    std::string encode() const;
    // Absent when the bytes are no valid record (or exceed the record size limit).
    static std::optional<MCPMutationLockOwner> decode(std::string_view bytes);
};

class MCPMutationLock {
public:
    // The locks folder is `locksFolder` below the library, reached from it without following a link,
    // so that the lock can only ever be taken inside the library. Touches no file.
    MCPMutationLock(std::string libraryURL, std::string locksFolder);
    MCPMutationLock(const MCPMutationLock&) = delete;
    MCPMutationLock& operator=(const MCPMutationLock&) = delete;
    // Destruction does not release: callers use MutationLockGuard.
    ~MCPMutationLock() = default;

    // Returns with the lock held, or throws: the platform's error when the locks folder cannot be
    // made or is reached through a link, ServerError "The Vorlo library is busy. …" after about one
    // second of waiting.
    void acquire();
    // Never throws; does nothing unless acquired. Leaves a lock that another owner took over alone.
    void release() noexcept;

    bool acquired() const { return acquired_; }
    const MCPMutationLockOwner& owner() const { return owner_; }
    const std::string& lockPath() const { return lockPath_; }

    // True when the lock is gone (or was moved aside as abandoned) and the next attempt may run at once.
    bool recoverAbandonedLockIfNeeded() noexcept;

private:
    std::string libraryURL_;
    std::string locksFolder_;
    std::string lockPath_;
    MCPMutationLockOwner owner_;
    bool acquired_ = false;
    // Held open from the start of `acquire` to the end of `release`: whatever is swapped in on the
    // way to it afterwards, every step of the protocol happens in this one folder.
    std::optional<fs::Folder> locks_;
};

// Acquires in its constructor and releases on every way out of the scope.
class MutationLockGuard {
public:
    MutationLockGuard(std::string libraryURL, std::string locksFolder)
        : lock_(std::move(libraryURL), std::move(locksFolder)) {
        lock_.acquire();
    }
    ~MutationLockGuard() { lock_.release(); }
    MutationLockGuard(const MutationLockGuard&) = delete;
    MutationLockGuard& operator=(const MutationLockGuard&) = delete;

private:
    MCPMutationLock lock_;
};

} // namespace vorlo
