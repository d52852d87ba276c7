/*
 * The fast ways through a text against the plain loop, with every vector unit of this machine. The plain loop
 * is the tag-aware search on text without tags, which itself is held to the model in unit_match.
 */
#include <libmix/bm.h>

#include "match/fast.h"
#include "unit/match/model.h"

using namespace mixtest;
using mix::match::vector_unit;

namespace
{

struct fast_case {
    const char *name;
    vector_unit unit;
    uint32_t seed;
    size_t count, shortest, longest, letters;
    casing how;
    uint32_t sparse; /* of 100 pieces of text, how many are no pattern */
};

struct fast : matcher_test, testing::WithParamInterface<fast_case> {
    void SetUp() override
    {
        matcher_test::SetUp();
        mix::match::use_vector_unit(GetParam().unit);
    }
    void TearDown() override
    {
        mix::match::use_vector_unit(vector_unit::unknown);
        matcher_test::TearDown();
    }

    random_source random{GetParam().seed};
    const std::string letters = random.letters(GetParam().letters);

    pattern_set patterns()
    {
        pattern_set made;
        const auto [count, shortest, longest, how] =
            std::tuple(GetParam().count, GetParam().shortest, GetParam().longest, GetParam().how);
        for (size_t i = 0; i < count; ++i) {
            const size_t length = shortest + random.below(static_cast<uint32_t>(longest - shortest + 1));
            const bool nocase = how == casing::insensitive || (how == casing::mixed && random.below(2));
            std::string bytes = random.text(length, letters);
            if (i > 0 && random.below(4) == 0)
                bytes.replace(0, shortest, made[random.below(static_cast<uint32_t>(i))].bytes, 0, shortest);
            made.push_back({bytes, nocase, i + 1});
        }
        /* More letters than there are bytes: every byte stands in some pattern. */
        for (size_t at = 0; letters.size() == 256 && GetParam().letters > 256 && at < 256; at += 8)
            made.push_back({letters.substr(at, 8), how == casing::insensitive, count + at});
        return made;
    }

    /* Without '<', so that the tag-aware search sees no tag. */
    std::string text(size_t length, const pattern_set &set)
    {
        std::string made;
        while (made.size() < length) {
            const pattern &one = set[random.below(static_cast<uint32_t>(set.size()))];
            if (random.below(100) < GetParam().sparse)
                made += random.below(3)
                            ? random.text(1 + random.below(30), letters)
                            : std::string(1 + random.below(20), static_cast<char>(random.below(256)));
            else if (random.below(4) == 0)
                made += one.bytes.substr(0, random.below(static_cast<uint32_t>(one.bytes.size() + 1)));
            else
                made += random.below(2) ? one.bytes : upper(one.bytes);
        }
        made.resize(length);
        std::replace(made.begin(), made.end(), '<', '=');
        return made;
    }

