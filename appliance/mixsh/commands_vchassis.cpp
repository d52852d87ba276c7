// The virtual chassis.
#include "appliance/mixsh/control_client.h"
#include "appliance/mixsh/shared.h"
#include "appliance/wire/vchassis.h"
#include "platform/board.h"

#include <libmix/vchassisd.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

constexpr std::size_t error_size = 256;

request asking(wire::vchassis_code code, bool master = false)
{
    const std::uint32_t to =
        master ? mktipcid(tq_get_mcp_slot() + 1, 0, wire::vchassis_manager) : wire::vchassis_manager;
    return {to, wire::vchassis_type, code};
}

// The manager's own reason, when it gave one.
outcome failed(invocation &call, const request &exchange, const char *error, std::string_view what)
{
    if (error[0] != '\0')
        call.print()("%s\n", error);
    return call.fail(exchange, what);
}

// --- VMs

constexpr choice operations[] = {{"create", "make a VM", wire::vm_create},
                                 {"delete", "remove the VM", wire::vm_delete},
                                 {"start", "let it run", wire::vm_start},
                                 {"stop", "shut it off", wire::vm_stop}};
constexpr choice types[] = {{"vscm", "system control", 1}, {"vssm", "services", 2}, {"vdsm", "data", 3}};
constexpr choice flavours[] = {{"2", "two processors", 2}, {"4", "four", 4}, {"8", "eight", 8}};

outcome operate(invocation &call)
{
    wire::vm_oper_record wanted{};
    wanted.operation = static_cast<std::uint32_t>(call.chosen("OPERATION").value_or(0));
    wanted.slot = call.number_or<std::uint32_t>("SLOT", 0);
    wanted.type = static_cast<std::uint32_t>(call.chosen("type").value_or(2));
    wanted.flavour = static_cast<std::uint32_t>(call.chosen("flavour").value_or(2));
    std::uint64_t record[2];
    std::memcpy(record, &wanted, sizeof record);
    char error[error_size] = {};
    if (libvchassisd_vm_oper_request(record, error, sizeof error) != 0)
        return failed(call, asking(wire::vchassis_vm_oper), error, "the VM was not changed");
    return outcome::done;
}
constexpr argument operate_arguments[] = {
    slot_value, value("OPERATION", kinds::one_of, "what to do", {.choices = operations}),
    option("type", kinds::one_of, "of VM", {.choices = types}),
    option("flavour", kinds::one_of, "processors of a vSSM", {.choices = flavours})};

constexpr column vm_columns[] = {{.title = "Slot", .key = "slot"},
                                 {.title = "Type", .key = "type"},
                                 {.title = "Flavour", .key = "flavour"},
                                 {.title = "State", .key = "state"}};

outcome show_vms(invocation &call)
{
    table rows(call.out(), vm_columns);
    const bool read = control::each_row<wire::vchassis_vm_row>(wire::control_list_vms, [&](const auto &row) {
        return rows.row({std::uint32_t{row.slot}, vchassisd_vm_type2str(row.type),
                         vchassisd_vm_flavor2str(row.flavour), vchassisd_vm_state2str(row.state)});
    });
    rows.end();
    return read ? outcome::done
                : call.fail(control::about(wire::control_list_vms), "the VMs can't be listed");
}

constexpr column slot_columns[] = {
    {.title = "Slot", .key = "slot"}, {.title = "State", .key = "state"}, {.title = "Disk", .key = "disk"}};

outcome show_slots(invocation &call)
{
    table rows(call.out(), slot_columns);
    const auto told = [](std::uint32_t number) { return number != wire::vchassis_not_told; };
    const bool read =
        control::each_row<wire::vchassis_slot_row>(wire::control_list_vchassis_slots, [&](const auto &row) {
            return rows.row({std::uint32_t{row.slot},
                             told(row.state) ? cell(vchassisd_vm_state2str(row.state)) : cell(),
                             told(row.disk) ? cell(std::uint32_t{row.disk}) : cell()});
        });
    rows.end();
    return read ? outcome::done
                : call.fail(control::about(wire::control_list_vchassis_slots), "the slots can't be listed");
}

