#include <ctime>

#include "model.h"
#include "support/scripted_platform.h"

using namespace mixtest;

namespace
{

struct compile : matcher_test {
};

const pattern_set example = {{"he", false, 1}, {"she", false, 2}, {"his", false, 3}, {"hers", false, 4}};

pattern_set ignoring_case(pattern_set patterns)
{
    for (pattern &one : patterns)
        one.nocase = true;
    return patterns;
}

uint32_t cell(const tqac_matcher *matcher, size_t state, size_t column)
{
    const size_t at = state * matcher->charset + column;
    return matcher->state_size == 2 ? static_cast<const uint16_t *>(matcher->table)[at]
                                    : static_cast<const uint32_t *>(matcher->table)[at];
}

std::deque<uint64_t> ids_of(const tqac_pattern *list)
{
    std::deque<uint64_t> ids;
    for (; list; list = list->next)
        ids.push_back(list->id);
    return ids;
}

TEST_F(compile, builds_the_example_case_sensitive)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(made->num_states, 10);
    EXPECT_EQ(made->real_charset, 6);
    EXPECT_EQ(made->charset, 8);
    EXPECT_EQ(made->charset_shift, 3);
    EXPECT_EQ(made->state_size, 4);
    EXPECT_EQ(made->max_states, 13);
    EXPECT_EQ(made->compiled, 1u);
    EXPECT_EQ(made->error, 0);
    EXPECT_EQ(made->patterns, nullptr);
    EXPECT_EQ(made->fail, nullptr);
    EXPECT_EQ(made->trans_lists, nullptr);
    /* hers 1 2 3 4, his 5 6, she 7 8 9: newest pattern first. */
    EXPECT_EQ(ids_of(made->match_lists[9]), (std::deque<uint64_t>{1, 2})) << "he stands before she";
    EXPECT_EQ(ids_of(made->match_lists[2]), (std::deque<uint64_t>{1}));
    EXPECT_EQ(made->input_map[u8'e'], 1);
    EXPECT_EQ(made->input_map[u8'h'], 2);
    EXPECT_EQ(made->input_map[u8'i'], 3);
    EXPECT_EQ(made->input_map[u8'r'], 4);
    EXPECT_EQ(made->input_map[u8's'], 5);
    EXPECT_EQ(cell(made.get(), 0, 2), 1u);
    EXPECT_EQ(cell(made.get(), 1, 1), 2u);
    EXPECT_EQ(cell(made.get(), 2, 0), 1u);
    EXPECT_EQ(cell(made.get(), 1, 0), 0u);
    EXPECT_EQ(cell(made.get(), 9, 4), 3u) << "she, then r: the state of her";
}

TEST_F(compile, builds_the_example_case_insensitive_with_16_bit_cells)
{
    matcher_pointer made = compiled(ignoring_case(example));
    EXPECT_EQ(made->num_states, 10);
    EXPECT_EQ(made->state_size, 2);
    for (char c = 'a'; c <= 'z'; ++c)
        EXPECT_EQ(made->input_map[static_cast<uint8_t>(c)], made->input_map[static_cast<uint8_t>(c - 32)]);
    EXPECT_EQ(made->input_map[u8'S'], 5);
}

TEST_F(compile, ignores_the_case_of_every_pattern_once_one_asks_for_it)
{
    matcher_pointer made = compiled({{"abc", false, 1}, {"X", true, 2}});
    EXPECT_EQ(made->input_map[u8'a'], 1);
    EXPECT_EQ(made->input_map[u8'A'], 1);
    EXPECT_EQ(memcmp(made->match_lists[4]->bytes, "abc", 3), 0) << "the copy is as it was added";
}

TEST_F(compile, of_no_patterns_makes_one_state_and_a_table_of_one_cell)
{
    matcher_pointer made = new_matcher();
    memory().events.clear();
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(made->num_states, 1);
    EXPECT_EQ(made->charset, 1);
    EXPECT_EQ(made->charset_shift, 0);
    EXPECT_EQ(made->real_charset, 1);
    EXPECT_EQ(made->max_states, 1);
    EXPECT_EQ(memory().events, (std::vector<int64_t>{8, 8, 4, -4, 4, -8}));
    EXPECT_EQ(cell(made.get(), 0, 0), 0u);
}

