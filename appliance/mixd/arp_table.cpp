#include "appliance/mixd/arp_table.h"

#include <fmt/format.h>

#include "appliance/mixd/kernel_source.h"
#include "appliance/mixd/neighbour_states.h"
#include "appliance/wire/text.h"

namespace mixd
{

using namespace mix::wire;

neighbour_key ipv4_neighbour(uint32_t interface, uint32_t address)
{
    neighbour_key key{neighbour_family::ipv4, interface, {}};
    for (int i = 0; i < 4; ++i)
        key.address[i] = static_cast<uint8_t>(address >> (24 - 8 * i));
    return key;
}

uint32_t ipv4_of(const neighbour_key &key)
{
    uint32_t address = 0;
    for (int i = 0; i < 4; ++i)
        address = address << 8 | key.address[i];
    return address;
}

/* In the order of neighbour_state. */
constexpr arp_state states[] = {arp_state_none,   arp_state_permanent, arp_state_reachable,
                                arp_state_stale,  arp_state_delay,     arp_state_probe,
                                arp_state_failed, arp_state_incomplete};

static uint64_t sharing_key(uint16_t virtual_system, const mac_address &mac)
{
    uint64_t key = virtual_system;
    for (const uint8_t byte : mac)
        key = key << 8 | byte;
    return key;
}

uint32_t arp_table::sharing(uint16_t virtual_system, const mac_address &mac) const
{
    const auto found = addresses_of_.find(sharing_key(virtual_system, mac));
    return found != addresses_of_.end() && found->second > 1 ? found->second : 0;
}

uint32_t arp_table::sharing(uint16_t virtual_system) const
{
    const auto found = sharing_.find(virtual_system);
    return found != sharing_.end() ? found->second : 0;
}

void arp_table::count(const arp_row &row, bool added)
{
    const mac_address mac = std::to_array(row.mac);
    if (mac == mac_address{})
        return;
    const auto at = addresses_of_.try_emplace(sharing_key(row.vsysid, mac), 0).first;
    uint32_t &shared = sharing_[row.vsysid];
    const auto among_others = [&] { return at->second > 1 ? at->second : 0; };
    shared -= among_others();
    at->second += added ? 1 : -1;
    shared += among_others();
    if (at->second == 0)
        addresses_of_.erase(at);
}

void arp_table::put(const arp_row &row)
{
    if (const arp_row *before = rows_.find(arp_key_of{}(row)))
        count(*before, false);
    rows_.put(row);
    count(row, true);
}

void arp_table::erase(const arp_key &key)
{
    if (const arp_row *before = rows_.find(key))
        count(*before, false);
    rows_.erase(key);
}

void arp_table::erase_all_of(const static_arp_key &key)
{
    std::vector<arp_key> shown;
    const auto collect = [&](const arp_row &row) {
        const bool same =
            row.vrid == key.virtual_router && row.vsysid == key.virtual_system && row.address == key.address;
        if (same)
            shown.push_back(arp_key_of{}(row));
        return same;
    };
    rows_.walk_from({key.virtual_router, key.virtual_system, key.address, 0}, collect);
    for (const arp_key &each : shown)
        erase(each);
}

void arp_table::put_static(const static_arp_key &key, const static_arp &entry)
{
    statics_[key] = entry;
    erase_all_of(key); /* it stands in front of whatever the network has of this address */
    show_static(key, entry);
}

void arp_table::show_static(const static_arp_key &key, const static_arp &entry)
{
    const network_interface *towards = network_.interface_towards(key.address, key.virtual_router);
    arp_row row{};
    row.address = key.address;
    row.vrid = key.virtual_router;
    row.vsysid = key.virtual_system;
    std::copy(entry.mac.begin(), entry.mac.end(), row.mac);
    row.option = entry.option;
    row.state = arp_state_permanent;
    row.kind = arp_is_static_idle;
    row.age = monotonic_seconds();
    if (towards != nullptr) {
        row.kind = arp_is_static;
        row.interface_index = towards->index;
        fill_text(row.interface, towards->name);
    }
    put(row);
    apply_static(key, entry);
}

/* Commits put their entry into the kernel themselves and refuse when they can't; here it follows interfaces
 * that came, went or changed their networks. */
void arp_table::apply_static(const static_arp_key &key, const static_arp &entry)
{
    const network_interface *towards = network_.interface_towards(key.address, key.virtual_router);
    const uint32_t index = towards != nullptr ? towards->index : 0;
    if (!apply_ || network_.kernel() == nullptr || applied_[key] == index)
        return;
    withdraw(key);
    applied_[key] = index;
    if (index == 0)
        return;
    if (const int result = network_.kernel()->set_neighbour(ipv4_neighbour(index, key.address), entry.mac);
        result < 0)
        log(priority::warning,
            fmt::format("a static ARP entry on {}: {}", towards->name, std::strerror(-result)));
}

/* Takes an entry that was put into the kernel out of it again, wherever its network is now. */
void arp_table::withdraw(const static_arp_key &key)
{
    const auto on = applied_.find(key);
    if (on == applied_.end())
        return;
    if (on->second != 0) {
        const neighbour_key there = ipv4_neighbour(on->second, key.address);
        network_.kernel()->delete_neighbour(there);
        network_.remove(there); /* or it would show as somebody else's until the kernel tells */
    }
    applied_.erase(on);
}

void arp_table::remove_static(const static_arp_key &key)
{
    if (statics_.erase(key) == 0)
        return;
    withdraw(key);
    erase_all_of(key);
    for (const auto &[index, one] : network_.interfaces()) {
        const auto behind = network_.neighbours().find(ipv4_neighbour(index, key.address));
        if (behind != network_.neighbours().end())
            neighbour_changed(behind->first, behind->second);
    }
}

void arp_table::interfaces_changed()
{
    rows_.clear();
    addresses_of_.clear();
    sharing_.clear();
    for (const auto &[key, entry] : network_.neighbours())
        neighbour_changed(key, entry);
    for (const auto &[key, entry] : statics_)
        show_static(key, entry);
}

void arp_table::neighbour_changed(const neighbour_key &key, const neighbour &entry)
{
    const network_interface *on = network_.interface(key.interface);
    if (key.family != neighbour_family::ipv4 || on == nullptr)
        return;
    arp_row row{};
    row.address = ipv4_of(key);
    row.interface_index = key.interface;
    row.vrid = network_.router_of(*on);
    row.vsysid = on->virtual_system;
    if (statics_.contains({row.vrid, row.vsysid, row.address}))
        return;
    if (entry.mac)
        std::copy(entry.mac->begin(), entry.mac->end(), row.mac);
    fill_text(row.interface, on->name);
    row.state = states[static_cast<size_t>(kind_of_state(entry.state))];
    row.is_router = entry.is_router ? 1 : 0;
    row.kind = row.state == arp_state_permanent ? arp_is_permanent : arp_is_dynamic;
    row.age = entry.confirmed;
    put(row);
}

void arp_table::neighbour_gone(const neighbour_key &key)
{
    const network_interface *on = network_.interface(key.interface);
    if (key.family != neighbour_family::ipv4 || on == nullptr)
        return;
    const static_arp_key as_static{network_.router_of(*on), on->virtual_system, ipv4_of(key)};
    if (!statics_.contains(as_static))
        erase({as_static.virtual_router, as_static.virtual_system, as_static.address, key.interface});
}

} // namespace mixd
