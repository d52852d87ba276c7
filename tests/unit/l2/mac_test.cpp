#include <libmix/mac.h>

#include <algorithm>
#include <cstring>

#include "support/client_suite.h"

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};
const bytes mac_bytes(mac, mac + 6);

bytes bitmap()
{
    bytes out(512);
    out[0] = 0x02;
    out[511] = 0x80;
    return out;
}

uint8_t into[16];

/* --- requests --- */

bytes list_record(bytes flags_and_mac, uint8_t extra = 0)
{
    return record_of(40, {{4, le16(0x1122)},
                          {8, le32(0x5566)},
                          {12, le32(0xa1b2c3d4)},
                          {16, le32(300)},
                          {24, flags_and_mac},
                          {32, le16(0x7788)},
                          {36, {extra}}});
}

std::function<void()> list_with(const uint8_t *filter, uint8_t mode)
{
    return [=] {
        get_mac_items(0x1122, 0x33445566, 0x7788, filter, nullptr, nullptr, nullptr, 0xa1b2c3d4, 300, mode, 0,
                      9);
    };
}

struct mac_requests : platform_test, testing::WithParamInterface<request_case> {
};

TEST_P(mac_requests, are_sent_byte_for_byte)
{
    platform().current_vsysid = 0x0909;
    check_request(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    mac, mac_requests,
    testing::Values(
        request_case{"mode_1", list_with(nullptr, 1), 0, 39, list_record({0x02}), 2000},
        request_case{"mode_2", list_with(nullptr, 2), 0, 39, list_record({0x04}), 2000},
        request_case{"mode_3", list_with(nullptr, 3), 0, 39, list_record({0x04}, 1), 2000},
        request_case{"mode_0", list_with(nullptr, 0), 0, 39, list_record({0x0e}), 2000},
        request_case{"mode_4", list_with(nullptr, 4), 0, 39, list_record({0x0e}), 2000},
        request_case{"mode_255", list_with(nullptr, 255), 0, 39, list_record({0x0e}), 2000},
        request_case{"with_an_address", list_with(mac, 1), 0, 39, list_record(join({{0x03}, mac_bytes})),
                     2000},
        request_case{"with_an_address_in_all", list_with(mac, 0), 0, 39,
                     list_record(join({{0x0f}, mac_bytes})), 2000},
        request_case{"of_a_slot",
                     [] { get_mac_items(0, 0, 0, nullptr, nullptr, nullptr, nullptr, 0, 0, 1, 3, 0x10405); },
                     0x03040500, 39, record_of(40, {{16, le32(0x7fffffff)}, {24, {2}}}), 2000},
        request_case{
            "selectors_of_16_bits",
            [] { get_mac_items(0xffff, 0x1ffff, 0xffff, nullptr, nullptr, nullptr, nullptr, 0, 0, 1, 0, 0); },
            0, 39,
            record_of(40, {{4, le16(0xffff)},
                           {8, le32(0xffff)},
                           {16, le32(0x7fffffff)},
                           {24, {2}},
                           {32, le16(0xffff)}}),
            2000},
        request_case{"summary", [] { mac_generic_data_get(into, nullptr, 0, 7); }, 0, 39,
                     record_of(40, {{0, {1}}}), 16},
        request_case{"summary_of_a_slot", [] { mac_generic_data_get(into, nullptr, 3, 4); }, 0x03000400, 39,
                     record_of(40, {{0, {1}}}), 16},
        request_case{"clear", [] { mac_remove_dynamic_items(0x1122, 0x33445566, nullptr, nullptr, 0, 5); }, 0,
                     39, record_of(32, {{0, {2}}, {4, le16(0x1122)}, {8, le32(0x5566)}}), 8},
        request_case{
            "clear_an_address_of_a_slot",
            [] { mac_remove_dynamic_items(0x1122, 0x33445566, mac, nullptr, 3, 4); }, 0x03000400, 39,
            record_of(
                32,
                {{0, {2}}, {4, le16(0x1122)}, {8, le32(0x5566)}, {12, le32(3)}, {16, mac_bytes}, {24, {1}}}),
            8},
        request_case{"dynamic_to_static", [] { mac_dynamic2static(0x1122, nullptr, 0); }, 0, 39,
                     record_of(40, {{4, le16(0x1122)}, {16, le32(0x7fffffff)}, {24, {4}}, {36, {1}}}), 2000},
        request_case{
            "bound",
            [] { is_if_bound_with_l2_mac(0x33445566, 0x77889900); }, 0, 39,
            record_of(40, {{8, le32(0x5566)}, {16, le32(0x7fffffff)}, {24, {2}}, {32, le16(0x9900)}}), 2000},
        request_case{"bound_in_vlans", [] { is_if_bound_with_l2_mac_vlan_bitmap(0x1122, bitmap().data()); },
                     0, 39, record_of(520, {{0, {6}}, {4, le16(0x1122)}, {8, bitmap()}}), 1},
        request_case{
            "descriptions",
            [] { get_mac_desc_items(nullptr, nullptr, nullptr, nullptr, 0xa1b2c3d4, 300, 0x1122); }, 0, 93,
            record_of(28, {{0, {3}}, {4, le32(0xa1b2c3d4)}, {8, le32(300)}, {24, le16(0x1122)}}), 2000},
        request_case{"description_of_an_address",
                     [] { get_mac_desc_items(mac, nullptr, nullptr, nullptr, 0, 300, 0); }, 0, 93,
                     record_of(28, {{0, {3}}, {8, le32(1)}, {16, mac_bytes}, {22, {1}}}), 2000}),
    case_name);

/* --- failures --- */

struct mac_failures : platform_test, testing::WithParamInterface<failure_case> {
};

TEST_P(mac_failures, are_told_and_answered)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    mac, mac_failures,
    testing::Values(
        failure_case{"mac_generic_data_get",
                     [](print_callback print) { return mac_generic_data_get(into, print, 0, 0); },
                     "MAC show failed, ret is -7\n", -1, "No enough memory\n", "No enough memory\n",
                     "ipcmsg send failed\n", 0},
        failure_case{"mac_remove_dynamic_items",
                     [](print_callback print) { return mac_remove_dynamic_items(0, 0, mac, print, 0, 0); },
                     "MAC clear failed, ret is -7\n", 0, "mac_remove_dynamic_items, No enough memory\n"},
        failure_case{"mac_dynamic2static",
                     [](print_callback print) { return mac_dynamic2static(0, print, 0); },
                     "MAC show failed, ret is -7\n", 0},
        failure_case{"is_if_bound_with_l2_mac", [](print_callback) { return is_if_bound_with_l2_mac(0, 0); },
                     "", 0, "", "", ""},
        failure_case{"is_if_bound_with_l2_mac_vlan_bitmap",
                     [](print_callback) { return is_if_bound_with_l2_mac_vlan_bitmap(0, bitmap().data()); },
                     "", 0, "", "", ""}),
    case_name);

