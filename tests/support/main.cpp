#include "support/end_process.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/wait.h>

/* A process that aborts does not write what it has counted: a copy of it does, by ending in order. */
static void write_counts(int)
{
    const pid_t copy = fork();
    if (copy == 0)
        std::exit(0);
    waitpid(copy, nullptr, 0);
}

int main(int argc, char **argv)
{
    if (mixtest::counts_coverage())
        std::signal(SIGABRT, write_counts);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
