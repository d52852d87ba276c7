/*
 * The ARP table: message type 4 of the main local daemon, and the gateway's object for static entries.
 *
 * With --host the table is the kernel's; with a scenario it is what [arp] describes: single entries
 * ([[arp.entry]]), runs of them ([[arp.many]]), proxies ([[arp.proxy]]), and hosts that answer once they are
 * scanned for ([[arp.host]]). Entries with a slot are those of another board, and stay as they are.
 */
#include <cerrno>
#include <deque>

#include <linux/neighbour.h>

#include "appliance/mixd/arp_table.h"
#include "appliance/mixd/event.h"
#include "appliance/mixd/hosts.h"
#include "appliance/mixd/kernel_source.h"
#include "appliance/mixd/mac_descriptions.h"
#include "appliance/mixd/mac_table.h"
#include "appliance/mixd/neighbour_states.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE arp_static(vrid INTEGER NOT NULL, vsys INTEGER NOT NULL, address INTEGER NOT NULL,"
    " mac BLOB NOT NULL, option INTEGER NOT NULL, PRIMARY KEY(vrid, vsys, address)) WITHOUT ROWID",
};

constexpr size_t most_statics = 65536;
constexpr size_t most_cleared_at_once = 1024;
constexpr uint32_t rows_of_a_page = (arp_page_capacity - sizeof(arp_page)) / sizeof(arp_row);
constexpr uint32_t joined_rows_of_a_page = (arp_page_capacity - sizeof(arp_page)) / sizeof(arp_mac_row);
constexpr uint32_t most_rows_joined = most_rows_looked_at / 8; /* each takes a look into the MAC table */
constexpr uint64_t scan_interval_us = 10'000;
constexpr int scanned_at_once = 32;
constexpr size_t most_to_scan = 65536; /* of all scans together */

/* What a request of the plain record asks for. */
struct selection {
    uint16_t vsysid;
    uint16_t vrid;
    uint32_t interface;
    uint32_t address;

    bool operator()(const arp_row &row) const
    {
        return row.vsysid == vsysid && (vrid == 0 || row.vrid == vrid) &&
               (interface == 0 || (row.interface_index & UINT16_MAX) == interface) &&
               (address == 0 || row.address == address);
    }
};

selection selection_of(const arp_request &wanted)
{
    return {wanted.vsysid, wanted.vrid, wanted.second & UINT16_MAX, wanted.third};
}

bool is_dynamic(const arp_row &row)
{
    return row.kind == arp_is_dynamic;
}

bool is_unresolved(const arp_row &row)
{
    return row.state == arp_state_incomplete || row.state == arp_state_failed;
}

/* One of several names, separated by commas. */
bool is_one_of(std::string_view name, std::string_view names)
{
    while (!names.empty()) {
        const size_t end = std::min(names.find(','), names.size());
        if (names.substr(0, end) == name)
            return true;
        names.remove_prefix(std::min(end + 1, names.size()));
    }
    return false;
}

class arp final : public service
{
  public:
    explicit arp(setup &with);

  private:
    struct proxy {
        uint32_t address;
        std::string interface;
    };

    void read(scenario_table table);
    void read_many(scenario_table table);
    arp_row fixed_row(scenario_table &each, uint32_t address, const mac_address &mac);
    void load_statics(setup &);

    int32_t answer(const request &, reply &);
    int32_t list(const request &, reply &);
    int32_t search(const request &, const arp_request &, reply &);
    int32_t count(const request &, reply &) const;
    int32_t summary(const request &, reply &) const;
    int32_t clear(const request &);
    int32_t scan(const request &);
    int32_t joined_list(const request &, reply &);
    int32_t joined_count(const request &, reply &) const;
    int32_t proxies(const request &) const;
    int32_t duplicates(const request &) const;

    template <class Match>
    int32_t page(const request &, const page_wanted &, const Match &, reply &);
    [[nodiscard]] const arp_rows &rows_at(const request &) const;
    [[nodiscard]] bool matches(const arp_mac_request &, const arp_row &) const;
    [[nodiscard]] arp_mac_row join(const arp_row &, uint32_t now) const;
    [[nodiscard]] uint32_t count_proxies(const arp_proxy_key &, uint16_t vrid) const;
    static int on_scan(sd_event_source *, uint64_t, void *data);
    void scan_some();

