/* Every listing against a daemon that answers anything. */
#include <libmix/arp.h>
#include <libmix/bhv.h>
#include <libmix/dhcpsn.h>
#include <libmix/gas.h>
#include <libmix/issu.h>
#include <libmix/mac.h>
#include <libmix/nd.h>
#include <libmix/spoofing.h>

#include "fuzz/hostile_daemon.h"
#include "support/scripted_platform.h"

namespace
{

using namespace mixfuzz;

constexpr page_layout arp_page{8, 56, 4, 4}, joined_page{8, 280, 4, 4}, nd_page{8, 64, 4, 4},
    filtered_nd_page{16, 64, 4, 4}, aspf_page{4, 48, 2, 2}, ndspf_page{8, 56, 2, 2}, arpi_page{8, 70, 0, 4},
    ndi_page{8, 38, 0, 4}, gas_page{4, 76, 2, 2}, mac_page{4, 78, 2, 2}, mac_description_page{8, 198, 4, 4},
    binding_page{8, 80, 4, 4}, object_page{8, 616, 4, 4}, profile_page{4, 7640, 2, 2},
    processor_page{20, 40, 16, 4}, settings_batch{46, 40, 44, 2};

void arp(call &with)
{
    with.counted(
        get_arp_items_detail(1, 2, 3, 4, with.rows<56>(), &with, with.print(), 5, with.number(), 0, 0));
}

void arp_search(call &with)
{
    const uint32_t key = with.number();
    const uint16_t scope = with.number();
    struct {
        arp_search_state by;
        call *with;
    } state{};
    uint32_t position = 0;
    state = {{&key, &scope, &position}, &with};
    const auto each = [](const void *row, void *searched) {
        return static_cast<decltype(state) *>(searched)->with->take_row(row, 56);
    };
    uint64_t found = 0;
    for (uint32_t rows = 1; rows != 0 && found < 100 && (found == 0 || position != 0); found += rows)
        rows = search_arp_items(0, 0, each, &state, with.print(), with.bytes(108));
    if (!with.is(call::without_callback))
        with.counted(found);
}

void arp_joined(call &with)
{
    with.counted_unless_stopped(get_arp_mac_items_ex2_vr(with.rows<280>(), &with, with.print(), 1,
                                                         with.number(), 2, with.bytes(6), with.text(),
                                                         nullptr, with.text(), 3, 4, 5, 6));
}

void arp_remove_all(call &with)
{
    arp_remove_all_static_items_vrouter(with.number(), 0, 1, 0);
}

void nd(call &with)
{
    with.counted(get_nd_items_detail(1, 2, 3, with.bytes(16), with.rows<64>(), &with, with.print(), 1,
                                     with.number(), 0, 0));
}

void nd_filtered(call &with)
{
    const uint8_t everything[16] = {};
    auto *total = with.out<uint32_t>(1);
    with.counted_unless_stopped(get_nd_items_ex2_vr(with.rows<64>(), &with, with.print(), 1, with.number(),
                                                    everything, with.bytes(6), 1, 2, 3, total));
}

void aspf(call &with)
{
    with.counted(get_aspf_stats_items(1, 0, with.number(), with.rows<48>(), &with, with.print()));
}

void ndspf(call &with)
{
    with.counted(get_ndspf_stats_items(1, 2, with.rows<56>(), &with, with.print()));
}

void arpi(call &with)
{
    with.counted(arpi_config_show(1, with.text(), 2, with.number(), with.rows<70>(), &with, with.print()));
}

void arpi_by_interface(call &with)
{
    const char *name = with.text();
    with.counted(show_arpi_config_by_if(1, 0, with.rows<70>(), &with, name != nullptr ? name : "Vlan4094-1",
                                        with.print()));
}

void ndi(call &with)
{
    with.counted(ndi_config_show(1, with.text(), 2, with.number(), with.rows<38>(), &with, with.print()));
}

void gas(call &with)
{
    with.counted(gas_get_item(with.number(), with.rows<76>(), &with, with.print()));
}

void mac(call &with)
{
    with.counted(static_cast<uint32_t>(get_mac_items(1, 2, 3, with.bytes(6), with.rows<78>(), &with,
                                                     with.print(), 1, with.number(), with.number(), 0, 0)));
}

void mac_to_static(call &with)
{
    mac_dynamic2static(1, with.print(), with.number());
}

void mac_descriptions(call &with)
{
    with.counted(static_cast<uint32_t>(
        get_mac_desc_items(with.bytes(6), with.rows<198>(), &with, with.print(), 1, with.number(), 0)));
}

void bindings(call &with)
{
    with.counted_unless_stopped(static_cast<uint32_t>(get_dhcpsn_items(
        with.number(), 1, 2, 3, with.bytes(6), with.rows<80>(), &with, with.print(), 1, with.number())));
}

template <size_t Size>
int on_record(const void *record, void *with)
{
    return static_cast<call *>(with)->take_row(record, Size);
}

/* Both return the low 16 bits of the count; no input has replies for more rows. */
void objects(call &with)
{
    with.counted(get_bhv_obj(with.text(), 1, 2, with.is(call::without_callback) ? nullptr : on_record<616>,
                             &with, with.print()));
}

void profiles(call &with)
{
    with.counted(get_bhv_profile(with.text(), with.is(call::without_callback) ? nullptr : on_record<7640>,
                                 &with, with.print()));
}

void processors(call &with)
{
    static_cast<void>(with);
    issu_show_cpu_status(1, [](const void *entry, int) {
        touch(entry, 40);
        return 0;
    });
}

/* The gateway's batches come to the callback as they are: any bytes, in a block that ends with them. */
void batches_from_the_gateway()
{
    mixtest::platform().on_read = [](mgi_batch_callback callback, void *context) {
        int result = 0;
        for (int i = 0; i < 4 && result == 0; i++) {
            const mixtest::answer batch = mixtest::platform().handler({.capacity = 4096});
            if (batch.sent < 0)
                break;
            result = callback(batch.reply.data(), static_cast<uint32_t>(batch.reply.size()), batch.status,
                              context);
        }
        return result;
    };
}

void snooping_settings(call &with)
{
    batches_from_the_gateway();
    dhcpsn_if_config_show(with.text(), with.number(), with.rows<40>(), &with, with.print());
}

void snooping_settings_of_vlan(call &with)
{
    batches_from_the_gateway();
    dhcpsn_vlan_config_show(with.number(), with.rows<40>(), &with, with.print());
}

void snooping_batch(call &with)
{
    dhcpsn_show_context to{with.rows<40>(), &with, with.print(), 1};
    const mixtest::answer batch = mixtest::platform().handler({.capacity = 4096});
    dhcpsn_cfg_show_callback(batch.reply.data(), static_cast<uint32_t>(batch.reply.size()), batch.status,
                             &to);
}

/* --- the same listings by their shorter names --- */

void arp_by_virtual_system(call &with)
{
    with.counted(get_arp_items(1, 2, 3, with.rows<56>(), &with, with.print(), 4, with.number()));
}

void arp_by_virtual_router(call &with)
{
    with.counted(get_arp_items_vr(1, 2, 3, 4, with.rows<56>(), &with, with.print(), 5, with.number()));
}

void arp_joined_of_all(call &with)
{
    with.counted_unless_stopped(get_arp_mac_items(with.rows<280>(), &with, with.print(), 1, with.number()));
}

void arp_joined_by_virtual_router(call &with)
{
    with.counted_unless_stopped(
        get_arp_mac_items_vr(with.rows<280>(), &with, with.print(), 1, with.number(), 2, 3));
}

void arp_joined_by_choice(call &with)
{
    with.counted_unless_stopped(get_arp_mac_items_ex(with.rows<280>(), &with, with.print(), 1, with.number(),
                                                     2, with.bytes(6), with.text(), nullptr, with.text()));
}

void arp_joined_by_choice_and_virtual_router(call &with)
{
    with.counted_unless_stopped(get_arp_mac_items_ex_vr(with.rows<280>(), &with, with.print(), 1,
                                                        with.number(), 2, with.bytes(6), with.text(), nullptr,
                                                        with.text(), 3));
}

void arp_joined_by_choice_and_options(call &with)
{
    with.counted_unless_stopped(get_arp_mac_items_ex2(with.rows<280>(), &with, with.print(), 1, with.number(),
                                                      2, with.bytes(6), with.text(), nullptr, with.text(), 3,
                                                      4));
}

void nd_static(call &with)
{
    with.counted(get_nd_items_static_detail(1, 2, 3, with.bytes(16), with.rows<64>(), &with, with.print(), 1,
                                            with.number(), 0, 0));
}

void nd_of_all(call &with)
{
    with.counted(
        get_nd_items(1, with.bytes(16), with.rows<64>(), &with, with.print(), 2, with.number(), 0, 0));
}

void mac_bound(call &with)
{
    is_if_bound_with_l2_mac(with.number(), 1);
}

constexpr client table[] = {
    {"get_arp_items_detail", arp, arp_page},
    {"search_arp_items", arp_search, arp_page},
    {"get_arp_mac_items_ex2_vr", arp_joined, joined_page},
    {"arp_remove_all_static_items_vrouter", arp_remove_all, arp_page},
    {"get_nd_items_detail", nd, nd_page},
    {"get_nd_items_ex2_vr", nd_filtered, filtered_nd_page},
    {"get_aspf_stats_items", aspf, aspf_page},
    {"get_ndspf_stats_items", ndspf, ndspf_page},
    {"arpi_config_show", arpi, arpi_page},
    {"show_arpi_config_by_if", arpi_by_interface, arpi_page},
    {"ndi_config_show", ndi, ndi_page},
    {"gas_get_item", gas, gas_page},
    {"get_mac_items", mac, mac_page},
    {"mac_dynamic2static", mac_to_static, mac_page},
    {"get_mac_desc_items", mac_descriptions, mac_description_page},
    {"get_dhcpsn_items", bindings, binding_page},
    {"get_bhv_obj", objects, object_page},
    {"get_bhv_profile", profiles, profile_page},
    {"issu_show_cpu_status", processors, processor_page},
    {"dhcpsn_if_config_show", snooping_settings, settings_batch},
    {"dhcpsn_vlan_config_show", snooping_settings_of_vlan, settings_batch},
    {"dhcpsn_cfg_show_callback", snooping_batch, settings_batch},
    {"get_arp_items", arp_by_virtual_system, arp_page},
    {"get_arp_items_vr", arp_by_virtual_router, arp_page},
    {"get_arp_mac_items", arp_joined_of_all, joined_page},
    {"get_arp_mac_items_vr", arp_joined_by_virtual_router, joined_page},
    {"get_arp_mac_items_ex", arp_joined_by_choice, joined_page},
    {"get_arp_mac_items_ex_vr", arp_joined_by_choice_and_virtual_router, joined_page},
    {"get_arp_mac_items_ex2", arp_joined_by_choice_and_options, joined_page},
    {"get_nd_items_static_detail", nd_static, nd_page},
    {"get_nd_items", nd_of_all, nd_page},
    {"is_if_bound_with_l2_mac", mac_bound, mac_page},
};

} // namespace

const std::span<const client> mixfuzz::clients = table;
