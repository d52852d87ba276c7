#include <libmix/arp.h>

#include <cstring>

#include "support/client_suite.h"

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
const uint8_t proxy_key[24] = {1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12,
                               13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23, 24};

int ignore_row(const void *, void *, int)
{
    return 0;
}

uint8_t into[24];

/* --- requests --- */

bytes arp_record(uint8_t subcommand, std::initializer_list<std::pair<size_t, bytes>> parts)
{
    bytes out = record_of(140, parts);
    out[0] = subcommand;
    return out;
}

/* A joined request with every field in use but those of a listing. */
bytes joined_record(uint8_t subcommand, uint16_t vrid, bytes options, bytes listing, uint8_t mode)
{
    return record_of(296, {{0, {subcommand}},
                           {8, le32(0x11223344)},
                           {12, listing},
                           {24, le16(vrid)},
                           {26, le16(0x0909)},
                           {28, bytes(mac, mac + 6)},
                           {34, {1}},
                           {35, options},
                           {37, text_field("ge1/1", 192)},
                           {229, text_field("two", 32)},
                           {261, text_field("three", 32)},
                           {293, {mode}}});
}

/* The same without a filter. */
bytes unfiltered_record(uint8_t subcommand, uint16_t vrid, bytes listing, uint8_t mode)
{
    return record_of(296,
                     {{0, {subcommand}}, {12, listing}, {24, le16(vrid)}, {26, le16(0x0909)}, {293, {mode}}});
}

const bytes listing_fields = join({le32(0xa1b2c3d4), le32(300), le32(0)});
const bytes no_listing = {};

struct arp_requests : platform_test, testing::WithParamInterface<request_case> {
};

