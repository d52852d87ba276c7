/*
 * What the gratuitous-ARP senders' service puts into its rows, and what it takes values for. The requests are
 * libmix's (src/neigh/gas_wire.h); here stands what libmix passes on unread.
 *
 * A sender's opaque word is the seconds between two announcements, its option byte says in which forms they
 * are made (gas_form). Selectors of the list and of the single lookup are a virtual router, 0 for all. The
 * lookup's answer is four bytes, a gas_state.
 */
#ifndef MIX_APPLIANCE_WIRE_GAS_H
#define MIX_APPLIANCE_WIRE_GAS_H

#include "neigh/gas_wire.h"

namespace mix::wire
{

inline constexpr uint64_t gas_longest_interval = 86400;

enum gas_form : uint8_t {
    gas_as_request = 1, /* asks for its own address */
    gas_as_reply = 2,   /* an answer that nobody asked for */
    gas_every_form = gas_as_request | gas_as_reply
};

enum gas_state : uint32_t {
    gas_configured = 0, /* the system is not told of it */
    gas_waiting = 1,    /* its interface is not there */
    gas_announcing = 2,
    gas_failing = 3 /* the last announcement could not be sent */
};

struct [[gnu::packed]] gas_row {
    uint32_t address; /* host order number */
    uint8_t mac[6];
    uint8_t option; /* bits of gas_form */
    uint8_t state;  /* gas_state */
    uint32_t interval;
    uint32_t sent;  /* announcements since mixd started or the sender was added */
    uint32_t error; /* failing: errno of the last announcement */
    uint16_t vrid;  /* of the interface */
    uint16_t unused_26;
    char interface[32];
    uint8_t unused_60[16];
};
static_assert(sizeof(gas_row) == gas_row_size);
static_assert(offsetof(gas_row, mac) == 4);
static_assert(offsetof(gas_row, option) == 10);
static_assert(offsetof(gas_row, state) == 11);
static_assert(offsetof(gas_row, interval) == 12);
static_assert(offsetof(gas_row, sent) == 16);
static_assert(offsetof(gas_row, error) == 20);
static_assert(offsetof(gas_row, vrid) == 24);
static_assert(offsetof(gas_row, interface) == 28);

} // namespace mix::wire

#endif
