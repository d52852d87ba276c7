/*
 * rtnetlink messages into a network. They are put together as kernels send them, also those that the machine
 * at hand has no support for: VLAN ids of a bridge's entries, VRFs. And cut at every length.
 */
#include "appliance/mixd/kernel_source.h"

#include <gtest/gtest.h>

#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <sys/socket.h>

using namespace mixd;

namespace
{

class message
{
  public:
    template <class Header>
    message(uint16_t type, const Header &header)
    {
        at_ = mnl_nlmsg_put_header(room_);
        at_->nlmsg_type = type;
        std::memcpy(mnl_nlmsg_put_extra_header(at_, sizeof header), &header, sizeof header);
    }
    message &put(uint16_t type, const void *data, size_t size)
    {
        mnl_attr_put(at_, type, size, data);
        return *this;
    }
    message &text(uint16_t type, const char *text)
    {
        mnl_attr_put_strz(at_, type, text);
        return *this;
    }
    message &u16(uint16_t type, uint16_t value) { return put(type, &value, sizeof value); }
    message &u32(uint16_t type, uint32_t value) { return put(type, &value, sizeof value); }
    /* A nest of attributes: an outer one around what the function puts. */
    template <class Fill>
    message &nest(uint16_t type, Fill &&fill)
    {
        nlattr *outer = mnl_attr_nest_start(at_, type);
        fill(*this);
        mnl_attr_nest_end(at_, outer);
        return *this;
    }
    void give(network &into) const { take_netlink_message(*at_, into); }
    /* The same, cut to that many bytes in a buffer of just that size. */
    void give_cut(network &into, uint32_t length) const
    {
        std::vector<uint32_t> exact((length + 3) / 4);
        std::memcpy(exact.data(), at_, length);
        auto *header = reinterpret_cast<nlmsghdr *>(exact.data());
        header->nlmsg_len = length;
        take_netlink_message(*header, into);
    }
    [[nodiscard]] uint32_t length() const { return at_->nlmsg_len; }

