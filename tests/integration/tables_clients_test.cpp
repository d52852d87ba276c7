/*
 * The tables of neighbours and stations over the wire: their rows by offset, the requests that nobody should
 * make, listings of large tables beside other clients, and listings of tables that change meanwhile.
 */
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <thread>

#include <libmix/arp.h>
#include <libmix/dhcpsn.h>
#include <libmix/ipdefrag.h>
#include <libmix/mac.h>
#include <libmix/nd.h>

#include <unistd.h>

#include "appliance/wire/snapshots.h"
#include "platform/mgi.h"
#include "support/printed.h"
#include "support/raw_requests.h"

using namespace mixtest;
using mix::wire::message_kind;

namespace
{

constexpr uint32_t arp_type = 4, mac_type = 39, description_type = 93, dhcpsn_type = 95, name_type = 114,
                   nd_type = 133;

/* The interfaces get indexes in their order: ge0 is 1, br0 is 2, ge1 is 3. */
constexpr const char *small_scenario = R"(
[[network.virtual_router]]
id = 2
name = "branch"
[[network.interface]]
name = "ge0"
address = "10.1.0.1"
prefix = 16
virtual_router = 2
virtual_system = 7
[[network.interface]]
name = "br0"
kind = "bridge"
[[network.interface]]
name = "ge1"
[[arp.entry]]
address = "10.1.2.3"
mac = "02:00:00:00:00:01"
interface = "ge0"
state = "stale"
[[arp.entry]]
address = "10.1.2.4"
interface = "ge0"
state = "incomplete"
[[arp.proxy]]
address = "10.1.9.9"
interface = "ge0"
[[mac.entry]]
mac = "02:00:00:00:00:01"
interface = "br0"
port = "ge1"
vlan = 258
[[mac.entry]]
mac = "02:00:00:00:00:02"
interface = "br0"
port = "ge1"
vlan = 259
kind = "static"
[[nd.entry]]
address = "2001:db8::1"
mac = "02:00:00:00:00:01"
interface = "ge0"
state = "stale"
router = true
[[dhcpsn.binding]]
address = "10.1.2.3"
mac = "02:00:00:00:00:01"
vlan = 258
interface = "ge0"
host = "printer"
static = true
seconds = 0
)";

struct tables : mixd_test {
    void SetUp() override
    {
        printed.clear();
        mixd_test::SetUp();
    }
    void prepare() override { mixd.arguments = {"--scenario", place.file("s.toml", small_scenario)}; }
    raw_answer ask(uint32_t type, const bytes &request)
    {
        return ask_once(mixd, type == name_type ? inspection_daemon : main_daemon, type, request);
    }
    /* Of what the service of a message type has answered. */
    struct served {
        uint64_t requests, reply_bytes, slowest_ns;
    };
    static served served_of(const raw_answer &services, uint32_t type)
    {
        for (size_t at = 8; at + 88 <= services.payload.size(); at += 88)
            if (u32_at(services.payload, at) == 0 && u32_at(services.payload, at + 4) == type)
                return {u32_at(services.payload, at + 40), u32_at(services.payload, at + 80),
                        u32_at(services.payload, at + 72)};
        ADD_FAILURE() << "nobody serves type " << type;
        return {};
    }
    served served_of(uint32_t type)
    {
        return served_of(ask_once(mixd, control, mix::wire::control_list_services, request_of(4)), type);
    }
    static constexpr const char *control = "node0/0.201.sock";
};

const bytes station = {2, 0, 0, 0, 0, 1};

/* --- rows --- */

