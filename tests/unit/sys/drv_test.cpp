#include <libmix/drv.h>

#include "unit/sys/own_root.h"
#include "unit/sys/sys_cases.h"

using namespace mixtest;

namespace
{

using parts = std::initializer_list<std::pair<size_t, bytes>>;

struct drv : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        output.reset();
    }
};

/* --- messages in the caller's buffer --- */

std::vector<uint8_t> message(12570, 0xEE);

struct init_case {
    const char *name;
    std::function<void(void *)> call;
    bytes filled;
};

const uint8_t serdes[7] = {1, 2, 3, 4, 5, 6, 7};

bytes filled(uint32_t code, uint32_t flag, parts with)
{
    bytes out = record_of(12568, with);
    out[0] = static_cast<uint8_t>(code);
    out[4] = static_cast<uint8_t>(flag);
    return out;
}

const parts every_field = {{8, {2, 1}}, {10, {4, 3}}, {12, {6, 5}}, {14, {8, 7}}, {48, {9, 10}}};

const init_case inits[] = {
    {"port_stats", [](void *b) { drv_port_stats_msg_init(b, 0x0102, 0x0304, 0x0708, 9, 10); },
     filled(5, 0, {{8, {2, 1}}, {10, {4, 3}}, {14, {8, 7}}, {48, {9, 10}}})},
    {"unit_port_stats",
     [](void *b) { drv_unit_port_stats_msg_init(b, 0x0102, 0x0304, 0x0506, 0x0708, 9, 10); },
     filled(5, 1, every_field)},
    {"eye", [](void *b) { drv_port_stats_msg_init_eye(b, 0x0102, 0x0304, 0x0506, 0x0708, 9, 10); },
     filled(38, 0, every_field)},
    {"serdes", [](void *b) { drv_port_stats_msg_init_serdes(b, 0x0102, 0x0304, 0x0506, 0x0708, serdes); },
     filled(38, 0, {{8, {2, 1}}, {10, {4, 3}}, {12, {6, 5}}, {14, {8, 7}}, {48, {1, 2, 3, 4, 5, 6, 7}}})},
    {"px_config",
     [](void *b) { drv_port_stats_msg_init_px_config(b, 0x0102, 0x0304, 0x0506, 0x0708, 9, 10); },
     filled(48, 0, every_field)},
    {"set_px_config",
     [](void *b) { drv_port_stats_msg_init_set_px_config(b, 0x0102, 0x0304, 0x0506, 0x0708, 9, 10); },
     filled(51, 0, every_field)},
    {"drv_info", [](void *b) { drv_get_port_drv_info_msg_init(b, 0x0102, 0x0708, 9); },
     filled(40, 0, {{8, {2, 1}}, {14, {8, 7}}, {48, {9}}})},
};

TEST_F(drv, messages_are_cleared_and_filled)
{
    for (const init_case &each : inits) {
        std::fill(message.begin(), message.end(), 0xEE);
        each.call(message.data());
        EXPECT_EQ(bytes(message.begin(), message.begin() + 12568), each.filled) << each.name;
        EXPECT_EQ(message[12568], 0xEE) << each.name;
    }
}

struct stats_case {
    const char *name;
    int (*call)(void *, uint32_t);
    const char *refused;
};

const stats_case stats_cases[] = {
    {"port_stats", drv_get_port_stats, "Error: Failed to get statistic of slot 258 index 772 port 1286\n"},
    {"port_stats_with_cpuindex", drv_get_port_stats_with_cpuindex,
     "Error: Failed to get statistic of slot 258 index 772 port 1286\n"},
    {"port_drv_info", drv_get_port_drv_info, "Error: Failed to get drv info of slot 258 port 1286\n"},
};

struct drv_stats : drv, testing::WithParamInterface<stats_case> {
    uint8_t small[64] = {};

    void SetUp() override
    {
        drv::SetUp();
        const bytes head = record_of(64, {{0, le32(5)},
                                          {8, le16(0x0102)},
                                          {10, le16(0x0203)},
                                          {12, le16(0x0304)},
                                          {14, le16(0x0506)},
                                          {60, {0x77}}});
        std::copy(head.begin(), head.end(), small);
    }
    [[nodiscard]] int slot() const { return small[8] | small[9] << 8; }
};