struct mac_replies : platform_test {
    bytes out = repeat(0x77, 16);
};

TEST_F(mac_replies, summary_copies_16_bytes_and_returns_the_status)
{
    bytes summary = repeat(1, 16);
    summary[15] = 9;
    platform().answers = {{0, 3, summary, {}}};
    EXPECT_EQ(mac_generic_data_get(out.data(), collect_print, 0, 0), 3);
    EXPECT_EQ(out, summary);
    EXPECT_EQ(printed, "");
}

TEST_F(mac_replies, summary_is_untouched_unless_exactly_16_bytes_came)
{
    for (const size_t length : {size_t{0}, size_t{15}, size_t{17}}) {
        printed.clear();
        platform().fallback = {0, 3, repeat(1, length), {}};
        EXPECT_EQ(mac_generic_data_get(out.data(), collect_print, 0, 0), -1);
        EXPECT_EQ(printed, "Received buf len is wrong, len is " + std::to_string(length) + "\n");
        EXPECT_EQ(mac_generic_data_get(out.data(), nullptr, 0, 0), -1);
    }
    EXPECT_EQ(out, repeat(0x77, 16));
}

TEST_F(mac_replies, clear_gives_the_second_word)
{
    platform().answers = {{0, 5, join({le32(1), le32(4711)}), {}}};
    EXPECT_EQ(mac_remove_dynamic_items(0, 0, nullptr, collect_print, 0, 0), 4711);
    EXPECT_EQ(printed, "");
}

