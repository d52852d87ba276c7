/* Addresses as scenario files and lease files write them. */
#include "appliance/mixd/scenario.h"

#include <gtest/gtest.h>

#include "support/temporary_directory.h"

using namespace mixd;

namespace
{

TEST(mac_text, is_six_bytes_of_two_digits)
{
    EXPECT_EQ(read_mac("02:00:7f:80:aB:Ff"), (mac_address{2, 0, 0x7f, 0x80, 0xab, 0xff}));
}

constexpr const char *not_macs[] = {"02:00:00:00:00:+1",
                                    "02:00:00:00:00: 1",
                                    "02:00:00:00:00:-1",
                                    " 2:00:00:00:00:01",
                                    "0x:00:00:00:00:01",
                                    "02:00:00:00:00:0g",
                                    "02:00:00:00:00:0",
                                    "02:00:00:00:00:011",
                                    "02:00:00:00:00",
                                    "02-00-00-00-00-01",
                                    "02:00:00:00:00.01",
                                    "020000000001",
                                    ""};

struct not_a_mac : testing::TestWithParam<const char *> {
    mixtest::temporary_directory place;
};

TEST_P(not_a_mac, is_not_read)
{
    EXPECT_FALSE(read_mac(GetParam()));
}

TEST_P(not_a_mac, is_a_mistake_in_a_scenario)
{
    const std::string file = place.file("s.toml", "[port]\nmac = \"" + std::string(GetParam()) + "\"\n");
    scenario of(file);
    EXPECT_FALSE(of.top().table("port").mac("mac"));
    EXPECT_EQ(of.finish(), std::vector<std::string>{file + ":2: port.mac: \"" + GetParam() +
                                                    "\" is not a MAC address (02:00:00:00:00:01)"});
}

INSTANTIATE_TEST_SUITE_P(each, not_a_mac, testing::ValuesIn(not_macs));

} // namespace