TEST_P(arp_requests, are_sent_byte_for_byte)
{
    platform().current_vsysid = 0x0909;
    check_request(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    table, arp_requests,
    testing::Values(
        request_case{"get_arp_items_detail",
                     [] {
                         get_arp_items_detail(0x1122, 0x3344, 0x5566, 0x778899aa, ignore_row, nullptr,
                                              nullptr, 0xa1b2c3d4, 300, 0, 0);
                     },
                     0, 4,
                     arp_record(2, {{4, le16(0x1122)},
                                    {6, le16(0x3344)},
                                    {8, le32(0x5566)},
                                    {12, le32(0x778899aa)},
                                    {16, listing_fields}}),
                     3000},
        request_case{"get_arp_items_detail_of_a_node",
                     [] { get_arp_items_detail(0, 0, 0, 0, nullptr, nullptr, nullptr, 0, 0, 3, 0x0405); },
                     0x03040500, 4, arp_record(2, {{20, le32(0x7fffffff)}}), 3000},
        request_case{"get_arp_items_detail_of_node_0_is_local_whatever_the_instance",
                     [] { get_arp_items_detail(0, 0, 0, 0, nullptr, nullptr, nullptr, 0, 0, 0, 7); }, 0, 4,
                     arp_record(2, {{20, le32(0x7fffffff)}}), 3000},
        request_case{
            "get_arp_items",
            [] { get_arp_items(0x1122, 0x5566, 0x778899aa, ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300); },
            0, 4,
            arp_record(2,
                       {{4, le16(0x1122)}, {8, le32(0x5566)}, {12, le32(0x778899aa)}, {16, listing_fields}}),
            3000},
        request_case{"get_arp_items_vr",
                     [] {
                         get_arp_items_vr(0x1122, 0x3344, 0x5566, 0x778899aa, ignore_row, nullptr, nullptr,
                                          0xa1b2c3d4, 300);
                     },
                     0, 4,
                     arp_record(2, {{4, le16(0x1122)},
                                    {6, le16(0x3344)},
                                    {8, le32(0x5566)},
                                    {12, le32(0x778899aa)},
                                    {16, listing_fields}}),
                     3000},
        request_case{
            "get_arp_items_count", [] { get_arp_items_count(0x1122, 0x3344, 0x5566, 0x778899aa, 2, 1); },
            0x02000100, 4,
            arp_record(9, {{4, le16(0x1122)}, {6, le16(0x3344)}, {8, le32(0x5566)}, {12, le32(0x778899aa)}}),
            4},
        request_case{"get_arp_items_count_of_this_board", [] { get_arp_items_count(0, 0, 0, 0, 0, 1); }, 0, 4,
                     arp_record(9, {}), 4},
        request_case{"get_proxy_arp_items_count",
                     [] { get_proxy_arp_items_count(0x1122, 0x3344, proxy_key, 0x778899aa, 2, 1); },
                     0x02000100, 4,
                     record_of(56, {{0, {10}},
                                    {4, le16(0x1122)},
                                    {6, le16(0x3344)},
                                    {24, bytes(proxy_key, proxy_key + 24)},
                                    {48, le32(0x778899aa)}}),
                     4},
        request_case{"get_proxy_arp_items_count_without_a_key",
                     [] { get_proxy_arp_items_count(0, 0, nullptr, 1, 0, 1); }, 0, 4,
                     record_of(56, {{0, {10}}, {48, le32(1)}}), 4},
        request_case{"arp_generic_data_get",
                     [] { arp_generic_data_get(0x1122, 0x3344, into, nullptr, 2, 1); }, 0x02000100, 4,
                     arp_record(4, {{4, le16(0x1122)}, {6, le16(0x3344)}}), 24},
        request_case{"arp_generic_data_get_of_this_board",
                     [] { arp_generic_data_get(0, 0, into, nullptr, 0, 9); }, 0, 4, arp_record(4, {}), 24},
        request_case{"get_arp_reduplicate_mac_items_count",
                     [] { get_arp_reduplicate_mac_items_count(nullptr, "0011.22aA.BbcC"); }, 0, 4,
                     record_of(12, {{0, {11}}, {4, bytes(mac, mac + 6)}, {10, le16(0x0909)}}), 4},
        request_case{"get_vrname_by_vrid", [] { get_vrname_by_vrid(0x12345678); }, 1, 114, le32(0x12345678),
                     32}),
    case_name);

INSTANTIATE_TEST_SUITE_P(
    joined, arp_requests,
    testing::Values(
        request_case{"get_arp_mac_items_ex2_vr",
                     [] {
                         get_arp_mac_items_ex2_vr(ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300, 0x11223344,
                                                  mac, "ge1/1", "two", "three", 5, 6, 0x3344, 7);
                     },
                     0, 4, joined_record(8, 0x3344, {5, 6}, listing_fields, 7), 3000},
        request_case{"get_arp_mac_items_ex2",
                     [] {
                         get_arp_mac_items_ex2(ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300, 0x11223344, mac,
                                               "ge1/1", "two", "three", 5, 6);
                     },
                     0, 4, joined_record(8, 1, {5, 6}, listing_fields, 2), 3000},
        request_case{"get_arp_mac_items_ex_vr",
                     [] {
                         get_arp_mac_items_ex_vr(ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300, 0x11223344,
                                                 mac, "ge1/1", "two", "three", 0x3344);
                     },
                     0, 4, joined_record(8, 0x3344, {0, 0}, listing_fields, 2), 3000},
        request_case{"get_arp_mac_items_ex",
                     [] {
                         get_arp_mac_items_ex(ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300, 0x11223344, mac,
                                              "ge1/1", "two", "three");
                     },
                     0, 4, joined_record(8, 1, {0, 0}, listing_fields, 2), 3000},
        request_case{"get_arp_mac_items_vr",
                     [] { get_arp_mac_items_vr(ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300, 0x3344, 7); },
                     0, 4, unfiltered_record(8, 0x3344, listing_fields, 7), 3000},
        request_case{"get_arp_mac_items",
                     [] { get_arp_mac_items(ignore_row, nullptr, nullptr, 0xa1b2c3d4, 300); }, 0, 4,
                     unfiltered_record(8, 1, listing_fields, 2), 3000},
        request_case{"get_arp_mac_items_count2_vr",
                     [] {
                         get_arp_mac_items_count2_vr(nullptr, 0x11223344, mac, "ge1/1", "two", "three", 5, 6,
                                                     0x3344);
                     },
                     0, 4, joined_record(7, 0x3344, {5, 6}, no_listing, 0), 4},
        request_case{
            "get_arp_mac_items_count2",
            [] { get_arp_mac_items_count2(nullptr, 0x11223344, mac, "ge1/1", "two", "three", 5, 6); }, 0, 4,
            joined_record(7, 1, {5, 6}, no_listing, 0), 4},
        request_case{"get_arp_mac_items_count",
                     [] { get_arp_mac_items_count(nullptr, 0x11223344, mac, "ge1/1", "two", "three"); }, 0, 4,
                     joined_record(7, 1, {0, 0}, no_listing, 0), 4},
        request_case{
            "get_arp_mac_items_count_vr",
            [] { get_arp_mac_items_count_vr(nullptr, 0x11223344, mac, "ge1/1", "two", "three", 0x3344); }, 0,
            4, joined_record(7, 0x3344, {0, 0}, no_listing, 0), 4},
        request_case{"get_arp_mac_items_count_without_a_filter",
                     [] { get_arp_mac_items_count(nullptr, 0, nullptr, nullptr, nullptr, nullptr); }, 0, 4,
                     unfiltered_record(7, 1, no_listing, 0), 4},
        request_case{"names_that_are_too_long_are_cut",
                     [] {
                         get_arp_mac_items_count(nullptr, 0, nullptr, std::string(192, 'a').c_str(),
                                                 std::string(40, 'b').c_str(), std::string(32, 'c').c_str());
                     },
                     0, 4,
                     record_of(296, {{0, {7}},
                                     {24, le16(1)},
                                     {26, le16(0x0909)},
                                     {37, repeat('a', 191)},
                                     {229, repeat('b', 31)},
                                     {261, repeat('c', 31)}}),
                     4}),
    case_name);

/* --- failures --- */

struct arp_failures : platform_test, testing::WithParamInterface<failure_case> {
};

TEST_P(arp_failures, are_told_and_answered)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    arp, arp_failures,
    testing::Values(
        failure_case{"arp_generic_data_get",
                     [](print_callback print) { return arp_generic_data_get(0, 0, into, print, 0, 0); },
                     "ARP show failed, ret is -7\n", -1},
        failure_case{"get_arp_mac_items_count2_vr",
                     [](print_callback print) {
                         return get_arp_mac_items_count2_vr(print, 0, mac, nullptr, nullptr, nullptr, 0, 0,
                                                            0);
                     },
                     "ARP show failed, ret is -7\n", 0},
        failure_case{"get_arp_mac_items_count2",
                     [](print_callback print) {
                         return get_arp_mac_items_count2(print, 0, mac, nullptr, nullptr, nullptr, 0, 0);
                     },
                     "ARP show failed, ret is -7\n", 0},
        failure_case{"get_arp_mac_items_count",
                     [](print_callback print) {
                         return get_arp_mac_items_count(print, 0, mac, nullptr, nullptr, nullptr);
                     },
                     "ARP show failed, ret is -7\n", 0},
        failure_case{"get_arp_mac_items_count_vr",
                     [](print_callback print) {
                         return get_arp_mac_items_count_vr(print, 0, mac, nullptr, nullptr, nullptr, 0);
                     },
                     "ARP show failed, ret is -7\n", 0},
        failure_case{"get_arp_reduplicate_mac_items_count",
                     [](print_callback print) { return get_arp_reduplicate_mac_items_count(print, nullptr); },
                     "ARP get reduplicate mac count failed, ret is -7\n", 0},
        failure_case{"get_arp_items_count",
                     [](print_callback) { return get_arp_items_count(0, 0, 0, 0, 0, 0); }, "", 0, "", "", ""},
        failure_case{"get_proxy_arp_items_count",
                     [](print_callback) { return get_proxy_arp_items_count(0, 0, proxy_key, 0, 0, 0); }, "",
                     0, "", "", ""}),
    case_name);

