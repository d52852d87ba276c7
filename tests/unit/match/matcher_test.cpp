#include "model.h"

#include <numeric>

using namespace mixtest;

namespace
{

struct matcher : matcher_test {
};

TEST_F(matcher, is_one_zeroed_allocation_with_the_arguments_stored)
{
    tqac_matcher *made = tqac_new(tracked_memory::allocate, tracked_memory::release, 77);
    ASSERT_NE(made, nullptr);
    ASSERT_EQ(memory().events.size(), 1u);
    EXPECT_GE(memory().events[0], static_cast<int64_t>(sizeof(tqac_matcher)));
    EXPECT_EQ(made->alloc, tracked_memory::allocate);
    EXPECT_EQ(made->free, tracked_memory::release);
    EXPECT_EQ(made->context, 77u);
    tqac_matcher expected = {};
    expected.alloc = made->alloc;
    expected.free = made->free;
    expected.context = 77;
    EXPECT_EQ(memcmp(made, &expected, sizeof(expected)), 0);
    tqac_free(made);
}

TEST_F(matcher, is_null_when_it_cant_be_allocated)
{
    memory().failing = 1;
    EXPECT_EQ(tqac_new(tracked_memory::allocate, tracked_memory::release, 0), nullptr);
}

TEST_F(matcher, has_the_record_layout_that_callers_read)
{
    EXPECT_EQ(sizeof(tqac_matcher), 352u);
    EXPECT_EQ(offsetof(tqac_matcher, max_states), 0u);
    EXPECT_EQ(offsetof(tqac_matcher, patterns), 8u);
    EXPECT_EQ(offsetof(tqac_matcher, fail), 16u);
    EXPECT_EQ(offsetof(tqac_matcher, match_lists), 24u);
    EXPECT_EQ(offsetof(tqac_matcher, trans_lists), 32u);
    EXPECT_EQ(offsetof(tqac_matcher, num_trans), 40u);
    EXPECT_EQ(offsetof(tqac_matcher, num_states), 44u);
    EXPECT_EQ(offsetof(tqac_matcher, table), 48u);
    EXPECT_EQ(offsetof(tqac_matcher, nocase), 56u);
    EXPECT_EQ(offsetof(tqac_matcher, charset_shift), 57u);
    EXPECT_EQ(offsetof(tqac_matcher, state_size), 58u);
    EXPECT_EQ(offsetof(tqac_matcher, input_map), 59u);
    EXPECT_EQ(offsetof(tqac_matcher, real_charset), 316u);
    EXPECT_EQ(offsetof(tqac_matcher, charset), 318u);
    EXPECT_EQ(offsetof(tqac_matcher, alloc), 320u);
    EXPECT_EQ(offsetof(tqac_matcher, free), 328u);
    EXPECT_EQ(offsetof(tqac_matcher, context), 336u);
    EXPECT_EQ(offsetof(tqac_matcher, compiled), 344u);
    EXPECT_EQ(offsetof(tqac_matcher, error), 348u);
}

TEST_F(matcher, folds_the_26_lower_case_letters_and_nothing_else)
{
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(xlatcase[byte], byte >= 0x61 && byte <= 0x7A ? byte - 0x20 : byte) << byte;
}

TEST_F(matcher, stores_a_case_sensitive_pattern_as_it_is)
{
    matcher_pointer made = new_matcher();
    ASSERT_EQ(tqac_add_pattern(made.get(), "aBc", 3, 0, 5, 7), 0);
    const tqac_pattern *record = made->patterns;
    EXPECT_EQ(memory().events.back(), 28);
    EXPECT_EQ(record->next, nullptr);
    EXPECT_EQ(record->id, 5u);
    EXPECT_EQ(record->nocase, 0u);
    EXPECT_EQ(record->len, 3);
    EXPECT_EQ(memcmp(record->bytes, "aBc", 4), 0);
    EXPECT_EQ(made->nocase, 0);
}

TEST_F(matcher, stores_a_case_insensitive_pattern_in_upper_case_and_its_flag_as_passed)
{
    matcher_pointer made = new_matcher();
    ASSERT_EQ(tqac_add_pattern(made.get(), "aBc{\xe4", 5, -3, 5, 7), 0);
    EXPECT_EQ(memcmp(made->patterns->bytes, "ABC{\xe4", 6), 0);
    EXPECT_EQ(made->patterns->nocase, 0xFFFFFFFDu);
    EXPECT_EQ(made->nocase, 1);
    ASSERT_EQ(tqac_add_pattern(made.get(), "x", 1, 0, 1, 0), 0);
    EXPECT_EQ(made->nocase, 1) << "never cleared";
}

TEST_F(matcher, keeps_the_id_or_the_data_when_the_id_is_zero)
{
    matcher_pointer made = new_matcher();
    ASSERT_EQ(tqac_add_pattern(made.get(), "a", 1, 0, 0, 7), 0);
    EXPECT_EQ(made->patterns->id, 7u);
    ASSERT_EQ(tqac_add_pattern(made.get(), "a", 1, 0, 5, 7), 0);
    EXPECT_EQ(made->patterns->id, 5u);
    ASSERT_EQ(tqac_add_pattern(made.get(), "a", 1, 0, 0, 0xFEDCBA9876543210), 0);
    EXPECT_EQ(made->patterns->id, 0xFEDCBA9876543210);
}

TEST_F(matcher, lists_patterns_newest_first_duplicates_and_empty_ones_included)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"one", false, 1}, {"one", false, 2}, {"", false, 3}});
    const tqac_pattern *record = made->patterns;
    EXPECT_EQ(record->id, 3u);
    EXPECT_EQ(record->len, 0);
    EXPECT_EQ(record->bytes[0], 0);
    EXPECT_EQ(memory().events.back(), 25);
    EXPECT_EQ(record->next->id, 2u);
    EXPECT_EQ(record->next->next->id, 1u);
    EXPECT_EQ(record->next->next->next, nullptr);
}

