/*
 * mixd as the catalogue's keeper: a writer dies at each of the places where it can, and the others go on,
 * with counters that are right. A writer that lives is never robbed.
 */
#include "processes.h"

#include <atomic>

using namespace catalogue;

namespace
{

constexpr double freed_within = 5;

struct keeper : with_mixd {
    void SetUp() override
    {
        with_mixd::SetUp();
        if (!IsSkipped())
            start_and_attach();
    }

    auto &inside() const { return lock()->__data; }
    /* A child that takes the lock, does something with it, and dies. Not yet reaped when it comes back. */
    pid_t dead_writer(const std::function<void()> &last_words = [] {}) const
    {
        const pid_t child = fork();
        if (child == 0) {
            pthread_rwlock_wrlock(lock());
            last_words();
            kill(getpid(), SIGKILL);
        }
        siginfo_t gone;
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(child), &gone, WEXITED | WNOWAIT), 0);
        return child;
    }
    /* Writers that wait for the lock while it is held; each ends when it has written. */
    std::vector<pid_t> waiting_writers(int count) const
    {
        std::vector<pid_t> out;
        const shared<std::atomic<int>> begun;
        for (int i = 0; i < count; i++)
            out.push_back(beside([&] {
                ++*begun;
                return app_ext_table_add("Waited", "Waited", 65535, 1) >= 15871;
            }));
        within(5, [&] { return *begun == count; });
        usleep(30000); /* and asleep, most likely */
        return out;
    }
    /* The keeper frees a lock first and says so then: those who waited may be done before it has. */
    void expect_said(const std::string &text) const
    {
        EXPECT_TRUE(within(freed_within, [&] { return said(text); })) << text << "\n" << mixd.log();
    }
    void expect_all_go_on(const std::vector<pid_t> &writers)
    {
        const double start = seconds();
        for (pid_t writer : writers)
            EXPECT_TRUE(ends_well(writer, freed_within)) << mixd.log();
        EXPECT_LT(seconds() - start, freed_within);
        expect_exact_counters();
        EXPECT_TRUE(mixd.running());
    }
};

TEST_F(keeper, frees_the_lock_of_a_writer_that_is_gone_for_those_that_wait)
{
    end(dead_writer());
    expect_all_go_on(waiting_writers(3));
    expect_said("died while it wrote the application catalogue");
}

TEST_F(keeper, notices_within_two_seconds)
{
    end(dead_writer());
    EXPECT_TRUE(within(2, [&] { return said("died while it wrote the application catalogue"); }));
}

TEST_F(keeper, frees_the_lock_of_a_writer_that_nobody_has_buried_yet)
{
    const pid_t zombie = dead_writer();
    expect_all_go_on(waiting_writers(2));
    end(zombie);
}

TEST_F(keeper, counts_anew_before_anybody_goes_on)
{
    const uint32_t before = *cur_app_num, predefined = *cur_predef_app_num;
    end(dead_writer([] {
        *cur_app_num += 100; /* as if it had died between an entry and its counter */
        *cur_predef_app_num -= 7;
    }));
    expect_all_go_on(waiting_writers(1));
    EXPECT_EQ(*cur_app_num, before + 1);
    EXPECT_EQ(*cur_predef_app_num, predefined);
}

TEST_F(keeper, leaves_every_entry_as_it_is)
{
    const std::vector<uint8_t> before(reinterpret_cast<uint8_t *>(tq_app_ext_table),
                                      reinterpret_cast<uint8_t *>(tq_app_ext_table) + lock_at);
    end(dead_writer());
    expect_said("its lock is free");
    const std::vector<uint8_t> after(reinterpret_cast<uint8_t *>(tq_app_ext_table),
                                     reinterpret_cast<uint8_t *>(tq_app_ext_table) + lock_at);
    EXPECT_EQ(after, before);
}

TEST_F(keeper, frees_a_lock_again_and_again)
{
    for (int i = 0; i < 5; i++) {
        end(dead_writer());
        expect_all_go_on(waiting_writers(2));
    }
}

TEST_F(keeper, frees_the_lock_of_a_thread_that_is_gone_while_its_process_lives)
{
    const shared<std::atomic<int>> state;
    const pid_t child = beside([&] {
        pthread_t thread;
        pthread_create(
            &thread, nullptr,
            [](void *) -> void * {
                pthread_rwlock_wrlock(lock());
                return nullptr;
            },
            nullptr);
        pthread_join(thread, nullptr);
        *state = 1;
        pause();
        return true;
    });
    ASSERT_TRUE(within(5, [&] { return *state == 1; }));
    expect_all_go_on(waiting_writers(2));
    end(child);
}

TEST_F(keeper, frees_the_lock_of_one_that_died_before_it_gave_its_number)
{
    end(dead_writer([this] { inside().__cur_writer = 0; }));
    expect_all_go_on(waiting_writers(2));
    expect_said("a thread died");
}

