/* Wire records of the MAC table (message type 39) and of MAC descriptions (93), both of the main daemon. */
#ifndef MIX_L2_MAC_WIRE_H
#define MIX_L2_MAC_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t mac_type = 39;
inline constexpr uint32_t mac_page_capacity = 2000; /* of both listings */

enum mac_opcode : uint32_t { mac_list = 0, mac_summary = 1, mac_clear_dynamic = 2, mac_bound = 6 };

struct [[gnu::packed]] mac_request {
    uint32_t opcode;
    uint16_t a;
    uint16_t unused_6;
    uint32_t b;
    uint32_t start;
    uint32_t budget;
    uint32_t cursor;
    uint8_t flags;
    uint8_t mac[6];
    uint8_t unused_31;
    uint16_t c;
    uint16_t unused_34;
    uint32_t extra;
};
static_assert(sizeof(mac_request) == 40);
static_assert(offsetof(mac_request, a) == 4);
static_assert(offsetof(mac_request, b) == 8);
static_assert(offsetof(mac_request, start) == 12);
static_assert(offsetof(mac_request, budget) == 16);
static_assert(offsetof(mac_request, cursor) == 20);
static_assert(offsetof(mac_request, flags) == 24);
static_assert(offsetof(mac_request, mac) == 25);
static_assert(offsetof(mac_request, c) == 32);
static_assert(offsetof(mac_request, extra) == 36);

enum mac_filter : uint8_t {
    mac_filter_address = 1,
    mac_filter_static = 2,
    mac_filter_dynamic = 4,
    mac_filter_other = 8
};
inline constexpr uint32_t mac_extra_convert = 1; /* the listing is for a conversion to static entries */

/* Before the entries; narrower than the other listings'. Cursor 0: no more. */
struct [[gnu::packed]] mac_page {
    uint16_t cursor;
    uint16_t count;
};
static_assert(sizeof(mac_page) == 4);
static_assert(offsetof(mac_page, cursor) == 0);
static_assert(offsetof(mac_page, count) == 2);

struct [[gnu::packed]] mac_entry {
    uint8_t mac[6];
    uint16_t flags;
    uint16_t vlan;
    uint8_t daemons_own[4];
    char interface[32];
    char second_name[32];
};
static_assert(sizeof(mac_entry) == 78);
static_assert(offsetof(mac_entry, mac) == 0);
static_assert(offsetof(mac_entry, flags) == 6);
static_assert(offsetof(mac_entry, vlan) == 8);
static_assert(offsetof(mac_entry, daemons_own) == 10);
static_assert(offsetof(mac_entry, interface) == 14);
static_assert(offsetof(mac_entry, second_name) == 46);
inline constexpr uint16_t mac_entry_static = 4; /* of flags */

inline constexpr uint32_t mac_summary_size = 16;

struct [[gnu::packed]] mac_clear_request {
    uint32_t opcode;
    uint16_t a;
    uint16_t unused_6;
    uint32_t b;
    uint32_t slot;
    uint8_t mac[6];
    uint16_t unused_22;
    uint8_t has_mac;
    uint8_t unused_25[7];
};
static_assert(sizeof(mac_clear_request) == 32);
static_assert(offsetof(mac_clear_request, a) == 4);
static_assert(offsetof(mac_clear_request, b) == 8);
static_assert(offsetof(mac_clear_request, slot) == 12);
static_assert(offsetof(mac_clear_request, mac) == 16);
static_assert(offsetof(mac_clear_request, has_mac) == 24);

struct [[gnu::packed]] mac_clear_reply {
    uint32_t unused_0;
    uint32_t result;
};
static_assert(sizeof(mac_clear_reply) == 8);
static_assert(offsetof(mac_clear_reply, result) == 4);

struct [[gnu::packed]] mac_bound_request {
    uint32_t opcode;
    uint16_t a;
    uint16_t unused_6;
    uint8_t vlans[512]; /* bit v mod 8 of byte v div 8 */
};
static_assert(sizeof(mac_bound_request) == 520);
static_assert(offsetof(mac_bound_request, a) == 4);
static_assert(offsetof(mac_bound_request, vlans) == 8);

/* Attributes at the management gateway: the interface object has the first only, a static entry all. */
enum mac_attribute : uint8_t {
    mac_attribute_interface = 0,   /* text */
    mac_attribute_mac = 1,         /* 6 bytes */
    mac_attribute_second_name = 2, /* text */
    mac_attribute_vlan = 3         /* u16 */
};

inline constexpr uint32_t mac_desc_type = 93;
inline constexpr uint32_t mac_desc_list = 3; /* opcode */
inline constexpr uint16_t mac_desc_entry_size = 198;

struct [[gnu::packed]] mac_desc_request {
    uint32_t opcode;
    uint32_t start;
    uint32_t budget;
    uint32_t cursor;
    uint8_t mac[6];
    uint8_t has_mac;
    uint8_t unused_23;
    uint16_t vsysid;
    uint16_t unused_26;
};
static_assert(sizeof(mac_desc_request) == 28);
static_assert(offsetof(mac_desc_request, start) == 4);
static_assert(offsetof(mac_desc_request, budget) == 8);
static_assert(offsetof(mac_desc_request, cursor) == 12);
static_assert(offsetof(mac_desc_request, mac) == 16);
static_assert(offsetof(mac_desc_request, has_mac) == 22);
static_assert(offsetof(mac_desc_request, vsysid) == 24);

struct [[gnu::packed]] mac_desc_page {
    uint32_t cursor;
    uint32_t count;
};
static_assert(sizeof(mac_desc_page) == 8);
static_assert(offsetof(mac_desc_page, count) == 4);

/* Attributes of a description at the management gateway. */
enum mac_desc_attribute : uint8_t {
    mac_desc_attribute_mac = 0, /* 6 bytes */
    mac_desc_attribute_text = 1 /* text */
};

} // namespace mix::wire

#endif