outcome show_tenant(invocation &call)
{
    wire::tenant_vm_record is;
    std::uint8_t bytes[sizeof is];
    if (libvchassisd_get_tenant_vm_ip(call.text("VM"), bytes) != 0)
        return call.fail(asking(wire::vchassis_tenant_vm_ip, true), "the VM's addresses can't be read");
    std::memcpy(&is, bytes, sizeof is);
    call.out().record({{"IPv4 address", "ipv4", is.ipv4 != 0 ? ipv4_text(is.ipv4) : ""},
                       {"IPv6 address", "ipv6", is.ipv6[0] != 0 ? ipv6_text(is.ipv6) : ""},
                       {"MAC address", "mac", mac_text(is.mac)},
                       {"VLAN", "vlan", std::uint32_t{is.vlan}},
                       {"Slot", "slot", std::uint32_t{is.slot}},
                       {"State", "state", vchassisd_vm_state2str(is.state)}});
    return outcome::done;
}
constexpr argument tenant_arguments[] = {value("VM", kinds::word, "the VM's identifier", {.longest = 60})};

outcome show_host(invocation &call)
{
    std::uint32_t counts[3] = {};
    if (libvchassisd_get_slot_host_cpu_num(call.number_or<std::uint16_t>("SLOT", 0), counts) != 0)
        return call.fail(asking(wire::vchassis_host_cpu_num), "the host's processors can't be read");
    call.out().record({{"vSSM-02", "vssm_02", counts[0]},
                       {"vSSM-04", "vssm_04", counts[1]},
                       {"vSSM-08", "vssm_08", counts[2]}});
    return outcome::done;
}

// Whether the VMs that are wanted find their processors on the host.
outcome show_capacity(invocation &call)
{
    std::uint32_t have[3] = {};
    const auto n = [&](std::string_view name) { return call.number_or<std::uint32_t>(name, 0); };
    const std::uint32_t need[] = {n("SMALL"), n("MEDIUM"), n("LARGE")};
    if (libvchassisd_get_slot_host_cpu_num(call.number_or<std::uint16_t>("SLOT", 0), have) != 0)
        return call.fail(asking(wire::vchassis_host_cpu_num), "the host's processors can't be read");
    call.out().record({{"Room is left", "fits", chassisd_vssm_cpu_cap_check(have, need) == 0}});
    return outcome::done;
}
constexpr argument capacity_arguments[] = {slot_value, value("SMALL", kinds::number, "how many vSSM-02"),
                                           value("MEDIUM", kinds::number, "how many vSSM-04"),
                                           value("LARGE", kinds::number, "how many vSSM-08")};

outcome show_mode(invocation &call)
{
    std::uint16_t mode = 0;
    if (libvchassisd_get_service_mode(&mode) != 0)
        return call.fail(asking(wire::vchassis_service_mode, true), "the service mode can't be read");
    call.out().record({{"Service mode", "mode", std::uint32_t{mode}}});
    return outcome::done;
}

// --- metadata

constexpr argument key_value = value("KEY", kinds::word, "a key", {.longest = 255});
constexpr argument number_option = option("number", kinds::number, "which of the key's values");

outcome show_metadata(invocation &call)
{
    char text[256] = {}, error[error_size] = {};
    if (libvchassisd_get_metadata(call.text("KEY"), 0, text, sizeof text,
                                  call.number_or<std::uint32_t>("number", 0), error, sizeof error) != 0)
        return failed(call, asking(wire::vchassis_get_metadata), error, "the metadata can't be read");
    call.out().record({{"Key", "key", call.text("KEY")}, {"Value", "value", text}});
    return outcome::done;
}
constexpr argument show_metadata_arguments[] = {key_value, number_option};