TEST_F(matcher, is_unchanged_by_a_pattern_that_cant_be_allocated)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"one", false, 1}});
    const tqac_matcher before = *made;
    memory().failing = memory().allocations + 1;
    EXPECT_EQ(tqac_add_pattern(made.get(), "two", 3, 1, 2, 0), -1);
    EXPECT_EQ(memcmp(&before, made.get(), sizeof(before)), 0);
}

TEST_F(matcher, accepts_a_pattern_after_compilation_without_effect)
{
    matcher_pointer made = compiled({{"one", false, 1}});
    add_all(made.get(), {{"two", false, 2}});
    EXPECT_EQ(library_scan(made.get(), "two one", {}).matches, (std::vector<match>{{1, 4, 3}}));
}

/* The column of byte 255 is another one then; long and short texts agree on it. */
TEST_F(matcher, that_ignores_case_after_compilation_does_so_for_every_length_of_text)
{
    std::vector<pattern> all = {{"\xfe", false, 254}, {"\xff", false, 255}};
    for (int byte = 0; byte < 254; byte += 127) {
        std::string some(127, '\0');
        std::iota(some.begin(), some.end(), static_cast<char>(byte));
        all.push_back({some, false, 1});
    }
    matcher_pointer made = compiled(all);
    ASSERT_EQ(made->real_charset, 257);
    const std::string short_text(20, '\xff'), long_text(2000, '\xff');
    EXPECT_EQ(library_scan(made.get(), long_text, {}).matches.at(0).id, 255u);
    add_all(made.get(), {{"x", true, 2}});
    for (const std::string &text : {short_text, long_text}) {
        const scan_result found = library_scan(made.get(), text, {});
        EXPECT_EQ(found.count, text.size());
        EXPECT_TRUE(found.matches.empty()) << "byte 255 is not what the pattern of byte 254 holds";
    }
}