    std::optional<refusal> change(const commit &, transaction &);
    std::optional<refusal> set(const commit &, transaction &);
    std::optional<refusal> remove(const commit &, transaction &);
    std::optional<refusal> remove_all(const commit &, transaction &, bool every_system);
    std::optional<refusal> apply(const static_arp_key &, const static_arp &, transaction &);

    network &network_;
    mac_table &macs_;
    mac_descriptions &descriptions_;
    const options &options_;
    arp_table table_;
    std::map<uint32_t, arp_rows> elsewhere_; /* by slot */
    uint32_t here_ = 0;                      /* our own slot */
    std::vector<proxy> proxies_;
    std::map<uint32_t, std::pair<uint32_t, mac_address>> silent_; /* hosts of a scenario: interface, MAC */
    positions<arp_key> positions_;
    std::deque<neighbour_key> to_scan_;
    event_source scan_timer_;
};

arp::arp(setup &with)
    : network_(with.shared_state<network>()), macs_(with.shared_state<mac_table>()),
      descriptions_(with.shared_state<mac_descriptions>()), options_(with.settings()),
      table_(network_, options_.apply), here_(with.boards().here().slot)
{
    load_statics(with);
    read(with.scenario("arp"));
    table_.begin();
    scan_timer_ = idle_timer(with.loop(), on_scan, this, "scan timer");
    with.serve_on_boards(0, arp_type,
                         [this](const request &asked, reply &out) { return answer(asked, out); });
    with.on_commit(object_arp, [this](const commit &wanted, transaction &in) { return change(wanted, in); });
}

void arp::load_statics(setup &with)
{
    statement query = with.state().prepare("SELECT vrid, vsys, address, mac, option FROM arp_static");
    while (query.step()) {
        const static_arp entry{query.bytes<6>(3), static_cast<uint8_t>(query.integer(4))};
        table_.put_static({static_cast<uint16_t>(query.integer(0)), static_cast<uint16_t>(query.integer(1)),
                           static_cast<uint32_t>(query.integer(2))},
                          entry);
    }
}

/* --- scenarios --- */

void arp::read(scenario_table table)
{
    for (scenario_table &each : table.rows("entry")) {
        const uint32_t address = each.ipv4("address").value_or(0);
        const std::optional<mac_address> mac = each.mac("mac");
        const auto slot = static_cast<uint32_t>(each.number("slot", here_, 0, 255));
        if (slot != here_) {
            elsewhere_[slot].put(fixed_row(each, address, mac.value_or(mac_address{})));
            continue;
        }
        const uint32_t on = network_.need_interface(each.required_text("interface", short_name_size - 1));
        neighbour entry;
        entry.mac = mac;
        entry.state = state_in(each);
        entry.confirmed = monotonic_seconds();
        network_.put(ipv4_neighbour(on, address), entry);
    }
    for (scenario_table &each : table.rows("many"))
        read_many(std::move(each));
    for (scenario_table &each : table.rows("proxy"))
        proxies_.push_back(
            {each.ipv4("address").value_or(0), each.required_text("interface", short_name_size - 1)});
    for (scenario_table &each : table.rows("host")) {
        const uint32_t on = network_.need_interface(each.required_text("interface", short_name_size - 1));
        silent_[each.ipv4("address").value_or(0)] = {on, each.mac("mac").value_or(mac_address{})};
    }
}

/* A run of entries: addresses and MACs count up from the first. */
void arp::read_many(scenario_table table)
{
    const auto number = static_cast<uint32_t>(table.required_number("count", 1, 4'000'000));
    const uint32_t first = table.ipv4("first").value_or(0x0a000001);
    const mac_address base = table.mac("mac").value_or(mac_address{2, 0, 0, 0, 0, 0});
    const uint32_t on = network_.need_interface(table.required_text("interface", short_name_size - 1));
    neighbour entry;
    entry.state = state_in(table);
    entry.confirmed = monotonic_seconds();
    for (uint32_t i = 0; i < number; ++i) {
        entry.mac = counted_up(base, i);
        network_.put(ipv4_neighbour(on, first + i), entry);
    }
}

