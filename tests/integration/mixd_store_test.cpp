/* What was committed: kept over a kill, over a full disk, away from programs that would spoil it. */
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sqlite3.h>

#include "support/mixd_fixture.h"

using namespace mixtest;
using namespace mix::wire;

namespace
{

constexpr const char *main_daemon = "node0/0.0.sock";
constexpr const char *gateway = "node0/0.200.sock";
constexpr uint32_t object = 0x1a0001;

struct settings {
    int first = -1, second = -1;
    bool operator==(const settings &) const = default;
};

std::ostream &operator<<(std::ostream &out, const settings &shown)
{
    return out << shown.first << "," << shown.second;
}

settings shown_by(const mixd_process &mixd)
{
    raw_client client;
    if (!client.open(mixd, main_daemon))
        return {};
    const auto answer = client.ask(38, {2, 0, 0, 0});
    if (!answer || answer->status < 0 || answer->payload.size() != 4)
        return {};
    const bytes &at = answer->payload;
    return {at[0] | at[1] << 8, at[2] | at[3] << 8};
}

int kernel_number(const char *file)
{
    int value = -1;
    std::ifstream(file) >> value;
    return value;
}

settings of_the_kernel()
{
    return {kernel_number("/proc/sys/net/ipv4/ipfrag_max_dist"),
            kernel_number("/proc/sys/net/ipv4/ipfrag_time")};
}

struct fragment_settings : mixd_test {
    gateway_answer change(uint32_t mask, uint32_t first, uint32_t second, uint8_t language = 0)
    {
        raw_client client;
        EXPECT_TRUE(client.open(mixd, gateway));
        const auto answer = commit_record(client, object, mask, {0, first, second}, language);
        EXPECT_TRUE(answer);
        return answer.value_or(gateway_answer{-99, ""});
    }
};

TEST_F(fragment_settings, are_the_kernels_until_they_are_set)
{
    if (of_the_kernel() == settings{})
        GTEST_SKIP() << "this kernel has no fragment settings";
    EXPECT_EQ(shown_by(mixd), of_the_kernel());
    EXPECT_EQ(change(2, 777, 0).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{777, of_the_kernel().second}));
    EXPECT_NE(of_the_kernel().first, 777) << "without --apply the kernel is left alone";
}

TEST_F(fragment_settings, are_changed_one_by_one_and_together)
{
    EXPECT_EQ(change(6, 100, 40).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{100, 40}));
    EXPECT_EQ(change(4, 999, 41).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{100, 41}));
    EXPECT_EQ(change(0, 5, 5).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{100, 41}));
}

TEST_F(fragment_settings, are_there_after_a_kill_right_after_the_commit)
{
    for (uint32_t round = 1; round <= 5; ++round) {
        ASSERT_EQ(change(6, 1000 + round, 50 + round).result, 0);
        EXPECT_EQ(mixd.stop(SIGKILL), -SIGKILL);
        ASSERT_TRUE(mixd.start()) << mixd.log();
        EXPECT_EQ(shown_by(mixd), (settings{int(1000 + round), int(50 + round)}));
    }
}

TEST_F(fragment_settings, are_there_after_a_clean_stop)
{
    ASSERT_EQ(change(6, 1234, 56).result, 0);
    EXPECT_EQ(mixd.stop(), 0);
    EXPECT_NE(access(mixd.socket(main_daemon).c_str(), F_OK), 0) << "a clean stop takes the sockets away";
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(shown_by(mixd), (settings{1234, 56}));
}

struct bad_change {
    const char *name;
    uint32_t mask, first, second;
    uint8_t language;
    int32_t result;
    const char *text;
};

class refused_change : public fragment_settings, public testing::WithParamInterface<bad_change>
{
};

TEST_P(refused_change, has_a_reason_and_changes_nothing)
{
    ASSERT_EQ(change(6, 100, 40).result, 0);
    const bad_change &bad = GetParam();
    const gateway_answer answer = change(bad.mask, bad.first, bad.second, bad.language);
    EXPECT_EQ(answer.result, bad.result);
    EXPECT_EQ(answer.text, bad.text);
    EXPECT_EQ(shown_by(mixd), (settings{100, 40}));
}

