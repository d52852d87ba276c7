#include <libmix/ipdefrag.h>

#include "support/client_suite.h"

using namespace mixtest;

namespace
{

struct get_ipdefrag : platform_test {
    uint32_t first = 111, second = 222;

    int call(print_callback print = collect_print) { return get_ipdefrag_para(&first, &second, print); }
    void expect_outputs_untouched() const
    {
        EXPECT_EQ(first, 111u);
        EXPECT_EQ(second, 222u);
    }
};

TEST_F(get_ipdefrag, sends_the_show_request_to_the_main_daemon)
{
    check_request({"", [this] { call(); }, 0, 38, {2, 0, 0, 0}, 4});
}

TEST_F(get_ipdefrag, stores_both_settings_zero_extended_and_returns_the_status)
{
    platform().answers = {{0, 7, {0xff, 0xff, 0x34, 0x92}, {}}};
    EXPECT_EQ(call(), 7);
    EXPECT_EQ(first, 0xffffu);
    EXPECT_EQ(second, 0x9234u);
    EXPECT_EQ(printed, "");
}

TEST_F(get_ipdefrag, tells_a_missing_request_buffer)
{
    platform().fail_allocation(1);
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(printed, "No enough memory\n");
    EXPECT_TRUE(platform().messages.empty());
    expect_outputs_untouched();
}

TEST_F(get_ipdefrag, is_silent_about_a_missing_reply_buffer)
{
    platform().fail_allocation(2);
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(platform().messages.empty());
    expect_outputs_untouched();
}

struct failure {
    const char *name;
    answer with;
    const char *text;
};

struct get_ipdefrag_failing : get_ipdefrag, testing::WithParamInterface<failure> {
};

TEST_P(get_ipdefrag_failing, prints_returns_minus_one_and_leaves_the_outputs)
{
    platform().fallback = GetParam().with;
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(printed, GetParam().text);
    expect_outputs_untouched();
}

TEST_P(get_ipdefrag_failing, does_the_same_without_a_print_callback)
{
    platform().fallback = GetParam().with;
    EXPECT_EQ(call(nullptr), -1);
    expect_outputs_untouched();
}

INSTANTIATE_TEST_SUITE_P(
    every_failure, get_ipdefrag_failing,
    testing::Values(
        failure{"not_sent", {-1, 0, {}, {}}, "ipcmsg send failed\n"},
        failure{"not_sent_comes_before_the_status", {-9, -5, {1}, {}}, "ipcmsg send failed\n"},
        failure{"refused", {0, -5, {1, 0, 2, 0}, {}}, "fragment setting show failed, ret is -5\n"},
        failure{
            "refused_comes_before_the_length", {0, -1, {1}, {}}, "fragment setting show failed, ret is -1\n"},
        failure{"empty", {0, 0, {}, {}}, "Received buf len is wrong, len is 0\n"},
        failure{"short_by_two", {0, 0, {1, 0}, {}}, "Received buf len is wrong, len is 2\n"},
        failure{"short_by_one", {0, 0, {1, 0, 2}, {}}, "Received buf len is wrong, len is 3\n"},
        failure{"long_by_one", {0, 0, {1, 0, 2, 0, 3}, {}}, "Received buf len is wrong, len is 5\n"},
        failure{"twice_as_long", {0, 0, repeat(1, 8), {}}, "Received buf len is wrong, len is 8\n"}),
    [](const auto &one) { return one.param.name; });

struct set_ipdefrag : platform_test {
    const record_call &only_call()
    {
        EXPECT_EQ(platform().record_calls.size(), 1u);
        return platform().record_calls.at(0);
    }
};

TEST_F(set_ipdefrag, hands_a_record_of_three_fields_to_the_gateway)
{
    EXPECT_EQ(set_ipdefrag_para(300, 30, collect_print), 0);
    const record_call &call = only_call();
    EXPECT_EQ(call.header, join({{1, 0, 0x1a, 0}, repeat(0, 36)}));
    EXPECT_EQ(call.one, 1);
    EXPECT_EQ(call.two, 2);
    EXPECT_EQ(call.record_size, 12u);
    EXPECT_EQ(call.zero1, 0);
    EXPECT_EQ(call.zero2, 0);
    EXPECT_EQ(call.mask, 6u);
    EXPECT_EQ(call.zero3, 0);
    EXPECT_EQ(call.record, join({le32(0), le32(300), le32(30)}));
    EXPECT_EQ(call.hook, ip_defrag_mgi_get_resp);
    EXPECT_EQ(call.made_size, 12u);
    EXPECT_EQ(platform().exchange_text_arguments, (std::vector<int>{0}));
    EXPECT_EQ(printed, "");
    EXPECT_EQ(platform().allocations, 0u) << "the record comes from the general heap";
}

TEST_F(set_ipdefrag, marks_only_the_first_setting)
{
    EXPECT_EQ(set_ipdefrag_para(5, 0, collect_print), 0);
    EXPECT_EQ(only_call().mask, 2u);
    EXPECT_EQ(only_call().record, join({le32(0), le32(5), le32(0)}));
}

TEST_F(set_ipdefrag, marks_only_the_second_setting)
{
    EXPECT_EQ(set_ipdefrag_para(0, 9, collect_print), 0);
    EXPECT_EQ(only_call().mask, 4u);
    EXPECT_EQ(only_call().record, join({le32(0), le32(0), le32(9)}));
}

TEST_F(set_ipdefrag, makes_the_exchange_with_an_empty_mask)
{
    EXPECT_EQ(set_ipdefrag_para(0, 0, collect_print), 0);
    EXPECT_EQ(only_call().mask, 0u);
    EXPECT_EQ(only_call().made_size, 12u);
}

TEST_F(set_ipdefrag, stores_arguments_unchanged)
{
    EXPECT_EQ(set_ipdefrag_para(-1, 0x12345678, collect_print), 0);
    EXPECT_EQ(only_call().record, join({le32(0), le32(0xffffffff), le32(0x12345678)}));
}

TEST_F(set_ipdefrag, prints_a_refusal_as_an_argument)
{
    platform().exchange_text = "100% refused\n";
    EXPECT_EQ(set_ipdefrag_para(1, 0, collect_print), 0);
    EXPECT_EQ(printed, "100% refused\n");
    EXPECT_EQ(printed_formats, (std::vector<std::string>{"%s"}));
}

TEST_F(set_ipdefrag, returns_0_without_a_print_callback)
{
    platform().exchange_text = "refused\n";
    EXPECT_EQ(set_ipdefrag_para(1, 2, nullptr), 0);
    EXPECT_EQ(only_call().mask, 6u);
}

TEST(ip_defrag_mgi_get_resp, returns_0_whatever_it_is_given)
{
    EXPECT_EQ(ip_defrag_mgi_get_resp(nullptr, 12), 0);
    EXPECT_EQ(ip_defrag_mgi_get_resp("record", 0), 0);
}

} // namespace
