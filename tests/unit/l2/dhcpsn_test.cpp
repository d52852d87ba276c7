#include <libmix/dhcpsn.h>

#include <cstring>

#include "support/client_suite.h"

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
const bytes mac_bytes(mac, mac + 6);

/* --- bindings: requests --- */

struct dhcpsn_requests : platform_test, testing::WithParamInterface<request_case> {
};

TEST_P(dhcpsn_requests, are_sent_byte_for_byte)
{
    check_request(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    dhcpsn, dhcpsn_requests,
    testing::Values(
        request_case{"list_of_a_vlan",
                     [] {
                         get_dhcpsn_items(0x1122, 0x3344, 0x5566, 0x778899aa, mac, nullptr, nullptr, nullptr,
                                          0xa1b2c3d4, 300);
                     },
                     0, 95,
                     record_of(36, {{4, {1, 0}},
                                    {6, le16(0x1122)},
                                    {8, le16(0x3344)},
                                    {10, mac_bytes},
                                    {16, {1}},
                                    {20, le32(0x778899aa)},
                                    {28, le32(0xa1b2c3d4)},
                                    {32, le32(300)}}),
                     3000},
        request_case{
            "list_without_a_vlan",
            [] { get_dhcpsn_items(0, 0x3344, 0x5566, 0x778899aa, nullptr, nullptr, nullptr, nullptr, 0, 0); },
            0, 95,
            record_of(36,
                      {{6, le16(0x5566)}, {8, le16(0x3344)}, {20, le32(0x778899aa)}, {32, le32(0x7fffffff)}}),
            3000},
        request_case{"count_of_a_vlan",
                     [] { get_dhcpsn_items_number(0x1122, 0x3344, 0x5566, 0x778899aa, mac, nullptr); }, 0, 95,
                     record_of(36, {{0, {3}},
                                    {4, {1, 0}},
                                    {6, le16(0x1122)},
                                    {8, le16(0x3344)},
                                    {10, mac_bytes},
                                    {16, {1}},
                                    {20, le32(0x778899aa)}}),
                     4},
        request_case{"count_without_a_vlan",
                     [] { get_dhcpsn_items_number(0, 0x3344, 0x5566, 0, nullptr, nullptr); }, 0, 95,
                     record_of(36, {{0, {3}}, {6, le16(0x5566)}, {8, le16(0x3344)}}), 4},
        request_case{"clear", [] { dhcpsn_remove_dynamic_items(0x1122, 0x33445566, 0x7788, nullptr); }, 0, 95,
                     record_of(12, {{0, {1}}, {4, le16(0x1122)}, {6, le16(0x7788)}, {8, le32(0x33445566)}}),
                     4}),
    case_name);

/* --- bindings: failures --- */

struct dhcpsn_failures : platform_test, testing::WithParamInterface<failure_case> {
};

TEST_P(dhcpsn_failures, are_told_and_answered)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    dhcpsn, dhcpsn_failures,
    testing::Values(
        failure_case{"get_dhcpsn_items_number",
                     [](print_callback print) { return get_dhcpsn_items_number(0, 0, 0, 0, nullptr, print); },
                     "DHCP snooping show failed, ret is -7\n", 0},
        failure_case{"dhcpsn_remove_dynamic_items",
                     [](print_callback print) { return dhcpsn_remove_dynamic_items(0, 0, 0, print); }, "", 0,
                     "dhcpsn_remove_dynamic_items, No enough memory\n", "", "ipcmsg send failed\n", -1, -7}),
    case_name);

struct dhcpsn : platform_test {
};

TEST_F(dhcpsn, counts_and_clears_give_the_status_whatever_the_reply_is)
{
    for (const bytes &reply : {bytes{}, bytes{9, 9, 9, 9}, repeat(9, 50)}) {
        platform().fallback = {0, 4711, reply, {}};
        EXPECT_EQ(get_dhcpsn_items_number(1, 0, 0, 0, nullptr, collect_print), 4711);
        EXPECT_EQ(dhcpsn_remove_dynamic_items(1, 0, 0, collect_print), 4711);
    }
    EXPECT_EQ(printed, "");
}

