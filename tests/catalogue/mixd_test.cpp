/* mixd as the catalogue's creator: what it makes, from which file, what outlives what, and one of it at a
 * time. */
#include "processes.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/stat.h>

using namespace catalogue;

namespace
{

struct creator : with_mixd {
    const std::string header = "type,name,name_cn,category,category_cn,subcategory,subcategory_cn,technology,"
                               "risk,flags,property\n";
    std::string list;

    void use_list(const std::string &rows)
    {
        list = place.file("list.csv", header + rows);
        mixd.arguments = {"--applications", list};
    }
    void reload(const std::string &rows)
    {
        std::ofstream(list) << header << rows;
        reload();
    }
    void reload()
    {
        const size_t before = mixd.log().size();
        kill(mixd.pid(), SIGHUP);
        ASSERT_TRUE(within(10, [&] {
            const std::string fresh = mixd.log().substr(before);
            return fresh.find("application catalogue: ") != std::string::npos ||
                   fresh.find("stays as it is") != std::string::npos;
        })) << mixd.log();
    }
};

TEST_F(creator, has_the_installed_applications_there_when_it_is_ready)
{
    start_and_attach();
    EXPECT_GE(*cur_predef_app_num, 300u);
    expect_exact_counters();
    EXPECT_STREQ(tq_app_type2name(70), "FTP-DATA");
    EXPECT_STREQ(tq_app_type2category(70), "File Transfer");
    const uint32_t dns = tq_app_name2type("dns");
    ASSERT_NE(dns, 0u);
    EXPECT_STREQ(tq_app_type2name_cn(dns), "域名系统");
    EXPECT_EQ(tq_app_name2type_cn("域名系统"), dns);
    EXPECT_STREQ(tq_app_type2category_cn(dns), "网络服务");
    EXPECT_NE(tq_apptype2risk(static_cast<int>(dns)), 0u);
}

TEST_F(creator, takes_every_field_from_the_list)
{
    use_list("1000,Alpha,阿尔法,Cat,类,Sub,子类,tech,4,1,0x12345678\n");
    start_and_attach();
    EXPECT_EQ(*cur_app_num, 25u);
    EXPECT_STREQ(tq_app_type2name(1000), "Alpha");
    EXPECT_STREQ(tq_app_type2name_cn(1000), "阿尔法");
    EXPECT_STREQ(tq_app_type2category(1000), "Cat");
    EXPECT_STREQ(tq_app_type2category_cn(1000), "类");
    EXPECT_STREQ(tq_app_type2subcategory(1000), "Sub");
    EXPECT_STREQ(tq_app_type2subcategory_cn(1000), "子类");
    EXPECT_STREQ(tq_app_type2technology(1000), "tech");
    EXPECT_EQ(tq_apptype2risk(1000), 4u);
    EXPECT_EQ(tq_apptype2shadow_it(1000), 1);
    EXPECT_EQ(tq_apptype2property(1000), 0x12345678u);
}

TEST_F(creator, describes_libmixs_own_rows_and_gives_them_chinese_names)
{
    use_list("70,FTP-DATA,文件传输数据,Cat,类,Sub,子类,tech,4,0,0\n");
    start_and_attach();
    EXPECT_EQ(*cur_app_num, 24u);
    EXPECT_STREQ(tq_app_type2name_cn(70), "文件传输数据");
    EXPECT_STREQ(tq_app_type2category(70), "Cat");
}

TEST_F(creator, reports_malformed_lines_by_file_line_and_reason_and_skips_them)
{
    use_list("1000,Alpha,,,,,,,0,0,0\n"
             "x,Beta,,,,,,,0,0,0\n"
             "1002,Gamma,,,,,,,0,0\n"
             "1003,Delta,,,,,,,0,0,0\n");
    start_and_attach();
    EXPECT_TRUE(said(list + ":3: type \"x\" is not a number")) << mixd.log();
    EXPECT_TRUE(said(list + ":4: has 10 fields, not 11")) << mixd.log();
    EXPECT_EQ(*cur_app_num, 26u);
    EXPECT_STREQ(tq_app_type2name(1000), "Alpha");
    EXPECT_STREQ(tq_app_type2name(1003), "Delta");
}

TEST_F(creator, does_not_start_without_a_list_that_was_asked_for)
{
    mixd.arguments = {"--applications", place.path() + "/none.csv"};
    EXPECT_FALSE(mixd.start());
    EXPECT_EQ(mixd.wait(), 1);
    EXPECT_TRUE(said("none.csv: No such file or directory")) << mixd.log();
    EXPECT_EQ(access(segment_path, F_OK), -1);
}

TEST_F(creator, reloads_the_list_through_the_reset)
{
    use_list("1000,Alpha,,Old,,Old,,old,4,1,7\n1001,Beta,,Old,,,,,0,0,0\n");
    start_and_attach();
    ASSERT_EQ(app_ext_table_add("Mine", "Mine", 65535, 1), 16382);
    reload("1001,Beta,,New,,,,,3,0,0\n1002,Gamma,,,,,,,0,0,0\n");
    EXPECT_STREQ(tq_app_type2name(1000), "") << "no longer in the list";
    EXPECT_STREQ(tq_app_type2category(1001), "New");
    EXPECT_EQ(tq_apptype2risk(1001), 3u);
    EXPECT_STREQ(tq_app_type2name(1002), "Gamma");
    EXPECT_STREQ(tq_app_type2name(16382), "Mine") << "user-defined ones stay";
    EXPECT_EQ(*cur_app_num, 27u);
    EXPECT_EQ(*cur_predef_app_num, 26u);
}

TEST_F(creator, leaves_no_attribute_of_an_earlier_list)
{
    use_list("1000,Alpha,,Old,旧,Old,旧,old,4,1,7\n70,FTP-DATA,,Old,旧,Old,旧,old,4,1,7\n");
    start_and_attach();
    reload("1000,Alpha,,,,,,,0,0,0\n");
    for (int type : {1000, 70}) {
        const auto index = static_cast<uint32_t>(type);
        EXPECT_STREQ(tq_app_type2category(index), "");
        EXPECT_STREQ(tq_app_type2category_cn(index), "");
        EXPECT_STREQ(tq_app_type2subcategory(index), "");
        EXPECT_STREQ(tq_app_type2subcategory_cn(index), "");
        EXPECT_STREQ(tq_app_type2technology(type), "");
        EXPECT_EQ(tq_apptype2risk(type), 0u);
        EXPECT_EQ(tq_apptype2shadow_it(type), 0);
        EXPECT_EQ(tq_apptype2property(type), 0u);
    }
}

TEST_F(creator, keeps_the_catalogue_when_the_list_is_gone_at_a_reload)
{
    use_list("1000,Alpha,,,,,,,0,0,0\n");
    start_and_attach();
    unlink(list.c_str());
    reload();
    EXPECT_TRUE(said("the application catalogue stays as it is")) << mixd.log();
    EXPECT_STREQ(tq_app_type2name(1000), "Alpha");
    EXPECT_TRUE(mixd.running());
}

TEST_F(creator, leaves_the_catalogue_alone_when_told_so)
{
    mixd.keep_catalogue = false;
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(access(segment_path, F_OK), -1);
    kill(mixd.pid(), SIGHUP);
    EXPECT_TRUE(within(5, [&] { return said("reloading"); }));
    EXPECT_EQ(mixd.stop(), 0);
    EXPECT_EQ(access(segment_path, F_OK), -1);
}

TEST_F(creator, goes_by_the_slot_on_a_numa_board)
{
    setenv("MIX_BOARD", "numa", 1);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    unsetenv("MIX_BOARD");
    EXPECT_EQ(access("/dev/shm/app_ext_table_9", F_OK), 0);
    EXPECT_EQ(access(segment_path, F_OK), -1);
    EXPECT_EQ(mixd.stop(), 0);
    unlink("/dev/shm/app_ext_table_9");
}

/* --- user-defined applications and the store --- */

void add_own()
{
    ASSERT_EQ(app_ext_table_add("First", "第一", 65535, 111), 16382);
    ASSERT_EQ(app_ext_table_add("Gap", "Gap", 65535, 112), 16381);
    ASSERT_EQ(app_ext_table_add("Third", "第三", 65535, 113), 16380);
    app_ext_table_add_element(16380, 1, 2, 3, "Sub", "子类", "Cat", "类", "tech");
    tq_app_edit_cn_name(16380, "改名");
    app_ext_table_del(16381, 65535);
}

void expect_own(uint32_t predefined)
{
    EXPECT_EQ(*cur_app_num, predefined + 2);
    EXPECT_STREQ(tq_app_type2name(16382), "First");
    EXPECT_STREQ(tq_app_type2name_cn(16382), "第一");
    EXPECT_EQ(tq_app_ext_table[16382].type, 111u);
    EXPECT_STREQ(tq_app_type2name(16381), "");
    EXPECT_EQ(tq_app_userdefined_name2type("third"), 16380u);
    EXPECT_STREQ(tq_app_type2name_cn(16380), "改名");
    EXPECT_EQ(tq_app_name2type_cn("改名"), 0u) << "the key stays that of the name it was added with";
    EXPECT_STREQ(tq_app_type2category(16380), "Cat");
    EXPECT_STREQ(tq_app_type2category_cn(16380), "类");
    EXPECT_STREQ(tq_app_type2subcategory(16380), "Sub");
    EXPECT_STREQ(tq_app_type2subcategory_cn(16380), "子类");
    EXPECT_STREQ(tq_app_type2technology(16380), "tech");
    EXPECT_EQ(tq_apptype2property(16380), 1u);
    EXPECT_EQ(tq_apptype2risk(16380), 2u);
    EXPECT_EQ(tq_app_ext_table[16380].flags, 3u);
}

TEST_F(creator, gives_a_new_segment_the_user_defined_applications_of_the_store)
{
    use_list("");
    start_and_attach();
    add_own();
    ASSERT_EQ(mixd.stop(), 0) << mixd.log();
    detach();
    unlink(segment_path); /* as a restart of the machine does */
    start_and_attach();
    expect_own(24);
    expect_exact_counters();
}

TEST_F(creator, has_stored_them_within_seconds_also_when_it_is_killed)
{
    use_list("");
    start_and_attach();
    add_own();
    usleep(3000000);
    ASSERT_EQ(mixd.stop(SIGKILL), -SIGKILL);
    detach();
    unlink(segment_path);
    start_and_attach();
    expect_own(24);
}

TEST_F(creator, believes_the_segment_that_it_kept_before_more_than_the_store)
{
    use_list("");
    start_and_attach();
    ASSERT_EQ(app_ext_table_add("Stored", "Stored", 65535, 1), 16382);
    ASSERT_EQ(mixd.stop(), 0);
    app_ext_table_del(16382, 65535); /* while no mixd runs */
    ASSERT_EQ(app_ext_table_add("Later", "Later", 65535, 1), 16382);
    ASSERT_EQ(app_ext_table_add("More", "More", 65535, 1), 16381);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_STREQ(tq_app_type2name(16382), "Later");
    EXPECT_STREQ(tq_app_type2name(16381), "More");
    ASSERT_EQ(mixd.stop(), 0);
    detach();
    unlink(segment_path);
    start_and_attach();
    EXPECT_STREQ(tq_app_type2name(16382), "Later");
    EXPECT_STREQ(tq_app_type2name(16381), "More");
    EXPECT_EQ(*cur_app_num, 26u);
}

TEST_F(creator, adopts_a_segment_that_a_client_made_first)
{
    use_list("1000,Alpha,,,,,,,0,0,0\n");
    start_and_attach();
    ASSERT_EQ(app_ext_table_add("Stored", "Stored", 65535, 1), 16382);
    ASSERT_EQ(app_ext_table_add("Kept", "Kept", 65535, 1), 16381);
    ASSERT_EQ(mixd.stop(), 0);
    detach();
    unlink(segment_path);
    tq_app_table_init(); /* this client is the first after the restart */
    ASSERT_EQ(app_ext_table_add("Newer", "Newer", 65535, 1), 16382);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_STREQ(tq_app_type2name(1000), "Alpha") << "in the client's own mapping";
    EXPECT_STREQ(tq_app_type2name(70), "FTP-DATA");
    EXPECT_STREQ(tq_app_type2name(16382), "Newer") << "a slot that is taken stays";
    EXPECT_STREQ(tq_app_type2name(16381), "Kept");
    EXPECT_EQ(*cur_app_num, 27u);
    expect_exact_counters();
}

TEST_F(creator, leaves_the_segment_to_its_clients_when_it_ends_and_comes_back_to_it)
{
    start_and_attach();
    const uint32_t before = *cur_app_num;
    ASSERT_EQ(mixd.stop(), 0);
    EXPECT_EQ(*cur_app_num, before);
    EXPECT_EQ(app_ext_table_add("Mine", "Mine", 65535, 1), 16382);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_STREQ(tq_app_type2name(16382), "Mine");
    EXPECT_EQ(*cur_app_num, before + 1);
    expect_exact_counters();
}

/* --- several at once --- */

TEST_F(creator, is_one_of_eight_that_start_together)
{
    std::vector<pid_t> starters;
    const shared<std::atomic<int>> started, refused;
    for (int i = 0; i < 8; i++)
        starters.push_back(beside([&, i] {
            mixd_process one(place.path() + "/run" + std::to_string(i));
            one.keep_catalogue = true;
            if (one.start()) {
                ++*started;
                within(20, [&] { return *refused + *started == 8; });
                return one.stop() == 0;
            }
            const bool right =
                one.wait() == 1 &&
                one.log().find("another mixd keeps the application catalogue") != std::string::npos;
            ++*refused;
            return right;
        }));
    for (pid_t starter : starters)
        EXPECT_TRUE(ends_well(starter, 60));
    EXPECT_EQ(*started, 1);
    EXPECT_EQ(*refused, 7);
    tq_app_table_init();
    EXPECT_GE(*cur_app_num, 300u);
    expect_exact_counters();
}

TEST_F(creator, refuses_by_name_what_another_keeps_and_says_what_to_do)
{
    start_and_attach();
    mixd_process second(place.path() + "/second");
    second.keep_catalogue = true;
    EXPECT_FALSE(second.start());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_NE(second.log().find("another mixd keeps the application catalogue /dev/shm/app_ext_table; "
                                "--share-catalogue leaves it to that one"),
              std::string::npos)
        << second.log();
}

struct sharing : creator {
    mixd_process second{place.path() + "/second"};

