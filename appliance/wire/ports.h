/* What the port driver and the counter service put behind the headers of src/sys/drv_wire.h. */
#ifndef MIX_APPLIANCE_WIRE_PORTS_H
#define MIX_APPLIANCE_WIRE_PORTS_H

#include "appliance/wire/mac.h"
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
    uint32_t all;   /* of a driver's own statistics: how many there are on all pages */
};
struct [[gnu::packed]] port_stats_record {
    char name[16];
    uint64_t counters[port_counters];
};
inline constexpr uint32_t most_port_stats =
    (drv_message_size - drv_data - sizeof(port_stats_head)) / sizeof(port_stats_record);

/* A statistics request whose first option byte is 1 asks for what the port's driver counts by itself; the
 * second option byte is the page. The reply has port_stats_head, then these. */
inline constexpr uint8_t stats_of_driver = 1;
struct [[gnu::packed]] driver_stats_record {
    char name[32];
    uint64_t value;
};
inline constexpr uint32_t most_driver_stats =
    (drv_message_size - drv_data - sizeof(port_stats_head)) / sizeof(driver_stats_record);

/* At 48 of the reply to an eye or serdes request. */
struct [[gnu::packed]] port_lane_record {
    char board[32];
    uint32_t requests; /* of this port so far, those without an answer included */
    uint8_t last[drv_serdes_size];
};

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
    uint32_t spanning_tree; /* 1: it is on */
    uint32_t ageing_s;
    uint32_t count; /* of the bridge_port_record that follow */
    uint32_t reserved;
    port_stats_record bridge; /* of the bridge itself */
};
struct [[gnu::packed]] bridge_port_record {
    port_stats_record stats;
    uint32_t state; /* of the spanning tree: 0 disabled, 1 listening, 2 learning, 3 forwarding, 4 blocking */
    uint32_t cost;
};
inline constexpr const char *bridge_port_states[] = {"disabled", "listening", "learning", "forwarding",
                                                     "blocking"};
inline constexpr uint32_t most_bridge_ports =
    (drv_bridge_size - drv_data - sizeof(bridge_stats_head)) / sizeof(bridge_port_record);

/* --- control requests --- */

/* A device control sets something of a port of the board that executes it; the device's number is the port's.
 * Its data are one or three words. */
inline constexpr uint32_t most_control_words = 3;
struct port_control {
    uint32_t command;
    const char *name;
    uint32_t words;
    uint32_t low, high; /* of each word */
    uint32_t usual;     /* until it is set */
};
enum port_control_command : uint32_t {
    control_admin = 62,    /* 0: down */
    control_mtu = 64,      /* 0: the interface's own */
    control_pause = 66,    /* receive, send, threshold in KiB */
    control_identify = 68, /* seconds that the port blinks */
    control_speed = 69,    /* Mbit/s, full duplex, negotiated */
    control_vlan = 70,     /* of untagged frames, tagged only, filter */
    control_storm = 77,    /* broadcasts, multicasts, unknown ones a second; 0: any number */
    control_mirror = 78    /* to port, what it receives, what it sends */
};
inline constexpr port_control port_controls[] = {
    {control_admin, "admin", 1, 0, 1, 1},          {control_mtu, "mtu", 1, 0, 65535, 0},
    {control_pause, "pause", 3, 0, 65535, 0},      {control_identify, "identify", 1, 0, 3600, 0},
    {control_speed, "speed", 3, 0, 1000000, 0},    {control_vlan, "vlan", 3, 0, highest_vlan, 0},
    {control_storm, "storm", 3, 0, 0xffffffff, 0}, {control_mirror, "mirror", 3, 0, 65535, 0},
};
constexpr const port_control *find_control(uint32_t command)
{
    for (const port_control &each : port_controls)
        if (each.command == command)
            return &each;
    return nullptr;
}

/* The interface control that has an answer: reads a word of the interface's setting. Its data are the word's
 * place, then its value. */
inline constexpr uint32_t control_read = 1;
inline constexpr uint32_t control_read_slot = 0; /* the slot of the board that executes the request */
constexpr uint32_t control_place(uint32_t command, uint32_t word)
{
    return command << 8 | word;
}
/* The other one executes a port message, of drv_message_size bytes, on the board. */
inline constexpr uint32_t control_message = 12;

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
    uint32_t drained; /* how often the board's packet buffers were drained */
    uint32_t reserved;
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
