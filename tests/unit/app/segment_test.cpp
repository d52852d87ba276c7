#include "catalogue_test.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <pthread.h>
#include <thread>

using namespace catalogue;

namespace
{

using attaching = unattached;

pthread_rwlock_t *lock_of(uint8_t *base)
{
    return reinterpret_cast<pthread_rwlock_t *>(base + lock_at);
}

TEST_F(attaching, asks_for_the_segment_by_name_and_size_and_returns_1)
{
    EXPECT_EQ(tq_app_table_init(), 1);
    ASSERT_EQ(platform().shared_memories.size(), 1u);
    EXPECT_EQ(platform().shared_memories[0].first, "app_ext_table");
    EXPECT_EQ(platform().shared_memories[0].second, 10878380u);
    EXPECT_EQ(platform().board_calls, (std::vector<std::string>{"tq_is_numa_platform"}));
}

TEST_F(attaching, sets_the_four_globals_into_the_segment)
{
    uint8_t *mapped = nullptr;
    platform().shared_memory = [&](const char *name, size_t size) {
        mapped = static_cast<uint8_t *>(map_shared(name, size));
        return mapped;
    };
    tq_app_table_init();
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(base(), mapped);
    EXPECT_EQ(static_cast<uint8_t *>(app_table_rwlock), mapped + 10878312);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(cur_app_num), mapped + 10878368);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(cur_predef_app_num), mapped + 10878372);
}

TEST_F(attaching, happens_once)
{
    tq_app_table_init();
    EXPECT_EQ(tq_app_table_init(), 1);
    EXPECT_EQ(platform().shared_memories.size(), 1u);
}

TEST_F(attaching, happens_once_for_threads_that_start_together)
{
    platform().shared_memory = [](const char *name, size_t size) {
        std::this_thread::sleep_for(
            std::chrono::milliseconds(50)); /* so that all have come when one is through */
        return map_shared(name, size);
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; i++)
        threads.emplace_back(tq_app_table_init);
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(platform().shared_memories.size(), 1u);
}

TEST_F(attaching, goes_by_the_slot_on_a_numa_platform)
{
    platform().board["tq_is_numa_platform"] = 1;
    platform().board["tq_get_slot"] = 7;
    EXPECT_EQ(tq_app_table_init(), 1);
    EXPECT_EQ(platform().shared_memories.at(0).first, "app_ext_table_7");
    EXPECT_EQ(platform().shared_memories.at(0).second, 10878380u);
    EXPECT_EQ(access("/dev/shm/app_ext_table", F_OK), -1);
    shm_unlink("app_ext_table_7");
}

/* What is in the lock's place before the process attaches. */
void dirty_lock(const char *name)
{
    auto *memory = static_cast<uint8_t *>(map_shared(name, segment_size));
    std::memset(memory + lock_at, 0xEE, 56);
    munmap(memory, segment_size);
}

TEST_F(attaching, leaves_the_lock_of_an_existing_segment_as_it_is)
{
    dirty_lock("app_ext_table");
    tq_app_table_init();
    EXPECT_EQ(bytes(base() + lock_at, base() + lock_at + 56), repeat(0xEE, 56));
}

TEST_F(attaching, initialises_the_lock_of_a_segment_it_creates)
{
    platform().shared_memory = [](const char *name, size_t size) {
        dirty_lock(name); /* only the path's absence before the call counts */
        return map_shared(name, size);
    };
    tq_app_table_init();
    EXPECT_EQ(pthread_rwlock_trywrlock(lock_of(base())), 0);
    EXPECT_EQ(pthread_rwlock_unlock(lock_of(base())), 0);
}

TEST_F(attaching, looks_for_the_slots_own_path_on_a_numa_platform)
{
    dirty_lock("app_ext_table"); /* another catalogue: this slot has none yet */
    platform().board["tq_is_numa_platform"] = 1;
    platform().board["tq_get_slot"] = 12;
    tq_app_table_init();
    EXPECT_EQ(pthread_rwlock_trywrlock(lock_of(base())), 0);
    EXPECT_EQ(pthread_rwlock_unlock(lock_of(base())), 0);
    detach();

    dirty_lock("app_ext_table_12"); /* now it has */
    tq_app_table_init();
    EXPECT_EQ(bytes(base() + lock_at, base() + lock_at + 56), repeat(0xEE, 56));
    shm_unlink("app_ext_table_12");
}