TEST_F(keeper, frees_the_lock_of_one_that_had_only_just_begun_to_take_it)
{
    end(dead_writer([this] {
        inside().__cur_writer = 0;
        inside().__readers = 2; /* taken, but the phase has not begun */
        inside().__wrphase_futex = 0;
        inside().__writers_futex = 0;
    }));
    expect_all_go_on(waiting_writers(2));
}

/* The next three die in the middle of releasing the lock, with others asleep that nobody wakes any more. */

TEST_F(keeper, wakes_those_that_slept_when_the_owner_died_before_it_freed_the_lock)
{
    ASSERT_EQ(pthread_rwlock_wrlock(lock()), 0);
    const std::vector<pid_t> writers = waiting_writers(3);
    inside().__cur_writer = 0; /* this process plays the dead one: it stops half-way */
    inside().__writers_futex = 0;
    expect_all_go_on(writers);
}

TEST_F(keeper, wakes_those_that_slept_when_the_owner_died_before_it_woke_the_next)
{
    ASSERT_EQ(pthread_rwlock_wrlock(lock()), 0);
    const std::vector<pid_t> writers = waiting_writers(3);
    inside().__cur_writer = 0;
    inside().__writers_futex = 0;
    __atomic_and_fetch(&inside().__readers, ~2u, __ATOMIC_SEQ_CST);
    expect_all_go_on(writers);
}

TEST_F(keeper, wakes_those_whose_wake_up_went_to_one_that_died)
{
    const pid_t holder = dead_writer();
    std::vector<pid_t> writers = waiting_writers(3);
    end(writers.back()); /* asleep, and maybe the one that would have been woken */
    writers.pop_back();
    end(holder);
    expect_all_go_on(writers);
}

TEST_F(keeper, knows_a_thread_number_that_has_come_to_another_program)
{
    const shared<std::atomic<int>> state;
    const pid_t stranger = beside([&] {
        detach(); /* lives, but has nothing to do with the catalogue */
        *state = 1;
        pause();
        return true;
    });
    ASSERT_TRUE(within(5, [&] { return *state == 1; }));
    end(dead_writer([&] { inside().__cur_writer = stranger; }));
    expect_all_go_on(waiting_writers(2));
    end(stranger);
}

struct robbed : keeper {
    /* A writer that does something long with the lock and finds it still its own at the end. */
    pid_t slow_writer(std::atomic<int> *state, const std::function<void()> &something_long) const
    {
        return beside([=] {
            pthread_rwlock_wrlock(lock());
            *state = 1;
            something_long();
            const bool mine = lock()->__data.__cur_writer == gettid();
            *state = 2;
            return pthread_rwlock_unlock(lock()) == 0 && mine;
        });
    }
};

TEST_F(robbed, a_slow_writer_is_not)
{
    const shared<std::atomic<int>> state;
    const pid_t slow = slow_writer(&*state, [] { usleep(3000000); });
    ASSERT_TRUE(within(5, [&] { return *state == 1; }));
    EXPECT_GE(app_ext_table_add("Patient", "Patient", 65535, 1), 15871);
    EXPECT_EQ(*state, 2) << "it was let in while the other wrote";
    EXPECT_TRUE(ends_well(slow, 5));
    EXPECT_FALSE(said("died")) << mixd.log();
}

TEST_F(robbed, a_stopped_writer_is_not)
{
    const shared<std::atomic<int>> state;
    const pid_t slow = slow_writer(&*state, [] { raise(SIGSTOP); });
    int status = 0;
    ASSERT_EQ(waitpid(slow, &status, WUNTRACED), slow);
    ASSERT_TRUE(WIFSTOPPED(status));
    usleep(2500000);
    EXPECT_EQ(pthread_rwlock_trywrlock(lock()), EBUSY);
    kill(slow, SIGCONT);
    EXPECT_TRUE(ends_well(slow, 5));
    EXPECT_FALSE(said("died")) << mixd.log();
}

TEST_F(robbed, a_writer_that_waits_for_a_reader_is_not)
{
    ASSERT_EQ(pthread_rwlock_rdlock(lock()), 0); /* libmix's readers never do, other programs may */
    const std::vector<pid_t> writers = waiting_writers(1);
    usleep(2500000);
    EXPECT_FALSE(said("died")) << mixd.log();
    EXPECT_EQ(pthread_rwlock_unlock(lock()), 0);
    expect_all_go_on(writers);
}

TEST_F(keeper, starts_on_a_catalogue_whose_writer_died_while_no_mixd_ran)
{
    ASSERT_EQ(mixd.stop(), 0);
    end(dead_writer());
    const std::vector<pid_t> writers = waiting_writers(2);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    expect_all_go_on(writers);
}

TEST_F(keeper, frees_the_lock_for_mixd_itself)
{
    end(dead_writer());
    kill(mixd.pid(), SIGHUP); /* the reload needs the lock */
    expect_said("reloading");
    EXPECT_EQ(mixd.stop(), 0) << mixd.log();
    expect_exact_counters();
}

} // namespace
