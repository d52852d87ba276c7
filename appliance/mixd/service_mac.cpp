/*
 * The MAC address table: message type 39 of the main local daemon, and the gateway's objects for static
 * entries and their interfaces.
 *
 * With --host the table is the kernel's bridges'; with a scenario it is what [mac] describes: single entries
 * ([[mac.entry]]) and runs of them ([[mac.many]]).
 */
#include <cerrno>
#include <set>

#include "appliance/mixd/event.h"
#include "appliance/mixd/hosts.h"
#include "appliance/mixd/kernel_source.h"
#include "appliance/mixd/mac_table.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE mac_interface(name TEXT PRIMARY KEY) WITHOUT ROWID;"
    "CREATE TABLE mac_static(interface TEXT NOT NULL, vlan INTEGER NOT NULL, mac BLOB NOT NULL,"
    " port TEXT NOT NULL, vsys INTEGER NOT NULL, PRIMARY KEY(interface, vlan, mac)) WITHOUT ROWID",
};

constexpr size_t most_statics = 65536;
constexpr size_t most_cleared_at_once = 1024;
constexpr uint32_t rows_of_a_page = (mac_page_capacity - sizeof(mac_page)) / sizeof(mac_entry);

bool is_dynamic(const mac_record &row)
{
    return (row.flags & mac_entry_static) == 0;
}

bool is_local(const mac_record &row)
{
    return (row.flags & mac_entry_local) != 0;
}

/* What kinds of entries the filter flags of a request let through. */
bool is_wanted_kind(uint8_t flags, const mac_record &row)
{
    if (is_local(row))
        return (flags & mac_filter_other) != 0;
    return (flags & (is_dynamic(row) ? mac_filter_dynamic : mac_filter_static)) != 0;
}

bool is_low_half(uint32_t wanted, uint32_t index)
{
    return wanted == 0 || (index & UINT16_MAX) == wanted;
}

/* Where the kernel has a static entry; all zero: nowhere. */
struct place {
    uint32_t bridge = 0;
    uint32_t port = 0;

    bool operator==(const place &) const = default;
};

class mac final : public service, private network_observer
{
  public:
    explicit mac(setup &with);

  private:
    void read(scenario_table table);
    void load_statics(setup &);

    [[nodiscard]] const mac_rows &rows_at(const request &) const;
    int32_t answer(const request &, reply &);
    int32_t list(const request &, reply &);
    int32_t summary(const request &, reply &) const;
    int32_t clear(const request &, reply &);
    int32_t bound(const request &, reply &) const;

    std::optional<refusal> change_interface(const commit &, transaction &);
    std::optional<refusal> change_entry(const commit &, transaction &);
    std::optional<refusal> add(const commit &, transaction &);
    std::optional<refusal> apply(const static_mac_key &, const std::string &port, transaction &);
    std::optional<refusal> remove(const commit &, transaction &);
    void remove_all(const commit &, transaction &);
    void forget(const static_mac_key &);
    [[nodiscard]] place place_of(const static_mac_key &, std::string_view port) const;
    void interfaces_changed() override;
    void apply_static(const static_mac_key &, std::string_view port);
    void withdraw(const static_mac_key &);

    network &network_;
    mac_table &table_;
    const options &options_;
    std::set<std::string, std::less<>> interfaces_; /* that the gateway knows */
    std::map<static_mac_key, uint16_t> systems_;    /* of static entries */
    std::map<static_mac_key, place> applied_;       /* to where in the kernel they were put */
    uint32_t here_ = 0;
    positions<mac_key> positions_;
};

mac::mac(setup &with)
    : network_(with.shared_state<network>()), table_(with.shared_state<mac_table>()),
      options_(with.settings()), here_(with.boards().here().slot)
{
    load_statics(with);
    read(with.scenario("mac"));
    network_.observe(*this);
    with.serve_on_boards(0, mac_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); });
    with.on_commit(object_mac_interface,
                   [this](const commit &wanted, transaction &in) { return change_interface(wanted, in); });
    with.on_commit(object_mac,
                   [this](const commit &wanted, transaction &in) { return change_entry(wanted, in); });
}

void mac::load_statics(setup &with)
{
    statement names = with.state().prepare("SELECT name FROM mac_interface");
    while (names.step())
        interfaces_.emplace(names.text(0));
    statement query = with.state().prepare("SELECT interface, vlan, mac, port, vsys FROM mac_static");
    while (query.step()) {
        const static_mac_key key{query.bytes<6>(2), static_cast<uint16_t>(query.integer(1)),
                                 std::string(query.text(0))};
        systems_[key] = static_cast<uint16_t>(query.integer(4));
        table_.put_static(key, std::string(query.text(3)));
    }
}

