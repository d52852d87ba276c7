/* What the port driver and the counter service put behind the headers of src/sys/drv_wire.h. */
#ifndef MIX_APPLIANCE_WIRE_PORTS_H
#define MIX_APPLIANCE_WIRE_PORTS_H

#include "sys/drv_wire.h"

namespace mix::wire
{

/* The 40 bytes of port information. */
struct [[gnu::packed]] port_info_record {
    uint32_t up;
    uint32_t cpu;             /* that serves the port */
    uint64_t mbit_per_second; /* 0: not known */
    uint64_t received_bytes;
    uint64_t sent_bytes;
    uint64_t mtu;
};
static_assert(sizeof(port_info_record) == drv_port_info_size);
static_assert(offsetof(port_info_record, cpu) == 4);

enum port_counter : uint32_t {
    received_bytes,
    received_packets,
    received_errors,
    received_dropped,
    sent_bytes,
    sent_packets,
    sent_errors,
    sent_dropped,
    multicast,
    collisions,
    port_counters
};

/* At 48 of a statistics reply: who answered, then the counters, one record for each port asked for. */
struct [[gnu::packed]] port_stats_head {
    char board[32];
    uint16_t cpu;
    uint16_t count; /* of records */
    uint32_t reserved;
};
struct [[gnu::packed]] port_stats_record {
    char name[16];
    uint64_t counters[port_counters];
};
inline constexpr uint32_t most_port_stats =
    (drv_message_size - drv_data - sizeof(port_stats_head)) / sizeof(port_stats_record);

/* At 48 of a driver information reply. */
struct [[gnu::packed]] port_drv_record {
    char board[32];
    char name[16];
    char driver[32];
    char bus[32];
};

/* The 88 bytes of data-plane driver information. */
struct [[gnu::packed]] dp_drv_record {
    uint32_t port;
    uint32_t up;
    uint8_t mac[6];
    uint8_t reserved[26];
    char driver[48];
};
static_assert(sizeof(dp_drv_record) == drv_dp_info_size);
static_assert(offsetof(dp_drv_record, driver) == drv_dp_name);

/* At 48 of a bridge statistics reply. */
struct [[gnu::packed]] bridge_stats_head {
    char board[32];
    char bridge[16];
    uint32_t count; /* of the ports that follow as port_stats_record */
    uint32_t reserved;
};
inline constexpr uint32_t most_bridge_ports =
    (drv_bridge_size - drv_data - sizeof(bridge_stats_head)) / sizeof(port_stats_record);

/* Packet-receive counters of the kernel, one row a processor. */
struct [[gnu::packed]] packet_counter_row {
    uint64_t processed;
    uint64_t dropped;
    uint64_t squeezed;
};
struct [[gnu::packed]] packet_counters {
    char board[32];
    uint32_t cpu;
    uint32_t count;
    /* rows follow */
};
inline constexpr uint32_t most_counter_rows =
    (counter_capacity - sizeof(packet_counters)) / sizeof(packet_counter_row);

/* `which` of a counter request: from here on the sum in 64 bytes, below it the rows. */
inline constexpr uint32_t counter_sum = 256;
struct [[gnu::packed]] packet_counter_sum {
    char board[32];
    uint32_t cpu;
    uint32_t processors;
    packet_counter_row sum;
};
static_assert(sizeof(packet_counter_sum) == counter_dpdk_size);

} // namespace mix::wire

#endif
