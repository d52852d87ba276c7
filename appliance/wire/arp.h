/*
 * What the ARP service puts into its rows, and what it takes selectors for. The requests are libmix's
 * (src/neigh/arp_wire.h); here stands what libmix passes on unread.
 *
 * Numbers are little-endian, IPv4 addresses are host order numbers (10.1.2.3 is 0x0a010203), MAC addresses
 * six bytes in wire order, names terminated.
 *
 * Selectors of lists, counts and clears: second is the low 16 bits of an interface's index, 0 for all; third
 * is an IPv4 address, 0 for all; virtual router 0 stands for all of them, the usual one is 1.
 */
#ifndef MIX_APPLIANCE_WIRE_ARP_H
#define MIX_APPLIANCE_WIRE_ARP_H

#include <cstddef>
#include <cstdint>

#include "neigh/arp_wire.h"

namespace mix::wire
{

inline constexpr uint16_t usual_virtual_router = 1;
inline constexpr size_t short_name_size = 16; /* of an interface, terminator included */
inline constexpr size_t long_name_size = 32;

enum arp_kind : uint8_t {
    arp_is_static = arp_kind_static,         /* configured */
    arp_is_dynamic = 1,                      /* learned */
    arp_is_permanent = 2,                    /* put into the kernel by somebody else */
    arp_is_static_idle = arp_kind_static_too /* configured, no interface has its network: not in force */
};

enum arp_state : uint8_t {
    arp_state_none = 0,
    arp_state_incomplete = 1,
    arp_state_reachable = 2,
    arp_state_stale = 3,
    arp_state_delay = 4,
    arp_state_probe = 5,
    arp_state_failed = 6,
    arp_state_permanent = 7
};

struct [[gnu::packed]] arp_row {
    uint32_t address;
    uint32_t interface_index; /* 0: none */
    uint16_t vrid;
    uint16_t vsysid;
    uint8_t mac[6]; /* zero while it is not known */
    uint16_t unused_18;
    uint32_t unused_20;
    char interface[short_name_size];
    uint8_t state;
    uint8_t is_router;
    uint8_t option; /* of a static entry, as it was configured */
    uint8_t kind;
    uint32_t age; /* seconds since the state was last confirmed */
    uint32_t unused_48[2];
};
static_assert(sizeof(arp_row) == arp_row_size);
static_assert(offsetof(arp_row, address) == arp_row_address);
static_assert(offsetof(arp_row, interface_index) == 4);
static_assert(offsetof(arp_row, vrid) == arp_row_vrid);
static_assert(offsetof(arp_row, vsysid) == 10);
static_assert(offsetof(arp_row, mac) == 12);
static_assert(offsetof(arp_row, interface) == 24);
static_assert(offsetof(arp_row, state) == 40);
static_assert(offsetof(arp_row, is_router) == 41);
static_assert(offsetof(arp_row, option) == 42);
static_assert(offsetof(arp_row, kind) == arp_row_kind);
static_assert(offsetof(arp_row, age) == 44);

/* Entries of the virtual system and router asked for. */
struct [[gnu::packed]] arp_summary_reply {
    uint32_t total;
    uint32_t static_entries; /* in force or not */
    uint32_t dynamic_entries;
    uint32_t incomplete;
    uint32_t failed;
    uint32_t proxies;
};
static_assert(sizeof(arp_summary_reply) == arp_summary_size);
static_assert(offsetof(arp_summary_reply, static_entries) == 4);
static_assert(offsetof(arp_summary_reply, dynamic_entries) == 8);
static_assert(offsetof(arp_summary_reply, incomplete) == 12);
static_assert(offsetof(arp_summary_reply, failed) == 16);
static_assert(offsetof(arp_summary_reply, proxies) == 20);

/* A search: the key word says by which fields of the filter (bits), the scope word is the virtual router. */
enum arp_search_key : uint32_t {
    arp_search_prefix = 1,
    arp_search_mac = 2,
    arp_search_interface = 4,
    arp_search_state = 8,
    arp_search_kind = 16
};

struct [[gnu::packed]] arp_search_filter {
    uint32_t address;
    uint32_t mask;
    uint8_t mac[6];
    uint8_t state;
    uint8_t kind;
    char interface[short_name_size];
    uint16_t vsysid;
    uint8_t unused_34[74];
};
static_assert(sizeof(arp_search_filter) == sizeof(arp_request::search_filter));
static_assert(offsetof(arp_search_filter, mask) == 4);
static_assert(offsetof(arp_search_filter, mac) == 8);
static_assert(offsetof(arp_search_filter, state) == 14);
static_assert(offsetof(arp_search_filter, kind) == 15);
static_assert(offsetof(arp_search_filter, interface) == 16);
static_assert(offsetof(arp_search_filter, vsysid) == 32);

/* The key of a proxy count: proxies within a prefix (mask 0: all), on an interface (empty: on any). */
struct [[gnu::packed]] arp_proxy_key {
    uint32_t address;
    uint32_t mask;
    char interface[short_name_size];
};
static_assert(sizeof(arp_proxy_key) == sizeof(arp_proxy_request::key));
static_assert(offsetof(arp_proxy_key, mask) == 4);
static_assert(offsetof(arp_proxy_key, interface) == 8);

/*
 * The joined list. Its selector is an IPv4 address (0: all), the first option an entry kind plus 1 (0: all),
 * the second a state plus 1; the interface name may be several, separated by commas; the second name is the
 * port the MAC table has the address at, the third the interface (the bridge) of that entry.
 */
enum arp_mac_display : uint8_t {
    arp_mac_with_entry = 1, /* rows whose address the MAC table has */
    arp_mac_all = 2,
    arp_mac_without_entry = 3
};

struct [[gnu::packed]] arp_mac_row {
    arp_row arp;
    uint16_t vlan;
    uint16_t mac_flags; /* as in a MAC table entry */
    uint8_t in_mac_table;
    uint8_t unused_61[3];
    char mac_interface[long_name_size];
    char port[long_name_size];
    char description[112]; /* of the MAC address; longer ones are cut */
    char vrname[long_name_size];
    uint32_t mac_age;
    uint32_t unused_276;
};
static_assert(sizeof(arp_mac_row) == arp_mac_row_size);
static_assert(offsetof(arp_mac_row, vlan) == 56);
static_assert(offsetof(arp_mac_row, mac_flags) == 58);
static_assert(offsetof(arp_mac_row, in_mac_table) == 60);
static_assert(offsetof(arp_mac_row, mac_interface) == 64);
static_assert(offsetof(arp_mac_row, port) == 96);
static_assert(offsetof(arp_mac_row, description) == 128);
static_assert(offsetof(arp_mac_row, vrname) == 240);
static_assert(offsetof(arp_mac_row, mac_age) == 272);

/* Options of a clear of dynamic entries. */
enum arp_clear_option : uint8_t { arp_clear_all = 0, arp_clear_unresolved = 1 };

/* An active scan: first and second are the first and the last address asked for; its option is an interface's
 * index, 0 for every interface that has the addresses' network. At most this many addresses: */
inline constexpr uint32_t arp_scan_most = 4096;

} // namespace mix::wire

#endif
