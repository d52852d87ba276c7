/* Wire records of DHCP snooping: message type 95 of the main daemon, and its settings at the gateway. */
#ifndef MIX_L2_DHCPSN_WIRE_H
#define MIX_L2_DHCPSN_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t dhcpsn_type = 95;
inline constexpr uint32_t dhcpsn_page_capacity = 3000;

enum dhcpsn_opcode : uint32_t { dhcpsn_list = 0, dhcpsn_clear_dynamic = 1, dhcpsn_count = 3 };

struct [[gnu::packed]] dhcpsn_request {
    uint32_t opcode;
    uint16_t has_vlan;
    uint16_t vlan_or_c;
    uint16_t b;
    uint8_t mac[6];
    uint8_t has_mac;
    uint8_t unused_17[3];
    uint32_t d;
    uint32_t cursor;
    uint32_t start;
    uint32_t budget;
};
static_assert(sizeof(dhcpsn_request) == 36);
static_assert(offsetof(dhcpsn_request, has_vlan) == 4);
static_assert(offsetof(dhcpsn_request, vlan_or_c) == 6);
static_assert(offsetof(dhcpsn_request, b) == 8);
static_assert(offsetof(dhcpsn_request, mac) == 10);
static_assert(offsetof(dhcpsn_request, has_mac) == 16);
static_assert(offsetof(dhcpsn_request, d) == 20);
static_assert(offsetof(dhcpsn_request, cursor) == 24);
static_assert(offsetof(dhcpsn_request, start) == 28);
static_assert(offsetof(dhcpsn_request, budget) == 32);

struct [[gnu::packed]] dhcpsn_page {
    uint32_t cursor;
    uint32_t count;
};
static_assert(sizeof(dhcpsn_page) == 8);
static_assert(offsetof(dhcpsn_page, cursor) == 0);
static_assert(offsetof(dhcpsn_page, count) == 4);

inline constexpr uint16_t dhcpsn_binding_size = 80;

struct [[gnu::packed]] dhcpsn_clear_request {
    uint32_t opcode;
    uint16_t a;
    uint16_t c;
    uint32_t b;
};
static_assert(sizeof(dhcpsn_clear_request) == 12);
static_assert(offsetof(dhcpsn_clear_request, a) == 4);
static_assert(offsetof(dhcpsn_clear_request, c) == 6);
static_assert(offsetof(dhcpsn_clear_request, b) == 8);

/* Attributes of an interface's settings at the management gateway. */
enum dhcpsn_attribute : uint8_t {
    dhcpsn_attribute_interface = 0,     /* text */
    dhcpsn_attribute_enable = 1,        /* u8 */
    dhcpsn_attribute_rate_limit = 2,    /* u16 */
    dhcpsn_attribute_deny_request = 3,  /* u8 */
    dhcpsn_attribute_deny_response = 4, /* u8 */
    dhcpsn_attribute_validity = 5       /* u8 */
};

/* What settings are read back: the cookie of the read. */
struct [[gnu::packed]] dhcpsn_selection {
    char interface[32];
    uint16_t vlan;
    uint16_t selector;
    uint16_t marker;
    uint16_t request_count;
    uint32_t unused_40;
};
static_assert(sizeof(dhcpsn_selection) == 44);
static_assert(offsetof(dhcpsn_selection, vlan) == 32);
static_assert(offsetof(dhcpsn_selection, selector) == 34);
static_assert(offsetof(dhcpsn_selection, marker) == 36);
static_assert(offsetof(dhcpsn_selection, request_count) == 38);

inline constexpr uint16_t dhcpsn_marker_interface = 256;
inline constexpr uint16_t dhcpsn_marker_all_vlans = 4;
inline constexpr uint16_t dhcpsn_every_interface = 255; /* selector */
inline constexpr uint16_t dhcpsn_one = 1;               /* rows asked for by name or id */
inline constexpr uint16_t dhcpsn_many = 50;             /* rows of a batch otherwise */

/* Before the rows of a batch: the cookie to go on with, and their number. */
struct [[gnu::packed]] dhcpsn_batch {
    uint8_t cookie[44];
    uint16_t count;
};
static_assert(sizeof(dhcpsn_batch) == 46);
static_assert(offsetof(dhcpsn_batch, count) == 44);

inline constexpr uint16_t dhcpsn_setting_size = 40;

} // namespace mix::wire

#endif
