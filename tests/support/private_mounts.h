/*
 * Names of shared segments and some paths are fixed. A test that touches one moves into a mount namespace of
 * its own first, so that it can neither see nor harm what the machine has there.
 */
#ifndef MIX_TESTS_PRIVATE_MOUNTS_H
#define MIX_TESTS_PRIVATE_MOUNTS_H

namespace mixtest
{

/* Moves this process into new namespaces (CLONE_NEW...), as root of a user namespace of its own where it
 * takes that. False: not allowed. */
bool leave_namespaces(int which);

/* Moves this process into a mount namespace of its own, once. Single-threaded processes only. False: not
 * allowed. */
bool private_mounts();

/* An empty /dev/shm that only this process and its children see, made once. False: not allowed. */
bool private_dev_shm();

} // namespace mixtest

/* At the start of a test (or SetUp) that needs it. */
#define MIX_NEEDS_PRIVATE_DEV_SHM()                                                                          \
    do {                                                                                                     \
        if (!mixtest::private_dev_shm())                                                                     \
            GTEST_SKIP() << "no mount namespace may be made here, so there is no /dev/shm to test on";       \
    } while (false)

#endif
