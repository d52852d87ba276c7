// Spoofing protection: what it has dropped, and its inspection settings.
#include "appliance/mixsh/shared.h"
#include "appliance/mixsh/times.h"
#include "appliance/wire/spoofing.h"

#include <libmix/spoofing.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

// --- statistics

constexpr column arp_columns[] = {
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {"VLAN", "vlan"},
    {.title = "Claimed", .key = "address", .at_least = 15},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {"MAC", "mac_check", false, 6},
    {"Reverse", "reverse_check"},
    {"Rate", "rate_check", false, 6},
    {.title = "Last", .key = "last", .at_least = 19},
    {.title = "Vsys", .key = "virtual_system", .programs_only = true},
};

int print_arp(const void *row, void *context, int)
{
    wire::aspf_row one;
    std::memcpy(&one, row, sizeof one);
    static_cast<table *>(context)->row({mac_text(one.mac), unless_zero(one.vlan), ipv4_text(one.address),
                                        field_text(one.interface), one.dropped.mac, one.dropped.reverse,
                                        one.dropped.rate, local_time(one.last), one.vsysid});
    return 0;
}

outcome show_arp(invocation &call)
{
    table rows(call.out(), arp_columns);
    get_aspf_stats_items(vsys_of(call), 0, call.number_or<std::uint32_t>("maximum", 0), print_arp, &rows,
                         call.print());
    rows.end();
    return call.end(request{.type = wire::aspf_type, .subcommand = wire::aspf_list},
                    "the statistics can't be read");
}
constexpr argument show_arp_arguments[] = {vsys_option, maximum_option};

constexpr column nd_columns[] = {
    {.title = "Address", .key = "address", .at_least = 20},
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {"MAC", "mac_check", false, 6},
    {"Reverse", "reverse_check"},
    {"Rate", "rate_check", false, 6},
    {.title = "Last", .key = "last", .at_least = 19},
    {.title = "Vsys", .key = "virtual_system", .programs_only = true},
};

int print_nd(const void *row, void *context, int)
{
    wire::ndspf_row one;
    std::memcpy(&one, row, sizeof one);
    static_cast<table *>(context)->row({ipv6_text(one.address), mac_text(one.mac), field_text(one.interface),
                                        one.dropped.mac, one.dropped.reverse, one.dropped.rate,
                                        local_time(one.last), one.vsysid});
    return 0;
}

outcome show_nd(invocation &call)
{
    table rows(call.out(), nd_columns);
    get_ndspf_stats_items(vsys_of(call), call.number_or<std::uint32_t>("at-least", 0), print_nd, &rows,
                          call.print());
    rows.end();
    return call.end(request{.type = wire::ndspf_type, .subcommand = wire::ndspf_list},
                    "the statistics can't be read");
}
constexpr argument show_nd_arguments[] = {
    vsys_option, option("at-least", kinds::number, "addresses with at least so many dropped packets")};

outcome clear_arp(invocation &call)
{
    const auto mac = call.mac("mac");
    if (!mac && call.has("vlan"))
        return call.misused("a VLAN goes with a MAC address only");
    aspf_stats_clear(vsys_of(call), bytes_of(mac), call.number_or<std::uint16_t>("vlan", 0), call.print());
    return call.end(
        request{.type = wire::aspf_type, .subcommand = mac ? wire::aspf_clear_one : wire::aspf_clear_all},
        "the statistics were not cleared");
}
constexpr argument clear_arp_arguments[] = {
    vsys_option, option("mac", kinds::mac, "of this MAC address only"),
    option("vlan", kinds::number, "of the MAC address in this VLAN only", vlan_ids)};

outcome clear_nd(invocation &call)
{
    ndspf_stats_clear(vsys_of(call), call.print());
    return call.end(request{.type = wire::ndspf_type, .subcommand = wire::ndspf_clear_all},
                    "the statistics were not cleared");
}
constexpr argument clear_nd_arguments[] = {vsys_option};

// --- inspection

constexpr column setting_columns[] = {
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {"VLANs", "vlans", false, 9},
    {.title = "Policy", .key = "policy", .at_least = 8},
    {"Enabled", "enabled"},
    {"Trusted", "trusted"},
    {"Drops", "drops"},
    {.title = "Checks", .key = "checks", .at_least = 16},
    {"Rate", "rate_per_s", false, 6},
    {.title = "Vsys", .key = "virtual_system", .programs_only = true},
    {.title = "Description", .key = "description", .may_be_cut = true, .at_least = 11},
};
constexpr std::span<const column> nd_setting_columns = std::span(setting_columns).first(9);

std::string vlans_text(const wire::ndi_row &row)
{
    if (row.first_vlan == 0)
        return "all";
    if (row.first_vlan == row.last_vlan)
        return fmt::format("{}", std::uint16_t{row.first_vlan});
    return fmt::format("{}-{}", std::uint16_t{row.first_vlan}, std::uint16_t{row.last_vlan});
}

