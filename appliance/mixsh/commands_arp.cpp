// The ARP table: listings, searches, counts, static entries, clearing and scanning; names of virtual routers.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/arp.h"

#include <libmix/arp.h>

#include <array>
#include <bit>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

request asking(wire::arp_subcommand subcommand, std::uint32_t node = 0)
{
    return {.destination = mktipcid(node, 0, 0), .type = wire::arp_type, .subcommand = subcommand};
}

// --- words

constexpr choice state_words[] = {
    {"none", "nothing is known", wire::arp_state_none},
    {"incomplete", "asked for, no answer yet", wire::arp_state_incomplete},
    {"reachable", "confirmed a moment ago", wire::arp_state_reachable},
    {"stale", "not confirmed of late", wire::arp_state_stale},
    {"delay", "in use again, about to be confirmed", wire::arp_state_delay},
    {"probe", "being confirmed", wire::arp_state_probe},
    {"failed", "there was no answer", wire::arp_state_failed},
    {"permanent", "needs no confirmation", wire::arp_state_permanent},
};
constexpr choice kind_words[] = {
    {"static", "configured here", wire::arp_is_static},
    {"dynamic", "learned from the network", wire::arp_is_dynamic},
    {"permanent", "put into the kernel by somebody else", wire::arp_is_permanent},
    {"idle", "configured here, no interface has its network", wire::arp_is_static_idle},
};

constexpr argument address = option("address", kinds::ipv4, "this address only");
constexpr argument interface = option("interface", kinds::interface_name, "this interface only");
constexpr argument mac = option("mac", kinds::mac, "this MAC address only");
constexpr argument state = option("state", kinds::one_of, "entries in this state", {.choices = state_words});
constexpr argument entry_kind =
    option("kind", kinds::one_of, "entries of this kind", {.choices = kind_words});

// --- the table

constexpr column arp_columns[] = {
    {.title = "Address", .key = "address", .at_least = 15},
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {"State", "state", false, 10},
    {"Kind", "kind", false, 9},
    {"VR", "virtual_router"},
    {"Vsys", "virtual_system"},
    {"Age s", "age_s", false, 6},
};

std::vector<cell> cells_of(const wire::arp_row &row)
{
    return {ipv4_text(row.address),
            mac_text(row.mac),
            field_text(row.interface),
            word_of(state_words, row.state),
            word_of(kind_words, row.kind),
            row.vrid,
            row.vsysid,
            row.age};
}

int print_row(const void *row, void *context, int)
{
    wire::arp_row one;
    std::memcpy(&one, row, sizeof one);
    static_cast<table *>(context)->row(cells_of(one));
    return 0;
}

// The search's state, and behind it where its rows go.
struct search {
    arp_search_state by;
    table *rows;
};

int print_found(const void *row, void *context)
{
    return print_row(row, static_cast<search *>(context)->rows, 0);
}

// Page after page, so that the first rows show at once.
void search_table(invocation &call, table &rows)
{
    wire::arp_search_filter filter{};
    std::uint32_t key = 0, position = 0;
    auto scope = vr_of(call);
    filter.vsysid = vsys_of(call);
    if (const char *prefix = call.text("prefix")) {
        const ipv4_prefix_value value = prefix_value(prefix);
        filter.address = value.address;
        filter.mask = value.mask;
        key |= wire::arp_search_prefix;
    }
    if (const auto one = call.ipv4("address")) {
        filter.address = *one;
        filter.mask = UINT32_MAX;
        key |= wire::arp_search_prefix;
    }
    if (const auto wanted = call.mac("mac")) {
        std::copy(wanted->begin(), wanted->end(), filter.mac);
        key |= wire::arp_search_mac;
    }
    if (const char *name = call.text("interface")) {
        wire::fill_text(filter.interface, name);
        key |= wire::arp_search_interface;
    }
    if (const auto wanted = call.chosen("state")) {
        filter.state = static_cast<std::uint8_t>(*wanted);
        key |= wire::arp_search_state;
    }
    if (const auto wanted = call.chosen("kind")) {
        filter.kind = static_cast<std::uint8_t>(*wanted);
        key |= wire::arp_search_kind;
    }
    search state_of{{&key, &scope, &position}, &rows};
    do {
        search_arp_items(0, 0, print_found, &state_of, call.print(), &filter);
    } while (position != 0 && call.said().empty() && !call.out().unwanted());
}

