/*
 * The virtual-chassis manager: message type 647 of daemon 97, on every board, so that the master's answers at
 * its own address, too. What it is told is kept in the store, and what a scenario tells of hosts and tenants,
 * too. This host's own slot needs no description: its processors are counted.
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
#include <array>
#include <cerrno>

#include <fmt/format.h>

#include "appliance/mixd/control_pages.h"
#include "appliance/mixd/host_figures.h"
#include "appliance/mixd/kept_rows.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/mac.h"
#include "appliance/wire/text.h"
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
    MIXD_KEPT_ROWS_TABLE("vchassis_host") ";" MIXD_KEPT_ROWS_TABLE("vchassis_tenant"),
    "CREATE TABLE vchassis_crash(slot INTEGER PRIMARY KEY, times INTEGER NOT NULL)",
};

constexpr uint32_t state_active = 26, state_shutoff = 28;

struct host {
    uint32_t slot;
    uint32_t flavour;
    uint32_t count;
};
struct slot_of_host {
    uint32_t operator()(const host &one) const { return one.slot; }
};

struct tenant {
    char vm[40]; /* in canonical form */
    tenant_vm_record is;
};
struct vm_of_tenant {
    std::array<char, 40> operator()(const tenant &one) const { return std::to_array(one.vm); }
};

/* This host, by the largest flavour that fits on it. */
host count_processors(uint32_t slot)
{
    const uint32_t processors = host_cpu_count();
    const uint32_t flavour = processors >= 8 ? 8 : processors >= 4 ? 4 : 2;
    return {slot, flavour, processors / flavour};
}

class vchassis final : public service
{
  public:
    explicit vchassis(setup &with);
    void begin() override;

  private:
    void read(scenario_table &table);
    int32_t show_host(uint32_t slot, reply &) const;
    int32_t show_tenant(const request &, reply &) const;
    int32_t list_vms(const request &, reply &);
    int32_t list_slots(const request &, reply &);
    int32_t answer(const request &, reply &);
    int32_t operate(const vm_oper_record &, reply &);
    int32_t metadata(const request &, vchassis_code, reply &);
    int32_t addresses(const request &, reply &);
    int32_t change_address(const request &, bool add);
    int32_t keep_state(const request &, const char *column);
    int32_t count_crash(const request &);
    int32_t refuse(reply &, int error, std::string_view text) const;
    template <class Data>
    static Data data_of(const request &asked);
    template <class... Values>
    int32_t commit(std::string_view sql, const Values &...values);

    store &store_;
    bool described_;
    uint32_t here_;
    uint16_t mode_ = 0;
    kept_rows<host, slot_of_host> hosts_;
    kept_rows<tenant, vm_of_tenant> tenants_;
};

vchassis::vchassis(setup &with)
    : store_(with.state()), described_(!with.settings().host), here_(with.boards().here().slot),
      hosts_(store_, "vchassis_host"), tenants_(store_, "vchassis_tenant")
{
    scenario_table table = with.scenario("vchassis");
    read(table);
    with.serve_on_boards(vchassis_manager, vchassis_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); },
                         {.instances = {0}});
    with.serve(control_daemon, control_list_vms,
               [this](const request &asked, reply &out) { return list_vms(asked, out); });
    with.serve(control_daemon, control_list_vchassis_slots,
               [this](const request &asked, reply &out) { return list_slots(asked, out); });
}

