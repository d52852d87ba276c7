/*
 * DHCP snooping: the bindings (message type 95 of the main local daemon), and the settings of interfaces,
 * which are changed and read back through the gateway.
 *
 * Bindings come from the lease file of the DHCP server on this host, and are kept in the store, so that they
 * are there again after a restart, whatever became of the file. A scenario has bindings of its own
 * ([[dhcpsn.binding]], [[dhcpsn.many]]), and may name a lease file.
 */
#include <cerrno>
#include <charconv>
#include <ctime>
#include <set>

#include "appliance/mixd/event.h"
#include "appliance/mixd/lease_file.h"
#include "appliance/mixd/mac_table.h"
#include "appliance/mixd/network.h"
#include "appliance/mixd/ordered_table.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/dhcpsn.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE dhcpsn_setting(interface TEXT PRIMARY KEY, enable INTEGER NOT NULL DEFAULT 0,"
    " rate_limit INTEGER NOT NULL DEFAULT 0, deny_request INTEGER NOT NULL DEFAULT 0,"
    " deny_response INTEGER NOT NULL DEFAULT 0, validity INTEGER NOT NULL DEFAULT 0) WITHOUT ROWID;"
    "CREATE TABLE dhcpsn_lease(mac BLOB NOT NULL, address INTEGER NOT NULL, expiry INTEGER NOT NULL,"
    " host TEXT NOT NULL, PRIMARY KEY(mac, address)) WITHOUT ROWID",
};

constexpr size_t most_settings = 8192;
constexpr size_t most_cleared_at_once = 1024;
constexpr uint16_t most_rows_of_a_batch = 1000; /* whatever is asked for: a reply has a largest size */
constexpr uint32_t most_rows_placed = most_rows_looked_at / 8; /* each is looked up in the MAC table */
constexpr uint32_t rows_of_a_page = (dhcpsn_page_capacity - sizeof(dhcpsn_page)) / sizeof(dhcpsn_binding);

struct binding_key {
    mac_address mac;
    uint32_t address;

    auto operator<=>(const binding_key &) const = default;
};

struct binding {
    binding_key key;
    uint64_t expiry; /* seconds since 1970; 0: never */
    uint16_t vlan;   /* of a scenario; else where the MAC table has the address */
    uint8_t kind;
    bool described; /* by a scenario: no lease file releases it */
    char interface[32];
    char host[24];
};

struct binding_key_of {
    binding_key operator()(const binding &one) const { return one.key; }
};

/* One attribute of the settings: where it is kept, and what it may be. */
struct setting_column {
    uint8_t attribute;
    const char *sql;
    uint32_t most;
    const char *english;
    const char *chinese;
};

constexpr setting_column columns[] = {
    {dhcpsn_attribute_enable, "enable", 1, "enable must be 0 or 1", "使能必须为0或1"},
    {dhcpsn_attribute_rate_limit, "rate_limit", UINT16_MAX, "", ""},
    {dhcpsn_attribute_deny_request, "deny_request", 1, "deny request must be 0 or 1", "拒绝请求必须为0或1"},
    {dhcpsn_attribute_deny_response, "deny_response", 1, "deny response must be 0 or 1",
     "拒绝应答必须为0或1"},
    {dhcpsn_attribute_validity, "validity", 1, "validity check must be 0 or 1", "合法性检查必须为0或1"},
};

/* The id in "vlan10"; 0 for any other name. */
uint16_t vlan_of(std::string_view interface)
{
    constexpr std::string_view before = "vlan";
    uint16_t id = 0;
    if (!interface.starts_with(before))
        return 0;
    const char *end = interface.data() + interface.size();
    const auto [at, error] = std::from_chars(interface.data() + before.size(), end, id);
    return error == std::errc{} && at == end && id <= highest_vlan ? id : 0;
}

uint64_t wall_clock()
{
    return static_cast<uint64_t>(std::time(nullptr));
}

class dhcpsn final : public service
{
  public:
    explicit dhcpsn(setup &with);