outcome end_of_listing(invocation &call, table &rows, const request &exchange)
{
    rows.end();
    if (!call.said().empty())
        return call.fail(exchange, "the ARP table can't be read");
    note_rows(call, rows, "entry", "entries");
    return outcome::done;
}

outcome show(invocation &call)
{
    table rows(call.out(), arp_columns);
    const bool searched = call.has("interface") || call.has("mac") || call.has("state") || call.has("kind") ||
                          call.has("prefix");
    if (searched && (call.has("node") || call.has("maximum")))
        return call.misused("node and maximum go with vr, vsys and address only");
    if (call.has("prefix") && call.has("address"))
        return call.misused("an address and a prefix don't go together");
    if (searched)
        search_table(call, rows);
    else
        get_arp_items_detail(vsys_of(call), vr_of(call), 0, call.ipv4("address").value_or(0), print_row,
                             &rows, call.print(), 1, call.number_or<std::int32_t>("maximum", 0),
                             node_of(call), 0);
    return end_of_listing(call, rows, asking(wire::arp_list, node_of(call)));
}

constexpr argument show_arguments[] = {
    vr_option,   vsys_option,
    address,     option("prefix", kinds::ipv4_prefix, "addresses within a prefix"),
    interface,   mac,
    state,       entry_kind,
    node_option, maximum_option,
};

outcome show_count(invocation &call)
{
    const int entries = get_arp_items_count(vsys_of(call), vr_of(call), 0, call.ipv4("address").value_or(0),
                                            node_of(call), 0);
    if (failed_silently())
        return call.fail(asking(wire::arp_count, node_of(call)), "the ARP entries can't be counted");
    call.out().record({{"Entries", "entries", entries}});
    return outcome::done;
}
constexpr argument count_arguments[] = {vr_option, vsys_option, address, node_option};

outcome show_summary(invocation &call)
{
    wire::arp_summary_reply sum;
    if (arp_generic_data_get(vsys_of(call), vr_of(call), &sum, call.print(), node_of(call), 0) < 0)
        return call.fail(asking(wire::arp_summary, node_of(call)), "the ARP summary can't be read");
    call.out().record({{"Entries", "entries", std::uint32_t{sum.total}},
                       {"Static", "static", std::uint32_t{sum.static_entries}},
                       {"Dynamic", "dynamic", std::uint32_t{sum.dynamic_entries}},
                       {"Incomplete", "incomplete", std::uint32_t{sum.incomplete}},
                       {"Failed", "failed", std::uint32_t{sum.failed}},
                       {"Proxies", "proxies", std::uint32_t{sum.proxies}}});
    return outcome::done;
}
constexpr argument summary_arguments[] = {vr_option, vsys_option, node_option};

// --- joined with the MAC table

constexpr column joined_columns[] = {
    {.title = "Address", .key = "address", .at_least = 15},
    {.title = "MAC address", .key = "mac", .at_least = 17},
    {.title = "Interface", .key = "interface", .may_be_cut = true, .at_least = 9},
    {.title = "State", .key = "state", .at_least = 10},
    {.title = "Kind", .key = "kind", .programs_only = true},
    {.title = "VR", .key = "virtual_router_name", .may_be_cut = true, .at_least = 4},
    {.title = "Bridge", .key = "bridge", .may_be_cut = true, .at_least = 6},
    {.title = "Port", .key = "port", .may_be_cut = true, .at_least = 6},
    {"VLAN", "vlan"},
    {.title = "Description", .key = "description", .may_be_cut = true, .at_least = 12},
};

