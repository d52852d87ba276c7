// The MAC address table: listings, counts, static entries, clearing and converting; descriptions of MAC
// addresses.
#include "appliance/mixsh/shared.h"
#include "appliance/mixsh/times.h"
#include "appliance/wire/mac.h"

#include <libmix/bitmap.h>
#include <libmix/mac.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

// --- the table

request asking(wire::mac_opcode opcode, std::uint32_t node = 0)
{
    return {.destination = mktipcid(node, 0, 0), .type = wire::mac_type, .subcommand = opcode};
}
constexpr change static_entries{"the static MAC entries"};

constexpr limits names{.longest = 31};
constexpr argument vlan = option("vlan", kinds::number, "entries of this VLAN", vlan_ids);
constexpr choice kind_words[] = {
    {"all", "every entry", 0},
    {"static", "configured entries", 1},
    {"dynamic", "learned entries", 2},
};

constexpr column mac_columns[] = {
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {"VLAN", "vlan"},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {.title = "Port", .key = "port", .may_be_cut = true, .at_least = 9},
    {.title = "Kind", .key = "kind", .at_least = 7},
    {.title = "Age s", .key = "age_s", .at_least = 6},
};

std::string_view kind_of(std::uint16_t flags)
{
    if ((flags & wire::mac_entry_local) != 0)
        return "local";
    if ((flags & wire::mac_entry_idle) != 0)
        return "idle";
    return (flags & wire::mac_entry_static) != 0 ? "static" : "dynamic";
}

// Where rows go; interfaces and ports are chosen here, since the daemon knows them by number.
struct mac_listing {
    table rows;
    const char *interface, *port;
};

int print_entry(const void *entry, void *context, int)
{
    auto &to = *static_cast<mac_listing *>(context);
    wire::mac_entry one;
    std::memcpy(&one, entry, sizeof one);
    wire::mac_entry_own own;
    std::memcpy(&own, one.daemons_own, sizeof own);
    const std::string interface = field_text(one.interface), port = field_text(one.second_name);
    if ((to.interface != nullptr && interface != to.interface) || (to.port != nullptr && port != to.port))
        return 0;
    to.rows.row({mac_text(one.mac), unless_zero(one.vlan), interface, port, kind_of(one.flags),
                 std::uint32_t{own.age}});
    return 0;
}

outcome show(invocation &call)
{
    mac_listing to{{call.out(), mac_columns}, call.text("interface"), call.text("port")};
    const auto mac = call.mac("mac");
    get_mac_items(call.number_or<std::uint16_t>("vlan", 0), 0, 0, bytes_of(mac), print_entry, &to,
                  call.print(), 1, call.number_or<int>("maximum", 0),
                  static_cast<std::uint8_t>(call.chosen("kind").value_or(0)), node_of(call), 0);
    to.rows.end();
    if (!call.said().empty())
        return call.fail(asking(wire::mac_list, node_of(call)), "the MAC table can't be read");
    note_rows(call, to.rows, "entry", "entries");
    return outcome::done;
}
constexpr argument show_arguments[] = {
    vlan,
    option("mac", kinds::mac, "this address only"),
    option("interface", kinds::interface_name, "entries of this bridge"),
    option("port", kinds::interface_name, "entries of this port"),
    option("kind", kinds::one_of, "entries of this kind", {.choices = kind_words}),
    maximum_option,
    node_option,
};

outcome show_count(invocation &call)
{
    const int entries =
        get_mac_items(call.number_or<std::uint16_t>("vlan", 0), 0, 0, nullptr, nullptr, nullptr, call.print(),
                      1, 0, static_cast<std::uint8_t>(call.chosen("kind").value_or(0)), node_of(call), 0);
    if (!call.said().empty())
        return call.fail(asking(wire::mac_list, node_of(call)), "the MAC entries can't be counted");
    call.out().record({{"Entries", "entries", entries}});
    return outcome::done;
}
constexpr argument count_arguments[] = {
    vlan, option("kind", kinds::one_of, "entries of this kind", {.choices = kind_words}), node_option};

