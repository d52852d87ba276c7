#include <libmix/bitmap.h>

#include <gtest/gtest.h>

#include <array>
#include <bitset>
#include <random>
#include <vector>

namespace
{

constexpr size_t size = 513;
constexpr uint32_t vlans = 4104;

/* A bitmap at an odd address, with guard bytes on both sides. */
class bitmap
{
  public:
    explicit bitmap(size_t misalignment = 1) : at_(misalignment) { bytes_.fill(0xA5), clear(); }
    bitmap(const bitmap &) = default;
    bitmap &operator=(const bitmap &) = delete;
    ~bitmap()
    {
        for (size_t i = 0; i < bytes_.size(); i++) {
            if (i < at_ || i >= at_ + size) {
                EXPECT_EQ(bytes_[i], 0xA5) << "byte " << i << " beside the bitmap";
            }
        }
    }
    void clear() { std::fill_n(bytes_.begin() + static_cast<long>(at_), size, uint8_t{0}); }
    operator uint8_t *() { return bytes_.data() + at_; }
    /* One bit at a time, by the definition. */
    [[nodiscard]] bool has(uint32_t vid) const { return (bytes_[at_ + vid / 8] >> vid % 8 & 1) != 0; }
    void put(uint32_t vid) { bytes_[at_ + vid / 8] |= static_cast<uint8_t>(1 << vid % 8); }
    [[nodiscard]] std::bitset<vlans> members() const
    {
        std::bitset<vlans> all;
        for (uint32_t vid = 0; vid < vlans; vid++)
            all[vid] = has(vid);
        return all;
    }