  private:
    void load(setup &);
    void read(setup &, scenario_table table);
    void take_leases(const std::vector<lease> &);
    void keep(const std::vector<lease> &, const std::vector<binding_key> &released);
    static void forget(const binding_key &, transaction &);
    void put(const lease &);
    [[nodiscard]] bool is_current(const binding &) const;
    [[nodiscard]] dhcpsn_binding row_of(const binding &) const;
    [[nodiscard]] bool matches(const dhcpsn_request &, const binding &) const;

    int32_t answer(const request &, reply &);
    int32_t list(const dhcpsn_request &, const request &, reply &);
    int32_t count(const dhcpsn_request &, reply &) const;
    int32_t clear(const request &, reply &);
    int32_t clear(const std::vector<binding> &);
    std::optional<refusal> set(const commit &, transaction &);
    std::optional<refusal> read_back(const commit &, read_batch &);
    [[nodiscard]] bool is_selected(const dhcpsn_selection &, const dhcpsn_setting &) const;

    const network &network_;
    const mac_table &macs_;
    store &store_;
    ordered_table<binding, binding_key_of> bindings_;
    std::map<binding_key, uint64_t> cleared_; /* to the expiry they had: seen again once it is another */
    std::map<std::string, dhcpsn_setting, std::less<>> settings_;
    positions<binding_key> positions_;
    std::unique_ptr<lease_file> leases_;
};

dhcpsn::dhcpsn(setup &with)
    : network_(with.shared_state<network>()), macs_(with.shared_state<mac_table>()), store_(with.state())
{
    load(with);
    read(with, with.scenario("dhcpsn"));
    with.serve(0, dhcpsn_type, [this](const request &asked, reply &out) { return answer(asked, out); });
    with.on_commit(object_dhcpsn, [this](const commit &wanted, transaction &in) { return set(wanted, in); });
    with.on_read(object_dhcpsn,
                 [this](const commit &wanted, read_batch &out) { return read_back(wanted, out); });
}

void dhcpsn::load(setup &with)
{
    statement query = with.state().prepare(
        "SELECT interface, enable, deny_request, deny_response, validity, rate_limit FROM dhcpsn_setting");
    while (query.step()) {
        dhcpsn_setting one{};
        fill_text(one.interface, query.text(0));
        one.enable = static_cast<uint8_t>(query.integer(1));
        one.deny_request = static_cast<uint8_t>(query.integer(2));
        one.deny_response = static_cast<uint8_t>(query.integer(3));
        one.validity = static_cast<uint8_t>(query.integer(4));
        one.rate_limit = static_cast<uint16_t>(query.integer(5));
        one.vlan = vlan_of(query.text(0));
        settings_.emplace(query.text(0), one);
    }
    statement leases = with.state().prepare("SELECT mac, address, expiry, host FROM dhcpsn_lease");
    while (leases.step()) {
        lease one;
        one.mac = leases.bytes<6>(0);
        one.address = static_cast<uint32_t>(leases.integer(1));
        one.expiry = static_cast<uint64_t>(leases.integer(2));
        one.host = leases.text(3);
        put(one);
    }
}

void dhcpsn::read(setup &with, scenario_table table)
{
    const auto read_one = [](scenario_table &each) {
        binding one{};
        one.key.mac = each.mac("mac").value_or(mac_address{2, 0, 0, 0, 0, 0});
        one.key.address = each.ipv4("address").value_or(0x0a000001);
        const uint64_t seconds = each.number("seconds", 3600, 0, UINT32_MAX - 1);
        one.expiry = seconds == 0 ? 0 : wall_clock() + seconds;
        one.vlan = static_cast<uint16_t>(each.number("vlan", 0, 0, highest_vlan));
        one.kind = each.boolean("static", false) ? dhcpsn_is_static : dhcpsn_is_dynamic;
        one.described = true;
        fill_text(one.interface, each.text("interface", "", sizeof one.interface - 1));
        fill_text(one.host, each.text("host", "", sizeof one.host - 1));
        return one;
    };
    for (scenario_table &each : table.rows("binding"))
        bindings_.put(read_one(each));
    for (scenario_table &each : table.rows("many")) {
        binding one = read_one(each);
        const binding_key first = one.key;
        const auto number = static_cast<uint32_t>(each.required_number("count", 1, 4'000'000));
        for (uint32_t i = 0; i < number; ++i) {
            one.key = {counted_up(first.mac, i), first.address + i};
            bindings_.put(one);
        }
    }
    const std::string usual = with.settings().host ? with.settings().lease_file : "";
    const std::string path = table.text("lease_file", usual, 4095);
    if (!path.empty())
        leases_ = std::make_unique<lease_file>(path, with.loop(),
                                               [this](const std::vector<lease> &all) { take_leases(all); });
}