TEST_F(dhcpsn, a_listing_ends_after_two_calls_when_the_second_answers_1)
{
    platform().fallback = {0, 0, join({le32(7), le32(3), repeat(1, 240)}), {}};
    collected_rows got{.row_size = 80, .answer = 1, .answer_from = 1};
    EXPECT_EQ(get_dhcpsn_items(0, 0, 0, 0, nullptr, collect_row, &got, collect_print, 0, 0), 3);
    EXPECT_EQ(got.rows.size(), 2u);
    EXPECT_EQ(platform().messages.size(), 1u);
}

/* --- settings: changes --- */

struct setting_case {
    const char *name;
    std::function<int(const char *ifname, print_callback print)> call;
    int slot;
    bytes value;
};

struct dhcpsn_settings : platform_test, testing::WithParamInterface<setting_case> {
    std::string interface;
    bytes value;
    std::vector<int> slots;

    void SetUp() override
    {
        platform_test::SetUp();
        platform().on_commit = [this](const mgi_message &message, const std::string &) {
            slots.clear();
            for (int number = 0; number < 16; number++) {
                if (message.attr[number] != nullptr)
                    slots.push_back(number);
            }
            if (message.attr[0] != nullptr)
                interface = *static_cast<const char *const *>(message.attr[0]);
            const auto *from = static_cast<const uint8_t *>(message.attr[GetParam().slot]);
            if (from != nullptr)
                value = bytes(from, from + GetParam().value.size());
        };
    }
};

TEST_P(dhcpsn_settings, are_set_by_their_own_slot)
{
    EXPECT_EQ(GetParam().call("ge1/1", collect_print), 0);
    ASSERT_EQ(platform().gateway_calls.size(), 1u);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.object, "final_set_if_if_dhcpsn");
    EXPECT_EQ(call.type, 2u);
    EXPECT_FALSE(call.language_set || call.vsysid_set);
    EXPECT_EQ(call.request_flag, 0);
    EXPECT_EQ(slots, (std::vector<int>{0, GetParam().slot}));
    EXPECT_EQ(interface, "ge1/1");
    EXPECT_EQ(value, GetParam().value);
    EXPECT_EQ(printed, "");
}

TEST_P(dhcpsn_settings, return_0_and_print_when_refused)
{
    platform().commit_results = {42, 42, 42};
    platform().refusal_text = "100% refused";
    EXPECT_EQ(GetParam().call("ge1/1", collect_print), 0);
    EXPECT_EQ(printed, "100% refused");
    EXPECT_EQ(printed_formats, (std::vector<std::string>{"%s"}));
    EXPECT_EQ(platform().refusal_results, (std::vector<int>{42}));
    EXPECT_EQ(GetParam().call("ge1/1", nullptr), 0);
    platform().refusal_text = nullptr;
    EXPECT_EQ(GetParam().call("ge1/1", collect_print), 0);
    EXPECT_EQ(printed, "100% refused");
}

TEST_P(dhcpsn_settings, leave_the_interface_absent_without_a_name)
{
    EXPECT_EQ(GetParam().call(nullptr, collect_print), 0);
    EXPECT_EQ(slots, (std::vector<int>{GetParam().slot}));
}

INSTANTIATE_TEST_SUITE_P(dhcpsn, dhcpsn_settings,
                         testing::Values(setting_case{"enable",
                                                      [](const char *name, print_callback print) {
                                                          return dhcpsn_enable_set(name, 0xfe, print);
                                                      },
                                                      1,
                                                      {0xfe}},
                                         setting_case{"rate_limit",
                                                      [](const char *name, print_callback print) {
                                                          return dhcpsn_rate_limit_set(name, 0xfedc, print);
                                                      },
                                                      2,
                                                      {0xdc, 0xfe}},
                                         setting_case{"deny_request",
                                                      [](const char *name, print_callback print) {
                                                          return dhcpsn_deny_request_set(name, 1, print);
                                                      },
                                                      3,
                                                      {1}},
                                         setting_case{"deny_response",
                                                      [](const char *name, print_callback print) {
                                                          return dhcpsn_deny_response_set(name, 2, print);
                                                      },
                                                      4,
                                                      {2}},
                                         setting_case{"validity_check",
                                                      [](const char *name, print_callback print) {
                                                          return dhcpsn_validity_check_set(name, 3, print);
                                                      },
                                                      5,
                                                      {3}}),
                         case_name);

/* --- settings: reading back --- */

struct read_case {
    const char *name;
    std::function<int()> call;
    bytes cookie;
};

struct dhcpsn_reads : platform_test, testing::WithParamInterface<read_case> {
};

