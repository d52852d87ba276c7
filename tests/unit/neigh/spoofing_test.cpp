#include <libmix/spoofing.h>

#include "support/client_suite.h"

#include <cstring>

#include <functional>

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

bytes page16(uint32_t cursor, uint32_t count, size_t header, size_t row_size, uint8_t first_byte = 0x10)
{
    bytes out = join({le16(cursor), le16(count), repeat(0xee, header - 4)});
    for (uint32_t i = 0; i < count; i++)
        out = join({out, repeat(static_cast<uint8_t>(first_byte + i), row_size)});
    return out;
}

bytes count_first_page(uint32_t cursor, uint32_t count, size_t row_size)
{
    return join({le32(count), le32(cursor), repeat(0x77, count * row_size)});
}

/* What is alike in the five listings. */
struct listing_shape {
    const char *name;
    std::function<uint32_t(row_callback, void *, print_callback)> call;
    uint32_t destination;
    uint32_t type;
    uint32_t capacity;
    size_t header;
    size_t row_size;
    size_t request_cursor; /* offset */
    size_t cursor_width;
    bool count_first;
    const char *refusal;

    [[nodiscard]] bytes page(uint32_t cursor, uint32_t count) const
    {
        return count_first ? count_first_page(cursor, count, row_size)
                           : page16(cursor, count, header, row_size);
    }
};

const listing_shape shapes[] = {
    {"aspf",
     [](auto row, auto context, auto print) { return get_aspf_stats_items(7, 0, 0, row, context, print); }, 0,
     90, 2000, 4, 48, 4, 2, false, "ARP spoofing statistics show failed, ret is -6\n"},
    {"ndspf",
     [](auto row, auto context, auto print) { return get_ndspf_stats_items(7, 9, row, context, print); }, 0,
     138, 2000, 8, 56, 4, 2, false, "ND spoofing statistics show failed, ret is -6\n"},
    {"arpi",
     [](auto row, auto context, auto print) { return arpi_config_show(7, "a", 3, 1, row, context, print); },
     1, 100, 3000, 8, 70, 80, 4, true, "ARP inspection show failed, ret is -6\n"},
    {"arpi_by_if",
     [](auto row, auto context, auto print) {
         return show_arpi_config_by_if(7, 0, row, context, "eth0", print);
     },
     1, 100, 3000, 8, 70, 80, 4, true, "ARP inspection show failed, ret is -6\n"},
    {"ndi",
     [](auto row, auto context, auto print) { return ndi_config_show(7, "a", 3, 1, row, context, print); }, 1,
     137, 3000, 8, 38, 44, 4, true, "ND inspection show failed, ret is -6\n"},
};

struct spoofing_listing : platform_test, testing::WithParamInterface<listing_shape> {
    const listing_shape &shape = GetParam();
    collected_rows got{.row_size = GetParam().row_size};

    uint32_t call() { return shape.call(collect_row, &got, collect_print); }
    [[nodiscard]] uint32_t sent_cursor(size_t message) const
    {
        uint32_t value = 0;
        std::memcpy(&value, platform().messages.at(message).request.data() + shape.request_cursor,
                    shape.cursor_width);
        return value;
    }
};

TEST_P(spoofing_listing, pages_until_the_cursor_is_0_and_flags_the_first_row_only)
{
    platform().answers = {
        {0, 0, shape.page(0x1234, 2), {}}, {0, 0, shape.page(5, 0), {}}, {0, 0, shape.page(0, 1), {}}};
    EXPECT_EQ(call(), 3u);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 0}));
    ASSERT_EQ(platform().messages.size(), 3u);
    EXPECT_EQ(sent_cursor(0), 0u);
    EXPECT_EQ(sent_cursor(1), 0x1234u);
    EXPECT_EQ(sent_cursor(2), 5u);
    for (const sent_message &sent : platform().messages) {
        EXPECT_EQ(sent.by, sender::send_and_recv);
        EXPECT_EQ(sent.destination, shape.destination);
        EXPECT_EQ(sent.type, shape.type);
        EXPECT_EQ(sent.capacity, shape.capacity);
        EXPECT_EQ(sent.timeout_ms, 500u);
        EXPECT_FALSE(sent.in_place);
    }
}

