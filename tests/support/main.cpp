#include <gtest/gtest.h>

#ifdef MIX_COVERAGE
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

/* A process that aborts does not write what it has counted: a copy of it does, by ending in order. */
static void write_counts(int)
{
    const pid_t copy = fork();
    if (copy == 0)
        std::exit(0);
    waitpid(copy, nullptr, 0);
}
#endif

int main(int argc, char **argv)
{
#ifdef MIX_COVERAGE
    std::signal(SIGABRT, write_counts);
#endif
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