TEST_F(matcher, copies_a_pattern_record_whole_but_for_its_link)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"older", false, 1}, {std::string("a\0b", 3), true, 9}});
    tqac_pattern *copy = tqac_pattern_copy(made.get(), made->patterns);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(memory().events.back(), 28);
    EXPECT_EQ(copy->next, nullptr);
    EXPECT_NE(made->patterns->next, nullptr);
    EXPECT_EQ(copy->id, 9u);
    EXPECT_EQ(copy->nocase, 1u);
    EXPECT_EQ(copy->len, 3);
    EXPECT_EQ(memcmp(copy->bytes, "A\0B", 4), 0);
    tracked_memory::release(copy);
    memory().failing = memory().allocations + 1;
    EXPECT_EQ(tqac_pattern_copy(made.get(), made->patterns), nullptr);
}

TEST_F(matcher, releases_the_unused_patterns_newest_first_and_empties_the_list)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"1", false, 1}, {"22", false, 2}, {"333", false, 3}});
    memory().events.clear();
    tqac_free_unused_fields(made.get());
    EXPECT_EQ(memory().events, (std::vector<int64_t>{-28, -27, -26}));
    EXPECT_EQ(made->patterns, nullptr);
    tqac_free_unused_fields(made.get());
    EXPECT_EQ(memory().events.size(), 3u);
}

/* A matcher in the middle of a compilation, every field of it occupied. */
void occupy(tqac_matcher *made)
{
    made->max_states = 2;
    made->num_states = 2;
    made->match_lists = static_cast<tqac_pattern **>(made->alloc(160));
    made->trans_lists = static_cast<trans_node **>(made->alloc(161));
    made->fail = static_cast<uint32_t *>(made->alloc(162));
    made->table = made->alloc(163);
    made->trans_lists[0] = made->trans_lists[1] = nullptr;
    ASSERT_EQ(tqac_list_putstate(made, 1, 'x', 1), 0);
    ASSERT_EQ(tqac_list_putstate(made, 0, 'y', 1), 0);
    add_all(made, {{"pattern", false, 1}});
    made->match_lists[0] = tqac_pattern_copy(made, made->patterns);
    made->match_lists[1] = nullptr;
    memory().events.clear();
}

TEST_F(matcher, clears_in_a_fixed_order_and_keeps_counters_flags_map_and_codes)
{
    matcher_pointer made = new_matcher();
    occupy(made.get());
    made->nocase = 1;
    made->input_map[u8'p'] = 3;
    made->charset = 8;
    made->compiled = 1;
    made->error = -4;
    tqac_matcher expected = *made;
    expected.match_lists = nullptr;
    expected.table = nullptr;
    expected.fail = nullptr;
    expected.patterns = nullptr;
    expected.trans_lists = nullptr;
    tqac_clear(made.get());
    EXPECT_EQ(memory().events, (std::vector<int64_t>{-32, -160, -163, -162, -32, -16, -16, -161}));
    EXPECT_EQ(memcmp(made.get(), &expected, sizeof(expected)), 0);
    tqac_clear(made.get());
    EXPECT_EQ(memory().events.size(), 8u) << "all steps are skipped the second time";
}

TEST_F(matcher, clears_lists_up_to_the_bound_of_states_not_their_number)
{
    matcher_pointer made = new_matcher();
    occupy(made.get());
    made->num_states = 0;
    tqac_clear(made.get());
    EXPECT_EQ(memory().events.size(), 8u);
}

std::vector<int64_t> events_at_hook;
int hook_calls;
const tqac_matcher *hook_matcher;
uint32_t hook_compiled;
bool hook_had_table, hook_had_patterns, hook_had_lists;

void record_hook(tqac_matcher *made)
{
    ++hook_calls;
    hook_matcher = made;
    hook_compiled = made->compiled;
    hook_had_table = made->table;
    hook_had_patterns = made->patterns;
    hook_had_lists = made->trans_lists || made->fail;
    events_at_hook = memory().events;
}

TEST_F(matcher, calls_the_compile_hook_once_the_table_stands_and_before_compiled_is_set)
{
    EXPECT_EQ(tqac_compile_cb, nullptr);
    EXPECT_EQ(tqac_free_cb, nullptr);
    tqac_register_callback(record_hook, nullptr);
    EXPECT_EQ(tqac_compile_cb, record_hook);
    EXPECT_EQ(tqac_free_cb, nullptr);
    hook_calls = 0;
    matcher_pointer made = compiled({{"he", false, 1}});
    EXPECT_EQ(hook_calls, 1);
    EXPECT_EQ(hook_matcher, made.get());
    EXPECT_EQ(hook_compiled, 0u);
    EXPECT_TRUE(hook_had_table);
    EXPECT_FALSE(hook_had_patterns);
    EXPECT_FALSE(hook_had_lists);
    EXPECT_EQ(events_at_hook, memory().events) << "nothing is allocated or released after the hook";
    EXPECT_EQ(made->compiled, 1u);
}