  private:
    size_t at_;
    alignas(64) std::array<uint8_t, size + 64> bytes_;
};

using members = std::bitset<vlans>;

bitmap random_bitmap(std::mt19937 &random, size_t misalignment, uint32_t density)
{
    bitmap made(misalignment);
    for (uint32_t i = 0; i < density; i++)
        made.put(random() % vlans);
    return made;
}

/* --- one bitmap --- */

TEST(vlan_bitmap, has_bit_v_mod_8_of_byte_v_div_8)
{
    for (uint32_t vid = 0; vid < vlans; vid++) {
        bitmap map;
        EXPECT_EQ(vlan_is_in_bitmap(map, vid), 0);
        EXPECT_EQ(bitmap_port_set_vid(map, vid), 0);
        EXPECT_EQ(vlan_is_in_bitmap(map, vid), 1);
        EXPECT_EQ(map[vid / 8], 1 << vid % 8);
        EXPECT_EQ(map.members().count(), 1u);
        EXPECT_EQ(bitmap_get_port_vlan_num(map), 1);
        EXPECT_EQ(bitmap_is_zero(map), 0);
    }
}

TEST(vlan_bitmap, reaches_from_byte_0_bit_0_to_byte_512_bit_7)
{
    bitmap map;
    bitmap_port_set_vid(map, 0);
    bitmap_port_set_vid(map, 4103);
    EXPECT_EQ(map[0], 0x01);
    EXPECT_EQ(map[512], 0x80);
    EXPECT_EQ(bitmap_get_port_vlan_num(map), 2);
}

TEST(vlan_bitmap, masks_the_byte_index_with_0x1fff)
{
    bitmap map;
    bitmap_port_set_vid(map, 0x10000 + 9);
    EXPECT_EQ(map[1], 0x02);
    EXPECT_EQ(vlan_is_in_bitmap(map, 0x10000 + 9), 1);
    EXPECT_EQ(vlan_is_in_bitmap(map, 0xFFFF0009), 1);
}

TEST(vlan_bitmap, counts_what_is_set_at_any_alignment)
{
    std::mt19937 random(7);
    for (size_t misalignment = 0; misalignment < 16; misalignment++) {
        for (const uint32_t density : {0u, 1u, 50u, 4000u, 40000u}) {
            bitmap map = random_bitmap(random, misalignment, density);
            EXPECT_EQ(bitmap_get_port_vlan_num(map), map.members().count());
        }
        bitmap full(misalignment);
        std::fill_n(static_cast<uint8_t *>(full), size, uint8_t{0xFF});
        EXPECT_EQ(bitmap_get_port_vlan_num(full), 4104);
    }
}

TEST(vlan_bitmap, is_zero_only_without_any_bit)
{
    bitmap map;
    EXPECT_EQ(bitmap_is_zero(map), 1);
    map[512] = 0x01;
    EXPECT_EQ(bitmap_is_zero(map), 0);
    EXPECT_EQ(bitmap_port_clear(map), 0);
    EXPECT_EQ(bitmap_is_zero(map), 1);
    EXPECT_EQ(map.members().count(), 0u);
}

TEST(vlan_bitmap, clears_every_byte)
{
    bitmap map;
    std::fill_n(static_cast<uint8_t *>(map), size, uint8_t{0xFF});
    EXPECT_EQ(bitmap_port_clear(map), 0);
    EXPECT_EQ(map.members().count(), 0u);
}

class pair_of_bitmaps : public testing::TestWithParam<size_t>
{
  protected:
    std::mt19937 random{GetParam() * 31 + 5};
    bitmap a = random_bitmap(random, GetParam(), 1500);
    bitmap b = random_bitmap(random, GetParam() / 2 + 3, 2500);
    members in_a = a.members();
    members in_b = b.members();
};

TEST_P(pair_of_bitmaps, is_combined_source_first)
{
    bitmap result = b;
    EXPECT_EQ(bitmap_port_or(a, result), 0);
    EXPECT_EQ(result.members(), in_a | in_b);
    bitmap both = b;
    EXPECT_EQ(bitmap_port_and(a, both), 0);
    EXPECT_EQ(both.members(), in_a & in_b);
    bitmap without = b;
    EXPECT_EQ(bitmap_port_not(a, without), 0);
    EXPECT_EQ(without.members(), in_b & ~in_a);
    EXPECT_EQ(a.members(), in_a) << "the source changed";
}

TEST_P(pair_of_bitmaps, differs_by_what_is_in_one_of_them)
{
    bitmap out;
    EXPECT_EQ(bitmap_port_diff(a, b, out), 0);
    EXPECT_EQ(out.members(), in_a ^ in_b);
    EXPECT_EQ(a.members(), in_a);
    EXPECT_EQ(b.members(), in_b);
    EXPECT_EQ(bitmap_port_diff(a, b, a), 0);
    EXPECT_EQ(a.members(), in_a ^ in_b);
}

TEST_P(pair_of_bitmaps, is_copied_destination_first)
{
    EXPECT_EQ(bitmap_port_copy(a, b), 0);
    EXPECT_EQ(a.members(), in_b);
    EXPECT_EQ(b.members(), in_b);
}

TEST_P(pair_of_bitmaps, compares_by_every_bit)
{
    bitmap same = a;
    EXPECT_EQ(bitmap_port_cmp(a, same), 0);
    for (const uint32_t vid : {0u, 7u, 8u, 2047u, 4095u, 4096u, 4103u}) {
        bitmap other = a;
        other[vid / 8] ^= static_cast<uint8_t>(1 << vid % 8);
        EXPECT_EQ(bitmap_port_cmp(a, other), 1) << vid;
        EXPECT_EQ(bitmap_port_cmp(other, a), 1) << vid;
    }
}

TEST_P(pair_of_bitmaps, may_be_the_same_bitmap_twice)
{
    EXPECT_EQ(bitmap_port_or(a, a), 0);
    EXPECT_EQ(a.members(), in_a);
    EXPECT_EQ(bitmap_port_and(a, a), 0);
    EXPECT_EQ(a.members(), in_a);
    EXPECT_EQ(bitmap_port_copy(a, a), 0);
    EXPECT_EQ(a.members(), in_a);
    EXPECT_EQ(bitmap_port_cmp(a, a), 0);
    EXPECT_EQ(bitmap_port_not(a, a), 0);
    EXPECT_EQ(bitmap_is_zero(a), 1);
    EXPECT_EQ(bitmap_port_diff(b, b, b), 0);
    EXPECT_EQ(bitmap_is_zero(b), 1);
}

INSTANTIATE_TEST_SUITE_P(at_any_alignment, pair_of_bitmaps, testing::Range<size_t>(0, 17));

TEST(vlan_bitmap, has_nothing_to_debug)
{
    bitmap map;
    EXPECT_EQ(bitmap_debug(map), 0);
    EXPECT_EQ(bitmap_debug(nullptr), 0);
    EXPECT_EQ(map.members().count(), 0u);
}

/* --- ranges --- */

TEST(vlan_range, is_empty_when_backwards_or_above_4095)
{
    bitmap map;
    std::fill_n(static_cast<uint8_t *>(map), size, uint8_t{0xFF});
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 10, 9), 0);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 10, 4096), 0);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 0, 65535), 0);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 4096, 4096), 0);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 0, 4095), 1);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 4095, 4095), 1);
}

TEST(vlan_range, of_one_id_tests_that_id_only)
{
    bitmap map;
    map.put(4);
    map.put(6);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 5, 5), 0);
    map.put(5);
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 5, 5), 1);
}

TEST(vlan_range, does_not_see_ids_above_4095)
{
    bitmap map;
    map[512] = 0xFF;
    EXPECT_EQ(bitmap_is_include_specified_vlan(map, 0, 4095), 0);
}

