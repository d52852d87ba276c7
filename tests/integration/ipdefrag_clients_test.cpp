/* libmix's own clients of the fragment settings against a mixd, as processes. */
#include <chrono>
#include <csignal>
#include <cstring>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <libmix/ipdefrag.h>

#include "support/mixd_fixture.h"
#include "support/printed.h"

using namespace mixtest;
using mix::wire::fault_kind;

namespace
{

constexpr uint32_t untouched = 0xdeadbeef;

struct clients : mixd_test {
    uint32_t first = untouched, second = untouched;

    void SetUp() override
    {
        printed.clear();
        mixd_test::SetUp();
    }
    void prepare() override
    {
        mixd.arguments = {"--scenario", place.file("s.toml", "[ipdefrag]\nfragments = 4321\nseconds = 21\n")};
    }
    int get() { return get_ipdefrag_para(&first, &second, collect_print); }
    void expect_settings(uint32_t wanted_first, uint32_t wanted_second)
    {
        EXPECT_EQ(get(), 0);
        EXPECT_EQ(first, wanted_first);
        EXPECT_EQ(second, wanted_second);
        EXPECT_EQ(printed, "");
    }
    void expect_failure(const std::string &text)
    {
        EXPECT_EQ(get(), -1);
        EXPECT_EQ(printed, text);
        EXPECT_EQ(first, untouched);
        EXPECT_EQ(second, untouched);
        printed.clear();
    }
};

TEST_F(clients, read_what_they_set)
{
    expect_settings(4321, 21);
    EXPECT_EQ(set_ipdefrag_para(500, 0, collect_print), 0);
    expect_settings(500, 21);
    EXPECT_EQ(set_ipdefrag_para(0, 60, collect_print), 0);
    expect_settings(500, 60);
    EXPECT_EQ(set_ipdefrag_para(65535, 3600, collect_print), 0);
    expect_settings(65535, 3600);
    EXPECT_EQ(set_ipdefrag_para(0, 0, collect_print), 0);
    expect_settings(65535, 3600);
}

TEST_F(clients, print_the_gateways_refusal_and_change_nothing)
{
    EXPECT_EQ(set_ipdefrag_para(-1, 0, collect_print), 0);
    EXPECT_EQ(printed, "fragment count limit must be 1 to 65535");
    printed.clear();
    EXPECT_EQ(set_ipdefrag_para(5, 3601, collect_print), 0);
    EXPECT_EQ(printed, "reassembly time must be 1 to 3600 seconds");
    printed.clear();
    EXPECT_EQ(set_ipdefrag_para(5, 3601, nullptr), 0);
    expect_settings(4321, 21);
}

TEST_F(clients, go_on_after_a_restart_between_two_requests)
{
    expect_settings(4321, 21);
    EXPECT_EQ(set_ipdefrag_para(500, 60, collect_print), 0);
    EXPECT_EQ(mixd.stop(), 0);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    expect_settings(500, 60);
    EXPECT_EQ(mixd.stop(SIGKILL), -SIGKILL);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(set_ipdefrag_para(501, 0, collect_print), 0);
    expect_settings(501, 60);
}

TEST_F(clients, lose_nothing_that_was_committed_when_mixd_is_killed)
{
    for (int i = 1; i <= 5; ++i) {
        EXPECT_EQ(set_ipdefrag_para(600 + i, 70 + i, collect_print), 0);
        EXPECT_EQ(mixd.stop(SIGKILL), -SIGKILL);
        ASSERT_TRUE(mixd.start()) << mixd.log();
        expect_settings(static_cast<uint32_t>(600 + i), static_cast<uint32_t>(70 + i));
    }
}

TEST_F(clients, tell_at_once_that_nobody_is_there)
{
    EXPECT_EQ(mixd.stop(), 0);
    const auto began = std::chrono::steady_clock::now();
    expect_failure("ipcmsg send failed\n");
    EXPECT_LT(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(250));
    EXPECT_EQ(set_ipdefrag_para(5, 5, collect_print), 0);
    EXPECT_EQ(printed, "management gateway does not answer");
}

struct fault_seen {
    const char *name;
    fault_kind kind;
    int32_t value;
    const char *printed;
};

class clients_of_a_faulty_service : public clients, public testing::WithParamInterface<fault_seen>
{
};

TEST_P(clients_of_a_faulty_service, fail_with_the_right_text_and_work_afterwards)
{
    ASSERT_EQ(inject(mixd, 0, 38, GetParam().kind, GetParam().value, 1), 0);
    expect_failure(GetParam().printed);
    expect_settings(4321, 21);
}

INSTANTIATE_TEST_SUITE_P(
    every_kind, clients_of_a_faulty_service,
    testing::Values(
        fault_seen{"refuse", fault_kind::refuse, -5, "fragment setting show failed, ret is -5\n"},
        fault_seen{"two_bytes_short", fault_kind::short_reply, 2, "Received buf len is wrong, len is 2\n"},
        fault_seen{"empty", fault_kind::short_reply, 4, "Received buf len is wrong, len is 0\n"},
        fault_seen{"four_bytes_long", fault_kind::long_reply, 4, "Received buf len is wrong, len is 8\n"},
        fault_seen{"very_long", fault_kind::long_reply, 60000, "Received buf len is wrong, len is 60004\n"},
        fault_seen{"overstated", fault_kind::overstated, 100, "ipcmsg send failed\n"},
        fault_seen{"dropped", fault_kind::drop, 0, "ipcmsg send failed\n"},
        fault_seen{"too_late", fault_kind::delay, 700, "ipcmsg send failed\n"}),
    [](const auto &one) { return one.param.name; });

TEST_F(clients, wait_for_an_answer_that_is_late_but_in_time)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::delay, 100, 1), 0);
    const auto began = std::chrono::steady_clock::now();
    expect_settings(4321, 21);
    EXPECT_GE(std::chrono::steady_clock::now() - began, std::chrono::milliseconds(100));
}

