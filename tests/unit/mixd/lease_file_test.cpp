/* Lines of a DHCP server's lease file. */
#include "appliance/mixd/lease_file.h"

#include <gtest/gtest.h>

using namespace mixd;

namespace
{

const mac_address station = {2, 0, 0, 0, 0, 0xaf};

TEST(leases, have_expiry_address_and_host)
{
    const auto leases = parse_leases("1900000000 02:00:00:00:00:aF 10.1.2.3 printer 01:02:00:00:00:00:af\n"
                                     "0 02:00:00:00:00:af 10.1.2.4 * *\n");
    ASSERT_EQ(leases.size(), 2u);
    EXPECT_EQ(leases[0], (lease{1900000000, station, 0x0a010203, "printer"}));
    EXPECT_EQ(leases[1], (lease{0, station, 0x0a010204, ""}));
}

TEST(leases, need_no_client_id_and_no_last_newline)
{
    EXPECT_EQ(parse_leases("5 02:00:00:00:00:af 10.1.2.3 a").size(), 1u);
    EXPECT_TRUE(parse_leases("").empty());
    EXPECT_TRUE(parse_leases("\n\n").empty());
}

TEST(leases, of_another_form_are_passed_over)
{
    const char *lines[] = {"duid 00:01:00:01",
                           "5 12345 fd00::5 host 00:01",
                           "5 02:00:00:00:00:af fd00::5 host *",
                           "5 06-02:00:00:00:00:af 10.1.2.3 host *",
                           "5 02:00:00:00:00:a 10.1.2.3 host *",
                           "5 02:00:00:00:00:+1 10.1.2.3 host *",
                           "5 02:00:00:00:00:ag 10.1.2.3 host *",
                           "5 02-00-00-00-00-af 10.1.2.3 host *",
                           "5x 02:00:00:00:00:af 10.1.2.3 host *",
                           "-5 02:00:00:00:00:af 10.1.2.3 host *",
                           "99999999999999999999 02:00:00:00:00:af 10.1.2.3 host *",
                           "5 02:00:00:00:00:af 10.1.2 host *",
                           "5 02:00:00:00:00:af 10.1.2.3",
                           "5 02:00:00:00:00:af",
                           "5",
                           " "};
    for (const char *line : lines)
        EXPECT_TRUE(parse_leases(std::string(line) + "\n").empty()) << line;
    EXPECT_EQ(parse_leases("nonsense\n5 02:00:00:00:00:af 10.1.2.3 a *\nduid 1\n").size(), 1u);
}

} // namespace