    void start_second()
    {
        second.keep_catalogue = true;
        second.arguments = {"--share-catalogue"};
        ASSERT_TRUE(second.start()) << second.log();
    }
    void expect_left(const std::string &to_whom)
    {
        EXPECT_NE(second.log().find(to_whom + " keeps the application catalogue /dev/shm/app_ext_table; "
                                              "it is left to that one"),
                  std::string::npos)
            << second.log();
    }
};

TEST_F(sharing, leaves_the_catalogue_to_the_mixd_that_keeps_it_and_serves_the_rest)
{
    use_list("1000,Alpha,,,,,,,0,0,0\n");
    start_and_attach();
    start_second();
    expect_left("another mixd");
    raw_client client;
    EXPECT_TRUE(client.open(second, "node0/0.201.sock")) << "the second does not answer";
    kill(second.pid(), SIGHUP);
    EXPECT_TRUE(within(5, [&] { return second.log().find("reloading") != std::string::npos; }));
    EXPECT_EQ(second.stop(), 0) << second.log();
    EXPECT_EQ(*cur_app_num, 25u);
    EXPECT_STREQ(tq_app_type2name(1000), "Alpha");
    expect_exact_counters();
}

TEST_F(sharing, keeps_the_catalogue_where_nobody_does)
{
    start_second();
    tq_app_table_init();
    EXPECT_GE(*cur_predef_app_num, 300u);
    EXPECT_EQ(second.log().find("left to that one"), std::string::npos);
    EXPECT_FALSE(mixd.start()) << "it keeps it as any other does";
}

/* As for a user whose catalogue it is not. */
bool drop_file_capabilities()
{
    return prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE) == 0 && prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH) == 0;
}

