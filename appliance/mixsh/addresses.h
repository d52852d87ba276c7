// Addresses of rows as text, by the library's own converters.
#ifndef MIXSH_ADDRESSES_H
#define MIXSH_ADDRESSES_H

#include "appliance/wire/text.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <fmt/format.h>
#include <libmix/ip_util.h>

namespace mixsh
{

inline std::string ipv4_text(std::uint32_t address)
{
    char text[16] = {};
    ipv4_2_str(address, text, sizeof text);
    return text;
}

inline std::string ipv6_text(const std::uint8_t (&address)[16])
{
    char text[64] = {};
    ipv6_2_str(address, text, sizeof text);
    return text;
}

// Empty while the address is not known.
inline std::string mac_text(const std::uint8_t (&mac)[6])
{
    constexpr std::uint8_t unknown[6] = {};
    if (std::memcmp(mac, unknown, sizeof unknown) == 0)
        return {};
    return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", mac[0], mac[1], mac[2], mac[3], mac[4],
                       mac[5]);
}

// What stands in a record's field, terminated or not.
template <std::size_t Size>
std::string field_text(const char (&field)[Size])
{
    return std::string(mix::wire::text_in(field));
}

// "10.1.0.0/16", which its kind has found to be a prefix.
struct ipv4_prefix_value {
    std::uint32_t address;
    std::uint32_t mask;
};
inline ipv4_prefix_value prefix_value(const char *text)
{
    const std::string_view all(text);
    const std::size_t slash = all.find('/');
    std::uint32_t address = 0;
    ipv4str_2_uint(std::string(all.substr(0, slash)).c_str(), &address);
    const std::uint32_t bits =
        slash == std::string_view::npos ? 32 : std::strtoul(text + slash + 1, nullptr, 10);
    return {address, masknum_2_v4(bits)};
}

} // namespace mixsh

#endif
