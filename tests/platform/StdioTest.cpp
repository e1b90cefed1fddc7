#include "platform/Stdio.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace vorlo {
namespace {

// A line several times the pipe's capacity arrives whole and ends in exactly one line feed; so do an
// empty line and lines written one after another. The pipe holds a single page, so nearly every
// write of the large line is a short one, and the reader in a second thread lets the writer resume.
TEST(Stdio, WriteLineSurvivesShortWritesAndKeepsLinesApart) {
    std::string large(1 << 20, 'x');
    for (std::size_t i = 0; i < large.size(); i += 4093)
        large[i] = static_cast<char>('a' + i % 26);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
    std::string received;
    std::thread reader([&] {
        while (stdio::readAvailable(fds[0], received) > 0) {
        }
    });
    for (const std::string_view line :
         {std::string_view("first"), {}, std::string_view(large), {"{\"last\":true}"}})
        stdio::writeLine(fds[1], line);
    ::close(fds[1]);
    reader.join();
    ::close(fds[0]);
    EXPECT_EQ(received, "first\n\n" + large + "\n{\"last\":true}\n");
}

} // namespace
} // namespace vorlo
