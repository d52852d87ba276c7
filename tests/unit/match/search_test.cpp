#include <climits>
#include <thread>

#include "model.h"
#include "support/scripted_platform.h"

using namespace mixtest;

namespace
{

struct search : matcher_test {
};

const pattern_set example = {{"he", false, 1}, {"she", false, 2}, {"his", false, 3}, {"hers", false, 4}};
const std::string alphabet = "abcdefghijklmnopqrstuvwxyz";

scan_result at_state(uint32_t state)
{
    scan_result from;
    from.state = state;
    return from;
}

TEST_F(search, reports_overlapping_matches_in_the_order_of_the_states_list)
{
    matcher_pointer made = compiled(example);
    const scan_result result = library_scan(made.get(), "ushers", {});
    EXPECT_EQ(result.matches, (std::vector<match>{{1, 2, 2}, {2, 1, 3}, {4, 2, 4}}));
    EXPECT_EQ(result.count, 3u);
    EXPECT_EQ(result.state, 4u) << "the state of hers";
}

TEST_F(search, passes_the_callers_word_through)
{
    matcher_pointer made = compiled(example);
    uint32_t state = 0;
    static uint64_t seen;
    tqac_search_(
        made.get(), "he", 2,
        [](uint64_t, int, uint64_t arg, int) {
            seen = arg;
            return 0;
        },
        0xFEDCBA9876543210, &state);
    EXPECT_EQ(seen, 0xFEDCBA9876543210);
}

TEST_F(search, stops_at_the_first_match_when_the_callback_says_so)
{
    matcher_pointer made = compiled(example);
    const scan_result result = library_scan(made.get(), "ushers", {}, false, 1);
    EXPECT_EQ(result.matches, (std::vector<match>{{1, 2, 2}}));
    EXPECT_EQ(result.count, 1u);
    EXPECT_EQ(result.state, 9u) << "the state of she";
    EXPECT_EQ(library_scan(made.get(), "rs", result).matches, (std::vector<match>{{4, -2, 4}}));
}

TEST_F(search, takes_a_negative_result_of_the_callback_for_a_stop_too)
{
    matcher_pointer made = compiled(example);
    uint32_t state = 0;
    EXPECT_EQ(tqac_search_(
                  made.get(), "hehe", 4, [](uint64_t, int, uint64_t, int) { return -1; }, 0, &state),
              1u);
}

TEST_F(search, finds_a_match_that_began_in_an_earlier_buffer)
{
    matcher_pointer made = compiled(example);
    const scan_result first = library_scan(made.get(), "us", {});
    EXPECT_EQ(first.count, 0u);
    EXPECT_EQ(library_scan(made.get(), "hers", first).matches,
              (std::vector<match>{{1, 0, 2}, {2, -1, 3}, {4, 0, 4}}));
}

TEST_F(search, counts_but_does_not_report_a_case_sensitive_pattern_in_other_case)
{
    matcher_pointer made = compiled({{"ABC", true, 1}, {"abc", false, 2}});
    const scan_result result = library_scan(made.get(), "ABC", {});
    EXPECT_EQ(result.matches, (std::vector<match>{{1, 0, 3}}));
    EXPECT_EQ(result.count, 2u);
    EXPECT_EQ(library_scan(made.get(), "abc", {}).matches.size(), 2u);
}

TEST_F(search, compares_only_the_part_of_a_match_that_lies_in_this_buffer)
{
    matcher_pointer made = compiled({{"x", true, 1}, {"abc", false, 2}});
    const scan_result first = library_scan(made.get(), "AB", {});
    EXPECT_EQ(library_scan(made.get(), "c", first).matches, (std::vector<match>{{2, -2, 3}}));
    EXPECT_TRUE(library_scan(made.get(), "C", first).matches.empty());
    EXPECT_EQ(library_scan(made.get(), "C", first).count, 1u);
}

TEST_F(search, never_compares_in_a_case_sensitive_matcher)
{
    matcher_pointer made = compiled({{"abc", false, 1}});
    EXPECT_EQ(library_scan(made.get(), "ABC", {}).count, 0u);
}

TEST_F(search, goes_to_the_root_on_an_unmapped_byte_but_keeps_the_stored_state)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(library_scan(made.get(), "sh.e", {}).count, 0u) << "within a buffer the byte parts the match";
    const scan_result first = library_scan(made.get(), "sh..", {});
    EXPECT_EQ(first.state, 8u);
    EXPECT_EQ(library_scan(made.get(), "e", first).matches, (std::vector<match>{{1, -1, 2}, {2, -2, 3}}));
    EXPECT_EQ(library_scan(made.get(), "....", at_state(8)).state, 8u);
    EXPECT_EQ(library_scan(made.get(), "", at_state(8)).state, 8u);
}