TEST_F(attaching, fills_nothing_in)
{
    tq_app_table_init();
    EXPECT_EQ(bytes(base(), base() + lock_at), repeat(0, lock_at));
    EXPECT_EQ(bytes(base() + counters_at, base() + segment_size), repeat(0, 12));
}

TEST_F(attaching, that_fails_returns_1_and_leaves_the_process_unattached)
{
    platform().shared_memory = nullptr;
    EXPECT_EQ(tq_app_table_init(), 1);
    EXPECT_EQ(platform().shared_memories.size(), 1u);
    EXPECT_EQ(tq_app_ext_table, nullptr);
    EXPECT_EQ(app_table_rwlock, nullptr);
    EXPECT_EQ(cur_app_num, nullptr);
    EXPECT_EQ(cur_predef_app_num, nullptr);
    EXPECT_EQ(tq_app_table_create(), -1);
}

TEST_F(attaching, is_needed_by_every_writer)
{
    EXPECT_EQ(tq_app_table_reset(), -1);
    EXPECT_EQ(app_ext_table_add("a", "b", 65535, 1), 0);
    EXPECT_EQ(app_ext_table_add("a", "b", 0, 1), 0);
    EXPECT_EQ(app_ext_table_add_element(2, 1, 1, 1, "", "", "", "", ""), -1);
    EXPECT_EQ(app_ext_table_del(2, 0), -1);
    tq_app_modify_category(16382, "a", "b", "c", "d");
    tq_app_modify_technology(16382, "a");
    tq_app_modify_app_property_and_risk(16382, 1, 2);
    EXPECT_EQ(tq_app_edit_cn_name(2, "a"), -2);
    EXPECT_TRUE(platform().shared_memories.empty()) << "only init and create attach";
}

using the_lock = seeded;

TEST_F(the_lock, holds_off_and_wakes_writers_of_other_processes)
{
    pthread_rwlock_t *lock = lock_of(base());
    ASSERT_EQ(pthread_rwlock_wrlock(lock), 0);
    int started[2];
    ASSERT_EQ(pipe(started), 0);
    const pid_t child = beside([&] {
        [[maybe_unused]] const ssize_t told = write(started[1], "x", 1);
        return app_ext_table_add("Blocked", "Blocked", 65535, 1) == 16382;
    });
    char byte;
    ASSERT_EQ(read(started[0], &byte, 1), 1);
    usleep(50000);
    EXPECT_EQ(tq_app_type2name(16382), std::string(""));
    ASSERT_EQ(pthread_rwlock_unlock(lock), 0);
    expect_held(child);
    EXPECT_EQ(tq_app_type2name(16382), std::string("Blocked"));
    close(started[0]);
    close(started[1]);
}

/* A call in a thread of its own. */
class beside_this_thread
{
  public:
    explicit beside_this_thread(std::function<int()> call) : call_(std::move(call)) {}
    /* Until it is through or sleeps. A writer sleeps nowhere but at the lock. */
    void wait_until_it_is_at_the_lock() const
    {
        while (!through_ && (number_ == 0 || !sleeps()))
            usleep(200);
    }
    int result()
    {
        thread_.join();
        return result_;
    }

  private:
    [[nodiscard]] bool sleeps() const
    {
        std::ifstream file("/proc/self/task/" + std::to_string(number_) + "/stat");
        std::string stat;
        std::getline(file, stat);
        return stat.find(") S ") != std::string::npos;
    }
    std::function<int()> call_;
    int result_ = -1000;
    std::atomic<pid_t> number_ = 0;
    std::atomic<bool> through_ = false;
    std::thread thread_{[this] {
        number_ = gettid();
        result_ = call_();
        through_ = true;
    }};
};

struct writer {
    const char *name;
    std::function<void()> call;
};

/* With an application of each kind, and room for more. */
struct with_one_of_each : seeded {
    void SetUp() override
    {
        seeded::SetUp();
        if (IsSkipped())
            return;
        ASSERT_EQ(app_ext_table_add("Mine", "Mine", 65535, 1), 16382);
        ASSERT_EQ(app_ext_table_add("Predefined", "Predefined", 0, 6), 6);
    }
};