TEST_F(mac_replies, clear_gives_0_unless_exactly_8_bytes_came)
{
    for (const size_t length : {size_t{0}, size_t{4}, size_t{7}, size_t{9}}) {
        printed.clear();
        platform().fallback = {0, 5, repeat(1, length), {}};
        EXPECT_EQ(mac_remove_dynamic_items(0, 0, nullptr, collect_print, 0, 0), 0);
        EXPECT_EQ(printed, "Received buf len is wrong, len is " + std::to_string(length) + "\n");
        EXPECT_EQ(mac_remove_dynamic_items(0, 0, nullptr, nullptr, 0, 0), 0);
    }
}

TEST_F(mac_replies, bound_in_vlans_is_the_replys_byte)
{
    for (const uint8_t byte : {uint8_t{0}, uint8_t{1}, uint8_t{200}}) {
        platform().fallback = {0, 5, {byte}, {}};
        EXPECT_EQ(is_if_bound_with_l2_mac_vlan_bitmap(0, bitmap().data()), byte);
    }
    platform().fallback = {0, 0, {}, {}};
    EXPECT_EQ(is_if_bound_with_l2_mac_vlan_bitmap(0, bitmap().data()), 0);
    platform().fallback = {0, 0, {1, 1}, {}};
    EXPECT_EQ(is_if_bound_with_l2_mac_vlan_bitmap(0, bitmap().data()), 0);
    platform().fallback = {0, -7, {1}, {}};
    EXPECT_EQ(is_if_bound_with_l2_mac_vlan_bitmap(0, bitmap().data()), 0) << "a good reply, but refused";
}

/* --- bound entries and conversion --- */

bytes mac_entry(uint16_t flags, uint16_t vlan, const bytes &name, const bytes &second)
{
    return record_of(
        78,
        {{0, mac_bytes}, {6, le16(flags)}, {8, le16(vlan)}, {10, repeat(0xEE, 4)}, {14, name}, {46, second}});
}

bytes mac_page(uint16_t cursor, std::initializer_list<bytes> entries)
{
    bytes out = join({le16(cursor), le16(static_cast<uint32_t>(entries.size()))});
    for (const bytes &each : entries)
        out = join({out, each});
    return out;
}

/* What a commit carried, read while its values were alive. */
struct mac_commit {
    std::string object;
    uint32_t type;
    std::optional<std::string> interface = {};
    std::optional<bytes> mac = {};
    std::optional<std::string> second = {};
    std::optional<uint16_t> vlan = {};
    int others = 0;

    bool operator==(const mac_commit &) const = default;
};

void PrintTo(const mac_commit &one, std::ostream *out)
{
    *out << one.object << " " << one.type << " " << one.interface.value_or("-") << " "
         << one.second.value_or("-") << " " << one.vlan.value_or(9999) << (one.mac ? " mac" : " -") << " "
         << one.others;
}

std::optional<std::string> text_of(const void *slot)
{
    if (slot == nullptr)
        return {};
    const char *text = *static_cast<const char *const *>(slot);
    return text != nullptr ? std::optional<std::string>(text) : "(null)";
}

/* How many attributes are there from this number on. */
int others_from(const mgi_message &message, int number)
{
    return static_cast<int>(std::count_if(message.attr + number, message.attr + 16,
                                          [](const void *slot) { return slot != nullptr; }));
}

mac_commit read_commit(const mgi_message &message, const std::string &object)
{
    mac_commit out{object, message.rqt_type};
    if (object == "final_set_md_macd") {
        if (const auto *from = static_cast<const uint8_t *>(message.attr[0]))
            out.mac = bytes(from, from + 6);
        out.second = text_of(message.attr[1]);
        out.others = others_from(message, 2);
        return out;
    }
    out.interface = text_of(message.attr[0]);
    if (const auto *from = static_cast<const uint8_t *>(message.attr[1]))
        out.mac = bytes(from, from + 6);
    out.second = text_of(message.attr[2]);
    if (message.attr[3] != nullptr) {
        uint16_t vlan;
        std::memcpy(&vlan, message.attr[3], sizeof vlan);
        out.vlan = vlan;
    }
    out.others = others_from(message, 4);
    return out;
}

struct mac_static : platform_test {
    std::vector<mac_commit> commits;
    char error[16];