TEST_F(clients, fail_when_mixd_dies_under_their_request_and_work_when_it_is_back)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::crash, 0, 1), 0);
    expect_failure("ipcmsg send failed\n");
    EXPECT_EQ(mixd.wait(), -SIGKILL);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    expect_settings(4321, 21);
}

/* --apply writes the kernel's settings, so mixd and the reader of /proc live in a network namespace of their
 * own. */
struct applied_settings : testing::Test {
    temporary_directory place;
    mixd_process mixd{place.path() + "/run"};

    bool start()
    {
        mixd.arguments = {"--apply"};
        mixd.before_exec = [] { return unshare(CLONE_NEWNET) == 0; };
        return mixd.start();
    }
    /* The file as the namespace of mixd has it: /proc/sys/net follows the reading process. */
    [[nodiscard]] int kernel(const std::string &name) const
    {
        const std::string file = "/proc/sys/net/ipv4/" + name;
        const std::string command =
            "nsenter --net=/proc/" + std::to_string(mixd.pid()) + "/ns/net cat " + file + " 2>&1";
        FILE *pipe = popen(command.c_str(), "re");
        int value = -1;
        if (fscanf(pipe, "%d", &value) != 1)
            value = -1;
        pclose(pipe);
        return value;
    }
};

TEST_F(applied_settings, are_the_kernels_now_and_after_a_restart)
{
    setenv("MIX_RUN_DIR", mixd.run_dir().c_str(), 1);
    printed.clear();
    if (!start()) {
        ASSERT_EQ(mixd.wait(), 77) << mixd.log();
        GTEST_SKIP() << "no network namespaces here";
    }
    if (kernel("ipfrag_time") < 0)
        GTEST_SKIP() << "the settings of another network namespace can't be read here";
    EXPECT_EQ(set_ipdefrag_para(77, 41, collect_print), 0);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(kernel("ipfrag_max_dist"), 77);
    EXPECT_EQ(kernel("ipfrag_time"), 41);
    EXPECT_EQ(set_ipdefrag_para(0, 3601, nullptr), 0);
    EXPECT_EQ(kernel("ipfrag_time"), 41);
    EXPECT_EQ(mixd.stop(), 0);
    ASSERT_TRUE(start()) << mixd.log();
    EXPECT_EQ(kernel("ipfrag_max_dist"), 77) << "the new namespace gets what is committed";
    EXPECT_EQ(kernel("ipfrag_time"), 41);
}

} // namespace
