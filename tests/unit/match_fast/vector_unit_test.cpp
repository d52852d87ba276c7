/* What is made for each vector unit, against the same written byte by byte. */
#include <libmix/bm.h>

#include "match/fast.h"
#include "unit/match/model.h"

using namespace mix::match;
using mixtest::random_source;

namespace
{

/* The best unit of this processor, as the compiler's own library finds it out. */
vector_unit best_unit()
{
#if defined(__x86_64__)
    return __builtin_cpu_supports("avx2")    ? vector_unit::avx2
           : __builtin_cpu_supports("ssse3") ? vector_unit::ssse3
                                             : vector_unit::none;
#else
    return vector_unit::neon;
#endif
}

struct unit_choice : testing::Test {
    void TearDown() override { use_vector_unit(vector_unit::unknown); }
};

TEST_F(unit_choice, is_the_best_of_the_processor_until_told_otherwise)
{
    use_vector_unit(vector_unit::unknown);
    EXPECT_EQ(vector_unit_in_use(), best_unit());
    use_vector_unit(vector_unit::none);
    EXPECT_EQ(vector_unit_in_use(), vector_unit::none);
    use_vector_unit(vector_unit::unknown);
    EXPECT_EQ(vector_unit_in_use(), best_unit());
}

TEST_F(unit_choice, has_what_the_best_unit_includes)
{
    const vector_unit best = best_unit();
    EXPECT_TRUE(has_vector_unit(vector_unit::none));
    EXPECT_EQ(has_vector_unit(vector_unit::ssse3), best == vector_unit::ssse3 || best == vector_unit::avx2);
    EXPECT_EQ(has_vector_unit(vector_unit::avx2), best == vector_unit::avx2);
    EXPECT_EQ(has_vector_unit(vector_unit::neon), best == vector_unit::neon);
}

struct units : testing::TestWithParam<vector_unit> {
    void SetUp() override
    {
        if (!has_vector_unit(GetParam()))
            GTEST_SKIP() << "this machine lacks the vector unit";
        use_vector_unit(GetParam());
    }
    void TearDown() override { use_vector_unit(vector_unit::unknown); }

    random_source random{77};
};

TEST_P(units, filter_as_many_places_at_once_as_they_have_bytes)
{
    const vector_filter filter = filter_in_use();
    EXPECT_EQ(filter.find != nullptr, GetParam() != vector_unit::none);
    EXPECT_EQ(filter.width, GetParam() == vector_unit::none ? 0 : GetParam() == vector_unit::avx2 ? 32 : 16);
    EXPECT_EQ(filter.step, GetParam() == vector_unit::neon ? 4 : 1);
}

bool passes(const filter_masks &masks, const char *text)
{
    unsigned groups = 0xFF;
    for (int place = 0; place < filter_window; ++place) {
        const uint8_t byte = static_cast<uint8_t>(text[place]);
        groups &= masks.low[place][byte & 15] & masks.high[place][byte >> 4];
    }
    return groups != 0;
}

/* Each place is looked at once, in groups that the last one may share places with. */
candidates first_group(const filter_masks &masks, const char *text, int at, int limit,
                       const vector_filter &filter)
{
    for (; at < limit; at += filter.width) {
        const int from = std::min(at, limit - filter.width);
        uint64_t mask = 0;
        for (int place = at; place < from + filter.width; ++place)
            mask |= (passes(masks, text + place) ? (uint64_t{1} << filter.step) - 1 : 0)
                    << (place - from) * filter.step;
        if (mask != 0)
            return {from, mask};
        at = from;
    }
    return {limit, 0};
}

TEST_P(units, find_the_places_that_the_masks_let_pass)
{
    const vector_filter filter = filter_in_use();
    if (filter.find == nullptr)
        return;
    for (int round = 0; round < 4000; ++round) {
        filter_masks masks = {};
        /* Few passes, so that whole groups are left out, too. */
        for (int place = 0; place < filter_window; ++place) {
            for (int half = 0; half < 16; ++half) {
                masks.low[place][half] = static_cast<uint8_t>(random.below(256) & random.below(256));
                masks.high[place][half] = static_cast<uint8_t>(random.below(256) & random.below(256));
            }
        }
        const int limit = filter.width + static_cast<int>(random.below(150));
        const size_t size = static_cast<size_t>(limit + filter_window - 1);
        std::string text = random.text(size, random.letters(random.below(2) ? 256 : 9));
        /* In memory of its own size, so that a read outside is seen by a sanitizer. */
        const std::vector<char> exact(text.begin(), text.end());
        const int at = static_cast<int>(random.below(static_cast<uint32_t>(limit + 1)));
        const candidates expected = first_group(masks, exact.data(), at, limit, filter);
        const candidates found =
            filter.find(masks, reinterpret_cast<const uint8_t *>(exact.data()), at, limit);
        ASSERT_EQ(found.at, expected.at) << "from " << at << " to " << limit;
        ASSERT_EQ(found.mask, expected.mask) << "from " << at << " to " << limit;
    }
}

TEST_P(units, mark_the_rows_whose_bit_is_set_and_none_behind_the_last)
{
    const row_marker mark = marker_in_use();
    static uint32_t matching[flagged_states / 32];
    for (uint32_t &word : matching)
        word = random.below(0xFFFFFFFF);
    for (int round = 0; round < 2000; ++round) {
        uint32_t rows[64];
        for (uint32_t &row : rows)
            row = random.below(flagged_states);
        for (unsigned count = 1; count <= 32; ++count) {
            uint32_t expected = 0;
            for (unsigned i = 0; i < count; ++i)
                expected |= (matching[rows[i] / 32] >> rows[i] % 32 & 1) << i;
            ASSERT_EQ(mark(matching, rows, count), expected) << count;
        }
    }
}

TEST_P(units, find_the_first_occurrence_of_a_string)
{
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

TEST_P(units, look_at_nothing_around_the_text_for_a_string)
{
    for (size_t size : {1, 2, 3, 15, 16, 17, 32, 33}) {
        const std::string pattern = std::string(size - 1, 'a') + "b";
        bm_state state;
        ASSERT_EQ(bm_match_init(&state, pattern.c_str()), 0);
        for (size_t length = size; length < 300; ++length) {
            const std::string inside = std::string(length - 1, 'a') + (length % 2 ? "b" : "a");
            const std::string buffer = pattern + pattern + inside + pattern + pattern;
            const size_t at = inside.find(pattern);
            ASSERT_EQ(bm_match_proc(buffer.data() + 2 * size, static_cast<uint16_t>(length), &state),
                      at == std::string::npos ? -1 : static_cast<int>(at))
                << size << " in " << length;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    all, units, testing::Values(vector_unit::none, vector_unit::ssse3, vector_unit::avx2, vector_unit::neon),
    [](const auto &one) { return "unit" + std::to_string(static_cast<int>(one.param)); });

} // namespace