    void compare(const tqac_matcher *matcher, const std::string &what, uint32_t state, uint32_t stop)
    {
        scan_result from;
        from.state = state;
        const scan_result ours = library_scan(matcher, what, from, false, stop);
        const scan_result plain = library_scan(matcher, what, from, true, stop);
        ASSERT_EQ(ours.matches, plain.matches) << "length " << what.size() << " from " << state;
        ASSERT_EQ(ours.count, plain.count);
        ASSERT_EQ(ours.state, plain.state) << "length " << what.size() << " from " << state;
    }
};

TEST_P(fast, gives_the_plain_loops_result_for_texts_of_all_lengths_from_all_states)
{
    const pattern_set set = patterns();
    matcher_pointer made = compiled(set);
    const uint32_t states = static_cast<uint32_t>(made->num_states);
    for (uint32_t length = 0; length < 400; length += 1 + random.below(2))
        ASSERT_NO_FATAL_FAILURE(
            compare(made.get(), text(length, set), random.below(2) * random.below(states + 1), 0));
    for (int round = 0; round < 5; ++round)
        ASSERT_NO_FATAL_FAILURE(compare(made.get(), text(random.below(60000), set), random.below(states), 0));
}

TEST_P(fast, stops_where_the_plain_loop_stops)
{
    const pattern_set set = patterns();
    matcher_pointer made = compiled(set);
    for (int round = 0; round < 12; ++round) {
        const std::string what = text(100 + random.below(10000), set);
        const size_t matches = library_scan(made.get(), what, {}).matches.size();
        for (uint32_t stop = 1; stop <= 5 && matches > 0; ++stop)
            ASSERT_NO_FATAL_FAILURE(
                compare(made.get(), what, 0, 1 + random.below(static_cast<uint32_t>(matches))));
    }
}

TEST_P(fast, carries_the_plain_loops_state_through_a_stream)
{
    const pattern_set set = patterns();
    matcher_pointer made = compiled(set);
    scan_result ours, plain;
    for (int piece = 0; piece < 150; ++piece) {
        const std::string what = text(random.below(1500), set);
        ours = library_scan(made.get(), what, {{}, 0, ours.state, 0, 0});
        plain = library_scan(made.get(), what, {{}, 0, plain.state, 0, 0}, true);
        ASSERT_EQ(ours, plain) << piece;
    }
}

std::vector<fast_case> fast_table()
{
    struct shape {
        const char *name;
        size_t count, shortest, longest, letters;
        uint32_t sparse;
    };
    const shape shapes[] = {
        {"one", 1, 4, 16, 200, 99},          {"one_of_three", 1, 3, 3, 200, 95},
        {"ten", 10, 4, 16, 60, 98},          {"ten_dense", 10, 4, 16, 4, 50},
        {"threes", 20, 3, 5, 30, 95},        {"hundred", 100, 4, 16, 256, 99},
        {"hundred_dense", 100, 4, 9, 3, 60}, {"thousand", 1000, 4, 16, 40, 95},
        {"many", 1600, 2, 12, 26, 80},       {"short", 30, 1, 6, 20, 90},
        {"single_bytes", 3, 1, 1, 3, 50},    {"long", 5, 100, 128, 30, 95},
        {"too_long", 3, 4, 200, 30, 95},     {"all_bytes", 60, 3, 20, 256, 70},
        {"column_256", 10, 3, 9, 257, 97},   {"many_states", 900, 120, 128, 4, 95},
    };
    std::vector<fast_case> table;
    uint32_t seed = 5000;
    /* A unit that this machine lacks has no cases here; arm64 runs under emulation. */
    for (vector_unit unit : {vector_unit::none, vector_unit::ssse3, vector_unit::avx2, vector_unit::neon}) {
        if (!mix::match::has_vector_unit(unit))
            continue;
        for (casing how : {casing::sensitive, casing::insensitive, casing::mixed}) {
            for (const shape &one : shapes)
                table.push_back({one.name, unit, seed++, one.count, one.shortest, one.longest, one.letters,
                                 how, one.sparse});
        }
    }
    return table;
}
INSTANTIATE_TEST_SUITE_P(sets, fast, testing::ValuesIn(fast_table()), [](const auto &one) {
    return std::string(one.param.name) + "_" + std::to_string(one.param.seed);
});

struct fast_alone : matcher_test {
};

TEST_F(fast_alone, finds_matches_around_every_border_of_sub_blocks)
{
    const pattern_set set = {{"needle", false, 1}, {"q", false, 2}, {"abcdefghijklmnop", false, 3}};
    matcher_pointer made = compiled(set);
    for (size_t length : {size_t{256}, size_t{1460}, size_t{4096}, size_t{4097}, size_t{8000}}) {
        for (size_t at = 0; at + 16 <= length; ++at) {
            std::string what(length, '.');
            what.replace(at, 16, "abcdefghijklmnop");
            const scan_result result = library_scan(made.get(), what, {});
            ASSERT_EQ(result.matches, (std::vector<match>{{3, static_cast<int>(at), 16}}))
                << length << " " << at;
        }
    }
}

/* The width of a row follows from how many bytes occur in patterns; whether it has a column to spare, too. */
struct row_widths : matcher_test, testing::WithParamInterface<std::tuple<size_t, bool>> {
    const size_t letters = std::get<0>(GetParam());
    const bool nocase = std::get<1>(GetParam());

    /* That many bytes of which none is another one in lower case, as far as there are as many. */
    [[nodiscard]] std::string alphabet() const
    {
        std::string upper_first, lower;
        for (int byte = 255; byte >= 0; --byte)
            (byte >= 'a' && byte <= 'z' ? lower : upper_first) += static_cast<char>(byte);
        return (upper_first + lower).substr(0, letters);
    }

