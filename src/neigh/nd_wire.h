/* Wire records of the IPv6 neighbour service: message type 133 of the main daemon. */
#ifndef MIX_NEIGH_ND_WIRE_H
#define MIX_NEIGH_ND_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t nd_type = 133;
inline constexpr uint32_t nd_page_capacity = 3000;

enum nd_subcommand : uint32_t {
    nd_list = 2,
    nd_filtered_list = 3,
    nd_clear_dynamic = 4,
    nd_summary = 6,
    nd_static_list = 8
};

struct [[gnu::packed]] nd_request {
    uint32_t subcommand;
    uint32_t first;
    uint32_t second;
    uint16_t vsysid;
    uint16_t unused_14;
    uint8_t address[16];
    uint32_t first_request;
    uint32_t budget;
    uint32_t cursor;
    uint32_t unused_44;
};
static_assert(sizeof(nd_request) == 48);
static_assert(offsetof(nd_request, first) == 4);
static_assert(offsetof(nd_request, second) == 8);
static_assert(offsetof(nd_request, vsysid) == 12);
static_assert(offsetof(nd_request, address) == 16);
static_assert(offsetof(nd_request, first_request) == 32);
static_assert(offsetof(nd_request, budget) == 36);
static_assert(offsetof(nd_request, cursor) == 40);

struct [[gnu::packed]] nd_page {
    uint32_t cursor;
    uint32_t count;
};
static_assert(sizeof(nd_page) == 8);
static_assert(offsetof(nd_page, cursor) == 0);
static_assert(offsetof(nd_page, count) == 4);

struct [[gnu::packed]] nd_filtered_request {
    uint32_t subcommand;
    uint32_t vrid;
    uint32_t selector;
    uint16_t vsysid;
    uint16_t unused_14;
    uint8_t address[16];
    uint8_t option;
    uint8_t mac[6];
    uint8_t unused_39;
    uint32_t first_request;
    uint32_t budget;
    uint32_t cursor;
    uint32_t unused_52;
};
static_assert(sizeof(nd_filtered_request) == 56);
static_assert(offsetof(nd_filtered_request, vrid) == 4);
static_assert(offsetof(nd_filtered_request, selector) == 8);
static_assert(offsetof(nd_filtered_request, vsysid) == 12);
static_assert(offsetof(nd_filtered_request, address) == 16);
static_assert(offsetof(nd_filtered_request, option) == 32);
static_assert(offsetof(nd_filtered_request, mac) == 33);
static_assert(offsetof(nd_filtered_request, first_request) == 40);
static_assert(offsetof(nd_filtered_request, budget) == 44);
static_assert(offsetof(nd_filtered_request, cursor) == 48);

/* A filtered page also tells how many neighbours match in all. */
struct [[gnu::packed]] nd_filtered_page {
    uint32_t cursor;
    uint32_t count;
    uint32_t total;
    uint32_t reserved;
};
static_assert(sizeof(nd_filtered_page) == 16);
static_assert(offsetof(nd_filtered_page, cursor) == 0);
static_assert(offsetof(nd_filtered_page, count) == 4);
static_assert(offsetof(nd_filtered_page, total) == 8);

/* What libmix itself reads of a row; the rest belongs to the daemon and to who shows it. */
inline constexpr uint16_t nd_row_size = 64;
inline constexpr uint16_t nd_row_address = 0; /* 16 bytes */
inline constexpr uint16_t nd_row_interface = 22;
inline constexpr uint16_t nd_row_interface_size = 32;
inline constexpr uint16_t nd_row_mac = 54;   /* 6 bytes */
inline constexpr uint16_t nd_row_flags = 61; /* u8 */
inline constexpr uint8_t nd_flag_static = 2;
inline constexpr uint8_t nd_state_shift = 2; /* three bits of the flags */
inline constexpr uint8_t nd_state_mask = 7;
inline constexpr uint8_t nd_state_kept = 2; /* neighbours in this state are never converted */

struct [[gnu::packed]] nd_clear_request {
    uint32_t subcommand;
    uint32_t unused_4;
    uint8_t address[16];
    uint16_t third;
    uint16_t second;
    uint16_t first;
    uint16_t unused_30;
    uint32_t node;
    uint8_t option;
    uint8_t unused_37[3];
};
static_assert(sizeof(nd_clear_request) == 40);
static_assert(offsetof(nd_clear_request, address) == 8);
static_assert(offsetof(nd_clear_request, third) == 24);
static_assert(offsetof(nd_clear_request, second) == 26);
static_assert(offsetof(nd_clear_request, first) == 28);
static_assert(offsetof(nd_clear_request, node) == 32);
static_assert(offsetof(nd_clear_request, option) == 36);

struct [[gnu::packed]] nd_summary_request {
    uint32_t subcommand;
    uint16_t second;
    uint8_t unused_6[6];
    uint16_t first;
    uint8_t unused_14[34];
};
static_assert(sizeof(nd_summary_request) == 48);
static_assert(offsetof(nd_summary_request, second) == 4);
static_assert(offsetof(nd_summary_request, first) == 12);

inline constexpr uint32_t nd_summary_size = 16;

/* Attributes of a static neighbour at the management gateway. */
enum nd_attribute : uint8_t {
    nd_attribute_address = 0,   /* 16 bytes */
    nd_attribute_interface = 1, /* text */
    nd_attribute_mac = 2        /* 6 bytes */
};

} // namespace mix::wire

#endif
