#include <libmix/nd.h>

#include <cstring>

#include "support/client_suite.h"

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
const bytes mac_bytes(mac, mac + 6);
const uint8_t address[16] = {0x20, 0x01, 0x0d, 0xb8, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
const bytes address_bytes(address, address + 16);
const uint8_t any_address[16] = {};

uint8_t into[16];

/* --- requests --- */

bytes nd_record(uint8_t subcommand)
{
    return record_of(48, {{0, {subcommand}},
                          {4, le32(0x3344)},
                          {8, le32(0x5566)},
                          {12, le16(0x1122)},
                          {16, address_bytes},
                          {32, le32(0xa1b2c3d4)},
                          {36, le32(300)}});
}

struct nd_requests : platform_test, testing::WithParamInterface<request_case> {
};

TEST_P(nd_requests, are_sent_byte_for_byte)
{
    platform().current_vsysid = 0x0909;
    check_request(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    nd, nd_requests,
    testing::Values(
        request_case{"detail",
                     [] {
                         get_nd_items_detail(0x1122, 0x3344, 0x5566, address, nullptr, nullptr, nullptr,
                                             0xa1b2c3d4, 300, 0, 9);
                     },
                     0, 133, nd_record(2), 3000},
        request_case{"static_detail",
                     [] {
                         get_nd_items_static_detail(0x1122, 0x3344, 0x5566, address, nullptr, nullptr,
                                                    nullptr, 0xa1b2c3d4, 300, 0, 9);
                     },
                     0, 133, nd_record(8), 3000},
        request_case{
            "detail_of_a_node_without_an_address",
            [] { get_nd_items_detail(0, 0, 0, nullptr, nullptr, nullptr, nullptr, 0, 0, 3, 0x10405); },
            0x03040500, 133, record_of(48, {{0, {2}}, {36, le32(0x7fffffff)}}), 3000},
        request_case{
            "static_detail_of_a_node",
            [] { get_nd_items_static_detail(0, 0, 0, nullptr, nullptr, nullptr, nullptr, 0, 0, 3, 4); },
            0x03000400, 133, record_of(48, {{0, {8}}, {36, le32(0x7fffffff)}}), 3000},
        request_case{
            "plain", [] { get_nd_items(0x5566, address, nullptr, nullptr, nullptr, 0xa1b2c3d4, 300, 3, 4); },
            0x03000400, 133,
            record_of(
                48,
                {{0, {2}}, {8, le32(0x5566)}, {16, address_bytes}, {32, le32(0xa1b2c3d4)}, {36, le32(300)}}),
            3000},
        request_case{"filtered",
                     [] {
                         get_nd_items_ex2_vr(nullptr, nullptr, nullptr, 0xa1b2c3d4, 300, address, mac,
                                             0x11223344, -2, 0x5566, nullptr);
                     },
                     0, 133,
                     record_of(56, {{0, {3}},
                                    {4, le32(0x5566)},
                                    {8, le32(0x11223344)},
                                    {12, le16(0x0909)},
                                    {16, address_bytes},
                                    {32, {0xfe}},
                                    {33, mac_bytes},
                                    {40, le32(0xa1b2c3d4)},
                                    {44, le32(300)}}),
                     3000},
        request_case{"filtered_without_a_mac",
                     [] {
                         get_nd_items_ex2_vr(nullptr, nullptr, nullptr, 0, 0, any_address, nullptr, 0, 0, 0,
                                             nullptr);
                     },
                     0, 133, record_of(56, {{0, {3}}, {12, le16(0x0909)}, {44, le32(0x7fffffff)}}), 3000},
        request_case{
            "clear",
            [] { nd_remove_dynamic_items_detail(0x1122, 0x3344, 0x5566, address, nullptr, 3, 7, 0x10405); },
            0x03040500, 133,
            record_of(40, {{0, {4}},
                           {8, address_bytes},
                           {24, le16(0x5566)},
                           {26, le16(0x3344)},
                           {28, le16(0x1122)},
                           {32, le32(3)},
                           {36, {7}}}),
            4},
        request_case{"clear_all_of_this_board",
                     [] { nd_remove_dynamic_items_detail(0, 0, 0, nullptr, nullptr, 0, 0, 9); }, 0, 133,
                     record_of(40, {{0, {4}}}), 4},
        request_case{"summary", [] { nd_generic_data_get(0x1122, 0x3344, into, nullptr, 3, 0x10405); },
                     0x03040500, 133, record_of(48, {{0, {6}}, {4, le16(0x3344)}, {12, le16(0x1122)}}), 16},
        request_case{"summary_of_this_board", [] { nd_generic_data_get(0, 0, into, nullptr, 0, 9); }, 0, 133,
                     record_of(48, {{0, {6}}}), 16}),
    case_name);

/* --- failures --- */

struct nd_failures : platform_test, testing::WithParamInterface<failure_case> {
};

TEST_P(nd_failures, are_told_and_answered)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    nd, nd_failures,
    testing::Values(failure_case{"nd_remove_dynamic_items_detail",
                                 [](print_callback print) {
                                     return nd_remove_dynamic_items_detail(0, 0, 0, nullptr, print, 0, 0, 0);
                                 },
                                 "nd clear failed, ret is -7\n", -1,
                                 "nd_remove_dynamic_items_detail, No enough memory\n", "No enough memory\n"},
                    failure_case{
                        "nd_generic_data_get",
                        [](print_callback print) { return nd_generic_data_get(0, 0, into, print, 0, 0); },
                        "ND show failed, ret is -7\n", -1},
                    failure_case{"get_nd_items",
                                 [](print_callback print) {
                                     return get_nd_items(0, nullptr, nullptr, nullptr, print, 0, 0, 0, 0);
                                 },
                                 "nd show failed, ret is -7\n", 0}),
    case_name);

struct nd_replies : platform_test {
    bytes out = repeat(0x77, 16);
};

TEST_F(nd_replies, clear_gives_the_status_whatever_the_reply_is)
{
    platform().fallback = {0, 17, repeat(3, 9), {}};
    EXPECT_EQ(nd_remove_dynamic_items_detail(0, 0, 0, nullptr, collect_print, 0, 0, 0), 17);
    EXPECT_EQ(printed, "");
}

TEST_F(nd_replies, summary_copies_16_bytes_and_returns_the_status)
{
    platform().answers = {{0, 3, address_bytes, {}}};
    EXPECT_EQ(nd_generic_data_get(0, 0, out.data(), collect_print, 0, 0), 3);
    EXPECT_EQ(out, address_bytes);
    EXPECT_EQ(printed, "");
}

TEST_F(nd_replies, summary_is_untouched_unless_exactly_16_bytes_came)
{
    for (const size_t length : {size_t{0}, size_t{15}, size_t{17}}) {
        printed.clear();
        platform().fallback = {0, 3, repeat(1, length), {}};
        EXPECT_EQ(nd_generic_data_get(0, 0, out.data(), collect_print, 0, 0), -1);
        EXPECT_EQ(printed, "Received buf len is wrong, len is " + std::to_string(length) + "\n");
        EXPECT_EQ(nd_generic_data_get(0, 0, out.data(), nullptr, 0, 0), -1);
    }
    EXPECT_EQ(out, repeat(0x77, 16));
}

/* --- the total of the filtered list --- */

bytes filtered_page(uint32_t cursor, uint32_t count, uint32_t total)
{
    return join({le32(cursor), le32(count), le32(total), le32(0xEEEEEEEE), repeat(1, count * 64)});
}

struct nd_total : platform_test {
    uint32_t total = 4711;
    collected_rows got{.row_size = 64};

    uint32_t call(uint32_t maximum = 0, print_callback print = collect_print)
    {
        return get_nd_items_ex2_vr(collect_row, &got, print, 0, maximum, any_address, nullptr, 0, 0, 0,
                                   &total);
    }
};

TEST_F(nd_total, is_that_of_the_last_page)
{
    platform().answers = {{0, 0, filtered_page(1, 2, 50), {}}, {0, 0, filtered_page(0, 1, 49), {}}};
    EXPECT_EQ(call(), 3u);
    EXPECT_EQ(total, 49u);
}

TEST_F(nd_total, is_stored_when_the_maximum_ends_the_listing)
{
    platform().answers = {{0, 0, filtered_page(1, 2, 50), {}}};
    EXPECT_EQ(call(2), 2u);
    EXPECT_EQ(total, 50u);
}

TEST_F(nd_total, is_stored_when_nothing_matches)
{
    platform().answers = {{0, 0, filtered_page(0, 0, 0), {}}};
    EXPECT_EQ(call(), 0u);
    EXPECT_EQ(total, 0u);
}

TEST_F(nd_total, is_untouched_when_the_callback_stops_the_listing)
{
    for (const size_t at : {size_t{0}, size_t{1}}) {
        got = {.row_size = 64, .answer = -1, .answer_from = at};
        platform().answers = {{0, 0, filtered_page(0, 2, 50), {}}};
        EXPECT_EQ(call(), 2u);
        EXPECT_EQ(total, 4711u) << "also on the last row of the last page";
    }
}

TEST_F(nd_total, is_untouched_by_every_failure)
{
    const answer failures[] = {
        {-3, 0, {}, {}}, {0, -7, filtered_page(0, 1, 50), {}}, {0, 0, repeat(1, 17), {}}};
    for (const answer &each : failures) {
        platform().answers = {each};
        EXPECT_EQ(call(), 0u);
        platform().answers = {{0, 0, filtered_page(1, 2, 50), {}}, each};
        EXPECT_EQ(call(), 2u);
    }
    for (const uint32_t failing : {1u, 2u}) {
        platform().reset();
        platform().fail_allocation(failing);
        EXPECT_EQ(call(), 0u);
    }
    EXPECT_EQ(total, 4711u);
}

TEST_F(nd_total, is_not_needed)
{
    platform().answers = {{0, 0, filtered_page(0, 2, 50), {}}};
    EXPECT_EQ(get_nd_items_ex2_vr(nullptr, nullptr, nullptr, 0, 0, any_address, nullptr, 0, 0, 0, nullptr),
              2u);
}

TEST_F(nd_total, a_maximum_of_0x80000000_makes_one_request)
{
    platform().answers = {{0, 0, filtered_page(1, 2, 50), {}}, {0, 0, filtered_page(0, 1, 49), {}}};
    EXPECT_EQ(call(0x80000000), 2u);
    EXPECT_EQ(platform().messages.size(), 1u);
}

/* --- dynamic to static --- */

bytes nd_row(uint8_t flags, const bytes &name)
{
    return record_of(64, {{0, address_bytes},
                          {16, repeat(0xEE, 6)},
                          {22, name},
                          {54, mac_bytes},
                          {60, {0xEE}},
                          {61, {flags}},
                          {62, {0xEE, 0xEE}}});
}

struct nd_conversion : platform_test {
    bytes seen_address, seen_mac;
    const char *seen_ifname = nullptr;
    std::string seen_name;
    int others = 0;

    void SetUp() override
    {
        platform_test::SetUp();
        platform().on_commit = [this](const mgi_message &message, const std::string &) {
            const auto *from = static_cast<const uint8_t *>(message.attr[0]);
            seen_address = bytes(from, from + 16);
            seen_ifname = *static_cast<const char *const *>(message.attr[1]);
            seen_name = seen_ifname;
            from = static_cast<const uint8_t *>(message.attr[2]);
            seen_mac = bytes(from, from + 6);
            for (int number = 3; number < 16; number++)
                others += message.attr[number] != nullptr ? 1 : 0;
        };
    }
};

TEST_F(nd_conversion, commits_the_rows_address_interface_and_mac)
{
    platform().commit_results = {42};
    exec_ipv6_nd_dynamic_to_static_callback(nd_row(0, text_field("ge1/1", 32)).data());
    ASSERT_EQ(platform().gateway_calls.size(), 1u);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.object, "final_set_neighbor_neighbor");
    EXPECT_EQ(call.type, 2u);
    EXPECT_FALSE(call.language_set || call.vsysid_set);
    EXPECT_EQ(call.request_flag, 0);
    EXPECT_EQ(seen_address, address_bytes);
    EXPECT_EQ(seen_name, "ge1/1");
    EXPECT_EQ(seen_mac, mac_bytes);
    EXPECT_EQ(others, 0);
    EXPECT_EQ(platform().console, "") << "a refusal is not told";
}

TEST_F(nd_conversion, passes_the_rows_own_name_or_a_copy_of_one_without_an_end)
{
    for (const size_t length : {0, 5, 31, 32}) {
        const bytes row = nd_row(0, text_field(std::string(length, 'x'), 32));
        exec_ipv6_nd_dynamic_to_static_callback(row.data());
        const void *in_row = row.data() + 22;
        EXPECT_EQ(seen_ifname == in_row, length < 32) << length;
        EXPECT_EQ(seen_name, std::string(length, 'x'));
    }
}

TEST_F(nd_conversion, leaves_static_rows_and_those_in_state_2)
{
    for (int flags = 0; flags < 256; flags++) {
        platform().gateway_calls.clear();
        exec_ipv6_nd_dynamic_to_static_callback(
            nd_row(static_cast<uint8_t>(flags), text_field("ge1/1", 32)).data());
        const bool left = (flags & 0x02) != 0 || (flags & 0x1c) == 0x08;
        EXPECT_EQ(platform().gateway_calls.size(), left ? 0u : 1u) << flags;
    }
}

} // namespace