int print_joined(const void *row, void *context, int)
{
    wire::arp_mac_row one;
    std::memcpy(&one, row, sizeof one);
    const bool more = static_cast<table *>(context)->row(
        {ipv4_text(one.arp.address), mac_text(one.arp.mac), field_text(one.arp.interface),
         word_of(state_words, one.arp.state), word_of(kind_words, one.arp.kind), field_text(one.vrname),
         field_text(one.mac_interface), field_text(one.port), unless_zero(one.vlan),
         field_text(one.description)});
    return more ? 0 : -1;
}

constexpr choice display_words[] = {
    {"in-mac-table", "addresses that the MAC table has", wire::arp_mac_with_entry},
    {"all", "every entry", wire::arp_mac_all},
    {"not-in-mac-table", "addresses that the MAC table does not have", wire::arp_mac_without_entry},
};

// The filters that the joined list and its count share.
struct joined_filter {
    std::uint32_t selector;
    std::optional<std::array<std::uint8_t, 6>> mac;
    const char *interfaces, *port, *bridge;
    std::uint8_t kind, state;
    std::uint16_t router;

    explicit joined_filter(const invocation &call)
        : selector(call.ipv4("address").value_or(0)), mac(call.mac("mac")),
          interfaces(call.text("interface")), port(call.text("port")), bridge(call.text("bridge")),
          kind(plus_one(call.chosen("kind"))), state(plus_one(call.chosen("state"))), router(vr_of(call))
    {
    }

  private:
    static std::uint8_t plus_one(std::optional<std::int64_t> value)
    {
        return value ? static_cast<std::uint8_t>(*value + 1) : 0;
    }
};

outcome show_joined(invocation &call)
{
    const joined_filter by(call);
    table rows(call.out(), joined_columns);
    get_arp_mac_items_ex2_vr(print_joined, &rows, call.print(), 1, call.number_or<std::int32_t>("maximum", 0),
                             by.selector, bytes_of(by.mac), by.interfaces, by.port, by.bridge, by.kind,
                             by.state, by.router,
                             static_cast<std::uint8_t>(call.chosen("rows").value_or(wire::arp_mac_all)));
    return end_of_listing(call, rows, asking(wire::arp_mac_list));
}

constexpr argument joined_arguments[] = {
    vr_option,
    address,
    mac,
    option("interface", kinds::word, "these interfaces, separated by commas", {.longest = 191}),
    option("port", kinds::word, "addresses seen on this port", {.longest = 31}),
    option("bridge", kinds::word, "addresses seen on this bridge", {.longest = 31}),
    state,
    entry_kind,
    option("rows", kinds::one_of, "which rows", {.choices = display_words}),
    maximum_option,
};

outcome show_joined_count(invocation &call)
{
    const joined_filter by(call);
    const int entries =
        get_arp_mac_items_count2_vr(call.print(), by.selector, bytes_of(by.mac), by.interfaces, by.port,
                                    by.bridge, by.kind, by.state, by.router);
    if (!call.said().empty())
        return call.fail(asking(wire::arp_mac_count), "the ARP entries can't be counted");
    call.out().record({{"Entries", "entries", entries}});
    return outcome::done;
}
constexpr std::span<const argument> joined_count_arguments = std::span(joined_arguments).first(8);

