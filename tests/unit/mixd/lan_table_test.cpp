/* The writer of the shared LAN table: what is in it after a change, and at every moment of one. */
#include "appliance/mixd/lan_table.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <thread>

namespace
{

using mix::wire::lan_entries_max;
using mixd::lan_network;
using networks = std::vector<lan_network>;

lan_network numbered(uint32_t i)
{
    return {0x0A000000 + (i << 8), 24};
}

class lan_table : public testing::Test
{
  protected:
    std::unique_ptr<mix::wire::lan_table> shared = std::make_unique<mix::wire::lan_table>();
    mixd::lan_table table{*shared};

    networks held() const
    {
        networks all;
        for (int32_t k = 0; k < shared->count; k++)
            all.push_back({shared->entries[k].network, shared->entries[k].length});
        std::sort(all.begin(), all.end());
        all.erase(std::unique(all.begin(), all.end()), all.end());
        return all;
    }
};

TEST_F(lan_table, has_its_numbers_where_readers_look)
{
    EXPECT_EQ(table.replace({{0x0A010000, 16}}), 0u);
    const uint8_t expected[16] = {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 10, 16, 0, 0, 0};
    EXPECT_EQ(std::memcmp(shared.get(), expected, sizeof expected), 0);
}

TEST_F(lan_table, takes_each_network_once)
{
    table.replace({numbered(1), numbered(2), numbered(1), numbered(2), numbered(1)});
    EXPECT_EQ(shared->count, 2);
    EXPECT_EQ(held(), (networks{numbered(1), numbered(2)}));
    table.replace({});
    EXPECT_EQ(shared->count, 0);
}

TEST_F(lan_table, tells_networks_apart_by_length)
{
    table.replace({{0x0A000000, 8}, {0x0A000000, 16}});
    EXPECT_EQ(held(), (networks{{0x0A000000, 8}, {0x0A000000, 16}}));
}

TEST_F(lan_table, is_put_right_whatever_it_held)
{
    std::mt19937 random(1);
    for (const int32_t count : {-1, -2147483647 - 1, 2147483647, lan_entries_max, 3}) {
        for (auto &entry : shared->entries)
            entry = {static_cast<uint32_t>(random()) % 4, static_cast<uint32_t>(random()) % 3};
        shared->count = count;
        table.replace({numbered(1), {1, 1}, {3, 2}});
        EXPECT_EQ(held(), (networks{{1, 1}, {3, 2}, numbered(1)})) << count;
    }
    shared->count = -7;
    table.replace({});
    EXPECT_EQ(shared->count, 0);
}

TEST_F(lan_table, says_how_many_found_no_room)
{
    networks many;
    for (uint32_t i = 0; i < 4100; i++)
        many.push_back(numbered(i));
    EXPECT_EQ(table.replace(many), 5u);
    EXPECT_EQ(shared->count, 4095);
    many.resize(4095);
    EXPECT_EQ(held(), many);
    EXPECT_EQ(table.replace(many), 0u);
}

TEST_F(lan_table, leaves_entries_that_stay_in_their_places)
{
    const auto places = [this] {
        std::vector<uint32_t> all;
        for (int32_t k = 0; k < shared->count; k++)
            all.push_back(shared->entries[k].network >> 8 & 0xFF);
        return all;
    };
    using numbers = std::vector<uint32_t>;
    table.replace({numbered(1), numbered(2), numbered(3)});
    EXPECT_EQ(places(), (numbers{1, 2, 3}));
    table.replace({numbered(1), numbered(3), numbered(4)});
    EXPECT_EQ(places(), (numbers{1, 4, 3})) << "a free place is filled first";
    table.replace({numbered(3)});
    EXPECT_EQ(places(), (numbers{3, 3, 3})) << "or repeats another entry";
    table.replace({numbered(3), numbered(5)});
    EXPECT_EQ(places(), (numbers{5, 3, 3})) << "the last of repeated entries stays";
    table.replace({numbered(5)});
    EXPECT_EQ(places(), (numbers{5})) << "the end is given up";
    table.replace({numbered(5), numbered(6), numbered(7)});
    table.replace({numbered(5), numbered(7)});
    EXPECT_EQ(places(), (numbers{5, 7, 7})) << "repeats come before their entry, so that it never moves";
    table.replace({numbered(4), numbered(5), numbered(7)});
    EXPECT_EQ(places(), (numbers{5, 4, 7})) << "a reader may be slower than several changes";
}

TEST_F(lan_table, is_what_was_asked_for_after_any_changes)
{
    std::mt19937 random(2);
    for (int round = 0; round < 2000; round++) {
        networks wanted;
        for (uint32_t i = 0; i < 12; i++) {
            if (random() % 2 == 0)
                wanted.push_back(numbered(i));
        }
        table.replace(wanted);
        ASSERT_EQ(held(), wanted);
    }
}

/* As libmix reads it: the count, then the entries from the first. */
bool reader_finds(const mix::wire::lan_table &in, const lan_network &which)
{
    const int32_t count = __atomic_load_n(&in.count, __ATOMIC_ACQUIRE);
    for (int32_t k = 0; k < count; k++) {
        uint64_t both;
        both = __atomic_load_n(reinterpret_cast<const uint64_t *>(&in.entries[k]), __ATOMIC_ACQUIRE);
        if (both == (uint64_t{which.length} << 32 | which.address))
            return true;
    }
    return false;
}

TEST_F(lan_table, lets_a_reader_find_what_stays_at_every_moment)
{
    const lan_network staying = numbered(500);
    table.replace({staying});
    std::atomic<bool> over = false;
    uint64_t looked = 0;
    uint64_t missed = 0;
    std::thread reader([&] {
        while (!over) {
            looked++;
            missed += reader_finds(*shared, staying) ? 0 : 1;
        }
    });
    std::mt19937 random(3);
    for (int round = 0; round < 20000; round++) {
        networks wanted = {staying};
        for (uint32_t i = 490; i < 510; i++) {
            if (random() % 2 == 0)
                wanted.push_back(numbered(i));
        }
        table.replace(wanted);
    }
    over = true;
    reader.join();
    EXPECT_GT(looked, 100u);
    EXPECT_EQ(missed, 0u) << "of " << looked;
}

} // namespace