TEST_F(matcher, does_not_call_the_compile_hook_on_failure_or_when_compiled_already)
{
    tqac_register_callback(record_hook, nullptr);
    hook_calls = 0;
    matcher_pointer failed = new_matcher();
    memory().failing = 2;
    EXPECT_EQ(tqac_compile(failed.get()), -1);
    EXPECT_EQ(hook_calls, 0);
    matcher_pointer made = compiled({});
    testing::internal::CaptureStdout();
    EXPECT_EQ(tqac_compile(made.get()), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(hook_calls, 1);
}

TEST_F(matcher, calls_the_free_hook_once_before_anything_is_released)
{
    matcher_pointer made = compiled({{"he", false, 1}});
    tqac_register_callback(nullptr, record_hook);
    memory().events.clear();
    hook_calls = 0;
    const tqac_matcher *expected = made.get();
    made.reset();
    EXPECT_EQ(hook_calls, 1);
    EXPECT_EQ(hook_matcher, expected);
    EXPECT_TRUE(hook_had_table);
    EXPECT_TRUE(events_at_hook.empty());
    EXPECT_FALSE(memory().events.empty());
}

TEST_F(matcher, free_returns_what_the_callers_free_returns_for_the_record)
{
    tqac_matcher *made = compiled({{"he", false, 1}}).release();
    memory().free_result = 42;
    EXPECT_EQ(tqac_free(made), 42);
    EXPECT_LE(memory().events.back(), -static_cast<int64_t>(sizeof(tqac_matcher))) << "the record goes last";
}

TEST_F(matcher, can_be_cleared_filled_and_compiled_again_and_then_counts_both)
{
    matcher_pointer made = compiled({{"abc", false, 1}});
    EXPECT_EQ(made->num_trans, model({{"abc", false, 1}}).transitions());
    EXPECT_EQ(made->max_states, 4);
    tqac_clear(made.get());
    EXPECT_EQ(made->compiled, 1u);
    add_all(made.get(), {{"bd", false, 2}});
    EXPECT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(made->num_trans,
              model({{"abc", false, 1}}).transitions() + model({{"bd", false, 2}}).transitions());
    EXPECT_EQ(made->max_states, 4 + 3);
    EXPECT_EQ(made->num_states, 3);
    EXPECT_EQ(library_scan(made.get(), "abcbd", {}).matches, (std::vector<match>{{2, 3, 2}}));
}

TEST_F(matcher, still_maps_the_bytes_of_an_earlier_compilation)
{
    matcher_pointer made = compiled({{"abc", false, 1}});
    tqac_clear(made.get());
    add_all(made.get(), {{"bd", false, 2}});
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(made->input_map[u8'a'], 1);
    EXPECT_EQ(made->input_map[u8'b'], 2);
    EXPECT_EQ(made->input_map[u8'c'], 3);
    EXPECT_EQ(made->input_map[u8'd'], 4);
    EXPECT_EQ(made->real_charset, 5);
    /* 'a' is mapped, so it resets the stored state, which a byte outside the map does not. */
    EXPECT_EQ(library_scan(made.get(), "ba", {}).state, 0u);
    EXPECT_NE(library_scan(made.get(), "bz", {}).state, 0u);
}

TEST_F(matcher, finds_nothing_after_clear_until_it_is_compiled_again)
{
    matcher_pointer made = compiled({{"abc", false, 1}});
    tqac_clear(made.get());
    EXPECT_EQ(library_scan(made.get(), "abc", {}).count, 0u);
    EXPECT_EQ(library_scan(made.get(), "abc", {}, true).count, 0u);
}

} // namespace