TEST_F(tables, have_arp_rows)
{
    const bytes page = ask(arp_type, request_of(140, {{0, 2}, {4, 7}})).payload;
    ASSERT_EQ(page.size(), 8u + 2 * 56u);
    EXPECT_EQ(part(page, 0, 8), (bytes{0, 0, 0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(part(page, 8, 12), (bytes{3, 2, 1, 10, 1, 0, 0, 0, 2, 0, 7, 0}));
    EXPECT_EQ(part(page, 20, 6), station);
    EXPECT_EQ(part(page, 26, 6), bytes(6));
    EXPECT_EQ(part(page, 32, 16), (bytes{'g', 'e', '0', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(page, 48, 4), (bytes{3, 0, 0, 1})) << "state, router, option, kind";
    EXPECT_LT(u32_at(page, 52), 60u) << "age in seconds";
    EXPECT_EQ(part(page, 56, 8), bytes(8));
    EXPECT_EQ(part(page, 64, 4), (bytes{4, 2, 1, 10}));
    EXPECT_EQ(part(page, 76, 6), bytes(6)) << "a MAC address that is not known is zero";
    EXPECT_EQ(part(page, 104, 4), (bytes{1, 0, 0, 1}));
}

TEST_F(tables, have_arp_rows_of_static_entries)
{
    ASSERT_EQ(
        arp_add_static_items(2, 0x0a010203, station.data(), nullptr, 9, collect_print, nullptr, 0, 0, 0, 7),
        0);
    const bytes page =
        ask(arp_type, request_of(140, {{0, 2}, {4, 7}, {12, 3}, {13, 2}, {14, 1}, {15, 10}})).payload;
    ASSERT_EQ(page.size(), 8u + 56u);
    EXPECT_EQ(part(page, 48, 4), (bytes{7, 0, 9, 0})) << "permanent, its option, in force";
    ASSERT_EQ(
        arp_add_static_items(1, 0x0b000001, station.data(), nullptr, 0, collect_print, nullptr, 0, 0, 0, 7),
        0);
    const bytes idle = ask(arp_type, request_of(140, {{0, 2}, {4, 7}, {6, 1}})).payload;
    ASSERT_EQ(idle.size(), 8u + 56u);
    EXPECT_EQ(idle[8 + 43], 9) << "not in force";
    EXPECT_EQ(printed, "");
}

TEST_F(tables, have_an_arp_summary_and_counts)
{
    EXPECT_EQ(ask(arp_type, request_of(140, {{0, 4}, {4, 7}})).payload,
              (bytes{2, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(ask(arp_type, request_of(140, {{0, 9}, {4, 7}})).status, 2);
    EXPECT_EQ(ask(arp_type, request_of(140, {{0, 9}})).status, 0) << "of another virtual system";
    EXPECT_EQ(ask(arp_type, request_of(56, {{0, 10}, {4, 7}})).status, 1) << "proxies";
    EXPECT_EQ(ask(arp_type, request_of(12, {{0, 11}, {10, 7}})).status, 0) << "nobody shares a MAC";
    EXPECT_EQ(ask(arp_type, request_of(296, {{0, 7}, {26, 7}})).status, 2);
}

TEST_F(tables, have_arp_rows_joined_with_the_mac_table)
{
    ASSERT_EQ(mac_description_add(station.data(), "printer", collect_print, nullptr, 0, 0, 0), 0);
    const bytes page = ask(arp_type, request_of(296, {{0, 8}, {26, 7}})).payload;
    ASSERT_EQ(page.size(), 8u + 2 * 280u);
    EXPECT_EQ(part(page, 8, 4), (bytes{3, 2, 1, 10}));
    EXPECT_EQ(part(page, 64, 8), (bytes{2, 1, 0, 0, 1, 0, 0, 0})) << "VLAN, flags, in the MAC table";
    EXPECT_EQ(text_at(page, 72), "br0");
    EXPECT_EQ(text_at(page, 104), "ge1");
    EXPECT_EQ(text_at(page, 136), "") << "descriptions are those of the entry's virtual system";
    EXPECT_EQ(text_at(page, 248), "branch");
    EXPECT_LT(u32_at(page, 280), 60u) << "age of the MAC entry";
    EXPECT_EQ(part(page, 288 + 56, 8), bytes(8)) << "nothing is known of an address without a MAC";
    EXPECT_EQ(text_at(page, 288 + 64), "");
}

TEST_F(tables, have_names_of_virtual_routers)
{
    const raw_answer answer = ask(name_type, request_of(4, {{0, 2}}));
    EXPECT_EQ(answer.payload.size(), 32u);
    EXPECT_EQ(text_at(answer.payload, 0), "branch");
    EXPECT_EQ(ask(name_type, request_of(4, {{0, 3}})).status, -ENOENT);
}

TEST_F(tables, have_mac_rows)
{
    const bytes page = ask(mac_type, request_of(40, {{24, 14}})).payload;
    ASSERT_EQ(page.size(), 4u + 2 * 78u);
    EXPECT_EQ(part(page, 0, 4), (bytes{0, 0, 2, 0}));
    EXPECT_EQ(part(page, 4, 6), station);
    EXPECT_EQ(part(page, 10, 4), (bytes{0, 0, 2, 1})) << "flags, VLAN";
    EXPECT_LT(u32_at(page, 14), 60u) << "age in seconds";
    EXPECT_EQ(text_at(page, 18), "br0");
    EXPECT_EQ(text_at(page, 50), "ge1");
    EXPECT_EQ(part(page, 88, 4), (bytes{4, 0, 3, 1})) << "a static entry";
    EXPECT_EQ(ask(mac_type, request_of(40, {{0, 1}})).payload,
              (bytes{2, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(tables, tell_vlans_with_static_mac_entries)
{
    bytes asked = request_of(520, {{0, 6}});
    asked[8 + 258 / 8] = 1 << 258 % 8;
    EXPECT_EQ(ask(mac_type, asked).payload, (bytes{0})) << "a learned entry binds nothing";
    asked[8 + 259 / 8] |= 1 << 259 % 8;
    EXPECT_EQ(ask(mac_type, asked).payload, (bytes{1}));
    EXPECT_EQ(is_if_bound_with_l2_mac(2, 0), 1);
    EXPECT_EQ(is_if_bound_with_l2_mac(2, 3), 1);
    EXPECT_EQ(is_if_bound_with_l2_mac(0, 3), 1);
    EXPECT_EQ(is_if_bound_with_l2_mac(1, 0), 0);
    EXPECT_EQ(is_if_bound_with_l2_mac(2, 1), 0);
}

TEST_F(tables, have_mac_description_rows)
{
    ASSERT_EQ(mac_description_add(station.data(), "printer", collect_print, nullptr, 0, 0, 0), 0);
    const bytes page = ask(description_type, request_of(28, {{0, 3}})).payload;
    ASSERT_EQ(page.size(), 8u + 198u);
    EXPECT_EQ(part(page, 0, 8), (bytes{0, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(part(page, 8, 6), station);
    EXPECT_EQ(part(page, 14, 2), (bytes{0, 0}));
    EXPECT_EQ(text_at(page, 16), "printer");
    EXPECT_GT(u32_at(page, 144), 1700000000u) << "when it was changed";
    EXPECT_EQ(part(page, 152, 54), bytes(54));
}

TEST_F(tables, have_neighbour_rows)
{
    const bytes page = ask(nd_type, request_of(48, {{0, 2}, {12, 7}})).payload;
    ASSERT_EQ(page.size(), 8u + 64u);
    EXPECT_EQ(part(page, 8, 16), (bytes{0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
    EXPECT_LT(u32_at(page, 24), 60u);
    EXPECT_EQ(part(page, 28, 2), (bytes{2, 0}));
    EXPECT_EQ(text_at(page, 30), "ge0");
    EXPECT_EQ(part(page, 62, 6), station);
    EXPECT_EQ(part(page, 68, 4), (bytes{0, 3 << 2 | 1, 7, 0})) << "flags: stale, a router; virtual system";
    EXPECT_EQ(ask(nd_type, request_of(48, {{0, 8}, {12, 7}})).payload.size(), 8u) << "none is static";
    EXPECT_EQ(ask(nd_type, request_of(48, {{0, 6}, {12, 7}})).payload,
              (bytes{1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
    const bytes filtered = ask(nd_type, request_of(56, {{0, 3}, {12, 7}})).payload;
    ASSERT_EQ(filtered.size(), 16u + 64u);
    EXPECT_EQ(part(filtered, 0, 16), (bytes{0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(filtered, 16, 16), part(page, 8, 16));
}

TEST_F(tables, have_rows_of_bindings)
{
    const bytes page = ask(dhcpsn_type, request_of(36)).payload;
    ASSERT_EQ(page.size(), 8u + 80u);
    EXPECT_EQ(part(page, 8, 6), station);
    EXPECT_EQ(part(page, 14, 2), (bytes{2, 1}));
    EXPECT_EQ(part(page, 16, 8), (bytes{3, 2, 1, 10, 255, 255, 255, 255})) << "for ever";
    EXPECT_EQ(text_at(page, 24), "ge0");
    EXPECT_EQ(text_at(page, 56), "printer");
    EXPECT_EQ(part(page, 80, 8), bytes(8)) << "static";
    EXPECT_EQ(ask(dhcpsn_type, request_of(36, {{0, 3}})).status, 1);
}

/* --- requests that are refused --- */

/* A request as clients make it. */
struct good_request {
    const char *name;
    uint32_t type;
    uint32_t subcommand;
    size_t size;
    std::vector<std::pair<size_t, uint8_t>> set = {};
    size_t cursor = 0;       /* where a listing has it */
    size_t cursor_width = 4; /* in its page */

    [[nodiscard]] bytes whole() const
    {
        bytes made(size);
        made[0] = static_cast<uint8_t>(subcommand);
        for (const auto &[at, value] : set)
            made[at] = value;
        return made;
    }
};

void PrintTo(const good_request &one, std::ostream *out)
{
    *out << one.name;
}

const good_request good_requests[] = {
    {"arp_list", arp_type, 2, 140, {}, 24},
    {"arp_search", arp_type, 2, 140, {{28, 1}}, 20},
    {"arp_clear", arp_type, 3, 28},
    {"arp_summary", arp_type, 4, 140},
    {"arp_scan", arp_type, 6, 32, {{12, 2}, {13, 1}, {14, 1}, {15, 10}, {16, 2}, {17, 1}, {18, 1}, {19, 10}}},
    {"arp_joined_count", arp_type, 7, 296},
    {"arp_joined_list", arp_type, 8, 296, {}, 20},
    {"arp_count", arp_type, 9, 140},
    {"arp_proxies", arp_type, 10, 56},
    {"arp_duplicates", arp_type, 11, 12},
    {"router_name", name_type, 1, 4},
    {"mac_list", mac_type, 0, 40, {{24, 14}}, 20, 2},
    {"mac_summary", mac_type, 1, 40},
    {"mac_clear", mac_type, 2, 32},
    {"mac_bound", mac_type, 6, 520},
    {"descriptions", description_type, 3, 28, {}, 12},
    {"nd_list", nd_type, 2, 48, {}, 40},
    {"nd_filtered", nd_type, 3, 56, {}, 48},
    {"nd_clear", nd_type, 4, 40},
    {"nd_summary", nd_type, 6, 48},
    {"nd_static_list", nd_type, 8, 48, {}, 40},
    {"bindings", dhcpsn_type, 0, 36, {}, 24},
    {"bindings_clear", dhcpsn_type, 1, 12},
    {"bindings_count", dhcpsn_type, 3, 36},
};

class requests : public tables, public testing::WithParamInterface<good_request>
{
};

TEST_P(requests, of_another_length_are_refused)
{
    const good_request &good = GetParam();
    EXPECT_GE(ask(good.type, good.whole()).status, 0);
    for (const size_t size :
         {size_t{0}, size_t{1}, size_t{3}, size_t{4}, good.size - 1, good.size + 1, size_t{4096}}) {
        if (size == good.size)
            continue;
        bytes asked = good.whole();
        asked.resize(size);
        EXPECT_EQ(ask(good.type, asked).status, -EINVAL) << size << " bytes";
    }
}

TEST_P(requests, go_on_only_where_a_listing_of_the_same_client_stands)
{
    const good_request &good = GetParam();
    if (good.cursor == 0)
        return;
    for (const uint32_t cursor : {1u, 2u, 65535u, 65536u, 0x7fffffffu, 0xffffffffu}) {
        bytes asked = good.whole();
        std::memcpy(&asked[good.cursor], &cursor, sizeof cursor);
        const raw_answer answer = ask(good.type, asked);
        EXPECT_EQ(answer.status, -ESTALE) << cursor;
    }
}

INSTANTIATE_TEST_SUITE_P(each, requests, testing::ValuesIn(good_requests),
                         [](const auto &one) { return std::string(one.param.name); });

TEST_F(tables, refuse_sub_commands_that_they_do_not_have)
{
    std::map<uint32_t, std::set<uint32_t>> known;
    std::map<uint32_t, std::set<size_t>> sizes;
    for (const good_request &good : good_requests) {
        known[good.type].insert(good.subcommand);
        sizes[good.type].insert(good.size);
    }
    known.erase(name_type); /* has no sub-commands */
    for (const auto &[type, numbers] : known)
        for (const size_t size : sizes[type])
            for (const uint32_t number : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 10u, 11u, 12u, 255u, 256u,
                                          0x80000000u, 0xffffffffu}) {
                if (numbers.contains(number))
                    continue;
                bytes asked(size);
                std::memcpy(asked.data(), &number, sizeof number);
                EXPECT_EQ(ask(type, asked).status, -EINVAL) << type << ", " << number << ", " << size;
            }
    EXPECT_EQ(get_arp_items_count(7, 0, 0, 0, 0, 0), 2) << "nothing was changed";
}

struct bad_values : tables, testing::WithParamInterface<bad_request> {
};

TEST_P(bad_values, are_refused)
{
    EXPECT_EQ(ask(GetParam().type, GetParam().request).status, GetParam().status);
    EXPECT_EQ(get_arp_items_count(7, 0, 0, 0, 0, 0), 2);
}

INSTANTIATE_TEST_SUITE_P(
    each, bad_values,
    testing::Values(bad_request{"arp_clear_option", main_daemon, arp_type,
                                request_of(28, {{0, 3}, {4, 7}, {24, 2}}), -EINVAL},
                    bad_request{"arp_scan_of_nothing", main_daemon, arp_type, request_of(32, {{0, 6}}),
                                -EINVAL},
                    bad_request{"arp_scan_backwards", main_daemon, arp_type,
                                request_of(32, {{0, 6}, {12, 2}, {16, 1}}), -EINVAL},
                    bad_request{"arp_scan_of_too_many", main_daemon, arp_type,
                                request_of(32, {{0, 6}, {12, 1}, {16, 1}, {17, 16}}), -EINVAL},
                    bad_request{"arp_scan_negative_option", main_daemon, arp_type,
                                request_of(32, {{0, 6}, {5, 128}, {12, 1}, {16, 1}}), -EINVAL},
                    bad_request{"arp_scan_of_a_network_elsewhere", main_daemon, arp_type,
                                request_of(32, {{0, 6}, {12, 1}, {16, 1}}), -ENETUNREACH},
                    bad_request{"nd_clear_option", main_daemon, nd_type,
                                request_of(40, {{0, 4}, {24, 7}, {36, 2}}), -EINVAL}),
    [](const auto &one) { return one.param.name; });

struct wide_network : tables {
    void prepare() override
    {
        mixd.arguments = {"--scenario", place.file("s.toml", "[[network.interface]]\nname = \"ge0\"\n"
                                                             "address = \"10.1.255.254\"\nprefix = 16\n")};
    }
};

/* 65536 addresses wait at the most; meanwhile some thousand a second are asked for. */
TEST_F(wide_network, takes_no_scan_while_too_many_addresses_wait)
{
    const bytes of_4096 = request_of(32, {{0, 6}, {14, 1}, {15, 10}, {16, 255}, {17, 15}, {18, 1}, {19, 10}});
    EXPECT_EQ(ask(arp_type, of_4096).status, 4096);
    int32_t status = 0;
    for (int i = 0; i < 100 && status >= 0; ++i)
        status = ask(arp_type, of_4096).status;
    EXPECT_EQ(status, -EBUSY);
}

struct bad_neighbour {
    const char *name;
    bytes address;
    const char *interface;
    bytes mac;
    const char *text;
};

class static_neighbours : public tables, public testing::WithParamInterface<bad_neighbour>
{
};

TEST_P(static_neighbours, that_can_not_be_are_refused)
{
    mgi_message message;
    mgi_init_rqt_message(&message);
    mgi_set_rqt_type(&message, 2);
    message.attr[0] = GetParam().address.data();
    message.attr[1] = &GetParam().interface;
    message.attr[2] = GetParam().mac.data();
    const int result = final_set_neighbor_neighbor(&message, nullptr, nullptr);
    ASSERT_NE(result, 0);
    EXPECT_STREQ(mgi_get_rsp_err_string(result), GetParam().text);
    EXPECT_EQ(get_nd_items_static_detail(7, 0, 0, nullptr, nullptr, nullptr, collect_print, 0, 0, 0, 0), 0u);
}

const bytes host_address = {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
const bytes group_address = {0xff, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

INSTANTIATE_TEST_SUITE_P(
    each, static_neighbours,
    testing::Values(
        bad_neighbour{"interface", host_address, "nowhere0", station, "there is no such interface"},
        bad_neighbour{"no_address", bytes(16), "ge0", station, "the address is not one of a host"},
        bad_neighbour{"group_address", group_address, "ge0", station, "the address is not one of a host"},
        bad_neighbour{"no_mac", host_address, "ge0", bytes(6), "the MAC address is zero, or one of a group"},
        bad_neighbour{"group_mac",
                      host_address,
                      "ge0",
                      {1, 0, 0, 0, 0, 1},
                      "the MAC address is zero, or one of a group"}),
    [](const auto &one) { return one.param.name; });

/* --- large tables beside other clients --- */

struct large : tables {
    static constexpr uint32_t entries = 200000, rows_of_a_page = 53;

    void prepare() override
    {
        mixd.arguments = {"--scenario", place.file("s.toml", R"(
[[network.interface]]
name = "br0"
kind = "bridge"
[[arp.many]]
count = 200000
first = "10.0.0.1"
mac = "02:00:00:00:00:01"
interface = "br0"
[[mac.many]]
count = 200000
mac = "02:00:00:00:00:01"
interface = "br0"
port = "ge1"
)")};
    }
};

/* A count that looks up every entry in the MAC table. */
bytes joined_count_of_ge1()
{
    return request_of(296, {{0, 7}, {229, 'g'}, {230, 'e'}, {231, '1'}});
}

/* Entries come in the order of their addresses, which are one apart. */
struct counted {
    uint32_t next = 0x0a000001;
    uint32_t rows = 0, wrong = 0;
};

int count_row(const void *row, void *context, int)
{
    auto &of = *static_cast<counted *>(context);
    uint32_t address;
    std::memcpy(&address, row, sizeof address);
    of.wrong += address == of.next ? 0 : 1;
    of.next = address + 1;
    ++of.rows;
    return 0;
}

/* Asks for something small again and again, as another client does. */
class bystander
{
  public:
    bystander()
        : thread_([this] {
              while (!over_) {
                  const auto began = std::chrono::steady_clock::now();
                  uint32_t first, second;
                  failed_ += get_ipdefrag_para(&first, &second, nullptr) == 0 ? 0 : 1;
                  worst_ = std::max(worst_, std::chrono::steady_clock::now() - began);
                  ++answered_;
              }
          })
    {
    }
    ~bystander() { stop(); }
    void stop()
    {
        over_ = true;
        if (thread_.joinable())
            thread_.join();
    }
    /* After stop(). */
    void report(const char *during) const
    {
        std::printf("%s: %u requests of another client, the slowest took %.2f ms\n", during, answered_,
                    std::chrono::duration<double, std::milli>(worst_).count());
    }
    [[nodiscard]] uint32_t answered() const { return answered_; }
    [[nodiscard]] uint32_t failed() const { return failed_; }

  private:
    std::atomic<bool> over_ = false;
    uint32_t answered_ = 0, failed_ = 0;
    std::chrono::steady_clock::duration worst_{};
    std::thread thread_;
};

TEST_F(large, are_listed_completely_one_page_a_request)
{
    counted got;
    bystander other;
    EXPECT_EQ(get_arp_items(0, 0, 0, count_row, &got, collect_print, 0, 0), entries);
    other.stop();
    EXPECT_EQ(got.rows, entries);
    EXPECT_EQ(got.wrong, 0u);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(other.failed(), 0u);
    EXPECT_GT(other.answered(), 10u);
    other.report("listing 200000 ARP entries");
    const served of = served_of(arp_type);
    std::printf("the slowest of %llu pages took mixd %.2f ms\n", static_cast<unsigned long long>(of.requests),
                static_cast<double>(of.slowest_ns) / 1e6);
    EXPECT_EQ(of.requests, (entries + rows_of_a_page - 1) / rows_of_a_page);
    EXPECT_EQ(of.reply_bytes, of.requests * 8 + uint64_t{entries} * 56) << "no row was sent twice";
}

/* What takes longest: joined rows that hardly any entry matches, and counts over the whole table. */
TEST_F(large, do_not_hold_up_others_by_filters_that_match_nothing)
{
    bystander other;
    counted got;
    EXPECT_EQ(get_arp_mac_items_ex2_vr(count_row, &got, collect_print, 0, 0, 0, nullptr, nullptr, "nowhere",
                                       nullptr, 0, 0, 0, 2),
              0u);
    EXPECT_EQ(ask(arp_type, joined_count_of_ge1()).status, static_cast<int32_t>(entries));
    EXPECT_EQ(get_arp_items_count(0, 0, 0, 0, 0, 0), static_cast<int>(entries));
    other.stop();
    other.report("filters over 200000 ARP and MAC entries");
    std::printf("the longest part took mixd %.2f ms\n",
                static_cast<double>(served_of(arp_type).slowest_ns) / 1e6);
    EXPECT_EQ(printed, "");
    EXPECT_EQ(other.failed(), 0u);
}

/*
 * What keeps the others' waits short whatever the machine: mixd takes one request of a connection, then one
 * of the next. It is stopped while clients queue their requests, so all are there when it goes on.
 */
TEST_F(large, take_turns_with_other_clients)
{
    raw_client listing[4], other;
    for (raw_client &each : listing)
        ASSERT_TRUE(each.open(mixd, main_daemon));
    ASSERT_TRUE(other.open(mixd, control));
    ASSERT_EQ(kill(mixd.pid(), SIGSTOP), 0);
    constexpr uint32_t queued = 40;
    for (uint32_t i = 1; i <= queued; ++i)
        for (const raw_client &each : listing)
            ASSERT_TRUE(each.send(message_kind::request, arp_type, request_of(140, {{0, 2}}), i));
    ASSERT_TRUE(other.send(message_kind::request, mix::wire::control_list_services, request_of(4)));
    ASSERT_EQ(kill(mixd.pid(), SIGCONT), 0);
    const auto answer = other.receive();
    ASSERT_TRUE(answer);
    EXPECT_LE(served_of(*answer, arp_type).requests, std::size(listing)) << "of 160 that came before";
    for (const raw_client &each : listing)
        for (uint32_t i = 1; i <= queued; ++i) {
            const auto page = each.receive();
            ASSERT_TRUE(page);
            EXPECT_EQ(page->sequence, i);
            EXPECT_EQ(page->payload.size(), 8u + rows_of_a_page * 56);
        }
}

/* A count that looks at every entry, and for each into the MAC table, takes many turns: others come in
 * between, and the next request of the same client after it. */
TEST_F(large, are_counted_a_part_at_a_time)
{
    raw_client counting, other;
    ASSERT_TRUE(counting.open(mixd, main_daemon));
    ASSERT_TRUE(other.open(mixd, control));
    ASSERT_EQ(kill(mixd.pid(), SIGSTOP), 0);
    ASSERT_TRUE(counting.send(message_kind::request, arp_type, joined_count_of_ge1(), 1));
    ASSERT_TRUE(counting.send(message_kind::request, arp_type, request_of(140, {{0, 9}}), 2));
    for (uint32_t i = 1; i <= 10; ++i)
        ASSERT_TRUE(other.send(message_kind::request, mix::wire::control_list_services, request_of(4), i));
    ASSERT_EQ(kill(mixd.pid(), SIGCONT), 0);
    for (uint32_t i = 1; i <= 10; ++i) {
        const auto answer = other.receive();
        ASSERT_TRUE(answer);
        EXPECT_LE(served_of(*answer, arp_type).requests, 1u) << i;
    }
    for (uint32_t i = 1; i <= 2; ++i) {
        const auto answer = counting.receive();
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->sequence, i);
        EXPECT_EQ(answer->status, static_cast<int32_t>(entries));
        EXPECT_TRUE(answer->payload.empty());
    }
}

/* Saves the configuration; the request that restores it. */
bytes saved(const mixd_process &mixd)
{
    raw_client gateway;
    bytes save(128);
    mix::wire::writer out(save);
    EXPECT_TRUE(mix::wire::encode_save({.texts = {"", "", "tester", "large", "now"}}, out));
    save.resize(out.size());
    EXPECT_TRUE(gateway.open(mixd, "node0/0.200.sock") && gateway.ask(mix::wire::gateway_save, save));
    return request_of(64, {{0, 'l'}, {1, 'a'}, {2, 'r'}, {3, 'g'}, {4, 'e'}, {5, '-'}, {6, '1'}});
}

TEST_F(large, are_all_there_when_a_restore_is_answered)
{
    const raw_answer restored = ask_once(mixd, control, mix::wire::control_restore_snapshot, saved(mixd));
    EXPECT_NE(mixd.log().find("every service has started from the store again"), std::string::npos);
    EXPECT_EQ(restored.status, 0);
    EXPECT_TRUE(restored.payload.empty());
    EXPECT_EQ(ask(arp_type, request_of(140, {{0, 9}})).status, static_cast<int32_t>(entries));
}

/* The count is of a service that is made anew. It takes many turns, so the restore comes in between. */
TEST_F(large, are_not_counted_on_in_a_configuration_that_was_restored)
{
    raw_client restoring, counting;
    ASSERT_TRUE(restoring.open(mixd, control));
    ASSERT_TRUE(counting.open(mixd, main_daemon));
    const bytes name = saved(mixd);
    ASSERT_EQ(kill(mixd.pid(), SIGSTOP), 0);
    ASSERT_TRUE(counting.send(message_kind::request, arp_type, joined_count_of_ge1()));
    ASSERT_TRUE(restoring.send(message_kind::request, mix::wire::control_restore_snapshot, name));
    ASSERT_EQ(kill(mixd.pid(), SIGCONT), 0);
    const auto counted = counting.receive();
    ASSERT_TRUE(counted);
    EXPECT_EQ(counted->status, -ESTALE);
    EXPECT_TRUE(counted->payload.empty());
    const auto restored = restoring.receive();
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->status, 0);
    EXPECT_EQ(ask(arp_type, joined_count_of_ge1()).status, static_cast<int32_t>(entries));
}

TEST_F(large, need_no_client_that_waits_for_their_count)
{
    for (int i = 0; i < 5; ++i) {
        raw_client impatient;
        ASSERT_TRUE(impatient.open(mixd, main_daemon));
        ASSERT_TRUE(impatient.send(message_kind::request, arp_type, request_of(296, {{0, 7}, {229, 'x'}})));
        if (i % 2 == 0)
            usleep(1000);
    }
    EXPECT_EQ(get_arp_items_count(0, 0, 0, 0, 0, 0), static_cast<int>(entries));
    EXPECT_EQ(ask(arp_type, joined_count_of_ge1()).status, static_cast<int32_t>(entries));
}

/* --- tables that change while they are listed --- */

/*
 * Rows with an even number are there all along; those with an odd one come and go from inside the listing,
 * with a fixed seed. Two rows can be told apart by their number alone.
 */
struct changing_case {
    const char *name;
    void (*prepare)();
    int64_t (*list)(row_callback, void *context);
    uint32_t (*number)(const void *row);
    int (*add)(uint32_t number);
    int (*remove)(uint32_t number);
    uint32_t staying; /* even numbers below twice this */
};

void PrintTo(const changing_case &one, std::ostream *out)
{
    *out << one.name;
}

struct mac_bytes {
    uint8_t bytes[6];
    explicit mac_bytes(uint32_t number)
        : bytes{2, 0, 0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)}
    {
    }
};

uint32_t number_in_mac(const void *mac)
{
    const auto *from = static_cast<const uint8_t *>(mac);
    return static_cast<uint32_t>(from[4] << 8 | from[5]);
}

const changing_case changing_cases[] = {
    {"arp", [] {},
     [](row_callback row, void *context) {
         return int64_t{get_arp_items(0, 0, 0, row, context, collect_print, 0, 0)};
     },
     [](const void *row) {
         uint32_t address;
         std::memcpy(&address, row, sizeof address);
         return address & 0xffff;
     },
     [](uint32_t number) {
         return arp_add_static_items(1, 0x0a000000 + number, station.data(), nullptr, 0, collect_print,
                                     nullptr, 0, 0, 0, 0);
     },
     [](uint32_t number) {
         return arp_remove_static_items(1, 0x0a000000 + number, collect_print, 0, 0, 0, 0);
     },
     1500},
    {"mac", [] {},
     [](row_callback row, void *context) {
         return int64_t{get_mac_items(0, 0, 0, nullptr, row, context, collect_print, 0, 0, 0, 0, 0)};
     },
     number_in_mac,
     [](uint32_t number) {
         return mac_add_static_items("br0", "ge1", mac_bytes(number).bytes, 0, collect_print, nullptr, 0, 0,
                                     0);
     },
     [](uint32_t number) {
         return mac_remove_static_items("br0", "ge1", mac_bytes(number).bytes, 0, collect_print, 0, 0, 0, 0);
     },
     1000},
    {"descriptions",
     [] {
         for (uint32_t i = 2; i <= 200; i += 2)
             mac_description_add(mac_bytes(i).bytes, "stays", collect_print, nullptr, 0, 0, 0);
     },
     [](row_callback row, void *context) {
         return int64_t{get_mac_desc_items(nullptr, row, context, collect_print, 0, 0, 0)};
     },
     number_in_mac,
     [](uint32_t number) {
         return mac_description_add(mac_bytes(number).bytes, "comes and goes", collect_print, nullptr, 0, 0,
                                    0);
     },
     [](uint32_t number) { return mac_description_remove(mac_bytes(number).bytes, collect_print, 0, 0, 0); },
     100},
};

class changing : public tables, public testing::WithParamInterface<changing_case>
{
  protected:
    static constexpr uint32_t rows_between = 7;

    void prepare() override
    {
        std::string scenario;
        char line[256];
        for (uint32_t i = 2; i <= 3000; i += 2) {
            std::snprintf(line, sizeof line,
                          "[[arp.entry]]\naddress = \"10.0.%u.%u\"\nmac = \"02:00:00:00:00:01\"\n"
                          "interface = \"ge0\"\n",
                          i >> 8, i & 255);
            scenario += line;
            std::snprintf(
                line, sizeof line,
                "[[mac.entry]]\nmac = \"02:00:00:00:%02x:%02x\"\ninterface = \"br0\"\nport = \"ge1\"\n",
                i >> 8, i & 255);
            scenario += i <= 2000 ? line : "";
        }
        mixd.arguments = {"--scenario", place.file("s.toml", scenario)};
    }
    static int take(const void *row, void *context, int)
    {
        auto &self = *static_cast<changing *>(context);
        self.seen.push_back(GetParam().number(row));
        if (self.seen.size() % rows_between == 0)
            self.change();
        return 0;
    }
    void change()
    {
        const uint32_t odd = static_cast<uint32_t>(random() % GetParam().staying) * 2 + 1;
        const bool comes = there.insert(odd).second;
        if (!comes)
            there.erase(odd);
        EXPECT_EQ(comes ? GetParam().add(odd) : GetParam().remove(odd), 0);
        ++changes;
    }

    std::mt19937 random{20};
    std::set<uint32_t> there;
    std::vector<uint32_t> seen;
    uint32_t changes = 0;
};

TEST_P(changing, are_listed_without_a_row_twice_or_missed)
{
    GetParam().prepare();
    for (int listing = 0; listing < 3; ++listing) {
        seen.clear();
        const int64_t rows = GetParam().list(take, this);
        EXPECT_EQ(rows, static_cast<int64_t>(seen.size()));
        const std::set<uint32_t> all(seen.begin(), seen.end());
        EXPECT_EQ(all.size(), seen.size()) << "a row came twice";
        EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
        for (uint32_t i = 1; i <= GetParam().staying; ++i)
            ASSERT_TRUE(all.contains(2 * i)) << "a row that was there all along was missed";
    }
    EXPECT_EQ(printed, "");
    EXPECT_GT(changes, 30u);
}

INSTANTIATE_TEST_SUITE_P(each, changing, testing::ValuesIn(changing_cases),
                         [](const auto &one) { return std::string(one.param.name); });

/* --- the end of mixd under a listing --- */

TEST_F(large, fail_to_go_on_after_a_restart_instead_of_somewhere_else)
{
    struct interrupted {
        mixd_process &mixd;
        uint32_t rows = 0;
    } state{mixd};
    const auto restart_once = [](const void *, void *context, int) {
        auto &self = *static_cast<interrupted *>(context);
        if (++self.rows == 60) {
            EXPECT_EQ(self.mixd.stop(SIGKILL), -SIGKILL);
            EXPECT_TRUE(self.mixd.start());
        }
        return 0;
    };
    EXPECT_EQ(get_arp_items(0, 0, 0, restart_once, &state, collect_print, 0, 0), 2 * rows_of_a_page);
    EXPECT_EQ(state.rows, 2 * rows_of_a_page);
    EXPECT_EQ(printed, "ARP show failed, ret is -116\n");
}

/* --- totals of filtered listings --- */

struct neighbours : tables {
    void prepare() override
    {
        mixd.arguments = {"--scenario", place.file("s.toml", R"(
[[nd.many]]
count = 300
first = "2001:db8::ffff:ffff:ffff"
mac = "02:00:00:00:00:01"
interface = "ge0"
[[nd.many]]
count = 100
first = "2001:db8:1::5"
mac = "02:00:00:00:10:01"
interface = "ge0"
state = "stale"
)")};
    }
};

TEST_F(neighbours, count_up_from_the_first)
{
    bytes asked = request_of(48, {{0, 2}});
    const bytes last = {0x20, 1, 0xd, 0xb8, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5 + 99};
    std::copy(last.begin(), last.end(), asked.begin() + 16);
    EXPECT_EQ(part(ask(nd_type, asked).payload, 8, 16), last);
    const bytes second = {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 0, 0};
    std::copy(second.begin(), second.end(), asked.begin() + 16);
    EXPECT_EQ(part(ask(nd_type, asked).payload, 8, 16), second) << "the last four bytes only";
}

/* One listing inside another, on one connection: each has its own total. */
TEST_F(neighbours, have_the_total_of_their_own_listing)
{
    struct nested {
        uint32_t rows = 0, inner_total = 0;
    } state;
    const uint8_t any[16] = {};
    uint32_t total = 0;
    constexpr int8_t stale = -3 - 1;
    const auto list_inside = [](const void *, void *context, int) {
        auto &self = *static_cast<nested *>(context);
        const uint8_t any_address[16] = {};
        if (++self.rows == 10)
            get_nd_items_ex2_vr(nullptr, nullptr, collect_print, 0, 0, any_address, nullptr, 0, stale, 0,
                                &self.inner_total);
        return 0;
    };
    EXPECT_EQ(get_nd_items_ex2_vr(list_inside, &state, collect_print, 0, 0, any, nullptr, 0, 0, 0, &total),
              400u);
    EXPECT_EQ(total, 400u);
    EXPECT_EQ(state.inner_total, 100u);
    EXPECT_EQ(printed, "");
}

} // namespace