TEST_P(drv_stats, exchange_the_callers_message)
{
    platform().fallback = {0, 3, repeat(0x99, 50), {}};
    const bytes before(small, small + 64);
    EXPECT_EQ(GetParam().call(small, 64), 0);
    ASSERT_EQ(platform().messages.size(), 1u);
    expect_message(platform().messages[0], {sender::send_and_recv_timeout, 1, 59, 10000, before, 64, true});
    EXPECT_EQ(platform().allocations, 0u);
    EXPECT_EQ(slot(), 0x0102) << "the reply has overwritten it";
    EXPECT_EQ(small[49], 0x99);
    EXPECT_EQ(small[50], 0);
    EXPECT_EQ(platform().console, "");
}

TEST_P(drv_stats, tell_a_refusal_with_the_callers_numbers)
{
    platform().fallback = {0, -5, repeat(0x99, 64), {}};
    EXPECT_EQ(GetParam().call(small, 64), -1);
    EXPECT_EQ(platform().console, GetParam().refused);
    EXPECT_EQ(slot(), 0x0102);
}

TEST_P(drv_stats, are_silent_when_nothing_comes)
{
    platform().fallback = {-1, 0, {}, {}};
    EXPECT_EQ(GetParam().call(small, 64), -1);
    EXPECT_EQ(platform().console, "");
    EXPECT_EQ(slot(), 0x0102);
}

TEST_P(drv_stats, put_the_slot_back_where_routing_cleared_it)
{
    if (GetParam().call == drv_get_port_drv_info)
        return;
    platform().board["tq_platform_id"] = 0x1050100;
    for (const answer &with : {answer{0, 0, {}, {}}, answer{0, -1, {}, {}}, answer{-1, 0, {}, {}}}) {
        platform().messages.clear();
        platform().fallback = with;
        GetParam().call(small, 64);
        EXPECT_EQ(platform().messages.at(0).request.at(8), 0);
        EXPECT_EQ(slot(), 0x0102);
    }
}

TEST_P(drv_stats, need_a_whole_head)
{
    platform().fallback = {0, 0, {}, {}};
    EXPECT_EQ(GetParam().call(small, 15), -1);
    EXPECT_EQ(GetParam().call(nullptr, 64), -1);
    EXPECT_TRUE(platform().messages.empty());
    EXPECT_EQ(GetParam().call(small, 16), 0);
}

INSTANTIATE_TEST_SUITE_P(drv, drv_stats, testing::ValuesIn(stats_cases),
                         [](const auto &one) { return one.param.name; });

TEST_F(drv, driver_info_goes_to_this_boards_driver_whatever_the_slot)
{
    platform().board = {{"tq_platform_id", 0x1050100}, {"tq_is_mcpu_hardware_platform", 1}};
    platform().fallback = {0, 0, {}, {}};
    drv_get_port_drv_info_msg_init(message.data(), 9, 2, 0);
    EXPECT_EQ(drv_get_port_drv_info(message.data(), 12568), 0);
    EXPECT_EQ(platform().messages.at(0).destination, 1u);
    EXPECT_EQ(platform().messages.at(0).request.at(8), 9) << "the slot is sent as given";
    EXPECT_TRUE(platform().board_calls.empty());
}

TEST_F(drv, eye_request_is_sent_without_waiting)
{
    platform().board["tq_platform_id"] = 0x1050100;
    drv_port_stats_msg_init_eye(message.data(), 2, 3, 4, 5, 6, 7);
    bytes sent(message.begin(), message.begin() + 12568);
    sent[8] = 0;
    platform().fallback = {2, 0, {}, {}};
    EXPECT_EQ(drv_get_port_eye_stats(message.data(), 12568), 0);
    ASSERT_EQ(platform().messages.size(), 1u);
    expect_message(platform().messages[0], {sender::send, 0x03000301, 59, 0, sent});
    EXPECT_EQ(message[8], 0) << "as it was sent";

    platform().fallback = {-1, 0, {}, {}};
    EXPECT_EQ(drv_get_port_eye_stats(message.data(), 12568), -1);
    platform().messages.clear();
    EXPECT_EQ(drv_get_port_eye_stats(message.data(), 15), -1);
    EXPECT_EQ(drv_get_port_eye_stats(nullptr, 12568), -1);
    EXPECT_TRUE(platform().messages.empty());
}

/* --- queries --- */

