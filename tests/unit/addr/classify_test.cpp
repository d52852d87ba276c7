#include <libmix/ip_util.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <sys/mman.h>

#include <array>
#include <cstring>
#include <vector>

#include "support/scripted_platform.h"

namespace
{

using mixtest::platform;

/* --- MAC addresses --- */

struct mac_class {
    std::array<uint8_t, 6> mac;
    int zero, broadcast, multicast, general, non_zero_broadcast;
};

TEST(mac_address, is_classified)
{
    const mac_class classes[] = {
        {{0x00, 0x00, 0x00, 0x00, 0x00, 0x00}, 1, 0, 0, 0, 0},
        {{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0, 1, 0, 0, 0},
        {{0x01, 0x00, 0x5E, 0x00, 0x00, 0x01}, 0, 0, 1, 0, 1},
        {{0x33, 0x33, 0x00, 0x00, 0x00, 0x01}, 0, 0, 1, 0, 1},
        {{0x02, 0x00, 0x00, 0x00, 0x00, 0x00}, 0, 0, 0, 1, 1},
        {{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}, 0, 0, 0, 1, 1},
        {{0x01, 0x00, 0x00, 0x00, 0x00, 0x00}, 0, 0, 1, 0, 1},
        {{0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, 0, 0, 0, 1, 1},
    };
    for (const auto &[mac, zero, broadcast, multicast, general, non_zero_broadcast] : classes) {
        std::array<uint8_t, 7> odd{}; /* not aligned */
        std::memcpy(odd.data() + 1, mac.data(), mac.size());
        const uint8_t *at = odd.data() + 1;
        SCOPED_TRACE(testing::PrintToString(mac));
        EXPECT_EQ(mac_is_zerocast(at), zero);
        EXPECT_EQ(mac_is_broadcast(at), broadcast);
        EXPECT_EQ(mac_is_multicast(at), multicast);
        EXPECT_EQ(mac_is_general(at), general);
        EXPECT_EQ(mac_is_non_zero_broadcast(at), non_zero_broadcast);
    }
}

TEST(mac_address, is_judged_by_each_of_its_bytes)
{
    for (size_t i = 0; i < 6; i++) {
        std::array<uint8_t, 6> mac{};
        mac[i] = 0x80;
        EXPECT_EQ(mac_is_zerocast(mac.data()), 0) << i;
        EXPECT_EQ(mac_is_general(mac.data()), 1) << i;
        EXPECT_EQ(mac_is_non_zero_broadcast(mac.data()), 1) << i;
        mac.fill(0xFF);
        mac[i] = 0x7F;
        EXPECT_EQ(mac_is_broadcast(mac.data()), 0) << i;
        EXPECT_EQ(mac_is_multicast(mac.data()), 1) << i;
        EXPECT_EQ(mac_is_non_zero_broadcast(mac.data()), 1) << i;
    }
}

/* --- IPv4 addresses --- */

uint32_t network_order(const char *text)
{
    return inet_addr(text);
}

uint32_t host_order(const char *text)
{
    return ntohl(inet_addr(text));
}

TEST(ip_is_multicast, looks_at_the_first_octet_of_a_network_order_address)
{
    for (uint32_t first = 0; first < 256; first++) {
        const int expected = first >= 224 && first <= 239 ? 1 : 0;
        EXPECT_EQ(ip_is_multicast(first), expected) << first;
        EXPECT_EQ(ip_is_multicast(first | 0xFFFFFF00), expected) << first;
    }
    EXPECT_EQ(ip_is_multicast(network_order("224.0.0.1")), 1);
    EXPECT_EQ(ip_is_multicast(network_order("1.0.0.224")), 0);
}

TEST(ip_is_general, refuses_zero_broadcast_and_multicast)
{
    for (const char *text :
         {"10.1.2.3", "223.255.255.255", "240.0.0.1", "1.0.0.0", "0.0.0.1", "255.255.255.254"})
        EXPECT_EQ(ip_is_general(network_order(text)), 1) << text;
    /* as a number in network order: 0xFFFFFFFE is 254.255.255.255 */
    for (const char *text : {"0.0.0.0", "255.255.255.255", "254.255.255.255", "224.0.0.1", "239.255.255.255"})
        EXPECT_EQ(ip_is_general(network_order(text)), 0) << text;
}

TEST(is_private_ip, knows_five_networks_in_host_order)
{
    for (const char *text :
         {"127.0.0.0", "127.255.255.255", "10.0.0.0", "10.255.255.255", "169.254.0.0", "169.254.1.1",
          "169.254.255.255", "192.168.0.0", "192.168.255.255", "172.16.0.0", "172.31.255.255"})
        EXPECT_EQ(is_private_ip(host_order(text)), 1) << text;
    for (const char *text :
         {"126.255.255.255", "128.0.0.0", "9.255.255.255", "11.0.0.0", "169.253.1.1", "169.253.255.255",
          "169.255.0.0", "192.167.255.255", "192.169.0.0", "172.15.0.1", "172.15.255.255", "172.32.0.0",
          "172.32.0.1", "0.0.0.0", "255.255.255.255", "1.0.0.10"})
        EXPECT_EQ(is_private_ip(host_order(text)), 0) << text;
}

/* --- the shared table --- */

class lan_table : public mixtest::platform_test
{
  protected:
    static constexpr size_t segment_size = 32768;

    void SetUp() override
    {
        platform_test::SetUp();
        lan_addrs = nullptr;
        std::memset(segment.data() + 4, 0xA5, 4); /* between the count and the entries: anything */
        platform().shared_memory = [this](const char *, size_t) -> void * { return segment.data(); };
    }
    void TearDown() override
    {
        lan_addrs = nullptr;
        platform_test::TearDown();
    }
    void count(int32_t entries) { std::memcpy(segment.data(), &entries, 4); }
    void entry(size_t k, const char *network, uint32_t length)
    {
        const uint32_t address = host_order(network);
        std::memcpy(segment.data() + 8 + 8 * k, &address, 4);
        std::memcpy(segment.data() + 12 + 8 * k, &length, 4);
    }
    alignas(8) std::array<uint8_t, segment_size> segment{};
};

TEST_F(lan_table, holds_nothing_before_it_is_attached)
{
    count(1);
    entry(0, "0.0.0.0", 0);
    EXPECT_EQ(is_lan_addr(host_order("10.1.2.3")), 0);
    EXPECT_TRUE(platform().shared_memories.empty());
}

TEST_F(lan_table, is_attached_by_name_and_size)
{
    EXPECT_EQ(init_lan_addr(), 1);
    EXPECT_EQ(lan_addrs, segment.data());
    ASSERT_EQ(platform().shared_memories.size(), 1u);
    EXPECT_EQ(platform().shared_memories[0], std::make_pair(std::string("lan_addr"), segment_size));
}

TEST_F(lan_table, is_attached_anew_at_every_call)
{
    EXPECT_EQ(init_lan_addr(), 1);
    EXPECT_EQ(init_lan_addr(), 1);
    EXPECT_EQ(platform().shared_memories.size(), 2u);
    platform().shared_memory = nullptr;
    EXPECT_EQ(init_lan_addr(), 0);
    EXPECT_EQ(lan_addrs, nullptr);
    EXPECT_EQ(is_lan_addr(host_order("10.1.2.3")), 0);
}

TEST_F(lan_table, matches_by_prefix_length)
{
    init_lan_addr();
    count(3);
    entry(0, "10.1.0.0", 16);
    entry(1, "192.0.2.7", 32);
    entry(2, "198.51.100.77", 24); /* host bits of the entry don't matter */
    for (const char *text : {"10.1.0.0", "10.1.255.255", "192.0.2.7", "198.51.100.0", "198.51.100.255"})
        EXPECT_EQ(is_lan_addr(host_order(text)), 1) << text;
    for (const char *text :
         {"10.0.255.255", "10.2.0.0", "192.0.2.6", "192.0.2.8", "198.51.101.0", "7.2.0.192"})
        EXPECT_EQ(is_lan_addr(host_order(text)), 0) << text;
}

TEST_F(lan_table, has_an_entry_of_length_0_that_holds_everything)
{
    init_lan_addr();
    count(1);
    entry(0, "10.0.0.0", 0);
    EXPECT_EQ(is_lan_addr(0), 1);
    EXPECT_EQ(is_lan_addr(0xFFFFFFFF), 1);
}

TEST_F(lan_table, is_read_only_as_far_as_its_count)
{
    init_lan_addr();
    entry(0, "10.1.0.0", 16);
    entry(1, "10.2.0.0", 16);
    for (const int32_t entries : {0, -1, -2147483647}) {
        count(entries);
        EXPECT_EQ(is_lan_addr(host_order("10.1.2.3")), 0) << entries;
    }
    count(1);
    EXPECT_EQ(is_lan_addr(host_order("10.1.2.3")), 1);
    EXPECT_EQ(is_lan_addr(host_order("10.2.2.3")), 0);
}

TEST_F(lan_table, never_matches_by_a_length_above_32)
{
    init_lan_addr();
    count(2);
    entry(0, "10.1.2.3", 33);
    entry(1, "10.1.2.3", 0xFFFFFFFF);
    EXPECT_EQ(is_lan_addr(host_order("10.1.2.3")), 0);
    count(3);
    entry(2, "10.1.2.3", 32);
    EXPECT_EQ(is_lan_addr(host_order("10.1.2.3")), 1) << "entries behind a bad one count";
}

TEST_F(lan_table, is_read_to_the_end_of_its_segment_and_no_further)
{
    /* The segment with an inaccessible page behind it. */
    struct pages {
        void *at;
        explicit pages(size_t size)
            : at(mmap(nullptr, size + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))
        {
            mprotect(static_cast<uint8_t *>(at) + size, 4096, PROT_NONE);
        }
        ~pages() { munmap(at, segment_size + 4096); }
    } guarded(segment_size);
    platform().shared_memory = [&](const char *, size_t) { return guarded.at; };
    init_lan_addr();
    for (size_t k = 0; k < 4095; k++)
        entry(k, "10.1.2.3", 32);
    entry(4094, "10.9.9.9", 32);
    count(2147483647);
    std::memcpy(guarded.at, segment.data(), segment_size);
    EXPECT_EQ(is_lan_addr(host_order("10.9.9.9")), 1);
    EXPECT_EQ(is_lan_addr(host_order("10.9.9.8")), 0);
}

} // namespace
