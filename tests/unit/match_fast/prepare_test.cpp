/* The private data that a compilation leaves for the fast ways. */
#include <bit>

#include "match/fast.h"
#include "unit/match/model.h"

using namespace mix::match;
using namespace mixtest;

namespace
{

struct prepare : matcher_test {
};

/* Different patterns of one length, of the letters a to p. */
pattern_set numbered(size_t count, size_t length)
{
    pattern_set made;
    for (size_t i = 0; i < count; ++i) {
        std::string bytes(length, 'a');
        for (size_t at = 0, rest = i; at < length; ++at, rest /= 16)
            bytes[at] = static_cast<char>('a' + rest % 16);
        made.push_back({bytes, false, i + 1});
    }
    return made;
}
pattern_set with(pattern_set set, const std::string &bytes)
{
    set.push_back({bytes, false, 0});
    return set;
}

struct ways_case {
    const char *name;
    pattern_set patterns;
    int longest, shortest;
    bool chains, filter, few;
};
struct ways : prepare, testing::WithParamInterface<ways_case> {
};

TEST_P(ways, depend_on_how_many_patterns_of_which_lengths_there_are)
{
    matcher_pointer made = compiled(GetParam().patterns);
    const fast_data &fast = *fast_of(made.get());
    EXPECT_EQ(fast.longest, GetParam().longest);
    EXPECT_EQ(fast.shortest, GetParam().shortest);
    EXPECT_EQ(fast.chains != 0, GetParam().chains);
    EXPECT_EQ(fast.filter != 0, GetParam().filter);
    EXPECT_EQ(fast.few != 0, GetParam().few);
}

INSTANTIATE_TEST_SUITE_P(
    sets, ways,
    testing::Values(
        ways_case{"none", {}, 0, 0, false, false, true},
        ways_case{"empty", with(numbered(1, 4), ""), 4, 0, false, false, true},
        ways_case{"one_byte", with(numbered(1, 4), "x"), 4, 1, true, false, true},
        ways_case{"two_bytes", with(numbered(2, 9), "xy"), 9, 2, true, false, true},
        ways_case{"three_bytes", with(numbered(2, 9), "xyz"), 9, 3, true, true, true},
        ways_case{"longest", with(numbered(3, 5), std::string(128, 'x')), 128, 5, true, true, true},
        ways_case{"too_long", with(numbered(3, 5), std::string(129, 'x')), 129, 5, false, false, true},
        ways_case{"few", numbered(128, 4), 4, 4, true, true, true},
        ways_case{"not_few", numbered(129, 4), 4, 4, true, true, false},
        ways_case{"most", numbered(1500, 4), 4, 4, true, true, false},
        ways_case{"too_many", numbered(1501, 4), 4, 4, true, false, false}),
    [](const auto &one) { return one.param.name; });

TEST_F(prepare, gives_bytes_in_no_pattern_a_column_that_is_empty_in_every_row)
{
    matcher_pointer spare = compiled({{"ab", false, 1}});
    EXPECT_EQ(fast_of(spare.get())->spare_column, 1);
    matcher_pointer full = compiled({{"abc", false, 1}});
    EXPECT_EQ(fast_of(full.get())->spare_column, 0);
    matcher_pointer folded = compiled({{"ab", true, 1}});
    EXPECT_EQ(fast_of(folded.get())->nocase, 1);
    for (int byte = 0; byte < 256; ++byte) {
        const int of_a_or_b = byte == 'a' ? 1 : byte == 'b' ? 2 : 0;
        EXPECT_EQ(fast_of(spare.get())->columns[byte], of_a_or_b ? of_a_or_b : 3);
        EXPECT_EQ(fast_of(full.get())->columns[byte], byte == 'c' ? 3 : of_a_or_b);
        EXPECT_EQ(fast_of(folded.get())->columns[byte], byte == 'A'   ? 1
                                                        : byte == 'B' ? 2
                                                        : of_a_or_b   ? of_a_or_b
                                                                      : 3);
    }
}

TEST_F(prepare, gives_byte_255_column_256_only_where_a_search_does)
{
    std::string all;
    for (int byte = 255; byte >= 0; --byte)
        all += static_cast<char>(byte);
    matcher_pointer exact = compiled({{all, false, 1}});
    EXPECT_EQ(fast_of(exact.get())->columns[254], 255);
    EXPECT_EQ(fast_of(exact.get())->columns[255], 256);
    matcher_pointer most = compiled({{all.substr(0, 255), false, 1}});
    EXPECT_EQ(fast_of(most.get())->columns[255], 255);
    /* The bytes of the set before stay in the map. */
    tqac_clear(exact.get());
    add_all(exact.get(), {{"ab", true, 1}});
    ASSERT_EQ(tqac_compile(exact.get()), 0);
    EXPECT_EQ(exact->charset, 512);
    EXPECT_EQ(fast_of(exact.get())->columns[255], 255);
}

TEST_F(prepare, marks_the_states_that_have_matches)
{
    random_source random(3);
    for (size_t longest : {5, 110}) {
        matcher_pointer made =
            compiled(random_patterns(random, longest == 5 ? 40 : 1900, longest, "abcdef", casing::sensitive));
        EXPECT_EQ(made->num_states > flagged_states, longest == 110);
        for (int32_t state = 0; state < flagged_states; ++state) {
            const bool matches = state < made->num_states && made->match_lists[state] != nullptr;
            ASSERT_EQ(fast_of(made.get())->matching[state / 32] >> state % 32 & 1, matches) << state;
        }
    }
}

/* Which of the eight groups a text's first bytes may begin a pattern of. */
unsigned groups_of(const filter_masks &masks, const std::string &text)
{
    unsigned groups = 0xFF;
    for (size_t place = 0; place < filter_window; ++place) {
        const uint8_t byte = static_cast<uint8_t>(text[place]);
        groups &= masks.low[place][byte & 15] & masks.high[place][byte >> 4];
    }
    return groups;
}

TEST_F(prepare, gives_eight_patterns_with_nothing_in_common_a_group_each)
{
    /* No two have a half of a byte in common at any place. */
    pattern_set set;
    for (int i = 0; i < 8; ++i) {
        std::string bytes;
        for (int place = 0; place < 5; ++place)
            bytes += static_cast<char>(0x11 * (i + 8) - 0x80 * (place % 2));
        set.push_back({bytes, false, static_cast<uint64_t>(i + 1)});
    }
    matcher_pointer made = compiled(set);
    const filter_masks &masks = fast_of(made.get())->masks;
    unsigned all = 0;
    for (const pattern &one : set) {
        const unsigned own = groups_of(masks, one.bytes);
        EXPECT_EQ(std::popcount(own), 1);
        all |= own;
        for (const pattern &other : set) {
            for (size_t place = 0; place < filter_window && &other != &one; ++place) {
                std::string mixed = one.bytes;
                mixed[place] = other.bytes[place];
                EXPECT_EQ(groups_of(masks, mixed), 0u);
            }
        }
    }
    EXPECT_EQ(all, 0xFFu);
}

TEST_F(prepare, looks_at_all_four_bytes_of_patterns_to_group_them)
{
    pattern_set set;
    for (int i = 0; i < 8; ++i)
        set.push_back({"a" + std::string(3, static_cast<char>(0x11 * (i + 8))), false, 1});
    matcher_pointer made = compiled(set);
    unsigned all = 0;
    for (const pattern &one : set) {
        const unsigned own = groups_of(fast_of(made.get())->masks, one.bytes);
        EXPECT_EQ(std::popcount(own), 1);
        all |= own;
    }
    EXPECT_EQ(all, 0xFFu);
}

TEST_F(prepare, puts_patterns_that_begin_alike_into_one_group)
{
    pattern_set set;
    for (int i = 0; i < 7; ++i)
        set.push_back({std::string(4, static_cast<char>(0x11 * (i + 1))), false, 1});
    for (const char *alike : {"\x88\x88\x88\x88", "\x88\x88\x88\x89", "\x88\x88\x88\x8a", "\x88\x88\x98\x88"})
        set.push_back({alike, false, 1});
    matcher_pointer made = compiled(set);
    const filter_masks &masks = fast_of(made.get())->masks;
    EXPECT_EQ(groups_of(masks, set[7].bytes), groups_of(masks, set[10].bytes));
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(std::popcount(groups_of(masks, set[static_cast<size_t>(i)].bytes)), 1);
        EXPECT_NE(groups_of(masks, set[static_cast<size_t>(i)].bytes), groups_of(masks, set[7].bytes));
    }
}

