// The test binary's entry: the same locale choice as the server's, then every test.
#include "platform/Collation.h"

#include <gtest/gtest.h>

#include <csignal>

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN); // a server that has exited must not take a test down with it
    vorlo::text::adoptLocaleFromEnvironment();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
