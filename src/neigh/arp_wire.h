/* Wire records of the ARP service: message type 4 of the main daemon, and the virtual routers' names. */
#ifndef MIX_NEIGH_ARP_WIRE_H
#define MIX_NEIGH_ARP_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t arp_type = 4;
inline constexpr uint32_t arp_page_capacity = 3000;

enum arp_subcommand : uint32_t {
    arp_list = 2, /* also searches */
    arp_clear_dynamic = 3,
    arp_summary = 4,
    arp_scan = 6,
    arp_mac_count = 7,
    arp_mac_list = 8,
    arp_count = 9,
    arp_proxy_count = 10,
    arp_duplicate_count = 11
};

struct [[gnu::packed]] arp_request {
    uint32_t subcommand;
    uint16_t vsysid;
    uint16_t vrid;
    uint32_t second;
    uint32_t third;
    uint32_t first_request; /* list; the key word of a search */
    uint32_t budget;        /* list; the position of a search */
    uint32_t cursor;        /* list */
    uint16_t search_mode;
    uint16_t search_scope;
    uint8_t search_filter[108];
};
static_assert(sizeof(arp_request) == 140);
static_assert(offsetof(arp_request, vsysid) == 4);
static_assert(offsetof(arp_request, vrid) == 6);
static_assert(offsetof(arp_request, second) == 8);
static_assert(offsetof(arp_request, third) == 12);
static_assert(offsetof(arp_request, first_request) == 16);
static_assert(offsetof(arp_request, budget) == 20);
static_assert(offsetof(arp_request, cursor) == 24);
static_assert(offsetof(arp_request, search_mode) == 28);
static_assert(offsetof(arp_request, search_scope) == 30);
static_assert(offsetof(arp_request, search_filter) == 32);

inline constexpr uint16_t arp_search_mode = 1;

/* Before the rows of both lists. Cursor 0: no more. */
struct [[gnu::packed]] arp_page {
    uint32_t cursor;
    uint32_t count;
};
static_assert(sizeof(arp_page) == 8);
static_assert(offsetof(arp_page, cursor) == 0);
static_assert(offsetof(arp_page, count) == 4);

/* What libmix itself reads of a row; the rest belongs to the daemon and to who shows it. */
inline constexpr uint16_t arp_row_size = 56;
inline constexpr uint16_t arp_row_address = 0; /* u32 */
inline constexpr uint16_t arp_row_vrid = 8;    /* u16 */
inline constexpr uint16_t arp_row_kind = 43;   /* u8 */
inline constexpr uint8_t arp_kind_static = 0;
inline constexpr uint8_t arp_kind_static_too = 9;

inline constexpr uint32_t arp_summary_size = 24;
inline constexpr uint16_t arp_mac_row_size = 280;

struct [[gnu::packed]] arp_mac_request {
    uint32_t subcommand;
    uint32_t unused_4;
    uint32_t selector;
    uint32_t first_request;
    uint32_t budget;
    uint32_t cursor;
    uint16_t vrid;
    uint16_t vsysid;
    uint8_t mac[6];
    uint8_t has_mac;
    uint8_t first_option;
    uint8_t second_option;
    char interface[192];
    char second_name[32];
    char third_name[32];
    uint8_t display_mode;
    uint8_t unused_294[2];
};
static_assert(sizeof(arp_mac_request) == 296);
static_assert(offsetof(arp_mac_request, selector) == 8);
static_assert(offsetof(arp_mac_request, first_request) == 12);
static_assert(offsetof(arp_mac_request, budget) == 16);
static_assert(offsetof(arp_mac_request, cursor) == 20);
static_assert(offsetof(arp_mac_request, vrid) == 24);
static_assert(offsetof(arp_mac_request, vsysid) == 26);
static_assert(offsetof(arp_mac_request, mac) == 28);
static_assert(offsetof(arp_mac_request, has_mac) == 34);
static_assert(offsetof(arp_mac_request, first_option) == 35);
static_assert(offsetof(arp_mac_request, second_option) == 36);
static_assert(offsetof(arp_mac_request, interface) == 37);
static_assert(offsetof(arp_mac_request, second_name) == 229);
static_assert(offsetof(arp_mac_request, third_name) == 261);
static_assert(offsetof(arp_mac_request, display_mode) == 293);

struct [[gnu::packed]] arp_proxy_request {
    uint32_t subcommand;
    uint16_t vsysid;
    uint16_t vrid;
    uint8_t unused_8[16];
    uint8_t key[24]; /* three u64 words */
    uint32_t third;
    uint32_t unused_52;
};
static_assert(sizeof(arp_proxy_request) == 56);
static_assert(offsetof(arp_proxy_request, vsysid) == 4);
static_assert(offsetof(arp_proxy_request, vrid) == 6);
static_assert(offsetof(arp_proxy_request, key) == 24);
static_assert(offsetof(arp_proxy_request, third) == 48);

struct [[gnu::packed]] arp_duplicate_request {
    uint32_t subcommand;
    uint8_t mac[6];
    uint16_t vsysid;
};
static_assert(sizeof(arp_duplicate_request) == 12);
static_assert(offsetof(arp_duplicate_request, mac) == 4);
static_assert(offsetof(arp_duplicate_request, vsysid) == 10);

struct [[gnu::packed]] arp_clear_request {
    uint32_t subcommand;
    uint16_t vsysid;
    uint16_t unused_6;
    uint32_t third;
    uint32_t second;
    uint32_t vrid;
    uint32_t node;
    uint8_t option;
    uint8_t unused_25[3];
};
static_assert(sizeof(arp_clear_request) == 28);
static_assert(offsetof(arp_clear_request, vsysid) == 4);
static_assert(offsetof(arp_clear_request, third) == 8);
static_assert(offsetof(arp_clear_request, second) == 12);
static_assert(offsetof(arp_clear_request, vrid) == 16);
static_assert(offsetof(arp_clear_request, node) == 20);
static_assert(offsetof(arp_clear_request, option) == 24);

struct [[gnu::packed]] arp_scan_request {
    uint32_t subcommand;
    int16_t option;
    uint8_t unused_6[6];
    uint32_t first;
    uint32_t second;
    uint8_t unused_20[8];
    uint16_t vsysid;
    uint16_t unused_30;
};
static_assert(sizeof(arp_scan_request) == 32);
static_assert(offsetof(arp_scan_request, option) == 4);
static_assert(offsetof(arp_scan_request, first) == 12);
static_assert(offsetof(arp_scan_request, second) == 16);
static_assert(offsetof(arp_scan_request, vsysid) == 28);

/* Attributes of a static entry at the management gateway. */
enum arp_attribute : uint8_t {
    arp_attribute_address = 0, /* u32 */
    arp_attribute_vrid = 1,    /* u16 */
    arp_attribute_mac = 2,     /* 6 bytes */
    arp_attribute_vrname = 3,  /* text */
    arp_attribute_option = 6   /* u8 */
};

/* The name of a virtual router: a service of the configuration daemon. */
inline constexpr uint32_t vrname_daemon = 1;
inline constexpr uint32_t vrname_type = 114;
inline constexpr uint32_t vrname_size = 32;

struct [[gnu::packed]] vrname_request {
    uint32_t vrid;
};
static_assert(sizeof(vrname_request) == 4);

} // namespace mix::wire

#endif