    void SetUp() override
    {
        platform_test::SetUp();
        std::memset(error, '#', sizeof error);
        platform().current_vsysid = 0x0909;
        platform().on_commit = [this](const mgi_message &message, const std::string &object) {
            commits.push_back(read_commit(message, object));
        };
    }
    int add(const char *ifname, const char *second = "eth1", print_callback print = collect_print)
    {
        return mac_add_static_items(ifname, second, mac, 10, print, error, sizeof error, 0x101, 0x55);
    }
    void expect_error_untouched() const
    {
        EXPECT_EQ(bytes(error, error + sizeof error), repeat('#', sizeof error));
    }
    static mac_commit entry(uint32_t type, std::optional<std::string> ifname,
                            std::optional<std::string> second = "eth1", uint16_t vlan = 10)
    {
        return {"final_set_mac_mace_ml", type, std::move(ifname), mac_bytes, std::move(second), vlan};
    }
    static mac_commit interface(uint32_t type, const char *ifname)
    {
        return {"final_set_mac_mace", type, ifname};
    }
};

TEST_F(mac_static, a_listing_tells_whether_something_is_bound)
{
    platform().answers = {
        {0, 0, mac_page(0, {mac_entry(4, 1, {'a'}, {'b'})}), {}},
        {0, 0, mac_page(0, {}), {}},
        {0, 0, mac_page(0, {mac_entry(4, 1, {'a'}, {'b'}), mac_entry(4, 2, {'a'}, {'b'})}), {}}};
    EXPECT_EQ(is_if_bound_with_l2_mac(1, 2), 1);
    EXPECT_EQ(is_if_bound_with_l2_mac(1, 2), 0);
    EXPECT_EQ(is_if_bound_with_l2_mac(1, 2), 1) << "however many there are";
}

TEST_F(mac_static, add_creates_an_interface_that_is_not_there)
{
    platform().response_types = {0};
    EXPECT_EQ(add("br0"), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{interface(7, "br0"), interface(4, "br0"), entry(4, "br0")}));
    for (const gateway_call &call : platform().gateway_calls)
        EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_FALSE(platform().gateway_calls[0].language_set || platform().gateway_calls[0].vsysid_set);
    EXPECT_FALSE(platform().gateway_calls[1].language_set || platform().gateway_calls[1].vsysid_set);
    EXPECT_TRUE(platform().gateway_calls[2].language_set);
    EXPECT_EQ(platform().gateway_calls[2].language, 1);
    EXPECT_FALSE(platform().gateway_calls[2].vsysid_set);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(mac_static, add_leaves_an_interface_that_is_there)
{
    platform().commit_results = {42, 0};
    platform().response_types = {15};
    EXPECT_EQ(add("br0"), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{interface(7, "br0"), entry(4, "br0")}));
    EXPECT_EQ(printed, "") << "that the first attempt is refused is no failure";
}

TEST_F(mac_static, add_prints_that_an_interface_can_not_be_created_and_goes_on)
{
    platform().commit_results = {41, 42, 0};
    EXPECT_EQ(add("br0"), 0);
    EXPECT_EQ(commits.size(), 3u);
    EXPECT_EQ(printed, "refused");
    EXPECT_EQ(printed_formats, (std::vector<std::string>{"%s"}));
    EXPECT_EQ(platform().refusal_results, (std::vector<int>{42}));
    expect_error_untouched();
}

TEST_F(mac_static, add_names_the_interface_after_the_vlan)
{
    platform().response_types = {15, 0, 15, 0, 15};
    EXPECT_EQ(add(nullptr), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{interface(7, "vlan10"), entry(4, "vlan10")}));
    commits.clear();
    EXPECT_EQ(mac_add_static_items(nullptr, "eth1", mac, 65535, nullptr, nullptr, 0, 0, 0), 0);
    EXPECT_EQ(commits[1].interface, "vlan65535");
    commits.clear();
    EXPECT_EQ(mac_add_static_items(nullptr, "eth1", mac, 0, nullptr, nullptr, 0, 0, 0), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{interface(7, "vlan0"), entry(4, "vlan0", "eth1", 0)}))
        << "unlike removing";
}