constexpr scenario_word<forwarding_entry::kind> kind_words[] = {{"dynamic", forwarding_entry::kind::dynamic},
                                                                {"static", forwarding_entry::kind::fixed},
                                                                {"local", forwarding_entry::kind::local}};

/* What the entries of one table of a scenario have in common; their addresses are put in later. */
std::pair<forwarding_key, forwarding_entry> read_entry(scenario_table &each, network &of)
{
    forwarding_key key{of.need_interface(each.required_text("interface", 31)),
                       static_cast<uint16_t>(each.number("vlan", 0, 0, highest_vlan)),
                       each.mac("mac").value_or(mac_address{2, 0, 0, 0, 0, 0})};
    forwarding_entry entry;
    entry.port = of.need_interface(each.required_text("port", 31));
    entry.is = each.one_of("kind", "dynamic", kind_words).value;
    entry.updated = monotonic_seconds();
    return {key, entry};
}

void mac::read(scenario_table table)
{
    for (scenario_table &each : table.rows("entry")) {
        const auto [key, entry] = read_entry(each, network_);
        network_.put(key, entry);
    }
    for (scenario_table &each : table.rows("many")) {
        const auto number = static_cast<uint32_t>(each.required_number("count", 1, 4'000'000));
        auto [key, entry] = read_entry(each, network_);
        const mac_address base = key.mac;
        for (uint32_t i = 0; i < number; ++i) {
            key.mac = counted_up(base, i);
            network_.put(key, entry);
        }
    }
}

/* --- requests --- */

int32_t mac::answer(const request &asked, reply &out)
{
    network_.refresh();
    switch (asked.field<uint32_t>(0)) {
    case mac_list:
        return list(asked, out);
    case mix::wire::mac_summary:
        return summary(asked, out);
    case mac_clear_dynamic:
        return clear(asked, out);
    case mac_bound:
        return bound(asked, out);
    default:
        return -EINVAL;
    }
}

mac_entry entry_of(const mac_record &row, uint32_t now)
{
    mac_entry entry{};
    std::copy(row.key.mac.begin(), row.key.mac.end(), entry.mac);
    entry.flags = row.flags;
    entry.vlan = row.key.vlan;
    const mac_entry_own own{now - row.updated};
    std::memcpy(entry.daemons_own, &own, sizeof own);
    std::copy(std::begin(row.interface), std::end(row.interface), entry.interface);
    std::copy(std::begin(row.port_name), std::end(row.port_name), entry.second_name);
    return entry;
}

/* Only this board has bridges. */
const mac_rows &mac::rows_at(const request &asked) const
{
    static const mac_rows none;
    return asked.at.slot == here_ ? table_.rows() : none;
}

int32_t mac::list(const request &asked, reply &out)
{
    if (!asked.is_a<mac_request>())
        return -EINVAL;
    const auto wanted = asked.record<mac_request>();
    const uint32_t now = monotonic_seconds();
    out.append(mac_page{});
    const auto made = take_page(
        rows_at(asked), positions_, {asked.from.connection, wanted.cursor, wanted.budget, rows_of_a_page},
        [&](const mac_record &row) {
            return is_wanted_kind(wanted.flags, row) && (wanted.a == 0 || row.key.vlan == wanted.a) &&
                   is_low_half(wanted.b, row.key.bridge) && is_low_half(wanted.c, row.port) &&
                   ((wanted.flags & mac_filter_address) == 0 ||
                    std::equal(row.key.mac.begin(), row.key.mac.end(), wanted.mac)) &&
                   ((wanted.extra & mac_extra_convert) == 0 ||
                    (row.flags & mac_entry_learned_elsewhere) == 0);
        },
        [&](const mac_record &row) { out.append(entry_of(row, now)); });
    if (!made)
        return -ESTALE;
    out.put(0, mac_page{static_cast<uint16_t>(made->cursor), static_cast<uint16_t>(made->rows)});
    return 0;
}

int32_t mac::summary(const request &asked, reply &out) const
{
    if (!asked.is_a<mac_request>())
        return -EINVAL;
    const auto sum = std::make_shared<mac_summary_reply>();
    return walk_in_turns(
        rows_at(asked), most_rows_looked_at,
        [sum](const mac_record &row) {
            ++sum->total;
            ++(is_local(row)     ? sum->local_entries
               : is_dynamic(row) ? sum->dynamic_entries
                                 : sum->static_entries);
            return true;
        },
        reply_with(sum), out);
}

