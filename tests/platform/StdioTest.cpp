#include "platform/Stdio.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace vorlo {
namespace {

// A line several times the pipe's capacity arrives whole and ends in exactly one line feed; so do an
// empty line and lines written one after another. A blocking pipe completes a write in full unless a
// signal arrives, so the writer is interrupted again and again (without restarting): a write blocked
// after some bytes returns short, one blocked before any fails with EINTR, and both must carry on.
TEST(Stdio, WriteLineSurvivesShortWritesAndInterruptionsAndKeepsLinesApart) {
    std::string large(1 << 20, 'x');
    for (std::size_t i = 0; i < large.size(); i += 4093)
        large[i] = static_cast<char>('a' + i % 26);
    int fds[2];
    ASSERT_EQ(::pipe(fds), 0);
    ::fcntl(fds[1], F_SETPIPE_SZ, 4096);
    static std::atomic<int> interruptions = 0;
    struct sigaction interrupt = {}, previous = {};
    interrupt.sa_handler = [](int) { ++interruptions; };
    ::sigaction(SIGUSR1, &interrupt, &previous);
    std::string received;
    const pthread_t writer = ::pthread_self();
    std::thread reader([&] {
        while (stdio::readAvailable(fds[0], received) > 0)
            ::pthread_kill(writer, SIGUSR1);
    });
    for (const std::string_view line :
         {std::string_view("first"), {}, std::string_view(large), {"{\"last\":true}"}})
        stdio::writeLine(fds[1], line);
    ::close(fds[1]);
    reader.join();
    ::close(fds[0]);
    ::sigaction(SIGUSR1, &previous, nullptr);
    EXPECT_EQ(received, "first\n\n" + large + "\n{\"last\":true}\n");
    EXPECT_GT(interruptions, 10);
}

} // namespace
} // namespace vorlo