struct every_writer : with_one_of_each, testing::WithParamInterface<writer> {
};

TEST_P(every_writer, waits_for_the_lock_and_releases_it)
{
    const bytes before(base(), base() + lock_at);
    ASSERT_EQ(pthread_rwlock_wrlock(lock_of(base())), 0);
    beside_this_thread blocked([] {
        GetParam().call();
        return 0;
    });
    blocked.wait_until_it_is_at_the_lock();
    EXPECT_EQ(bytes(base(), base() + lock_at), before) << "it wrote without the lock";
    pthread_rwlock_unlock(lock_of(base()));
    blocked.result();
    EXPECT_NE(bytes(base(), base() + lock_at), before) << "it did not write at all";
    EXPECT_EQ(pthread_rwlock_trywrlock(lock_of(base())), 0) << "it left the lock held";
    pthread_rwlock_unlock(lock_of(base()));
}

INSTANTIATE_TEST_SUITE_P(
    of_the_catalogue, every_writer,
    testing::Values(
        writer{"create", [] { tq_app_table_create(); }}, writer{"reset", [] { tq_app_table_reset(); }},
        writer{"add_user_defined", [] { app_ext_table_add("n", "c", 65535, 1); }},
        writer{"add_predefined", [] { app_ext_table_add("n", "c", 0, 5); }},
        writer{"add_element", [] { app_ext_table_add_element(2, 1, 1, 1, "a", "b", "c", "d", "e"); }},
        writer{"del", [] { app_ext_table_del(2, 0); }},
        writer{"modify_category", [] { tq_app_modify_category(16382, "a", "b", "c", "d"); }},
        writer{"modify_technology", [] { tq_app_modify_technology(16382, "a"); }},
        writer{"modify_property_and_risk", [] { tq_app_modify_app_property_and_risk(16382, 1, 2); }},
        writer{"edit_cn_name", [] { tq_app_edit_cn_name(2, "x"); }}),
    [](const auto &one) { return one.param.name; });

struct refusal {
    const char *name;
    std::function<bool()> call; /* true: it answered as it should */
    std::function<void()> prepare = [] {};
};

void add_all_user_defined()
{
    for (int i = 0; i < 512; i++)
        ASSERT_EQ(app_ext_table_add("Own", "own", 65535, 1), 16382 - i);
}

struct refused_under_the_lock : seeded, testing::WithParamInterface<refusal> {
};

TEST_P(refused_under_the_lock, leaves_it_to_other_processes)
{
    GetParam().prepare();
    EXPECT_TRUE(GetParam().call());
    expect_held(beside([] { return app_ext_table_del(2, 0) == 0; }));
    EXPECT_EQ(tq_app_type2name(2), std::string(""));
}

INSTANTIATE_TEST_SUITE_P(
    of_the_catalogue, refused_under_the_lock,
    testing::Values(
        refusal{"predefined_beyond_the_count", [] { return app_ext_table_add("n", "c", 0, 5) == 0; },
                [] { *cur_app_num = 16382; }},
        refusal{"user_defined_beyond_the_count", [] { return app_ext_table_add("n", "c", 65535, 1) == 0; },
                [] { *cur_app_num = 16382; }},
        refusal{"user_defined_without_a_free_slot", [] { return app_ext_table_add("n", "c", 65535, 1) == 0; },
                add_all_user_defined},
        refusal{"predefined_that_is_there", [] { return app_ext_table_add("n", "c", 0, 70) == 0; }},
        refusal{"predefined_out_of_range", [] { return app_ext_table_add("n", "c", 0, 15871) == 0; }},
        refusal{"deleting_a_free_entry", [] { return app_ext_table_del(71, 0) == 0; }},
        refusal{"deleting_out_of_range", [] { return app_ext_table_del(16383, 65535) == 0; }}),
    [](const auto &one) { return one.param.name; });

struct refused_before_the_lock : seeded, testing::WithParamInterface<refusal> {
};

TEST_P(refused_before_the_lock, does_not_wait_for_it)
{
    ASSERT_EQ(pthread_rwlock_wrlock(lock_of(base())), 0);
    expect_held(beside(GetParam().call));
    pthread_rwlock_unlock(lock_of(base()));
}

