#include "platform/Stdio.h"

#include <cerrno>
#include <csignal>
#include <sys/uio.h>
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