TEST_F(search, starts_an_unknown_state_at_the_root)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(library_scan(made.get(), "rs", at_state(2)).count, 1u);
    EXPECT_EQ(library_scan(made.get(), "rs", at_state(10)).count, 0u);
    EXPECT_EQ(library_scan(made.get(), "", at_state(10)).state, 0u);
    EXPECT_EQ(library_scan(made.get(), "", at_state(9)).state, 9u);
    EXPECT_EQ(library_scan(made.get(), "..", at_state(0xFFFFFFFF), true).state, 0u);
}

TEST_F(search, reports_an_empty_pattern_at_the_root_after_mapped_bytes_only)
{
    matcher_pointer made = compiled({{"", false, 1}, {"ab", false, 2}});
    const scan_result result = library_scan(made.get(), "b..ab", {});
    EXPECT_EQ(result.matches, (std::vector<match>{{1, 1, 0}, {1, 5, 0}, {2, 3, 2}}));
    EXPECT_EQ(library_scan(made.get(), "...", {}).count, 0u);
}

TEST_F(search, of_a_matcher_that_is_not_compiled_touches_nothing)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), example);
    scan_result from = at_state(77);
    from.depth = 3;
    from.quote = 9;
    for (bool markup : {false, true}) {
        const scan_result result = library_scan(made.get(), "ushers<", from, markup);
        EXPECT_EQ(result.count, 0u);
        EXPECT_EQ(result.state, 77u);
        EXPECT_EQ(result.depth, 3u);
        EXPECT_EQ(result.quote, 9u);
    }
}

TEST_F(search, ignores_a_length_below_one)
{
    matcher_pointer made = compiled(example);
    uint32_t state = 5;
    report seen;
    EXPECT_EQ(tqac_search_(made.get(), "hers", -1, collect_match, reinterpret_cast<uintptr_t>(&seen), &state),
              0u);
    EXPECT_EQ(state, 5u);
    uint32_t depth = 3;
    uint8_t quote = '"';
    for (int length : {0, -1, INT_MIN})
        EXPECT_EQ(tqac_search2_(made.get(), "\">hers", length, collect_match,
                                reinterpret_cast<uintptr_t>(&seen), &state, &depth, &quote),
                  0u);
    EXPECT_EQ(state, 5u);
    EXPECT_EQ(depth, 3u);
    EXPECT_EQ(quote, '"');
}

/* --- markup --- */

struct markup_case {
    const char *name;
    std::string text;
    std::vector<int> starts; /* of matches of "xy" */
    uint32_t depth;
    uint8_t quote;
};
struct markup : search, testing::WithParamInterface<markup_case> {
};

TEST_P(markup, hides_what_ends_inside_a_tag)
{
    matcher_pointer made = compiled({{"xy", false, 1}});
    const scan_result result = library_scan(made.get(), GetParam().text, {}, true);
    std::vector<int> starts;
    for (const match &one : result.matches)
        starts.push_back(one.start);
    EXPECT_EQ(starts, GetParam().starts);
    EXPECT_EQ(result.count, starts.size());
    EXPECT_EQ(result.depth, GetParam().depth);
    EXPECT_EQ(result.quote, GetParam().quote);
}

