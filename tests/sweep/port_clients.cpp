/* Port drivers, counters, control requests. */
#include <libmix/drv.h>

#include "sweep/client.h"

namespace mixtest
{

namespace
{

constexpr uint32_t message_size = 12568;
constexpr uint32_t query_size = 20760;
constexpr size_t slot_at = 8;

/* The caller's own message: the reply overwrites it, all but the slot. What it does not reach is the
 * caller's still. */
shape asks_with_message()
{
    shape is = answers(message_size, some_bytes(200));
    is.own_message = true;
    is.output_size = message_size;
    return is;
}

template <class Exchange>
int64_t exchange_message(given &g, Exchange exchange)
{
    drv_port_stats_msg_init(g.output, 3, 1, 4, 5, 6);
    const int result = exchange(g.output, message_size);
    if (*g.as<uint16_t>(slot_at) != 3)
        return -99;
    if (g.kept < message_size)
        std::memset(g.output + g.kept, 0, message_size - g.kept);
    *g.as<uint16_t>(slot_at) = 3;
    return result;
}

shape asks(bytes reply, failures fails = always(-1), int64_t good = 0)
{
    return answers(query_size, std::move(reply), fails, good);
}

/* Queries whose missing buffer is -1 and whose failed exchange is 0. */
constexpr failures counted = {-1, -1, 0, 0, 0};
/* A refusal is no failure for who looks at the result. */
constexpr failures of_transport = {-1, -1, result_of_send, 0, 0};

} // namespace

std::vector<client> port_clients()
{
    return {
        {MIX_BODY(drv_get_port_stats, return exchange_message(g, drv_get_port_stats);), asks_with_message()},
        {MIX_BODY(drv_get_port_stats_with_cpuindex,
                  return exchange_message(g, drv_get_port_stats_with_cpuindex);),
         asks_with_message()},
        {MIX_BODY(drv_get_port_drv_info, return exchange_message(g, drv_get_port_drv_info);),
         asks_with_message()},
        {MIX_BODY(drv_get_port_eye_stats, return exchange_message(g, drv_get_port_eye_stats);),
         sends().set(&shape::own_message, true)},
        {MIX_CALL(drv_get_port_info, 1, 2, g.as<uint64_t>()), asks(some_bytes(100), of_transport)},
        {MIX_CALL(drv_get_cpu_index_though_eth_port, 1, 2, g.as<uint32_t>()),
         asks(some_bytes(100), of_transport).leaves(le32(0))},
        {MIX_CALL(drv_get_port_maxnum, 1), asks(some_bytes(100), counted, 0x6a63)},
        {MIX_CALL(is_port_valid, 1, 5), asks(some_bytes(100), always(0), 1)},
        {MIX_CALL(drv_is_port_vaild, 1, 2, 3, 1), asks(some_bytes(100), counted, 0x665f5851)},
        {MIX_BODY(drv_get_bridge_stats,
                  return g.take_buffer(drv_get_bridge_stats(g.no_buffer(), 1, 2, 3), 20832);),
         answers(20832, some_bytes(300)).set(&shape::hands_over, true)},
        {MIX_CALL(drv_dp_get_port_drv_info, 1, 2, 3, g.as<uint64_t>()),
         answers(message_size, some_bytes(200))},
        {MIX_CALL(drv_dp_get_port_drv_name, 1, 2, g.as<char>(), 32),
         answers(message_size, some_bytes(200)).leaves(bytes(32))},
        {MIX_BODY(drv_get_cpu_cntr, return g.take_buffer(drv_get_cpu_cntr(g.no_buffer(), 0, 0, 1), 5280);),
         answers(5280, some_bytes(300)).set(&shape::hands_over, true)},
        {MIX_BODY(drv_get_dpdk_cpu_cntr,
                  return g.take_buffer(drv_get_dpdk_cpu_cntr(g.no_buffer(), 0, 0, 1), 64);),
         answers(64, some_bytes(64), accepts::exactly, 64).set(&shape::hands_over, true)},
        {MIX_CALL(drv_drain_pkt_buffer, 0), sends()},
        {MIX_CALL(remote_dev_ioctl, 1, 2, 66, g.output), answers(32, some_bytes(32))},
        {MIX_CALL(remote_hwif_ioctl, 1, 2, 1, g.output), answers(24, some_bytes(24))},
    };
}

} // namespace mixtest