std::vector<sys_case> query_cases()
{
    std::vector<sys_case> cases;
    sys_case info{
        .name = "port_info",
        .call = [] { return drv_get_port_info(0x0102, 0x0304, output.as<uint64_t>()); },
        .sent = {sender::send_and_recv, 1, 59, 2000,
                 record_of(20760, {{0, le32(4)}, {4, le32(1)}, {8, le16(0x0102)}, {14, le16(0x0304)}}), 20760,
                 true},
        .result_not_sent = -3,
        .result_refused = 0, /* the transport's result, on purpose */
        .told_no_request = "drv_get_port_info: ipcmsg_alloc error.\n",
        .told_not_sent = "drv_get_port_info: ipc error rc -3, ret 0\n",
        .told_refused = "drv_get_port_info: ipc error rc 0, ret -7\n",
    };
    cases.push_back(info);

    sys_case maxnum{
        .name = "port_maxnum",
        .call = [] { return drv_get_port_maxnum(0x0102); },
        .sent = {sender::send_and_recv_timeout, 1, 59, 2000,
                 record_of(20760, {{0, le32(13)}, {8, le16(0x0102)}}), 20760, true},
        .result_not_sent = 0,
        .result_refused = 0,
        .told_no_request = "ipcmsg_alloc error.\n",
        .told_not_sent = "ipc error.\n",
        .told_refused = "ipc error.\n",
    };
    cases.push_back(maxnum);

    sys_case valid = maxnum;
    valid.name = "is_port_vaild";
    valid.call = [] { return drv_is_port_vaild(0x0102, 0x0304, 0x0506, 0x80000000); };
    valid.sent.request = record_of(
        20760, {{0, le32(52)}, {4, le32(1)}, {8, le16(0x0102)}, {12, le16(0x0304)}, {14, le16(0x0506)}});
    valid.told_not_sent = "drv_is_port_vaild ipc error rc -3 ret 0.\n";
    valid.told_refused = "drv_is_port_vaild ipc error rc 0 ret -7.\n";
    cases.push_back(valid);
    valid.name = "is_port_vaild_without_the_flag";
    valid.call = [] { return drv_is_port_vaild(0, 0, 0, 0); };
    valid.sent.request = record_of(20760, {{0, le32(52)}});
    cases.push_back(valid);

    cases.push_back({
        .name = "bridge_stats",
        .call =
            [] {
                const int result = drv_get_bridge_stats(output.as<void *>(), 0x0102, 0x0304, 5);
                if (result == 0)
                    platform().free_as_caller(*output.as<void *>());
                return result;
            },
        .sent = {sender::send_and_recv_timeout, 1, 59, 2000,
                 record_of(20832, {{0, le32(7)}, {8, le16(0x0102)}, {12, le16(0x0304)}, {49, {5}}}), 20832,
                 true},
    });
    cases.push_back({
        .name = "dp_port_drv_info",
        .call = [] { return drv_dp_get_port_drv_info(0x0102, 0x0304, 0x05060708, output.as<uint64_t>()); },
        .sent = {sender::send_and_recv_timeout, 0, 59, 5000,
                 record_of(12568,
                           {{0, le32(92)}, {80, le16(0x0102)}, {82, le16(0x0304)}, {84, le32(0x05060708)}}),
                 12568, true},
    });

    for (const uint32_t size : {5280u, 64u}) {
        const auto get = size == 64 ? drv_get_dpdk_cpu_cntr : drv_get_cpu_cntr;
        sys_case counters{
            .name = size == 64 ? "dpdk_cpu_cntr" : "cpu_cntr",
            .call =
                [get] {
                    const int result = get(output.as<void *>(), 3, 0x10002, 0x01020304);
                    if (result == 0)
                        platform().free_as_caller(*output.as<void *>());
                    return result;
                },
            .sent = {sender::send_and_recv_timeout, 0x04000200, 69, 2000, {1, 0, 0, 0, 4, 3, 2, 1}, size},
            .told_refused = "Error: Failed to get slot 3 cpu counter, ret = -7.\n",
        };
        cases.push_back(counters);
        counters.name = size == 64 ? "dpdk_cpu_cntr_of_the_own_slot" : "cpu_cntr_of_the_own_slot";
        counters.board = {{"tq_get_slot", 3}};
        counters.sent.destination = 0;
        cases.push_back(counters);
    }

    sys_case drain{
        .name = "drain_pkt_buffer",
        .call = [] { return drv_drain_pkt_buffer(3); },
        .sent = {sender::send, 0x04000000, 69, 0, {7, 0, 0, 0, 0, 0, 0, 0}},
    };
    cases.push_back(drain);
    drain.name = "drain_pkt_buffer_of_the_own_slot";
    drain.board = {{"tq_get_slot", 3}};
    drain.sent.destination = 0;
    cases.push_back(drain);
    drain.name = "drain_pkt_buffer_of_slot_0";
    drain.call = [] { return drv_drain_pkt_buffer(0); };
    cases.push_back(drain);
    return cases;
}