// The library reads the dotted form only; any other form of a MAC is turned into it.
outcome show_duplicates(invocation &call)
{
    const auto wanted = call.mac("mac");
    std::string dotted;
    if (wanted)
        dotted = fmt::format("{:02x}{:02x}.{:02x}{:02x}.{:02x}{:02x}", (*wanted)[0], (*wanted)[1],
                             (*wanted)[2], (*wanted)[3], (*wanted)[4], (*wanted)[5]);
    const int addresses =
        get_arp_reduplicate_mac_items_count(call.print(), wanted ? dotted.c_str() : nullptr);
    if (!call.said().empty())
        return call.fail(asking(wire::arp_duplicate_count), "the addresses can't be counted");
    call.out().record({{"Addresses that share a MAC", "addresses", addresses}});
    return outcome::done;
}
constexpr argument duplicates_arguments[] = {option("mac", kinds::mac, "that share this MAC address")};

outcome show_proxies(invocation &call)
{
    wire::arp_proxy_key key{};
    if (const char *prefix = call.text("prefix")) {
        const ipv4_prefix_value value = prefix_value(prefix);
        key.address = value.address;
        key.mask = value.mask;
    }
    if (const char *name = call.text("interface"))
        wire::fill_text(key.interface, name);
    const auto passed_on = std::bit_cast<std::array<std::uint8_t, sizeof key>>(key);
    const int entries =
        get_proxy_arp_items_count(vsys_of(call), vr_of(call), passed_on.data(), 0, node_of(call), 0);
    if (failed_silently())
        return call.fail(asking(wire::arp_proxy_count, node_of(call)), "the proxy entries can't be counted");
    call.out().record({{"Proxy entries", "entries", entries}});
    return outcome::done;
}
constexpr argument proxies_arguments[] = {
    vr_option, vsys_option, option("prefix", kinds::ipv4_prefix, "of addresses within a prefix"), interface,
    node_option};

// --- changes

constexpr change static_entries{"the static ARP entries"};

std::uint16_t usual_router(const invocation &call)
{
    return call.number_or<std::uint16_t>("vr", wire::usual_virtual_router);
}

outcome add(invocation &call)
{
    const auto station = call.mac("MAC");
    if (arp_add_static_items(usual_router(call), *call.ipv4("ADDRESS"), station->data(),
                             call.text("description"), call.number_or<std::uint8_t>("option", 0),
                             call.print(), nullptr, 0, call.language(), 0, vsys_of(call)) != 0)
        return call.fail(static_entries, "the static ARP entry was not added");
    // The entry is there; what was said is that its description is not.
    return call.end(change{"the MAC descriptions"}, "the entry was added, but its MAC was not described");
}
constexpr argument own_vr =
    option("vr", kinds::number, "virtual router, 1 if not given", {.low = 1, .high = 65535});
constexpr argument add_arguments[] = {
    value("ADDRESS", kinds::ipv4, "address of the neighbour"),
    value("MAC", kinds::mac, "its MAC address"),
    own_vr,
    vsys_option,
    option("description", kinds::text, "describe the MAC address", {.longest = 127}),
    option("option", kinds::number, "the entry's option byte", {.low = 0, .high = 255}),
};

outcome remove(invocation &call)
{
    if (arp_remove_static_items(usual_router(call), *call.ipv4("ADDRESS"), call.print(), 0, call.language(),
                                0, vsys_of(call)) != 0)
        return call.fail(static_entries, "the static ARP entry was not deleted");
    return outcome::done;
}
constexpr argument remove_arguments[] = {value("ADDRESS", kinds::ipv4, "address of the neighbour"), own_vr,
                                         vsys_option};

outcome remove_all(invocation &call)
{
    if (arp_remove_static_items(usual_router(call), 0, call.print(), 1, call.language(), 0, vsys_of(call)) !=
        0)
        return call.fail(static_entries, "the static ARP entries were not deleted");
    return outcome::done;
}

// One by one, as they are listed; what can't be deleted is told by the library on the console.
outcome remove_listed(invocation &call)
{
    arp_remove_all_static_items_vrouter(usual_router(call), 0, 0, vsys_of(call));
    return call.end(static_entries, "not every static ARP entry was deleted");
}
constexpr argument remove_all_arguments[] = {own_vr, vsys_option};

