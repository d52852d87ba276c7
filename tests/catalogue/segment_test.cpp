/* How the segment comes to be: built without a name, published whole, adopted, refused. And its lock's
 * layout. */
#include "processes.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>

#include "appliance/mixd/catalogue.h"
#include "appliance/mixd/dead_lock.h"

using namespace catalogue;

namespace
{

struct making : on_own_shm {
    void TearDown() override { unlink(segment_path); } /* the object unmaps by itself */
    static bool exists() { return access(segment_path, F_OK) == 0; }
    /* As a client does that is the first to attach. */
    static void make_as_client(size_t size)
    {
        const int fd = open(segment_path, O_RDWR | O_CREAT | O_EXCL, 0600);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(ftruncate(fd, static_cast<off_t>(size)), 0);
        close(fd);
    }
    static void use_as_client()
    {
        tq_app_table_create();
        detach();
    }
};

TEST_F(making, is_done_out_of_sight_and_published_whole)
{
    bool seen = true, attached = false;
    mixd::catalogue made("app_ext_table", [&] {
        seen = exists();
        attached = tq_app_ext_table != nullptr;
        tq_app_table_create();
    });
    EXPECT_FALSE(seen);
    EXPECT_TRUE(attached);
    EXPECT_TRUE(made.made_here());
    struct stat is {
    };
    ASSERT_EQ(stat(segment_path, &is), 0);
    EXPECT_EQ(is.st_size, static_cast<off_t>(segment_size));
    EXPECT_EQ(is.st_mode & 0777, 0600u);
    EXPECT_GE(is.st_blocks * 512, static_cast<off_t>(segment_size)) << "its memory is not there for sure";
    const pid_t client = beside([] {
        detach();
        tq_app_table_init();
        return *cur_app_num == 24 && tq_app_type2name(70) == std::string("FTP-DATA");
    });
    EXPECT_TRUE(ends_well(client, 5));
}

TEST_F(making, points_libmix_into_the_segment_and_out_of_it_at_the_end)
{
    {
        mixd::catalogue made("app_ext_table", [] {});
        auto *base = reinterpret_cast<uint8_t *>(tq_app_ext_table);
        EXPECT_EQ(static_cast<uint8_t *>(app_table_rwlock), base + 10878312);
        EXPECT_EQ(reinterpret_cast<uint8_t *>(cur_app_num), base + 10878368);
        EXPECT_EQ(reinterpret_cast<uint8_t *>(cur_predef_app_num), base + 10878372);
        EXPECT_TRUE(mixd::is_shared(made.lock()));
    }
    EXPECT_EQ(tq_app_ext_table, nullptr);
    EXPECT_EQ(app_table_rwlock, nullptr);
    EXPECT_EQ(cur_app_num, nullptr);
    EXPECT_EQ(cur_predef_app_num, nullptr);
    EXPECT_TRUE(exists()) << "clients go on without mixd";
}

TEST_F(making, gives_way_to_a_catalogue_that_is_there)
{
    use_as_client();
    bool filled = false;
    mixd::catalogue adopted("app_ext_table", [&] { filled = true; });
    EXPECT_FALSE(filled);
    EXPECT_FALSE(adopted.made_here());
    EXPECT_STREQ(tq_app_type2name(70), "FTP-DATA");
}

TEST_F(making, gives_way_to_a_client_that_was_faster)
{
    mixd::catalogue adopted("app_ext_table", [] {
        tq_app_type2name(0);
        app_entry *own = tq_app_ext_table;
        void *lock = app_table_rwlock;
        uint32_t *count = cur_app_num, *predefined = cur_predef_app_num;
        if (!exists()) {
            tq_app_ext_table = nullptr; /* play the client in the middle of it */
            use_as_client();
        }
        tq_app_ext_table = own;
        app_table_rwlock = lock;
        cur_app_num = count;
        cur_predef_app_num = predefined;
    });
    EXPECT_FALSE(adopted.made_here());
    EXPECT_STREQ(tq_app_type2name(70), "FTP-DATA") << "not the client's segment";
}

TEST_F(making, is_refused_while_another_keeps_it)
{
    mixd::catalogue first("app_ext_table", [] {});
    const pid_t second = beside([] {
        try {
            mixd::catalogue refused("app_ext_table", [] {});
        } catch (const mixd::kept_elsewhere &why) {
            return std::string(why.what()) ==
                   "another mixd keeps the application catalogue /dev/shm/app_ext_table";
        }
        return false;
    });
    EXPECT_TRUE(ends_well(second, 5));
}

TEST_F(making, works_again_when_the_other_is_gone)
{
    {
        const mixd::catalogue first("app_ext_table", [] { tq_app_table_create(); });
    }
    const mixd::catalogue second("app_ext_table", [] {});
    EXPECT_FALSE(second.made_here());
    EXPECT_EQ(*cur_app_num, 24u);
}

TEST_F(making, replaces_an_object_of_another_size)
{
    make_as_client(4096);
    const mixd::catalogue made("app_ext_table", [] { tq_app_table_create(); });
    EXPECT_TRUE(made.made_here());
    struct stat is {
    };
    ASSERT_EQ(stat(segment_path, &is), 0);
    EXPECT_EQ(is.st_size, static_cast<off_t>(segment_size));
}

TEST_F(making, waits_for_a_client_that_is_about_to_give_it_its_size)
{
    make_as_client(0);
    const pid_t client = beside([] {
        usleep(100000);
        return truncate(segment_path, static_cast<off_t>(segment_size)) == 0;
    });
    const mixd::catalogue adopted("app_ext_table", [] {});
    EXPECT_FALSE(adopted.made_here());
    EXPECT_TRUE(ends_well(client, 5));
}

TEST_F(making, makes_a_lock_that_was_never_made)
{
    make_as_client(segment_size); /* died before it came to the lock */
    const mixd::catalogue adopted("app_ext_table", [] {});
    EXPECT_FALSE(adopted.made_here());
    EXPECT_TRUE(mixd::is_shared(adopted.lock()));
    EXPECT_EQ(app_ext_table_add("One", "One", 65535, 1), 16382);
}

TEST_F(making, knows_who_has_it_mapped)
{
    const mixd::catalogue made("app_ext_table", [] {});
    EXPECT_TRUE(made.is_mapped_by(getpid()));
    const shared<int> state;
    const pid_t stranger = beside([&] {
        detach();
        *state = 1;
        pause();
        return true;
    });
    EXPECT_TRUE(within(5, [&] { return *state == 1; }));
    EXPECT_FALSE(made.is_mapped_by(stranger));
    end(stranger);
    const pid_t client = beside([&] {
        detach();
        tq_app_table_init();
        *state = 2;
        pause();
        return true;
    });
    EXPECT_TRUE(within(5, [&] { return *state == 2; }));
    EXPECT_TRUE(made.is_mapped_by(client));
    end(client);
}

TEST_F(making, tells_one_segment_from_another)
{
    std::string first, again;
    {
        const mixd::catalogue made("app_ext_table", [] {});
        first = made.identity();
    }
    {
        const mixd::catalogue adopted("app_ext_table", [] {});
        again = adopted.identity();
    }
    EXPECT_EQ(again, first);
    const int kept = open(segment_path, O_RDONLY); /* so that its number is not given to the next one */
    unlink(segment_path);
    const mixd::catalogue other("app_ext_table", [] {});
    EXPECT_NE(other.identity(), first);
    close(kept);
}

TEST_F(making, recounts)
{
    const mixd::catalogue made("app_ext_table", [] { tq_app_table_create(); });
    app_ext_table_add("One", "One", 65535, 1);
    *cur_app_num = 77;
    *cur_predef_app_num = 88;
    mixd::recount(made.segment());
    EXPECT_EQ(*cur_app_num, 25u);
    EXPECT_EQ(*cur_predef_app_num, 24u);
}

TEST(dead_lock, knows_this_c_librarys_layout)
{
    EXPECT_TRUE(mixd::lock_layout_is_known());
}

TEST(dead_lock, is_not_taken_over_from_a_writer_that_has_changed)
{
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    ASSERT_EQ(pthread_rwlock_wrlock(&lock), 0);
    EXPECT_FALSE(mixd::take_over(lock, gettid() + 1));
    EXPECT_FALSE(mixd::take_over(lock, 0));
    EXPECT_EQ(mixd::look_at(lock), (mixd::lock_state{true, false, gettid()}));
    pthread_rwlock_unlock(&lock);
}

TEST(dead_lock, of_one_process_alone_is_not_shared)
{
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    EXPECT_FALSE(mixd::is_shared(lock));
}

} // namespace