outcome set_metadata(invocation &call)
{
    char error[error_size] = {};
    if (libvchassisd_set_metadata(call.text("KEY"), 0, call.text("VALUE"), 0,
                                  call.number_or<std::uint32_t>("number", 0), error, sizeof error) != 0)
        return failed(call, asking(wire::vchassis_set_metadata), error, "the metadata was not stored");
    return outcome::done;
}
constexpr argument set_metadata_arguments[] = {
    key_value, value("VALUE", kinds::text, "its value", {.longest = 255}), number_option};

// --- the cloud platform: what the metadata say of it

constexpr const char *cloud_keys[] = {"cloud-platform", "cloud-switch", "cloud-range", "cloud-tag"};

// False after a failure, whose reason stands in error.
bool store_cloud(std::size_t which, const std::string &text, char (&error)[error_size])
{
    return libvchassisd_set_metadata(cloud_keys[which], 0, text.c_str(), 0, 0, error, sizeof error) == 0;
}

// Numbers are what is stored: the words of the cloud platforms have several spellings.
outcome set_cloud(invocation &call)
{
    std::uint32_t switch_type = 0, address = 0;
    std::uint8_t prefix = 0;
    vchassisd_metadata tag{};
    std::string switch_word = call.text_or("switch", "VSS"), range = call.text_or("range", ""),
                tag_word = call.text_or("tag", "");
    if (!range.empty() && vchassisd_trans_ip_range(range.data(), &address, &prefix) != 1)
        return call.fail("the range is no A.B.C.D/N");
    if (vchassisd_metadata_string_handler(tag_word.data(), &tag) != 0)
        return call.fail("a tag is NAME:VALUE, of at most seven characters");
    vchassisd_trans_vswitch_type(switch_word.data(), &switch_type);
    char error[error_size] = {};
    const bool stored =
        store_cloud(0, std::to_string(vchassisd_cmp_type_str2type(call.text("PLATFORM"))), error) &&
        store_cloud(1, std::to_string(switch_type), error) &&
        (range.empty() || store_cloud(2, fmt::format("{}/{}", ipv4_text(address), prefix), error)) &&
        (tag.count == 0 || store_cloud(3, tag.entry, error));
    if (!stored)
        return failed(call, asking(wire::vchassis_set_metadata), error, "the metadata was not stored");
    return outcome::done;
}
constexpr argument cloud_arguments[] = {
    value("PLATFORM", kinds::word, "VMWARE, NSX or another", {.longest = 15}),
    option("switch", kinds::word, "its virtual switch: VSS, PER_HOST, NSX or another", {.longest = 15}),
    option("range", kinds::word, "its addresses, A.B.C.D/N", {.longest = 63}),
    option("tag", kinds::word, "NAME:VALUE", {.longest = 63})};

outcome show_cloud(invocation &call)
{
    char texts[std::size(cloud_keys)][64] = {};
    for (std::size_t i = 0; i < std::size(cloud_keys); i++)
        libvchassisd_get_metadata(cloud_keys[i], 0, texts[i], sizeof texts[i], 0, nullptr, 0);
    if (texts[0][0] == '\0')
        return call.fail(asking(wire::vchassis_get_metadata), "no cloud platform is set");
    char switch_name[4] = {};
    auto switch_type = static_cast<std::uint32_t>(std::strtoul(texts[1], nullptr, 10));
    vchassisd_trans_vswitch_type(switch_name, &switch_type);
    call.out().record({{"Platform", "platform", std::uint64_t{std::strtoul(texts[0], nullptr, 10)}},
                       {"Switch", "switch", field_text(switch_name)},
                       {"Range", "range", texts[2]},
                       {"Tag", "tag", texts[3]}});
    return outcome::done;
}

