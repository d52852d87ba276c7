/*
 * IPv6 neighbours: message type 133 of the main local daemon, and the gateway's object for static ones.
 *
 * With --host the table is the kernel's; with a scenario it is what [nd] describes: single entries
 * ([[nd.entry]]) and runs of them ([[nd.many]]).
 */
#include <cerrno>
#include <unordered_map>

#include "appliance/mixd/event.h"
#include "appliance/mixd/hosts.h"
#include "appliance/mixd/kernel_source.h"
#include "appliance/mixd/neighbour_states.h"
#include "appliance/mixd/network.h"
#include "appliance/mixd/ordered_table.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/arp.h"
#include "appliance/wire/nd.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using namespace mix::wire;

constexpr const char *migrations[] = {
    "CREATE TABLE nd_static(interface TEXT NOT NULL, address BLOB NOT NULL, mac BLOB NOT NULL,"
    " PRIMARY KEY(interface, address)) WITHOUT ROWID",
};

constexpr size_t most_statics = 65536;
constexpr size_t most_cleared_at_once = 1024;
constexpr uint32_t rows_of_a_page = (nd_page_capacity - sizeof(nd_page)) / sizeof(nd_row);
constexpr uint32_t filtered_rows_of_a_page = (nd_page_capacity - sizeof(nd_filtered_page)) / sizeof(nd_row);

struct nd_key {
    uint16_t virtual_router;
    uint16_t virtual_system;
    ipv6_address address;
    uint32_t interface; /* index, or absent_interface */

    auto operator<=>(const nd_key &) const = default;
};

/* A row as it is sent (but for its age), and what it is known by. */
struct nd_record {
    nd_row row;
    uint32_t interface;
};

ipv6_address address_of(const uint8_t (&from)[16])
{
    ipv6_address address;
    std::copy(std::begin(from), std::end(from), address.begin());
    return address;
}

struct nd_key_of {
    nd_key operator()(const nd_record &one) const
    {
        return {one.row.vrid, one.row.vsysid, address_of(one.row.address), one.interface};
    }
};

struct static_nd_key {
    std::string interface;
    ipv6_address address;

    auto operator<=>(const static_nd_key &) const = default;
};

nd_state state_of(const nd_row &row)
{
    return static_cast<nd_state>(row.flags >> nd_state_shift & nd_state_mask);
}

bool is_static(const nd_row &row)
{
    return (row.flags & nd_flag_static) != 0;
}

bool is_unresolved(const nd_row &row)
{
    return state_of(row) == nd_state_incomplete || state_of(row) == nd_state_failed;
}

/* In the order of neighbour_state. */
constexpr nd_state states[] = {nd_state_none,  nd_state_permanent, nd_state_reachable, nd_state_stale,
                               nd_state_delay, nd_state_probe,     nd_state_failed,    nd_state_incomplete};

/* What a request asks for. */
struct selection {
    uint16_t vsysid;
    uint16_t vrid;
    uint32_t interface;
    ipv6_address address;

    bool operator()(const nd_record &one) const
    {
        return one.row.vsysid == vsysid && (vrid == 0 || one.row.vrid == vrid) &&
               (interface == 0 || (one.interface & UINT16_MAX) == interface) &&
               (address == ipv6_address{} || address == address_of(one.row.address));
    }
};

struct filtered_selection {
    selection of;
    mac_address mac; /* zero: any */
    int8_t option;
    bool here;

    bool operator()(const nd_record &one) const
    {
        if (!here || !of(one) || (mac != mac_address{} && mac != std::to_array(one.row.mac)))
            return false;
        if (option < 0)
            return state_of(one.row) == -option - 1;
        return option == nd_option_all || is_static(one.row) == (option == nd_option_static);
    }
};

class nd final : public service, private network_observer
{
  public:
    explicit nd(setup &with);

  private:
    void read(scenario_table table);
    void load_statics(setup &);
    void interfaces_changed() override;
    void neighbour_changed(const neighbour_key &, const neighbour &) override;
    void neighbour_gone(const neighbour_key &) override;
    void show_static(const static_nd_key &, const mac_address &);
    void apply_static(const static_nd_key &, const mac_address &);

