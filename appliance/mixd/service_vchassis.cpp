/*
 * The virtual-chassis manager: message type 647 of daemon 97, on every board, so that the master's answers at
 * its own address, too. What it is told is kept in the store.
 *
 *     [vchassis]
 *     service_mode = 1
 *     [[vchassis.host]]            # the processors of a slot's host
 *     slot = 2
 *     flavour = 4
 *     count = 8
 *     [[vchassis.tenant]]
 *     vm = "01234567-89ab-cdef-0123-456789abcdef"
 *     ipv4 = "10.0.0.1"
 *     slot = 2
 */
#include <cerrno>
#include <map>

#include <fmt/format.h>

#include "appliance/mixd/names.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/vchassis.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE vchassis_metadata(key TEXT, number INTEGER, value TEXT NOT NULL, PRIMARY KEY(key, number));"
    "CREATE TABLE vchassis_vm(slot INTEGER PRIMARY KEY, type INTEGER, flavour INTEGER, state INTEGER);"
    "CREATE TABLE vchassis_address(key INTEGER PRIMARY KEY, b INTEGER, c INTEGER, text TEXT NOT NULL);"
    "CREATE TABLE vchassis_slot(slot INTEGER PRIMARY KEY, state INTEGER, disk INTEGER)",
};

constexpr uint32_t state_active = 26, state_shutoff = 28;

struct host {
    uint32_t flavour, count;
};

class vchassis : public service
{
  public:
    explicit vchassis(setup &with);

  private:
    int32_t answer(const request &, reply &);
    int32_t operate(const vm_oper_record &, reply &);
    int32_t metadata(const request &, vchassis_code, reply &);
    int32_t addresses(const request &, reply &);
    int32_t change_address(const request &, bool add);
    int32_t keep_state(const request &, const char *column);
    int32_t refuse(reply &, int error, std::string_view text) const;
    template <class Data>
    static Data data_of(const request &asked);
    template <class... Values>
    int32_t commit(std::string_view sql, const Values &...values);

    store &store_;
    uint16_t mode_ = 0;
    uint32_t crashes_ = 0;
    std::map<uint32_t, host> hosts_;
    std::map<std::string, tenant_vm_record> tenants_;
};

vchassis::vchassis(setup &with) : store_(with.state())
{
    scenario_table table = with.scenario("vchassis");
    mode_ = static_cast<uint16_t>(table.number("service_mode", 0, 0, UINT16_MAX));
    for (scenario_table &row : table.rows("host"))
        hosts_[static_cast<uint32_t>(row.required_number("slot", 0, 253))] = {
            static_cast<uint32_t>(row.required_number("flavour", 2, 8)),
            static_cast<uint32_t>(row.required_number("count", 0, UINT32_MAX))};
    for (scenario_table &row : table.rows("tenant")) {
        tenant_vm_record one{};
        one.ipv4 = row.ipv4("ipv4").value_or(0);
        const ipv6_address ipv6 = row.ipv6("ipv6").value_or(ipv6_address{});
        const mac_address mac = row.mac("mac").value_or(mac_address{});
        std::memcpy(one.ipv6, ipv6.data(), sizeof one.ipv6);
        std::memcpy(one.mac, mac.data(), sizeof one.mac);
        one.vlan = static_cast<uint16_t>(row.number("vlan", 0, 0, 4094));
        one.slot = static_cast<uint32_t>(row.number("slot", 0, 0, 253));
        one.state = static_cast<uint32_t>(row.number("state", state_active, 0, 43));
        tenants_[row.required_text("vm", 36)] = one;
    }
    with.serve_on_boards(vchassis_manager, vchassis_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); },
                         {.instances = {0}});
}

template <class Data>
Data vchassis::data_of(const request &asked)
{
    Data out{};
    const size_t at = sizeof(vchassis_header);
    if (asked.bytes.size() > at)
        std::memcpy(&out, asked.bytes.data() + at, std::min(sizeof out, asked.bytes.size() - at));
    return out;
}

template <class... Values>
int32_t vchassis::commit(std::string_view sql, const Values &...values)
try {
    transaction in(store_);
    in.run(sql, values...);
    in.commit();
    return 0;
} catch (const store_error &failed) {
    log(priority::error, failed.what());
    return -EIO;
}

/* A refusal's reply is its text. */
int32_t vchassis::refuse(reply &out, int error, std::string_view text) const
{
    out.append(text.data(), text.size());
    out.append<char>('\0');
    return -error;
}