TEST_F(mac_static, add_needs_a_second_name_and_an_address)
{
    EXPECT_EQ(mac_add_static_items("br0", nullptr, mac, 1, collect_print, error, sizeof error, 0, 0), -1);
    EXPECT_EQ(mac_add_static_items("br0", "eth1", nullptr, 1, collect_print, error, sizeof error, 0, 0), -1);
    EXPECT_TRUE(commits.empty());
    EXPECT_EQ(platform().messages_initialised, 0u);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(mac_static, add_tells_a_refusal_wherever_there_is_a_place)
{
    const auto refuse = [&] {
        platform().response_types = {15};
        platform().commit_results = {0, 42};
        printed.clear();
        std::memset(error, '#', sizeof error);
    };
    platform().refusal_text = "100% of the table";
    refuse();
    EXPECT_EQ(add("br0"), 42);
    EXPECT_EQ(printed, "100% of the table");
    EXPECT_STREQ(error, "100% of the tab") << "cut and terminated";
    refuse();
    EXPECT_EQ(add("br0", "eth1", nullptr), 42);
    EXPECT_STREQ(error, "100% of the tab") << "also without a print callback";
    refuse();
    EXPECT_EQ(mac_add_static_items("br0", "eth1", mac, 1, collect_print, nullptr, 16, 0, 0), 42);
    EXPECT_EQ(printed, "100% of the table");
    refuse();
    EXPECT_EQ(mac_add_static_items("br0", "eth1", mac, 1, collect_print, error, 0, 0, 0), 42);
    expect_error_untouched();
    refuse();
    platform().refusal_text = nullptr;
    EXPECT_EQ(add("br0"), 42);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(mac_static, remove_commits_the_entry)
{
    EXPECT_EQ(mac_remove_static_items("br0", "eth1", mac, 10, collect_print, 0, 0x101, 0x55, 0x3344), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{entry(5, "br0")}));
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_EQ(call.vsysid, 0x3344);
    EXPECT_EQ(printed, "");
}

TEST_F(mac_static, remove_names_the_interface_after_the_vlan_unless_it_is_0)
{
    EXPECT_EQ(mac_remove_static_items(nullptr, "eth1", mac, 10, collect_print, 0, 0, 0, 0), 0);
    EXPECT_EQ(mac_remove_static_items(nullptr, "eth1", mac, 0, collect_print, 0, 0, 0, 0), 0);
    EXPECT_EQ(mac_remove_static_items("br0", nullptr, mac, 0, collect_print, 0, 0, 0, 0), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{entry(5, "vlan10"), entry(5, std::nullopt, "eth1", 0),
                                                entry(5, "br0", std::nullopt, 0)}));
}

TEST_F(mac_static, remove_all_unsets_the_whole_table)
{
    for (const int all : {1, -1, 0x100}) {
        commits.clear();
        EXPECT_EQ(mac_remove_static_items("br0", "eth1", nullptr, 10, collect_print, all, 1, 0x55, 0x3344),
                  0);
        EXPECT_EQ(commits, (std::vector<mac_commit>{{"final_set_mac_mace", 9}})) << all;
        const gateway_call &call = platform().gateway_calls.back();
        EXPECT_FALSE(call.language_set);
        EXPECT_EQ(call.request_flag, 0x55);
        EXPECT_EQ(call.vsysid, 0x3344);
    }
    EXPECT_EQ(printed, "");
}

TEST_F(mac_static, remove_needs_an_address)
{
    EXPECT_EQ(mac_remove_static_items("br0", "eth1", nullptr, 10, collect_print, 0, 0, 0, 0), -1);
    EXPECT_EQ(printed, "Parameter mac is NULL\n");
    EXPECT_EQ(mac_remove_static_items("br0", "eth1", nullptr, 10, nullptr, 0, 0, 0, 0), -1);
    EXPECT_TRUE(commits.empty());
}

TEST_F(mac_static, remove_prints_a_refusal)
{
    for (const int all : {0, 1}) {
        platform().commit_results = {42, 42, 42};
        platform().refusal_text = "refused";
        printed.clear();
        EXPECT_EQ(mac_remove_static_items("br0", "eth1", mac, 10, collect_print, all, 0, 0, 0), 42);
        EXPECT_EQ(printed, "refused");
        EXPECT_EQ(mac_remove_static_items("br0", "eth1", mac, 10, nullptr, all, 0, 0, 0), 42);
        platform().refusal_text = nullptr;
        EXPECT_EQ(mac_remove_static_items("br0", "eth1", mac, 10, collect_print, all, 0, 0, 0), 42);
        EXPECT_EQ(printed, "refused");
    }
}