    int32_t answer(const request &, reply &);
    int32_t list(const request &, reply &, bool statics_only);
    int32_t filtered_list(const request &, reply &);
    int32_t clear(const request &);
    int32_t summary(const request &, reply &) const;
    int32_t filtered_page(const page_wanted &, const filtered_selection &, uint32_t total, reply &out);
    static void append(const nd_record &, uint32_t now, reply &);

    std::optional<refusal> set(const commit &, transaction &);
    std::optional<refusal> apply(const static_nd_key &, const mac_address &, transaction &);

    network &network_;
    const options &options_;
    uint32_t here_ = 0;
    ordered_table<nd_record, nd_key_of> rows_;
    std::map<static_nd_key, mac_address> statics_;
    std::map<static_nd_key, uint32_t> applied_; /* to the interface they were put on */
    positions<nd_key> positions_;
    std::unordered_map<uint32_t, uint32_t> totals_; /* of filtered listings under way, by cursor */
};

nd::nd(setup &with)
    : network_(with.shared_state<network>()), options_(with.settings()), here_(with.boards().here().slot)
{
    load_statics(with);
    read(with.scenario("nd"));
    network_.observe(*this);
    with.serve_on_boards(0, nd_type, [this](const request &asked, reply &out) { return answer(asked, out); });
    with.on_commit(object_neighbor,
                   [this](const commit &wanted, transaction &in) { return set(wanted, in); });
}

void nd::load_statics(setup &with)
{
    statement query = with.state().prepare("SELECT interface, address, mac FROM nd_static");
    while (query.step())
        statics_[{std::string(query.text(0)), query.bytes<16>(1)}] = query.bytes<6>(2);
}

void nd::read(scenario_table table)
{
    const auto entry_in = [&](scenario_table &each) {
        neighbour entry;
        entry.state = state_in(each);
        entry.is_router = each.boolean("router", false);
        entry.confirmed = monotonic_seconds();
        return entry;
    };
    for (scenario_table &each : table.rows("entry")) {
        const uint32_t on = network_.need_interface(each.required_text("interface", short_name_size - 1));
        neighbour entry = entry_in(each);
        entry.mac = each.mac("mac");
        network_.put({neighbour_family::ipv6, on, each.ipv6("address").value_or(ipv6_address{})}, entry);
    }
    for (scenario_table &each : table.rows("many")) {
        const auto number = static_cast<uint32_t>(each.required_number("count", 1, 4'000'000));
        const uint32_t on = network_.need_interface(each.required_text("interface", short_name_size - 1));
        const mac_address base = each.mac("mac").value_or(mac_address{2, 0, 0, 0, 0, 0});
        const ipv6_address first = each.ipv6("first").value_or(ipv6_address{0x20, 0x01, 0x0d, 0xb8});
        neighbour entry = entry_in(each);
        for (uint32_t i = 0; i < number; ++i) {
            entry.mac = counted_up(base, i);
            network_.put({neighbour_family::ipv6, on, counted_up(first, i)}, entry);
        }
    }
}

/* --- rows --- */

void nd::interfaces_changed()
{
    rows_.clear();
    for (const auto &[key, mac] : statics_)
        show_static(key, mac);
    for (const auto &[key, entry] : network_.neighbours())
        neighbour_changed(key, entry);
}

void nd::show_static(const static_nd_key &key, const mac_address &mac)
{
    const network_interface *on = network_.interface(key.interface);
    nd_record one{};
    one.interface = on != nullptr ? on->index : absent_interface(key.interface);
    std::copy(key.address.begin(), key.address.end(), one.row.address);
    one.row.age = monotonic_seconds();
    one.row.vrid = on != nullptr ? network_.router_of(*on) : usual_virtual_router;
    one.row.vsysid = on != nullptr ? on->virtual_system : 0;
    fill_text(one.row.interface, key.interface);
    std::copy(mac.begin(), mac.end(), one.row.mac);
    one.row.flags = nd_flag_static | nd_flag_configured | nd_state_permanent << nd_state_shift;
    if (on == nullptr)
        one.row.flags |= nd_flag_idle;
    rows_.put(one);
    apply_static(key, mac);
}

