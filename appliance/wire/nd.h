/*
 * What the IPv6 neighbour service puts into its rows, and what it takes selectors for. The requests are
 * libmix's (src/neigh/nd_wire.h).
 *
 * Selectors of the lists: first is a virtual router, 0 for all; second the low 16 bits of an interface's
 * index, 0 for all. Of the filtered list: selector as second; an address of zero and a MAC of zero match all;
 * its option is one of nd_option, or minus a state minus 1. Of a clear: first and second as in the lists,
 * third the virtual system. Of the summary: first the virtual system, second the virtual router.
 */
#ifndef MIX_APPLIANCE_WIRE_ND_H
#define MIX_APPLIANCE_WIRE_ND_H

#include "neigh/nd_wire.h"

namespace mix::wire
{

/* Three bits of the flags. */
enum nd_state : uint8_t {
    nd_state_none = 0,
    nd_state_reachable = 1,
    nd_state_incomplete = nd_state_kept, /* nothing that could be kept is known yet */
    nd_state_stale = 3,
    nd_state_delay = 4,
    nd_state_probe = 5,
    nd_state_failed = 6,
    nd_state_permanent = 7
};

/* The flags' other bits, beside nd_flag_static. */
enum nd_flag : uint8_t {
    nd_flag_router = 1,
    nd_flag_configured = 0x20, /* static by configuration; without it, put into the kernel by somebody else */
    nd_flag_idle = 0x40        /* configured, its interface is not there: not in force */
};

enum nd_option : int8_t { nd_option_all = 0, nd_option_dynamic = 1, nd_option_static = 2 };

struct [[gnu::packed]] nd_row {
    uint8_t address[16];
    uint32_t age; /* seconds since the state was last confirmed */
    uint16_t vrid;
    char interface[32];
    uint8_t mac[6]; /* zero while it is not known */
    uint8_t unused_60;
    uint8_t flags;
    uint16_t vsysid;
};
static_assert(sizeof(nd_row) == nd_row_size);
static_assert(offsetof(nd_row, address) == nd_row_address);
static_assert(offsetof(nd_row, age) == 16);
static_assert(offsetof(nd_row, vrid) == 20);
static_assert(offsetof(nd_row, interface) == nd_row_interface);
static_assert(sizeof(nd_row::interface) == nd_row_interface_size);
static_assert(offsetof(nd_row, mac) == nd_row_mac);
static_assert(offsetof(nd_row, flags) == nd_row_flags);
static_assert(offsetof(nd_row, vsysid) == 62);

struct [[gnu::packed]] nd_summary_reply {
    uint32_t total;
    uint32_t static_entries;
    uint32_t dynamic_entries;
    uint32_t unresolved; /* incomplete or failed */
};
static_assert(sizeof(nd_summary_reply) == nd_summary_size);
static_assert(offsetof(nd_summary_reply, static_entries) == 4);
static_assert(offsetof(nd_summary_reply, dynamic_entries) == 8);
static_assert(offsetof(nd_summary_reply, unresolved) == 12);

/* Options of a clear of dynamic neighbours. */
enum nd_clear_option : uint8_t { nd_clear_all = 0, nd_clear_unresolved = 1 };

} // namespace mix::wire

#endif
