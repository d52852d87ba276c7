#include <libmix/ip_util.h>

#include <cstring>

namespace
{

struct mac_words {
    uint16_t word[3];
};

mac_words words_of(const uint8_t *mac)
{
    mac_words words;
    std::memcpy(&words, mac, sizeof(words));
    return words;
}

constexpr uint8_t group_bit = 0x01; /* of a MAC address's first byte */

struct network {
    uint32_t address; /* host order */
    uint8_t length;
};

constexpr network private_networks[] = {
    {0x7F000000, 8},  /* 127.0.0.0 */
    {0x0A000000, 8},  /* 10.0.0.0 */
    {0xA9FE0000, 16}, /* 169.254.0.0 */
    {0xC0A80000, 16}, /* 192.168.0.0 */
    {0xAC100000, 12}, /* 172.16.0.0 */
};

} // namespace

int mac_is_zerocast(const uint8_t *mac) noexcept
{
    const auto [a, b, c] = words_of(mac).word;
    return (a | b | c) == 0;
}

int mac_is_broadcast(const uint8_t *mac) noexcept
{
    const auto [a, b, c] = words_of(mac).word;
    return (a & b & c) == 0xFFFF;
}

int mac_is_multicast(const uint8_t *mac) noexcept
{
    return (mac[0] & group_bit) != 0 && mac_is_broadcast(mac) == 0;
}

int mac_is_general(const uint8_t *mac) noexcept
{
    return (mac[0] & group_bit) == 0 && mac_is_zerocast(mac) == 0;
}

int mac_is_non_zero_broadcast(const uint8_t *mac) noexcept
{
    return mac_is_zerocast(mac) == 0 && mac_is_broadcast(mac) == 0;
}

int ip_is_multicast(uint32_t ip) noexcept
{
    const uint8_t first = ip & 0xFF;
    return first >= 224 && first <= 239;
}

int ip_is_general(uint32_t ip) noexcept
{
    return ip != 0 && ip < 0xFFFFFFFE && ip_is_multicast(ip) == 0;
}

int is_private_ip(uint32_t ip) noexcept
{
    for (const auto &[address, length] : private_networks) {
        if (((ip ^ address) & masklen2make[length]) == 0)
            return 1;
    }
    return 0;
}
