/* MAC table, MAC descriptions, DHCP snooping. */
#include <libmix/dhcpsn.h>
#include <libmix/mac.h>

#include "sweep/client.h"

namespace mixtest
{

namespace
{

const uint8_t mac[6] = {2, 0, 0, 1, 2, 3};

constexpr page_format entries{2000, 4, 78, {0, 2}, {2, 2}};
constexpr page_format descriptions{2000, 8, 198, {0, 4}, {4, 4}};
constexpr page_format bindings{3000, 8, 80, {0, 4}, {4, 4}};
constexpr uint32_t setting_size = 40;

/* 44 bytes of cookie, the number of rows, the rows. */
shape reads_settings()
{
    shape is{.ignores_commits = true};
    is.row_size = setting_size;
    is.batch = join({some_bytes(44), le16(3), some_bytes(3 * setting_size)});
    return is;
}

shape converts_listed()
{
    return lists(entries, {2, 1}).set(&shape::ignores_commits, true).set(&shape::row_size, size_t{0});
}

} // namespace

std::vector<client> switching_clients()
{
    return {
        {MIX_CALL(get_mac_items, 1, 2, 3, nullptr, MIX_ROWS, g.print, 4, g.maximum, 0, 0, 0),
         lists_up_to(entries)},
        {MIX_CALL(mac_generic_data_get, g.output, g.print, 0, 0),
         answers_status_and(some_bytes(16), {0, 0, -1, -1, -1})},
        {MIX_CALL(mac_remove_dynamic_items, 1, 2, mac, g.print, 0, 0),
         answers(8, join({le32(1), le32(7)}), accepts::exactly, 8, always(0), 7)},
        {MIX_CALL(mac_dynamic2static, 1, g.print, 2), converts_listed()},
        {MIX_BODY(show_callback, const uint32_t tag = 3;
                  return show_callback(guarded_row(repeat(1, entries.row_size)), &tag);),
         commits_whatever_comes()},
        {MIX_CALL(is_if_bound_with_l2_mac, 1, 2),
         lists(entries, {2, 3})
             .set(
                 &shape::of_rows, +[](size_t rows) -> int64_t { return rows != 0; })
             .set(&shape::good, int64_t{1})
             .set(&shape::row_size, size_t{0})},
        {MIX_CALL(is_if_bound_with_l2_mac_vlan_bitmap, 1, guarded_row(bytes(512))),
         answers(1, {1}, accepts::exactly, 1, always(0), 1)},
        {MIX_CALL(mac_add_static_items, "ge1", "Vlan1", mac, 2, g.print, g.error, g.error_size, 0, 1),
         commits()},
        {MIX_CALL(mac_remove_static_items, "ge1", "Vlan1", mac, 2, g.print, 0, 0, 1, 2), commits()},
        {MIX_CALL(mac_description_add, mac, "described", g.print, g.error, g.error_size, 0, 1), commits()},
        {MIX_CALL(mac_description_remove, mac, g.print, 0, 0, 1), commits()},
        {MIX_CALL(get_mac_desc_items, nullptr, MIX_ROWS, g.print, 1, g.maximum, 2),
         lists_up_to(descriptions)},

        {MIX_CALL(dhcpsn_enable_set, "ge1", 1, g.print), commits_whatever_comes()},
        {MIX_CALL(dhcpsn_deny_request_set, "ge1", 1, g.print), commits_whatever_comes()},
        {MIX_CALL(dhcpsn_deny_response_set, "ge1", 1, g.print), commits_whatever_comes()},
        {MIX_CALL(dhcpsn_validity_check_set, "ge1", 1, g.print), commits_whatever_comes()},
        {MIX_CALL(dhcpsn_rate_limit_set, "ge1", 700, g.print), commits_whatever_comes()},
        {MIX_CALL(dhcpsn_if_config_show, "ge1", 0, MIX_ROWS, g.print), reads_settings()},
        {MIX_CALL(dhcpsn_vlan_config_show, 0, MIX_ROWS, g.print), reads_settings()},
        {MIX_BODY(dhcpsn_cfg_show_callback, dhcpsn_show_context context{MIX_ROWS, g.print, 1};
                  const uint8_t *data = guarded_row(g.batch); return dhcpsn_cfg_show_callback(
                      data, static_cast<uint32_t>(g.batch.size()), g.batch_error, &context);),
         reads_settings()},
        {MIX_CALL(get_dhcpsn_items_number, 1, 2, 3, 4, mac, g.print), answers_status(always(0))},
        {MIX_CALL(get_dhcpsn_items, 1, 2, 3, 4, nullptr, MIX_ROWS, g.print, 1, g.maximum),
         lists_up_to(bindings)},
        {MIX_CALL(dhcpsn_remove_dynamic_items, 1, 2, 3, g.print),
         answers_status({-1, -1, 0, 0, 0}).set(&shape::refused_by, refuses::nothing)},
    };
}

} // namespace mixtest