TEST_F(sharing, leaves_the_catalogue_of_another_user_alone)
{
    start_and_attach();
    ASSERT_EQ(chmod(segment_path, 0), 0);
    second.before_exec = drop_file_capabilities;
    start_second();
    expect_left("another user");
    EXPECT_EQ(second.stop(), 0);
    second.arguments = {};
    EXPECT_FALSE(second.start());
    EXPECT_NE(second.log().find("another user keeps the application catalogue"), std::string::npos)
        << second.log();
}

/* A writer that stops while it holds the lock; 0 after it has gone on and ended. */
struct stopped_writer {
    pid_t child;

    stopped_writer()
        : child(beside([] {
              auto *lock = static_cast<pthread_rwlock_t *>(app_table_rwlock);
              pthread_rwlock_wrlock(lock);
              raise(SIGSTOP);
              return pthread_rwlock_unlock(lock) == 0;
          }))
    {
        waitpid(child, nullptr, WUNTRACED);
    }
    [[nodiscard]] bool goes_on() const
    {
        kill(child, SIGCONT);
        return ends_well(child, 5);
    }
};

TEST_F(creator, answers_while_a_stopped_writer_holds_up_a_reload_and_loads_after_it)
{
    use_list("1000,Alpha,,,,,,,0,0,0\n");
    start_and_attach();
    const stopped_writer writer;
    std::ofstream(list) << header << "1001,Beta,,,,,,,0,0,0\n";
    kill(mixd.pid(), SIGHUP);
    ASSERT_TRUE(within(5, [&] { return said("reloading"); }));
    for (int i = 0; i < 3; i++) {
        usleep(500000);
        raw_client client;
        EXPECT_TRUE(client.open(mixd, "node0/0.201.sock"));
    }
    EXPECT_STREQ(tq_app_type2name(1001), "");
    EXPECT_TRUE(writer.goes_on());
    EXPECT_TRUE(within(10, [&] { return tq_app_name2type("Beta") == 1001; })) << mixd.log();
    EXPECT_STREQ(tq_app_type2name(1000), "");
}

