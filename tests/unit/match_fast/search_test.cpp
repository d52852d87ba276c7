/*
 * The fast ways through a text against the plain loop, with every vector unit of this machine. The plain loop
 * is the tag-aware search on text without tags, which itself is held to the model in unit_match.
 */
#include <numeric>

#include "match/fast.h"
#include "unit/match/model.h"

using namespace mixtest;
using mix::match::vector_unit;

namespace
{

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

TEST_F(fast_alone, searching_allocates_nothing)
{
    random_source random(4);
    matcher_pointer made = compiled({{"abcd", false, 1}, {"bcde", true, 2}});
    const uint32_t before = memory().allocations;
    library_scan(made.get(), random.text(100000, "abcde"), {});
    EXPECT_EQ(memory().allocations, before);
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
        pattern_set set = {{all.substr(0, 2), nocase, 1}, {all.substr(0, 1) + all.substr(0, 1), nocase, 2}};
        for (size_t at = 0; at < all.size(); at += 5)
            set.push_back({all.substr(at, 5) + all.substr(at, 5), nocase, at + 3});
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
    /* Whole patterns everywhere, so that each border of sub-blocks lies inside of one, and bytes in no
     * pattern. */
    for (size_t length = 192; length < 400; ++length) {
        std::string text;
        for (size_t at = 0; text.size() < length; at = (at + 5) % all.size() / 5 * 5)
            text += all.substr(at, 5) + all.substr(at, 5) + (random.below(4) ? "" : "\x01~");
        std::replace(text.begin(), text.end(), '<', '=');
        ASSERT_EQ(library_scan(made.get(), text, {}), library_scan(made.get(), text, {}, true)) << length;
    }
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

/*
 * Each way through a text is compiled once for each shape of a table. Sets whose shortest pattern has fewer
 * than three bytes go the chains' way, the others the filter's.
 */
struct shape_case {
    const char *name;
    bool nocase, all_bytes, wide;
    vector_unit unit;
};

struct every_shape : matcher_test, testing::WithParamInterface<shape_case> {
    void SetUp() override { mix::match::use_vector_unit(GetParam().unit); }
    void TearDown() override { mix::match::use_vector_unit(vector_unit::unknown); }

    static matcher_pointer shaped(pattern_set patterns)
    {
        for (pattern &one : patterns)
            one.nocase = GetParam().nocase;
        for (int byte = 0; GetParam().all_bytes && byte < 256; byte += 8) {
            std::string eight(8, '\0');
            std::iota(eight.begin(), eight.end(), static_cast<char>(byte));
            patterns.push_back({eight, false, 1000});
        }
        matcher_pointer made = compiled(patterns);
        if (GetParam().wide)
            widen(made.get());
        return made;
    }

    /* A part of a buffer, and the same in memory of its own. */
    static void compare(const tqac_matcher *matcher, const std::string &buffer, size_t from, size_t length,
                        uint32_t state = 0, uint32_t stop = 0)
    {
        const scan_result plain =
            library_scan(matcher, buffer.substr(from, length), at_state(state), true, stop);
        report seen{{}, stop};
        scan_result ours = at_state(state);
        ours.count = tqac_search_(matcher, buffer.data() + from, static_cast<int>(length), collect_match,
                                  reinterpret_cast<uintptr_t>(&seen), &ours.state);
        ours.matches = seen.matches;
        ASSERT_EQ(ours, plain) << length << " bytes from " << from << " state " << state << " stop " << stop;
    }
    static void compare(const tqac_matcher *matcher, const std::string &text, uint32_t state = 0)
    {
        compare(matcher, text, 0, text.size(), state);
    }

    static std::string repeated(const std::string &piece, size_t length)
    {
        std::string text;
        while (text.size() < length)
            text += piece;
        return text.substr(0, length);
    }
    static scan_result at_state(uint32_t state)
    {
        scan_result from;
        from.state = state;
        return from;
    }
};

/* The text begins the pattern everywhere, so that the filter gives up soon, wherever it stands then. */
TEST_P(every_shape, hands_on_the_row_from_the_filter_to_the_chains)
{
    matcher_pointer made = shaped({{"abababX", false, 1}, {"babaYba", false, 2}});
    const std::string dense = repeated("ab", 700);
    for (size_t at = 0; at < 600; ++at) {
        for (const std::string piece : {"X", "Y", ".X", ".Y", "b.X", "aba.Yba", "......X"}) {
            std::string text = dense;
            text.replace(at, piece.size(), piece);
            ASSERT_NO_FATAL_FAILURE(compare(made.get(), text));
        }
    }
}

/* The filter gives up, the chains go on for a while, the filter is tried again; twice as long each time. */
TEST_P(every_shape, goes_on_after_each_rest_of_the_filter)
{
    matcher_pointer made = shaped({{"abababX", false, 1}, {"babaYab", false, 2}});
    std::string text = repeated("ab", 120000);
    for (size_t at = 1000; at < text.size(); at += 9973)
        text[at] = at % 2 == 0 ? 'X' : 'Y';
    const auto matches = static_cast<uint32_t>(library_scan(made.get(), text, {}).matches.size());
    ASSERT_GT(matches, 10u);
    for (uint32_t stop = 0; stop <= matches + 1; ++stop)
        ASSERT_NO_FATAL_FAILURE(compare(made.get(), text, 0, text.size(), 0, stop));
}

/* The first run of the filter ends after the longest pattern's length, in the middle of other patterns. */
TEST_P(every_shape, goes_on_where_patterns_overlap)
{
    const std::string longest = repeated("abcde", 40) + "Z";
    matcher_pointer made = shaped({{longest, false, 1}, {"cdeabcdeX", false, 2}, {"eab.Q", false, 3}});
    for (const std::string piece : {"X", "Z", ".Q", "..", ".X"}) {
        for (size_t at = 60; at < 160; ++at) {
            std::string text = std::string(300, '.') + repeated("abcde", 150) + std::string(300, '.');
            text.replace(300 + at, piece.size(), piece);
            ASSERT_NO_FATAL_FAILURE(compare(made.get(), text));
        }
    }
}

/* The filter looks at four bytes from each place, so not at the last three places. */
TEST_P(every_shape, reports_once_what_ends_with_the_text)
{
    matcher_pointer made = shaped({{"axyz", false, 1}, {"xyz", false, 2}});
    for (size_t length = 64; length < 400; length += length < 140 ? 1 : 31) {
        for (const std::string last : {"xyz", "axyz", "xyzxyz", "axyzxyz", "axyzaxyz", "axy", "xyz.", "xy"})
            ASSERT_NO_FATAL_FAILURE(compare(made.get(), std::string(length, '.') + last));
    }
}

TEST_P(every_shape, never_looks_at_what_stands_around_the_text)
{
    const std::string x(100, 'x');
    for (const pattern_set &set :
         {pattern_set{{x, false, 1}, {"xxxy", false, 2}}, pattern_set{{x, false, 1}, {"y", false, 2}},
          pattern_set{{"xxxxx", false, 1}, {"xxy", false, 2}}, pattern_set{{"xyz", false, 1}},
          pattern_set{{"xx", false, 1}, {"xyxy", false, 2}}}) {
        matcher_pointer made = shaped(set);
        for (const std::string &around : {x + x, repeated("xxxy", 200), repeated("yxz", 200)}) {
            for (size_t length = 1; length < 400; length += length < 70 ? 1 : 11) {
                for (const std::string &inside : {repeated(".", length), repeated("xy", length)}) {
                    std::string buffer = around + inside + around;
                    ASSERT_NO_FATAL_FAILURE(compare(made.get(), buffer, around.size(), length));
                    buffer.replace(around.size() + length / 2, length - length / 2, length - length / 2, 'x');
                    ASSERT_NO_FATAL_FAILURE(compare(made.get(), buffer, around.size(), length));
                    buffer.replace(around.size(), length / 2 + 1, length / 2 + 1, 'x');
                    ASSERT_NO_FATAL_FAILURE(compare(made.get(), buffer, around.size(), length));
                }
            }
        }
    }
}

TEST_P(every_shape, stops_at_any_match_in_any_state)
{
    for (const pattern_set &set : {pattern_set{{"abcd", false, 1}, {"cdab", false, 2}, {"bcd", false, 3}},
                                   pattern_set{{"ab", false, 1}, {"abcd", false, 2}, {"dcab", false, 3}}}) {
        matcher_pointer made = shaped(set);
        std::string text = repeated("cd", 40) + std::string(300, '.') + repeated("abcd", 40) + "...." +
                           std::string(500, 'x') + "abcdcdababcdcdab";
        for (uint32_t state = 0; state < 8; ++state) {
            const size_t matches = library_scan(made.get(), text, at_state(state)).matches.size();
            for (uint32_t stop = 1; stop <= matches + 1; ++stop)
                ASSERT_NO_FATAL_FAILURE(compare(made.get(), text, 0, text.size(), state, stop));
        }
    }
}

TEST_P(every_shape, reports_an_empty_pattern_after_mapped_bytes_only)
{
    matcher_pointer made = shaped({{"", false, 1}, {"abcd", false, 2}});
    for (const std::string &text : {std::string(700, '.'), repeated("..abc..d", 700), repeated("d", 700)})
        ASSERT_NO_FATAL_FAILURE(compare(made.get(), text));
}

/* From each state: a text that goes on there, or that ends so; then one of nothing but unmapped bytes. */
TEST_P(every_shape, carries_every_state_on)
{
    const std::string long_one = "abcdefghijklmnop";
    for (const pattern_set &set : {pattern_set{{long_one, false, 1}, {"hijX", false, 2}},
                                   pattern_set{{long_one, false, 1}, {"i", false, 2}}}) {
        matcher_pointer made = shaped(set);
        for (size_t length : {70, 199, 400, 3333}) {
            for (uint32_t state = 0; state < 22; ++state) {
                for (size_t cut = 0; cut < 16; ++cut) {
                    const std::string filling(length, '.');
                    ASSERT_NO_FATAL_FAILURE(compare(made.get(), long_one.substr(cut) + filling, state));
                    ASSERT_NO_FATAL_FAILURE(compare(made.get(), filling + long_one.substr(0, cut), state));
                    ASSERT_NO_FATAL_FAILURE(
                        compare(made.get(), filling + long_one.substr(0, cut) + "..", state));
                    ASSERT_NO_FATAL_FAILURE(
                        compare(made.get(), "." + long_one.substr(cut) + filling + "a.", state));
                }
            }
        }
    }
}

TEST_P(every_shape, gives_the_plain_loops_result_for_random_texts)
{
    random_source random(31);
    for (int round = 0; round < 60; ++round) {
        const std::string letters = random.letters(2 + random.below(12));
        const size_t shortest = 1 + random.below(4);
        pattern_set set =
            random_patterns(random, 1 + random.below(30), 1 + random.below(20), letters, casing::sensitive);
        for (pattern &one : set)
            one.bytes += random.text(shortest, letters);
        matcher_pointer made = shaped(set);
        for (int text = 0; text < 4; ++text) {
            std::string what = random_text(random, 64 + random.below(1500), letters, set);
            if (random.below(2))
                what += random.text(random.below(600), ".,:") + what.substr(0, 64 + random.below(50));
            std::replace(what.begin(), what.end(), '<', '=');
            ASSERT_NO_FATAL_FAILURE(
                compare(made.get(), what, random.below(static_cast<uint32_t>(made->num_states))));
        }
    }
}

std::vector<shape_case> shape_table()
{
    const shape_case shapes[] = {{"exact", false, false, false, {}},
                                 {"column_256", false, true, false, {}},
                                 {"narrow", true, false, false, {}},
                                 {"wide", true, false, true, {}}};
    std::vector<shape_case> table;
    for (vector_unit unit : {vector_unit::none, vector_unit::ssse3, vector_unit::avx2, vector_unit::neon}) {
        for (shape_case one : shapes) {
            one.unit = unit;
            if (mix::match::has_vector_unit(unit))
                table.push_back(one);
        }
    }
    return table;
}
INSTANTIATE_TEST_SUITE_P(all, every_shape, testing::ValuesIn(shape_table()), [](const auto &one) {
    return one.param.name + ("_unit" + std::to_string(static_cast<int>(one.param.unit)));
});

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
    for (uint32_t length = 0; length < 400; length += 1 + random.below(4))
        ASSERT_NO_FATAL_FAILURE(
            compare(made.get(), text(length, set), random.below(2) * random.below(states + 1), 0));
    for (int round = 0; round < 3; ++round)
        ASSERT_NO_FATAL_FAILURE(compare(made.get(), text(random.below(60000), set), random.below(states), 0));
}

TEST_P(fast, stops_where_the_plain_loop_stops)
{
    const pattern_set set = patterns();
    matcher_pointer made = compiled(set);
    for (int round = 0; round < 6; ++round) {
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
    for (int piece = 0; piece < 80; ++piece) {
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
            for (const shape &one : shapes) {
                /* No unit marks rows where there are so many states. */
                if (unit != vector_unit::none && one.name == std::string("many_states"))
                    continue;
                table.push_back({one.name, unit, seed++, one.count, one.shortest, one.longest, one.letters,
                                 how, one.sparse});
            }
        }
    }
    return table;
}
INSTANTIATE_TEST_SUITE_P(sets, fast, testing::ValuesIn(fast_table()), [](const auto &one) {
    return std::string(one.param.name) + "_" + std::to_string(one.param.seed);
});

} // namespace