TEST_F(mac_static, show_callback_adds_what_is_not_static)
{
    const uint32_t tag = 0x1055;
    platform().response_types = {15};
    const bytes entry_bytes = mac_entry(0xfffb, 10, text_field("br0", 32), text_field("eth1", 32));
    EXPECT_EQ(show_callback(entry_bytes.data(), &tag), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{interface(7, "br0"), entry(4, "br0")}));
    EXPECT_EQ(platform().gateway_calls[1].request_flag, 0x55);
    EXPECT_EQ(platform().gateway_calls[1].language, 0);
}

TEST_F(mac_static, show_callback_returns_0_when_the_entry_is_refused)
{
    const uint32_t tag = 0;
    platform().response_types = {15};
    platform().commit_results = {0, 42};
    const bytes one = mac_entry(0, 10, text_field("br0", 32), text_field("eth1", 32));
    EXPECT_EQ(show_callback(one.data(), &tag), 0);
    EXPECT_EQ(commits.size(), 2u);
    EXPECT_TRUE(platform().commit_results.empty());
}

TEST_F(mac_static, show_callback_leaves_static_entries)
{
    const uint32_t tag = 0;
    for (const uint16_t flags : {4, 7, 0xffff}) {
        const bytes one = mac_entry(flags, 10, text_field("br0", 32), text_field("eth1", 32));
        EXPECT_EQ(show_callback(one.data(), &tag), 0);
    }
    EXPECT_TRUE(commits.empty());
}

TEST_F(mac_static, show_callback_reads_names_within_their_fields)
{
    const uint32_t tag = 0;
    const bytes one = mac_entry(0, 10, repeat('a', 32), repeat('b', 32));
    EXPECT_EQ(show_callback(one.data(), &tag), 0);
    EXPECT_EQ(commits.back(), entry(4, std::string(32, 'a'), std::string(32, 'b')));
}

TEST_F(mac_static, conversion_adds_each_dynamic_entry_and_counts_all)
{
    platform().response_types = {15, 0, 15};
    platform().commit_results = {0, 42, 0, 0};
    platform().answers = {
        {0,
         0,
         mac_page(7, {mac_entry(0, 10, text_field("br0", 32), text_field("eth1", 32)),
                      mac_entry(4, 11, text_field("br0", 32), text_field("eth2", 32))}),
         {}},
        {0, 0, mac_page(0, {mac_entry(1, 12, text_field("br1", 32), text_field("eth3", 32))}), {}}};
    EXPECT_EQ(mac_dynamic2static(5, collect_print, 0x1055), 3);
    EXPECT_EQ(commits, (std::vector<mac_commit>{interface(7, "br0"), entry(4, "br0"), interface(7, "br1"),
                                                entry(4, "br1", "eth3", 12)}));
    EXPECT_EQ(platform().gateway_calls[3].request_flag, 0x55);
    EXPECT_EQ(printed, "") << "refusals are not told";
}

/* --- descriptions --- */

TEST_F(mac_static, description_is_committed_with_its_address)
{
    EXPECT_EQ(mac_description_add(mac, "printer", collect_print, error, sizeof error, 0x101, 0x55), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{{"final_set_md_macd", 4, {}, mac_bytes, "printer"}}));
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_EQ(call.vsysid, 0x0909) << "the current virtual system";
    EXPECT_TRUE(call.language_set && call.vsysid_set);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(mac_static, an_empty_description_is_nothing_to_do)
{
    EXPECT_EQ(mac_description_add(mac, "", collect_print, error, sizeof error, 0, 0), 0);
    EXPECT_TRUE(commits.empty());
    EXPECT_TRUE(platform().messages.empty());
}

TEST_F(mac_static, a_null_description_is_absent)
{
    EXPECT_EQ(mac_description_add(mac, nullptr, collect_print, error, sizeof error, 0, 0), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{{"final_set_md_macd", 4, {}, mac_bytes}}));
}