/* --- leases --- */

void dhcpsn::put(const lease &from)
{
    binding one{};
    one.key = {from.mac, from.address};
    one.expiry = from.expiry;
    one.kind = dhcpsn_is_dynamic;
    fill_text(one.host, from.host);
    bindings_.put(one);
}

/* The file has every lease that is in force: what it no longer has was released. An empty or absent file is a
 * server that was just set up, or is gone: the bindings stay until their leases end. */
void dhcpsn::take_leases(const std::vector<lease> &all)
{
    if (all.empty())
        return;
    std::vector<binding_key> released;
    std::set<binding_key> held;
    for (const lease &one : all)
        held.insert({one.mac, one.address});
    bindings_.walk({}, [&](const binding &one) {
        if (!one.described && !held.contains(one.key))
            released.push_back(one.key);
        return true;
    });
    keep(all, released);
    for (const binding_key &key : released)
        bindings_.erase(key);
    for (const lease &one : all) {
        const auto gone = cleared_.find({one.mac, one.address});
        if (gone != cleared_.end() && gone->second == one.expiry)
            continue;
        if (gone != cleared_.end())
            cleared_.erase(gone);
        put(one);
    }
}

/* Only what is new or different is written: a server rewrites its whole file for each lease. */
void dhcpsn::keep(const std::vector<lease> &all, const std::vector<binding_key> &released)
{
    try {
        transaction in(store_);
        for (const binding_key &key : released)
            forget(key, in);
        statement insert = store_.prepare("INSERT OR REPLACE INTO dhcpsn_lease VALUES(?,?,?,?)");
        for (const lease &one : all) {
            const binding *known = bindings_.find({one.mac, one.address});
            if (known != nullptr && known->expiry == one.expiry && text_in(known->host) == one.host)
                continue;
            insert.bind(std::span<const uint8_t>(one.mac), one.address, one.expiry,
                        std::string_view(one.host));
            insert.step();
            insert.reset();
        }
        in.commit();
    } catch (const store_error &error) {
        log(priority::warning, fmt::format("DHCP leases can't be kept: {}", error.what()));
    }
}

void dhcpsn::forget(const binding_key &key, transaction &in)
{
    in.run("DELETE FROM dhcpsn_lease WHERE mac=? AND address=?", std::span<const uint8_t>(key.mac),
           key.address);
}

bool dhcpsn::is_current(const binding &one) const
{
    return one.expiry == 0 || one.expiry > wall_clock();
}

/* Where the client is: what the scenario says, else the port that its bridge has it at, else the interface of
 * its network. */
dhcpsn_binding dhcpsn::row_of(const binding &one) const
{
    dhcpsn_binding row{};
    std::copy(one.key.mac.begin(), one.key.mac.end(), row.mac);
    row.vlan = one.vlan;
    row.address = one.key.address;
    const uint64_t now = wall_clock();
    row.left =
        one.expiry == 0 ? dhcpsn_for_ever : static_cast<uint32_t>(one.expiry - std::min(one.expiry, now));
    std::copy(std::begin(one.interface), std::end(one.interface), row.interface);
    std::copy(std::begin(one.host), std::end(one.host), row.host);
    row.kind = one.kind;
    if (row.interface[0] != '\0')
        return row;
    if (const mac_record *entry = macs_.find(one.key.mac, 0)) {
        std::copy(std::begin(entry->port_name), std::end(entry->port_name), row.interface);
        if (row.vlan == 0)
            row.vlan = entry->key.vlan;
    } else if (const network_interface *towards = network_.interface_towards(one.key.address, 0)) {
        fill_text(row.interface, towards->name);
    }
    return row;
}

