// The writing system calls, and the switch by which a test makes one of them fail.
#include "platform/SystemCalls.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace vorlo::sys {
namespace {

// The one piece of mutable process-wide state in the platform layer. It is only ever set by a
// FaultInjection object in a test; while it is unarmed each call costs one relaxed load.
struct Seam {
    std::atomic<bool> armed{false};
    std::mutex mutex;
    std::vector<Fault> faults;
    std::uint64_t calls = 0;
    std::size_t injected = 0;
    std::vector<TracedCall> trace;
};

Seam& seam() {
    static Seam instance;
    return instance;
}

// The path a descriptor refers to now, for the trace only.
std::string pathOfDescriptor(int fd) {
    if (fd == AT_FDCWD) {
        char buffer[PATH_MAX];
        return ::getcwd(buffer, sizeof buffer) != nullptr ? std::string(buffer) : std::string();
    }
#ifdef __APPLE__
    char buffer[PATH_MAX];
    return ::fcntl(fd, F_GETPATH, buffer) == 0 ? std::string(buffer) : std::string();
#else
    char buffer[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t n = ::readlink(link.c_str(), buffer, sizeof buffer);
    return n > 0 ? std::string(buffer, static_cast<std::size_t>(n)) : std::string();
#endif
}

std::string pathAt(int directoryFd, const char* name) {
    if (name[0] == '/') return name;
    const std::string folder = pathOfDescriptor(directoryFd);
    return folder.empty() ? std::string(name) : folder + "/" + name;
}

// Counts and traces one call when armed, and returns the fault planned for it, if any. `describe`
// is only run when armed, so the unarmed path never formats a path.
template <typename Describe>
std::optional<Fault> intercept(Call call, Describe describe) {
    Seam& state = seam();
    if (!state.armed.load(std::memory_order_relaxed)) return std::nullopt;
    std::string path = describe();
    const std::lock_guard<std::mutex> hold(state.mutex);
    const std::uint64_t number = ++state.calls;
    state.trace.push_back(TracedCall{call, std::move(path)});
    const auto planned =
        std::find_if(state.faults.begin(), state.faults.end(), [&](const Fault& fault) { return fault.call == number; });
    if (planned == state.faults.end()) return std::nullopt;
    ++state.injected;
    return *planned;
}

Call kindOfOpen(int flags) { return (flags & O_DIRECTORY) != 0 ? Call::OpenFolder : Call::Open; }

// A planned failure: errno set, nothing done. (A short write is handled by `write` itself.) The
// planned step of someone else runs first, outside the seam's lock, since it may well make calls.
bool failsWith(const std::optional<Fault>& fault) {
    if (!fault) return false;
    if (fault->before) fault->before();
    if (fault->shortWrite || fault->errorNumber == 0) return false;
    errno = fault->errorNumber;
    return true;
}

} // namespace

const char* callName(Call call) {
    switch (call) {
    case Call::Open: return "open";
    case Call::OpenFolder: return "open folder";
    case Call::Write: return "write";
    case Call::Fsync: return "fsync";
    case Call::Fchmod: return "fchmod";
    case Call::Close: return "close";
    case Call::Rename: return "rename";
    case Call::RenameNoReplace: return "renameNoReplace";
    case Call::Link: return "link";
    case Call::Unlink: return "unlink";
    case Call::Mkdir: return "mkdir";
    case Call::Rmdir: return "rmdir";
    }
    return "?";
}

int open(const char* path, int flags, mode_t mode) {
    if (failsWith(intercept(kindOfOpen(flags), [&] { return pathAt(AT_FDCWD, path); }))) return -1;
    return ::open(path, flags, mode);
}

int openat(int directoryFd, const char* name, int flags, mode_t mode) {
    if (failsWith(intercept(kindOfOpen(flags), [&] { return pathAt(directoryFd, name); }))) return -1;
    return ::openat(directoryFd, name, flags, mode);
}

ssize_t write(int fd, const void* bytes, std::size_t count) {
    const auto fault = intercept(Call::Write, [&] { return pathOfDescriptor(fd); });
    if (failsWith(fault)) return -1;
    if (fault && fault->shortWrite && count > 1) count /= 2;
    return ::write(fd, bytes, count);
}

int fsync(int fd) {
    if (failsWith(intercept(Call::Fsync, [&] { return pathOfDescriptor(fd); }))) return -1;
    return ::fsync(fd);
}

int fchmod(int fd, mode_t mode) {
    if (failsWith(intercept(Call::Fchmod, [&] { return pathOfDescriptor(fd); }))) return -1;
    return ::fchmod(fd, mode);
}

int close(int fd) {
    if (failsWith(intercept(Call::Close, [&] { return pathOfDescriptor(fd); }))) {
        // A failed close still releases the descriptor on the systems we run on; so must a fake one,
        // or every injected failure would leak it.
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return ::close(fd);
}

int renameat(int fromDirectoryFd, const char* from, int toDirectoryFd, const char* to) {
    if (failsWith(intercept(Call::Rename,
                            [&] { return pathAt(fromDirectoryFd, from) + " -> " + pathAt(toDirectoryFd, to); })))
        return -1;
    return ::renameat(fromDirectoryFd, from, toDirectoryFd, to);
}

int renameNoReplace(int fromDirectoryFd, const char* from, int toDirectoryFd, const char* to) {
    if (failsWith(intercept(Call::RenameNoReplace,
                            [&] { return pathAt(fromDirectoryFd, from) + " -> " + pathAt(toDirectoryFd, to); })))
        return -1;
#ifdef __APPLE__
    return ::renameatx_np(fromDirectoryFd, from, toDirectoryFd, to, RENAME_EXCL);
#else
    return ::renameat2(fromDirectoryFd, from, toDirectoryFd, to, RENAME_NOREPLACE);
#endif
}

int linkat(int fromDirectoryFd, const char* from, int toDirectoryFd, const char* to) {
    if (failsWith(intercept(Call::Link,
                            [&] { return pathAt(fromDirectoryFd, from) + " -> " + pathAt(toDirectoryFd, to); })))
        return -1;
    return ::linkat(fromDirectoryFd, from, toDirectoryFd, to, 0);
}

int unlinkat(int directoryFd, const char* name, int flags) {
    const Call call = (flags & AT_REMOVEDIR) != 0 ? Call::Rmdir : Call::Unlink;
    if (failsWith(intercept(call, [&] { return pathAt(directoryFd, name); }))) return -1;
    return ::unlinkat(directoryFd, name, flags);
}

int mkdirat(int directoryFd, const char* name, mode_t mode) {
    if (failsWith(intercept(Call::Mkdir, [&] { return pathAt(directoryFd, name); }))) return -1;
    return ::mkdirat(directoryFd, name, mode);
}

FaultInjection::FaultInjection(std::vector<Fault> faults) {
    Seam& state = seam();
    const std::lock_guard<std::mutex> hold(state.mutex);
    state.faults = std::move(faults);
    state.calls = 0;
    state.injected = 0;
    state.trace.clear();
    state.armed.store(true);
}

FaultInjection::~FaultInjection() {
    Seam& state = seam();
    const std::lock_guard<std::mutex> hold(state.mutex);
    state.armed.store(false);
    state.faults.clear();
}

std::vector<TracedCall> FaultInjection::calls() const {
    Seam& state = seam();
    const std::lock_guard<std::mutex> hold(state.mutex);
    return state.trace;
}

std::size_t FaultInjection::faultsInjected() const {
    Seam& state = seam();
    const std::lock_guard<std::mutex> hold(state.mutex);
    return state.injected;
}

} // namespace vorlo::sys
