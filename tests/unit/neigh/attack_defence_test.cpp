#include <libmix/attack_defence.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <string>

namespace
{

struct row {
    const char *attack;
    const char *rule; /* NULL: the same */
};

/* Written out whole on purpose: the table is the promise. */
constexpr row rows[32] = {
    {"", nullptr},
    {"tear-drop", nullptr},
    {"ip-spoofing", nullptr},
    {"land-attack", nullptr},
    {"ip-option", nullptr},
    {"ip-fragment", nullptr},
    {"ip-directed-broadcast", nullptr},
    {"winnuke", nullptr},
    {"tcp-port-scan", "port-scan"},
    {"syn-flood", nullptr},
    {"syn-proxy", nullptr},
    {"syn-cookie", nullptr},
    {"tcp-anomaly", nullptr},
    {"icmp-flood", nullptr},
    {"ip-sweep", nullptr},
    {"ping-of-death", nullptr},
    {"huge-icmp-pak", nullptr},
    {"udp-flood", nullptr},
    {"dns-query-flood", nullptr},
    {"dns-query-flood-recursion", nullptr},
    {"arp-spoofing", "arp-spoofing-mac"},
    {"arp-spoofing", "arp-spoofing-reverse"},
    {"arp-spoofing", "arp-spoofing-rate"},
    {"nd-spoofing", "nd-spoofing-mac"},
    {"nd-spoofing", "nd-spoofing-reverse"},
    {"nd-spoofing", "nd-spoofing-rate"},
    {"tcp-split-handshake", nullptr},
    {"dns-reply-flood", nullptr},
    {"ip-protocol-scan", "ip-proto-scan"},
    {"udp-port-scan", nullptr},
    {"sip-flood", nullptr},
    {"icmp-redirect", nullptr},
};

std::string capitals(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(toupper(c));
    return text;
}

TEST(attack_names, every_row_by_number_and_by_name)
{
    for (uint32_t i = 0; i < 32; i++) {
        EXPECT_STREQ(tq_attack_desc_table[i], rows[i].attack);
        EXPECT_STREQ(tq_ad_type2name(i), rows[i].attack);
        const uint32_t first = i >= 20 && i <= 22 ? 20 : i >= 23 && i <= 25 ? 23 : i;
        EXPECT_EQ(tq_ad_name2type(rows[i].attack), first);
        EXPECT_EQ(tq_ad_name2type(capitals(rows[i].attack).c_str()), first);
    }
}

TEST(attack_names, misses)
{
    for (const uint32_t type : {32u, 33u, 0x80000000u, 0xffffffffu})
        EXPECT_STREQ(tq_ad_type2name(type), "");
    for (const char *name : {"port-scan", "arp-spoofing-mac", "syn-floo", "syn-flood ", "?"})
        EXPECT_EQ(tq_ad_name2type(name), 32u);
}

TEST(rule_names, every_row_by_number_and_by_name)
{
    for (int32_t i = 0; i < 32; i++) {
        const char *name = rows[i].rule != nullptr ? rows[i].rule : rows[i].attack;
        EXPECT_STREQ(ad_id2name(i), name);
        EXPECT_EQ(ad_name2id(name), i);
        EXPECT_EQ(ad_name2id(capitals(name).c_str()), i);
    }
}

TEST(rule_names, misses)
{
    for (const int32_t id : {32, INT_MAX, -1, INT_MIN})
        EXPECT_STREQ(ad_id2name(id), "");
    for (const char *name : {"arp-spoofing", "nd-spoofing", "tcp-port-scan", "ip-protocol-scan", "x"})
        EXPECT_EQ(ad_name2id(name), -1);
}

} // namespace