TEST_F(prepare, lets_every_pattern_pass_however_it_is_written)
{
    random_source random(12);
    for (size_t shortest : {3, 4, 7}) {
        for (bool nocase : {false, true}) {
            pattern_set set;
            for (int i = 0; i < 100; ++i)
                set.push_back({random.text(shortest + random.below(3), "abcXYZ09@`{\xc1\xe1"), nocase, 1});
            set.push_back({random.text(shortest, "abc"), false, 1});
            matcher_pointer made = compiled(set);
            const fast_data &fast = *fast_of(made.get());
            for (const pattern &one : set) {
                std::string text = one.bytes.substr(0, shortest) + "\xf7\x0e";
                for (int way = 0; way < 2; ++way, text = upper(text)) {
                    if (way == 1 && !nocase)
                        continue;
                    EXPECT_NE(groups_of(fast.masks, text), 0u) << text;
                    const uint32_t hash = hash_of_beginning(
                        made.get(), reinterpret_cast<const uint8_t *>(text.data()), shortest == 3);
                    EXPECT_EQ(fast.beginnings[hash / 64] >> hash % 64 & 1, 1u) << text;
                }
            }
            int beginnings = 0;
            for (uint64_t word : fast.beginnings)
                beginnings += std::popcount(word);
            EXPECT_LE(beginnings, 101);
        }
    }
}

TEST_F(prepare, is_not_part_of_what_diagnostics_count_as_the_matchers_memory)
{
    matcher_pointer made = compiled({{"abcd", false, 1}});
    EXPECT_EQ(made->num_states, 5);
    testing::internal::CaptureStdout();
    tqac_print_info(made.get());
    fflush(stdout);
    /* 352 + 5 x 8 x 4 + 29 */
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Memory           : 0.53Kbytes\n"),
              std::string::npos);
}

} // namespace
