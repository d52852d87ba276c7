/*
 * Wire records of spoofing protection: statistics at the main local daemon (ARP: message type 90, ND: 138),
 * inspection settings at daemon 1 (ARP: 100, ND: 137).
 */
#ifndef MIX_NEIGH_SPOOFING_WIRE_H
#define MIX_NEIGH_SPOOFING_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t aspf_type = 90;
inline constexpr uint32_t ndspf_type = 138;
inline constexpr uint32_t inspection_daemon = 1;
inline constexpr uint32_t arpi_type = 100;
inline constexpr uint32_t ndi_type = 137;

inline constexpr uint32_t aspf_list = 0, aspf_clear_all = 1, aspf_clear_one = 2;
inline constexpr uint32_t ndspf_list = 0, ndspf_clear_all = 1;
inline constexpr uint32_t inspection_show = 1;

inline constexpr uint16_t aspf_row_size = 48;
inline constexpr uint16_t ndspf_row_size = 56;
inline constexpr uint16_t arpi_row_size = 70;
inline constexpr uint16_t ndi_row_size = 38;
inline constexpr uint32_t statistics_capacity = 2000;
inline constexpr uint32_t inspection_capacity = 3000;

/* ARP and ND statistics ask alike; the last word is the rows still wanted for ARP, the caller's for ND. */
struct [[gnu::packed]] spoofing_list_request {
    uint32_t subcommand;
    uint16_t cursor;
    uint16_t vsysid;
    uint32_t word;
};
static_assert(sizeof(spoofing_list_request) == 12);
static_assert(offsetof(spoofing_list_request, cursor) == 4);
static_assert(offsetof(spoofing_list_request, vsysid) == 6);
static_assert(offsetof(spoofing_list_request, word) == 8);

struct [[gnu::packed]] aspf_page {
    uint16_t cursor;
    uint16_t count;
};
static_assert(sizeof(aspf_page) == 4);
static_assert(offsetof(aspf_page, count) == 2);

struct [[gnu::packed]] ndspf_page {
    uint16_t cursor;
    uint16_t count;
    uint32_t reserved;
};
static_assert(sizeof(ndspf_page) == 8);
static_assert(offsetof(ndspf_page, count) == 2);

struct [[gnu::packed]] aspf_clear_request {
    uint32_t subcommand;
    uint16_t vsysid;
    uint16_t selector; /* with a MAC only */
    uint8_t mac[6];
    uint8_t zero[2];
};
static_assert(sizeof(aspf_clear_request) == 16);
static_assert(offsetof(aspf_clear_request, vsysid) == 4);
static_assert(offsetof(aspf_clear_request, selector) == 6);
static_assert(offsetof(aspf_clear_request, mac) == 8);

struct [[gnu::packed]] ndspf_clear_request {
    uint32_t subcommand;
    uint16_t vsysid;
    uint16_t zero;
};
static_assert(sizeof(ndspf_clear_request) == 8);
static_assert(offsetof(ndspf_clear_request, vsysid) == 4);

/* What an inspection request selects by: a name in modes 1 and 2, a number in all others. */
union [[gnu::packed]] inspection_selector {
    char name[32];
    uint16_t number;
};
static_assert(sizeof(inspection_selector) == 32);

struct [[gnu::packed]] arpi_request {
    uint32_t subcommand;
    uint8_t mode; /* here and in the ND request mode and virtual system change places */
    uint8_t zero;
    uint16_t vsysid;
    inspection_selector selector;
    char ifname[32];
    uint16_t first_vlan;
    uint16_t last_vlan;
    uint32_t rows_per_page;
    uint32_t cursor;
};
static_assert(sizeof(arpi_request) == 84);
static_assert(offsetof(arpi_request, mode) == 4);
static_assert(offsetof(arpi_request, vsysid) == 6);
static_assert(offsetof(arpi_request, selector) == 8);
static_assert(offsetof(arpi_request, ifname) == 40);
static_assert(offsetof(arpi_request, first_vlan) == 72);
static_assert(offsetof(arpi_request, last_vlan) == 74);
static_assert(offsetof(arpi_request, rows_per_page) == 76);
static_assert(offsetof(arpi_request, cursor) == 80);

struct [[gnu::packed]] ndi_request {
    uint32_t subcommand;
    uint16_t vsysid;
    uint8_t mode;
    uint8_t zero;
    inspection_selector selector;
    uint32_t rows_per_page;
    uint32_t cursor;
};
static_assert(sizeof(ndi_request) == 48);
static_assert(offsetof(ndi_request, vsysid) == 4);
static_assert(offsetof(ndi_request, mode) == 6);
static_assert(offsetof(ndi_request, selector) == 8);
static_assert(offsetof(ndi_request, rows_per_page) == 40);
static_assert(offsetof(ndi_request, cursor) == 44);

/* Count first: the other way round than everywhere else. */
struct [[gnu::packed]] inspection_page {
    uint32_t count;
    uint32_t cursor;
};
static_assert(sizeof(inspection_page) == 8);
static_assert(offsetof(inspection_page, count) == 0);
static_assert(offsetof(inspection_page, cursor) == 4);

/* The most rows that a page holds. */
inline constexpr uint32_t arpi_rows_per_page =
    (inspection_capacity - sizeof(inspection_page)) / arpi_row_size;
inline constexpr uint32_t ndi_rows_per_page = (inspection_capacity - sizeof(inspection_page)) / ndi_row_size;
static_assert(arpi_rows_per_page == 42);
static_assert(ndi_rows_per_page == 78);

} // namespace mix::wire

#endif