arp_row arp::fixed_row(scenario_table &each, uint32_t address, const mac_address &mac)
{
    arp_row row{};
    row.address = address;
    row.vrid = static_cast<uint16_t>(each.number("virtual_router", usual_virtual_router, 1, UINT16_MAX));
    row.vsysid = static_cast<uint16_t>(each.number("virtual_system", 0, 0, UINT16_MAX));
    std::copy(mac.begin(), mac.end(), row.mac);
    fill_text(row.interface, each.required_text("interface", short_name_size - 1));
    row.state = arp_state_reachable;
    row.kind = arp_is_dynamic;
    row.age = monotonic_seconds();
    return row;
}

/* --- requests --- */

/* The size of the request of a sub-command; 0: there is none of that number. */
size_t request_size(uint32_t subcommand)
{
    switch (subcommand) {
    case mix::wire::arp_list:
    case mix::wire::arp_summary:
    case arp_count:
        return sizeof(arp_request);
    case arp_clear_dynamic:
        return sizeof(arp_clear_request);
    case arp_scan:
        return sizeof(arp_scan_request);
    case arp_mac_count:
    case arp_mac_list:
        return sizeof(arp_mac_request);
    case arp_proxy_count:
        return sizeof(arp_proxy_request);
    case arp_duplicate_count:
        return sizeof(arp_duplicate_request);
    default:
        return 0;
    }
}

int32_t arp::answer(const request &asked, reply &out)
{
    const auto subcommand = asked.field<uint32_t>(0);
    if (asked.bytes.empty() || asked.bytes.size() != request_size(subcommand))
        return -EINVAL;
    network_.refresh();
    switch (subcommand) {
    case mix::wire::arp_list:
        return list(asked, out);
    case arp_clear_dynamic:
        return clear(asked);
    case mix::wire::arp_summary:
        return summary(asked, out);
    case arp_scan:
        return scan(asked);
    case arp_mac_count:
        return joined_count(asked, out);
    case arp_mac_list:
        return joined_list(asked, out);
    case arp_count:
        return count(asked, out);
    case arp_proxy_count:
        return proxies(asked);
    case arp_duplicate_count:
        return duplicates(asked);
    default:
        return -EINVAL;
    }
}

const arp_rows &arp::rows_at(const request &asked) const
{
    static const arp_rows none;
    if (asked.at.slot == here_)
        return table_.rows();
    const auto found = elsewhere_.find(asked.at.slot);
    return found != elsewhere_.end() ? found->second : none;
}

/* Rows go straight to their place in the reply: this is what listings of large tables spend their time on. */
template <class Match>
int32_t arp::page(const request &asked, const page_wanted &wanted, const Match &matches, reply &out)
{
    const uint32_t now = monotonic_seconds();
    out.bytes.resize(sizeof(arp_page) + wanted.capacity * sizeof(arp_row));
    uint8_t *at = out.bytes.data() + sizeof(arp_page);
    const auto made = take_page(rows_at(asked), positions_, wanted, matches, [&](const arp_row &row) {
        const uint32_t age = now - row.age;
        std::memcpy(at, &row, sizeof row);
        std::memcpy(at + offsetof(arp_row, age), &age, sizeof age);
        at += sizeof row;
    });
    if (!made) {
        out.bytes.clear();
        return -ESTALE;
    }
    out.put(0, arp_page{made->cursor, made->rows});
    out.bytes.resize(sizeof(arp_page) + made->rows * sizeof(arp_row));
    return 0;
}

int32_t arp::list(const request &asked, reply &out)
{
    const auto wanted = asked.record<arp_request>();
    if (wanted.search_mode == arp_search_mode)
        return search(asked, wanted, out);
    return page(asked, {asked.from.connection, wanted.cursor, wanted.budget, rows_of_a_page},
                selection_of(wanted), out);
}

int32_t arp::search(const request &asked, const arp_request &wanted, reply &out)
{
    arp_search_filter by;
    std::memcpy(&by, wanted.search_filter, sizeof by);
    const uint32_t key = wanted.first_request;
    const auto matches = [&](const arp_row &row) {
        return row.vsysid == by.vsysid && (wanted.search_scope == 0 || row.vrid == wanted.search_scope) &&
               ((key & arp_search_prefix) == 0 || (row.address & by.mask) == (by.address & by.mask)) &&
               ((key & arp_search_mac) == 0 || std::equal(std::begin(row.mac), std::end(row.mac), by.mac)) &&
               ((key & arp_search_interface) == 0 || text_in(row.interface) == text_in(by.interface)) &&
               ((key & arp_search_state) == 0 || row.state == by.state) &&
               ((key & arp_search_kind) == 0 || row.kind == by.kind);
    };
    return page(asked, {asked.from.connection, wanted.budget, 0, rows_of_a_page}, matches, out);
}

