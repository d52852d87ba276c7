// The library's tables of names. No daemon is asked.
#include "appliance/mixsh/invocation.h"

#include <libmix/attack_defence.h>
#include <libmix/bhv.h>
#include <libmix/qos.h>

namespace mixsh
{

namespace
{

constexpr column name_columns[] = {{"Number", "number"}, {.title = "Name", .key = "name"}};

outcome show_attacks(invocation &call)
{
    table rows(call.out(), name_columns);
    for (std::uint32_t type = 1; type < TQ_ATTACK_TYPES; type++)
        rows.row({type, tq_ad_type2name(type)});
    return outcome::done;
}

outcome show_rules(invocation &call)
{
    table rows(call.out(), name_columns);
    for (std::int32_t id = 1; id < TQ_ATTACK_TYPES; id++)
        rows.row({id, ad_id2name(id)});
    return outcome::done;
}

outcome show_mail(invocation &call)
{
    table rows(call.out(), name_columns);
    for (std::uint32_t type = 0; type < BHV_MAIL_TYPES; type++)
        rows.row({type, bhv_mail_type2name(type)});
    return outcome::done;
}

constexpr column phb_columns[] = {
    {"Value", "value"}, {.title = "Name", .key = "name"}, {.title = "Description", .key = "description"}};

outcome show_phb(invocation &call)
{
    table rows(call.out(), phb_columns);
    for (int row = 0; row < QOS_DSCP_PHB_ROWS; row++)
        rows.row({qos_phb_name2type(get_dscp_phb_name(row)), get_dscp_phb_name(row), get_dscp_phb_desc(row)});
    return outcome::done;
}

constexpr command commands[] = {
    {"show names attack", "names of attack types", show_attacks},
    {"show names rule", "names of defence rules", show_rules},
    {"show names phb", "names of per-hop behaviours", show_phb},
    {"show names mail", "names of mail services", show_mail},
};

} // namespace

extern const family names_family;
const family names_family{"names", "names of numbers", commands};

} // namespace mixsh