INSTANTIATE_TEST_SUITE_P(texts, markup,
                         testing::Values(markup_case{"outside", "xy", {0}, 0, 0},
                                         markup_case{"inside", "<xy>", {}, 0, 0},
                                         markup_case{"after", "<a>xy", {3}, 0, 0},
                                         markup_case{"open", "<a xy", {}, 1, 0},
                                         markup_case{"quoted_end", "<a b=\">xy\">xy", {11}, 0, 0},
                                         markup_case{"single_quoted_end", "<a b='>xy'>xy", {11}, 0, 0},
                                         markup_case{"other_quote_in_quotes", "<a b='\">'>xy", {10}, 0, 0},
                                         markup_case{"open_quote", "<a b=\"xy>xy", {}, 1, '"'},
                                         markup_case{"quote_outside", "'xy'<>\"xy", {1, 7}, 0, 0},
                                         markup_case{"nested", "<a<b>xy>xy", {8}, 0, 0},
                                         markup_case{"nested_open", "<a<b<", {}, 3, 0},
                                         markup_case{"quoted_begin", "<a '<'>xy", {7}, 0, 0},
                                         markup_case{"end_outside", ">xy>", {1}, 0, 0}),
                         [](const auto &one) { return one.param.name; });

TEST_F(search, reports_a_match_that_ends_in_the_closing_mark_but_not_one_that_ends_in_the_opening_mark)
{
    matcher_pointer made = compiled({{"a>", false, 1}, {"b<", false, 2}});
    EXPECT_EQ(library_scan(made.get(), "b<a>", {}, true).matches, (std::vector<match>{{1, 2, 2}}));
    EXPECT_EQ(library_scan(made.get(), "<<a>", {}, true).matches, (std::vector<match>{}))
        << "only the outermost mark closes";
}

TEST_F(search, finds_a_match_that_a_tag_does_not_part)
{
    matcher_pointer made = compiled({{"x<b>y", false, 1}});
    EXPECT_EQ(library_scan(made.get(), "x<b>y", {}, true).matches, (std::vector<match>{{1, 0, 5}}));
}

TEST_F(search, keeps_depth_and_quote_where_the_callback_stops)
{
    matcher_pointer made = compiled({{"a>", false, 1}});
    scan_result from;
    from.depth = 1;
    from.quote = '"';
    const scan_result result = library_scan(made.get(), "\"a><", from, true, 1);
    EXPECT_EQ(result.count, 1u);
    EXPECT_EQ(result.depth, 0u);
    EXPECT_EQ(result.quote, 0u);
}

TEST_F(search, clears_a_left_over_quote_when_a_tag_opens)
{
    matcher_pointer made = compiled({{"xy", false, 1}});
    scan_result from;
    from.quote = '\'';
    EXPECT_EQ(library_scan(made.get(), "xy<a>xy", from, true).matches,
              (std::vector<match>{{1, 0, 2}, {1, 5, 2}}));
}

/* --- against the model --- */

/* The shapes of a table, which are searched by loops of their own. */
struct table_shape {
    const char *name;
    casing how;
    bool all_bytes, wide;
};
struct table_shapes : search, testing::WithParamInterface<table_shape> {
    random_source random{42};
    pattern_set patterns;
    matcher_pointer made;

    void make(const std::string &letters)
    {
        patterns = random_patterns(random, 12, 4, letters, GetParam().how);
        for (int byte = 0; GetParam().all_bytes && byte < 256; byte += 8) {
            std::string eight;
            for (int i = 0; i < 8; ++i)
                eight += static_cast<char>(byte + i);
            patterns.push_back({eight, false, 1000});
        }
        made = compiled(patterns);
        if (GetParam().wide)
            widen(made.get());
    }
};

