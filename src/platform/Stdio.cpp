#include "platform/Stdio.h"

#include <cerrno>
#include <csignal>
#include <unistd.h>

namespace vorlo::stdio {

std::size_t readAvailable(int fd, std::string& buffer) {
    constexpr std::size_t kChunk = 65536;
    const std::size_t before = buffer.size();
    buffer.resize(before + kChunk);
    for (;;) {
        const ssize_t n = ::read(fd, buffer.data() + before, kChunk);
        if (n < 0 && errno == EINTR) continue;
        buffer.resize(before + (n > 0 ? static_cast<std::size_t>(n) : 0));
        return n > 0 ? static_cast<std::size_t>(n) : 0;
    }
}

void writeAll(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t n = ::write(fd, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
}

void ignoreBrokenPipes() { std::signal(SIGPIPE, SIG_IGN); }

} // namespace vorlo::stdio
