#include "appliance/mixsh/kinds.h"

#include <gtest/gtest.h>

namespace
{

using namespace mixsh;

std::string rated(const kind &is, const std::string &word, limits within = {})
{
    const argument self{"X", false, &is, "help", presence::required, within};
    const auto result = is.rate(self, word);
    if (result.is == verdict::wrong)
        return "wrong at " + std::to_string(result.at);
    return result.is == verdict::complete ? "complete" : "incomplete";
}

TEST(number, is_held_against_its_range)
{
    const limits within{.low = 10, .high = 300};
    EXPECT_EQ(rated(kinds::number, "10", within), "complete");
    EXPECT_EQ(rated(kinds::number, "300", within), "complete");
    EXPECT_EQ(rated(kinds::number, "0x12c", within), "complete");
    EXPECT_EQ(rated(kinds::number, "9", within), "incomplete") << "90 would do";
    EXPECT_EQ(rated(kinds::number, "301", within), "wrong at 2");
    EXPECT_EQ(rated(kinds::number, "0", within), "wrong at 0");
    EXPECT_EQ(rated(kinds::number, "", within), "incomplete");
    EXPECT_EQ(rated(kinds::number, "0x", within), "incomplete");
    EXPECT_EQ(rated(kinds::number, "0x12d", within), "wrong at 4");
    EXPECT_EQ(rated(kinds::number, "-1", within), "wrong at 0");
    EXPECT_EQ(rated(kinds::number, "1 ", within), "wrong at 1");
    EXPECT_EQ(rated(kinds::number, "99999999999999999999999", within), "wrong at 22");
    EXPECT_EQ(rated(kinds::number, "18446744073709551615", {.high = ~std::uint64_t{0}}), "complete");
    EXPECT_EQ(rated(kinds::number, "18446744073709551616", {.high = ~std::uint64_t{0}}), "wrong at 19");
}

TEST(words_and_texts, are_held_against_their_length)
{
    EXPECT_EQ(rated(kinds::word, "abc", {.longest = 3}), "complete");
    EXPECT_EQ(rated(kinds::word, "abcd", {.longest = 3}), "wrong at 3");
    EXPECT_EQ(rated(kinds::text, ""), "incomplete");
    EXPECT_EQ(rated(kinds::text, "any thing"), "complete");
}

struct example {
    const char *word;
    const char *rated;
};
class a_mac : public testing::TestWithParam<example>
{
};
TEST_P(a_mac, is_rated)
{
    EXPECT_EQ(rated(kinds::mac, GetParam().word), GetParam().rated);
}
INSTANTIATE_TEST_SUITE_P(
    words, a_mac,
    testing::Values(example{"00:11:22:aa:BB:ff", "complete"}, example{"00-11-22-aa-BB-ff", "complete"},
                    example{"0011.22aa.BBff", "complete"}, example{"", "incomplete"},
                    example{"0", "incomplete"}, example{"00", "incomplete"}, example{"001", "incomplete"},
                    example{"0011", "incomplete"}, example{"00:", "incomplete"},
                    example{"00:11:22:aa:BB:f", "incomplete"}, example{"0011.22aa.BBf", "incomplete"},
                    example{"00112", "wrong at 4"}, example{"0g", "wrong at 1"},
                    example{"00:1g", "wrong at 4"}, example{"00::", "wrong at 3"},
                    example{"00:11-22", "wrong at 5"}, example{"00:11:22:aa:BB:ff0", "wrong at 17"},
                    example{"0011.22aa.BBff.", "wrong at 14"}, example{":", "wrong at 0"},
                    example{"001.", "wrong at 3"}, example{"001:", "wrong at 2"},
                    example{"00g", "wrong at 2"}));

// A matcher of the library's shape that takes beginnings of "aba".
int match_aba(const char *word)
{
    const std::string_view given = word;
    if (!std::string_view("aba").starts_with(given))
        return 0;
    return given.size() >= 2 ? 8 : 7;
}
int only_whole(const char *word)
{
    return std::string_view(word) == "aba";
}

TEST(matchers, answer_by_their_numbers_and_the_validator)
{
    EXPECT_EQ(rate_by_matcher(match_aba, nullptr, "ab").is, verdict::complete);
    EXPECT_EQ(rate_by_matcher(match_aba, only_whole, "ab").is, verdict::incomplete);
    EXPECT_EQ(rate_by_matcher(match_aba, only_whole, "aba").is, verdict::complete);
    EXPECT_EQ(rate_by_matcher(match_aba, only_whole, "a").is, verdict::incomplete);
    const auto wrong = rate_by_matcher(match_aba, only_whole, "abxa");
    EXPECT_EQ(wrong.is, verdict::wrong);
    EXPECT_EQ(wrong.at, 2u);
    EXPECT_EQ(rate_by_matcher(match_aba, nullptr, "x").at, 0u);
}

TEST(interfaces, are_rated_by_their_letters)
{
    EXPECT_EQ(rated(kinds::interface_name, "eth0"), "complete");
    EXPECT_EQ(rated(kinds::interface_name, "et/0"), "wrong at 2");
}

} // namespace