TEST_F(compile, keeps_an_empty_pattern_at_the_root_and_hands_it_on_to_deeper_states)
{
    matcher_pointer made = compiled({{"", false, 1}, {"ab", false, 2}});
    EXPECT_EQ(ids_of(made->match_lists[0]), (std::deque<uint64_t>{1}));
    EXPECT_EQ(made->match_lists[1], nullptr) << "a state of one byte inherits none";
    EXPECT_EQ(ids_of(made->match_lists[2]), (std::deque<uint64_t>{1, 2}));
    EXPECT_EQ(cell(made.get(), 0, 0), 1u);
    EXPECT_EQ(cell(made.get(), 1, 0), 0u);
}

TEST_F(compile, twice_says_so_and_changes_nothing)
{
    matcher_pointer made = compiled(example);
    const tqac_matcher before = *made;
    memory().events.clear();
    testing::internal::CaptureStdout();
    EXPECT_EQ(tqac_compile(made.get()), 0);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "This AC struct has been compiled already!\n");
    EXPECT_TRUE(memory().events.empty());
    EXPECT_EQ(memcmp(&before, made.get(), sizeof(before)), 0);
}

TEST_F(compile, of_the_example_makes_these_allocations_in_this_order)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"ab", false, 1}, {"b", false, 2}});
    memory().events.clear();
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(memory().events, (std::vector<int64_t>{
                                   32,  32,                /* two arrays of four pointers */
                                   16,  26,  16,  16,  27, /* b; a, ab */
                                   16,                     /* failure array: four states */
                                   16,  16,                /* queue: a, b */
                                   -16, 16,  26,           /* a leaves, ab waits and inherits b */
                                   -16, -16,               /* b and ab leave */
                                   16,  16,                /* queue: a, b */
                                   -16, 16,  16,           /* a leaves: by a to a, by b its child waits */
                                   -16, 16,  16,           /* b leaves: by a, by b */
                                   -16, 16,  16,           /* ab leaves */
                                   -16,                    /* failure array */
                                   64,                     /* table: four rows of four cells of four bytes */
                                   -16, -16, -16, -16, -16, -16, -16, -16, /* transition nodes */
                                   -32,                                    /* transition lists */
                                   -26, -27,                               /* patterns, newest first */
                               }));
}

struct widths_case {
    const char *name;
    size_t bytes;
    uint16_t real_charset, charset;
    uint8_t shift;
};
struct widths : compile, testing::WithParamInterface<widths_case> {
};

TEST_P(widths, follow_from_the_number_of_different_bytes)
{
    std::string all;
    for (size_t byte = 0; byte < GetParam().bytes; ++byte)
        all += static_cast<char>(byte);
    matcher_pointer made = compiled({{all, false, 1}});
    EXPECT_EQ(made->real_charset, GetParam().real_charset);
    EXPECT_EQ(made->charset, GetParam().charset);
    EXPECT_EQ(made->charset_shift, GetParam().shift);
    EXPECT_EQ(made->num_states, static_cast<int32_t>(all.size() + 1));
    EXPECT_EQ(library_scan(made.get(), all + all, {}).matches.size(), all.empty() ? 0u : 2u);
}

INSTANTIATE_TEST_SUITE_P(rows, widths,
                         testing::Values(widths_case{"none", 0, 1, 1, 0}, widths_case{"one", 1, 2, 2, 1},
                                         widths_case{"two", 2, 3, 4, 2}, widths_case{"three", 3, 4, 4, 2},
                                         widths_case{"four", 4, 5, 8, 3},
                                         widths_case{"half", 127, 128, 128, 7},
                                         widths_case{"more_than_half", 128, 129, 256, 8},
                                         widths_case{"nearly_all", 254, 255, 256, 8},
                                         widths_case{"all_but_one", 255, 256, 256, 8},
                                         widths_case{"all", 256, 257, 512, 9}),
                         [](const auto &one) { return one.param.name; });

