#include "platform/Stdio.h"

#include <cerrno>
#include <csignal>
#include <sys/uio.h>
#include <unistd.h>

namespace vorlo::stdio {

std::size_t readAvailable(int fd, std::string& buffer) {
    // Read aside and appended: growing the buffer by a whole chunk first would clear 64 KiB for
    // every read, however few bytes it brings.
    constexpr std::size_t kChunk = 65536;
    char chunk[kChunk];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, kChunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return 0;
        buffer.append(chunk, static_cast<std::size_t>(n));
        return static_cast<std::size_t>(n);
    }
}

void writeLine(int fd, std::string_view line) {
    static const char kNewline = '\n';
    iovec parts[2] = {{const_cast<char*>(line.data()), line.size()}, {const_cast<char*>(&kNewline), 1}};
    iovec* next = parts;
    int left = 2;
    while (left > 0) {
        const ssize_t n = ::writev(fd, next, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        auto written = static_cast<std::size_t>(n);
        while (left > 0 && written >= next->iov_len) {
            written -= next->iov_len;
            ++next;
            --left;
        }
        if (left > 0) {
            next->iov_base = static_cast<char*>(next->iov_base) + written;
            next->iov_len -= written;
        }
    }
}

void ignoreBrokenPipes() { std::signal(SIGPIPE, SIG_IGN); }

} // namespace vorlo::stdio