TEST_P(table_shapes, of_texts_full_of_markup_report_what_the_model_says)
{
    for (int round = 0; round < 20; ++round) {
        make(round % 2 ? "ab<>'\"" : "aB>.");
        const model expected(patterns);
        for (int text = 0; text < 10; ++text) {
            std::string what = random.text(100, "aAbB.<<>>'\"\xff");
            scan_result from = at_state(random.below(static_cast<uint32_t>(expected.states())));
            from.depth = random.below(3);
            from.quote = static_cast<uint8_t>("'\"\0\0"[random.below(4)]);
            for (uint32_t stop = 0; stop < 4; ++stop) {
                ASSERT_EQ(library_scan(made.get(), what, from, true, stop),
                          expected.scan(what, from, true, stop));
                ASSERT_EQ(library_scan(made.get(), what, from, false, stop),
                          expected.scan(what, from, false, stop));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(all, table_shapes,
                         testing::Values(table_shape{"exact", casing::sensitive, false, false},
                                         table_shape{"column_256", casing::sensitive, true, false},
                                         table_shape{"narrow", casing::insensitive, false, false},
                                         table_shape{"narrow_mixed", casing::mixed, false, false},
                                         table_shape{"wide", casing::insensitive, false, true},
                                         table_shape{"wide_mixed", casing::mixed, false, true}),
                         [](const auto &one) { return one.param.name; });

struct random_search {
    uint32_t seed;
    size_t count, longest, letters;
    casing how;
};
struct random_searches : search, testing::WithParamInterface<random_search> {
    random_source random{GetParam().seed};
    const std::string letters = random.letters(GetParam().letters) + "<>'\"";
    const pattern_set patterns =
        random_patterns(random, GetParam().count, GetParam().longest, letters, GetParam().how);
    const model expected{patterns};
    matcher_pointer made = compiled(patterns);
    const std::string text = random_text(random, 1500, letters, patterns);
};

TEST_P(random_searches, of_a_whole_text_report_what_the_model_says)
{
    for (bool tags : {false, true})
        EXPECT_EQ(library_scan(made.get(), text, {}, tags), expected.scan(text, {}, tags));
}

TEST_P(random_searches, of_a_stream_cut_at_random_report_what_the_model_says)
{
    for (bool tags : {false, true}) {
        scan_result ours, theirs;
        for (size_t at = 0; at < text.size();) {
            const std::string piece = text.substr(at, random.below(40));
            ours = library_scan(made.get(), piece, ours, tags);
            theirs = expected.scan(piece, theirs, tags);
            ASSERT_EQ(ours, theirs) << "piece at " << at;
            at += piece.size();
        }
    }
}

TEST_P(random_searches, stopped_at_each_match_leave_what_the_model_says)
{
    const std::string start = text.substr(0, 200);
    for (bool tags : {false, true}) {
        const size_t matches = expected.scan(start, {}, tags).matches.size();
        for (uint32_t stop = 1; stop <= std::min<size_t>(matches, 60); ++stop)
            ASSERT_EQ(library_scan(made.get(), start, {}, tags, stop), expected.scan(start, {}, tags, stop));
    }
}

TEST_P(random_searches, from_any_state_report_what_the_model_says)
{
    const std::string start = text.substr(0, 30);
    for (uint32_t state = 0; state < expected.states() + 2; state += 1 + random.below(5))
        ASSERT_EQ(library_scan(made.get(), start, at_state(state)), expected.scan(start, at_state(state)));
}

std::vector<random_search> random_search_table()
{
    std::vector<random_search> table;
    uint32_t seed = 1000;
    for (casing how : {casing::sensitive, casing::insensitive, casing::mixed}) {
        for (size_t letters : {1, 2, 6, 30, 252}) {
            for (size_t count : {1, 4, 30})
                table.push_back({seed++, count, 6, letters, how});
        }
    }
    return table;
}
INSTANTIATE_TEST_SUITE_P(seeds, random_searches, testing::ValuesIn(random_search_table()),
                         [](const auto &one) { return "seed" + std::to_string(one.param.seed); });

TEST_F(search, works_with_32_bit_cells_of_a_matcher_that_ignores_case)
{
    random_source random(5);
    pattern_set patterns = {{std::string(66000, 'q'), true, 1}, {"aBa", false, 2}, {"ab", true, 3}};
    matcher_pointer made = compiled(patterns);
    ASSERT_EQ(made->state_size, 4);
    patterns.erase(patterns.begin());
    const model expected(patterns);
    const std::string text = random_text(random, 2000, "abAB", patterns);
    for (bool tags : {false, true}) {
        const scan_result ours = library_scan(made.get(), text, {}, tags);
        const scan_result theirs = expected.scan(text, {}, tags);
        EXPECT_EQ(ours.matches, theirs.matches);
        EXPECT_EQ(ours.count, theirs.count);
    }
}

TEST_F(search, by_several_threads_of_one_matcher_gives_each_its_own_result)
{
    random_source random(7);
    const pattern_set patterns = random_patterns(random, 50, 6, alphabet, casing::mixed);
    const model expected(patterns);
    matcher_pointer made = compiled(patterns);
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        const std::string text = random_text(random, 3000, alphabet, patterns);
        threads.emplace_back([&made, text, result = expected.scan(text, {})] {
            for (int round = 0; round < 20; ++round)
                EXPECT_EQ(library_scan(made.get(), text, {}), result);
        });
    }
    for (std::thread &one : threads)
        one.join();
}

/* --- tqac_find --- */

struct find : search {
    void SetUp() override
    {
        search::SetUp();
        printed.clear();
    }
};

TEST_F(find, prints_the_first_state_with_matches_and_its_patterns)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(tqac_find(made.get(), collect_print, "ushers", 6), 2);
    EXPECT_EQ(printed, "Found state 9\nPattern:he,n:2,nocase:0Pattern:she,n:3,nocase:0");
}

TEST_F(find, prints_the_case_flag_and_the_stored_bytes)
{
    matcher_pointer made = compiled({{"Ab", true, 1}});
    EXPECT_EQ(tqac_find(made.get(), collect_print, "xaB", 3), 1);
    EXPECT_EQ(printed, "Found state 2\nPattern:AB,n:2,nocase:1");
}

TEST_F(find, prints_a_pattern_of_another_case_and_the_flag_as_it_was_given)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"aBc", false, 1}});
    ASSERT_EQ(tqac_add_pattern(made.get(), "aBc", 3, -3, 2, 0), 0);
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(tqac_find(made.get(), collect_print, "xAbC", 4), 2);
    EXPECT_EQ(printed, "Found state 3\nPattern:aBc,n:3,nocase:0Pattern:ABC,n:3,nocase:-3");
}