INSTANTIATE_TEST_SUITE_P(
    values, refused_change,
    testing::Values(
        bad_change{"first_zero", 2, 0, 0, 0, result_bad_value, "fragment count limit must be 1 to 65535"},
        bad_change{"first_too_large", 2, 65536, 0, 0, result_bad_value,
                   "fragment count limit must be 1 to 65535"},
        bad_change{"first_in_chinese", 2, 65536, 0, 1, result_bad_value, "分片数量限制必须在1到65535之间"},
        bad_change{"second_zero", 4, 0, 0, 0, result_bad_value, "reassembly time must be 1 to 3600 seconds"},
        bad_change{"second_too_large", 4, 0, 3601, 0, result_bad_value,
                   "reassembly time must be 1 to 3600 seconds"},
        bad_change{"second_in_chinese", 4, 0, 3601, 1, result_bad_value, "重组时间必须在1到3600秒之间"},
        bad_change{"good_first_bad_second", 6, 5, 3601, 0, result_bad_value,
                   "reassembly time must be 1 to 3600 seconds"},
        bad_change{"unknown_field", 7, 5, 5, 0, result_unknown_attribute, "no such attribute"},
        bad_change{"field_beyond_the_record", 8, 5, 5, 0, result_malformed, "request malformed"},
        bad_change{"field_beyond_in_chinese", 8, 5, 5, 1, result_malformed, "请求格式错误"}),
    [](const auto &one) { return one.param.name; });

TEST_F(fragment_settings, take_the_largest_and_the_smallest_values)
{
    EXPECT_EQ(change(6, 65535, 3600).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{65535, 3600}));
    EXPECT_EQ(change(6, 1, 1).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{1, 1}));
}

TEST_F(fragment_settings, know_no_other_object_than_their_own)
{
    raw_client client;
    ASSERT_TRUE(client.open(mixd, gateway));
    const auto unknown = commit_record(client, 0x1a0002, 2, {0, 1, 1});
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->result, result_unknown_object);
    EXPECT_EQ(unknown->text, "no such object");
}

TEST_F(fragment_settings, refuse_a_request_that_is_not_show)
{
    raw_client client;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    for (const bytes &wrong : {bytes{}, bytes{2, 0, 0}, bytes{1, 0, 0, 0}, bytes{3, 0, 0, 0}}) {
        const auto answer = client.ask(38, wrong);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, -EINVAL);
        EXPECT_TRUE(answer->payload.empty());
    }
}

/* The write-ahead log grows with every commit until the limit stops it. */
struct store_without_room : fragment_settings {
    void change_until_refused()
    {
        for (uint32_t i = 1; i < 2000; ++i) {
            const gateway_answer answer = change(6, 1000 + i, 100);
            if (answer.result != 0) {
                EXPECT_EQ(answer.result, result_store_failed);
                EXPECT_EQ(answer.text, "configuration could not be stored: no space left for the store");
                return;
            }
            last_good = 1000 + i;
        }
        FAIL() << "the store never filled up";
    }
    void expect_served_and_unchanged()
    {
        ASSERT_GT(last_good, 1000u);
        EXPECT_EQ(shown_by(mixd), (settings{int(last_good), 100}));
        EXPECT_EQ(change(6, 5, 5, 1).text, "配置无法保存：存储空间不足");
        EXPECT_EQ(shown_by(mixd), (settings{int(last_good), 100}));
    }
    uint32_t last_good = 0;
};

struct store_under_a_size_limit : store_without_room {
    void prepare() override
    {
        mixd.before_exec = [] {
            const rlimit limit = {512 * 1024, RLIM_INFINITY};
            return setrlimit(RLIMIT_FSIZE, &limit) == 0;
        };
    }
};

