#include <libmix/isp.h>

#include "unit/sys/sys_cases.h"

using namespace mixtest;

namespace
{

struct isp_check : platform_test {
};

TEST_F(isp_check, sends_address_and_isp)
{
    platform().fallback = {0, 0, {}, {}};
    check_ip_isp(0x01020304, 0x05060708);
    ASSERT_EQ(platform().messages.size(), 1u);
    expect_message(platform().messages[0],
                   {sender::send_and_recv, 6, 128, 500,
                    record_of(73, {{0, {0, 0, 0, 1}}, {64, {4, 3, 2, 1}}, {68, {8, 7, 6, 5}}}), 73, true});
    EXPECT_EQ(platform().allocation_sizes, (std::vector<uint32_t>{73}));
}

TEST_F(isp_check, answers_by_the_status_alone)
{
    const std::pair<int32_t, int> statuses[] = {{-1, 0}, {INT32_MIN, 0}, {0, 0},
                                                {1, 1},  {2, 1},         {INT32_MAX, 1}};
    for (const auto &[status, answered] : statuses)
        for (const size_t length : {0u, 72u, 73u, 80u}) {
            platform().fallback = {0, status, repeat(1, length), {}};
            EXPECT_EQ(check_ip_isp(1, 2), answered) << status;
        }
    EXPECT_TRUE(platform().debug.empty());
}

TEST_F(isp_check, is_0_without_an_answer)
{
    platform().fallback = {-1, 5, {}, {}};
    EXPECT_EQ(check_ip_isp(1, 2), 0);
    EXPECT_TRUE(platform().debug.empty());
}

TEST_F(isp_check, tells_the_debug_output_that_there_is_no_buffer)
{
    platform().fail_allocation(1);
    EXPECT_EQ(check_ip_isp(1, 2), 0);
    EXPECT_EQ(platform().debug, (std::vector<std::pair<int, std::string>>{
                                    {1, "Function name: check_ip_isp, IPC Malloc error\n"}}));
    EXPECT_TRUE(platform().messages.empty());
}

} // namespace
