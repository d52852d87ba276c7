/* What addresses of stations have in common, whatever they are configured for. */
#ifndef MIXD_HOSTS_H
#define MIXD_HOSTS_H

#include <cstdint>

#include "appliance/mixd/gateway_object.h"
#include "appliance/mixd/scenario.h"

namespace mixd
{

/* The mask of a prefix of 0 to 32 bits, host order. */
constexpr uint32_t mask_of(unsigned bits)
{
    return bits == 0 ? 0 : UINT32_MAX << (32 - bits);
}

/* An IPv4 address, host order, that a single host may have. */
constexpr bool is_host(uint32_t address)
{
    constexpr uint32_t multicast = 0xe0000000, loopback = 127;
    return address != 0 && address < multicast && address >> 24 != loopback && address >> 24 != 0;
}

inline refusal not_a_host()
{
    return {mix::wire::result_bad_value, "the address is not one of a host", "地址不是主机地址"};
}

/* A MAC address of one station: not zero, not of a group. */
constexpr bool is_station(const mac_address &mac)
{
    return mac != mac_address{} && (mac[0] & 1) == 0;
}

inline refusal not_a_station()
{
    return {mix::wire::result_bad_value, "the MAC address is zero, or one of a group",
            "MAC地址为全零或组播地址"};
}

} // namespace mixd

#endif