outcome show_summary(invocation &call)
{
    std::uint8_t raw[sizeof(wire::mac_summary_reply)];
    if (mac_generic_data_get(raw, call.print(), node_of(call), 0) < 0 || !call.said().empty())
        return call.fail(asking(wire::mac_summary, node_of(call)), "the MAC summary can't be read");
    wire::mac_summary_reply sum;
    std::memcpy(&sum, raw, sizeof sum);
    call.out().record({{"Entries", "entries", std::uint32_t{sum.total}},
                       {"Static", "static", std::uint32_t{sum.static_entries}},
                       {"Dynamic", "dynamic", std::uint32_t{sum.dynamic_entries}},
                       {"Local", "local", std::uint32_t{sum.local_entries}}});
    return outcome::done;
}
constexpr argument summary_arguments[] = {node_option};

outcome show_bound(invocation &call)
{
    std::uint8_t vlans[512] = {};
    const auto first = call.number_or<std::uint16_t>("VLAN", 0),
               last = call.number_or<std::uint16_t>("to", first);
    if (last < first)
        return call.misused("the last VLAN is below the first");
    for (std::uint16_t id = first; id <= last; ++id)
        bitmap_port_set_vid(vlans, id);
    const bool bound = is_if_bound_with_l2_mac_vlan_bitmap(0, vlans) != 0;
    if (failed_silently())
        return call.fail(asking(wire::mac_bound), "the VLANs can't be looked into");
    call.out().record({{"Static entries there", "bound", bound}});
    return outcome::done;
}
constexpr argument bound_arguments[] = {
    value("VLAN", kinds::number, "VLAN to look into", {.high = wire::highest_vlan}),
    option("to", kinds::number, "last of a run of VLANs", vlan_ids)};

outcome show_interface_bound(invocation &call)
{
    const bool bound = is_if_bound_with_l2_mac(call.number_or<std::uint32_t>("INDEX", 0),
                                               call.number_or<std::uint32_t>("port", 0)) != 0;
    if (failed_silently())
        return call.fail(asking(wire::mac_list), "the interface can't be looked into");
    call.out().record({{"Static entries there", "bound", bound}});
    return outcome::done;
}
constexpr argument interface_bound_arguments[] = {
    value("INDEX", kinds::number, "index of the bridge, 0 for any", router_ids),
    option("port", kinds::number, "index of the port", one_to_65535)};

outcome add(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (mac_add_static_items(call.text("interface"), call.text("port"), mac->data(),
                             call.number_or<std::uint16_t>("vlan", 0), call.print(), nullptr, 0,
                             call.language(), 0) != 0)
        return call.fail(static_entries, "the static MAC entry was not added");
    return outcome::done;
}
constexpr argument add_arguments[] = {
    value("MAC", kinds::mac, "address of the station"),
    needed("port", kinds::interface_name, "port that leads to it", names),
    option("interface", kinds::interface_name, "bridge of the port; \"vlan\" and the VLAN id if not given",
           names),
    option("vlan", kinds::number, "its VLAN", vlan_ids),
};

outcome remove(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (mac_remove_static_items(call.text("interface"), call.text("port"), mac->data(),
                                call.number_or<std::uint16_t>("vlan", 0), call.print(), 0, call.language(), 0,
                                vsys_of(call)) != 0)
        return call.fail(static_entries, "the static MAC entry was not deleted");
    return outcome::done;
}
constexpr argument remove_arguments[] = {
    value("MAC", kinds::mac, "address of the station"),
    option("port", kinds::interface_name, "of this port only", names),
    option("interface", kinds::interface_name, "of this bridge only", names),
    option("vlan", kinds::number, "of this VLAN only", vlan_ids),
    vsys_option,
};

outcome remove_all(invocation &call)
{
    if (mac_remove_static_items(nullptr, nullptr, nullptr, 0, call.print(), 1, call.language(), 0,
                                vsys_of(call)) != 0)
        return call.fail(static_entries, "the static MAC entries were not deleted");
    return outcome::done;
}
constexpr argument remove_all_arguments[] = {vsys_option};

outcome clear(invocation &call)
{
    const auto mac = call.mac("mac");
    return clear_all(call, asking(wire::mac_clear_dynamic, node_of(call)), "the MAC table was not cleared",
                     [&] {
                         return mac_remove_dynamic_items(call.number_or<std::uint16_t>("vlan", 0), 0,
                                                         bytes_of(mac), call.print(), node_of(call), 0);
                     });
}
constexpr argument clear_arguments[] = {vlan, option("mac", kinds::mac, "this address only"), node_option};