    static void add(tqac_matcher *matcher, const std::string &all, bool nocase)
    {
        pattern_set set = {{all.substr(0, 2), nocase, 1}};
        for (size_t at = 0; at < all.size(); at += 5)
            set.push_back({all.substr(at, 5), nocase, at + 2});
        add_all(matcher, set);
    }
};

TEST_P(row_widths, give_the_plain_loops_result)
{
    const std::string all = alphabet();
    matcher_pointer made = new_matcher();
    if (nocase && letters > 230) {
        /* No set that ignores case has so many; a matcher keeps the bytes of the set it had before. */
        add(made.get(), all, false);
        ASSERT_EQ(tqac_compile(made.get()), 0);
        tqac_clear(made.get());
    }
    add(made.get(), all, nocase);
    ASSERT_EQ(tqac_compile(made.get()), 0);
    ASSERT_EQ(made->real_charset, letters + 1);
    ASSERT_EQ(made->state_size, nocase ? 2 : 4);
    random_source random(static_cast<uint32_t>(letters));
    for (size_t length : {size_t{300}, size_t{3500}}) {
        std::string text;
        while (text.size() < length) {
            const size_t at = random.below(static_cast<uint32_t>(all.size()));
            text += random.below(8) ? all.substr(at, 1 + random.below(6))
                                    : std::string(1, static_cast<char>(random.below(256)));
        }
        std::replace(text.begin(), text.end(), '<', '=');
        scan_result from;
        from.state = 1;
        EXPECT_EQ(library_scan(made.get(), text, from), library_scan(made.get(), text, from, true));
    }
}
INSTANTIATE_TEST_SUITE_P(all, row_widths,
                         testing::Combine(testing::Values(1, 2, 3, 4, 7, 8, 15, 16, 31, 32, 63, 64, 127, 128,
                                                          255, 256),
                                          testing::Bool()),
                         [](const auto &one) {
                             return std::to_string(std::get<0>(one.param)) +
                                    (std::get<1>(one.param) ? "_nocase" : "");
                         });

TEST_F(fast_alone, comes_to_an_end_a_few_bytes_behind_the_chains)
{
    random_source random(9);
    const pattern_set set = {{"abab", false, 1}, {"baba", false, 2}, {"aaaa", false, 3}, {"bbbb", false, 4}};
    matcher_pointer made = compiled(set);
    const std::string text = random.text(17600, "ab");
    for (size_t length = 16384; length < text.size(); length += 23) {
        const std::string part = text.substr(0, length);
        ASSERT_EQ(library_scan(made.get(), part, {}), library_scan(made.get(), part, {}, true)) << length;
    }
}

TEST_F(fast_alone, keeps_the_state_through_long_texts_of_unmapped_bytes)
{
    for (const pattern_set &set :
         {pattern_set{{"abcd", false, 1}}, pattern_set{{"a", false, 1}, {"abcd", false, 2}}}) {
        matcher_pointer made = compiled(set);
        const scan_result first =
            library_scan(made.get(), std::string(5000, '.') + "abc" + std::string(9000, '.'), {});
        EXPECT_NE(first.state, 0u);
        const scan_result second = library_scan(made.get(), std::string(9000, '.'), first);
        EXPECT_EQ(second.state, first.state);
        EXPECT_EQ(library_scan(made.get(), "d" + std::string(4000, '.'), second).matches.size(), 1u);
    }
}

TEST_F(fast_alone, private_data_does_not_count_as_the_matchers_memory)
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

TEST_F(fast_alone, searching_allocates_nothing)
{
    random_source random(4);
    matcher_pointer made = compiled({{"abcd", false, 1}, {"bcde", true, 2}});
    const uint32_t before = memory().allocations;
    library_scan(made.get(), random.text(100000, "abcde"), {});
    EXPECT_EQ(memory().allocations, before);
}

struct substring : testing::TestWithParam<vector_unit> {
    void SetUp() override
    {
        if (!mix::match::has_vector_unit(GetParam()))
            GTEST_SKIP() << "this machine lacks the vector unit";
        mix::match::use_vector_unit(GetParam());
    }
    void TearDown() override { mix::match::use_vector_unit(vector_unit::unknown); }
};

TEST_P(substring, is_the_first_occurrence)
{
    random_source random(77);
    for (int round = 0; round < 30000; ++round) {
        const std::string letters = random.below(2) ? "ab" : "abcdefgh\xfe\xff";
        const std::string pattern = random.text(1 + random.below(33), letters);
        std::string text = random.text(1 + random.below(200), letters);
        if (random.below(2))
            text.insert(random.below(static_cast<uint32_t>(text.size())), pattern);
        bm_state state;
        ASSERT_EQ(bm_match_init(&state, pattern.c_str()), 0);
        const std::vector<char> exact(text.begin(), text.end());
        const size_t at = text.find(pattern);
        ASSERT_EQ(bm_match_proc(exact.data(), static_cast<uint16_t>(exact.size()), &state),
                  at == std::string::npos ? -1 : static_cast<int>(at))
            << pattern << " in " << text;
    }
}
INSTANTIATE_TEST_SUITE_P(units, substring,
                         testing::Values(vector_unit::none, vector_unit::ssse3, vector_unit::avx2,
                                         vector_unit::neon),
                         [](const auto &one) {
                             return "unit" + std::to_string(static_cast<int>(one.param));
                         });

} // namespace
