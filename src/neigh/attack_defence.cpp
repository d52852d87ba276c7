#include <libmix/attack_defence.h>

#include <strings.h>

/* A repeated name stands for one attack that several rules guard against. */
const char *const tq_attack_desc_table[TQ_ATTACK_TYPES] = {
    "",
    "tear-drop",
    "ip-spoofing",
    "land-attack",
    "ip-option",
    "ip-fragment",
    "ip-directed-broadcast",
    "winnuke",
    "tcp-port-scan",
    "syn-flood",
    "syn-proxy",
    "syn-cookie",
    "tcp-anomaly",
    "icmp-flood",
    "ip-sweep",
    "ping-of-death",
    "huge-icmp-pak",
    "udp-flood",
    "dns-query-flood",
    "dns-query-flood-recursion",
    "arp-spoofing",
    "arp-spoofing",
    "arp-spoofing",
    "nd-spoofing",
    "nd-spoofing",
    "nd-spoofing",
    "tcp-split-handshake",
    "dns-reply-flood",
    "ip-protocol-scan",
    "udp-port-scan",
    "sip-flood",
    "icmp-redirect",
};

namespace
{

constexpr const char *ad_rule_id_name[TQ_ATTACK_TYPES] = {
    "",
    "tear-drop",
    "ip-spoofing",
    "land-attack",
    "ip-option",
    "ip-fragment",
    "ip-directed-broadcast",
    "winnuke",
    "port-scan",
    "syn-flood",
    "syn-proxy",
    "syn-cookie",
    "tcp-anomaly",
    "icmp-flood",
    "ip-sweep",
    "ping-of-death",
    "huge-icmp-pak",
    "udp-flood",
    "dns-query-flood",
    "dns-query-flood-recursion",
    "arp-spoofing-mac",
    "arp-spoofing-reverse",
    "arp-spoofing-rate",
    "nd-spoofing-mac",
    "nd-spoofing-reverse",
    "nd-spoofing-rate",
    "tcp-split-handshake",
    "dns-reply-flood",
    "ip-proto-scan",
    "udp-port-scan",
    "sip-flood",
    "icmp-redirect",
};

/* The index of the first equal name, or -1. */
int32_t index_of(const char *const (&names)[TQ_ATTACK_TYPES], const char *name)
{
    for (int32_t i = 0; i < TQ_ATTACK_TYPES; i++)
        if (strcasecmp(names[i], name) == 0)
            return i;
    return -1;
}

} // namespace

const char *tq_ad_type2name(uint32_t type) noexcept
{
    return type < TQ_ATTACK_TYPES ? tq_attack_desc_table[type] : "";
}

uint32_t tq_ad_name2type(const char *name) noexcept
{
    const int32_t found = index_of(tq_attack_desc_table, name);
    return found >= 0 ? static_cast<uint32_t>(found) : TQ_ATTACK_TYPES;
}

const char *ad_id2name(int32_t id) noexcept
{
    return id >= 0 && id < TQ_ATTACK_TYPES ? ad_rule_id_name[id] : "";
}

int32_t ad_name2id(const char *name) noexcept
{
    return index_of(ad_rule_id_name, name);
}
