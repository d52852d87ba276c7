#include "appliance/mixsh/kinds.h"

#include <gtest/gtest.h>

namespace
{

using namespace mixsh;

struct example {
    const kind &is;
    const char *word;
    verdict rated;
    std::size_t at;
};
class an_address : public testing::TestWithParam<example>
{
};
TEST_P(an_address, is_rated_by_the_library)
{
    const auto &[is, word, rated, at] = GetParam();
    const argument self{"X", false, &is, "help", presence::required, {}};
    const auto result = is.rate(self, word);
    EXPECT_EQ(result.is, rated) << word;
    if (rated == verdict::wrong) {
        EXPECT_EQ(result.at, at) << word;
    }
}

constexpr auto complete = verdict::complete;
constexpr auto incomplete = verdict::incomplete;
constexpr auto wrong = verdict::wrong;

INSTANTIATE_TEST_SUITE_P(
    words, an_address,
    testing::Values(example{kinds::ipv4, "10.0.0.1", complete, 0},
                    example{kinds::ipv4, "10.0.0.", incomplete, 0}, example{kinds::ipv4, "", incomplete, 0},
                    example{kinds::ipv4, "10..1", wrong, 3}, example{kinds::ipv4, "10.0.0.256", wrong, 9},
                    example{kinds::ipv4, "10.a", wrong, 3},
                    example{kinds::ipv4, ".1.2.3", incomplete,
                            0}, // the matcher takes it, the validator doesn't
                    example{kinds::ipv4_prefix, "10.0.0.0/8", complete, 0},
                    example{kinds::ipv4_prefix, "10.0.0.0", incomplete, 0},
                    example{kinds::ipv4_prefix, "10.0.0.0/33", wrong, 10},
                    example{kinds::ipv6, "2001:db8::1", complete, 0},
                    example{kinds::ipv6, "2001:db8", incomplete, 0}, // rated complete by the matcher alone
                    example{kinds::ipv6, "", incomplete, 0}, example{kinds::ipv6, "2001:dg", wrong, 6}));

} // namespace