TEST_P(dhcpsn_reads, select_by_their_cookie)
{
    platform().commit_results = {-9};
    EXPECT_EQ(GetParam().call(), 0) << "whatever the read's result is";
    ASSERT_EQ(platform().gateway_calls.size(), 1u);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.object, "final_get_if_if_dhcpsn");
    EXPECT_EQ(call.type, 8u);
    EXPECT_EQ(call.cookie, GetParam().cookie);
    EXPECT_FALSE(call.language_set || call.vsysid_set);
    for (const void *attribute : call.attr)
        EXPECT_EQ(attribute, nullptr);
    EXPECT_EQ(platform().messages_initialised, 1u);
}

INSTANTIATE_TEST_SUITE_P(
    dhcpsn, dhcpsn_reads,
    testing::Values(
        read_case{"one_interface",
                  [] { return dhcpsn_if_config_show("ge1/1", 7, nullptr, nullptr, nullptr); },
                  record_of(44, {{0, text_field("ge1/1", 32)}, {36, le16(256)}, {38, le16(1)}})},
        read_case{
            "a_name_that_is_too_long",
            [] { return dhcpsn_if_config_show(std::string(40, 'x').c_str(), 0, nullptr, nullptr, nullptr); },
            record_of(44, {{0, repeat('x', 31)}, {36, le16(256)}, {38, le16(1)}})},
        read_case{"an_empty_name_is_a_name",
                  [] { return dhcpsn_if_config_show("", 7, nullptr, nullptr, nullptr); },
                  record_of(44, {{36, le16(256)}, {38, le16(1)}})},
        read_case{"interfaces_by_selector",
                  [] { return dhcpsn_if_config_show(nullptr, 7, nullptr, nullptr, nullptr); },
                  record_of(44, {{34, le16(7)}, {38, le16(50)}})},
        read_case{"every_interface",
                  [] { return dhcpsn_if_config_show(nullptr, 0, nullptr, nullptr, nullptr); },
                  record_of(44, {{34, le16(255)}, {38, le16(50)}})},
        read_case{"one_vlan", [] { return dhcpsn_vlan_config_show(0x0ffe, nullptr, nullptr, nullptr); },
                  record_of(44, {{32, le16(0x0ffe)}, {38, le16(1)}})},
        read_case{"every_vlan", [] { return dhcpsn_vlan_config_show(0, nullptr, nullptr, nullptr); },
                  record_of(44, {{36, le16(4)}, {38, le16(50)}})}),
    case_name);

bytes batch_claiming(uint32_t count, uint32_t rows)
{
    return join({repeat(0xEE, 44), le16(count), repeat(1, rows * 40)});
}

bytes batch(uint32_t rows)
{
    return batch_claiming(rows, rows);
}

struct dhcpsn_batches : platform_test {
    collected_rows got{.row_size = 40};
    dhcpsn_show_context context{collect_row, &got, collect_print, 1};

    int deliver(const bytes &data, int error = 0)
    {
        return dhcpsn_cfg_show_callback(data.data(), static_cast<uint32_t>(data.size()), error, &context);
    }
};

TEST_F(dhcpsn_batches, a_read_delivers_every_row_and_marks_the_first)
{
    std::vector<int> results;
    platform().on_read = [&](mgi_batch_callback callback, void *with) {
        for (const bytes &each : {batch(2), batch(0), batch(1)})
            results.push_back(callback(each.data(), static_cast<uint32_t>(each.size()), 0, with));
        return 0;
    };
    EXPECT_EQ(dhcpsn_if_config_show(nullptr, 0, collect_row, &got, collect_print), 0);
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0}));
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 0}));
    got = {.row_size = 40};
    EXPECT_EQ(dhcpsn_vlan_config_show(0, collect_row, &got, collect_print), 0);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 0}));
    EXPECT_EQ(got.rows[2], repeat(1, 40));
    EXPECT_EQ(printed, "");
}