TEST(vlan_range, holds_a_lone_member_or_not_for_every_border)
{
    const uint16_t borders[] = {0,   1,    7,    8,    62,   63,   64,   65,   127,
                                128, 1000, 2047, 2048, 4031, 4032, 4033, 4094, 4095};
    for (const uint16_t vid : borders) {
        bitmap map;
        map.put(vid);
        for (const uint16_t lo : borders) {
            for (const uint16_t hi : borders) {
                const int expected = lo <= vid && vid <= hi ? 1 : 0;
                EXPECT_EQ(bitmap_is_include_specified_vlan(map, lo, hi), expected)
                    << vid << " " << lo << " " << hi;
            }
        }
    }
}

TEST(vlan_range, agrees_with_a_loop_over_its_ids)
{
    std::mt19937 random(11);
    for (int round = 0; round < 2000; round++) {
        bitmap map = random_bitmap(random, random() % 16, 1 + random() % 40);
        const auto lo = static_cast<uint16_t>(random() % 4096);
        const auto hi = static_cast<uint16_t>(std::min<uint32_t>(4095, lo + random() % 300));
        bool any = false;
        for (uint32_t vid = lo; vid <= hi; vid++)
            any = any || map.has(vid);
        EXPECT_EQ(bitmap_is_include_specified_vlan(map, lo, hi), any ? 1 : 0) << lo << " " << hi;
    }
}

/* --- port map --- */

class port_map : public testing::Test
{
  protected:
    bitmap ports[4];
    uint8_t *map[4] = {ports[0], ports[1], ports[2], ports[3]};
};

TEST_F(port_map, adds_and_removes_members)
{
    EXPECT_EQ(bitmap_is_port_add2vlan(map, 2), 0);
    EXPECT_EQ(bitmap_add_port2vlan(map, 2, 100), 0);
    EXPECT_EQ(bitmap_add_port2vlan(map, 2, 101), 0);
    EXPECT_EQ(bitmap_is_port_belong2vlan(map, 2, 100), 1);
    EXPECT_EQ(bitmap_is_port_belong2vlan(map, 2, 102), 0);
    EXPECT_EQ(bitmap_is_port_belong2vlan(map, 1, 100), 0);
    EXPECT_EQ(bitmap_is_port_add2vlan(map, 2), 1);
    EXPECT_EQ(bitmap_is_port_add2vlan(map, 1), 0);
    EXPECT_EQ(bitmap_del_port_from_vlan(map, 2, 100), 0);
    EXPECT_EQ(bitmap_is_port_belong2vlan(map, 2, 100), 0);
    EXPECT_EQ(bitmap_is_port_belong2vlan(map, 2, 101), 1);
    EXPECT_EQ(bitmap_del_port_from_vlan(map, 2, 100), 0) << "once more";
    EXPECT_EQ(bitmap_del_port_from_vlan(map, 2, 101), 0);
    EXPECT_EQ(bitmap_is_port_add2vlan(map, 2), 0);
}

TEST_F(port_map, masks_the_byte_index_with_0x1fff)
{
    bitmap_add_port2vlan(map, 2, 0x10000 + 9);
    EXPECT_EQ(ports[2][1], 0x02);
    EXPECT_EQ(bitmap_is_port_belong2vlan(map, 2, 0x10000 + 9), 1);
    bitmap_del_port_from_vlan(map, 2, 0x10000 + 9);
    EXPECT_EQ(ports[2][1], 0x00);
}

TEST_F(port_map, counts_the_ports_below_its_size)
{
    for (const uint16_t port : {0, 2, 3})
        bitmap_add_port2vlan(map, port, 7);
    EXPECT_EQ(bitmap_get_vlan_port_num(map, 7, 4), 3);
    EXPECT_EQ(bitmap_get_vlan_port_num(map, 7, 3), 2);
    EXPECT_EQ(bitmap_get_vlan_port_num(map, 7, 0), 0);
    EXPECT_EQ(bitmap_get_vlan_port_num(map, 8, 4), 0);
    EXPECT_EQ(bitmap_is_vlan_have_port(map, 7, 4), 1);
    EXPECT_EQ(bitmap_is_vlan_have_port(map, 8, 4), 0);
    EXPECT_EQ(bitmap_is_vlan_have_port(map, 7, 0), 0);
}