TEST_F(compile, sends_byte_255_to_column_256_where_all_bytes_occur)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    matcher_pointer made = compiled({{all, false, 1}});
    EXPECT_EQ(made->input_map[253], 254);
    EXPECT_EQ(made->input_map[254], 255);
    EXPECT_EQ(made->input_map[255], 255);
    EXPECT_EQ(cell(made.get(), 254, 255), 255u);
    EXPECT_EQ(cell(made.get(), 255, 256), 256u);
    EXPECT_EQ(cell(made.get(), 255, 255), 0u);
    EXPECT_EQ(library_scan(made.get(), all, {}).matches, (std::vector<match>{{1, 0, 256}}));
    EXPECT_EQ(library_scan(made.get(), all.substr(0, 254) + "\xff\xff", {}).count, 0u);
    EXPECT_EQ(library_scan(made.get(), all.substr(0, 254) + "\xfe\xfe", {}).count, 0u);
}

/* So many only with bytes of an earlier compilation. Its two columns of byte 255 are the tables' and
 * tqac_find's; a search takes the map entry, which is that of byte 254. */
TEST_F(compile, fills_column_256_of_a_matcher_that_ignores_case_too)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    matcher_pointer made = compiled({{all, false, 1}});
    tqac_clear(made.get());
    add_all(made.get(), {{"\xfe", true, 254}, {"\xff", true, 255}, {"a", true, 97}}); /* a 1, ff 2, fe 3 */
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(made->real_charset, 257);
    EXPECT_EQ(made->charset, 512);
    EXPECT_EQ(made->charset_shift, 9);
    EXPECT_EQ(made->state_size, 2);
    EXPECT_EQ(made->input_map[254], 255);
    EXPECT_EQ(made->input_map[255], 255);
    EXPECT_EQ(made->input_map[u8'a'], made->input_map[u8'A']);
    EXPECT_EQ(made->input_map[u8'{'], '{' + 1) << "the columns of the small letters are there, unused";
    EXPECT_EQ(cell(made.get(), 0, 255), 3u);
    EXPECT_EQ(cell(made.get(), 0, 256), 2u);
    for (bool markup : {false, true})
        EXPECT_EQ(library_scan(made.get(),
                               "\xff"
                               "A",
                               {}, markup)
                      .matches,
                  (std::vector<match>{{254, 0, 1}, {97, 1, 1}}));
    const std::string long_text(300, '\xff');
    EXPECT_EQ(library_scan(made.get(), long_text, {}), library_scan(made.get(), long_text, {}, true));
    printed.clear();
    EXPECT_EQ(tqac_find(made.get(), collect_print, "\xff", 1), 1);
    EXPECT_EQ(printed, "Found state 2\nPattern:\xff,n:1,nocase:1");
}

struct other_case {
    const char *name;
    pattern first, second;
    uint16_t real_charset;
    std::string mapped; /* the bytes of column 1, then those of column 2 ..., each column ended by a blank */
};
struct recompiled : compile, testing::WithParamInterface<other_case> {
};

TEST_P(recompiled, numbers_what_is_left_in_the_map_and_then_folds_it)
{
    matcher_pointer made = compiled({GetParam().first});
    tqac_clear(made.get());
    add_all(made.get(), {GetParam().second});
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(made->real_charset, GetParam().real_charset);
    std::string mapped;
    for (int column = 1; column < made->real_charset; ++column) {
        for (int byte = 0; byte < 256; ++byte)
            if (made->input_map[byte] == column)
                mapped += static_cast<char>(byte);
        mapped += ' ';
    }
    EXPECT_EQ(mapped, GetParam().mapped);
}

INSTANTIATE_TEST_SUITE_P(
    in_the_other_case, recompiled,
    testing::Values(other_case{"small_letter_before", {"a", false, 1}, {"b", true, 2}, 3, "Bb  "},
                    other_case{"same_letter_before", {"b", false, 1}, {"b", true, 2}, 3, "Bb  "},
                    other_case{"capital_before", {"A", false, 1}, {"b", true, 2}, 3, "Aa Bb "},
                    other_case{"ignored_case_before", {"a", true, 1}, {"b", true, 2}, 4, "Aa Bb  "},
                    other_case{"ignored_case_before_exact", {"a", true, 1}, {"b", false, 2}, 4, "Aa Bb  "}),
    [](const auto &one) { return one.param.name; });

