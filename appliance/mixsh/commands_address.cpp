// What libmix makes of addresses, and which of this host's are local and on the LAN.
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <fmt/format.h>
#include <ifaddrs.h>
#include <memory>
#include <netinet/in.h>
#include <optional>
#include <set>

#include <libmix/ip_util.h>

#include "addr/lan_wire.h"

namespace mixsh
{

namespace
{

// --- show address TEXT

using fields = std::vector<field>;

cell rating_cell(int match)
{
    switch (match) {
    case MATCH_COMPLETE:
        return "complete";
    case MATCH_INCOMPLETE:
        return "incomplete";
    default:
        return "no match";
    }
}

void add_ratings(fields &to, const char *word)
{
    to.push_back({"IPv4 address, as typed", "ipv4_match", rating_cell(ipv4_match(word))});
    to.push_back({"IPv4 prefix, as typed", "ipv4_prefix_match", rating_cell(ipv4_prefix_match(word))});
    to.push_back({"IPv6 address, as typed", "ipv6_match", rating_cell(ipv6_match(word))});
    to.push_back({"IPv6 prefix, as typed", "ipv6_prefix_match", rating_cell(ipv6_prefix_match(word))});
}

struct validator {
    std::string_view title;
    std::string_view key;
    int (*accepts)(const char *);
};

constexpr validator validators[] = {
    {"IPv4 address", "is_ipv4_str", is_ipv4_str},
    {"IPv4 address, 0.0.0.0/8 too", "is_ipv4_r_str", is_ipv4_r_str},
    {"IPv4 prefix", "is_ipv4_prefix_str", is_ipv4_prefix_str},
    {"IPv4 prefix, 0.0.0.0/8 too", "is_ipv4_r_prefix_str", is_ipv4_r_prefix_str},
    {"IPv4 mask", "is_maskv4_str", is_maskv4_str},
    {"IPv6 address", "is_ipv6_str", is_ipv6_str},
    {"IPv6 address, relaxed", "is_ipv6_r_str", is_ipv6_r_str},
    {"IPv6 prefix", "is_ipv6_prefix_str", is_ipv6_prefix_str},
    {"IPv6 prefix, relaxed", "is_ipv6_r_prefix_str", is_ipv6_r_prefix_str},
    {"IPv6 prefix, not /0", "is_ipv6_g_prefix_str", is_ipv6_g_prefix_str},
    {"Hexadecimal digits", "is_hex_str", is_hex_str},
};

std::string ipv4_text(std::uint32_t host_order)
{
    char text[INET_ADDRSTRLEN];
    return ipv4_2_str(host_order, text, sizeof text);
}

std::string ipv6_text(const std::uint8_t *address)
{
    char text[INET6_ADDRSTRLEN];
    return ipv6_2_str(address, text, sizeof text);
}

void add_ipv4(fields &to, std::uint32_t address)
{
    const std::uint32_t network_order = htonl(address);
    to.push_back({"IPv4 value", "ipv4", ipv4_text(address)});
    to.push_back({"IPv4 number", "ipv4_number", fmt::format("{:#010x}", address)});
    to.push_back({"IPv4 multicast", "ip_is_multicast", ip_is_multicast(network_order) != 0});
    to.push_back({"IPv4 usable as a host's", "ip_is_general", ip_is_general(network_order) != 0});
    to.push_back({"IPv4 private", "is_private_ip", is_private_ip(address) != 0});
    to.push_back({"This host's own", "is_linux_ip", is_linux_ip(network_order) != 0});
    to.push_back({"On the LAN", "is_lan_addr", is_lan_addr(address) != 0});
    if (const int ones = maskv4_2_num(address); ones >= 0)
        to.push_back({"IPv4 mask length", "maskv4_2_num", ones});
}

void add_ipv6(fields &to, const std::uint8_t *address)
{
    char bracketed[48];
    tq_ipv6_addr_2_string_with_bracket(address, bracketed, sizeof bracketed);
    to.push_back({"IPv6 value", "ipv6", ipv6_text(address)});
    to.push_back({"IPv6 in brackets", "ipv6_bracketed", bracketed});
    to.push_back({"IPv6 mask length", "maskv6_2_num", maskv6_2_num(address)});
}

// Brackets as in a URL are read, too, and every short form of IPv4.
void add_value(fields &to, const char *word)
{
    mix_addr parsed{};
    if (*word != '\0' && ipstr_with_bracket_2_addr(word, &parsed) == 0) {
        if (parsed.family == AF_INET)
            add_ipv4(to, parsed.address.ipv4);
        else
            add_ipv6(to, parsed.address.ipv6);
    }
    mix_inet_addr strict{};
    if (tq_ip_string_with_bracket_2_inet_addr(&strict, word) == 0)
        to.push_back({"Family, read strictly", "family", strict.family == AF_INET ? "IPv4" : "IPv6"});
}

cell wildcard_cell(int result, std::uint32_t value)
{
    if (result == 0)
        return "too many holes";
    return value <= 32 ? fmt::format("{} bits", value) : fmt::format("{:#010x}", value);
}

void add_wildcard(fields &to, const char *word)
{
    std::uint32_t value = 0;
    if (const int result = get_wildcard_mask_ipv4(word, &value); result >= 0)
        to.push_back({"Wildcard mask", "wildcard", wildcard_cell(result, value)});
    if (const int result = get_wildcard_mask_without_limit_ipv4(word, &value); result >= 0)
        to.push_back({"Wildcard mask, any holes", "wildcard_without_limit", wildcard_cell(result, value)});
}

// The mask that a prefix length stands for.
void add_mask(fields &to, const std::string &word)
{
    const bool four = is_ipv4_r_prefix_str(word.c_str()) != 0;
    if (!four && is_ipv6_prefix_str(word.c_str()) == 0)
        return;
    const auto slash = word.find('/');
    const int length = std::stoi(word.substr(slash + 1));
    if (four) {
        char text[INET_ADDRSTRLEN];
        to.push_back(
            {"Mask", "mask", maskv4num_2_str(static_cast<std::uint32_t>(length), text, sizeof text)});
        std::uint32_t address = 0;
        ipv4str_2_uint(word.substr(0, slash).c_str(), &address);
        to.push_back({"Network", "network", ipv4_text(address & masklen2make[length])});
        return;
    }
    std::uint8_t mask[16];
    masknum_2_v6(mask, length);
    to.push_back({"Mask", "mask", ipv6_text(mask)});
}

std::optional<std::array<std::uint8_t, 6>> mac_of(const std::string &word)
{
    std::array<std::uint8_t, 6> mac{};
    if (word.size() != 17)
        return {};
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const auto digits = word.substr(3 * i, 2);
        if (is_hex_str(digits.c_str()) == 0 || (i > 0 && word[3 * i - 1] != ':'))
            return {};
        mac[i] = static_cast<std::uint8_t>(std::stoul(digits, nullptr, 16));
    }
    return mac;
}

void add_mac(fields &to, const std::string &word)
{
    const auto mac = mac_of(word);
    if (!mac)
        return;
    to.push_back({"MAC all zero", "mac_is_zerocast", mac_is_zerocast(mac->data()) != 0});
    to.push_back({"MAC broadcast", "mac_is_broadcast", mac_is_broadcast(mac->data()) != 0});
    to.push_back({"MAC multicast", "mac_is_multicast", mac_is_multicast(mac->data()) != 0});
    to.push_back({"MAC unicast", "mac_is_general", mac_is_general(mac->data()) != 0});
}

outcome show_address(invocation &call)
{
    const char *word = call.text("TEXT");
    fields all;
    init_lan_addr();
    add_ratings(all, word);
    for (const auto &[title, key, accepts] : validators)
        all.push_back({title, key, accepts(word) != 0});
    add_value(all, word);
    add_mask(all, word);
    add_wildcard(all, word);
    add_mac(all, word);
    call.out().record(all);
    return outcome::done;
}

// --- show lan

constexpr column address_columns[] = {{"Interface", "interface"},
                                      {"Address", "address"},
                                      {"Local", "local"},
                                      {"LAN", "lan"},
                                      {"Private", "private"}};

outcome no_table(invocation &call)
{
    return call.fail("the LAN address table can't be attached",
                     "is /dev/shm there, and may you write to it?");
}

outcome show_addresses(invocation &call)
{
    if (init_lan_addr() == 0)
        return no_table(call);
    ifaddrs *first = nullptr;
    if (getifaddrs(&first) != 0)
        return call.fail("this host's addresses can't be read");
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs *)> all(first, freeifaddrs);
    table rows(call.out(), address_columns);
    for (const ifaddrs *one = all.get(); one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET)
            continue;
        const auto network_order = reinterpret_cast<const sockaddr_in *>(one->ifa_addr)->sin_addr.s_addr;
        const std::uint32_t address = ntohl(network_order);
        if (!rows.row({one->ifa_name, ipv4_text(address), is_linux_ip(network_order) != 0,
                       is_lan_addr(address) != 0, is_private_ip(address) != 0}))
            break;
    }
    return outcome::done;
}