template <class Call>
std::function<bool()> no_result(Call call)
{
    return [call] {
        call();
        return true;
    };
}

INSTANTIATE_TEST_SUITE_P(
    of_the_catalogue, refused_before_the_lock,
    testing::Values(
        refusal{"attributes_of_a_free_entry",
                [] { return app_ext_table_add_element(71, 1, 1, 1, "a", "b", "c", "d", "e") == -1; }},
        refusal{"attributes_out_of_range",
                [] { return app_ext_table_add_element(16383, 1, 1, 1, "a", "b", "c", "d", "e") == -1; }},
        refusal{"no_chinese_name", [] { return tq_app_edit_cn_name(2, nullptr) == -1; }},
        refusal{"an_empty_chinese_name", [] { return tq_app_edit_cn_name(2, "") == -1; }},
        refusal{"the_chinese_name_of_entry_0", [] { return tq_app_edit_cn_name(0, "x") == -1; }},
        refusal{"the_chinese_name_of_a_free_entry", [] { return tq_app_edit_cn_name(71, "x") == -2; }},
        refusal{"the_chinese_name_out_of_range", [] { return tq_app_edit_cn_name(16383, "x") == -2; }},
        refusal{"a_missing_category",
                no_result([] { tq_app_modify_category(16382, "a", "b", "c", nullptr); })},
        refusal{"the_category_of_a_predefined_entry",
                no_result([] { tq_app_modify_category(2, "a", "b", "c", "d"); })},
        refusal{"the_category_of_a_free_entry",
                no_result([] { tq_app_modify_category(16382, "a", "b", "c", "d"); })},
        refusal{"a_missing_technology", no_result([] { tq_app_modify_technology(16382, nullptr); })},
        refusal{"the_technology_of_a_predefined_entry", no_result([] { tq_app_modify_technology(2, "a"); })},
        refusal{"the_technology_of_a_free_entry", no_result([] { tq_app_modify_technology(16382, "a"); })},
        refusal{"the_words_of_a_predefined_entry",
                no_result([] { tq_app_modify_app_property_and_risk(2, 1, 2); })},
        refusal{"the_words_of_a_free_entry",
                no_result([] { tq_app_modify_app_property_and_risk(16382, 1, 2); })}),
    [](const auto &one) { return one.param.name; });

/* What a writer finds when it gets the lock is not always what there was when it was called. */
struct change {
    const char *name;
    std::function<int()> call;
    std::function<void(uint8_t *base)> meanwhile;
    int result;
    std::function<bool()> done;
};

struct changed_while_waiting : with_one_of_each, testing::WithParamInterface<change> {
};

TEST_P(changed_while_waiting, goes_by_what_it_is_to_look_at_before_or_after)
{
    ASSERT_EQ(pthread_rwlock_wrlock(lock_of(base())), 0);
    beside_this_thread blocked(GetParam().call);
    blocked.wait_until_it_is_at_the_lock();
    GetParam().meanwhile(base());
    pthread_rwlock_unlock(lock_of(base()));
    EXPECT_EQ(blocked.result(), GetParam().result);
    EXPECT_TRUE(GetParam().done());
}

void flag(uint8_t *base, uint32_t index, uint8_t in_use)
{
    base[index * entry_size + 1] = in_use;
}

std::string text_at(uint32_t index, size_t offset)
{
    return reinterpret_cast<const char *>(tq_app_ext_table) + index * entry_size + offset;
}