TEST_F(mac_static, a_refused_description_is_told_wherever_there_is_a_place)
{
    platform().commit_results = {42, 42, 42, 42};
    platform().refusal_text = "100% of the table";
    EXPECT_EQ(mac_description_add(mac, "x", collect_print, error, sizeof error, 0, 0), 42);
    EXPECT_EQ(printed, "100% of the table");
    EXPECT_STREQ(error, "100% of the tab");
    std::memset(error, '#', sizeof error);
    EXPECT_EQ(mac_description_add(mac, "x", nullptr, error, sizeof error, 0, 0), 42);
    EXPECT_STREQ(error, "100% of the tab");
    printed.clear();
    EXPECT_EQ(mac_description_add(mac, "x", collect_print, nullptr, 16, 0, 0), 42);
    EXPECT_EQ(printed, "100% of the table");
    platform().refusal_text = nullptr;
    printed.clear();
    std::memset(error, '#', sizeof error);
    EXPECT_EQ(mac_description_add(mac, "x", collect_print, error, sizeof error, 0, 0), 42);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(mac_static, description_is_removed_by_its_address)
{
    EXPECT_EQ(mac_description_remove(mac, collect_print, 0, 0x101, 0x3344), 0);
    EXPECT_EQ(commits, (std::vector<mac_commit>{{"final_set_md_macd", 5, {}, mac_bytes}}));
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0) << "there is no tag";
    EXPECT_EQ(call.vsysid, 0x3344);
}

TEST_F(mac_static, every_description_is_removed_without_an_address)
{
    for (const int all : {1, -1, 0x100}) {
        commits.clear();
        EXPECT_EQ(mac_description_remove(mac, collect_print, all, 0x101, 0x3344), 0);
        EXPECT_EQ(commits, (std::vector<mac_commit>{{"final_set_md_macd", 9}})) << all;
        const gateway_call &call = platform().gateway_calls.back();
        EXPECT_EQ(call.language, 1);
        EXPECT_EQ(call.request_flag, 0);
        EXPECT_EQ(call.vsysid, 0x3344);
    }
}

TEST_F(mac_static, a_refused_removal_of_a_description_is_printed)
{
    platform().commit_results = {42, 42, 42};
    EXPECT_EQ(mac_description_remove(mac, collect_print, 0, 0, 0), 42);
    EXPECT_EQ(printed, "refused");
    EXPECT_EQ(mac_description_remove(mac, nullptr, 1, 0, 0), 42);
    platform().refusal_text = nullptr;
    EXPECT_EQ(mac_description_remove(mac, collect_print, 1, 0, 0), 42);
    EXPECT_EQ(printed, "refused");
}

TEST_F(mac_static, description_of_an_address_is_asked_for_once)
{
    platform().fallback = {0, 0, join({le32(9), le32(1), repeat(1, 198)}), {}};
    collected_rows got{.row_size = 198};
    EXPECT_EQ(get_mac_desc_items(mac, collect_row, &got, collect_print, 0, 50, 0), 1);
    EXPECT_EQ(platform().messages.size(), 1u) << "one entry was wanted, whatever the cursor";
    EXPECT_EQ(got.rows.size(), 1u);
}

TEST_F(mac_static, description_of_an_address_goes_on_while_pages_are_empty)
{
    platform().answers = {{0, 0, join({le32(9), le32(0)}), {}}};
    platform().fallback = {0, 0, join({le32(9), le32(1), repeat(1, 198)}), {}};
    EXPECT_EQ(get_mac_desc_items(mac, nullptr, nullptr, collect_print, 0, 50, 0), 1);
    EXPECT_EQ(platform().messages.size(), 2u);
}

/* --- is_mac_null --- */

TEST(is_mac_null, looks_at_every_byte)
{
    uint8_t one[7] = {};
    EXPECT_EQ(is_mac_null(one), 1);
    EXPECT_EQ(is_mac_null(one + 1), 1) << "unaligned";
    for (size_t i = 0; i < 6; i++) {
        uint8_t other[7] = {};
        other[i] = i % 2 != 0 ? 0x80 : 1;
        EXPECT_EQ(is_mac_null(other), 0) << i;
    }
    one[6] = 1;
    EXPECT_EQ(is_mac_null(one), 1);
}

} // namespace
