/* Every client that asks for one record, or changes something, against a daemon that answers anything. */
#include <libmix/arp.h>
#include <libmix/chassisd.h>
#include <libmix/dhcpsn.h>
#include <libmix/drv.h>
#include <libmix/gas.h>
#include <libmix/ipdefrag.h>
#include <libmix/isp.h>
#include <libmix/issu.h>
#include <libmix/mac.h>
#include <libmix/nd.h>
#include <libmix/spoofing.h>
#include <libmix/vchassisd.h>

#include "fuzz/hostile_daemon.h"
#include "support/scripted_platform.h"

namespace
{

using namespace mixfuzz;

/* What a text output holds must end within it. */
void ended(const char *text, size_t room)
{
    if (room != 0 && strnlen(text, room) == room)
        complain("a text output is not terminated");
}

/* A buffer handed to the caller: all the bytes it is said to have may be read. */
void handed_over(void *buffer, uint32_t length)
{
    touch(buffer, length);
    mixtest::platform().free_as_caller(buffer);
}

/* A gateway that refuses with any text. */
void refusing_gateway()
{
    const mixtest::answer said = mixtest::platform().handler({.capacity = 300});
    static std::string text;
    text.assign(said.reply.begin(), said.reply.end());
    mixtest::platform().refusal_text = said.sent < 0 ? nullptr : text.c_str();
    mixtest::platform().exchange_text = mixtest::platform().refusal_text;
    mixtest::platform().commit_results = {said.status, said.status};
    mixtest::platform().response_types = {said.sent};
}

template <class Change>
void change(call &with, Change &&make)
{
    refusing_gateway();
    char *error = with.out<char>(with.number());
    const int32_t length = with.number();
    std::memset(error, 'x', with.number());
    if (make(error, length) != 0 && length != 0 && error[0] != 'x')
        ended(error, static_cast<size_t>(length));
}

/* --- neighbours and the IP layer --- */

void arp_counts(call &with)
{
    get_arp_items_count(1, 2, 3, 4, 0, 0);
    get_proxy_arp_items_count(1, 2, with.bytes(24), 4, with.number(), 0);
    get_arp_mac_items_count2_vr(with.print(), 1, with.bytes(6), with.text(), nullptr, with.text(), 2, 3, 4);
    get_arp_reduplicate_mac_items_count(with.print(), with.text());
}

void arp_summary(call &with)
{
    arp_generic_data_get(1, 2, with.out(24), with.print(), with.number(), 0);
}

void router_name(call &with)
{
    touch(get_vrname_by_vrid(with.number()), 33);
    ended(get_vrname_by_vrid(with.number()), 33);
}

void arp_changes(call &with)
{
    change(with, [&](char *error, int32_t length) {
        const uint8_t mac[6] = {2};
        return arp_add_static_items(1, 2, mac, with.text(), 3, with.print(), error, length, 0, 1, 2);
    });
    arp_remove_static_items(1, 2, with.print(), with.number(), 0, 1, 2);
    arp_remove_dynamic_items_detail(0, 1, 2, 3, with.print(), with.number(), 4, 5);
    arp_active_scan(1, 2, 3);
}

void nd_records(call &with)
{
    nd_generic_data_get(1, 2, with.out(16), with.print(), with.number(), 0);
    nd_remove_dynamic_items_detail(1, 2, 3, with.bytes(16), with.print(), with.number(), 1, 2);
}

void spoofing_records(call &with)
{
    aspf_stats_clear(1, with.bytes(6), 2, with.print());
    ndspf_stats_clear(1, with.print());
}

void gas_records(call &with)
{
    gas_get_item_one(0, 1, with.number(), with.print());
    const uint8_t mac[6] = {2};
    change(with, [&](char *error, int32_t length) {
        return gas_add_item(0, 1, mac, with.text(), 2, 3, with.print(), error, length);
    });
    change(with, [&](char *error, int32_t length) {
        return gas_del_item(0, 1, with.text(), with.print(), error, length);
    });
}

void fragment_settings(call &with)
{
    get_ipdefrag_para(with.out<uint32_t>(1), with.out<uint32_t>(1), with.print());
    refusing_gateway();
    set_ipdefrag_para(with.number(), 1, with.print());
}

/* --- layer 2 --- */

void mac_records(call &with)
{
    mac_generic_data_get(with.out(16), with.print(), with.number(), 0);
    mac_remove_dynamic_items(1, 2, with.bytes(6), with.print(), with.number(), 0);
    is_if_bound_with_l2_mac_vlan_bitmap(1, with.bytes(512));
}

void mac_changes(call &with)
{
    const uint8_t mac[6] = {2};
    change(with, [&](char *error, int32_t length) {
        return mac_add_static_items(with.text(), "eth0", mac, 3, with.print(), error, length, 0, 1);
    });
    mac_remove_static_items(with.text(), "eth0", with.bytes(6), with.number(), with.print(), 0, 0, 1, 2);
    change(with, [&](char *error, int32_t length) {
        return mac_description_add(mac, with.text(), with.print(), error, length, 0, 1);
    });
}

void snooping_records(call &with)
{
    get_dhcpsn_items_number(with.number(), 1, 2, 3, with.bytes(6), with.print());
    dhcpsn_remove_dynamic_items(1, 2, with.number(), with.print());
    refusing_gateway();
    dhcpsn_rate_limit_set(with.text(), with.number(), with.print());
}

/* --- upgrade --- */

void upgrade_summaries(call &with)
{
    issu_show_sum(with.number(), with.out(712));
    issu_show_gshut(with.number(), with.out(460));
    touch(issu_err_str_get(), 1);
}

void upgrade_versions(call &with)
{
    const uint32_t size = with.number();
    char *running = with.out<char>(size), *image = with.out<char>(size);
    if (issu_ver_get(1, 2, running, size) == 0)
        ended(running, size);
    if (issu_buf_image_ver_get(image, size) == 0)
        ended(image, size);
}

void upgrade_commands(call &with)
{
    const uint32_t size = with.number();
    char *text = with.out<char>(size);
    if (issu_check(0, with.out<uint32_t>(1), text, size) == 0)
        ended(text, size);
    issu_start(1, with.text(), "second");
    issu_buf_image_load(with.text());
    issu_sm_shut(0, with.out<uint32_t>(1), 1, 2, with.text(), "second");
}

void upgrade_list(call &with)
{
    auto *length = with.out<uint32_t>(1);
    *length = with.number() * 64u;
    char *list = with.out<char>(*length);
    const uint32_t room = *length;
    if (issu_image_clist_get(0, "image", with.number(), list, length) != 0)
        return;
    if (*length > room)
        complain("a list is longer than its room");
    touch(list, *length);
}

/* --- chassis --- */

void slot_table(call &with, int (*ask)(void *, uint32_t *))
{
    auto *length = with.out<uint32_t>(1);
    const uint32_t room = with.number() * 48u;
    *length = room;
    uint8_t *table = with.out(room);
    if (ask(table, length) == 0 && *length > room)
        complain("a slot table is longer than its room");
}

void slots(call &with)
{
    slot_table(with, [](void *out, uint32_t *length) { return get_slot_status(0, 0, out, length); });
    get_chassis_specified_slot_status(with.number());
    chassisd_card_is_online(with.number());
    qsm_is_available();
}

void processor(call &with)
{
    for (const uint32_t kind : {5, 6, 7, 8, 9, 10, 24}) {
        void *out = nullptr;
        uint32_t length = 0;
        if (chassisd_get_cpu_info(with.number(), 0, kind, &out, &length) == 0)
            handed_over(out, length);
    }
}

void busiest_processor(call &with)
{
    chassisd_get_slot_cpu_info(with.number(), 0, with.out<uint32_t>(5));
    chassisd_get_system_current_cpu_info(with.out<uint32_t>(5));
}

void chassis_figures(call &with)
{
    chassisd_get_slot_mem(with.number(), 0, with.out<uint64_t>(10));
    chassisd_set_slot_mem_calc_mode(with.number(), 0, 1);
    chassisd_get_cpu_temp(with.number(), 0, with.out<uint32_t>(1));
    libchassisd_get_data_pak_buffer_pool_info(with.out<uint32_t>(4), with.number());
    chassisd_get_harddisk_info(with.out<uint64_t>(3));
    chassisd_get_slot_flash_info(with.number(), 0, with.out<uint64_t>(3));
}

void bypass(call &with)
{
    void *out = nullptr;
    uint32_t length = 0;
    if (chassisd_get_bypass_info(with.number(), &out, &length) == 0)
        handed_over(out, length);
}

void modules(call &with)
{
    libchassisd_get_module_number(with.out<uint32_t>(1));
    auto *record = with.out<uint32_t>(58);
    if (libchassisd_get_module_info(record, with.number()) == 0) {
        ended(reinterpret_cast<char *>(record) + 136, 64);
        ended(reinterpret_cast<char *>(record) + 200, 32);
    }
    libchassisd_get_module_plat_id(with.number());
    libchassisd_get_module_slot_state(with.number(), with.out<uint32_t>(1));
    libchassisd_get_module_fru_entry(1, with.out(with.number()), with.number());
}

void cards(call &with)
{
    libchassisd_is_slot_cfg_removable(with.number(), with.out<uint32_t>(1));
    libchassisd_clear_slot_cfg(with.number());
    uint8_t *card = with.out(6);
    libchassisd_vchassis_notify_boot_pic(card, with.out<uint16_t>(1));
    libchassisd_vchassis_notify_reboot_pic(card, with.out<uint16_t>(1));
}

/* --- virtual chassis --- */

void metadata(call &with)
{
    const int size = with.number();
    char *value = with.out<char>(with.number()), *error = with.out<char>(with.number());
    libvchassisd_set_metadata(with.text(), 0, "value", 0, 1, error, size);
    if (libvchassisd_get_metadata("key", 0, value, size, 1, error, size) == 0 && value[0] != '\0')
        ended(value, with.number());
    ended(error, with.number() != 0 && error[0] != '\0' ? with.number() : 0);
}

void virtual_machines(call &with)
{
    const uint64_t operation[2] = {1, 2};
    char *error = with.out<char>(256);
    if (libvchassisd_vm_oper_request(operation, error, 256) == -1)
        ended(error, 256);
    libvchassisd_get_slot_host_cpu_num(1, with.out<uint32_t>(3));
    libvchassisd_get_tenant_vm_ip(with.text(), with.out(44));
    libvchassisd_get_service_mode(with.out<uint16_t>(1));
    libvchassisd_notify_slot_state(1, with.number());
    char *reset = with.out<char>(256);
    if (libvchassisd_exec_reset_vsom_password(reset) == -1)
        ended(reset, 256);
}

void addresses(call &with)
{
    const uint32_t count = with.number() % 40;
    libvchassisd_addr_get_info(count, with.out(count * 294));
}

/* --- port drivers and the ISP table --- */

void port_message(call &with, int (*ask)(void *, uint32_t))
{
    uint8_t *message = with.out(12568);
    drv_unit_port_stats_msg_init(message, with.number(), 1, 2, 3, 4, 5);
    ask(message, 12568);
    uint16_t slot;
    std::memcpy(&slot, message + 8, sizeof slot);
    if (slot != with.number())
        complain("the slot was not put back");
}

void port_statistics(call &with)
{
    port_message(with, drv_get_port_stats);
    port_message(with, drv_get_port_stats_with_cpuindex);
    port_message(with, drv_get_port_drv_info);
}

void port_queries(call &with)
{
    drv_get_port_info(with.number(), 1, with.out<uint64_t>(5));
    drv_get_cpu_index_though_eth_port(with.number(), 1, with.out<uint32_t>(1));
    is_port_valid(with.number(), 1);
    drv_is_port_vaild(with.number(), 1, 2, 3);
    drv_dp_get_port_drv_info(with.number(), 1, 2, with.out<uint64_t>(11));
    char *name = with.out<char>(with.number());
    drv_dp_get_port_drv_name(1, 2, name, with.number());
    ended(name, with.number());
}

void bridge(call &with)
{
    void *out = nullptr;
    if (drv_get_bridge_stats(&out, with.number(), 1, 2) == 0)
        mixtest::platform().free_as_caller(out);
}

void counters(call &with)
{
    void *out = nullptr;
    if (drv_get_cpu_cntr(&out, with.number(), 1, 2) == 0)
        mixtest::platform().free_as_caller(out);
    if (drv_get_dpdk_cpu_cntr(&out, with.number(), 1, 2) == 0)
        handed_over(out, 64);
}

void controls(call &with)
{
    for (const uint32_t command : {62, 64, 66, 78})
        remote_dev_ioctl(with.number(), 1, command, with.out(12));
    remote_hwif_ioctl(with.number(), 1, 1, with.out(4));
    remote_hwif_ioctl(with.number(), 1, 12, with.out(12568));
}

void isp(call &with)
{
    if (check_ip_isp(1, with.number()) >> 1 != 0)
        complain("an address that neither belongs nor does not");
}

/* --- counted and changed by shorter names, and what only tells --- */

void more_arp_counts(call &with)
{
    get_arp_mac_items_count(with.print(), 1, with.bytes(6), with.text(), nullptr, with.text());
    get_arp_mac_items_count_vr(with.print(), 1, with.bytes(6), with.text(), nullptr, with.text(), 2);
    get_arp_mac_items_count2(with.print(), 1, with.bytes(6), with.text(), nullptr, with.text(), 2, 3);
}

void more_arp_changes(call &with)
{
    arp_remove_dynamic_items(1, 2, with.print(), with.number());
    arp_remove_dynamic_items_vr(1, 2, 3, with.print(), with.number());
    refusing_gateway();
    arp_remove_static_conf(1, with.number(), 2);
}

/* A row that came from a listing, in a block of its own: the names in it need not end. */
uint8_t *row_of_any_bytes(call &with, size_t size)
{
    const mixtest::answer said = mixtest::platform().handler({.capacity = static_cast<uint32_t>(size)});
    uint8_t *row = with.out(size);
    std::copy_n(said.reply.begin(), std::min(size, said.reply.size()), row);
    return row;
}

void rows_handed_on(call &with)
{
    const uint32_t tag = with.number();
    refusing_gateway();
    arp_removal_context removal = {};
    arp_remove_one_static_items_vrouter(row_of_any_bytes(with, 56), &removal);
    exec_ipv6_nd_dynamic_to_static_callback(row_of_any_bytes(with, 64));
    show_callback(row_of_any_bytes(with, 78), &tag);
}

void more_mac_changes(call &with)
{
    refusing_gateway();
    mac_description_remove(with.bytes(6), with.print(), with.number(), 0, 1);
}

void snooping_switches(call &with)
{
    for (const auto set :
         {dhcpsn_enable_set, dhcpsn_deny_request_set, dhcpsn_deny_response_set, dhcpsn_validity_check_set}) {
        refusing_gateway();
        set(with.text(), with.number(), with.print());
    }
}

void upgrade_notices(call &with)
{
    refusing_gateway();
    issu_lock_cfg(with.number());
    issu_send_nat_transfer(with.number(), 1, 2, 3);
    issu_send_nat_merge(with.number(), 1);
    issu_send_ssmha_warm_sync_poll(with.number());
    issu_send_sess_transfer(with.number(), 1, 2, 3);
    issu_send_dmcu_switch(with.number(), 1);
    issu_report_ssmha_warm_sync(with.number());
    issu_report_nat_transfer(with.number());
    issu_report_sess_transfer(with.number(), 1, 2);
}

void more_slots(call &with)
{
    slot_table(with, chassisd_get_slot_status);
    slot_table(with,
               [](void *out, uint32_t *length) { return chassisd_get_slot_status2(1, 2, out, length); });
    chassisd_card_is_present(with.number());
    chassisd_card_is_enter_booting(with.number());
}

void local_processor(call &with)
{
    chassisd_get_local_cpu_info(with.out<uint32_t>(5));
}

void chassis_notices(call &with)
{
    libchassisd_detach_slot(with.number());
    libchassisd_vchassis_notify_stop_pic(with.out(6), with.out<uint16_t>(1));
    libvchassisd_show_addr_debug(with.number());
    libvchassisd_notify_master_vscm_crash();
    libvchassisd_notify_slot_disk_state(1, with.number());
    refusing_gateway();
    vchassisd_save_config();
}

void address_registration(call &with)
{
    libvchassisd_register_address(1, with.number(), 2, with.text());
    libvchassisd_unregister_address(1, with.number(), 2, with.text());
}

void host_table(call &with)
{
    char *error = with.out<char>(256);
    if (libvchassisd_exec_clear_mac2host(with.number(), with.text(), error) == -1)
        ended(error, 256);
}

void more_port_queries(call &with)
{
    drv_get_port_maxnum(with.number());
    drv_drain_pkt_buffer(with.number());
    uint8_t *message = with.out(12568);
    drv_port_stats_msg_init_eye(message, with.number(), 1, 2, 3, 4, 5);
    drv_get_port_eye_stats(message, 12568);
}

constexpr client table[] = {
    {"arp counts", arp_counts},
    {"arp_generic_data_get", arp_summary},
    {"get_vrname_by_vrid", router_name},
    {"arp changes", arp_changes},
    {"nd", nd_records},
    {"spoofing", spoofing_records},
    {"gas", gas_records},
    {"ipdefrag", fragment_settings},
    {"mac", mac_records},
    {"mac changes", mac_changes},
    {"dhcpsn", snooping_records},
    {"issu summaries", upgrade_summaries},
    {"issu versions", upgrade_versions},
    {"issu commands", upgrade_commands},
    {"issu_image_clist_get", upgrade_list},
    {"slot table", slots},
    {"chassisd_get_cpu_info", processor, {}, true},
    {"busiest processor", busiest_processor},
    {"chassis figures", chassis_figures},
    {"chassisd_get_bypass_info", bypass, {}, true},
    {"modules", modules},
    {"cards", cards},
    {"metadata", metadata},
    {"virtual machines", virtual_machines},
    {"libvchassisd_addr_get_info", addresses},
    {"port statistics", port_statistics},
    {"port queries", port_queries},
    {"drv_get_bridge_stats", bridge, {}, true},
    {"cpu counters", counters, {}, true},
    {"remote ioctl", controls},
    {"check_ip_isp", isp},
    {"more arp counts", more_arp_counts},
    {"more arp changes", more_arp_changes},
    {"rows handed on", rows_handed_on},
    {"more mac changes", more_mac_changes},
    {"snooping switches", snooping_switches},
    {"upgrade notices", upgrade_notices},
    {"more slot tables", more_slots},
    {"chassisd_get_local_cpu_info", local_processor},
    {"chassis notices", chassis_notices},
    {"address registration", address_registration},
    {"libvchassisd_exec_clear_mac2host", host_table},
    {"more port queries", more_port_queries},
};

} // namespace

const std::span<const client> mixfuzz::clients = table;