int32_t arp::count(const request &asked, reply &out) const
{
    const auto found = std::make_shared<int32_t>(0);
    return walk_in_turns(
        rows_at(asked), most_rows_looked_at,
        [found, wanted = selection_of(asked.record<arp_request>())](const arp_row &row) {
            *found += wanted(row) ? 1 : 0;
            return true;
        },
        [found](reply &) { return *found; }, out);
}

int32_t arp::summary(const request &asked, reply &out) const
{
    const auto wanted = asked.record<arp_request>();
    const selection matches{wanted.vsysid, wanted.vrid, 0, 0};
    const auto sum = std::make_shared<arp_summary_reply>();
    sum->proxies = asked.at.slot == here_ ? count_proxies({}, wanted.vrid) : 0;
    return walk_in_turns(
        rows_at(asked), most_rows_looked_at,
        [sum, matches](const arp_row &row) {
            if (!matches(row))
                return true;
            ++sum->total;
            sum->static_entries += row.kind == arp_is_static || row.kind == arp_is_static_idle ? 1 : 0;
            sum->dynamic_entries += is_dynamic(row) ? 1 : 0;
            sum->incomplete += row.state == arp_state_incomplete ? 1 : 0;
            sum->failed += row.state == arp_state_failed ? 1 : 0;
            return true;
        },
        reply_with(sum), out);
}

uint32_t arp::count_proxies(const arp_proxy_key &key, uint16_t vrid) const
{
    uint32_t found = 0;
    const auto look = [&](uint32_t address, const network_interface *on, std::string_view name) {
        const uint16_t router = on != nullptr ? network_.router_of(*on) : usual_virtual_router;
        const std::string_view wanted = text_in(key.interface);
        found += (address & key.mask) == (key.address & key.mask) && (wanted.empty() || wanted == name) &&
                         (vrid == 0 || vrid == router)
                     ? 1
                     : 0;
    };
    for (const proxy &each : proxies_)
        look(each.address, network_.interface(each.interface), each.interface);
    if (kernel_source *kernel = network_.kernel())
        kernel->each_proxy(neighbour_family::ipv4, [&](const neighbour_key &each) {
            look(ipv4_of(each), network_.interface(each.interface), network_.name_of(each.interface));
        });
    return found;
}

int32_t arp::proxies(const request &asked) const
{
    const auto wanted = asked.record<arp_proxy_request>();
    arp_proxy_key key;
    std::memcpy(&key, wanted.key, sizeof key);
    return asked.at.slot == here_ ? static_cast<int32_t>(count_proxies(key, wanted.vrid)) : 0;
}

int32_t arp::duplicates(const request &asked) const
{
    const auto wanted = asked.record<arp_duplicate_request>();
    const mac_address mac = std::to_array(wanted.mac);
    const uint32_t found =
        mac == mac_address{} ? table_.sharing(wanted.vsysid) : table_.sharing(wanted.vsysid, mac);
    return static_cast<int32_t>(found);
}

/* --- the joined list --- */

arp_mac_row arp::join(const arp_row &row, uint32_t now) const
{
    arp_mac_row joined{};
    joined.arp = row;
    joined.arp.age = now - row.age;
    const mac_address mac = std::to_array(row.mac);
    if (const mac_record *entry = macs_.find(mac, row.interface_index);
        entry != nullptr && mac != mac_address{}) {
        joined.in_mac_table = 1;
        joined.vlan = entry->key.vlan;
        joined.mac_flags = entry->flags;
        std::copy(std::begin(entry->interface), std::end(entry->interface), joined.mac_interface);
        std::copy(std::begin(entry->port_name), std::end(entry->port_name), joined.port);
        joined.mac_age = now - entry->updated;
    }
    fill_text(joined.description, descriptions_.of(row.vsysid, mac));
    if (const std::string *router = network_.router_name(row.vrid))
        fill_text(joined.vrname, *router);
    return joined;
}