TEST_F(compile, keeps_255_different_bytes_with_255_among_them_inside_the_row)
{
    std::string most;
    for (int byte = 1; byte < 256; ++byte)
        most += static_cast<char>(byte);
    matcher_pointer made = compiled({{most, false, 1}, {"\xff\xff", false, 2}});
    EXPECT_EQ(made->charset, 256);
    EXPECT_EQ(made->input_map[255], 255);
    EXPECT_EQ(cell(made.get(), 0, 255), 1u);
    EXPECT_EQ(cell(made.get(), 1, 0), 0u) << "the match flag of the next row is not written over";
    EXPECT_EQ(library_scan(made.get(), most + "\xff", {}).matches,
              (std::vector<match>{{1, 0, 255}, {2, 254, 2}}));
}

TEST_F(compile, uses_16_bit_cells_up_to_65535_states_and_32_bit_cells_beyond)
{
    /* A chain of states for each of two long patterns, and the root. */
    const auto state_size = [](size_t states) {
        const std::string one = "a" + std::string((states - 1) / 2 - 1, 'x');
        const std::string two = "b" + std::string(states - 1 - one.size() - 1, 'x');
        matcher_pointer made = compiled({{one, true, 1}, {two, true, 2}});
        EXPECT_EQ(made->num_states, static_cast<int32_t>(states));
        EXPECT_EQ(library_scan(made.get(), one + two, {}).matches.size(), 2u);
        return made->state_size;
    };
    EXPECT_EQ(state_size(65535), 2);
    EXPECT_EQ(state_size(65536), 4);
}

/* Everything that can be seen of a compiled matcher, against the model. */
void expect_as_modelled(const pattern_set &patterns)
{
    const model expected(patterns);
    matcher_pointer made = new_matcher();
    add_all(made.get(), patterns);
    memory().events.clear();
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(memory().events, expected.compile_events());
    ASSERT_EQ(made->num_states, static_cast<int32_t>(expected.states()));
    EXPECT_EQ(made->num_trans, expected.transitions());
    EXPECT_EQ(made->real_charset, expected.real_charset());
    EXPECT_EQ(made->charset, expected.charset());
    const std::set<uint8_t> alphabet = expected.alphabet();
    for (size_t state = 0; state < expected.states(); ++state) {
        std::deque<uint64_t> ids;
        for (size_t index : expected.list(state))
            ids.push_back(patterns[index].id);
        ASSERT_EQ(ids_of(made->match_lists[state]), ids) << "state " << state;
        ASSERT_EQ(cell(made.get(), state, 0), ids.empty() ? 0u : 1u);
        size_t column = 0;
        for (uint8_t byte : alphabet)
            ASSERT_EQ(cell(made.get(), state, ++column), expected.next(state, static_cast<char>(byte)));
        while (++column < made->charset)
            ASSERT_EQ(cell(made.get(), state, column), 0u);
    }
}

struct random_set {
    uint32_t seed;
    size_t count, longest, letters;
    casing how;
};
struct random_sets : compile, testing::WithParamInterface<random_set> {
};

TEST_P(random_sets, compile_to_what_the_model_says_with_the_same_allocations)
{
    random_source random(GetParam().seed);
    const std::string letters = random.letters(GetParam().letters);
    expect_as_modelled(
        random_patterns(random, GetParam().count, GetParam().longest, letters, GetParam().how));
}

std::vector<random_set> random_set_table()
{
    std::vector<random_set> table;
    uint32_t seed = 1;
    for (casing how : {casing::sensitive, casing::insensitive, casing::mixed}) {
        for (size_t letters : {1, 2, 3, 6, 40, 255, 256}) {
            for (size_t count : {1, 3, 20, 60})
                table.push_back({seed++, count, letters > 100 ? size_t{12} : size_t{7}, letters, how});
        }
    }
    return table;
}
INSTANTIATE_TEST_SUITE_P(seeds, random_sets, testing::ValuesIn(random_set_table()),
                         [](const auto &one) { return "seed" + std::to_string(one.param.seed); });

