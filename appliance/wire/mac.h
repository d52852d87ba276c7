/*
 * What the MAC table and the MAC descriptions put into their rows, and what they take selectors for. The
 * requests are libmix's (src/l2/mac_wire.h).
 *
 * Selectors of the MAC table: a is a VLAN id, 0 for all; b the low 16 bits of the index of the interface (the
 * bridge); c that of the port.
 */
#ifndef MIX_APPLIANCE_WIRE_MAC_H
#define MIX_APPLIANCE_WIRE_MAC_H

#include "l2/mac_wire.h"

namespace mix::wire
{

inline constexpr uint16_t highest_vlan = 4094;

/* Flags of an entry beside mac_entry_static. */
enum mac_entry_flag : uint16_t {
    mac_entry_local = 1,            /* an address of the appliance itself */
    mac_entry_idle = 2,             /* configured, its interface or port is not there: not in force */
    mac_entry_learned_elsewhere = 8 /* learned by a controller, not from traffic */
};

/* The four bytes of an entry that are the daemon's own. */
struct [[gnu::packed]] mac_entry_own {
    uint32_t age; /* seconds since a frame came from there */
};
static_assert(sizeof(mac_entry_own) == sizeof(mac_entry::daemons_own));

struct [[gnu::packed]] mac_summary_reply {
    uint32_t total;
    uint32_t static_entries;
    uint32_t dynamic_entries;
    uint32_t local_entries;
};
static_assert(sizeof(mac_summary_reply) == mac_summary_size);
static_assert(offsetof(mac_summary_reply, static_entries) == 4);
static_assert(offsetof(mac_summary_reply, dynamic_entries) == 8);
static_assert(offsetof(mac_summary_reply, local_entries) == 12);

struct [[gnu::packed]] mac_description_row {
    uint8_t mac[6];
    uint16_t vsysid;
    char description[128];
    uint64_t changed; /* seconds since 1970 */
    uint8_t unused_144[54];
};
static_assert(sizeof(mac_description_row) == mac_desc_entry_size);
static_assert(offsetof(mac_description_row, mac) == 0);
static_assert(offsetof(mac_description_row, vsysid) == 6);
static_assert(offsetof(mac_description_row, description) == 8);
static_assert(offsetof(mac_description_row, changed) == 136);

} // namespace mix::wire

#endif