/* A very large table is cleared by repeating the request. */
int32_t mac::clear(const request &asked, reply &out)
{
    if (!asked.is_a<mac_clear_request>())
        return -EINVAL;
    const auto wanted = asked.record<mac_clear_request>();
    std::vector<mac_record> gone;
    rows_at(asked).walk({}, [&](const mac_record &row) {
        if (is_dynamic(row) && (wanted.a == 0 || row.key.vlan == wanted.a) &&
            is_low_half(wanted.b, row.key.bridge) &&
            (wanted.has_mac == 0 || std::equal(row.key.mac.begin(), row.key.mac.end(), wanted.mac)))
            gone.push_back(row);
        return gone.size() < most_cleared_at_once;
    });
    uint32_t cleared = 0;
    for (const mac_record &row : gone) {
        const int result = network_.kernel() != nullptr
                               ? network_.kernel()->delete_forwarding(row.port, row.key.vlan, row.key.mac)
                               : 0;
        if (result < 0 && result != -ENOENT)
            return result;
        network_.remove(forwarding_key{row.key.bridge, row.key.vlan, row.key.mac});
        ++cleared;
    }
    out.append(mac_clear_reply{0, cleared});
    return 0;
}

/* Whether a static entry is in one of the VLANs, on the interface with that index (0: on any). */
int32_t mac::bound(const request &asked, reply &out) const
{
    if (!asked.is_a<mac_bound_request>())
        return -EINVAL;
    const auto wanted = asked.record<mac_bound_request>();
    const auto found = std::make_shared<uint8_t>(0);
    return walk_in_turns(
        rows_at(asked), most_rows_looked_at,
        [found, wanted](const mac_record &row) {
            const bool in_vlan = row.key.vlan / 8u < sizeof wanted.vlans &&
                                 (wanted.vlans[row.key.vlan / 8] >> (row.key.vlan % 8) & 1) != 0;
            *found = in_vlan && !is_dynamic(row) && !is_local(row) && is_low_half(wanted.a, row.key.bridge);
            return *found == 0;
        },
        reply_with(found), out);
}

/* --- static entries --- */

std::optional<refusal> mac::change_interface(const commit &wanted, transaction &in)
{
    if (wanted.operation == operation_unset) {
        remove_all(wanted, in);
        return {};
    }
    const std::string name(wanted.text(mac_attribute_interface));
    if (name.empty())
        return refusal{result_bad_value, "the interface has no name", "接口名称为空"};
    if (interfaces_.contains(name))
        return refusal{result_exists, {}, {}, MGI_RESP_EXISTS};
    if (wanted.operation == operation_create) /* the client creates it by an addition */
        return refusal{result_absent, {}, {}};
    in.run("INSERT INTO mac_interface VALUES(?)", std::string_view(name));
    in.after_commit([this, name] { interfaces_.insert(name); });
    return {};
}

std::optional<refusal> mac::change_entry(const commit &wanted, transaction &in)
{
    return wanted.operation == operation_add ? add(wanted, in) : remove(wanted, in);
}

std::optional<refusal> mac::add(const commit &wanted, transaction &in)
{
    const static_mac_key key{wanted.value<mac_address>(mac_attribute_mac), wanted.u16(mac_attribute_vlan),
                             std::string(wanted.text(mac_attribute_interface))};
    const std::string port(wanted.text(mac_attribute_second_name));
    if (!interfaces_.contains(key.interface))
        return refusal{result_absent, "the interface is not known", "接口不存在"};
    if (!is_station(key.mac))
        return not_a_station();
    if (key.vlan > highest_vlan)
        return refusal{result_bad_value, fmt::format("the VLAN id must be 0 to {}", highest_vlan),
                       fmt::format("VLAN编号必须在0到{}之间", highest_vlan)};
    if (port.empty())
        return refusal{result_bad_value, "the port has no name", "端口名称为空"};
    if (!table_.statics().contains(key) && table_.statics().size() >= most_statics)
        return refusal{result_full, "there are 65536 static MAC entries already", "静态MAC表项已达65536条"};
    in.run("INSERT OR REPLACE INTO mac_static VALUES(?,?,?,?,?)", std::string_view(key.interface), key.vlan,
           std::span<const uint8_t>(key.mac), std::string_view(port), wanted.vsysid);
    if (auto no = apply(key, port, in))
        return no;
    in.after_commit([this, key, port, vsys = wanted.vsysid] {
        systems_[key] = vsys;
        table_.put_static(key, port);
        apply_static(key, port);
    });
    return {};
}

