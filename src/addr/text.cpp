#include <libmix/ip_util.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstring>

namespace
{

bool parse_ipv6(const char *text, uint8_t (&out)[16])
{
    return inet_pton(AF_INET6, text, out) > 0;
}

constexpr size_t longest_bracketed = 45; /* the longest IPv6 text, with a dotted tail */
using unbracketed = char[longest_bracketed + 1];

/* Copies a text that starts with "[" without its first and last character, the last unchecked. */
bool strip_brackets(const char *text, unbracketed &copy)
{
    const size_t inside = std::strlen(text) - 2; /* wraps for a lone "[", which then is too long */
    if (inside > longest_bracketed)
        return false;
    std::memset(copy, 0, sizeof(copy));
    std::memcpy(copy, text + 1, inside);
    return true;
}

/* Of what an IPv6 address is written with: letters are what stands highest. */
char upper(char c)
{
    return c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c;
}

} // namespace

int ipv4str_2_uint(const char *text, uint32_t *out) noexcept
{
    in_addr parsed;
    if (text == nullptr || out == nullptr || inet_aton(text, &parsed) == 0)
        return -1;
    *out = ntohl(parsed.s_addr);
    return 0;
}

int ipv6str_2_bin(const char *text, uint8_t *buf, int buflen) noexcept
{
    uint8_t parsed[16];
    if (buf == nullptr || buflen < static_cast<int>(sizeof(parsed)) || text == nullptr)
        return -1;
    if (!parse_ipv6(text, parsed))
        return -1;
    std::memcpy(buf, parsed, sizeof(parsed));
    return 0;
}

int ipstr_2_addr(const char *text, mix_addr *out) noexcept
{
    if (is_ipv6_str(text) != 0) {
        out->family = AF_INET6;
        return ipv6str_2_bin(text, out->address.ipv6, sizeof(out->address.ipv6));
    }
    out->family = AF_INET;
    return ipv4str_2_uint(text, &out->address.ipv4);
}

int ipstr_with_bracket_2_addr(const char *text, mix_addr *out) noexcept
{
    if (*text != '[')
        return ipstr_2_addr(text, out);
    unbracketed copy;
    if (!strip_brackets(text, copy))
        return -1;
    out->family = AF_INET6;
    return ipv6str_2_bin(copy, out->address.ipv6, sizeof(out->address.ipv6));
}

int tq_ip_string_2_inet_addr(mix_inet_addr *out, const char *text) noexcept
{
    uint8_t parsed[16];
    if (text == nullptr)
        return -1;
    if (std::strchr(text, ':') != nullptr) {
        if (!parse_ipv6(text, parsed))
            return -1;
        out->family = AF_INET6;
        std::memcpy(out->address, parsed, sizeof(in6_addr));
        return 0;
    }
    if (inet_pton(AF_INET, text, parsed) <= 0) /* a dotted quad: without a dot it fails */
        return -1;
    out->family = AF_INET;
    std::memcpy(out->address, parsed, sizeof(in_addr));
    return 0;
}

int tq_ip_string_with_bracket_2_inet_addr(mix_inet_addr *out, const char *text) noexcept
{
    if (text == nullptr || *text != '[')
        return tq_ip_string_2_inet_addr(out, text);
    unbracketed copy;
    return strip_brackets(text, copy) ? tq_ip_string_2_inet_addr(out, copy) : -1;
}

char *ipv4_2_str(uint32_t ip, char *dst, int len) noexcept
{
    if (len < INET_ADDRSTRLEN)
        return nullptr;
    std::memset(dst, 0, static_cast<size_t>(len));
    const in_addr network{htonl(ip)};
    inet_ntop(AF_INET, &network, dst, static_cast<socklen_t>(len));
    return dst;
}

char *ipv6_2_str(const uint8_t *addr, char *buf, int len) noexcept
{
    if (len < 40)
        return nullptr;
    inet_ntop(AF_INET6, addr, buf, static_cast<socklen_t>(len)); /* 39 characters at most */
    return buf;
}

void tq_ipv6_addr_2_string_with_bracket(const uint8_t *addr, char *out, uint32_t len) noexcept
{
    if (len <= 47)
        return;
    out[0] = '[';
    /* One byte of len is spent already; the longest text still fits behind it with its bracket. */
    inet_ntop(AF_INET6, addr, out + 1, len);
    uint32_t at = 1;
    for (; out[at] != '\0'; at++)
        out[at] = upper(out[at]);
    out[at] = ']';
    out[at + 1] = '\0';
}

int is_ipv4_r_str(const char *text) noexcept
{
    /* A word that is rated complete is one that inet_aton accepts, unless its first octet is empty. */
    return ipv4_match(text) == MATCH_COMPLETE && *text != '.';
}

int is_ipv4_str(const char *text) noexcept
{
    if (is_ipv4_r_str(text) == 0)
        return 0;
    return *text != '0' || std::strcmp(text, "0.0.0.0") == 0;
}

int is_ipv6_r_str(const char *text) noexcept
{
    uint8_t parsed[16];
    return text != nullptr && parse_ipv6(text, parsed);
}

int is_ipv6_str(const char *text) noexcept
{
    return is_ipv6_r_str(text);
}

int is_hex_str(const char *text) noexcept
{
    if (text == nullptr)
        return 0;
    const size_t length = std::strlen(text);
    if (static_cast<int32_t>(length) < 1) /* a 32-bit count, on purpose */
        return 0;
    return std::strspn(text, "0123456789abcdefABCDEF") == length;
}
