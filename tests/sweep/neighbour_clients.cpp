/* Fragment settings, ARP, IPv6 neighbours, spoofing protection, gratuitous ARP. */
#include <libmix/arp.h>
#include <libmix/gas.h>
#include <libmix/ipdefrag.h>
#include <libmix/nd.h>
#include <libmix/spoofing.h>

#include "sweep/client.h"

namespace mixtest
{

namespace
{

const uint8_t mac[6] = {2, 0, 0, 1, 2, 3};
const uint8_t address[16] = {0x20, 1, 0xd, 0xb8};
const uint8_t search_filter[108] = {10, 0, 0, 1};

constexpr page_format entries{3000, 8, 56, {0, 4}, {4, 4}};
constexpr page_format joined{3000, 8, 280, {0, 4}, {4, 4}};
constexpr page_format neighbours{3000, 8, 64, {0, 4}, {4, 4}};
constexpr page_format filtered_neighbours{3000, 16, 64, {0, 4}, {4, 4}};
constexpr page_format arp_statistics{2000, 4, 48, {0, 2}, {2, 2}};
constexpr page_format nd_statistics{2000, 8, 56, {0, 2}, {2, 2}};
constexpr page_format arp_inspection{3000, 8, 70, {4, 4}, {0, 4}};
constexpr page_format nd_inspection{3000, 8, 38, {4, 4}, {0, 4}};
constexpr page_format senders{2000, 4, 76, {0, 2}, {2, 2}};

shape joined_list()
{
    return lists_up_to(joined);
}
shape entry_list()
{
    return lists_up_to(entries);
}

/* A static entry of that virtual router. */
bytes static_entry(uint16_t vrid)
{
    return record_of(56, {{0, le32(0x0A000001)}, {8, le16(vrid)}});
}

exchange router_name(bool tolerated)
{
    return {
        .capacity = 32, .reply = text_field("red", 32), .fails = {-2, -2, -4, -1, 0}, .tolerated = tolerated};
}

/* Changes that ask for the router's name first, and go on without it. */
shape commits_by_name()
{
    return {.exchanges = {router_name(true)}};
}

/* The pages, and behind each the names that its static entries' removal asks for. */
shape removes_listed(uint16_t vrid)
{
    const auto page_of = [=](uint32_t next, uint32_t count) {
        bytes page = entries.page(next, count);
        for (uint32_t i = 0; i < count; i++)
            put_at(page, entries.header + size_t{i} * entries.row_size, static_entry(vrid));
        return exchange{.capacity = entries.capacity,
                        .reply = page,
                        .lengths = accepts::exactly,
                        .length = static_cast<uint32_t>(page.size()),
                        .fails = always(0),
                        .tolerated = true};
    };
    return {
        .exchanges = {page_of(9, 2), router_name(true), router_name(true), page_of(0, 1), router_name(true)},
        .ignores_commits = true};
}

shape answers_text(exchange with)
{
    return {.exchanges = {std::move(with)}};
}

int64_t name_of_router(given &g, const char *name)
{
    const std::string text = name;
    if (text.empty())
        return -2;
    if (text == "ipc-fail")
        return -4;
    if (text == "not-found-name")
        return -1;
    std::copy(text.begin(), text.end(), g.output);
    return 0;
}

/* The search's callback has no first-row flag, and its context is the search's state. */
struct search {
    arp_search_state state;
    given *into;
};
int take_found(const void *row, void *search_state)
{
    return given::take_row(row, static_cast<search *>(search_state)->into, 0);
}

shape search_page()
{
    shape is = lists(entries, {2}).set(&shape::single_page, true);
    is.exchanges[0].reply = entries.page(7, 2);
    return is;
}

} // namespace

std::vector<client> neighbour_clients()
{
    const failures none_sent_4 = {0, 4, 4, 4, 4};
    return {
        {MIX_CALL(get_ipdefrag_para, g.as<uint32_t>(0), g.as<uint32_t>(4), g.print),
         answers_status_and(some_bytes(4), always(-1))},
        {MIX_CALL(set_ipdefrag_para, 700, 900, g.print), commits_whatever_comes()},

        {MIX_CALL(get_arp_items_detail, 1, 2, 3, 4, MIX_ROWS, g.print, 1, g.maximum, 0, 0), entry_list()},
        {MIX_CALL(get_arp_items, 1, 3, 4, MIX_ROWS, g.print, 1, g.maximum), entry_list()},
        {MIX_CALL(get_arp_items_vr, 1, 2, 3, 4, MIX_ROWS, g.print, 1, g.maximum), entry_list()},
        {MIX_BODY(search_arp_items, const uint32_t key = 1; const uint16_t scope = 2;
                  search of{{&key, &scope, g.as<uint32_t>()}, &g};
                  return search_arp_items(0, 0, take_found, &of, g.print, search_filter);),
         search_page()},
        {MIX_CALL(get_arp_items_count, 1, 2, 3, 4, 0, 0), answers_status(always(0))},
        {MIX_CALL(get_proxy_arp_items_count, 1, 2, nullptr, 4, 0, 0), answers_status(always(0))},
        {MIX_CALL(arp_generic_data_get, 1, 2, g.output, g.print, 0, 0),
         answers_status_and(some_bytes(24), always(-1))},
        {MIX_CALL(get_arp_mac_items_ex2_vr, MIX_ROWS, g.print, 1, g.maximum, 1, mac, "Vlan1", "b", "c", 1, 2,
                  3, 2),
         joined_list()},
        {MIX_CALL(get_arp_mac_items_ex2, MIX_ROWS, g.print, 1, g.maximum, 1, mac, "Vlan1", "b", "c", 1, 2),
         joined_list()},
        {MIX_CALL(get_arp_mac_items_ex_vr, MIX_ROWS, g.print, 1, g.maximum, 1, mac, "Vlan1", "b", "c", 3),
         joined_list()},
        {MIX_CALL(get_arp_mac_items_ex, MIX_ROWS, g.print, 1, g.maximum, 1, nullptr, nullptr, nullptr,
                  nullptr),
         joined_list()},
        {MIX_CALL(get_arp_mac_items_vr, MIX_ROWS, g.print, 1, g.maximum, 3, 2), joined_list()},
        {MIX_CALL(get_arp_mac_items, MIX_ROWS, g.print, 1, g.maximum), joined_list()},
        {MIX_CALL(get_arp_mac_items_count2_vr, g.print, 1, mac, "Vlan1", "b", "c", 1, 2, 3),
         answers_status(always(0))},
        {MIX_CALL(get_arp_mac_items_count2, g.print, 1, mac, "Vlan1", "b", "c", 1, 2),
         answers_status(always(0))},
        {MIX_CALL(get_arp_mac_items_count, g.print, 1, nullptr, nullptr, nullptr, nullptr),
         answers_status(always(0))},
        {MIX_CALL(get_arp_mac_items_count_vr, g.print, 1, mac, "Vlan1", "b", "c", 3),
         answers_status(always(0))},
        {MIX_CALL(get_arp_reduplicate_mac_items_count, g.print, "0011.2233.4455"), answers_status(always(0))},
        {MIX_BODY(get_vrname_by_vrid, return name_of_router(g, get_vrname_by_vrid(3));),
         answers_text(router_name(false))},
        {MIX_CALL(arp_add_static_items, 1, 0x0A000001, mac, "described", 1, g.print, g.error, g.error_size, 0,
                  1, 2),
         commits_by_name()},
        {MIX_CALL(arp_remove_static_items, 1, 0x0A000001, g.print, 0, 0, 1, 2), commits_by_name()},
        {MIX_CALL(arp_remove_static_conf, 1, 0, 1), commits_by_name()},
        {MIX_BODY(arp_remove_one_static_items_vrouter, arp_removal_context context{1, 0, 3, 2};
                  return arp_remove_one_static_items_vrouter(guarded_row(static_entry(3)), &context);),
         commits_by_name().set(&shape::ignores_commits, true)},
        {MIX_CALL(arp_remove_all_static_items_vrouter, 3, 0, 1, 2), removes_listed(3)},
        {MIX_CALL(arp_remove_dynamic_items_detail, 1, 2, 3, 4, g.print, 0, 1, 0), answers_status(always(-1))},
        {MIX_CALL(arp_remove_dynamic_items, 3, 4, g.print, 1), answers_status(always(-1))},
        {MIX_CALL(arp_remove_dynamic_items_vr, 2, 3, 4, g.print, 1), answers_status(always(-1))},
        {MIX_CALL(arp_active_scan, 0x0A000001, 0x0A0000FF, 1), answers_status(always(-1))},

        {MIX_CALL(get_nd_items_detail, 1, 2, 3, address, MIX_ROWS, g.print, 1, g.maximum, 0, 0),
         lists_up_to(neighbours)},
        {MIX_CALL(get_nd_items_static_detail, 1, 2, 3, address, MIX_ROWS, g.print, 1, g.maximum, 0, 0),
         lists_up_to(neighbours)},
        {MIX_CALL(get_nd_items, 3, nullptr, MIX_ROWS, g.print, 1, g.maximum, 0, 0), lists_up_to(neighbours)},
        {MIX_CALL(get_nd_items_ex2_vr, MIX_ROWS, g.print, 1, static_cast<uint32_t>(g.maximum), address, mac,
                  1, 2, 3, g.as<uint32_t>()),
         lists_up_to(filtered_neighbours)},
        {MIX_CALL(nd_remove_dynamic_items_detail, 1, 2, 3, address, g.print, 0, 1, 0),
         answers_status(always(-1))},
        {MIX_CALL(nd_generic_data_get, 1, 2, g.output, g.print, 0, 0),
         answers_status_and(some_bytes(16), always(-1))},
        {MIX_BODY(exec_ipv6_nd_dynamic_to_static_callback,
                  exec_ipv6_nd_dynamic_to_static_callback(guarded_row(repeat('a', 64)));
                  return 0;),
         commits_whatever_comes()},

        {MIX_CALL(get_aspf_stats_items, 1, 0, static_cast<uint32_t>(g.maximum), MIX_ROWS, g.print),
         lists(arp_statistics, {2, 3})},
        {MIX_CALL(aspf_stats_clear, 1, mac, 2, g.print), answers(4, {}, always(0))},
        {MIX_CALL(get_ndspf_stats_items, 1, 2, MIX_ROWS, g.print), lists(nd_statistics, {2, 3})},
        {MIX_CALL(ndspf_stats_clear, 1, g.print), answers(4, {}, always(0))},
        {MIX_CALL(arpi_config_show, 1, "Vlan1", 2, 1, MIX_ROWS, g.print), lists(arp_inspection, {2, 3})},
        {MIX_CALL(show_arpi_config_by_if, 1, 0, MIX_ROWS, "Vlan10-20", g.print),
         lists(arp_inspection, {2, 3})},
        {MIX_CALL(ndi_config_show, 1, nullptr, 2, 0, MIX_ROWS, g.print), lists(nd_inspection, {2, 3})},

        {MIX_CALL(gas_add_item, 0, 0x0A000001, mac, "Vlan1", 1, 1, g.print, g.error, g.error_size),
         commits()},
        {MIX_CALL(gas_del_item, 0, 0x0A000001, "Vlan1", g.print, g.error, g.error_size), commits()},
        {MIX_CALL(gas_get_item, 1, MIX_ROWS, g.print), lists(senders, {2, 3})},
        {MIX_CALL(gas_get_item_one, 0, 0x0A000001, 1, g.print),
         answers(4, some_bytes(4), none_sent_4, 4).set(&shape::result_is_length, true)},
    };
}

} // namespace mixtest
