/*
 * What DHCP snooping puts into its rows, and what it takes selectors for. The requests are libmix's
 * (src/l2/dhcpsn_wire.h).
 *
 * Selectors of the bindings: b is a dhcpsn_kind plus 1, 0 for all; c the low 16 bits of an interface's index,
 * 0 for all (it counts without a VLAN id only); d an IPv4 address (host order), 0 for all. Of a clear: a is a
 * VLAN id, b an address, c an interface's index, 0 for all of each.
 */
#ifndef MIX_APPLIANCE_WIRE_DHCPSN_H
#define MIX_APPLIANCE_WIRE_DHCPSN_H

#include "l2/dhcpsn_wire.h"

namespace mix::wire
{

enum dhcpsn_kind : uint8_t { dhcpsn_is_static = 0, dhcpsn_is_dynamic = 1 };

inline constexpr uint32_t dhcpsn_for_ever = 0xffffffff;

struct [[gnu::packed]] dhcpsn_binding {
    uint8_t mac[6];
    uint16_t vlan; /* 0: not known */
    uint32_t address;
    uint32_t left; /* seconds of the lease */
    char interface[32];
    char host[24]; /* the name that the client gave; longer ones are cut */
    uint8_t kind;
    uint8_t unused_73[7];
};
static_assert(sizeof(dhcpsn_binding) == dhcpsn_binding_size);
static_assert(offsetof(dhcpsn_binding, mac) == 0);
static_assert(offsetof(dhcpsn_binding, vlan) == 6);
static_assert(offsetof(dhcpsn_binding, address) == 8);
static_assert(offsetof(dhcpsn_binding, left) == 12);
static_assert(offsetof(dhcpsn_binding, interface) == 16);
static_assert(offsetof(dhcpsn_binding, host) == 48);
static_assert(offsetof(dhcpsn_binding, kind) == 72);

/* A row of settings. The settings of a VLAN are those of the interface "vlan" and its id. */
struct [[gnu::packed]] dhcpsn_setting {
    char interface[32];
    uint8_t enable;
    uint8_t deny_request;
    uint8_t deny_response;
    uint8_t validity;
    uint16_t rate_limit; /* messages a second, 0: any number */
    uint16_t vlan;       /* of a VLAN's settings, else 0 */
};
static_assert(sizeof(dhcpsn_setting) == dhcpsn_setting_size);
static_assert(offsetof(dhcpsn_setting, enable) == 32);
static_assert(offsetof(dhcpsn_setting, deny_request) == 33);
static_assert(offsetof(dhcpsn_setting, deny_response) == 34);
static_assert(offsetof(dhcpsn_setting, validity) == 35);
static_assert(offsetof(dhcpsn_setting, rate_limit) == 36);
static_assert(offsetof(dhcpsn_setting, vlan) == 38);

/* Selectors of a read of interfaces' settings, beside dhcpsn_every_interface. */
enum dhcpsn_selector : uint8_t { dhcpsn_enabled_interfaces = 1, dhcpsn_disabled_interfaces = 2 };

/* In a batch's cookie this stands for unused_40: the read goes on behind the named interface. */
inline constexpr uint32_t dhcpsn_goes_on = 1;

} // namespace mix::wire

#endif