/* Which step the n-th allocation of a compilation belongs to, from the shape of the set "ab", "b" above. */
struct failing_case {
    uint32_t first, last;
    int code;
};
struct failing : compile, testing::WithParamInterface<failing_case> {
};

TEST_P(failing, stores_the_code_of_the_step_and_clears_the_matcher)
{
    for (uint32_t nth = GetParam().first; nth <= GetParam().last; ++nth) {
        matcher_pointer made = new_matcher();
        add_all(made.get(), {{"ab", false, 1}, {"b", false, 2}});
        const size_t before = memory().out.size();
        memory().failing = memory().allocations + nth;
        EXPECT_EQ(tqac_compile(made.get()), -1) << nth;
        EXPECT_EQ(made->error, GetParam().code) << nth;
        EXPECT_EQ(made->compiled, 0u);
        EXPECT_EQ(memory().out.size(), before - 2) << "only the record is left";
        EXPECT_EQ(made->patterns, nullptr);
        EXPECT_EQ(made->match_lists, nullptr);
        EXPECT_EQ(made->trans_lists, nullptr);
        EXPECT_EQ(made->fail, nullptr);
        EXPECT_EQ(made->table, nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(steps, failing,
                         testing::Values(failing_case{1, 1, -1}, failing_case{2, 2, -2},
                                         failing_case{3, 7, -3}, failing_case{8, 8, -4},
                                         failing_case{9, 12, -5}, failing_case{13, 20, -6},
                                         failing_case{21, 21, -7}),
                         [](const auto &one) { return "code" + std::to_string(-one.param.code); });

TEST_F(compile, leaks_nothing_whichever_allocation_of_a_random_set_fails)
{
    random_source random(99);
    const pattern_set patterns = random_patterns(random, 12, 5, "abAB", casing::mixed);
    for (uint32_t nth = 1;; ++nth) {
        matcher_pointer made = new_matcher();
        add_all(made.get(), patterns);
        memory().failing = memory().allocations + nth;
        if (tqac_compile(made.get()) == 0) {
            EXPECT_GT(nth, 50u);
            break;
        }
        EXPECT_EQ(memory().out.size(), 1u) << nth;
    }
}

TEST_F(compile, after_a_failure_succeeds_but_the_error_stays_and_nothing_is_found)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"ab", false, 1}});
    memory().failing = memory().allocations + 8;
    ASSERT_EQ(tqac_compile(made.get()), -1);
    const int32_t error = made->error;
    EXPECT_LT(error, 0);
    add_all(made.get(), {{"ab", false, 1}});
    EXPECT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(made->error, error);
    EXPECT_EQ(made->compiled, 1u);
    const scan_result from{{}, 0, 1234, 3, '"'};
    for (bool markup : {false, true})
        EXPECT_EQ(library_scan(made.get(), "\"<ab", from, markup), from) << "untouched";
}

TEST_F(compile, has_the_code_of_a_missing_table_where_the_match_lists_are_gone)
{
    static tqac_matcher *victim;
    static tqac_pattern **lists;
    const auto release = [](void *block) {
        if (victim != nullptr && block == victim->fail)
            lists = std::exchange(victim->match_lists, nullptr);
        return tracked_memory::release(block);
    };
    victim = tqac_new(tracked_memory::allocate, release, 0);
    add_all(victim, example);
    EXPECT_EQ(tqac_compile(victim), -1);
    EXPECT_EQ(victim->error, -7);
    victim->match_lists = lists;
    tqac_free(std::exchange(victim, nullptr));
}

/* A transition that the memory function of the caller spoils when the trie stands. */
struct spoilt_case {
    const char *name;
    char of;            /* the byte whose transition from the root is spoilt; 0: that of state 1 */
    uint32_t next;      /* what is put there */
    uint32_t after_sh;  /* where the automaton then goes from state 1 (of "s") on 'h' */
    uint32_t after_s_s; /* and on 's' */
};
struct spoilt : compile, testing::WithParamInterface<spoilt_case> {
};