/* --- requests --- */

int32_t dhcpsn::answer(const request &asked, reply &out)
{
    const auto wanted = asked.record<dhcpsn_request>();
    switch (wanted.opcode) {
    case dhcpsn_list:
        return asked.is_a<dhcpsn_request>() ? list(wanted, asked, out) : -EINVAL;
    case dhcpsn_count:
        return asked.is_a<dhcpsn_request>() ? count(wanted, out) : -EINVAL;
    case dhcpsn_clear_dynamic:
        return clear(asked, out);
    default:
        return -EINVAL;
    }
}

bool dhcpsn::matches(const dhcpsn_request &wanted, const binding &one) const
{
    if (!is_current(one) || (wanted.d != 0 && one.key.address != wanted.d) ||
        (wanted.b != 0 && one.kind + 1 != wanted.b) ||
        (wanted.has_mac != 0 && !std::equal(one.key.mac.begin(), one.key.mac.end(), wanted.mac)))
        return false;
    if (wanted.has_vlan != 0)
        return row_of(one).vlan == wanted.vlan_or_c;
    if (wanted.vlan_or_c == 0)
        return true;
    const network_interface *on = network_.interface(text_in(row_of(one).interface));
    return on != nullptr && (on->index & UINT16_MAX) == wanted.vlan_or_c;
}

int32_t dhcpsn::list(const dhcpsn_request &wanted, const request &asked, reply &out)
{
    out.append(dhcpsn_page{});
    const auto made = take_page(
        bindings_, positions_,
        {asked.from.connection, wanted.cursor, wanted.budget, rows_of_a_page, most_rows_placed},
        [&](const binding &one) { return matches(wanted, one); },
        [&](const binding &one) { out.append(row_of(one)); });
    if (!made)
        return -ESTALE;
    out.put(0, dhcpsn_page{made->cursor, made->rows});
    return 0;
}

int32_t dhcpsn::count(const dhcpsn_request &wanted, reply &out) const
{
    const auto found = std::make_shared<int32_t>(0);
    return walk_in_turns(
        bindings_, most_rows_placed,
        [this, found, wanted](const binding &one) {
            *found += matches(wanted, one) ? 1 : 0;
            return true;
        },
        [found](reply &) { return *found; }, out);
}

/* The status is how many were cleared; of a very large table the next request clears more. The lease file is
 * the server's and stays as it is: a cleared binding comes back when its lease is renewed. */
int32_t dhcpsn::clear(const request &asked, reply &out)
{
    if (!asked.is_a<dhcpsn_clear_request>())
        return -EINVAL;
    const auto wanted = asked.record<dhcpsn_clear_request>();
    dhcpsn_request by{};
    by.has_vlan = wanted.a != 0 ? 1 : 0;
    by.vlan_or_c = wanted.a != 0 ? wanted.a : wanted.c;
    by.b = dhcpsn_is_dynamic + 1;
    by.d = wanted.b;
    const auto gone = std::make_shared<std::vector<binding>>();
    return walk_in_turns(
        bindings_, most_rows_placed,
        [this, gone, by](const binding &one) {
            if (matches(by, one))
                gone->push_back(one);
            return gone->size() < most_cleared_at_once;
        },
        [this, gone](reply &) { return clear(*gone); }, out);
}

int32_t dhcpsn::clear(const std::vector<binding> &gone)
{
    transaction in(store_);
    for (const binding &one : gone)
        forget(one.key, in);
    in.commit();
    for (const binding &one : gone) {
        cleared_[one.key] = one.expiry;
        bindings_.erase(one.key);
    }
    return static_cast<int32_t>(gone.size());
}

/* --- settings --- */

