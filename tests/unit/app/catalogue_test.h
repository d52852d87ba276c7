/* What the tests of the catalogue share: a real segment, its raw bytes, and processes beside this one. */
#ifndef MIX_TESTS_UNIT_APP_CATALOGUE_TEST_H
#define MIX_TESTS_UNIT_APP_CATALOGUE_TEST_H

#include <fcntl.h>
#include <string>

#include "support/catalogue.h"
#include "support/children.h"
#include "support/private_mounts.h"
#include "support/scripted_platform.h"

namespace catalogue
{

using namespace mixtest;

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

/* The check of another process. */
inline void expect_held(pid_t child)
{
    EXPECT_TRUE(ends_well(child, 30));
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
        detach();
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
