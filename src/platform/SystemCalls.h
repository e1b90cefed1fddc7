#pragma once
// The system calls by which the server changes the file system. Each has the POSIX contract (-1, or
// a negative count, with errno set). They exist as one seam so that a test can make any one of them
// fail on demand: a full disk, an I/O error or a short write cannot be had from a real file system
// at the moment a test needs it.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vorlo::sys {

// An open with O_DIRECTORY counts as an OpenFolder call, any other as Open.
int open(const char* path, int flags, mode_t mode = 0);
int openat(int directoryFd, const char* name, int flags, mode_t mode = 0);
ssize_t write(int fd, const void* bytes, std::size_t count);
int fsync(int fd);
int fchmod(int fd, mode_t mode);
int close(int fd);
int renameat(int fromDirectoryFd, const char* from, int toDirectoryFd, const char* to);
// A rename that fails with EEXIST when anything stands at `to` (renameat2 with RENAME_NOREPLACE on
// Linux, renameatx_np with RENAME_EXCL on macOS). EINVAL, ENOSYS or ENOTSUP: the file system has
// no such rename.
int renameNoReplace(int fromDirectoryFd, const char* from, int toDirectoryFd, const char* to);
int linkat(int fromDirectoryFd, const char* from, int toDirectoryFd, const char* to);
int unlinkat(int directoryFd, const char* name, int flags);
int mkdirat(int directoryFd, const char* name, mode_t mode);

// ---- For tests only: nothing in the server arms this, and no input or environment can. ----

enum class Call : std::uint8_t {
    Open, OpenFolder, Write, Fsync, Fchmod, Close, Rename, RenameNoReplace, Link, Unlink, Mkdir, Rmdir,
};
const char* callName(Call call);

// One call made while armed. `path` is the path or name the call was given, made absolute where the
// folder descriptor can be named; for a call on a file descriptor, the path that descriptor was opened
// with; empty when unknown.
struct TracedCall {
    Call call;
    std::string path;
};

// Makes call number `call` (counted from 1 among all the calls above while armed) fail with
// `errorNumber`, without reaching the system. A short write instead passes the first half of the bytes
// (at least one) to the system and returns that count. `before`, when given, runs just before that
// call, which then goes ahead unless it is to fail: how a test puts another process's step at an
// exact point of this one's.
struct Fault {
    std::uint64_t call = 0;
    int errorNumber = 0;
    bool shortWrite = false;
    std::function<void()> before = {};
};

// Arms the seam for the lifetime of the object: every call is traced and the faults are injected.
// One at a time per process; the seam is disarmed again on destruction.
class FaultInjection {
public:
    explicit FaultInjection(std::vector<Fault> faults = {});
    ~FaultInjection();
    FaultInjection(const FaultInjection&) = delete;
    FaultInjection& operator=(const FaultInjection&) = delete;

    std::vector<TracedCall> calls() const;
    std::size_t faultsInjected() const;
};

} // namespace vorlo::sys
