/* Tables that are listed while they change. */
#include "appliance/mixd/ordered_table.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <random>
#include <set>

using namespace mixd;

namespace
{

struct row {
    uint32_t key;
    uint32_t value;
};
struct key_of {
    uint32_t operator()(const row &one) const { return one.key; }
};
using rows = ordered_table<row, key_of>;

std::vector<uint32_t> keys_of(const rows &table, std::optional<uint32_t> after = {})
{
    std::vector<uint32_t> keys;
    table.walk(after, [&](const row &one) {
        keys.push_back(one.key);
        return true;
    });
    return keys;
}

TEST(ordered_table, does_as_a_map_does)
{
    std::mt19937 random(7);
    rows table;
    std::map<uint32_t, uint32_t> map;
    for (int i = 0; i < 20000; ++i) {
        const auto key = static_cast<uint32_t>(random() % 2000);
        if (random() % 3 == 0) {
            EXPECT_EQ(table.erase(key), map.erase(key) != 0);
        } else {
            const auto value = static_cast<uint32_t>(random());
            EXPECT_EQ(table.put({key, value}), !map.contains(key));
            map[key] = value;
        }
        ASSERT_EQ(table.size(), map.size());
    }
    std::vector<uint32_t> expected;
    for (const auto &[key, value] : map) {
        expected.push_back(key);
        ASSERT_NE(table.find(key), nullptr);
        EXPECT_EQ(table.find(key)->value, value);
    }
    EXPECT_EQ(keys_of(table), expected);
    for (uint32_t after = 0; after < 2000; after += 13) {
        const auto from = std::upper_bound(expected.begin(), expected.end(), after);
        EXPECT_EQ(keys_of(table, after), std::vector<uint32_t>(from, expected.end()));
    }
}

TEST(ordered_table, keeps_its_order_whichever_way_it_is_filled)
{
    for (const int step : {1, -1}) {
        rows table;
        for (int i = 0; i < 1000; ++i)
            table.put({static_cast<uint32_t>(step > 0 ? i : 999 - i), 0});
        const std::vector<uint32_t> keys = keys_of(table);
        ASSERT_EQ(keys.size(), 1000u);
        EXPECT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    }
}

TEST(ordered_table, a_walk_ends_when_it_is_told_to)
{
    rows table;
    for (uint32_t i = 0; i < 300; ++i)
        table.put({i, 0});
    int seen = 0;
    table.walk({}, [&](const row &) { return ++seen < 200; });
    EXPECT_EQ(seen, 200);
    table.clear();
    EXPECT_EQ(table.size(), 0u);
    EXPECT_TRUE(keys_of(table).empty());
}

constexpr auto every_row = [](const row &) { return true; };

struct paging : testing::Test {
    rows table;
    positions<uint32_t> kept;
    std::vector<uint32_t> seen;