/* --- counts --- */

struct arp_counts : platform_test {
};

TEST_F(arp_counts, are_the_status_whatever_the_reply_is)
{
    for (const bytes &reply : {bytes{}, bytes{9, 9, 9, 9}, bytes{9, 9, 9, 9, 9, 9, 9, 9}}) {
        platform().fallback = {0, 4711, reply, {}};
        EXPECT_EQ(get_arp_items_count(0, 0, 0, 0, 0, 0), 4711);
        EXPECT_EQ(get_proxy_arp_items_count(0, 0, proxy_key, 0, 0, 0), 4711);
        EXPECT_EQ(get_arp_mac_items_count2_vr(collect_print, 0, nullptr, nullptr, nullptr, nullptr, 0, 0, 0),
                  4711);
        EXPECT_EQ(get_arp_mac_items_count2(collect_print, 0, nullptr, nullptr, nullptr, nullptr, 0, 0), 4711);
        EXPECT_EQ(get_arp_mac_items_count(collect_print, 0, nullptr, nullptr, nullptr, nullptr), 4711);
        EXPECT_EQ(get_arp_mac_items_count_vr(collect_print, 0, nullptr, nullptr, nullptr, nullptr, 0), 4711);
        EXPECT_EQ(get_arp_reduplicate_mac_items_count(collect_print, nullptr), 4711);
    }
    EXPECT_EQ(printed, "");
}

