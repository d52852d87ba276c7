#include "appliance/mixd/network.h"

#include <cerrno>
#include <fmt/format.h>

#include "appliance/mixd/hosts.h"
#include "appliance/mixd/kernel_source.h"
#include "appliance/mixd/service.h"
#include "appliance/wire/arp.h"
#include "appliance/wire/clock.h"

namespace mixd
{

uint32_t monotonic_seconds()
{
    return static_cast<uint32_t>(mix::wire::monotonic_ns() / 1'000'000'000);
}

uint32_t absent_interface(std::string_view name)
{
    return 0x80000000u | static_cast<uint32_t>(std::hash<std::string_view>{}(name));
}

/* The last four bytes count. */
template <size_t Size>
static std::array<uint8_t, Size> add(std::array<uint8_t, Size> from, uint32_t steps)
{
    uint64_t low = steps;
    for (size_t byte = Size; byte-- > Size - sizeof steps; low >>= 8) {
        low += from[byte];
        from[byte] = static_cast<uint8_t>(low);
    }
    return from;
}

mac_address counted_up(const mac_address &from, uint32_t steps)
{
    return add(from, steps);
}

ipv6_address counted_up(const ipv6_address &from, uint32_t steps)
{
    return add(from, steps);
}

network::network(setup &with)
{
    read(with.scenario("network"));
    if (with.settings().host)
        kernel_ = std::make_unique<kernel_source>(*this, with.loop());
    settle();
    derive_routers();
}

network::~network() = default;

void network::read(scenario_table table)
{
    constexpr scenario_word<bool> kinds[] = {{"", false}, {"bridge", true}};
    for (scenario_table &each : table.rows("virtual_router")) {
        const auto id = static_cast<uint32_t>(each.required_number("id", 1, UINT16_MAX));
        configured_routers_[id] = each.required_text("name", mix::wire::vrouter_name_max);
    }
    for (scenario_table &each : table.rows("interface")) {
        const std::string name = each.required_text("name", mix::wire::short_name_size - 1);
        network_interface one = *interface(need_interface(name));
        one.kind = each.one_of("kind", "", kinds).word;
        one.virtual_router = static_cast<uint16_t>(
            each.number("virtual_router", mix::wire::usual_virtual_router, 1, UINT16_MAX));
        one.virtual_system = static_cast<uint16_t>(each.number("virtual_system", 0, 0, UINT16_MAX));
        put(one);
        const auto prefix = static_cast<uint8_t>(each.number("prefix", 24, 0, 32));
        if (const auto address = each.ipv4("address"))
            put(network_address{one.index, *address, prefix});
    }
}

void network::observe(network_observer &one)
{
    observers_.push_back(&one);
    one.interfaces_changed();
    for (const auto &[key, entry] : neighbours_)
        one.neighbour_changed(key, entry);
    for (const auto &[key, entry] : forwarding_)
        one.forwarding_changed(key, entry);
}

const network_interface *network::interface(uint32_t index) const
{
    const auto found = interfaces_.find(index);
    return found == interfaces_.end() ? nullptr : &found->second;
}

const network_interface *network::interface(std::string_view name) const
{
    for (const auto &[index, one] : interfaces_)
        if (one.name == name)
            return &one;
    return nullptr;
}

std::string network::name_of(uint32_t index) const
{
    const network_interface *one = interface(index);
    return one != nullptr ? one->name : fmt::format("if{}", index);
}

static bool within(const network_address &network, uint32_t address)
{
    const uint32_t mask = mask_of(network.prefix);
    return (network.address & mask) == (address & mask);
}

const network_interface *network::interface_towards(uint32_t address, uint16_t virtual_router) const
{
    const network_interface *best = nullptr;
    int longest = -1;
    for (const auto &[each, generation] : addresses_) {
        const network_interface *one = interface(each.interface);
        if (each.prefix <= longest || one == nullptr || !within(each, address) || each.address == address ||
            (virtual_router != 0 && router_of(*one) != virtual_router))
            continue;
        best = one;
        longest = each.prefix;
    }
    return best;
}

bool network::is_own(uint32_t address) const
{
    return std::any_of(addresses_.begin(), addresses_.end(),
                       [&](const auto &each) { return each.first.address == address; });
}

const std::string *network::router_name(uint32_t id) const
{
    const auto found = routers_.find(id);
    return found == routers_.end() ? nullptr : &found->second;
}

uint16_t network::router_of(const network_interface &one) const
{
    if (one.virtual_router != 0)
        return one.virtual_router;
    const network_interface *vrf = one.kind == "vrf" ? &one : interface(one.master);
    const bool numbered = vrf != nullptr && vrf->kind == "vrf" && vrf->routing_table <= UINT16_MAX;
    return numbered ? static_cast<uint16_t>(vrf->routing_table) : mix::wire::usual_virtual_router;
}

void network::derive_routers()
{
    routers_ = {{mix::wire::usual_virtual_router, "main"}};
    for (const auto &[index, one] : interfaces_)
        if (one.kind == "vrf" && one.routing_table <= UINT16_MAX)
            routers_[one.routing_table] = one.name;
    for (const auto &[id, name] : configured_routers_)
        routers_[id] = name;
}

uint32_t network::need_interface(std::string_view name)
{
    if (const network_interface *there = interface(name))
        return there->index;
    network_interface one;
    one.index = interfaces_.empty() ? 1 : interfaces_.rbegin()->first + 1;
    one.name = name;
    one.virtual_router = mix::wire::usual_virtual_router;
    put(one);
    return one.index;
}

void network::put(network_interface one)
{
    one.generation = generation_;
    network_interface &there = interfaces_[one.index];
    network_interface before = std::exchange(there, std::move(one));
    before.generation = generation_;
    interfaces_changed_ = interfaces_changed_ || !(before == there);
}

void network::remove_interface(uint32_t index)
{
    std::erase_if(addresses_, [&](const auto &each) { return each.first.interface == index; });
    interfaces_changed_ = interfaces_.erase(index) != 0 || interfaces_changed_;
}

void network::put(const network_address &one)
{
    const auto [at, is_new] = addresses_.insert_or_assign(one, generation_);
    interfaces_changed_ = interfaces_changed_ || is_new;
}

void network::remove(const network_address &one)
{
    interfaces_changed_ = addresses_.erase(one) != 0 || interfaces_changed_;
}

void network::put(const neighbour_key &key, neighbour entry)
{
    settle();
    entry.generation = generation_;
    const neighbour &kept = neighbours_[key] = entry;
    for (network_observer *each : observers_)
        each->neighbour_changed(key, kept);
}

void network::remove(const neighbour_key &key)
{
    if (neighbours_.erase(key) == 0)
        return;
    for (network_observer *each : observers_)
        each->neighbour_gone(key);
}

void network::put(const forwarding_key &key, forwarding_entry entry)
{
    settle();
    entry.generation = generation_;
    const forwarding_entry &kept = forwarding_[key] = entry;
    for (network_observer *each : observers_)
        each->forwarding_changed(key, kept);
}

void network::remove(const forwarding_key &key)
{
    if (forwarding_.erase(key) == 0)
        return;
    for (network_observer *each : observers_)
        each->forwarding_gone(key);
}

/* The keys of entries that no generation from `since` on has met. */
template <class Entries>
static auto missed(const Entries &entries, uint32_t since)
{
    std::vector<typename Entries::key_type> keys;
    for (const auto &[key, entry] : entries)
        if (entry.generation < since)
            keys.push_back(key);
    return keys;
}

void network::sweep_interfaces()
{
    for (const uint32_t index : missed(interfaces_, generation_))
        remove_interface(index);
}

void network::sweep_addresses()
{
    const size_t gone =
        std::erase_if(addresses_, [&](const auto &each) { return each.second != generation_; });
    interfaces_changed_ = interfaces_changed_ || gone != 0;
}

/* Of tables that change meanwhile the kernel may tell all but an entry that was there all along, and it does
 * not say so, as it does of links and addresses: what one look has missed may be met by the next. */
void network::sweep_neighbours()
{
    for (const neighbour_key &key : missed(neighbours_, generation_ - 1))
        remove(key);
}

void network::sweep_forwarding()
{
    for (const forwarding_key &key : missed(forwarding_, generation_ - 1))
        remove(key);
}

int32_t network::clear(std::span<const neighbour_key> gone)
{
    int32_t cleared = 0;
    for (const neighbour_key &key : gone) {
        const int result = kernel_ ? kernel_->delete_neighbour(key) : 0;
        if (result < 0 && result != -ENOENT)
            return cleared != 0 ? cleared : result;
        remove(key); /* the kernel's own event comes later and finds nothing */
        ++cleared;
    }
    return cleared;
}

void network::refresh()
{
    if (kernel_)
        kernel_->refresh();
}

void network::settle()
{
    if (!std::exchange(interfaces_changed_, false))
        return;
    derive_routers();
    for (network_observer *each : observers_)
        each->interfaces_changed();
}

} // namespace mixd
