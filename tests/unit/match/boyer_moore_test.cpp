#include <gtest/gtest.h>
#include <libmix/bm.h>

#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace
{

bm_state state_of(const std::string &pattern)
{
    bm_state state;
    memset(&state, 0xA5, sizeof(state));
    EXPECT_EQ(bm_match_init(&state, pattern.c_str()), 0);
    return state;
}

/* In memory of its own size, so that a read outside is seen by a sanitizer. */
int find(const std::string &pattern, const std::string &text)
{
    const bm_state state = state_of(pattern);
    const std::vector<char> exact(text.begin(), text.end());
    return bm_match_proc(exact.data(), static_cast<uint16_t>(exact.size()), &state);
}

TEST(bm_state_record, has_the_layout_that_callers_allocate)
{
    EXPECT_EQ(sizeof(bm_state), 614u);
    EXPECT_EQ(offsetof(bm_state, pattern), 0u);
    EXPECT_EQ(offsetof(bm_state, length), 34u);
    EXPECT_EQ(offsetof(bm_state, bad_char), 36u);
    EXPECT_EQ(offsetof(bm_state, good_suffix), 548u);
}

TEST(bm_match_init, stores_pattern_length_and_bad_character_distances)
{
    const bm_state state = state_of("abcab");
    EXPECT_STREQ(state.pattern, "abcab");
    EXPECT_EQ(state.length, 5);
    for (int byte = 0; byte < 256; ++byte)
        EXPECT_EQ(state.bad_char[byte], byte == 'a' ? 1 : byte == 'b' ? 0 : byte == 'c' ? 2 : 5) << byte;
}

TEST(bm_match_init, indexes_bytes_above_127_unsigned)
{
    const bm_state state = state_of("\xff\x80z");
    EXPECT_EQ(state.bad_char[0xff], 2);
    EXPECT_EQ(state.bad_char[0x80], 1);
}

struct suffix_case {
    std::string pattern;
    std::vector<uint16_t> shifts;
};
struct good_suffix : testing::TestWithParam<suffix_case> {
};

TEST_P(good_suffix, shifts_are_those_of_the_strong_rule)
{
    const bm_state state = state_of(GetParam().pattern);
    EXPECT_EQ(std::vector<uint16_t>(state.good_suffix, state.good_suffix + GetParam().shifts.size()),
              GetParam().shifts);
    EXPECT_EQ(state.good_suffix[GetParam().shifts.size()], 0xA5A5) << "entries beyond the pattern stay";
}

INSTANTIATE_TEST_SUITE_P(patterns, good_suffix,
                         testing::Values(suffix_case{"abcab", {1, 5, 3, 3, 3}},
                                         suffix_case{"aaaa", {1, 3, 2, 1}}, suffix_case{"abab", {1, 4, 2, 2}},
                                         suffix_case{"a", {1}}, suffix_case{"ab", {1, 2}},
                                         suffix_case{"xabyab", {1, 6, 3, 6, 6, 6}}, suffix_case{"", {1}}),
                         [](const auto &one) {
                             return one.param.pattern.empty() ? "empty" : one.param.pattern;
                         });

/* The shift by its meaning: the smallest that puts equal bytes under the suffix and
 * a different one before. */
uint16_t naive_shift(const std::string &pattern, int k)
{
    const int length = static_cast<int>(pattern.size());
    for (int shift = 1; shift < length; ++shift) {
        bool fits = true;
        for (int i = length - k; i < length; ++i)
            fits = fits && (i - shift < 0 ||
                            pattern[static_cast<size_t>(i - shift)] == pattern[static_cast<size_t>(i)]);
        const int before = length - k - 1 - shift;
        if (fits && (before < 0 ||
                     pattern[static_cast<size_t>(before)] != pattern[static_cast<size_t>(length - k - 1)]))
            return static_cast<uint16_t>(shift);
    }
    return static_cast<uint16_t>(length);
}

TEST(bm_match_init, gives_random_patterns_the_shifts_of_the_strong_rule)
{
    std::mt19937 random(3);
    for (int round = 0; round < 2000; ++round) {
        std::string pattern;
        for (size_t length = 1 + random() % 33; pattern.size() < length;)
            pattern += static_cast<char>('a' + random() % (1 + random() % 3));
        const bm_state state = state_of(pattern);
        for (int k = 1; k < static_cast<int>(pattern.size()); ++k)
            ASSERT_EQ(state.good_suffix[k], naive_shift(pattern, k)) << pattern << " " << k;
    }
}

TEST(bm_match_init, accepts_33_bytes_and_refuses_34_untouched)
{
    bm_state state;
    memset(&state, 0xA5, sizeof(state));
    bm_state before = state;
    EXPECT_EQ(bm_match_init(&state, std::string(34, 'x').c_str()), -1);
    EXPECT_EQ(bm_match_init(&state, nullptr), -1);
    EXPECT_EQ(memcmp(&before, &state, sizeof(state)), 0);
    EXPECT_EQ(bm_match_init(nullptr, "x"), -1);
    EXPECT_EQ(bm_match_init(&state, std::string(33, 'x').c_str()), 0);
    EXPECT_EQ(state.length, 33);
    EXPECT_EQ(state.pattern[33], 0);
}

TEST(bm_substring, is_the_suffix_test)
{
    EXPECT_EQ(bm_substring("abcab", 4, 1, 1), 0) << "the same byte stands before both";
    EXPECT_EQ(bm_substring("xbcab", 4, 1, 1), 1);
    EXPECT_EQ(bm_substring("abcab", 3, 0, 2), 1);
    EXPECT_EQ(bm_substring("abcab", 2, -1, 3), 1) << "runs off the start";
    EXPECT_EQ(bm_substring("abcab", 2, 1, 3), 0);
    EXPECT_EQ(bm_substring("aaaa", 3, 2, 1), 0);
    EXPECT_EQ(bm_substring("aaaa", 0, 1, 1), 1) << "nothing stands before the first";
}

struct proc_case {
    std::string pattern, text;
    int offset;
};
struct bm_match_proc_of : testing::TestWithParam<proc_case> {
};

TEST_P(bm_match_proc_of, gives_the_offset_of_the_first_occurrence)
{
    EXPECT_EQ(find(GetParam().pattern, GetParam().text), GetParam().offset);
}

INSTANTIATE_TEST_SUITE_P(
    texts, bm_match_proc_of,
    testing::Values(proc_case{"abc", "xxabcxx", 2}, proc_case{"abc", "ab", -1}, proc_case{"abc", "abd", -1},
                    proc_case{"abc", "abc", 0}, proc_case{"abc", "xxxxabc", 4}, proc_case{"a", "a", 0},
                    proc_case{"a", "bbba", 3}, proc_case{"a", "bbb", -1}, proc_case{"", "abc", -1},
                    proc_case{"aab", "aaaaab", 3}, proc_case{"abcabc", "abcababcabc", 5},
                    proc_case{"\xff\xfe", "\xfe\xff\xfe", 1}, proc_case{"abc", "abcabc", 0}));

TEST(bm_match_proc, is_minus_one_for_missing_arguments)
{
    const bm_state state = state_of("abc");
    EXPECT_EQ(bm_match_proc(nullptr, 3, &state), -1);
    EXPECT_EQ(bm_match_proc("abc", 0, &state), -1);
    EXPECT_EQ(bm_match_proc("abc", 3, nullptr), -1);
}

TEST(bm_match_proc, refuses_a_state_whose_pattern_would_be_longer_than_any)
{
    bm_state state = state_of(std::string(33, 'a'));
    const std::string text(40, 'a');
    EXPECT_EQ(bm_match_proc(text.data(), 40, &state), 0);
    state.length = 34;
    EXPECT_EQ(bm_match_proc(text.data(), 40, &state), -1);
}

TEST(bm_match_proc, finds_the_last_place_of_the_longest_text_and_ends_there)
{
    std::string text(65535, 'x');
    for (size_t length : {1, 2, 3, 4, 15, 16, 17, 31, 32, 33}) {
        const std::string pattern = "a" + std::string(length - 1, 'b');
        EXPECT_EQ(find(pattern, text), -1) << length;
        text.replace(text.size() - length, length, pattern);
        EXPECT_EQ(find(pattern, text), static_cast<int>(65535 - length));
        text.replace(text.size() - length, length, std::string(length, 'x'));
    }
    /* An alignment beyond 65535 is past the end; it does not come round to the start. */
    EXPECT_EQ(find(std::string(33, 'a'), std::string(65535, 'b')), -1);
}

TEST(bm_match_proc, finds_a_pattern_at_every_place_of_texts_of_every_length)
{
    for (size_t patterns : {1, 2, 3, 4, 5, 8, 16, 17, 32, 33}) {
        const std::string pattern = std::string(patterns - 1, 'a') + "b";
        for (size_t length = patterns; length < 150; ++length) {
            for (size_t at = 0; at + patterns <= length; ++at) {
                std::string text(length, 'a');
                text.replace(at, patterns, pattern);
                ASSERT_EQ(find(pattern, text), static_cast<int>(text.find(pattern)));
            }
        }
    }
}

TEST(bm_match_proc, agrees_with_a_naive_search_on_random_texts)
{
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        const unsigned letters = 1 + random() % 4;
        const char first = random() % 2 ? 'a' : '\xfb';
        std::string pattern, text;
        for (size_t length = 1 + random() % 33; pattern.size() < length;)
            pattern += static_cast<char>(first + static_cast<char>(random() % letters));
        for (size_t length = random() % 400; text.size() < length;)
            text += static_cast<char>(first + static_cast<char>(random() % letters));
        if (random() % 2)
            text += pattern + text.substr(0, 20);
        const size_t at = text.find(pattern);
        ASSERT_EQ(find(pattern, text), text.empty() || at == std::string::npos ? -1 : static_cast<int>(at));
    }
}

} // namespace