TEST_F(dhcpsn_batches, a_read_tells_what_is_wrong_with_a_batch)
{
    std::vector<int> results;
    platform().exchange_text = "100% lost\n";
    platform().on_read = [&](mgi_batch_callback callback, void *with) {
        const bytes one = batch(1);
        results.push_back(callback(nullptr, 0, 0, with));
        results.push_back(callback(one.data(), static_cast<uint32_t>(one.size()), 5, with));
        return 0;
    };
    const std::function<int(print_callback)> reads[] = {
        [this](print_callback print) { return dhcpsn_if_config_show("ge1/1", 0, collect_row, &got, print); },
        [this](print_callback print) { return dhcpsn_vlan_config_show(10, collect_row, &got, print); }};
    for (const auto &read : reads) {
        for (const print_callback print : {print_callback{collect_print}, print_callback{nullptr}}) {
            results.clear();
            printed.clear();
            got = {.row_size = 40};
            EXPECT_EQ(read(print), 0);
            EXPECT_EQ(results, (std::vector<int>{-1, -1}));
            EXPECT_EQ(got.first_flags, (std::vector<int>{1})) << "no data does not use up the mark";
            EXPECT_EQ(printed,
                      print != nullptr ? "Error: the para data of callback is NULL\n100% lost\n" : "");
        }
    }
}

TEST_F(dhcpsn_batches, a_row_callback_that_does_not_answer_0_ends_it)
{
    for (const int answer : {1, -1}) {
        got = {.row_size = 40, .answer = answer, .answer_from = 1};
        platform().exchange_text = "not asked for";
        EXPECT_EQ(deliver(batch(3), 5), -1);
        EXPECT_EQ(got.rows.size(), 2u);
        EXPECT_EQ(printed, "");
    }
}

TEST_F(dhcpsn_batches, the_first_row_is_marked_once_even_when_it_ends_the_batch)
{
    got.answer = 1;
    EXPECT_EQ(deliver(batch(1)), -1);
    EXPECT_EQ(deliver(batch(1)), -1);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0}));
}

TEST_F(dhcpsn_batches, an_error_is_told_after_the_rows)
{
    platform().exchange_text = "100% lost\n";
    for (const uint32_t rows : {0u, 2u}) {
        printed.clear();
        got = {.row_size = 40};
        EXPECT_EQ(deliver(batch(rows), 5), -1);
        EXPECT_EQ(got.rows.size(), rows);
        EXPECT_EQ(printed, "100% lost\n");
    }
    EXPECT_EQ(printed_formats, (std::vector<std::string>{"%s", "%s"}));
    EXPECT_EQ(platform().exchange_text_arguments, (std::vector<int>{0, 0}));
    printed.clear();
    context.print = nullptr;
    EXPECT_EQ(deliver(batch(0), 5), -1);
    context.print = collect_print;
    platform().exchange_text = nullptr;
    EXPECT_EQ(deliver(batch(0), -1), -1);
    EXPECT_EQ(printed, "");
}

TEST_F(dhcpsn_batches, no_data_is_an_error_of_its_own)
{
    EXPECT_EQ(dhcpsn_cfg_show_callback(nullptr, 100, 0, &context), -1);
    EXPECT_EQ(printed, "Error: the para data of callback is NULL\n");
    printed.clear();
    platform().exchange_text = "100% lost\n";
    EXPECT_EQ(dhcpsn_cfg_show_callback(nullptr, 100, 5, &context), -1);
    EXPECT_EQ(printed, "Error: the para data of callback is NULL\n") << "it comes before the error";
    EXPECT_TRUE(platform().exchange_text_arguments.empty()) << "whose text is not even asked for";
    context.print = nullptr;
    EXPECT_EQ(dhcpsn_cfg_show_callback(nullptr, 100, 0, &context), -1);
    EXPECT_EQ(context.first, 1);
}

TEST_F(dhcpsn_batches, rows_that_did_not_arrive_are_not_delivered)
{
    EXPECT_EQ(deliver(batch_claiming(3, 2)), 0);
    EXPECT_EQ(got.rows.size(), 2u);
    bytes cut = batch(2);
    cut.pop_back();
    EXPECT_EQ(deliver(cut), 0);
    EXPECT_EQ(got.rows.size(), 3u);
    EXPECT_EQ(deliver(bytes(45)), 0);
    EXPECT_EQ(deliver(bytes(1)), 0);
    EXPECT_EQ(deliver(batch_claiming(0xffff, 0)), 0);
    EXPECT_EQ(deliver(batch_claiming(1, 3)), 0);
    EXPECT_EQ(got.rows.size(), 4u) << "nor more than are said to be there";
}

TEST_F(dhcpsn_batches, rows_are_passed_over_without_a_row_callback)
{
    context.row = nullptr;
    EXPECT_EQ(deliver(batch(2)), 0);
}

} // namespace