struct mac_text_case {
    const char *name;
    const char *text;
    bytes sent;
};

struct duplicate_mac_text : platform_test, testing::WithParamInterface<mac_text_case> {
};

TEST_P(duplicate_mac_text, is_read_only_in_its_form)
{
    platform().fallback = {0, 0, {}, {}};
    get_arp_reduplicate_mac_items_count(nullptr, GetParam().text);
    const bytes &request = platform().messages.at(0).request;
    EXPECT_EQ(bytes(request.begin() + 4, request.begin() + 10), GetParam().sent);
}

INSTANTIATE_TEST_SUITE_P(
    forms, duplicate_mac_text,
    testing::Values(
        mac_text_case{"dotted", "0011.2233.4455", {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},
        mac_text_case{"both_cases", "aBcD.EfAf.09fF", {0xab, 0xcd, 0xef, 0xaf, 0x09, 0xff}},
        mac_text_case{"one_dot_is_enough_the_first", "0011.2233f4455", {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},
        mac_text_case{"one_dot_is_enough_the_second", "0011f2233.4455", {0x00, 0x11, 0x22, 0x33, 0x44, 0x55}},
        mac_text_case{"no_dot", "00112233445566", bytes(6)},
        mac_text_case{"colons", "00:11:22:33:44:55", bytes(6)},
        mac_text_case{"colon_in_a_dot_place", "0011.2233:4455", bytes(6)},
        mac_text_case{"too_short", "0011.2233.445", bytes(6)},
        mac_text_case{"too_long", "0011.2233.44556", bytes(6)},
        mac_text_case{"not_hexadecimal", "0011.22g3.4455", bytes(6)},
        mac_text_case{"first_is_not_hexadecimal", "g011.2233.4455", bytes(6)},
        mac_text_case{"last_is_not_hexadecimal", "0011.2233.445g", bytes(6)},
        mac_text_case{"a_third_dot", "0011.2233.44.5", bytes(6)}, mac_text_case{"empty", "", bytes(6)},
        mac_text_case{"absent", nullptr, bytes(6)}),
    case_name);

/* --- summary --- */

struct arp_summary : platform_test {
    bytes out = repeat(0x77, 24);

    int call(print_callback print = collect_print)
    {
        return arp_generic_data_get(0, 0, out.data(), print, 0, 0);
    }
};

TEST_F(arp_summary, copies_24_bytes_and_returns_the_status)
{
    platform().answers = {{0, 3, bytes(proxy_key, proxy_key + 24), {}}};
    EXPECT_EQ(call(), 3);
    EXPECT_EQ(out, bytes(proxy_key, proxy_key + 24));
    EXPECT_EQ(printed, "");
}

TEST_F(arp_summary, is_untouched_unless_exactly_24_bytes_came)
{
    for (const size_t length : {size_t{0}, size_t{4}, size_t{23}, size_t{25}, size_t{48}}) {
        printed.clear();
        platform().fallback = {0, 0, repeat(1, length), {}};
        EXPECT_EQ(call(), -1);
        EXPECT_EQ(printed, "Received buf len is wrong, len is " + std::to_string(length) + "\n");
        EXPECT_EQ(call(nullptr), -1);
        EXPECT_EQ(out, repeat(0x77, 24));
    }
    platform().fallback = {0, -1, repeat(1, 24), {}};
    EXPECT_EQ(call(), -1);
    EXPECT_EQ(out, repeat(0x77, 24));
}

/* --- search --- */

/* The caller's own state starts with what the library looks at. */
struct search_state {
    arp_search_state by;
    std::vector<bytes> rows;
    int answer = 0;
};

int collect_found(const void *row, void *state)
{
    auto *into_state = static_cast<search_state *>(state);
    const auto *from = static_cast<const uint8_t *>(row);
    into_state->rows.emplace_back(from, from + 56);
    return into_state->answer;
}

struct arp_search : platform_test {
    uint32_t key = 0x11223344;
    uint16_t scope = 0x5566;
    uint32_t position = 0x778899aa;
    search_state state{{&key, &scope, &position}, {}};
    bytes filter = repeat(0x42, 108);

    uint32_t call(print_callback print = collect_print)
    {
        return search_arp_items(1, 2, collect_found, &state, print, filter.data());
    }
    static bytes page(uint32_t cursor, uint32_t count)
    {
        return join({le32(cursor), le32(count), repeat(3, count * 56)});
    }
};

TEST_F(arp_search, sends_what_it_goes_by)
{
    filter[0] = 1;
    filter[107] = 2;
    check_request({"", [this] { call(); }, 0, 4,
                   record_of(140, {{0, {2}},
                                   {16, le32(0x11223344)},
                                   {20, le32(0x778899aa)},
                                   {28, {1, 0}},
                                   {30, le16(0x5566)},
                                   {32, filter}}),
                   3000});
}

TEST_F(arp_search, gives_one_page_and_the_next_position)
{
    platform().answers = {{0, 0, page(0x12345, 2), {}}, {0, 0, page(0, 1), {}}};
    EXPECT_EQ(call(), 2u);
    EXPECT_EQ(platform().messages.size(), 1u);
    EXPECT_EQ(state.rows, (std::vector<bytes>(2, repeat(3, 56))));
    EXPECT_EQ(position, 0x12345u);
    EXPECT_EQ(call(), 1u);
    EXPECT_EQ(platform().messages.at(1).request[20], 0x45) << "goes on where the first page ended";
    EXPECT_EQ(position, 0u);
    EXPECT_EQ(printed, "");
}

TEST_F(arp_search, goes_on_where_an_empty_page_says)
{
    for (const uint32_t cursor : {0x12345u, 0u}) {
        position = 0x778899aa;
        platform().answers = {{0, 0, page(cursor, 0), {}}};
        EXPECT_EQ(call(), 0u);
        EXPECT_EQ(position, cursor);
    }
    EXPECT_EQ(platform().messages.size(), 2u) << "one page for each call";
    EXPECT_TRUE(state.rows.empty());
    EXPECT_EQ(printed, "");
}

TEST_F(arp_search, is_not_stopped_by_its_callback)
{
    state.answer = -1;
    platform().answers = {{0, 0, page(1, 3), {}}};
    EXPECT_EQ(call(), 3u);
    EXPECT_EQ(state.rows.size(), 3u);
    EXPECT_EQ(position, 1u);
}

TEST_F(arp_search, counts_without_a_callback_and_without_a_filter)
{
    platform().answers = {{0, 0, page(1, 3), {}}};
    EXPECT_EQ(search_arp_items(0, 0, nullptr, &state, nullptr, nullptr), 3u);
    const bytes &request = platform().messages.at(0).request;
    EXPECT_EQ(bytes(request.begin() + 32, request.end()), bytes(108));
}

TEST_F(arp_search, leaves_the_position_on_failure)
{
    check_failures({"search_arp_items", [this](print_callback print) { return call(print); },
                    "ARP show failed, ret is -7\n", 0});
    platform().fallback = {0, 0, join({page(5, 1), {0}}), {}};
    EXPECT_EQ(call(), 0u);
    EXPECT_EQ(printed, "Received buf len is wrong, len is 65\n");
    EXPECT_EQ(position, 0x778899aau);
    EXPECT_TRUE(state.rows.empty());
}

/* --- virtual-router names --- */

struct vrname : platform_test {
    static std::string name_after(const answer &with)
    {
        platform().fallback = with;
        return get_vrname_by_vrid(1);
    }
};

TEST_F(vrname, is_the_replys_text)
{
    EXPECT_EQ(name_after({0, 0, text_field("main-router", 32), {}}), "main-router");
    EXPECT_EQ(name_after({0, 5, text_field("a", 32), {}}), "a") << "nothing of the last name is left";
}

TEST_F(vrname, ends_at_its_first_zero_and_with_the_reply)
{
    EXPECT_EQ(name_after({0, 0, {'a', 'b', 0, 'c', 'd'}, {}}), "ab");
    const char *name = get_vrname_by_vrid(1);
    EXPECT_EQ(bytes(name, name + 32), text_field("ab", 32));
    EXPECT_EQ(name_after({0, 0, {'a', 'b', 'c'}, {}}), "abc") << "bytes that were not received are not text";
    EXPECT_EQ(name_after({0, 0, {}, {}}), "");
    EXPECT_EQ(name_after({0, 0, {'a', 'b'}, 32}), "ab") << "the buffer is cleared before the exchange";
}

TEST_F(vrname, may_fill_all_32_bytes)
{
    platform().fallback = {0, 0, repeat('x', 32), {}};
    EXPECT_EQ(bytes(get_vrname_by_vrid(1), get_vrname_by_vrid(1) + 32), repeat('x', 32));
    EXPECT_EQ(name_after({0, 0, repeat('y', 40), {}}), std::string(32, 'y'));
}

TEST_F(vrname, says_why_there_is_none)
{
    EXPECT_EQ(name_after({-1, 0, {}, {}}), "ipc-fail");
    EXPECT_EQ(name_after({0, -1, text_field("main-router", 32), {}}), "not-found-name");
    EXPECT_EQ(name_after({-1, -1, {}, {}}), "ipc-fail");
}

TEST_F(vrname, is_empty_without_buffers)
{
    name_after({0, 0, text_field("main-router", 32), {}});
    for (const uint32_t failing : {3u, 5u}) {
        platform().fail_allocation(failing);
        EXPECT_STREQ(get_vrname_by_vrid(1), "");
    }
}

TEST_F(vrname, is_always_in_the_same_buffer)
{
    platform().fallback = {0, 0, {'a'}, {}};
    const char *first = get_vrname_by_vrid(1);
    EXPECT_EQ(get_vrname_by_vrid(2), first);
}

} // namespace
