#include "platform/Stdio.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <string>
#include <thread>
#include <unistd.h>

namespace vorlo {
namespace {

// Everything written to a pipe by `write`, read back by a second thread so that the writer can
// block on a full pipe and resume with a short write.
std::string throughPipe(const std::function<void(int)>& write) {
    int fds[2];
    EXPECT_EQ(::pipe(fds), 0);
    std::string received;
    std::thread reader([&] {
        while (stdio::readAvailable(fds[0], received) > 0) {
        }
    });
    write(fds[1]);
    ::close(fds[1]);
    reader.join();
    ::close(fds[0]);
    return received;
}

// A line several times the pipe's capacity arrives whole and ends in exactly one line feed;
// so do an empty line and lines written one after another.
TEST(Stdio, WriteLineSurvivesShortWritesAndKeepsLinesApart) {
    std::string large(1 << 20, 'x');
    for (std::size_t i = 0; i < large.size(); i += 4093) large[i] = static_cast<char>('a' + i % 26);
    EXPECT_EQ(throughPipe([&](int fd) { stdio::writeLine(fd, large); }), large + "\n");

    // The pipe holds a single page, so nearly every write of the large line is a short one.
    const std::string small = throughPipe([&](int fd) {
        ::fcntl(fd, F_SETPIPE_SZ, 4096);
        stdio::writeLine(fd, "first");
        stdio::writeLine(fd, "");
        stdio::writeLine(fd, large);
        stdio::writeLine(fd, "{\"last\":true}");
    });
    EXPECT_EQ(small, "first\n\n" + large + "\n{\"last\":true}\n");
}

} // namespace
} // namespace vorlo