TEST_F(find, prints_nothing_when_there_is_nothing)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(tqac_find(made.get(), collect_print, "h.e", 3), 0) << "an unmapped byte leads to the root";
    EXPECT_EQ(tqac_find(made.get(), collect_print, "he", 0), 0);
    EXPECT_EQ(tqac_find(made.get(), collect_print, "he", -1), 0);
    EXPECT_EQ(printed, "");
}

TEST_F(find, returns_the_same_without_a_print_callback)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(tqac_find(made.get(), nullptr, "ushers", 6), 2);
}

TEST_F(find, does_not_look_at_the_error_code)
{
    matcher_pointer made = compiled(example);
    made->error = -3;
    made->compiled = 0;
    EXPECT_EQ(tqac_find(made.get(), collect_print, "he", 2), 1);
}

TEST_F(find, needs_the_table_and_the_match_lists)
{
    matcher_pointer made = compiled(example);
    tqac_pattern **const lists = std::exchange(made->match_lists, nullptr);
    EXPECT_EQ(tqac_find(made.get(), collect_print, "he", 2), 0);
    made->match_lists = lists;
    EXPECT_EQ(tqac_find(made.get(), nullptr, "he", 2), 1);
}

TEST_F(find, stops_for_an_empty_pattern_after_a_mapped_byte_only)
{
    matcher_pointer made = compiled({{"", false, 1}, {"ab", false, 2}});
    EXPECT_EQ(tqac_find(made.get(), collect_print, "..", 2), 0);
    EXPECT_EQ(tqac_find(made.get(), collect_print, ".b", 2), 1);
    EXPECT_EQ(printed, "Found state 0\nPattern:,n:0,nocase:0");
}

TEST_F(find, uses_column_256_and_works_before_and_after_compilation)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{all, false, 1}});
    EXPECT_EQ(tqac_find(made.get(), collect_print, all.data(), 256), 0);
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(tqac_find(made.get(), nullptr, all.data(), 256), 1);
    tqac_clear(made.get());
    EXPECT_EQ(tqac_find(made.get(), collect_print, all.data(), 256), 0);
}

} // namespace