/* Commits put their entry into the kernel themselves; here it follows interfaces that came. */
void nd::apply_static(const static_nd_key &key, const mac_address &mac)
{
    const network_interface *on = network_.interface(key.interface);
    const uint32_t index = on != nullptr ? on->index : 0;
    if (!options_.apply || network_.kernel() == nullptr || applied_[key] == index)
        return;
    applied_[key] = index;
    if (index == 0)
        return;
    const int result = network_.kernel()->set_neighbour({neighbour_family::ipv6, index, key.address}, mac);
    if (result < 0)
        log(priority::warning,
            fmt::format("a static neighbour on {}: {}", key.interface, std::strerror(-result)));
}

void nd::neighbour_changed(const neighbour_key &key, const neighbour &entry)
{
    const network_interface *on = network_.interface(key.interface);
    if (key.family != neighbour_family::ipv6 || on == nullptr || statics_.contains({on->name, key.address}))
        return;
    nd_record one{};
    one.interface = key.interface;
    std::copy(key.address.begin(), key.address.end(), one.row.address);
    one.row.age = entry.confirmed;
    one.row.vrid = network_.router_of(*on);
    one.row.vsysid = on->virtual_system;
    fill_text(one.row.interface, on->name);
    if (entry.mac)
        std::copy(entry.mac->begin(), entry.mac->end(), one.row.mac);
    const nd_state state = states[static_cast<size_t>(kind_of_state(entry.state))];
    one.row.flags = static_cast<uint8_t>(state << nd_state_shift);
    if (state == nd_state_permanent)
        one.row.flags |= nd_flag_static;
    if (entry.is_router)
        one.row.flags |= nd_flag_router;
    rows_.put(one);
}

void nd::neighbour_gone(const neighbour_key &key)
{
    const network_interface *on = network_.interface(key.interface);
    if (key.family != neighbour_family::ipv6 || on == nullptr || statics_.contains({on->name, key.address}))
        return;
    rows_.erase({network_.router_of(*on), on->virtual_system, key.address, key.interface});
}

/* --- requests --- */

int32_t nd::answer(const request &asked, reply &out)
{
    network_.refresh();
    switch (asked.field<uint32_t>(0)) {
    case nd_list:
        return list(asked, out, false);
    case nd_static_list:
        return list(asked, out, true);
    case nd_filtered_list:
        return filtered_list(asked, out);
    case nd_clear_dynamic:
        return clear(asked);
    case mix::wire::nd_summary:
        return summary(asked, out);
    default:
        return -EINVAL;
    }
}

void nd::append(const nd_record &one, uint32_t now, reply &out)
{
    const size_t at = out.bytes.size();
    out.append(one.row);
    out.put(at + offsetof(nd_row, age), now - one.row.age);
}

int32_t nd::list(const request &asked, reply &out, bool statics_only)
{
    if (!asked.is_a<nd_request>())
        return -EINVAL;
    const auto wanted = asked.record<nd_request>();
    const selection matches{wanted.vsysid, static_cast<uint16_t>(wanted.first), wanted.second & UINT16_MAX,
                            address_of(wanted.address)};
    const bool here = asked.at.slot == here_;
    const uint32_t now = monotonic_seconds();
    out.append(nd_page{});
    const auto made = take_page(
        rows_, positions_, {asked.from.connection, wanted.cursor, wanted.budget, rows_of_a_page},
        [&](const nd_record &one) { return here && matches(one) && (!statics_only || is_static(one.row)); },
        [&](const nd_record &one) { append(one, now, out); });
    if (!made)
        return -ESTALE;
    out.put(0, nd_page{made->cursor, made->rows});
    return 0;
}

/* The total is counted once for a listing: at each page it would take the square of the table's size. */
int32_t nd::filtered_list(const request &asked, reply &out)
{
    if (!asked.is_a<nd_filtered_request>())
        return -EINVAL;
    const auto wanted = asked.record<nd_filtered_request>();
    const filtered_selection matches{{wanted.vsysid, static_cast<uint16_t>(wanted.vrid),
                                      wanted.selector & UINT16_MAX, address_of(wanted.address)},
                                     std::to_array(wanted.mac),
                                     static_cast<int8_t>(wanted.option),
                                     asked.at.slot == here_};
    const page_wanted page{asked.from.connection, wanted.cursor, wanted.budget, filtered_rows_of_a_page};
    if (const auto found = totals_.find(wanted.cursor); wanted.cursor != 0 && found != totals_.end())
        return filtered_page(page, matches, found->second, out);
    const auto total = std::make_shared<uint32_t>(0);
    return walk_in_turns(
        rows_, most_rows_looked_at,
        [total, matches](const nd_record &one) {
            *total += matches(one) ? 1 : 0;
            return true;
        },
        [this, page, matches, total](reply &to) { return filtered_page(page, matches, *total, to); }, out);
}