TEST_P(spoilt, transitions_are_as_none)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"he", false, 1}, {"she", false, 2}}); /* she 1 2 3, he 4 5 */
    memory().on_allocation = [&](int64_t size) {
        if (size != 6 * 4)
            return; /* not the failure states */
        const uint32_t key = GetParam().of != 0 ? static_cast<uint8_t>(GetParam().of) : 'h';
        trans_node *node = made->trans_lists[GetParam().of != 0 ? 0 : 1];
        while (node->key != key)
            node = node->link;
        node->next = GetParam().next;
    };
    ASSERT_EQ(tqac_compile(made.get()), 0);
    EXPECT_EQ(cell(made.get(), 1, made->input_map[u8'h']), GetParam().after_sh);
    EXPECT_EQ(cell(made.get(), 1, made->input_map[u8's']), GetParam().after_s_s);
}
INSTANTIATE_TEST_SUITE_P(all, spoilt,
                         testing::Values(spoilt_case{"to_nowhere", 'h', 0xFFFFFFFF, 2, 1},
                                         spoilt_case{"to_the_root", 's', 0, 2, 0},
                                         spoilt_case{"of_a_child_to_nowhere", 0, 0xFFFFFFFF, 4, 1}),
                         [](const auto &one) { return one.param.name; });

TEST_F(compile, putstate_overwrites_a_transition_or_makes_one_at_the_head)
{
    matcher_pointer made = new_matcher();
    EXPECT_EQ(tqac_list_putstate(made.get(), 0, 'a', 1), -1) << "no lists to put it in";
    made->max_states = 2;
    made->trans_lists = static_cast<trans_node **>(made->alloc(16));
    memset(made->trans_lists, 0, 16);
    EXPECT_EQ(tqac_list_putstate(made.get(), 1, 'a', 5), 0);
    EXPECT_EQ(memory().events.back(), 16);
    EXPECT_EQ(tqac_list_putstate(made.get(), 1, 255, 6), 0);
    EXPECT_EQ(made->num_trans, 2);
    EXPECT_EQ(tqac_list_putstate(made.get(), 1, 'a', 7), 0);
    EXPECT_EQ(made->num_trans, 2);
    EXPECT_EQ(made->trans_lists[0], nullptr);
    const trans_node *head = made->trans_lists[1];
    EXPECT_EQ(head->key, 255u);
    EXPECT_EQ(head->next, 6u);
    EXPECT_EQ(head->link->key, 'a');
    EXPECT_EQ(head->link->next, 7u);
    EXPECT_EQ(head->link->link, nullptr);
    memory().failing = memory().allocations + 1;
    EXPECT_EQ(tqac_list_putstate(made.get(), 1, 'b', 8), -1);
    EXPECT_EQ(made->num_trans, 2);
    EXPECT_EQ(made->trans_lists[1], head);
}

/* Processor time of a compilation for each of its transitions. */
double time_for_each_transition(uint32_t words)
{
    random_source random(words);
    tqac_matcher *made = tqac_new([](int64_t size) { return malloc(static_cast<size_t>(size)); },
                                  [](void *pointer) {
                                      free(pointer);
                                      return 0;
                                  },
                                  0);
    for (uint32_t i = 0; i < words; ++i) {
        const std::string word = random.text(4 + random.below(13), "abcdefghijkl");
        EXPECT_EQ(tqac_add_pattern(made, word.data(), static_cast<int>(word.size()), 0, i + 1, 0), 0);
    }
    const clock_t start = clock();
    EXPECT_EQ(tqac_compile(made), 0);
    const double each = static_cast<double>(clock() - start) / made->num_trans;
    tqac_free(made);
    return each;
}

/* Walking the queue at each insertion would make 16 times the words cost some 16 times as much each. */
TEST_F(compile, takes_time_linear_in_the_transitions)
{
    EXPECT_LT(time_for_each_transition(32000), time_for_each_transition(2000) * 6);
}

} // namespace