bool arp::matches(const arp_mac_request &wanted, const arp_row &row) const
{
    const std::string_view interfaces = text_in(wanted.interface);
    if (row.vsysid != wanted.vsysid || (wanted.vrid != 0 && row.vrid != wanted.vrid) ||
        (wanted.selector != 0 && row.address != wanted.selector) ||
        (wanted.has_mac != 0 && !std::equal(std::begin(row.mac), std::end(row.mac), wanted.mac)) ||
        (wanted.first_option != 0 && row.kind + 1 != wanted.first_option) ||
        (wanted.second_option != 0 && row.state + 1 != wanted.second_option) ||
        (!interfaces.empty() && !is_one_of(text_in(row.interface), interfaces)))
        return false;
    const std::string_view port = text_in(wanted.second_name), bridge = text_in(wanted.third_name);
    const bool shows_all =
        wanted.display_mode != arp_mac_with_entry && wanted.display_mode != arp_mac_without_entry;
    if (shows_all && port.empty() && bridge.empty())
        return true;
    const mac_address mac = std::to_array(row.mac);
    const mac_record *entry = mac != mac_address{} ? macs_.find(mac, row.interface_index) : nullptr;
    if (entry == nullptr)
        return port.empty() && bridge.empty() && wanted.display_mode != arp_mac_with_entry;
    return wanted.display_mode != arp_mac_without_entry &&
           (port.empty() || text_in(entry->port_name) == port) &&
           (bridge.empty() || text_in(entry->interface) == bridge);
}

int32_t arp::joined_list(const request &asked, reply &out)
{
    const auto wanted = asked.record<arp_mac_request>();
    const uint32_t now = monotonic_seconds();
    out.append(arp_page{});
    const auto made = take_page(
        rows_at(asked), positions_,
        {asked.from.connection, wanted.cursor, wanted.budget, joined_rows_of_a_page, most_rows_joined},
        [&](const arp_row &row) { return matches(wanted, row); },
        [&](const arp_row &row) { out.append(join(row, now)); });
    if (!made)
        return -ESTALE;
    out.put(0, arp_page{made->cursor, made->rows});
    return 0;
}

int32_t arp::joined_count(const request &asked, reply &out) const
{
    const auto found = std::make_shared<int32_t>(0);
    return walk_in_turns(
        rows_at(asked), most_rows_joined,
        [this, found, wanted = asked.record<arp_mac_request>()](const arp_row &row) {
            *found += matches(wanted, row) ? 1 : 0;
            return true;
        },
        [found](reply &) { return *found; }, out);
}

/* --- clearing and scanning --- */

/* The status is how many were cleared. A very large table is cleared by repeating the request. */
int32_t arp::clear(const request &asked)
{
    const auto wanted = asked.record<arp_clear_request>();
    if (wanted.option > arp_clear_unresolved)
        return -EINVAL;
    const selection matches{wanted.vsysid, static_cast<uint16_t>(wanted.vrid), wanted.second & UINT16_MAX,
                            wanted.third};
    if (asked.at.slot != here_)
        return 0;
    std::vector<neighbour_key> gone;
    table_.rows().walk({}, [&](const arp_row &row) {
        if (matches(row) && is_dynamic(row) && (wanted.option == arp_clear_all || is_unresolved(row)))
            gone.push_back(ipv4_neighbour(row.interface_index, row.address));
        return gone.size() < most_cleared_at_once;
    });
    return network_.clear(gone);
}

/* The status is how many addresses will be asked for. */
int32_t arp::scan(const request &asked)
{
    const auto wanted = asked.record<arp_scan_request>();
    if (wanted.first == 0 || wanted.first > wanted.second || wanted.second - wanted.first >= arp_scan_most ||
        wanted.option < 0)
        return -EINVAL;
    if (to_scan_.size() + (wanted.second - wanted.first) >= most_to_scan)
        return -EBUSY;
    int32_t found = 0;
    for (uint64_t address = wanted.first; address <= wanted.second; ++address) {
        const auto one = static_cast<uint32_t>(address);
        const network_interface *towards = network_.interface_towards(one, 0);
        if (towards == nullptr || network_.is_own(one) ||
            (wanted.option != 0 && towards->index != static_cast<uint32_t>(wanted.option)))
            continue;
        to_scan_.push_back(ipv4_neighbour(towards->index, one));
        ++found;
    }
    if (found == 0)
        return -ENETUNREACH;
    scan_some();
    return found;
}

int arp::on_scan(sd_event_source *, uint64_t, void *data)
{
    static_cast<arp *>(data)->scan_some();
    return 0;
}