// The texts of the numbers that the manager goes by.
constexpr column name_columns[] = {
    {.title = "Of", .key = "of"}, {.title = "Number", .key = "number"}, {.title = "Name", .key = "name"}};

outcome show_names(invocation &call)
{
    struct names {
        const char *of;
        const char *(*name)(std::uint32_t);
        std::uint32_t first, last;
    };
    constexpr names all[] = {
        {"VM type", vchassisd_vm_type2str, 1, 3},      {"VM type, short", vchassisd_vm_type2low_str, 1, 3},
        {"VM flavour", vchassisd_vm_flavor2str, 2, 8}, {"state", vchassisd_vm_state2str, 1, 43},
        {"service", vchassisd_stauts_2str, 0, 4},      {"resource", vchassisd_resource_type2str, 0, 3}};
    table rows(call.out(), name_columns);
    for (const names &each : all)
        for (std::uint32_t number = each.first; number <= each.last; number++)
            if (const std::string_view name = each.name(number); !name.empty() && name != "Unknown")
                rows.row({each.of, number, name});
    return outcome::done;
}

// --- addresses

constexpr argument address_key = value("KEY", kinds::number, "which address", {.high = 65535});
constexpr column address_columns[] = {{.title = "Key", .key = "key"},
                                      {.title = "Address", .key = "address", .may_be_cut = true},
                                      {.title = "Second", .key = "second"},
                                      {.title = "Third", .key = "third"}};

outcome show_addresses(invocation &call)
{
    std::vector<wire::vchassis_addr_entry> entries;
    for (const char *key : call.texts("KEY"))
        entries.push_back({static_cast<std::uint16_t>(std::strtoul(key, nullptr, 0)), 0, 0, 0, {}, {}});
    const auto most = static_cast<std::size_t>(libvchassisd_addr_get_max_vm_count_per_time());
    table rows(call.out(), address_columns);
    for (std::size_t first = 0; first < entries.size(); first += most) {
        const std::size_t count = std::min(most, entries.size() - first);
        if (libvchassisd_addr_get_info(static_cast<std::uint32_t>(count), &entries[first]) != 0)
            return call.fail(asking(wire::vchassis_addr_info), "the addresses can't be read");
        for (std::size_t i = first; i < first + count; i++) {
            const auto &each = entries[i];
            const bool found = each.found != 0;
            rows.row({std::uint32_t{each.key}, found ? cell(field_text(each.text)) : cell(),
                      found ? cell(std::uint32_t{each.b}) : cell(),
                      found ? cell(std::uint32_t{each.c}) : cell()});
        }
    }
    return outcome::done;
}
constexpr argument show_addresses_arguments[] = {
    values("KEY", kinds::number, "which addresses", {.high = 65535})};

outcome add_address(invocation &call)
{
    if (libvchassisd_register_address(call.number_or<std::uint16_t>("KEY", 0),
                                      call.number_or<std::uint32_t>("second", 0),
                                      call.number_or<std::uint32_t>("third", 0), call.text("ADDRESS")) != 0)
        return call.fail(asking(wire::vchassis_register_address), "the message was not sent");
    return outcome::done;
}

outcome delete_address(invocation &call)
{
    if (libvchassisd_unregister_address(call.number_or<std::uint16_t>("KEY", 0), 0, 0, "") != 0)
        return call.fail(asking(wire::vchassis_unregister_address), "the message was not sent");
    return outcome::done;
}
constexpr argument add_address_arguments[] = {
    address_key, value("ADDRESS", kinds::word, "the address", {.longest = 255}),
    option("second", kinds::number, "its second number"), option("third", kinds::number, "its third number")};
constexpr argument delete_address_arguments[] = {address_key};

// --- slots