struct drv_queries : sys_exchanges {
};

TEST_P(drv_queries, send_their_request)
{
    check_message(GetParam());
}

TEST_P(drv_queries, fail_as_described)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(drv, drv_queries, testing::ValuesIn(query_cases()), sys_case_name);

TEST_F(drv, port_info_is_40_bytes_at_48)
{
    bytes reply(100);
    for (size_t i = 0; i < reply.size(); i++)
        reply[i] = static_cast<uint8_t>(i);
    platform().fallback = {4, 0, reply, {}};
    EXPECT_EQ(drv_get_port_info(1, 2, output.as<uint64_t>()), 4) << "the transport's result";
    EXPECT_EQ(output.first(41), join({bytes(reply.begin() + 48, reply.begin() + 88), {0x5A}}));
}

TEST_F(drv, information_that_a_short_reply_does_not_reach_is_zero)
{
    using asking = int (*)(uint64_t *);
    const std::pair<asking, size_t> queries[] = {
        {[](uint64_t *out) { return drv_get_port_info(1, 2, out); }, 40},
        {[](uint64_t *out) { return drv_dp_get_port_drv_info(1, 2, 3, out); }, 88},
    };
    platform().behind_reply = 0xEE;
    for (const auto &[call, size] : queries)
        for (const size_t length : {0u, 48u, 49u, 87u}) {
            output.reset();
            platform().fallback = {0, 0, repeat(0x41, length), {}};
            EXPECT_EQ(call(output.as<uint64_t>()), 0);
            const size_t came = length < 48 ? 0 : length - 48;
            EXPECT_EQ(output.first(size + 1), join({repeat(0x41, came), repeat(0, size - came), {0x5A}}))
                << length << " for " << size;
        }
}

TEST_F(drv, refused_port_info_is_not_negative_and_copies_nothing)
{
    platform().fallback = {6, -2, repeat(1, 100), {}};
    EXPECT_EQ(drv_get_port_info(1, 2, output.as<uint64_t>()), 6);
    EXPECT_EQ(platform().console, "drv_get_port_info: ipc error rc 6, ret -2\n");
    EXPECT_TRUE(output.untouched());
}

TEST_F(drv, cpu_index_is_the_second_number)
{
    uint32_t index = 9;
    platform().fallback = {2, 0, record_of(88, {{48, le32(5)}, {52, le32(0x01020304)}, {56, le32(6)}}), {}};
    EXPECT_EQ(drv_get_cpu_index_though_eth_port(1, 2, &index), 2);
    EXPECT_EQ(index, 0x01020304u);
}

TEST_F(drv, cpu_index_is_0_on_every_failure)
{
    uint32_t index = 9;
    platform().answers = {{0, -1, repeat(7, 100), {}}, {-4, 0, {}, {}}, {0, 0, {}, {}}};
    for (const int result : {0, -4, 0}) {
        index = 9;
        EXPECT_EQ(drv_get_cpu_index_though_eth_port(1, 2, &index), result);
        EXPECT_EQ(index, 0u);
    }
    index = 9;
    platform().fail_allocation(4);
    EXPECT_EQ(drv_get_cpu_index_though_eth_port(1, 2, &index), -1);
    EXPECT_EQ(index, 0u);
    EXPECT_EQ(drv_get_cpu_index_though_eth_port(1, 2, nullptr), -1);
    EXPECT_EQ(platform().allocations, 4u);
}

TEST_F(drv, port_count_is_at_14)
{
    platform().fallback = {0, 0, record_of(16, {{14, le16(0xfffe)}}), {}};
    EXPECT_EQ(drv_get_port_maxnum(1), 0xfffe);
    platform().fallback = {0, 0, repeat(1, 15), {}};
    EXPECT_EQ(drv_get_port_maxnum(1), 0) << "not reached by the reply";
}