std::vector<std::string> checks_of(std::uint8_t checks)
{
    std::vector<std::string> found;
    constexpr std::pair<wire::inspection_check, std::string_view> words[] = {
        {wire::inspection_checks_mac, "mac"},
        {wire::inspection_checks_reverse, "reverse"},
        {wire::inspection_checks_rate, "rate"}};
    for (const auto &[check, word] : words)
        if ((checks & check) != 0)
            found.emplace_back(word);
    return found;
}

std::vector<cell> cells_of(const wire::ndi_row &row)
{
    const auto flag_of = [&](wire::inspection_flag flag) { return cell((row.flags & flag) != 0); };
    return {field_text(row.interface),
            vlans_text(row),
            field_text(row.policy),
            flag_of(wire::inspection_enabled),
            flag_of(wire::inspection_trusted),
            cell((row.flags & wire::inspection_log_only) == 0),
            checks_of(row.checks),
            unless_zero(row.rate),
            row.vsysid};
}

int print_arp_setting(const void *row, void *context, int)
{
    wire::arpi_row one;
    std::memcpy(&one, row, sizeof one);
    std::vector<cell> cells = cells_of(one.setting);
    cells.push_back(field_text(one.description));
    static_cast<table *>(context)->row(std::move(cells));
    return 0;
}

int print_nd_setting(const void *row, void *context, int)
{
    wire::ndi_row one;
    std::memcpy(&one, row, sizeof one);
    static_cast<table *>(context)->row(cells_of(one));
    return 0;
}

// What both listings are selected by; they take one selection at a time.
struct setting_selection {
    std::uint16_t vsysid;
    const char *name = nullptr;
    std::uint16_t vlan = 0;
    std::uint8_t mode = wire::inspection_by_vlan;

    explicit setting_selection(const invocation &call)
        : vsysid(vsys_of(call)), vlan(call.number_or<std::uint16_t>("vlan", 0))
    {
        if (const char *policy = call.text("policy")) {
            name = policy;
            mode = wire::inspection_by_policy;
        } else if (const char *interface = call.text("interface")) {
            name = interface;
            mode = wire::inspection_by_interface;
        }
    }
};

bool several_selections(const invocation &call)
{
    return (call.has("policy") ? 1 : 0) + (call.has("interface") ? 1 : 0) + (call.has("vlan") ? 1 : 0) > 1;
}

constexpr std::string_view one_selection = "only one of policy, interface and vlan can be given";

outcome end_of_settings(invocation &call, table &rows, std::uint32_t type)
{
    rows.end();
    return call.end(
        request{.destination = wire::inspection_daemon, .type = type, .subcommand = wire::inspection_show},
        "the inspection settings can't be read");
}

outcome show_arp_settings(invocation &call)
{
    if (several_selections(call))
        return call.misused(one_selection);
    const setting_selection by(call);
    table rows(call.out(), setting_columns);
    if (by.mode == wire::inspection_by_interface)
        show_arpi_config_by_if(by.vsysid, 0, print_arp_setting, &rows, by.name, call.print());
    else
        arpi_config_show(by.vsysid, by.name, by.vlan, by.mode, print_arp_setting, &rows, call.print());
    return end_of_settings(call, rows, wire::arpi_type);
}

outcome show_nd_settings(invocation &call)
{
    if (several_selections(call))
        return call.misused(one_selection);
    const setting_selection by(call);
    table rows(call.out(), nd_setting_columns);
    ndi_config_show(by.vsysid, by.name, by.vlan, by.mode, print_nd_setting, &rows, call.print());
    return end_of_settings(call, rows, wire::ndi_type);
}

constexpr argument setting_arguments[] = {
    vsys_option,
    option("policy", kinds::word, "settings of this policy", {.longest = 31}),
    option("interface", kinds::word, "settings of this interface; for ARP also VlanN and VlanN-M",
           {.longest = 31}),
    option("vlan", kinds::number, "settings that apply to this VLAN", vlan_ids),
};

constexpr command commands[] = {
    {"show spoofing arp", "ARP packets dropped, by the MAC that sent them", show_arp, show_arp_arguments},
    {"show spoofing nd", "ND packets dropped, by the address they claimed", show_nd, show_nd_arguments},
    {"clear spoofing arp", "forget the ARP statistics", clear_arp, clear_arp_arguments},
    {"clear spoofing nd", "forget the ND statistics", clear_nd, clear_nd_arguments},
    {"show inspection arp", "settings of ARP inspection", show_arp_settings, setting_arguments},
    {"show inspection nd", "settings of ND inspection", show_nd_settings, setting_arguments},
};

} // namespace

extern const family spoofing_family;
const family spoofing_family{"spoofing", "spoofing protection", commands};

} // namespace mixsh