int32_t vchassis::answer(const request &asked, reply &out)
{
    switch (asked.field<uint32_t>(0)) {
    case vchassis_vm_oper:
        return operate(data_of<vm_oper_record>(asked), out);
    case vchassis_set_metadata:
        return metadata(asked, vchassis_set_metadata, out);
    case vchassis_get_metadata:
        return metadata(asked, vchassis_get_metadata, out);
    case vchassis_register_address:
        return change_address(asked, true);
    case vchassis_unregister_address:
        return change_address(asked, false);
    case vchassis_addr_info:
        return addresses(asked, out);
    case vchassis_reset_vsom_password:
        return refuse(out, EOPNOTSUPP, "there is no management VM whose password could be reset");
    case vchassis_addr_debug:
        log(priority::notice, fmt::format("address debugging {}", data_of<vchassis_word_data>(asked).value));
        return 0;
    case vchassis_host_cpu_num: {
        const auto found = hosts_.find(data_of<vchassis_slot_data>(asked).slot);
        if (found == hosts_.end())
            return -ENOENT;
        out.append(vchassis_host_cpu_reply{found->second.flavour, found->second.count});
        return 0;
    }
    case vchassis_tenant_vm_ip: {
        const auto wanted = data_of<vchassis_text_data>(asked);
        const auto found = tenants_.find(std::string(text_in(wanted.text)));
        if (found == tenants_.end())
            return -ENOENT;
        out.append(found->second);
        return 0;
    }
    case vchassis_master_crash:
        log(priority::warning,
            fmt::format("board {}: the master's control VM crashed ({} times)", asked.at.name, ++crashes_));
        return 0;
    case vchassis_slot_state:
        return keep_state(asked, "state");
    case vchassis_slot_disk_state:
        return keep_state(asked, "disk");
    case vchassis_service_mode:
        out.append(mode_);
        return 0;
    case vchassis_clear_mac2host:
        return 0;
    default:
        return refuse(out, EINVAL, "no such command");
    }
}

int32_t vchassis::operate(const vm_oper_record &wanted, reply &out)
{
    statement query = store_.prepare("SELECT state FROM vchassis_vm WHERE slot=?");
    query.bind(wanted.slot);
    const bool there = query.step();
    if (wanted.operation != vm_create && !there)
        return refuse(out, ENOENT, fmt::format("there is no VM in slot {}", wanted.slot));
    query.reset();
    switch (wanted.operation) {
    case vm_create:
        if (there)
            return refuse(out, EEXIST, fmt::format("slot {} has a VM already", wanted.slot));
        if (wanted.type < 1 || wanted.type > 3)
            return refuse(out, EINVAL, "no such type of VM");
        return commit("INSERT INTO vchassis_vm VALUES(?,?,?,?)", wanted.slot, wanted.type, wanted.flavour,
                      state_active);
    case vm_delete:
        return commit("DELETE FROM vchassis_vm WHERE slot=?", wanted.slot);
    case vm_start:
        return commit("UPDATE vchassis_vm SET state=? WHERE slot=?", state_active, wanted.slot);
    case vm_stop:
        return commit("UPDATE vchassis_vm SET state=? WHERE slot=?", state_shutoff, wanted.slot);
    default:
        return refuse(out, EINVAL, "no such operation");
    }
}

int32_t vchassis::metadata(const request &asked, vchassis_code code, reply &out)
{
    const auto wanted = data_of<vchassis_metadata_data>(asked);
    const std::string_view key = text_in(wanted.key);
    if (key.empty())
        return refuse(out, EINVAL, "a key must not be empty");
    if (code == vchassis_set_metadata)
        return commit("INSERT OR REPLACE INTO vchassis_metadata VALUES(?,?,?)", key, uint32_t{wanted.number},
                      text_in(wanted.value));
    statement query = store_.prepare("SELECT value FROM vchassis_metadata WHERE key=? AND number=?");
    query.bind(key, uint32_t{wanted.number});
    if (!query.step())
        return refuse(out, ENOENT, fmt::format("there is no {}", key));
    const std::string_view value = query.text(0);
    out.append(value.data(), value.size());
    out.append<char>('\0');
    return 0;
}

int32_t vchassis::change_address(const request &asked, bool add)
{
    const auto wanted = data_of<vchassis_address_data>(asked);
    if (!add)
        return commit("DELETE FROM vchassis_address WHERE key=?", uint32_t{wanted.a});
    return commit("INSERT OR REPLACE INTO vchassis_address VALUES(?,?,?,?)", uint32_t{wanted.a},
                  uint32_t{wanted.b}, uint32_t{wanted.c}, text_in(wanted.text));
}

int32_t vchassis::addresses(const request &asked, reply &out)
{
    const size_t first = sizeof(vchassis_header) + sizeof(vchassis_addr_info_data);
    const uint32_t count = data_of<vchassis_addr_info_data>(asked).count;
    if (asked.bytes.size() < first || (asked.bytes.size() - first) / sizeof(vchassis_addr_entry) < count)
        return -EINVAL;
    for (uint32_t i = 0; i < count; i++) {
        vchassis_addr_entry one;
        std::memcpy(&one, asked.bytes.data() + first + i * sizeof one, sizeof one);
        statement query = store_.prepare("SELECT b, c, text FROM vchassis_address WHERE key=?");
        query.bind(uint32_t{one.key});
        one.found = query.step() ? 1 : 0;
        one.b = one.found != 0 ? static_cast<uint32_t>(query.integer(0)) : 0;
        one.c = one.found != 0 ? static_cast<uint32_t>(query.integer(1)) : 0;
        fill_text(one.text, one.found != 0 ? query.text(2) : std::string_view());
        out.append(one);
    }
    return 0;
}

int32_t vchassis::keep_state(const request &asked, const char *column)
{
    const auto wanted = data_of<vchassis_slot_data>(asked);
    return commit(fmt::format("INSERT INTO vchassis_slot(slot, {0}) VALUES(?,?) "
                              "ON CONFLICT(slot) DO UPDATE SET {0}=excluded.{0}",
                              column),
                  uint32_t{wanted.slot}, uint32_t{wanted.state});
}

} // namespace

const service_entry vchassis_service = {"vchassis", migrations, [](setup &with) -> std::unique_ptr<service> {
                                            return std::make_unique<vchassis>(with);
                                        }};

} // namespace mixd