void vchassis::read(scenario_table &table)
{
    mode_ = static_cast<uint16_t>(table.number("service_mode", 0, 0, UINT16_MAX));
    for (scenario_table &row : table.rows("host"))
        hosts_.describe(row, {static_cast<uint32_t>(row.required_number("slot", 0, highest_slot)),
                              static_cast<uint32_t>(row.required_number("flavour", 2, 8)),
                              static_cast<uint32_t>(row.required_number("count", 0, UINT32_MAX))});
    for (scenario_table &row : table.rows("tenant")) {
        tenant one{};
        const ipv6_address ipv6 = row.ipv6("ipv6").value_or(ipv6_address{});
        const mac_address mac = row.mac("mac").value_or(mac_address{});
        fill_text(one.vm, row.required_text("vm", 36));
        one.is.ipv4 = row.ipv4("ipv4").value_or(0);
        std::memcpy(one.is.ipv6, ipv6.data(), sizeof one.is.ipv6);
        std::memcpy(one.is.mac, mac.data(), sizeof one.is.mac);
        one.is.vlan = static_cast<uint16_t>(row.number("vlan", 0, 0, highest_vlan));
        one.is.slot = static_cast<uint32_t>(row.number("slot", 0, 0, highest_slot));
        one.is.state = static_cast<uint32_t>(row.number("state", state_active, 0, 43));
        tenants_.describe(row, one);
    }
}

void vchassis::begin()
{
    hosts_.begin(described_);
    tenants_.begin(described_);
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
    case vchassis_host_cpu_num:
        return show_host(data_of<vchassis_slot_data>(asked).slot, out);
    case vchassis_tenant_vm_ip:
        return show_tenant(asked, out);
    case vchassis_master_crash:
        return count_crash(asked);
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

int32_t vchassis::show_host(uint32_t slot, reply &out) const
{
    const host *found = hosts_.rows().find(slot);
    if (found == nullptr && (described_ || slot != here_))
        return -ENOENT;
    const host is = found != nullptr ? *found : count_processors(slot);
    out.append(vchassis_host_cpu_reply{is.flavour, is.count});
    return 0;
}

int32_t vchassis::show_tenant(const request &asked, reply &out) const
{
    tenant wanted{};
    const auto text = data_of<vchassis_text_data>(asked);
    fill_text(wanted.vm, text_in(text.text));
    const tenant *found = tenants_.rows().find(vm_of_tenant{}(wanted));
    if (found == nullptr)
        return -ENOENT;
    out.append(found->is);
    return 0;
}

int32_t vchassis::list_vms(const request &asked, reply &out)
{
    const auto column = [](const statement &row, int at) { return static_cast<uint32_t>(row.integer(at)); };
    return page_by_number<vchassis_vm_row>(
        store_.prepare("SELECT slot, type, flavour, state FROM vchassis_vm WHERE slot>=? ORDER BY slot"),
        asked, out, [&](const statement &row) {
            return vchassis_vm_row{column(row, 0), column(row, 1), column(row, 2), column(row, 3)};
        });
}

int32_t vchassis::list_slots(const request &asked, reply &out)
{
    const auto column = [](const statement &row, int at) {
        return row.null(at) ? vchassis_not_told : static_cast<uint32_t>(row.integer(at));
    };
    return page_by_number<vchassis_slot_row>(
        store_.prepare("SELECT slot, state, disk FROM vchassis_slot WHERE slot>=? ORDER BY slot"), asked, out,
        [&](const statement &row) {
            return vchassis_slot_row{column(row, 0), column(row, 1), column(row, 2)};
        });
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

int32_t vchassis::count_crash(const request &asked)
{
    const int32_t kept = commit("INSERT INTO vchassis_crash VALUES(?,1) "
                                "ON CONFLICT(slot) DO UPDATE SET times=times+1",
                                asked.at.slot);
    statement query = store_.prepare("SELECT times FROM vchassis_crash WHERE slot=?");
    query.bind(asked.at.slot);
    log(priority::warning, fmt::format("board {}: the master's control VM crashed ({} times)", asked.at.name,
                                       query.step() ? query.integer(0) : 0));
    return kept;
}

} // namespace

const service_entry vchassis_service = {"vchassis", migrations, [](setup &with) -> std::unique_ptr<service> {
                                            return std::make_unique<vchassis>(with);
                                        }};

} // namespace mixd
