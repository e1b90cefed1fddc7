#include "platform/Thread.h"

#include <gtest/gtest.h>

#include <sched.h>

namespace vorlo {
namespace {

// A thread may start on a processor of its own, but then runs under its creator's whole mask, so a
// busy processor never holds it.
TEST(Thread, StartsAnywhereThenKeepsTheCreatorsMask) {
    cpu_set_t creator, seen[3];
    ASSERT_EQ(sched_getaffinity(0, sizeof creator, &creator), 0);
    for (unsigned offset : {0u, 1u, 2u}) {
        CPU_ZERO(&seen[offset]);
        process::Thread([&] { sched_getaffinity(0, sizeof seen[offset], &seen[offset]); }, offset).join();
        EXPECT_TRUE(CPU_EQUAL(&seen[offset], &creator)) << "offset " << offset;
    }
}

} // namespace
} // namespace vorlo
