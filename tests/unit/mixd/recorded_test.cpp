/*
 * rtnetlink messages that were recorded on a kernel that filters VLANs and has VRFs; recorded/README.md tells
 * how. What is expected is what the kernel's own tools printed there.
 */
#include "appliance/mixd/kernel_source.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <map>
#include <tuple>

#include <linux/neighbour.h>

using namespace mixd;

namespace
{

using kind = forwarding_entry::kind;

/* Calls visit(message) for each message of a file; how many there were. */
template <class Visit>
int each_message(const char *file, Visit &&visit)
{
    std::ifstream in(std::string(MIX_RECORDED "/") + file, std::ios::binary);
    std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
    std::vector<uint32_t> aligned((bytes.size() + 3) / 4);
    std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char *>(aligned.data()));
    int left = static_cast<int>(bytes.size()), count = 0;
    for (const auto *message = reinterpret_cast<const nlmsghdr *>(aligned.data());
         mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
        visit(*message);
        ++count;
    }
    EXPECT_EQ(left, 0) << file << " ends in the middle of a message";
    return count;
}

void take(const char *file, network &into)
{
    EXPECT_GT(each_message(file, [&](const nlmsghdr &each) { take_netlink_message(each, into); }), 1) << file;
    into.settle();
}

struct recorded : testing::Test {
    network to;

    void SetUp() override
    {
        for (const char *file : {"links", "addresses", "neighbours", "forwarding"})
            take(file, to);
    }

    /* The last two bytes of 02:00:00:00:xx:xx, the VLAN, the port: of all entries of br0. */
    using table = std::map<std::tuple<uint16_t, uint16_t, std::string>, kind>;
    table forwarding() const
    {
        table all;
        for (const auto &[key, entry] : to.forwarding()) {
            if (to.name_of(key.bridge) != "br0" || key.mac[0] != 2)
                ADD_FAILURE() << "an entry of " << to.name_of(key.bridge);
            const auto station = static_cast<uint16_t>(key.mac[4] << 8 | key.mac[5]);
            all[{station, key.vlan, to.name_of(entry.port)}] = entry.is;
        }
        return all;
    }
    const neighbour *at(const char *interface, std::array<uint8_t, 16> address, neighbour_family family) const
    {
        const network_interface *on = to.interface(std::string_view(interface));
        const auto found = to.neighbours().find({family, on != nullptr ? on->index : 0, address});
        return found != to.neighbours().end() ? &found->second : nullptr;
    }
};

constexpr std::array<uint8_t, 16> in_blue = {10, 9, 0, 50}, in_main = {10, 7, 0, 50},
                                  ipv6 = {0xfd, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x50};

TEST_F(recorded, bridge_has_its_entries_by_vlan)
{
    EXPECT_EQ(forwarding(), (table{{{0x0051, 300, "p0"}, kind::fixed},
                                   {{0x0050, 10, "p0"}, kind::fixed},
                                   {{0x0050, 20, "p1"}, kind::fixed},
                                   {{0x0200, 10, "p0"}, kind::dynamic},
                                   {{0x0200, 1, "p0"}, kind::dynamic},
                                   {{0x0201, 1, "p1"}, kind::dynamic},
                                   {{0x0100, 300, "p0"}, kind::local},
                                   {{0x0100, 10, "p0"}, kind::local},
                                   {{0x0100, 1, "p0"}, kind::local},
                                   {{0x0100, 0, "p0"}, kind::local},
                                   {{0x0101, 20, "p1"}, kind::local},
                                   {{0x0101, 1, "p1"}, kind::local},
                                   {{0x0101, 0, "p1"}, kind::local}}));
}

TEST_F(recorded, routing_domains_are_virtual_routers)
{
    ASSERT_NE(to.router_name(10), nullptr);
    EXPECT_EQ(*to.router_name(10), "blue");
    ASSERT_NE(to.router_name(1000), nullptr);
    EXPECT_EQ(*to.router_name(1000), "red");
    ASSERT_NE(to.interface("v0"), nullptr);
    EXPECT_EQ(to.router_of(*to.interface("v0")), 10);
    EXPECT_EQ(to.router_of(*to.interface("blue")), 10);
    EXPECT_EQ(to.router_of(*to.interface("p0")), 1);
    EXPECT_EQ(to.interface("br0")->kind, "bridge");
    ASSERT_NE(to.interface_towards(0x0a090033, 10), nullptr);
    EXPECT_EQ(to.interface_towards(0x0a090033, 10)->name, "v0");
    EXPECT_EQ(to.interface_towards(0x0a090033, 1), nullptr);
    EXPECT_EQ(to.interface_towards(0x0a070033, 1)->name, "br0");
    EXPECT_TRUE(to.is_own(0x0a090001));
}

TEST_F(recorded, neighbours_are_there)
{
    const neighbour *blue = at("v0", in_blue, neighbour_family::ipv4);
    ASSERT_NE(blue, nullptr);
    EXPECT_EQ(blue->state, NUD_PERMANENT);
    EXPECT_EQ(blue->mac, (mac_address{2, 0, 0, 0, 0, 0x60}));
    const neighbour *main = at("br0", in_main, neighbour_family::ipv4);
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->state, NUD_STALE);
    const neighbour *six = at("v0", ipv6, neighbour_family::ipv6);
    ASSERT_NE(six, nullptr);
    EXPECT_TRUE(six->is_router);
    EXPECT_EQ(to.neighbours().size(), 3u) << "group addresses are no neighbours";
}

TEST_F(recorded, events_lead_to_what_the_kernel_had_then)
{
    take("events", to);
    EXPECT_EQ(forwarding(), (table{{{0x0052, 10, "p0"}, kind::fixed},
                                   {{0x0050, 10, "p0"}, kind::fixed},
                                   {{0x0200, 1, "p0"}, kind::dynamic},
                                   {{0x0100, 300, "p0"}, kind::local},
                                   {{0x0100, 1, "p0"}, kind::local},
                                   {{0x0100, 0, "p0"}, kind::local}}));
    EXPECT_TRUE(to.neighbours().empty());
    EXPECT_EQ(to.router_name(1000), nullptr);
    EXPECT_EQ(to.router_of(*to.interface("v0")), 1);
    EXPECT_EQ(to.interface("p1")->master, 0u);
    EXPECT_EQ(to.interface("red"), nullptr);
}

TEST(recorded_messages, cut_anywhere_do_no_harm)
{
    for (const char *file : {"links", "addresses", "neighbours", "forwarding", "events"})
        each_message(file, [](const nlmsghdr &whole) {
            for (uint32_t length = sizeof whole; length < whole.nlmsg_len; ++length) {
                std::vector<uint32_t> exact((length + 3) / 4);
                std::memcpy(exact.data(), &whole, length);
                auto *cut = reinterpret_cast<nlmsghdr *>(exact.data());
                cut->nlmsg_len = length;
                network to;
                take_netlink_message(*cut, to);
                to.settle();
            }
        });
}

} // namespace