void arp::scan_some()
{
    for (int i = 0; i < scanned_at_once && !to_scan_.empty(); ++i) {
        const neighbour_key key = to_scan_.front();
        to_scan_.pop_front();
        if (kernel_source *kernel = network_.kernel()) {
            kernel->probe_neighbour(key);
            continue;
        }
        const auto host = silent_.find(ipv4_of(key));
        if (host == silent_.end() || host->second.first != key.interface)
            continue;
        neighbour entry;
        entry.mac = host->second.second;
        entry.state = NUD_REACHABLE;
        entry.confirmed = monotonic_seconds();
        network_.put(key, entry);
    }
    if (!to_scan_.empty())
        go_off_after(scan_timer_, scan_interval_us);
}

/* --- static entries --- */

std::optional<refusal> arp::change(const commit &wanted, transaction &in)
{
    if (network_.router_name(wanted.u16(arp_attribute_vrid)) == nullptr)
        return refusal{result_bad_value, "there is no such virtual router", "虚拟路由器不存在"};
    if (wanted.operation == operation_set)
        return set(wanted, in);
    if (wanted.operation == operation_unset)
        return remove_all(wanted, in, true);
    return wanted.u32(arp_attribute_address) == 0 ? remove_all(wanted, in, false) : remove(wanted, in);
}

std::optional<refusal> arp::set(const commit &wanted, transaction &in)
{
    const static_arp_key key{wanted.u16(arp_attribute_vrid), wanted.vsysid,
                             wanted.u32(arp_attribute_address)};
    const static_arp entry{wanted.value<mac_address>(arp_attribute_mac), wanted.u8(arp_attribute_option)};
    if (!is_host(key.address))
        return not_a_host();
    if (!is_station(entry.mac))
        return not_a_station();
    if (network_.is_own(key.address))
        return refusal{result_bad_value, "the address is the appliance's own", "地址是本设备的地址"};
    if (!table_.statics().contains(key) && table_.statics().size() >= most_statics)
        return refusal{result_full, "there are 65536 static ARP entries already", "静态ARP表项已达65536条"};
    in.run("INSERT OR REPLACE INTO arp_static VALUES(?,?,?,?,?)", key.virtual_router, key.virtual_system,
           key.address, std::span<const uint8_t>(entry.mac), entry.option);
    if (auto no = apply(key, entry, in))
        return no;
    in.after_commit([this, key, entry] { table_.put_static(key, entry); });
    return {};
}

std::optional<refusal> arp::apply(const static_arp_key &key, const static_arp &entry, transaction &in)
{
    const network_interface *towards = network_.interface_towards(key.address, key.virtual_router);
    kernel_source *kernel = network_.kernel();
    if (!options_.apply || kernel == nullptr || towards == nullptr)
        return {};
    const auto before = table_.statics().find(key);
    return commit_neighbour(*kernel, ipv4_neighbour(towards->index, key.address), entry.mac,
                            before != table_.statics().end() ? &before->second.mac : nullptr, in);
}

std::optional<refusal> arp::remove(const commit &wanted, transaction &in)
{
    const static_arp_key key{wanted.u16(arp_attribute_vrid), wanted.vsysid,
                             wanted.u32(arp_attribute_address)};
    if (!table_.statics().contains(key))
        return refusal{result_absent, "there is no such static ARP entry", "静态ARP表项不存在"};
    in.run("DELETE FROM arp_static WHERE vrid=? AND vsys=? AND address=?", key.virtual_router,
           key.virtual_system, key.address);
    in.after_commit([this, key] { table_.remove_static(key); });
    return {};
}

std::optional<refusal> arp::remove_all(const commit &wanted, transaction &in, bool every_system)
{
    const uint16_t router = wanted.u16(arp_attribute_vrid);
    in.run("DELETE FROM arp_static WHERE vrid=? AND (? OR vsys=?)", router, every_system, wanted.vsysid);
    in.after_commit([this, router, every_system, vsys = wanted.vsysid] {
        std::vector<static_arp_key> gone;
        for (const auto &[key, entry] : table_.statics())
            if (key.virtual_router == router && (every_system || key.virtual_system == vsys))
                gone.push_back(key);
        for (const static_arp_key &key : gone)
            table_.remove_static(key);
    });
    return {};
}

} // namespace

const service_entry arp_service = {
    "arp", migrations, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<arp>(with); }};

} // namespace mixd