/* Adding and deleting look under the lock; the others look first, so a deletion can slip between. */
INSTANTIATE_TEST_SUITE_P(
    of_the_catalogue, changed_while_waiting,
    testing::Values(
        change{"adding_finds_the_count_full", [] { return app_ext_table_add("n", "c", 65535, 1); },
               [](uint8_t *) { *cur_app_num = 16382; }, 0, [] { return *cur_app_num == 16382; }},
        change{"adding_finds_the_type_taken", [] { return app_ext_table_add("n", "c", 0, 5); },
               [](uint8_t *base) { flag(base, 5, 1); }, 0, [] { return *cur_app_num == 26; }},
        change{"adding_finds_the_slot_taken", [] { return app_ext_table_add("n", "c", 65535, 1); },
               [](uint8_t *base) { flag(base, 16381, 1); }, 16380, [] { return *cur_app_num == 27; }},
        change{"deleting_finds_the_entry_free", [] { return app_ext_table_del(6, 0); },
               [](uint8_t *base) { flag(base, 6, 0); }, 0,
               [] { return *cur_app_num == 26 && *cur_predef_app_num == 24; }},
        change{"attributes_go_into_an_entry_that_was_deleted",
               [] { return app_ext_table_add_element(6, 7, 8, 9, "a", "b", "c", "d", "e"); },
               [](uint8_t *base) { flag(base, 6, 0); }, 0, [] { return text_at(6, 216) == "e"; }},
        change{"a_chinese_name_goes_into_an_entry_that_was_deleted",
               [] { return tq_app_edit_cn_name(6, "x"); }, [](uint8_t *base) { flag(base, 6, 0); }, 0,
               [] { return text_at(6, 120) == "x"; }},
        change{"a_category_goes_into_an_entry_that_was_deleted",
               [] {
                   tq_app_modify_category(16382, "a", "b", "c", "d");
                   return 0;
               },
               [](uint8_t *base) { flag(base, 16382, 0); }, 0, [] { return text_at(16382, 280) == "a"; }},
        change{"a_technology_goes_into_an_entry_that_was_deleted",
               [] {
                   tq_app_modify_technology(16382, "a");
                   return 0;
               },
               [](uint8_t *base) { flag(base, 16382, 0); }, 0, [] { return text_at(16382, 216) == "a"; }},
        change{"words_go_into_an_entry_that_was_deleted",
               [] {
                   tq_app_modify_app_property_and_risk(16382, 7, 8);
                   return 0;
               },
               [](uint8_t *base) { flag(base, 16382, 0); }, 0, [] { return text_at(16382, 4) == "\x07"; }}),
    [](const auto &one) { return one.param.name; });

TEST_F(the_lock, is_not_taken_by_lookups_and_export)
{
    ASSERT_EQ(pthread_rwlock_wrlock(lock_of(base())), 0);
    EXPECT_EQ(tq_app_type2name(2), std::string("UDP-ANY"));
    EXPECT_EQ(tq_app_name2type("udp-any"), 2u);
    EXPECT_EQ(tq_app_name2type_cn("udp-any"), 2u);
    EXPECT_EQ(tq_app_userdefined_name2type("udp-any"), 0u);
    bytes page(686);
    uint32_t cursor = 0;
    int length = 0;
    EXPECT_EQ(tq_get_all_app_to_x86(page.data(), 686, &cursor, &length), 0);
    EXPECT_EQ(length, 686);
    pthread_rwlock_unlock(lock_of(base()));
}

struct several_processes : unattached {
};

TEST_F(several_processes, share_one_catalogue)
{
    expect_held(beside([] { return tq_app_table_create() == 0; })); /* the creator has come and gone */
    for (int i = 0; i < 4; i++)
        expect_held(beside([i] {
            tq_app_table_init();
            return tq_app_type2name(70) == std::string("FTP-DATA") && *cur_app_num == 24u + i &&
                   app_ext_table_add(("Own " + std::to_string(i)).c_str(), "cn", 65535, 1) == 16382 - i;
        }));
    tq_app_table_init();
    EXPECT_EQ(count(), 28u);
    EXPECT_EQ(predefined_count(), 24u);
    for (int i = 0; i < 4; i++)
        EXPECT_EQ(tq_app_type2name(static_cast<uint32_t>(16382 - i)), "Own " + std::to_string(i));
}

TEST_F(several_processes, may_map_it_at_different_addresses)
{
    ASSERT_EQ(tq_app_table_create(), 0);
    expect_held(beside([] {
        const void *inherited = tq_app_ext_table;
        forget();
        tq_app_table_init(); /* a second mapping, so at another address */
        return tq_app_ext_table != inherited && app_ext_table_add("Far", "Far", 65535, 1) == 16382;
    }));
    EXPECT_EQ(tq_app_userdefined_name2type("far"), 16382u);
    EXPECT_EQ(pthread_rwlock_trywrlock(lock_of(base())), 0);
    pthread_rwlock_unlock(lock_of(base()));
}

} // namespace