TEST_P(spoofing_listing, ignores_the_callbacks_result)
{
    got.answer = -1;
    platform().answers = {{0, 0, shape.page(1, 2), {}}, {0, 0, shape.page(0, 2), {}}};
    EXPECT_EQ(call(), 4u);
    EXPECT_EQ(got.rows.size(), 4u);
}

TEST_P(spoofing_listing, counts_without_a_callback)
{
    platform().answers = {{0, 0, shape.page(0, 3), {}}};
    EXPECT_EQ(shape.call(nullptr, nullptr, collect_print), 3u);
}

TEST_P(spoofing_listing, keeps_the_rows_before_a_failure)
{
    const std::pair<answer, std::string> failures[] = {
        {{-1, 0, {}, {}}, "ipcmsg send failed\n"},
        {{0, -6, {}, {}}, shape.refusal},
        {{0, 0, {}, {}}, "Received buf len is wrong, len is 0\n"},
        {{0, 0, shape.page(0, 1), shape.capacity + 1},
         "Received buf len is wrong, len is " + std::to_string(shape.capacity + 1) + "\n"},
    };
    for (const auto &[with, text] : failures) {
        platform().answers = {{0, 0, shape.page(1, 2), {}}, with};
        EXPECT_EQ(call(), 2u);
        EXPECT_EQ(printed, text);
        printed.clear();
        platform().answers = {{0, 0, shape.page(1, 2), {}}, with};
        EXPECT_EQ(shape.call(collect_row, &got, nullptr), 2u);
        EXPECT_EQ(printed, "");
    }
}

TEST_P(spoofing_listing, checks_the_length_against_the_count)
{
    for (const int off : {-1, 1}) {
        bytes page = shape.page(0, 2);
        page.resize(page.size() + static_cast<size_t>(off));
        platform().answers = {{0, 0, page, {}}};
        EXPECT_EQ(call(), 0u);
        EXPECT_EQ(printed, "Received buf len is wrong, len is " + std::to_string(page.size()) + "\n");
        printed.clear();
    }
    EXPECT_TRUE(got.rows.empty());
}

TEST_P(spoofing_listing, tells_a_missing_request_buffer_only)
{
    platform().fail_allocation(1);
    EXPECT_EQ(call(), 0u);
    EXPECT_EQ(printed, "No enough memory\n");
    printed.clear();
    platform().fail_allocation(3);
    EXPECT_EQ(call(), 0u);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(platform().messages.empty());
}

INSTANTIATE_TEST_SUITE_P(all, spoofing_listing, testing::ValuesIn(shapes),
                         [](const auto &one) { return one.param.name; });

struct spoofing : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        platform().fallback = {0, 0, {}, 0};
    }
    static const bytes &request(size_t message = 0) { return platform().messages.at(message).request; }
};

TEST_F(spoofing, arp_statistics_request)
{
    get_aspf_stats_items(0x1122, 0x33445566, 10, nullptr, nullptr, nullptr);
    EXPECT_EQ(request(), join({le32(0), le16(0x5566), le16(0x1122), le32(10)}));
    get_aspf_stats_items(0, 0, 0, nullptr, nullptr, nullptr);
    EXPECT_EQ(request(1), join({le32(0), le16(0), le16(0), le32(0x7fffffff)}));
}