outcome set_state(invocation &call)
{
    const auto slot = call.number_or<std::uint16_t>("SLOT", 0);
    const auto state = call.number_or<std::uint32_t>("STATE", 0);
    const bool disk = call.which().words == "set vchassis disk";
    const int result =
        disk ? libvchassisd_notify_slot_disk_state(slot, state) : libvchassisd_notify_slot_state(slot, state);
    if (result != 0)
        return call.fail(asking(disk ? wire::vchassis_slot_disk_state : wire::vchassis_slot_state, disk),
                         "the state was not taken");
    return outcome::done;
}
constexpr argument state_arguments[] = {
    slot_value, value("STATE", kinds::number, "its state, a number of the manager's")};

outcome set_debug(invocation &call)
{
    if (libvchassisd_show_addr_debug(call.number_or<std::uint16_t>("LEVEL", 0)) != 0)
        return call.fail(asking(wire::vchassis_addr_debug), "the message was not sent");
    return outcome::done;
}
constexpr argument debug_arguments[] = {
    value("LEVEL", kinds::number, "what the manager is to log of addresses", {.high = 65535})};

outcome clear_mac2host(invocation &call)
{
    char error[error_size] = {};
    if (libvchassisd_exec_clear_mac2host(wire::vchassis_clear_mac2host, call.text("HOST"), error) != 0)
        return failed(call, {wire::vchassis_manager, wire::vchassis_type, wire::vchassis_clear_mac2host},
                      error, "the table was not cleared");
    return outcome::done;
}
constexpr argument mac2host_arguments[] = {
    optional_value("HOST", kinds::word, "one host; without it every host", {.longest = 255})};

outcome reset_password(invocation &call)
{
    char error[error_size] = {};
    if (libvchassisd_exec_reset_vsom_password(error) != 0)
        return failed(call, asking(wire::vchassis_reset_vsom_password), error, "the password was not reset");
    return outcome::done;
}

outcome tell_crash(invocation &call)
{
    if (libvchassisd_notify_master_vscm_crash() != 0)
        return call.fail(asking(wire::vchassis_master_crash, true), "the master was not told");
    return outcome::done;
}

constexpr command commands[] = {
    {"set vchassis vm", "create, delete, start or stop a slot's VM", operate, operate_arguments},
    {"show vchassis vms", "the VMs of the slots", show_vms},
    {"show vchassis slots", "what the manager was told of the slots", show_slots},
    {"show vchassis capacity", "whether VMs find their processors on a slot's host", show_capacity,
     capacity_arguments},
    {"show vchassis cloud", "the cloud platform", show_cloud},
    {"set vchassis cloud", "tell the manager its cloud platform", set_cloud, cloud_arguments},
    {"show vchassis names", "the names of the manager's numbers", show_names},
    {"show vchassis tenant", "the addresses of a tenant's VM", show_tenant, tenant_arguments},
    {"show vchassis host", "the processors of a slot's host", show_host, slot_arguments},
    {"show vchassis mode", "the service mode", show_mode},
    {"show vchassis metadata", "a value of the metadata", show_metadata, show_metadata_arguments},
    {"set vchassis metadata", "store a value", set_metadata, set_metadata_arguments},
    {"show vchassis addresses", "registered addresses", show_addresses, show_addresses_arguments},
    {"add vchassis address", "register an address", add_address, add_address_arguments},
    {"delete vchassis address", "take an address back", delete_address, delete_address_arguments},
    {"set vchassis slot", "tell the manager a slot's state", set_state, state_arguments},
    {"set vchassis disk", "tell the master the state of a slot's disk", set_state, state_arguments},
    {"set vchassis debug", "what the manager logs of addresses", set_debug, debug_arguments},
    {"clear vchassis hosts", "clear the table of MAC addresses and hosts", clear_mac2host,
     mac2host_arguments},
    {"set vchassis password", "let the manager reset the management VM's password", reset_password},
    {"set vchassis crash", "tell the master that its control VM crashed", tell_crash},
};

} // namespace

extern const family vchassis_family;
const family vchassis_family{"vchassis", "virtual chassis", commands};

} // namespace mixsh
