#include <libmix/ip_util.h>

#include <arpa/inet.h>
#include <netinet/in.h>

#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>

namespace
{

/*
 * The length of "address/length": the address, copied into `part`, satisfies `is_address`, and the length is
 * a number of at most `limit`. What the number looks like is left to the matcher.
 */
std::optional<unsigned long> prefix_length(const char *text, std::span<char> part,
                                           int (*is_address)(const char *), unsigned long limit)
{
    const char *slash = text != nullptr ? std::strchr(text, '/') : nullptr;
    if (slash == nullptr || static_cast<size_t>(slash - text) >= part.size())
        return {};
    std::memset(part.data(), 0, part.size());
    std::memcpy(part.data(), text, static_cast<size_t>(slash - text));
    if (is_address(part.data()) == 0)
        return {};
    char *rest;
    errno = 0;
    const auto length = static_cast<unsigned long>(std::strtol(slash + 1, &rest, 10));
    if (errno != 0 || length > limit || *rest != '\0')
        return {};
    return length;
}

int is_ipv4_prefix(const char *text, int (*is_address)(const char *))
{
    char ip_part[INET_ADDRSTRLEN];
    return prefix_length(text, ip_part, is_address, 32) && ipv4_prefix_match(text) == MATCH_COMPLETE;
}

int is_ipv6_prefix(const char *text, unsigned long least)
{
    char ipv6_part[40];
    const auto length = prefix_length(text, ipv6_part, is_ipv6_str, 128);
    return length && *length >= least && ipv6_prefix_match(text) == MATCH_COMPLETE;
}

/* A dotted quad that both inet_aton and the matcher accept, network order. */
std::optional<uint32_t> strict_quad(const char *text)
{
    in_addr parsed;
    if (ipv4_match(text) != MATCH_COMPLETE || inet_aton(text, &parsed) == 0)
        return {};
    return parsed.s_addr;
}

int wildcard_mask(const char *text, int most_holes, uint32_t *out)
{
    const auto value = strict_quad(text);
    if (!value)
        return -1;
    const int width = 32 - std::countl_zero(*value);
    const int holes = width - std::popcount(*value); /* zero bits below the highest one */
    if (holes > most_holes)
        return 0;
    *out = holes == 0 ? static_cast<uint32_t>(width) : *value;
    return 1;
}

} // namespace

int is_ipv4_prefix_str(const char *text) noexcept
{
    return is_ipv4_prefix(text, is_ipv4_str);
}

int is_ipv4_r_prefix_str(const char *text) noexcept
{
    return is_ipv4_prefix(text, is_ipv4_r_str);
}

int is_ipv6_prefix_str(const char *text) noexcept
{
    return is_ipv6_prefix(text, 0);
}

int is_ipv6_r_prefix_str(const char *text) noexcept
{
    return is_ipv6_prefix(text, 0);
}

int is_ipv6_g_prefix_str(const char *text) noexcept
{
    return is_ipv6_prefix(text, 1);
}

int get_wildcard_mask_ipv4(const char *text, uint32_t *out) noexcept
{
    return wildcard_mask(text, 8, out);
}

int get_wildcard_mask_without_limit_ipv4(const char *text, uint32_t *out) noexcept
{
    return wildcard_mask(text, 32, out);
}