int32_t nd::filtered_page(const page_wanted &wanted, const filtered_selection &matches, uint32_t total,
                          reply &out)
{
    const uint32_t now = monotonic_seconds();
    out.append(nd_filtered_page{});
    const auto made =
        take_page(rows_, positions_, wanted, matches, [&](const nd_record &one) { append(one, now, out); });
    if (!made)
        return -ESTALE;
    if (made->cursor != 0) /* cursors are used again: there are never more totals than positions */
        totals_[made->cursor] = total;
    out.put(0, nd_filtered_page{made->cursor, made->rows, total, 0});
    return 0;
}

/* The status is how many were cleared. A very large table is cleared by repeating the request. */
int32_t nd::clear(const request &asked)
{
    const auto wanted = asked.record<nd_clear_request>();
    if (!asked.is_a<nd_clear_request>() || wanted.option > nd_clear_unresolved)
        return -EINVAL;
    if (asked.at.slot != here_)
        return 0;
    const selection matches{wanted.third, wanted.first, wanted.second, address_of(wanted.address)};
    std::vector<neighbour_key> gone;
    rows_.walk({}, [&](const nd_record &one) {
        if (matches(one) && !is_static(one.row) && (wanted.option == nd_clear_all || is_unresolved(one.row)))
            gone.push_back({neighbour_family::ipv6, one.interface, address_of(one.row.address)});
        return gone.size() < most_cleared_at_once;
    });
    return network_.clear(gone);
}

int32_t nd::summary(const request &asked, reply &out) const
{
    if (!asked.is_a<nd_summary_request>())
        return -EINVAL;
    const auto wanted = asked.record<nd_summary_request>();
    const selection matches{wanted.first, wanted.second, 0, {}};
    const auto sum = std::make_shared<nd_summary_reply>();
    return walk_in_turns(
        rows_, most_rows_looked_at,
        [sum, matches, here = asked.at.slot == here_](const nd_record &one) {
            if (!here || !matches(one))
                return here;
            ++sum->total;
            ++(is_static(one.row) ? sum->static_entries : sum->dynamic_entries);
            sum->unresolved += is_unresolved(one.row) ? 1 : 0;
            return true;
        },
        reply_with(sum), out);
}

/* --- static neighbours --- */

std::optional<refusal> nd::set(const commit &wanted, transaction &in)
{
    const static_nd_key key{std::string(wanted.text(nd_attribute_interface)),
                            wanted.value<ipv6_address>(nd_attribute_address)};
    const auto mac = wanted.value<mac_address>(nd_attribute_mac);
    if (network_.interface(key.interface) == nullptr)
        return refusal{result_bad_value, "there is no such interface", "接口不存在"};
    if (key.address == ipv6_address{} || key.address[0] == 0xff)
        return not_a_host();
    if (!is_station(mac))
        return not_a_station();
    if (!statics_.contains(key) && statics_.size() >= most_statics)
        return refusal{result_full, "there are 65536 static neighbours already", "静态邻居表项已达65536条"};
    in.run("INSERT OR REPLACE INTO nd_static VALUES(?,?,?)", std::string_view(key.interface),
           std::span<const uint8_t>(key.address), std::span<const uint8_t>(mac));
    if (auto no = apply(key, mac, in))
        return no;
    in.after_commit([this, key, mac] {
        statics_[key] = mac;
        show_static(key, mac);
    });
    return {};
}

std::optional<refusal> nd::apply(const static_nd_key &key, const mac_address &mac, transaction &in)
{
    kernel_source *kernel = network_.kernel();
    if (!options_.apply || kernel == nullptr)
        return {};
    const neighbour_key on{neighbour_family::ipv6, network_.interface(key.interface)->index, key.address};
    const auto before = statics_.find(key);
    return commit_neighbour(*kernel, on, mac, before != statics_.end() ? &before->second : nullptr, in);
}

} // namespace

const service_entry nd_service = {
    "nd", migrations, [](setup &with) -> std::unique_ptr<service> { return std::make_unique<nd>(with); }};

} // namespace mixd
