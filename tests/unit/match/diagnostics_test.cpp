#include "model.h"
#include "support/scripted_platform.h"

using namespace mixtest;

namespace
{

template <class Call>
std::string standard_output(Call call)
{
    testing::internal::CaptureStdout();
    call();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

struct diagnostics : matcher_test {
    void SetUp() override
    {
        matcher_test::SetUp();
        printed.clear();
    }
};

const pattern_set example = {{"he", false, 1}, {"she", false, 2}, {"his", false, 3}, {"hers", false, 4}};
const pattern_set small = {{"aB", true, 1}};

TEST_F(diagnostics, info_prints_the_summary_to_standard_output)
{
    matcher_pointer made = compiled(example);
    ASSERT_EQ(made->num_trans, 26);
    int result = -1;
    /* 352 + 8 x 10 x 4, entries he (3 times), she, his, hers: 3 x 27 + 2 x 28 + 29. */
    EXPECT_EQ(standard_output([&] { result = tqac_print_info(made.get()); }),
              "---Aho-Corasick Multi-pattern Matcher------------------\n"
              "Pattern Charset  : 7 Chars\n"
              "Sizeof State     : 4 bytes\n"
              "Num States       : 10\n"
              "Num Transitions  : 26\n"
              "State Density    : 32.5%\n"
              "Memory           : 0.79Kbytes\n"
              "--------------------------------------------------------\n");
    int last = -1;
    standard_output([&] { last = puts("--------------------------------------------------------"); });
    EXPECT_EQ(result, last) << "the result of the last puts";
}

std::string map_lines(const tqac_matcher *matcher)
{
    std::string lines;
    char text[20];
    for (int byte = 0; byte < 256; ++byte) {
        snprintf(text, sizeof(text), "%02x->%02x  ", byte, matcher->input_map[byte]);
        lines += text;
        if (byte % 4 == 3)
            lines += "\n";
    }
    return lines;
}

const char small_summary[] = "---Aho-Corasick Multi-pattern Matcher------------------\n"
                             "Pattern Charset  : 4 Chars\n"
                             "Charset shift    : 2\n"
                             "Real charset     : 2 Chars\n"
                             "Sizeof State     : 2 bytes\n"
                             "nocase           : YES\n"
                             "Num States       : 3\n"
                             "Num Transitions  : 4\n"
                             "State Density    : 33.3%\n"
                             "Memory           : 0.39Kbytes\n"
                             "Input map:\n";
const char rule[] = "--------------------------------------------------------\n";

TEST_F(diagnostics, dump_prints_the_summary_and_the_input_map)
{
    matcher_pointer made = compiled(small);
    const int result = tqac_dump(made.get(), 0, collect_print);
    EXPECT_EQ(printed, small_summary + map_lines(made.get()) + rule);
    EXPECT_EQ(result, static_cast<int>(strlen(rule))) << "the result of the last print";
    EXPECT_NE(printed.find("40->00  41->01  42->02  43->00  \n"), std::string::npos);
    EXPECT_NE(printed.find("60->00  61->01  62->02  63->00  \n"), std::string::npos);
}

TEST_F(diagnostics, dump_says_no_for_a_case_sensitive_matcher_and_its_own_cell_width)
{
    matcher_pointer made = compiled({{"aB", false, 1}});
    tqac_dump(made.get(), -1, collect_print);
    EXPECT_NE(printed.find("Sizeof State     : 4 bytes\nnocase           : NO\n"), std::string::npos);
    EXPECT_NE(printed.find("Memory           : 0.42Kbytes\n"), std::string::npos);
}

TEST_F(diagnostics, dump_at_level_1_adds_the_states_with_matches)
{
    matcher_pointer made = compiled(small);
    EXPECT_EQ(tqac_dump(made.get(), 1, collect_print), 3);
    EXPECT_EQ(printed, small_summary + map_lines(made.get()) + rule +
                           "Print AC - 3 active states\n"
                           "state   2: AB,n:2\n\n");
}

TEST_F(diagnostics, dump_at_level_2_adds_every_state_and_its_transitions)
{
    matcher_pointer made = compiled(small);
    EXPECT_EQ(tqac_dump(made.get(), 2, collect_print), 3);
    EXPECT_EQ(printed, small_summary + map_lines(made.get()) + rule +
                           "Print AC - 3 active states\n"
                           "state   0:   a->1    \t\n"
                           "state   1:   a->1    \t  b->2    \t\n"
                           "state   2:   a->1    \tAB,n:2\n\n");
}

TEST_F(diagnostics, without_a_print_callback_return_the_same)
{
    matcher_pointer made = compiled(small);
    EXPECT_EQ(tqac_dump(made.get(), 2, nullptr), 3);
    EXPECT_EQ(tqac_dump(made.get(), 0, nullptr), 0);
    EXPECT_EQ(tqac_print_dfa(made.get(), nullptr, 1), 3);
}

TEST_F(diagnostics, dfa_of_the_example_lists_inherited_patterns_first)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(tqac_print_dfa(made.get(), collect_print, 0), 10);
    EXPECT_EQ(printed, "Print AC - 10 active states\n"
                       "state   2: he,n:2\n\n"
                       "state   4: hers,n:4\n\n"
                       "state   6: his,n:3\n\n"
                       "state   9: he,n:2\nshe,n:3\n\n");
}

TEST_F(diagnostics, dfa_prints_bytes_that_are_not_printable_as_signed_numbers)
{
    matcher_pointer made = compiled({{"\x01\x80\xff~", false, 1}});
    tqac_print_dfa(made.get(), collect_print, 1);
    EXPECT_NE(printed.find("state   0:   1->1    \t\n"), std::string::npos);
    EXPECT_NE(printed.find("state   1:   1->1    \t-128->2    \t\n"), std::string::npos);
    EXPECT_NE(printed.find("state   2:   1->1    \t -1->3    \t\n"), std::string::npos);
    EXPECT_NE(printed.find("state   3:   1->1    \t  ~->4    \t\n"), std::string::npos);
}

TEST_F(diagnostics, dfa_shows_byte_255_for_both_columns_that_share_the_map_entry)
{
    std::string all;
    for (int byte = 0; byte < 256; ++byte)
        all += static_cast<char>(byte);
    matcher_pointer made = compiled({{all, false, 1}});
    tqac_print_dfa(made.get(), collect_print, 1);
    EXPECT_NE(printed.find("state 254:   0->1    \t -1->255  \t\n"), std::string::npos);
    EXPECT_NE(printed.find("state 255:   0->1    \t -1->256  \t\n"), std::string::npos);
}

TEST_F(diagnostics, dfa_of_an_unused_matcher_has_no_states)
{
    matcher_pointer made = new_matcher();
    EXPECT_EQ(tqac_print_dfa(made.get(), collect_print, 1), 0);
    EXPECT_EQ(printed, "Print AC - 0 active states\n");
}

TEST_F(diagnostics, survive_a_cleared_matcher)
{
    matcher_pointer made = compiled(small);
    tqac_clear(made.get());
    EXPECT_EQ(tqac_dump(made.get(), 2, collect_print), 3);
    EXPECT_NE(printed.find("state   0: \nstate   1: \nstate   2: \n"), std::string::npos);
}

/* A record whose figures are all given: 4 x 4-byte cells a state. */
tqac_matcher figures(int32_t states, int32_t transitions, uint16_t charset)
{
    tqac_matcher made = {};
    made.num_states = states;
    made.num_trans = transitions;
    made.charset = charset;
    made.state_size = 4;
    return made;
}

TEST_F(diagnostics, density_is_transitions_in_a_hundred_cells)
{
    const tqac_matcher made = figures(10, 24, 8);
    EXPECT_NE(standard_output([&] { tqac_print_info(&made); }).find("State Density    : 30.0%\n"),
              std::string::npos);
    tqac_dump(&made, 0, collect_print);
    EXPECT_NE(printed.find("State Density    : 30.0%\n"), std::string::npos);
}

TEST_F(diagnostics, density_without_cells_is_0)
{
    matcher_pointer made = new_matcher();
    tqac_dump(made.get(), 0, collect_print);
    EXPECT_NE(printed.find("State Density    : 0.0%\n"), std::string::npos);
}

/* A matcher of one state whose only match entry brings the figure to a total. */
std::string memory_line(int64_t total, bool info)
{
    tqac_matcher made = figures(1, 0, 1);
    tqac_pattern entry = {};
    entry.len = static_cast<int32_t>(total - 352 - 4 - 25);
    tqac_pattern *list = &entry;
    made.match_lists = &list;
    printed.clear();
    if (info)
        printed = standard_output([&] { tqac_print_info(&made); });
    else
        tqac_dump(&made, 0, collect_print);
    const size_t from = printed.find("Memory ");
    return printed.substr(from, printed.find('\n', from) - from);
}

TEST_F(diagnostics, memory_is_printed_in_kilobytes_up_to_1048575_bytes_and_in_megabytes_beyond)
{
    for (bool info : {true, false}) {
        EXPECT_EQ(memory_line(1048575, info), "Memory           : 1024.00Kbytes");
        EXPECT_EQ(memory_line(1048576, info), "Memory           : 1.00Mbytes");
        EXPECT_EQ(memory_line(512 * 1024, info), "Memory           : 512.00Kbytes");
        EXPECT_EQ(memory_line(16 * 1048576 + 524288, info), "Memory           : 16.50Mbytes");
        /* 100.00500012 to the last bit; the figure is one of single precision. */
        EXPECT_EQ(memory_line(104862843, info), "Memory           : 100.00Mbytes");
    }
}

/* The short summary always speaks of 32-bit cells, in its memory figure too. */
TEST_F(diagnostics, info_takes_cells_of_two_bytes_for_four)
{
    tqac_matcher made = figures(10, 24, 8);
    made.state_size = 2;
    const std::string info = standard_output([&] { tqac_print_info(&made); });
    made.state_size = 4;
    EXPECT_EQ(info, standard_output([&] { tqac_print_info(&made); }));
    EXPECT_NE(info.find("Sizeof State     : 4 bytes\n"), std::string::npos);
}

TEST_F(diagnostics, trans_table_is_silent_unless_a_matcher_is_being_compiled)
{
    matcher_pointer made = compiled(example);
    EXPECT_EQ(standard_output([&] { EXPECT_EQ(tqac_print_trans_table(made.get()), 0); }), "");
}

TEST_F(diagnostics, trans_table_prints_the_lists_while_they_exist)
{
    matcher_pointer made = new_matcher();
    add_all(made.get(), {{"ab", false, 1}, {"\x02\xff", false, 2}});
    std::string lists;
    /* The failure array is the first allocation of 4 bytes a state; the trie is complete then. */
    memory().on_allocation = [&](int64_t size) {
        if (size == 20)
            lists = standard_output([&] { EXPECT_EQ(tqac_print_trans_table(made.get()), 0); });
    };
    ASSERT_EQ(tqac_compile(made.get()), 0);
    memory().on_allocation = nullptr;
    EXPECT_EQ(lists, "Print Transition Table- 5 active states\n"
                     "state   0:   a->3    \t  2->1    \t\n"
                     "state   1: 255->2    \t\n"
                     "state   2: \x02\xff \n"
                     "state   3:   b->4    \t\n"
                     "state   4: ab \n");
}

} // namespace
