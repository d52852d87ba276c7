// DHCP snooping: bindings, and the settings of interfaces and VLANs.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/dhcpsn.h"

#include <libmix/dhcpsn.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

constexpr request asking(wire::dhcpsn_opcode opcode)
{
    return {.destination = 0, .type = wire::dhcpsn_type, .subcommand = opcode};
}

// --- bindings

constexpr choice kind_words[] = {
    {"static", "bindings that were written down", wire::dhcpsn_is_static},
    {"dynamic", "bindings of leases", wire::dhcpsn_is_dynamic},
};
constexpr argument vlan = option("vlan", kinds::number, "of this VLAN", vlan_ids);
constexpr argument mac = option("mac", kinds::mac, "of this client");
constexpr argument address = option("address", kinds::ipv4, "of this address");
constexpr argument binding_kind = option("kind", kinds::one_of, "of this kind", {.choices = kind_words});

constexpr column binding_columns[] = {
    {.title = "Address", .key = "address", .at_least = 15},
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {"VLAN", "vlan"},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {.title = "Kind", .key = "kind", .at_least = 7},
    {.title = "Left s", .key = "left_s", .at_least = 6},
    {.title = "Host", .key = "host", .may_be_cut = true, .at_least = 8},
};

int print_binding(const void *row, void *context, int)
{
    wire::dhcpsn_binding one;
    std::memcpy(&one, row, sizeof one);
    const bool more = static_cast<table *>(context)->row(
        {ipv4_text(one.address), mac_text(one.mac), unless_zero(one.vlan), field_text(one.interface),
         one.kind == wire::dhcpsn_is_static ? "static" : "dynamic",
         one.left == wire::dhcpsn_for_ever ? cell() : cell(std::uint32_t{one.left}), field_text(one.host)});
    return more ? 0 : 1;
}

struct binding_filter {
    std::uint16_t vlan, kind;
    std::uint32_t address;
    std::optional<std::array<std::uint8_t, 6>> mac;

    explicit binding_filter(const invocation &call)
        : vlan(call.number_or<std::uint16_t>("vlan", 0)), kind(0), address(call.ipv4("address").value_or(0)),
          mac(call.mac("mac"))
    {
        if (const auto wanted = call.chosen("kind"))
            kind = static_cast<std::uint16_t>(*wanted + 1);
    }
};

outcome show_bindings(invocation &call)
{
    const binding_filter by(call);
    table rows(call.out(), binding_columns);
    get_dhcpsn_items(by.vlan, by.kind, 0, by.address, bytes_of(by.mac), print_binding, &rows, call.print(), 1,
                     call.number_or<int>("maximum", 0));
    rows.end();
    if (!call.said().empty())
        return call.fail(asking(wire::dhcpsn_list), "the bindings can't be read");
    note_rows(call, rows, "binding", "bindings");
    return outcome::done;
}
constexpr argument show_bindings_arguments[] = {vlan, mac, address, binding_kind, maximum_option};

outcome show_count(invocation &call)
{
    const binding_filter by(call);
    const int bindings =
        get_dhcpsn_items_number(by.vlan, by.kind, 0, by.address, bytes_of(by.mac), call.print());
    if (!call.said().empty())
        return call.fail(asking(wire::dhcpsn_count), "the bindings can't be counted");
    call.out().record({{"Bindings", "bindings", bindings}});
    return outcome::done;
}
constexpr argument count_arguments[] = {vlan, mac, address, binding_kind};

outcome clear(invocation &call)
{
    return clear_all(call, asking(wire::dhcpsn_clear_dynamic), "the bindings were not cleared", [&] {
        return dhcpsn_remove_dynamic_items(call.number_or<std::uint16_t>("vlan", 0),
                                           call.ipv4("address").value_or(0), 0, call.print());
    });
}
constexpr argument clear_arguments[] = {vlan, address};

// --- settings

constexpr change settings{"the DHCP snooping settings"};

constexpr column setting_columns[] = {
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {"VLAN", "vlan"},
    {"Snooping", "snooping"},
    {"Rate limit", "rate_limit_per_s"},
    {"Deny request", "deny_request"},
    {"Deny response", "deny_response"},
    {"Validity check", "validity_check"},
};