constexpr column network_columns[] = {{"Network", "network"}, {"Mask", "mask"}};

outcome show_networks(invocation &call)
{
    using mix::wire::lan_entries_max;
    if (init_lan_addr() == 0)
        return no_table(call);
    // Its writer may be at work: each value is read once. Entries may stand there twice.
    std::set<std::pair<std::uint32_t, std::uint32_t>> shown;
    const auto *shared = static_cast<const mix::wire::lan_table *>(lan_addrs);
    table rows(call.out(), network_columns);
    const int count = std::clamp(__atomic_load_n(&shared->count, __ATOMIC_ACQUIRE), 0, lan_entries_max);
    for (int k = 0; k < count; ++k) {
        const auto length = __atomic_load_n(&shared->entries[k].length, __ATOMIC_RELAXED);
        const auto address = __atomic_load_n(&shared->entries[k].network, __ATOMIC_RELAXED);
        char mask[INET_ADDRSTRLEN];
        if (!shown.emplace(address, length).second)
            continue;
        if (!rows.row({fmt::format("{}/{}", ipv4_text(address), length),
                       maskv4num_2_str(length, mask, sizeof mask)}))
            break;
    }
    return outcome::done;
}

constexpr argument word_argument[] = {
    value("TEXT", kinds::word, "any word: an address, a prefix, a mask, the beginning of one"),
};

constexpr command commands[] = {
    {"show address", "what every matcher and converter makes of a word", show_address, word_argument},
    {"show lan addresses", "which of this host's IPv4 addresses are local and which are on the LAN",
     show_addresses},
    {"show lan networks", "the networks of the LAN", show_networks},
};

} // namespace

extern const family address_family;
const family address_family{"address", "addresses and the LAN", commands};

} // namespace mixsh