TEST_F(port_map, gives_the_lowest_member)
{
    uint16_t port = 99;
    EXPECT_EQ(bitmap_vlan_get_one_member(map, 7, 4, &port), -1);
    EXPECT_EQ(port, 99);
    bitmap_add_port2vlan(map, 3, 7);
    bitmap_add_port2vlan(map, 1, 7);
    EXPECT_EQ(bitmap_vlan_get_one_member(map, 7, 4, &port), 0);
    EXPECT_EQ(port, 1);
    port = 99;
    EXPECT_EQ(bitmap_vlan_get_one_member(map, 7, 1, &port), -1);
    EXPECT_EQ(bitmap_vlan_get_one_member(map, 7, 0, &port), -1);
    EXPECT_EQ(port, 99);
    EXPECT_EQ(bitmap_is_vlan_have_port(map, 7, 1), 0);
    EXPECT_EQ(bitmap_is_vlan_have_port(map, 7, 2), 1);
}

TEST(port_map_of_65535_ports, comes_to_its_end)
{
    bitmap with;
    with.put(7);
    const std::vector<uint8_t *> map(65535, with);
    EXPECT_EQ(bitmap_get_vlan_port_num(map.data(), 7, 65535), 65535);
    EXPECT_EQ(bitmap_get_vlan_port_num(map.data(), 8, 65535), 0);
    uint32_t calls = 0;
    EXPECT_EQ(bitmap_vlan_for_each_port(map.data(), 7, 65535, &calls,
                                        [](uint16_t, void *context) {
                                            return static_cast<int>(++*static_cast<uint32_t *>(context));
                                        }),
              0);
    EXPECT_EQ(calls, 65535u);
}

/* --- walkers --- */

struct visits {
    std::vector<uint32_t> members = {};
    uint8_t *bitmap = nullptr; /* to change on the way */
};

int visit_vlan(uint32_t vid, void *context)
{
    auto *seen = static_cast<visits *>(context);
    seen->members.push_back(vid);
    return -1; /* ignored */
}

int visit_port(uint16_t port, void *context)
{
    return visit_vlan(port, context);
}

TEST(vlan_walker, visits_members_in_ascending_order)
{
    std::mt19937 random(3);
    for (size_t misalignment = 0; misalignment < 8; misalignment++) {
        bitmap map = random_bitmap(random, misalignment, 900);
        map.put(0);
        map.put(4095);
        map.put(4096);
        map.put(4103);
        std::vector<uint32_t> expected;
        for (uint32_t vid = 0; vid < vlans; vid++) {
            if (map.has(vid))
                expected.push_back(vid);
        }
        visits seen;
        EXPECT_EQ(bitmap_port_for_each_vlan_action(map, &seen, visit_vlan), 0);
        EXPECT_EQ(seen.members, expected);
    }
}

TEST(vlan_walker, visits_nothing_in_an_empty_bitmap_and_all_in_a_full_one)
{
    bitmap map;
    visits seen;
    EXPECT_EQ(bitmap_port_for_each_vlan_action(map, &seen, visit_vlan), 0);
    EXPECT_TRUE(seen.members.empty());
    std::fill_n(static_cast<uint8_t *>(map), size, uint8_t{0xFF});
    EXPECT_EQ(bitmap_port_for_each_vlan_action(map, &seen, visit_vlan), 0);
    EXPECT_EQ(seen.members.size(), vlans);
}

TEST(vlan_walker, sees_what_its_action_changes_ahead)
{
    bitmap map;
    map.put(10);
    map.put(11);
    map.put(300);
    visits seen{{}, map};
    bitmap_port_for_each_vlan_action(map, &seen, [](uint32_t vid, void *context) {
        auto *into = static_cast<visits *>(context);
        into->members.push_back(vid);
        bitmap_del_port_from_vlan(&into->bitmap, 0, 11);
        bitmap_port_set_vid(into->bitmap, 200);
        bitmap_port_set_vid(into->bitmap, 9);
        return 0;
    });
    EXPECT_EQ(seen.members, (std::vector<uint32_t>{10, 200, 300}));
}

TEST_F(port_map, is_walked_in_ascending_order)
{
    for (const uint16_t port : {3, 0, 2})
        bitmap_add_port2vlan(map, port, 7);
    visits seen;
    EXPECT_EQ(bitmap_vlan_for_each_port(map, 7, 4, &seen, visit_port), 0);
    EXPECT_EQ(seen.members, (std::vector<uint32_t>{0, 2, 3}));
    seen.members.clear();
    EXPECT_EQ(bitmap_vlan_for_each_port(map, 7, 3, &seen, visit_port), 0);
    EXPECT_EQ(seen.members, (std::vector<uint32_t>{0, 2}));
    EXPECT_EQ(bitmap_vlan_for_each_port(map, 7, 0, &seen, visit_port), 0);
    EXPECT_EQ(bitmap_vlan_for_each_port(map, 8, 4, &seen, visit_port), 0);
    EXPECT_EQ(seen.members.size(), 2u);
}

} // namespace