    std::optional<page_made> page(uint32_t cursor, uint32_t budget = 0, uint32_t capacity = 10,
                                  const std::function<bool(const row &)> &match = every_row,
                                  uint64_t connection = 1)
    {
        return take_page(table, kept, {connection, cursor, budget, capacity}, match,
                         [&](const row &one) { seen.push_back(one.key); });
    }
    void fill(uint32_t from, uint32_t to, uint32_t step = 1)
    {
        for (uint32_t key = from; key < to; key += step)
            table.put({key, 0});
    }
};

TEST_F(paging, an_empty_table_is_one_empty_page)
{
    const auto made = page(0);
    ASSERT_TRUE(made);
    EXPECT_EQ(made->cursor, 0u);
    EXPECT_EQ(made->rows, 0u);
}

TEST_F(paging, the_last_page_has_no_cursor_also_when_it_is_full)
{
    fill(0, 20);
    auto made = page(0);
    EXPECT_EQ(made->rows, 10u);
    ASSERT_NE(made->cursor, 0u);
    made = page(made->cursor);
    EXPECT_EQ(made->rows, 10u);
    EXPECT_EQ(made->cursor, 0u);
}

TEST_F(paging, no_more_rows_come_than_are_wanted)
{
    fill(0, 20);
    EXPECT_EQ(page(0, 3)->rows, 3u);
    EXPECT_EQ(page(0, 0x7fffffff)->rows, 10u);
    EXPECT_EQ(page(0, 0x80000000)->rows, 10u) << "not positive as a signed number";
}

TEST_F(paging, every_row_comes_once_when_nothing_changes)
{
    fill(0, 1000, 3);
    uint32_t cursor = 0;
    do {
        cursor = page(cursor, 0, 7)->cursor;
    } while (cursor != 0);
    EXPECT_EQ(seen, keys_of(table));
}

TEST_F(paging, the_row_of_a_position_may_go)
{
    fill(0, 30);
    const uint32_t cursor = page(0)->cursor;
    table.erase(9);
    table.erase(10);
    seen.clear();
    page(cursor);
    EXPECT_EQ(seen.front(), 11u);
    table.put({9, 1});
    table.put({10, 1});
    seen.clear();
    page(cursor);
    EXPECT_EQ(seen.front(), 10u) << "what came back behind the position is a row like any other";
}

TEST_F(paging, survives_inserts_and_deletes_anywhere)
{
    std::mt19937 random(11);
    fill(0, 4000, 2);
    for (int listing = 0; listing < 50; ++listing) {
        seen.clear();
        uint32_t cursor = 0;
        do {
            cursor = page(cursor, 0, 10)->cursor;
            for (int i = 0; i < 40; ++i) {
                const auto odd = static_cast<uint32_t>(random() % 2000 * 2 + 1);
                if (random() % 2 != 0)
                    table.put({odd, 0});
                else
                    table.erase(odd);
            }
        } while (cursor != 0);
        ASSERT_TRUE(std::is_sorted(seen.begin(), seen.end()));
        ASSERT_EQ(std::adjacent_find(seen.begin(), seen.end()), seen.end()) << "a row came twice";
        std::set<uint32_t> all(seen.begin(), seen.end());
        for (uint32_t key = 0; key < 4000; key += 2)
            ASSERT_TRUE(all.contains(key)) << "a row that was there all along was missed";
    }
}

TEST_F(paging, a_position_is_for_its_connection_only)
{
    fill(0, 30);
    const uint32_t cursor = page(0)->cursor;
    EXPECT_FALSE(page(cursor, 0, 10, every_row, 2));
    EXPECT_FALSE(page(cursor + 1));
    EXPECT_FALSE(page(0xffffffff));
    EXPECT_TRUE(page(cursor));
}

TEST_F(paging, asking_again_with_a_cursor_gives_the_same_page)
{
    fill(0, 30);
    const uint32_t cursor = page(0)->cursor;
    seen.clear();
    page(cursor);
    const std::vector<uint32_t> first = seen;
    seen.clear();
    page(cursor);
    EXPECT_EQ(seen, first);
}

TEST_F(paging, a_filter_that_matches_little_does_not_hold_up_others)
{
    fill(0, 3 * most_rows_looked_at);
    const auto last_only = [](const row &one) { return one.key == 3 * most_rows_looked_at - 1; };
    uint32_t cursor = 0;
    int pages = 0;
    do {
        const auto made = page(cursor, 0, 10, last_only);
        cursor = made->cursor;
        ++pages;
    } while (cursor != 0);
    EXPECT_EQ(pages, 3);
    EXPECT_EQ(seen, (std::vector<uint32_t>{3 * most_rows_looked_at - 1}));
}

TEST(positions, always_fit_16_bits_and_forget_the_oldest)
{
    positions<uint32_t> kept;
    const uint32_t first = kept.keep(1, 4711);
    for (uint32_t i = 1; i < 65535; ++i) {
        const uint32_t cursor = kept.keep(2, i);
        ASSERT_GT(cursor, 0u);
        ASSERT_LE(cursor, 65535u);
    }
    ASSERT_NE(kept.find(1, first), nullptr);
    EXPECT_EQ(*kept.find(1, first), 4711u);
    const uint32_t again = kept.keep(2, 1);
    EXPECT_EQ(again, first);
    EXPECT_EQ(kept.find(1, first), nullptr) << "its listing fails, it does not go on elsewhere";
    EXPECT_EQ(kept.find(2, 0), nullptr);
}

} // namespace