using creator_slow = creator; /* waits for seconds */

TEST_F(creator_slow, does_not_wait_for_ever_for_a_stopped_writer_when_it_starts)
{
    start_and_attach();
    ASSERT_EQ(mixd.stop(), 0);
    const stopped_writer writer;
    EXPECT_FALSE(mixd.start());
    EXPECT_EQ(mixd.wait(), 1);
    EXPECT_TRUE(
        said("thread " + std::to_string(writer.child) + " holds the lock of the application catalogue"))
        << mixd.log();
    EXPECT_TRUE(writer.goes_on());
    EXPECT_TRUE(mixd.start()) << mixd.log();
}

TEST_F(creator, is_one_of_eight_on_one_run_directory)
{
    std::vector<pid_t> starters;
    const shared<std::atomic<int>> started, refused;
    for (int i = 0; i < 8; i++)
        starters.push_back(beside([&, i] {
            for (int others = 0; others < i; others++)
                mixd_process(place.path() + "/run"); /* numbers its log */
            mixd_process one(place.path() + "/run");
            one.keep_catalogue = true;
            one.arguments = {"--store", place.path() + "/store" + std::to_string(i)};
            if (one.start()) {
                ++*started;
                within(20, [&] { return *refused + *started == 8; });
                return one.stop() == 0;
            }
            ++*refused;
            return one.wait() == 1;
        }));
    for (pid_t starter : starters)
        EXPECT_TRUE(ends_well(starter, 60));
    EXPECT_EQ(*started, 1);
    EXPECT_EQ(*refused, 7);
}