/* An entry can be in force when its port is one of its bridge. */
place mac::place_of(const static_mac_key &key, std::string_view port) const
{
    const network_interface *bridge = network_.interface(key.interface), *out = network_.interface(port);
    const bool joined = bridge != nullptr && out != nullptr && out->master == bridge->index;
    return options_.apply && network_.kernel() != nullptr && joined ? place{bridge->index, out->index}
                                                                    : place{};
}

/* The kernel is written before the commit, and gets the configured entry that it had back when that fails. */
std::optional<refusal> mac::apply(const static_mac_key &key, const std::string &port, transaction &in)
{
    const place where = place_of(key, port);
    if (where == place{})
        return {};
    kernel_source *kernel = network_.kernel();
    if (const int result = kernel->set_forwarding(where.port, key.vlan, key.mac); result < 0)
        return not_applied(-result);
    const auto before = applied_.find(key);
    if (before != applied_.end() && before->second != place{})
        in.on_rollback([kernel, port_index = before->second.port, key] {
            kernel->set_forwarding(port_index, key.vlan, key.mac);
        });
    else
        in.on_rollback([kernel, port_index = where.port, key] {
            kernel->delete_forwarding(port_index, key.vlan, key.mac);
        });
    return {};
}

/* Commits refuse what the kernel does not take; here entries follow bridges and ports that came or went. */
void mac::interfaces_changed()
{
    for (const auto &[key, port] : table_.statics())
        apply_static(key, port);
}

void mac::apply_static(const static_mac_key &key, std::string_view port)
{
    const place where = place_of(key, port);
    if (const auto before = applied_.find(key);
        before != applied_.end() ? before->second == where : where == place{})
        return;
    withdraw(key);
    applied_[key] = where;
    if (where == place{})
        return;
    if (const int result = network_.kernel()->set_forwarding(where.port, key.vlan, key.mac); result < 0)
        log(priority::warning, fmt::format("a static MAC entry on {}: {}", port, std::strerror(-result)));
}

/* Takes an entry that was put into the kernel out of it again. */
void mac::withdraw(const static_mac_key &key)
{
    const auto on = applied_.find(key);
    if (on == applied_.end())
        return;
    if (on->second != place{}) {
        network_.kernel()->delete_forwarding(on->second.port, key.vlan, key.mac);
        network_.remove(forwarding_key{on->second.bridge, key.vlan, key.mac});
    }
    applied_.erase(on);
}

void mac::forget(const static_mac_key &key)
{
    withdraw(key);
    table_.remove_static(key);
    systems_.erase(key);
}

/* Of the virtual system named. What a request does not name does not count: an interface, a port; the VLAN,
 * when neither it nor an interface is named. */
std::optional<refusal> mac::remove(const commit &wanted, transaction &in)
{
    const auto address = wanted.value<mac_address>(mac_attribute_mac);
    const uint16_t vlan = wanted.u16(mac_attribute_vlan);
    bool found = false;
    for (const auto &[key, port] : table_.statics()) {
        const bool of_interface =
            !wanted.has(mac_attribute_interface) || key.interface == wanted.text(mac_attribute_interface);
        const bool of_vlan = key.vlan == vlan || (vlan == 0 && !wanted.has(mac_attribute_interface));
        const bool of_port =
            !wanted.has(mac_attribute_second_name) || port == wanted.text(mac_attribute_second_name);
        if (key.mac != address || systems_.at(key) != wanted.vsysid || !of_interface || !of_vlan || !of_port)
            continue;
        in.run("DELETE FROM mac_static WHERE interface=? AND vlan=? AND mac=?",
               std::string_view(key.interface), key.vlan, std::span<const uint8_t>(key.mac));
        in.after_commit([this, gone = key] { forget(gone); });
        found = true;
    }
    if (!found)
        return refusal{result_absent, "there is no such static MAC entry", "静态MAC表项不存在"};
    return {};
}

void mac::remove_all(const commit &wanted, transaction &in)
{
    in.run("DELETE FROM mac_static WHERE vsys=?", wanted.vsysid);
    in.after_commit([this, wanted_system = wanted.vsysid] {
        std::vector<static_mac_key> gone;
        for (const auto &[key, vsys] : systems_)
            if (vsys == wanted_system)
                gone.push_back(key);
        for (const static_mac_key &key : gone)
            forget(key);
    });
}

} // namespace

const service_entry mac_service = {
    "mac", migrations, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<mac>(with); }};

} // namespace mixd