  private:
    alignas(nlmsghdr) uint8_t room_[1024] = {};
    nlmsghdr *at_;
};

constexpr mac_address station = {2, 0, 0, 0, 0, 7};

message link(uint16_t type, int index, const char *name)
{
    message one(type, ifinfomsg{AF_UNSPEC, 0, 0, index, 0, 0});
    one.text(IFLA_IFNAME, name);
    return one;
}

message forwarding(uint16_t type, int port, uint32_t bridge, uint16_t state, uint16_t vlan = 0)
{
    ndmsg header{};
    header.ndm_family = AF_BRIDGE;
    header.ndm_ifindex = port;
    header.ndm_state = state;
    message one(type, header);
    one.put(NDA_LLADDR, station.data(), station.size()).u32(NDA_MASTER, bridge);
    const nda_cacheinfo times{};
    one.put(NDA_CACHEINFO, &times, sizeof times);
    if (vlan != 0)
        one.u16(NDA_VLAN, vlan);
    return one;
}

message ipv4(uint16_t type, int index, uint16_t state, uint8_t flags = 0)
{
    ndmsg header{};
    header.ndm_family = AF_INET;
    header.ndm_ifindex = index;
    header.ndm_state = state;
    header.ndm_flags = flags;
    const uint8_t address[4] = {10, 1, 2, 3};
    message one(type, header);
    one.put(NDA_DST, address, sizeof address).put(NDA_LLADDR, station.data(), station.size());
    return one;
}

const neighbour_key key_10_1_2_3{neighbour_family::ipv4, 5, {10, 1, 2, 3}};

TEST(netlink, links_have_names_kinds_and_masters)
{
    network to;
    link(RTM_NEWLINK, 5, "eth0").u32(IFLA_MASTER, 9).give(to);
    link(RTM_NEWLINK, 9, "br0")
        .nest(IFLA_LINKINFO, [](message &in) { in.text(IFLA_INFO_KIND, "bridge"); })
        .give(to);
    ASSERT_NE(to.interface("eth0"), nullptr);
    EXPECT_EQ(to.interface("eth0")->master, 9u);
    EXPECT_EQ(to.interface(9)->kind, "bridge");
    link(RTM_NEWLINK, 5, "renamed").give(to);
    EXPECT_EQ(to.interface("eth0"), nullptr);
    EXPECT_EQ(to.interface("renamed")->master, 0u);
    link(RTM_DELLINK, 5, "renamed").give(to);
    EXPECT_EQ(to.interface(5), nullptr);
    EXPECT_EQ(to.name_of(5), "if5");
}

TEST(netlink, a_port_that_leaves_its_bridge_is_still_an_interface)
{
    network to;
    link(RTM_NEWLINK, 5, "eth0").give(to);
    message(RTM_DELLINK, ifinfomsg{AF_BRIDGE, 0, 0, 5, 0, 0}).text(IFLA_IFNAME, "eth0").give(to);
    EXPECT_NE(to.interface("eth0"), nullptr);
}

TEST(netlink, routing_domains_are_virtual_routers_by_their_table)
{
    network to;
    link(RTM_NEWLINK, 3, "blue")
        .nest(IFLA_LINKINFO,
              [](message &in) {
                  in.text(IFLA_INFO_KIND, "vrf").nest(IFLA_INFO_DATA, [](message &data) {
                      data.u32(IFLA_VRF_TABLE, 10);
                  });
              })
        .give(to);
    link(RTM_NEWLINK, 4, "far")
        .nest(IFLA_LINKINFO,
              [](message &in) {
                  in.text(IFLA_INFO_KIND, "vrf").nest(IFLA_INFO_DATA, [](message &data) {
                      data.u32(IFLA_VRF_TABLE, 100000);
                  });
              })
        .give(to);
    link(RTM_NEWLINK, 5, "eth0").u32(IFLA_MASTER, 3).give(to);
    link(RTM_NEWLINK, 6, "eth1").give(to);
    link(RTM_NEWLINK, 7, "eth2").u32(IFLA_MASTER, 4).give(to);
    to.settle();
    ASSERT_NE(to.router_name(10), nullptr);
    EXPECT_EQ(*to.router_name(10), "blue");
    EXPECT_EQ(*to.router_name(1), "main");
    EXPECT_EQ(to.router_name(11), nullptr);
    EXPECT_EQ(to.router_of(*to.interface("eth0")), 10);
    EXPECT_EQ(to.router_of(*to.interface("eth1")), 1);
    EXPECT_EQ(to.router_of(*to.interface("eth2")), 1) << "its table has no number that a router could have";
}

TEST(netlink, addresses_lead_to_interfaces)
{
    network to;
    link(RTM_NEWLINK, 5, "eth0").give(to);
    link(RTM_NEWLINK, 6, "eth1").give(to);
    const auto address = [&](uint16_t type, uint32_t interface, uint8_t prefix, std::array<uint8_t, 4> ip) {
        message(type, ifaddrmsg{AF_INET, prefix, 0, 0, interface})
            .put(IFA_LOCAL, ip.data(), ip.size())
            .give(to);
    };
    address(RTM_NEWADDR, 5, 8, {10, 0, 0, 1});
    address(RTM_NEWADDR, 6, 24, {10, 1, 2, 1});
    to.settle();
    EXPECT_EQ(to.interface_towards(0x0a090909, 1)->name, "eth0");
    EXPECT_EQ(to.interface_towards(0x0a010203, 1)->name, "eth1") << "the longest prefix";
    EXPECT_EQ(to.interface_towards(0x0a010203, 2), nullptr) << "another virtual router";
    EXPECT_EQ(to.interface_towards(0x0b000001, 1), nullptr);
    EXPECT_TRUE(to.is_own(0x0a010201));
    address(RTM_DELADDR, 6, 24, {10, 1, 2, 1});
    EXPECT_EQ(to.interface_towards(0x0a010203, 1)->name, "eth0");
    EXPECT_FALSE(to.is_own(0x0a010201));
}

TEST(netlink, neighbours_come_change_and_go)
{
    network to;
    ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE, NTF_ROUTER).give(to);
    ASSERT_TRUE(to.neighbours().contains(key_10_1_2_3));
    EXPECT_EQ(to.neighbours().at(key_10_1_2_3).mac, station);
    EXPECT_TRUE(to.neighbours().at(key_10_1_2_3).is_router);
    ipv4(RTM_NEWNEIGH, 5, NUD_STALE).give(to);
    EXPECT_EQ(to.neighbours().at(key_10_1_2_3).state, NUD_STALE);
    ipv4(RTM_DELNEIGH, 5, NUD_STALE).give(to);
    EXPECT_TRUE(to.neighbours().empty());
}

TEST(netlink, entries_that_are_no_neighbours_are_left_out)
{
    network to;
    ipv4(RTM_NEWNEIGH, 5, NUD_NOARP).give(to);
    ipv4(RTM_NEWNEIGH, 5, NUD_NONE).give(to);
    ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE, NTF_PROXY).give(to);
    EXPECT_TRUE(to.neighbours().empty());
    ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE).give(to);
    ipv4(RTM_NEWNEIGH, 5, NUD_NOARP).give(to);
    EXPECT_TRUE(to.neighbours().empty()) << "one that became such is gone";
}