TEST_F(drv, port_is_valid_below_the_count)
{
    platform().fallback = {0, 0, record_of(16, {{14, le16(8)}}), {}};
    const std::pair<int, int> ports[] = {{0, 1}, {7, 1}, {8, 0}, {9, 0}, {-1, 1}, {INT32_MIN, 1}};
    for (const auto &[port, valid] : ports)
        EXPECT_EQ(is_port_valid(1, port), valid) << port;
    EXPECT_EQ(platform().messages.back().request.at(8), 1);
    platform().fallback = {-1, 0, {}, {}};
    EXPECT_EQ(is_port_valid(1, 0), 0);
    EXPECT_EQ(is_port_valid(1, -1), 1);
    platform().fail_allocation(platform().allocations + 1, true);
    EXPECT_EQ(is_port_valid(1, -1), 0) << "a count of -1";
    EXPECT_EQ(is_port_valid(1, -2), 1);
}

TEST_F(drv, validity_is_the_drivers_answer)
{
    platform().fallback = {0, 0, record_of(52, {{48, le32(0x01020304)}}), {}};
    EXPECT_EQ(drv_is_port_vaild(1, 2, 3, 4), 0x01020304);
    platform().fallback = {0, 0, repeat(1, 51), {}};
    EXPECT_EQ(drv_is_port_vaild(1, 2, 3, 4), 0);
}

TEST_F(drv, bridge_statistics_are_handed_over)
{
    void *out = nullptr;
    platform().fallback = {0, 2, repeat(0x31, 20832), {}};
    EXPECT_EQ(drv_get_bridge_stats(&out, 0, 1, 2), 0);
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(static_cast<uint8_t *>(out)[20831], 0x31);
    EXPECT_EQ(platform().outstanding(), 1u);
    platform().free_as_caller(out);
}

TEST_F(drv, dp_driver_information_is_88_bytes_at_48)
{
    bytes reply(200);
    for (size_t i = 0; i < reply.size(); i++)
        reply[i] = static_cast<uint8_t>(i);
    platform().fallback = {0, 0, reply, {}};
    EXPECT_EQ(drv_dp_get_port_drv_info(1, 2, 3, output.as<uint64_t>()), 0);
    EXPECT_EQ(output.first(89), join({bytes(reply.begin() + 48, reply.begin() + 136), {0x5A}}));
    EXPECT_TRUE(platform().log.empty());
}

TEST_F(drv, dp_driver_information_without_a_buffer_is_logged)
{
    platform().fail_allocation(1);
    EXPECT_EQ(drv_dp_get_port_drv_info(1, 2, 3, output.as<uint64_t>()), -1);
    EXPECT_EQ(platform().log, (std::vector<std::string>{"drv_dp_get_port_drv_info:746 ipc malloc error\n"}));
    EXPECT_EQ(platform().console, "");
}

TEST_F(drv, dp_driver_name_is_at_40_of_it)
{
    platform().fallback = {0, 0, record_of(136, {{88, text_field("ixgbe", 10)}}), {}};
    EXPECT_EQ(drv_dp_get_port_drv_name(1, 2, output.as<char>(), 20), 0);
    EXPECT_STREQ(output.as<char>(), "ixgbe");
    EXPECT_EQ(
        bytes(platform().messages.at(0).request.begin() + 80, platform().messages.at(0).request.begin() + 88),
        (bytes{1, 0, 2, 0, 0xff, 0xff, 0xff, 0xff}));
    output.reset();
    EXPECT_EQ(drv_dp_get_port_drv_name(1, 2, output.as<char>(), 4), 0);
    EXPECT_EQ(output.first(5), (bytes{'i', 'x', 'g', 0, 0x5A}));
    platform().fallback = {0, 0, repeat('n', 300), {}};
    EXPECT_EQ(drv_dp_get_port_drv_name(1, 2, output.as<char>(), 100), 0);
    EXPECT_EQ(output.as<char>(), std::string(48, 'n'));
    output.reset();
    EXPECT_EQ(drv_dp_get_port_drv_name(1, 2, output.as<char>(), 0), 0);
    EXPECT_EQ(drv_dp_get_port_drv_name(1, 2, output.as<char>(), -1), 0);
    EXPECT_TRUE(output.untouched());
}

