/*
 * What the spoofing protection puts into its rows, and what it takes selectors for. The requests are libmix's
 * (src/neigh/spoofing_wire.h); here stands what libmix passes on unread.
 *
 * Numbers are little-endian, IPv4 addresses are host order numbers (10.1.2.3 is 0x0a010203), IPv6 and MAC
 * addresses bytes in wire order, names terminated.
 *
 * Clearing the ARP statistics of one MAC takes a VLAN id as its selector, 0 for all VLANs. The ND list's word
 * is the least number of dropped packets (all three checks together) that a row must have, 0 for all rows.
 */
#ifndef MIX_APPLIANCE_WIRE_SPOOFING_H
#define MIX_APPLIANCE_WIRE_SPOOFING_H

#include "neigh/spoofing_wire.h"

namespace mix::wire
{

/* Packets dropped, by the check that they failed. */
struct [[gnu::packed]] spoofing_drops {
    uint32_t mac;     /* the sender's MAC is not the frame's */
    uint32_t reverse; /* the address is bound to another MAC */
    uint32_t rate;    /* more packets than the limit */
};
static_assert(sizeof(spoofing_drops) == 12);
static_assert(offsetof(spoofing_drops, reverse) == 4);
static_assert(offsetof(spoofing_drops, rate) == 8);

/* What one MAC address did in one VLAN. */
struct [[gnu::packed]] aspf_row {
    uint8_t mac[6];
    uint16_t vsysid;
    uint16_t vlan; /* 0: untagged */
    uint16_t unused_10;
    uint32_t address; /* claimed last */
    char interface[16];
    spoofing_drops dropped;
    uint32_t last; /* seconds since 1970 */
};
static_assert(sizeof(aspf_row) == aspf_row_size);
static_assert(offsetof(aspf_row, vsysid) == 6);
static_assert(offsetof(aspf_row, vlan) == 8);
static_assert(offsetof(aspf_row, address) == 12);
static_assert(offsetof(aspf_row, interface) == 16);
static_assert(offsetof(aspf_row, dropped) == 32);
static_assert(offsetof(aspf_row, last) == 44);

/* What was done in the name of one IPv6 address. */
struct [[gnu::packed]] ndspf_row {
    uint8_t address[16];
    uint8_t mac[6]; /* that claimed it last */
    uint16_t vsysid;
    char interface[16];
    spoofing_drops dropped;
    uint32_t last; /* seconds since 1970 */
};
static_assert(sizeof(ndspf_row) == ndspf_row_size);
static_assert(offsetof(ndspf_row, mac) == 16);
static_assert(offsetof(ndspf_row, vsysid) == 22);
static_assert(offsetof(ndspf_row, interface) == 24);
static_assert(offsetof(ndspf_row, dropped) == 40);
static_assert(offsetof(ndspf_row, last) == 52);

/*
 * How inspection settings are selected. A name that is empty selects all, a number that is 0 too. By
 * interface, ARP requests have the name in the interface field or, where that is empty, in the selector; when
 * they have VLAN numbers these select instead of the name: settings that apply to any VLAN of the range.
 */
enum inspection_mode : uint8_t {
    inspection_by_vlan = 0, /* the number is a VLAN id */
    inspection_by_policy = 1,
    inspection_by_interface = 2
};

enum inspection_flag : uint8_t {
    inspection_enabled = 1,
    inspection_trusted = 2, /* what comes from there is let through unchecked */
    inspection_log_only = 4 /* bad packets are counted, not dropped */
};

/* Which checks are made. */
enum inspection_check : uint8_t {
    inspection_checks_mac = 1,
    inspection_checks_reverse = 2,
    inspection_checks_rate = 4
};

struct [[gnu::packed]] ndi_row {
    uint16_t vsysid;
    uint16_t first_vlan; /* 0: every VLAN */
    uint16_t last_vlan;
    uint16_t rate; /* packets a second, 0: no limit */
    uint8_t flags;
    uint8_t checks;
    char interface[16];
    char policy[12];
};
static_assert(sizeof(ndi_row) == ndi_row_size);
static_assert(offsetof(ndi_row, first_vlan) == 2);
static_assert(offsetof(ndi_row, last_vlan) == 4);
static_assert(offsetof(ndi_row, rate) == 6);
static_assert(offsetof(ndi_row, flags) == 8);
static_assert(offsetof(ndi_row, checks) == 9);
static_assert(offsetof(ndi_row, interface) == 10);
static_assert(offsetof(ndi_row, policy) == 26);

/* The same with a description behind. */
struct [[gnu::packed]] arpi_row {
    ndi_row setting;
    char description[32];
};
static_assert(sizeof(arpi_row) == arpi_row_size);
static_assert(offsetof(arpi_row, description) == 38);

} // namespace mix::wire

#endif