int print_setting(const void *row, void *context, int)
{
    wire::dhcpsn_setting one;
    std::memcpy(&one, row, sizeof one);
    const bool more = static_cast<table *>(context)->row(
        {field_text(one.interface), unless_zero(one.vlan), one.enable != 0, unless_zero(one.rate_limit),
         one.deny_request != 0, one.deny_response != 0, one.validity != 0});
    return more ? 0 : -1;
}

outcome end_of_settings(invocation &call, table &rows)
{
    rows.end();
    return call.end(settings, "the DHCP snooping settings can't be read");
}

constexpr choice selector_words[] = {
    {"enabled", "interfaces that are snooped on", wire::dhcpsn_enabled_interfaces},
    {"disabled", "interfaces that are not", wire::dhcpsn_disabled_interfaces},
};

outcome show_interfaces(invocation &call)
{
    table rows(call.out(), setting_columns);
    dhcpsn_if_config_show(call.text("INTERFACE"), static_cast<std::uint8_t>(call.chosen("only").value_or(0)),
                          print_setting, &rows, call.print());
    return end_of_settings(call, rows);
}
constexpr argument interfaces_arguments[] = {
    optional_value("INTERFACE", kinds::interface_name, "settings of this interface only"),
    option("only", kinds::one_of, "which interfaces", {.choices = selector_words})};

outcome show_vlans(invocation &call)
{
    table rows(call.out(), setting_columns);
    dhcpsn_vlan_config_show(call.number_or<std::uint16_t>("VLAN", 0), print_setting, &rows, call.print());
    return end_of_settings(call, rows);
}
constexpr argument vlans_arguments[] = {
    optional_value("VLAN", kinds::number, "settings of this VLAN only", vlan_ids)};

// The library's setters always return 0; a refusal is what they print.
outcome set(invocation &call)
{
    const char *name = call.text("INTERFACE");
    const auto on_off_setting = [&](std::string_view word, decltype(dhcpsn_enable_set) &function) {
        if (const auto value = call.chosen(word); value && call.said().empty())
            function(name, static_cast<std::uint8_t>(*value), call.print());
    };
    if (!call.has("snooping") && !call.has("rate-limit") && !call.has("deny-request") &&
        !call.has("deny-response") && !call.has("validity-check"))
        return call.misused("name at least one setting");
    on_off_setting("snooping", dhcpsn_enable_set);
    on_off_setting("deny-request", dhcpsn_deny_request_set);
    on_off_setting("deny-response", dhcpsn_deny_response_set);
    on_off_setting("validity-check", dhcpsn_validity_check_set);
    if (const auto rate = call.number("rate-limit"); rate && call.said().empty())
        dhcpsn_rate_limit_set(name, static_cast<std::uint16_t>(*rate), call.print());
    return call.end(settings, "the DHCP snooping settings were not changed");
}
constexpr argument set_arguments[] = {
    value("INTERFACE", kinds::interface_name, "interface, or \"vlan\" and a VLAN id"),
    option("snooping", kinds::one_of, "whether DHCP is snooped on", on_off),
    option("rate-limit", kinds::number, "messages a second that are let through, 0 for any number",
           router_ids),
    option("deny-request", kinds::one_of, "whether requests are dropped", on_off),
    option("deny-response", kinds::one_of, "whether responses are dropped", on_off),
    option("validity-check", kinds::one_of, "whether messages are checked", on_off),
};

constexpr command commands[] = {
    {"show dhcp-snooping bindings", "addresses leased to clients", show_bindings, show_bindings_arguments},
    {"show dhcp-snooping count", "how many bindings there are", show_count, count_arguments},
    {"show dhcp-snooping interface", "settings of interfaces", show_interfaces, interfaces_arguments},
    {"show dhcp-snooping vlan", "settings of VLANs", show_vlans, vlans_arguments},
    {"set dhcp-snooping", "change settings of an interface", set, set_arguments},
    {"clear dhcp-snooping", "forget the bindings of leases", clear, clear_arguments},
};

} // namespace

extern const family dhcp_snooping_family;
const family dhcp_snooping_family{"dhcp_snooping", "DHCP snooping", commands};

} // namespace mixsh