TEST_F(spoofing, arp_statistics_budget_stops_at_exactly_0)
{
    platform().answers = {{0, 0, page16(1, 2, 4, 48), {}}};
    EXPECT_EQ(get_aspf_stats_items(0, 0, 2, nullptr, nullptr, nullptr), 2u);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_F(spoofing, arp_statistics_budget_wraps_past_0)
{
    platform().answers = {{0, 0, page16(1, 2, 4, 48), {}}, {0, 0, page16(0, 1, 4, 48), {}}};
    EXPECT_EQ(get_aspf_stats_items(0, 0, 1, nullptr, nullptr, nullptr), 3u);
    EXPECT_EQ(request(1), join({le32(0), le16(1), le16(0), le32(0xffffffff)}));
}

TEST_F(spoofing, nd_statistics_request_repeats_the_callers_word)
{
    platform().answers = {{0, 0, page16(0xabcd, 1, 8, 56), {}}, {0, 0, page16(0, 1, 8, 56), {}}};
    EXPECT_EQ(get_ndspf_stats_items(0x1122, 0x33445566, nullptr, nullptr, nullptr), 2u);
    EXPECT_EQ(request(0), join({le32(0), le16(0), le16(0x1122), le32(0x33445566)}));
    EXPECT_EQ(request(1), join({le32(0), le16(0xabcd), le16(0x1122), le32(0x33445566)}));
}

TEST_F(spoofing, arp_inspection_request_by_name)
{
    for (const uint8_t mode : {1, 2}) {
        platform().messages.clear();
        arpi_config_show(0x1122, "policy", 0x3344, mode, nullptr, nullptr, nullptr);
        EXPECT_EQ(request(), join({le32(1),
                                   {mode, 0},
                                   le16(0x1122),
                                   text_field("policy", 32),
                                   repeat(0, 32),
                                   le16(0),
                                   le16(0),
                                   le32(42),
                                   le32(0)}));
        arpi_config_show(0, nullptr, 0x3344, mode, nullptr, nullptr, nullptr);
        EXPECT_EQ(request(1), join({le32(1), {mode, 0}, le16(0), repeat(0, 68), le32(42), le32(0)}));
    }
}

TEST_F(spoofing, arp_inspection_request_by_number)
{
    for (const uint8_t mode : {0, 3, 255}) {
        platform().messages.clear();
        arpi_config_show(0x1122, "policy", 0x3344, mode, nullptr, nullptr, nullptr);
        EXPECT_EQ(request(),
                  join({le32(1), {mode, 0}, le16(0x1122), le16(0x3344), repeat(0, 66), le32(42), le32(0)}));
    }
}

TEST_F(spoofing, nd_inspection_swaps_mode_and_virtual_system)
{
    ndi_config_show(0x1122, "policy", 0x3344, 2, nullptr, nullptr, nullptr);
    EXPECT_EQ(request(0), join({le32(1), le16(0x1122), {2, 0}, text_field("policy", 32), le32(78), le32(0)}));
    ndi_config_show(0x1122, "policy", 0x3344, 4, nullptr, nullptr, nullptr);
    EXPECT_EQ(request(1),
              join({le32(1), le16(0x1122), {4, 0}, le16(0x3344), repeat(0, 30), le32(78), le32(0)}));
    ndi_config_show(0, nullptr, 0x3344, 1, nullptr, nullptr, nullptr);
    EXPECT_EQ(request(2), join({le32(1), le16(0), {1, 0}, repeat(0, 32), le32(78), le32(0)}));
}

TEST_F(spoofing, inspection_names_are_cut_to_31_characters)
{
    const std::string longest(40, 'n');
    arpi_config_show(0, longest.c_str(), 0, 1, nullptr, nullptr, nullptr);
    EXPECT_EQ(bytes(request().begin() + 8, request().begin() + 40), text_field(longest.substr(0, 31), 32));
    show_arpi_config_by_if(0, 0, nullptr, nullptr, longest.c_str(), nullptr);
    EXPECT_EQ(bytes(request(1).begin() + 40, request(1).begin() + 72), text_field(longest.substr(0, 31), 32));
}

struct vlan_case {
    const char *ifname;
    uint16_t first, last;
};

TEST_F(spoofing, inspection_by_interface_sends_the_vlans_of_its_name)
{
    const vlan_case cases[] = {
        {"Vlan10-20", 10, 20},    {"Vlan7", 7, 0},    {"Vlan", 0, 0},
        {"Vlan7-", 7, 0},         {"Vlan7-x", 7, 0},  {"Vlanif12-15", 12, 15},
        {"Vlan7x-9", 7, 0},       {"Vlan7 -9", 7, 0}, {"vlan10-20", 0, 0},
        {"eth0", 0, 0},           {"xVlan3", 0, 0},   {"Vlan4094-4095", 4094, 4095},
        {"Vlan10-20-30", 10, 20}, {"", 0, 0},         {"Vla", 0, 0},
        {"Vlax5", 0, 0},          {"Vlan0-5", 0, 5},  {"VlanQ7-8", 7, 8},
        {"Vlan9-0", 9, 0},        {"Vlan-7", 7, 0},
    };
    for (const vlan_case &each : cases) {
        platform().messages.clear();
        show_arpi_config_by_if(0x1122, 99, nullptr, nullptr, each.ifname, nullptr);
        EXPECT_EQ(request(), join({le32(1),
                                   {2, 0},
                                   le16(0x1122),
                                   repeat(0, 32),
                                   text_field(each.ifname, 32),
                                   le16(each.first),
                                   le16(each.last),
                                   le32(42),
                                   le32(0)}))
            << each.ifname;
    }
}

TEST_F(spoofing, arp_statistics_are_cleared_for_one_mac_or_for_all)
{
    check_request({"", [] { EXPECT_EQ(aspf_stats_clear(0x1122, mac, 0x3344, collect_print), 0); }, 0, 90,
                   join({le32(2), le16(0x1122), le16(0x3344), bytes(mac, mac + 6), le16(0)}), 4});
    platform().reset();
    check_request({"", [] { EXPECT_EQ(aspf_stats_clear(0x1122, nullptr, 0x3344, collect_print), 0); }, 0, 90,
                   join({le32(1), le16(0x1122), repeat(0, 10)}), 4});
    EXPECT_EQ(printed, "");
}

TEST_F(spoofing, nd_statistics_are_cleared)
{
    check_request({"", [] { EXPECT_EQ(ndspf_stats_clear(0x1122, collect_print), 0); }, 0, 138,
                   join({le32(1), le16(0x1122), le16(0)}), 4});
    EXPECT_EQ(printed, "");
}

TEST_F(spoofing, clearing_returns_0_whatever_happens)
{
    struct {
        std::function<int(print_callback)> call;
        const char *refusal;
    } const clears[] = {
        {[](auto print) { return aspf_stats_clear(1, mac, 2, print); },
         "ARP spoofing statistics clear failed, ret is -4\n"},
        {[](auto print) { return ndspf_stats_clear(1, print); },
         "ND spoofing statistics clear failed, ret is -4\n"},
    };
    for (const auto &clear : clears) {
        printed.clear();
        platform().answers = {{-1, 0, {}, {}}, {-1, 0, {}, {}}, {0, -4, {}, {}}, {0, -4, {}, {}}};
        EXPECT_EQ(clear.call(collect_print), 0);
        EXPECT_EQ(clear.call(nullptr), 0);
        EXPECT_EQ(clear.call(collect_print), 0);
        EXPECT_EQ(clear.call(nullptr), 0);
        platform().fail_allocation(platform().allocations + 1);
        EXPECT_EQ(clear.call(collect_print), 0);
        platform().fail_allocation(platform().allocations + 2);
        EXPECT_EQ(clear.call(collect_print), 0);
        EXPECT_EQ(printed, std::string("ipcmsg send failed\n") + clear.refusal + "No enough memory\n");
    }
}

} // namespace