// This function of the library has no print callback: it tells a refusal on standard output itself.
outcome remove_configuration(invocation &call)
{
    call.out().flush();
    if (arp_remove_static_conf(usual_router(call), call.language(), 0) != 0)
        return call.fail(static_entries, "the static ARP configuration was not deleted");
    return outcome::done;
}
constexpr argument remove_configuration_arguments[] = {own_vr};

outcome clear(invocation &call)
{
    const std::uint8_t which = call.has("unresolved") ? wire::arp_clear_unresolved : wire::arp_clear_all;
    return clear_all(call, asking(wire::arp_clear_dynamic, node_of(call)), "the ARP table was not cleared",
                     [&] {
                         return arp_remove_dynamic_items_detail(vsys_of(call), vr_of(call), 0,
                                                                call.ipv4("address").value_or(0),
                                                                call.print(), node_of(call), which, 0);
                     });
}
constexpr argument clear_arguments[] = {
    vr_option, vsys_option, address, flag("unresolved", "only entries without a MAC address"), node_option};

outcome scan(invocation &call)
{
    const std::uint32_t first = *call.ipv4("FIRST"), last = call.ipv4("LAST").value_or(first);
    if (last < first)
        return call.misused("the last address is below the first");
    const int asked = arp_active_scan(first, last, 0);
    if (asked < 0)
        return call.fail(asking(wire::arp_scan), "the scan was not started");
    call.out().record({{"Addresses asked for", "addresses", asked}});
    return outcome::done;
}
constexpr argument scan_arguments[] = {value("FIRST", kinds::ipv4, "first address to ask for"),
                                       optional_value("LAST", kinds::ipv4, "last address to ask for")};

outcome show_router(invocation &call)
{
    const auto id = call.number_or<std::uint32_t>("ID", 0);
    const std::string_view name = get_vrname_by_vrid(id);
    if (name.empty() || name == "ipc-fail" || name == "not-found-name")
        return call.fail(request{.destination = wire::vrname_daemon, .type = wire::vrname_type},
                         name == "not-found-name" ? "there is no such virtual router"
                                                  : "the virtual router's name can't be read");
    call.out().record({{"Virtual router", "virtual_router", id}, {"Name", "name", name}});
    return outcome::done;
}
constexpr argument router_arguments[] = {
    value("ID", kinds::number, "number of the virtual router", router_ids)};

constexpr command commands[] = {
    {"show arp", "the ARP table", show, show_arguments},
    {"show arp count", "how many ARP entries there are", show_count, count_arguments},
    {"show arp summary", "numbers of ARP entries by kind and state", show_summary, summary_arguments},
    {"show arp mac-table", "the ARP table with what the MAC table knows", show_joined, joined_arguments},
    {"show arp mac-table count", "how many such entries there are", show_joined_count,
     joined_count_arguments},
    {"show arp duplicates", "addresses whose MAC another address has, too", show_duplicates,
     duplicates_arguments},
    {"show arp proxies", "how many proxy entries there are", show_proxies, proxies_arguments},
    {"show virtual-router", "the name of a virtual router", show_router, router_arguments},
    {"add arp", "add a static ARP entry", add, add_arguments},
    {"delete arp", "delete a static ARP entry", remove, remove_arguments},
    {"delete arp all", "delete every static ARP entry of a virtual router", remove_all, remove_all_arguments},
    {"delete arp listed", "list a virtual router and delete its static ARP entries one by one", remove_listed,
     remove_all_arguments},
    {"delete arp configuration", "delete the static ARP configuration of a virtual router",
     remove_configuration, remove_configuration_arguments},
    {"clear arp", "forget dynamic ARP entries", clear, clear_arguments},
    {"set arp scan", "ask for addresses now", scan, scan_arguments},
};

} // namespace

extern const family arp_family;
const family arp_family{"arp", "the ARP table", commands};

} // namespace mixsh
