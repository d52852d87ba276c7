// IPv6 neighbours: listings, the summary, clearing, converting dynamic ones to static ones.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/nd.h"

#include <libmix/nd.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

request asking(wire::nd_subcommand subcommand, std::uint32_t node = 0)
{
    return {.destination = mktipcid(node, 0, 0), .type = wire::nd_type, .subcommand = subcommand};
}

constexpr choice state_words[] = {
    {"none", "nothing is known", wire::nd_state_none},
    {"incomplete", "asked for, no answer yet", wire::nd_state_incomplete},
    {"reachable", "confirmed a moment ago", wire::nd_state_reachable},
    {"stale", "not confirmed of late", wire::nd_state_stale},
    {"delay", "in use again, about to be confirmed", wire::nd_state_delay},
    {"probe", "being confirmed", wire::nd_state_probe},
    {"failed", "there was no answer", wire::nd_state_failed},
    {"permanent", "needs no confirmation", wire::nd_state_permanent},
};
constexpr choice kind_words[] = {
    {"dynamic", "learned from the network", wire::nd_option_dynamic},
    {"static", "configured, or put into the kernel by somebody else", wire::nd_option_static},
};

constexpr argument address = option("address", kinds::ipv6, "this address only");

constexpr column nd_columns[] = {
    {.title = "Address", .key = "address", .at_least = 25},
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {.title = "State", .key = "state", .at_least = 10},
    {.title = "Kind", .key = "kind", .at_least = 9},
    {.title = "Router", .key = "router"},
    {.title = "VR", .key = "virtual_router"},
    {.title = "Vsys", .key = "virtual_system"},
    {.title = "Age s", .key = "age_s", .at_least = 6},
};

std::string_view state_of(std::uint8_t flags)
{
    return word_of(state_words, flags >> wire::nd_state_shift & wire::nd_state_mask);
}

std::string_view kind_of(std::uint8_t flags)
{
    if ((flags & wire::nd_flag_idle) != 0)
        return "idle";
    if ((flags & wire::nd_flag_configured) != 0)
        return "static";
    return (flags & wire::nd_flag_static) != 0 ? "permanent" : "dynamic";
}

// Rows of one listing; convert: each is handed to the library's conversion as well.
struct nd_listing {
    table rows;
    bool convert = false;
};

int print_row(const void *row, void *context, int)
{
    auto &to = *static_cast<nd_listing *>(context);
    wire::nd_row one;
    std::memcpy(&one, row, sizeof one);
    const bool more =
        to.rows.row({ipv6_text(one.address), mac_text(one.mac), field_text(one.interface),
                     state_of(one.flags), kind_of(one.flags), (one.flags & wire::nd_flag_router) != 0,
                     one.vrid, one.vsysid, std::uint32_t{one.age}});
    if (to.convert)
        exec_ipv6_nd_dynamic_to_static_callback(row);
    return more ? 0 : -1;
}

using detail_function = decltype(get_nd_items_detail);

outcome list(invocation &call, detail_function &function, wire::nd_subcommand subcommand, bool convert)
{
    nd_listing to{{call.out(), nd_columns}, convert};
    const auto wanted = call.ipv6("address");
    function(vsys_of(call), vr_of(call), 0, bytes_of(wanted), print_row, &to, call.print(), 1,
             call.number_or<std::int32_t>("maximum", 0), node_of(call), 0);
    to.rows.end();
    if (!call.said().empty())
        return call.fail(asking(subcommand, node_of(call)), "the neighbours can't be read");
    note_rows(call, to.rows, "neighbour", "neighbours");
    return outcome::done;
}

outcome show(invocation &call)
{
    return list(call, get_nd_items_detail, wire::nd_list, false);
}
outcome show_static(invocation &call)
{
    return list(call, get_nd_items_static_detail, wire::nd_static_list, false);
}
outcome convert(invocation &call)
{
    return list(call, get_nd_items_detail, wire::nd_list, true);
}
constexpr argument list_arguments[] = {vr_option, vsys_option, address, node_option, maximum_option};