TEST_F(store_under_a_size_limit, refuses_changes_and_goes_on_when_there_is_room_again)
{
    change_until_refused();
    expect_served_and_unchanged();
    const rlimit none = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(prlimit(mixd.pid(), RLIMIT_FSIZE, &none, nullptr), 0);
    EXPECT_EQ(change(6, 7, 7).result, 0);
    EXPECT_EQ(shown_by(mixd), (settings{7, 7}));
    EXPECT_EQ(mixd.stop(SIGKILL), -SIGKILL);
    mixd.before_exec = nullptr;
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(shown_by(mixd), (settings{7, 7}));
}

/* A file system of 512 KiB of its own; the child is alone in the mount namespace that has it. */
struct store_on_a_full_disk : store_without_room {
    void SetUp() override
    {
        setenv("MIX_RUN_DIR", mixd.run_dir().c_str(), 1);
        const std::string disk = place.path() + "/disk";
        ASSERT_EQ(mkdir(disk.c_str(), 0700), 0);
        mixd.arguments = {"--store", disk + "/mixd.db"};
        mixd.before_exec = [disk] {
            const int flags = geteuid() == 0 ? CLONE_NEWNS : CLONE_NEWNS | CLONE_NEWUSER;
            return unshare(flags) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=512k,mode=0700") == 0;
        };
        if (!mixd.start()) {
            ASSERT_EQ(mixd.wait(), 77) << mixd.log();
            GTEST_SKIP() << "no mount namespaces here";
        }
    }
};

TEST_F(store_on_a_full_disk, refuses_changes_and_serves_on)
{
    change_until_refused();
    expect_served_and_unchanged();
    EXPECT_TRUE(mixd.running());
}

struct store_files : testing::Test {
    temporary_directory place;
    mixd_process mixd{place.path() + "/run"};
    std::string store = place.path() + "/store.db";

    void expect_refused(const std::string &reason)
    {
        mixd.arguments = {"--store", store};
        EXPECT_FALSE(mixd.start());
        EXPECT_EQ(mixd.wait(), 1);
        EXPECT_NE(mixd.log().find(store), std::string::npos) << mixd.log();
        EXPECT_NE(mixd.log().find(reason), std::string::npos) << mixd.log();
    }
    void run_sql(const char *sql)
    {
        sqlite3 *db = nullptr;
        ASSERT_EQ(sqlite3_open(store.c_str(), &db), SQLITE_OK);
        EXPECT_EQ(sqlite3_exec(db, sql, nullptr, nullptr, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        sqlite3_close(db);
    }
    void make_store()
    {
        mixd.arguments = {"--store", store};
        ASSERT_TRUE(mixd.start()) << mixd.log();
        ASSERT_EQ(mixd.stop(), 0);
    }
};

TEST_F(store_files, of_a_newer_service_schema_are_refused)
{
    make_store();
    run_sql("UPDATE schema_version SET version=99 WHERE service='ipdefrag'");
    expect_refused("written by a newer mixd (ipdefrag has schema 99, this one knows 1)");
}

TEST_F(store_files, of_a_newer_layout_are_refused)
{
    make_store();
    run_sql("PRAGMA user_version=2");
    expect_refused("written by a newer mixd (layout 2, this one knows 1)");
}

TEST_F(store_files, of_another_program_are_refused)
{
    run_sql("CREATE TABLE letters(body TEXT)");
    expect_refused("not a store of mixd");
}

TEST_F(store_files, that_are_no_database_are_refused)
{
    std::ofstream(store) << std::string(5000, 'x');
    expect_refused("not a database");
}

TEST_F(store_files, that_another_mixd_has_open_are_refused)
{
    mixd_process first{place.path() + "/first"};
    first.arguments = {"--store", store};
    ASSERT_TRUE(first.start()) << first.log();
    expect_refused("another process has it open");
    EXPECT_TRUE(first.running());
    EXPECT_EQ(first.stop(), 0);
}

TEST_F(store_files, without_a_directory_get_one)
{
    store = place.path() + "/deep/er/store.db";
    make_store();
    struct stat there {
    };
    ASSERT_EQ(stat(store.c_str(), &there), 0);
    EXPECT_EQ(there.st_mode & 0777, 0600u);
}

} // namespace
