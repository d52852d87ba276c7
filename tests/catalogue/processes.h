/* Clients of the catalogue as processes of their own, and bounded waits for what they do. */
#ifndef MIX_TESTS_CATALOGUE_PROCESSES_H
#define MIX_TESTS_CATALOGUE_PROCESSES_H

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libmix/app_table.h>

#include "support/mixd_fixture.h"
#include "support/private_mounts.h"

namespace catalogue
{

using namespace mixtest;

inline constexpr char segment_path[] = "/dev/shm/app_ext_table";
inline constexpr size_t segment_size = 10878380;
inline constexpr size_t lock_at = 10878312;
inline constexpr uint32_t entry_count = 16383;
inline constexpr uint32_t first_user_defined = 15871;

inline double seconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

/* Waits until a condition holds; false: it did not in time. */
inline bool within(double limit, const std::function<bool()> &condition)
{
    for (const double end = seconds() + limit; !condition(); usleep(1000))
        if (seconds() > end)
            return false;
    return true;
}

/* Runs in a process of its own, which ends with status 0 when the function says true. */
inline pid_t beside(const std::function<bool()> &run)
{
    const pid_t child = fork();
    if (child == 0)
        _exit(run() ? 0 : 1);
    return child;
}

/* Whether a process ends in time, and with status 0. One that does not is killed. */
inline bool ends_well(pid_t child, double limit)
{
    int status = -1;
    if (!within(limit, [&] { return waitpid(child, &status, WNOHANG) == child; })) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
        return false;
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

inline int end(pid_t child, int signal_number = SIGKILL)
{
    int status = 0;
    kill(child, signal_number);
    waitpid(child, &status, 0);
    return status;
}

/* Memory that children share with the test. */
template <class T>
class shared
{
  public:
    shared()
        : at_(static_cast<T *>(
              mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~shared() { munmap(at_, sizeof(T)); }
    shared(const shared &) = delete;
    shared &operator=(const shared &) = delete;
    T *operator->() const { return at_; }
    T &operator*() const { return *at_; }

  private:
    T *at_;
};

inline void detach()
{
    if (tq_app_ext_table != nullptr)
        munmap(tq_app_ext_table, segment_size);
    tq_app_ext_table = nullptr;
    app_table_rwlock = nullptr;
    cur_app_num = cur_predef_app_num = nullptr;
}

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