TEST_F(drv, dp_driver_name_is_zero_on_failure)
{
    platform().answers = {{-1, 0, {}, {}}, {0, -1, repeat('n', 200), {}}};
    for (int i = 0; i < 2; i++) {
        output.reset();
        EXPECT_EQ(drv_dp_get_port_drv_name(1, 2, output.as<char>(), 20), -1);
        EXPECT_EQ(output.first(21), join({repeat(0, 20), {0x5A}}));
    }
}

/* --- counters --- */

TEST_F(drv, counters_are_handed_over)
{
    void *out = nullptr;
    platform().fallback = {0, 0, repeat(0x21, 5280), {}};
    EXPECT_EQ(drv_get_cpu_cntr(&out, 0, 5, 1), 0);
    EXPECT_EQ(platform().messages.at(0).destination, 0u);
    EXPECT_EQ(static_cast<uint8_t *>(out)[5279], 0x21);
    platform().free_as_caller(out);
    platform().fallback = {0, 0, repeat(0x22, 64), {}};
    EXPECT_EQ(drv_get_dpdk_cpu_cntr(&out, 0, 5, 1), 0);
    EXPECT_EQ(static_cast<uint8_t *>(out)[63], 0x22);
    platform().free_as_caller(out);
}

TEST_F(drv, buffers_handed_over_are_zero_where_nothing_arrived)
{
    const auto first_and_last = [](void *buffer, size_t size) {
        const auto *at = static_cast<const uint8_t *>(buffer);
        const bytes out = {at[0], at[1], at[size - 1]};
        platform().free_as_caller(buffer);
        return out;
    };
    void *out = nullptr;
    platform().behind_reply = 0xEE;
    platform().fallback = {0, 0, {7}, {}};
    EXPECT_EQ(drv_get_cpu_cntr(&out, 0, 5, 1), 0);
    EXPECT_EQ(first_and_last(out, 5280), (bytes{7, 0, 0}));
    EXPECT_EQ(drv_get_bridge_stats(&out, 0, 1, 2), 0);
    EXPECT_EQ(first_and_last(out, 20832), (bytes{7, 0, 0})) << "nothing of the request, either";
}

TEST_F(drv, dpdk_counters_are_exactly_64_bytes)
{
    for (const size_t length : {0u, 63u, 65u, 128u}) {
        platform().console.clear();
        platform().fallback = {0, 0, repeat(1, length), {}};
        EXPECT_EQ(drv_get_dpdk_cpu_cntr(output.as<void *>(), 300, 5, 1), -1);
        EXPECT_EQ(platform().console, "Error: Failed to get slot 300 cpu counter, received len is " +
                                          std::to_string(length) + "\n");
    }
    EXPECT_TRUE(output.untouched());
}

/* --- control requests --- */

using control_call = int (*)(uint16_t, uint16_t, uint32_t, void *);

struct control_case {
    control_call call;
    uint32_t code;
    size_t second_at;
    std::map<uint32_t, uint32_t> sizes; /* by command */
    std::optional<uint32_t> answering;
};

const control_case controls[] = {
    {remote_dev_ioctl,
     20,
     6,
     {{62, 4}, {64, 4}, {68, 4}, {66, 12}, {69, 12}, {70, 12}, {77, 12}, {78, 12}},
     {}},
    {remote_hwif_ioctl, 21, 8, {{1, 4}, {12, 12568}}, 1},
};

TEST_F(drv, control_requests)
{
    for (const control_case &each : controls)
        for (uint32_t command = 0; command < 200; command++) {
            SCOPED_TRACE(command);
            platform().reset();
            platform().fallback = {0, 1, repeat(0xAB, 12588), {}};
            bytes data = repeat('d', 12600);
            const auto known = each.sizes.find(command);
            if (known == each.sizes.end()) {
                EXPECT_EQ(each.call(0x0102, 0x0304, command, data.data()), -1);
                EXPECT_EQ(platform().allocations, 0u);
                continue;
            }
            const uint32_t size = known->second;
            EXPECT_EQ(each.call(0x0102, 0x0304, command, data.data()), 0);
            const bytes request = record_of(20 + size, {{0, le32(each.code)},
                                                        {4, le16(0x0102)},
                                                        {each.second_at, le16(0x0304)},
                                                        {12, le32(command)},
                                                        {16, le32(size)},
                                                        {20, repeat('d', size)}});
            expect_message(platform().messages.at(0),
                           {sender::send_and_recv_timeout, 1, 59, 2000, request, 20 + size, true});
            EXPECT_EQ(platform().allocation_sizes, (std::vector<uint32_t>{20 + size}));
            const size_t answered = each.answering == command ? size : 0;
            EXPECT_EQ(data, join({repeat(0xAB, answered), repeat('d', 12600 - answered)}));
        }
    EXPECT_EQ(remote_dev_ioctl(1, 2, 0xffffffff, output.bytes), -1);
}