void assign(dhcpsn_setting &to, uint8_t attribute, uint32_t value)
{
    switch (attribute) {
    case dhcpsn_attribute_enable:
        to.enable = static_cast<uint8_t>(value);
        break;
    case dhcpsn_attribute_rate_limit:
        to.rate_limit = static_cast<uint16_t>(value);
        break;
    case dhcpsn_attribute_deny_request:
        to.deny_request = static_cast<uint8_t>(value);
        break;
    case dhcpsn_attribute_deny_response:
        to.deny_response = static_cast<uint8_t>(value);
        break;
    default:
        to.validity = static_cast<uint8_t>(value);
    }
}

std::optional<refusal> dhcpsn::set(const commit &wanted, transaction &in)
{
    const std::string name(wanted.text(dhcpsn_attribute_interface));
    if (network_.interface(name) == nullptr && vlan_of(name) == 0)
        return refusal{result_bad_value, "there is no such interface", "接口不存在"};
    if (!settings_.contains(name) && settings_.size() >= most_settings)
        return refusal{result_full, "8192 interfaces have settings already", "已有8192个接口配置"};
    dhcpsn_setting now{};
    if (const auto found = settings_.find(name); found != settings_.end())
        now = found->second;
    fill_text(now.interface, name);
    now.vlan = vlan_of(name);
    in.run("INSERT OR IGNORE INTO dhcpsn_setting(interface) VALUES(?)", std::string_view(name));
    for (const setting_column &each : columns) {
        if (!wanted.has(each.attribute))
            continue;
        const uint32_t value = each.attribute == dhcpsn_attribute_rate_limit ? wanted.u16(each.attribute)
                                                                             : wanted.u8(each.attribute);
        if (value > each.most)
            return refusal{result_bad_value, each.english, each.chinese};
        in.run(fmt::format("UPDATE dhcpsn_setting SET {}=? WHERE interface=?", each.sql), value,
               std::string_view(name));
        assign(now, each.attribute, value);
    }
    in.after_commit([this, name, now] { settings_[name] = now; });
    return {};
}

bool dhcpsn::is_selected(const dhcpsn_selection &by, const dhcpsn_setting &one) const
{
    if (by.marker == dhcpsn_marker_all_vlans)
        return one.vlan != 0;
    if (by.vlan != 0)
        return one.vlan == by.vlan;
    if (by.selector == dhcpsn_enabled_interfaces)
        return one.enable != 0;
    if (by.selector == dhcpsn_disabled_interfaces)
        return one.enable == 0;
    return true;
}

std::optional<refusal> dhcpsn::read_back(const commit &wanted, read_batch &out)
{
    dhcpsn_selection by{};
    if (wanted.cookie.size() != sizeof by)
        return refusal{result_malformed};
    std::memcpy(&by, wanted.cookie.data(), sizeof by);
    const std::string name(text_in(by.interface));
    const bool goes_on = by.unused_40 == dhcpsn_goes_on;
    const bool by_name = by.marker == dhcpsn_marker_interface;
    auto at = by_name ? settings_.find(name) : goes_on ? settings_.upper_bound(name) : settings_.begin();
    const uint16_t most = std::clamp<uint16_t>(by.request_count, 1, most_rows_of_a_batch);
    uint16_t count = 0;
    out.bytes.resize(sizeof(dhcpsn_batch));
    for (; at != settings_.end() && count < most; ++at) {
        if (!by_name && !is_selected(by, at->second))
            continue;
        const auto *row = reinterpret_cast<const uint8_t *>(&at->second);
        out.bytes.insert(out.bytes.end(), row, row + sizeof at->second);
        fill_text(by.interface, at->first);
        ++count;
    }
    const bool one_only = by_name || (by.vlan != 0 && by.marker != dhcpsn_marker_all_vlans);
    out.more = !one_only && at != settings_.end();
    by.unused_40 = dhcpsn_goes_on;
    std::memcpy(out.bytes.data(), &by, sizeof by);
    std::memcpy(out.bytes.data() + offsetof(dhcpsn_batch, count), &count, sizeof count);
    return {};
}

} // namespace

const service_entry dhcpsn_service = {"dhcpsn", migrations, [](setup &with) -> std::unique_ptr<service> {
                                          return std::make_unique<dhcpsn>(with);
                                      }};

} // namespace mixd
