/*
 * A test body in a child process with network interfaces of its own: only a loopback to begin with, and up.
 * Needs root or unprivileged user namespaces.
 */
#ifndef MIX_TESTS_NET_NAMESPACE_H
#define MIX_TESTS_NET_NAMESPACE_H

#include <gtest/gtest.h>

#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>

#include "support/private_mounts.h"

namespace mixtest
{

enum class namespace_outcome { passed, failed, not_allowed };

/* Moves the calling process; false when it may not. */
inline bool enter_new_net_namespace()
{
    if (!leave_namespaces(CLONE_NEWNET))
        return false;
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback = {};
    std::strcpy(loopback.ifr_name, "lo");
    loopback.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool up = sock >= 0 && ioctl(sock, SIOCSIFFLAGS, &loopback) == 0;
    if (sock >= 0)
        close(sock);
    return up;
}

/* Runs the body; its expectations count in the child, which says what failed. */
inline namespace_outcome in_net_namespace(const std::function<void()> &body)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        if (!enter_new_net_namespace())
            _exit(2);
        body();
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status))
        return namespace_outcome::failed;
    if (WEXITSTATUS(status) == 2)
        return namespace_outcome::not_allowed;
    return WEXITSTATUS(status) == 0 ? namespace_outcome::passed : namespace_outcome::failed;
}

} // namespace mixtest

/* For the last statement of a test: runs the body, or skips. */
#define MIX_IN_NET_NAMESPACE(body)                                                                           \
    do {                                                                                                     \
        const auto outcome = mixtest::in_net_namespace(body);                                                \
        if (outcome == mixtest::namespace_outcome::not_allowed)                                              \
            GTEST_SKIP() << "network namespaces are not allowed here";                                       \
        EXPECT_EQ(outcome, mixtest::namespace_outcome::passed);                                              \
    } while (false)

#endif
