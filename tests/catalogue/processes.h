/* Clients of the catalogue as processes of their own. */
#ifndef MIX_TESTS_CATALOGUE_PROCESSES_H
#define MIX_TESTS_CATALOGUE_PROCESSES_H

#include <gtest/gtest.h>

#include <unistd.h>

#include "support/catalogue.h"
#include "support/children.h"
#include "support/mixd_fixture.h"
#include "support/private_mounts.h"

namespace catalogue
{

using namespace mixtest;

inline uint32_t counted(uint32_t from, uint32_t to)
{
    uint32_t in_use = 0;
    for (uint32_t i = from; i < to; i++)
        in_use += tq_app_ext_table[i].in_use;
    return in_use;
}

/* On an empty /dev/shm of the test's own. */
struct on_own_shm : testing::Test {
    void SetUp() override
    {
        unsetenv("MIX_BOARD");
        MIX_NEEDS_PRIVATE_DEV_SHM();
        unlink(segment_path);
    }
    void TearDown() override
    {
        detach();
        unlink(segment_path);
    }
};

/* With a mixd of its own. */
struct with_mixd : on_own_shm {
    temporary_directory place;
    mixd_process mixd{place.path() + "/run"};

    void SetUp() override
    {
        on_own_shm::SetUp();
        mixd.keep_catalogue = true;
    }
    void start_and_attach()
    {
        ASSERT_TRUE(mixd.start()) << mixd.log();
        ASSERT_EQ(access(segment_path, F_OK), 0);
        tq_app_table_init();
        ASSERT_NE(tq_app_ext_table, nullptr);
    }
    [[nodiscard]] bool said(const std::string &text) const
    {
        return mixd.log().find(text) != std::string::npos;
    }
    static pthread_rwlock_t *lock() { return static_cast<pthread_rwlock_t *>(app_table_rwlock); }
    static void expect_exact_counters()
    {
        EXPECT_EQ(*cur_app_num, counted(0, entry_count));
        EXPECT_EQ(*cur_predef_app_num, counted(0, first_user_defined));
    }
};

} // namespace catalogue

#endif
