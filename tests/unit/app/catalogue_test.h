/* What the tests of the catalogue share: a real segment, its raw bytes, and processes beside this one. */
#ifndef MIX_TESTS_UNIT_APP_CATALOGUE_TEST_H
#define MIX_TESTS_UNIT_APP_CATALOGUE_TEST_H

#include <libmix/app_table.h>

#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/private_mounts.h"
#include "support/scripted_platform.h"

namespace catalogue
{

using namespace mixtest;

constexpr size_t segment_size = 10878380;
constexpr size_t entry_size = 664;
constexpr uint32_t entry_count = 16383;
constexpr size_t lock_at = 10878312;
constexpr size_t counters_at = 10878368;

/* As the platform does it: creates or attaches, read/write. */
inline void *map_shared(const char *name, size_t size)
{
    const int fd = shm_open(name, O_CREAT | O_RDWR, 0600);
    if (fd < 0)
        return nullptr;
    void *memory = MAP_FAILED;
    if (ftruncate(fd, static_cast<off_t>(size)) == 0)
        memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    return memory != MAP_FAILED ? memory : nullptr;
}

inline void forget()
{
    tq_app_ext_table = nullptr;
    app_table_rwlock = nullptr;
    cur_app_num = nullptr;
    cur_predef_app_num = nullptr;
}

/* Runs a check in a process of its own; true means that it held. */
inline pid_t beside(const std::function<bool()> &check)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(check() ? 0 : 1);
    return child;
}

inline void expect_held(pid_t child)
{
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << "killed by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the check of the other process failed";
}

/* Unattached, on an empty /dev/shm of the test's own. */
struct unattached : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        MIX_NEEDS_PRIVATE_DEV_SHM();
        forget();
        platform().shared_memory = map_shared;
    }
    void TearDown() override
    {
        if (tq_app_ext_table != nullptr)
            munmap(tq_app_ext_table, segment_size);
        forget();
        shm_unlink("app_ext_table");
        platform_test::TearDown();
    }

    static uint8_t *base() { return reinterpret_cast<uint8_t *>(tq_app_ext_table); }
    static uint8_t *entry(uint32_t index) { return base() + index * entry_size; }
    static uint32_t word(size_t offset)
    {
        uint32_t value;
        std::memcpy(&value, base() + offset, sizeof value);
        return value;
    }
    static bytes entry_bytes(uint32_t index) { return {entry(index), entry(index) + entry_size}; }
    static uint32_t count() { return word(counters_at); }
    static uint32_t predefined_count() { return word(counters_at + 4); }
};

/* Attached to a fresh catalogue with the 24 predefined rows. */
struct seeded : unattached {
    void SetUp() override
    {
        unattached::SetUp();
        if (!IsSkipped()) {
            ASSERT_EQ(tq_app_table_create(), 0);
        }
    }
};

} // namespace catalogue

#endif