outcome show_filtered(invocation &call)
{
    nd_listing to{{call.out(), nd_columns}};
    const auto wanted = call.ipv6("address").value_or(std::array<std::uint8_t, 16>{});
    const auto mac = call.mac("mac");
    if (call.has("state") && call.has("kind"))
        return call.misused("a state and a kind don't go together");
    auto option_byte = static_cast<std::int8_t>(call.chosen("kind").value_or(wire::nd_option_all));
    if (const auto state = call.chosen("state"))
        option_byte = static_cast<std::int8_t>(-*state - 1);
    std::uint32_t total = 0;
    get_nd_items_ex2_vr(print_row, &to, call.print(), 1, call.number_or<std::uint32_t>("maximum", 0),
                        wanted.data(), bytes_of(mac), 0, option_byte, vr_of(call), &total);
    to.rows.end();
    if (!call.said().empty())
        return call.fail(asking(wire::nd_filtered_list), "the neighbours can't be read");
    call.out().note(fmt::format("{} of {} that match", to.rows.rows(), total));
    return outcome::done;
}
constexpr argument filtered_arguments[] = {
    vr_option,
    address,
    option("mac", kinds::mac, "this MAC address only"),
    option("kind", kinds::one_of, "neighbours of this kind", {.choices = kind_words}),
    option("state", kinds::one_of, "neighbours in this state", {.choices = state_words}),
    maximum_option,
};

outcome show_count(invocation &call)
{
    const auto wanted = call.ipv6("address");
    const std::uint32_t neighbours =
        get_nd_items_detail(vsys_of(call), vr_of(call), 0, bytes_of(wanted), nullptr, nullptr, call.print(),
                            1, 0, node_of(call), 0);
    if (!call.said().empty())
        return call.fail(asking(wire::nd_list, node_of(call)), "the neighbours can't be counted");
    call.out().record({{"Neighbours", "neighbours", neighbours}});
    return outcome::done;
}
constexpr argument count_arguments[] = {vr_option, vsys_option, address, node_option};

outcome show_summary(invocation &call)
{
    wire::nd_summary_reply sum;
    if (nd_generic_data_get(vsys_of(call), vr_of(call), &sum, call.print(), node_of(call), 0) < 0)
        return call.fail(asking(wire::nd_summary, node_of(call)), "the summary of neighbours can't be read");
    call.out().record({{"Neighbours", "neighbours", std::uint32_t{sum.total}},
                       {"Static", "static", std::uint32_t{sum.static_entries}},
                       {"Dynamic", "dynamic", std::uint32_t{sum.dynamic_entries}},
                       {"Unresolved", "unresolved", std::uint32_t{sum.unresolved}}});
    return outcome::done;
}
constexpr argument summary_arguments[] = {vr_option, vsys_option, node_option};

outcome clear(invocation &call)
{
    const auto wanted = call.ipv6("address");
    const std::uint8_t which = call.has("unresolved") ? wire::nd_clear_unresolved : wire::nd_clear_all;
    return clear_all(
        call, asking(wire::nd_clear_dynamic, node_of(call)), "the neighbours were not cleared", [&] {
            return nd_remove_dynamic_items_detail(vr_of(call), 0, vsys_of(call), bytes_of(wanted),
                                                  call.print(), node_of(call), which, 0);
        });
}
constexpr argument clear_arguments[] = {vr_option, vsys_option, address,
                                        flag("unresolved", "only neighbours without a MAC address"),
                                        node_option};

constexpr command commands[] = {
    {"show nd", "the IPv6 neighbours", show, list_arguments},
    {"show nd static", "the static IPv6 neighbours", show_static, list_arguments},
    {"show nd filtered", "IPv6 neighbours by MAC address, kind or state", show_filtered, filtered_arguments},
    {"show nd count", "how many IPv6 neighbours there are", show_count, count_arguments},
    {"show nd summary", "numbers of IPv6 neighbours by kind", show_summary, summary_arguments},
    {"clear nd", "forget dynamic IPv6 neighbours", clear, clear_arguments},
    {"set nd static", "make the dynamic IPv6 neighbours static", convert, list_arguments},
};

} // namespace

extern const family nd_family;
const family nd_family{"nd", "IPv6 neighbours", commands};

} // namespace mixsh