/* A client that is there before mixd: it waits for the name and finds a catalogue that is ready, lock and
 * all. */
bool waits_and_finds_it_ready()
{
    if (!within(20, [] { return access(segment_path, F_OK) == 0; }))
        return false;
    tq_app_table_init();
    const uint32_t dns = tq_app_name2type("DNS");
    const bool ready = *cur_predef_app_num >= 300 && dns != 0 && tq_app_name2type("FTPS-DATA") == 6102 &&
                       std::string(tq_app_type2category(dns)) == "Network Service" &&
                       tq_app_type2category(6102)[0] != '\0';
    return ready && app_ext_table_add("Client", "Client", 65535, 1) >= 15871;
}

TEST_F(creator, shows_clients_that_wait_for_it_a_catalogue_that_is_ready)
{
    for (int round = 0; round < 10; round++) {
        std::vector<pid_t> clients;
        for (int i = 0; i < 4; i++)
            clients.push_back(beside(waits_and_finds_it_ready));
        ASSERT_TRUE(mixd.start()) << mixd.log();
        for (pid_t client : clients)
            EXPECT_TRUE(ends_well(client, 30));
        ASSERT_EQ(mixd.stop(), 0);
        unlink(segment_path);
        std::filesystem::remove_all(mixd.run_dir());
    }
}

} // namespace