outcome convert(invocation &call)
{
    const int entries = mac_dynamic2static(call.number_or<std::uint16_t>("vlan", 0), call.print(), 0);
    if (!call.said().empty())
        return call.fail(asking(wire::mac_list), "not every entry was looked at");
    call.out().record({{"Entries looked at", "entries", entries}});
    return outcome::done;
}
constexpr argument convert_arguments[] = {vlan};

// --- descriptions

constexpr request asking_descriptions{.type = wire::mac_desc_type, .subcommand = wire::mac_desc_list};
constexpr change descriptions{"the MAC descriptions"};

constexpr column description_columns[] = {
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {.title = "Vsys", .key = "virtual_system"},
    {.title = "Changed", .key = "changed", .at_least = 19},
    {.title = "Description", .key = "description", .may_be_cut = true, .at_least = 11},
};

int print_description(const void *row, void *context, int)
{
    wire::mac_description_row one;
    std::memcpy(&one, row, sizeof one);
    static_cast<table *>(context)->row(
        {mac_text(one.mac), one.vsysid, local_time(one.changed), field_text(one.description)});
    return 0;
}

outcome show_descriptions(invocation &call)
{
    const auto mac = call.mac("MAC");
    table rows(call.out(), description_columns);
    get_mac_desc_items(bytes_of(mac), print_description, &rows, call.print(), 0, 0, vsys_of(call));
    rows.end();
    return call.end(asking_descriptions, "the MAC descriptions can't be read");
}
constexpr argument show_descriptions_arguments[] = {
    optional_value("MAC", kinds::mac, "description of this address only"), vsys_option};

outcome add_description(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (mac_description_add(mac->data(), call.text("TEXT"), call.print(), nullptr, 0, call.language(), 0) !=
        0)
        return call.fail(descriptions, "the MAC address was not described");
    return outcome::done;
}
constexpr argument add_description_arguments[] = {
    value("MAC", kinds::mac, "address to describe"),
    value("TEXT", kinds::text, "its description", {.longest = 127}),
};

outcome remove_description(invocation &call)
{
    const auto mac = call.mac("MAC");
    if (mac_description_remove(mac->data(), call.print(), 0, call.language(), vsys_of(call)) != 0)
        return call.fail(descriptions, "the description was not deleted");
    return outcome::done;
}
constexpr argument remove_description_arguments[] = {
    value("MAC", kinds::mac, "address whose description goes"), vsys_option};

outcome remove_descriptions(invocation &call)
{
    if (mac_description_remove(nullptr, call.print(), 1, call.language(), vsys_of(call)) != 0)
        return call.fail(descriptions, "the descriptions were not deleted");
    return outcome::done;
}
constexpr argument remove_descriptions_arguments[] = {vsys_option};

constexpr command commands[] = {
    {"show mac", "the MAC address table", show, show_arguments},
    {"show mac count", "how many MAC entries there are", show_count, count_arguments},
    {"show mac summary", "numbers of MAC entries by kind", show_summary, summary_arguments},
    {"show mac bound", "whether static entries are in some VLANs", show_bound, bound_arguments},
    {"show mac bound-interface", "whether static entries are on an interface", show_interface_bound,
     interface_bound_arguments},
    {"add mac", "add a static MAC entry", add, add_arguments},
    {"delete mac", "delete a static MAC entry", remove, remove_arguments},
    {"delete mac all", "delete every static MAC entry", remove_all, remove_all_arguments},
    {"clear mac", "forget dynamic MAC entries", clear, clear_arguments},
    {"set mac static", "make the dynamic MAC entries static", convert, convert_arguments},
    {"show mac description", "descriptions of MAC addresses", show_descriptions, show_descriptions_arguments},
    {"add mac description", "describe a MAC address", add_description, add_description_arguments},
    {"delete mac description", "delete the description of a MAC address", remove_description,
     remove_description_arguments},
    {"delete mac description all", "delete every description of a virtual system", remove_descriptions,
     remove_descriptions_arguments},
};

} // namespace

extern const family mac_family;
const family mac_family{"mac", "MAC addresses", commands};

} // namespace mixsh