TEST(netlink, a_bridges_entries_are_kept_by_vlan)
{
    network to;
    forwarding(RTM_NEWNEIGH, 5, 9, NUD_REACHABLE, 10).give(to);
    forwarding(RTM_NEWNEIGH, 6, 9, NUD_NOARP, 20).give(to);
    forwarding(RTM_NEWNEIGH, 7, 9, NUD_PERMANENT).give(to);
    ASSERT_EQ(to.forwarding().size(), 3u);
    EXPECT_EQ(to.forwarding().at({9, 10, station}).port, 5u);
    EXPECT_EQ(to.forwarding().at({9, 10, station}).is, forwarding_entry::kind::dynamic);
    EXPECT_EQ(to.forwarding().at({9, 20, station}).is, forwarding_entry::kind::fixed);
    EXPECT_EQ(to.forwarding().at({9, 0, station}).is, forwarding_entry::kind::local);
    forwarding(RTM_DELNEIGH, 5, 9, NUD_REACHABLE, 10).give(to);
    EXPECT_EQ(to.forwarding().size(), 2u);
}

TEST(netlink, a_devices_own_filter_is_no_forwarding_table)
{
    network to;
    ndmsg header{};
    header.ndm_family = AF_BRIDGE;
    header.ndm_ifindex = 5;
    header.ndm_flags = NTF_SELF;
    message(RTM_NEWNEIGH, header).put(NDA_LLADDR, station.data(), station.size()).give(to);
    EXPECT_TRUE(to.forwarding().empty());
}

TEST(netlink, messages_cut_anywhere_do_no_harm)
{
    const message whole[] = {
        ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE), forwarding(RTM_NEWNEIGH, 5, 9, NUD_REACHABLE, 10),
        link(RTM_NEWLINK, 5, "eth0")
            .u32(IFLA_MASTER, 3)
            .nest(IFLA_LINKINFO,
                  [](message &in) {
                      in.text(IFLA_INFO_KIND, "vrf").nest(IFLA_INFO_DATA, [](message &data) {
                          data.u32(IFLA_VRF_TABLE, 10);
                      });
                  }),
        message(RTM_NEWADDR, ifaddrmsg{AF_INET, 24, 0, 0, 5}).u32(IFA_LOCAL, 1)};
    for (const message &each : whole)
        for (uint32_t length = sizeof(nlmsghdr); length <= each.length(); ++length) {
            network to;
            each.give_cut(to, length);
            to.settle();
        }
}

struct told : network_observer {
    std::vector<std::string> events;
    void interfaces_changed() override { events.emplace_back("interfaces"); }
    void neighbour_changed(const neighbour_key &, const neighbour &) override
    {
        events.emplace_back("neighbour");
    }
    void neighbour_gone(const neighbour_key &) override { events.emplace_back("neighbour gone"); }
    void forwarding_changed(const forwarding_key &, const forwarding_entry &) override
    {
        events.emplace_back("forwarding");
    }
    void forwarding_gone(const forwarding_key &) override { events.emplace_back("forwarding gone"); }
};

TEST(network, tells_of_interfaces_before_what_refers_to_them)
{
    network of;
    told events;
    of.observe(events);
    events.events.clear();
    link(RTM_NEWLINK, 5, "eth0").give(of);
    ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE).give(of);
    EXPECT_EQ(events.events, (std::vector<std::string>{"interfaces", "neighbour"}));
    of.settle();
    EXPECT_EQ(events.events.size(), 2u) << "once for each change";
}

TEST(network, tells_a_late_observer_what_is_there)
{
    network of;
    ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE).give(of);
    forwarding(RTM_NEWNEIGH, 5, 9, NUD_REACHABLE).give(of);
    told events;
    of.observe(events);
    EXPECT_EQ(events.events, (std::vector<std::string>{"interfaces", "neighbour", "forwarding"}));
}

TEST(network, drops_what_a_new_look_has_not_met_again)
{
    network of;
    link(RTM_NEWLINK, 5, "eth0").give(of);
    link(RTM_NEWLINK, 6, "eth1").give(of);
    ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE).give(of);
    ipv4(RTM_NEWNEIGH, 6, NUD_REACHABLE).give(of);
    forwarding(RTM_NEWNEIGH, 5, 9, NUD_REACHABLE).give(of);
    told events;
    of.observe(events);
    const auto look = [&] {
        of.begin_generation();
        link(RTM_NEWLINK, 5, "eth0").give(of);
        of.sweep_interfaces();
        of.sweep_addresses();
        ipv4(RTM_NEWNEIGH, 5, NUD_REACHABLE).give(of);
        events.events.clear();
        of.sweep_neighbours();
        of.sweep_forwarding();
    };
    look();
    EXPECT_EQ(events.events, std::vector<std::string>{}) << "it may only have been passed over";
    EXPECT_EQ(of.interfaces().size(), 1u);
    EXPECT_EQ(of.neighbours().size(), 2u);
    look();
    EXPECT_EQ(events.events, (std::vector<std::string>{"neighbour gone", "forwarding gone"}));
    EXPECT_EQ(of.interfaces().size(), 1u);
    EXPECT_EQ(of.neighbours().size(), 1u);
    EXPECT_TRUE(of.forwarding().empty());
}

} // namespace