TEST_F(drv, control_request_failures_leave_the_data)
{
    for (const control_case &each : controls) {
        const uint32_t command = each.sizes.begin()->first;
        bytes data = repeat('d', 12568);
        platform().reset();
        platform().answers = {{-1, 0, {}, {}}, {0, -1, repeat(0xAB, 24), {}}};
        EXPECT_EQ(each.call(1, 2, command, data.data()), -1);
        EXPECT_EQ(each.call(1, 2, command, data.data()), -1);
        platform().fail_allocation(3);
        EXPECT_EQ(each.call(1, 2, command, data.data()), -1);
        EXPECT_EQ(each.call(1, 2, command, nullptr), -1);
        EXPECT_EQ(data, repeat('d', 12568));
        EXPECT_EQ(platform().messages.size(), 2u);
        EXPECT_EQ(platform().console, "");
    }
}

TEST_F(drv, control_answer_that_did_not_come_is_zero)
{
    platform().behind_reply = 0xEE;
    for (const size_t length : {0u, 20u, 22u, 23u}) {
        output.reset();
        platform().fallback = {0, 0, repeat(0xAB, length), {}};
        EXPECT_EQ(remote_hwif_ioctl(1, 2, 1, output.bytes), 0);
        const size_t came = length < 20 ? 0 : length - 20;
        EXPECT_EQ(output.first(5), join({repeat(0xAB, came), repeat(0, 4 - came), {0x5A}})) << length;
    }
}

/* --- direct uplink --- */

const fs::path marker = "/flash/platform/direct_uplink_cpu.conf";

} // namespace

static int synced = 0;
extern "C" void sync()
{
    synced++;
}

namespace
{

size_t open_files()
{
    const auto all = fs::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

TEST_F(drv, direct_uplink_is_a_marker_file)
{
    in_own_root([] {
        fs::create_directories(marker.parent_path());
        platform().board["is_support_direct_uplink"] = 1;
        umask(0);
        synced = 0;
        const size_t open_before = open_files();
        EXPECT_EQ(drv_direct_uplink_is_enabled(), 0);
        EXPECT_EQ(drv_set_direct_uplink(5), 0);
        EXPECT_EQ(open_files(), open_before);
        EXPECT_EQ(synced, 1);
        EXPECT_EQ(drv_direct_uplink_is_enabled(), 1);
        EXPECT_EQ(fs::file_size(marker), 0u);
        EXPECT_EQ(fs::status(marker).permissions(), fs::perms{0644});
        EXPECT_EQ(drv_set_direct_uplink(1), 0) << "again";
        EXPECT_EQ(drv_set_direct_uplink(0), 0);
        EXPECT_EQ(synced, 3);
        EXPECT_EQ(drv_direct_uplink_is_enabled(), 0);
        EXPECT_FALSE(fs::exists(marker));
    });
}

TEST_F(drv, direct_uplink_that_cannot_be_changed)
{
    in_own_root([] {
        platform().board["is_support_direct_uplink"] = 1;
        synced = 0;
        EXPECT_EQ(drv_set_direct_uplink(0), -1) << "nothing to remove";
        EXPECT_EQ(drv_set_direct_uplink(1), -1) << "no directory";
        EXPECT_EQ(synced, 0);
    });
}

TEST_F(drv, direct_uplink_of_a_platform_without_it)
{
    in_own_root([] {
        own_root::write(marker, "");
        synced = 0;
        EXPECT_EQ(drv_direct_uplink_is_enabled(), 0);
        EXPECT_EQ(drv_set_direct_uplink(0), 0);
        EXPECT_EQ(drv_set_direct_uplink(1), 0);
        EXPECT_TRUE(fs::exists(marker));
        EXPECT_EQ(synced, 0);
    });
}

} // namespace
