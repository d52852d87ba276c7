/* Wire records of the gratuitous-ARP send list: message type 88 of the main local daemon. */
#ifndef MIX_NEIGH_GAS_WIRE_H
#define MIX_NEIGH_GAS_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t gas_type = 88;
inline constexpr uint32_t gas_list = 0, gas_lookup = 3;
inline constexpr uint32_t gas_page_capacity = 2000;
inline constexpr uint16_t gas_row_size = 76;

struct [[gnu::packed]] gas_list_request {
    uint32_t subcommand;
    uint16_t cursor;
    uint16_t selector;
};
static_assert(sizeof(gas_list_request) == 8);
static_assert(offsetof(gas_list_request, cursor) == 4);
static_assert(offsetof(gas_list_request, selector) == 6);

struct [[gnu::packed]] gas_page {
    uint16_t cursor;
    uint16_t count;
};
static_assert(sizeof(gas_page) == 4);
static_assert(offsetof(gas_page, cursor) == 0);
static_assert(offsetof(gas_page, count) == 2);

struct [[gnu::packed]] gas_lookup_request {
    uint32_t subcommand;
    uint32_t address;
    uint16_t selector;
    uint8_t zero[10];
};
static_assert(sizeof(gas_lookup_request) == 20);
static_assert(offsetof(gas_lookup_request, address) == 4);
static_assert(offsetof(gas_lookup_request, selector) == 8);

/* Attributes of the sender object, by number. */
enum gas_attribute : uint8_t { gas_address, gas_ifname, gas_second, gas_mac, gas_option };

} // namespace mix::wire

#endif
