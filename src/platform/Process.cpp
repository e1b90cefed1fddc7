// The process, its host and its user's folders, over POSIX.
#include "platform/Process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <pwd.h>
#include <sched.h>
#include <thread>
#include <time.h>
#include <unistd.h>

namespace vorlo::process {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) return std::nullopt;
    return std::string(value);
}

int currentProcessId() { return static_cast<int>(getpid()); }

unsigned usableProcessors() {
#ifdef __linux__
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0)
        return static_cast<unsigned>(CPU_COUNT(&set));
#endif
    return std::max(1u, std::thread::hardware_concurrency());
}

std::string hostName() {
    char buffer[256] = {};
    if (gethostname(buffer, sizeof buffer - 1) != 0) return "localhost";
    return buffer;
}

bool processIsGone(int processId) {
    errno = 0;
    return kill(static_cast<pid_t>(processId), 0) == -1 && errno == ESRCH;
}

void sleepMilliseconds(int milliseconds) {
    timespec delay{milliseconds / 1000, (milliseconds % 1000) * 1000000L};
    while (nanosleep(&delay, &delay) == -1 && errno == EINTR) {
    }
}

std::string homeDirectory() {
    if (auto home = environmentValue("HOME"); home && !home->empty()) return *home;
    if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) return entry->pw_dir;
    return "/";
}

std::string supportDirectory() {
#ifdef __APPLE__
    return homeDirectory() + "/Library/Application Support/Vorlo";
#else
    if (auto data = environmentValue("XDG_DATA_HOME"); data && !data->empty() && data->front() == '/')
        return *data + "/Vorlo";
    return homeDirectory() + "/.local/share/Vorlo";
#endif
}

} // namespace vorlo::process
