#include "appliance/mixd/mac_table.h"

#include "appliance/mixd/service.h"
#include "appliance/wire/text.h"

namespace mixd
{

using namespace mix::wire;

namespace
{

uint16_t flags_of(const forwarding_entry &entry)
{
    uint16_t flags = entry.learned_elsewhere ? mac_entry_learned_elsewhere : 0;
    if (entry.is == forwarding_entry::kind::fixed)
        flags |= mac_entry_static;
    if (entry.is == forwarding_entry::kind::local)
        flags |= mac_entry_static | mac_entry_local;
    return flags;
}

} // namespace

mac_table::mac_table(setup &with) : network_(with.shared_state<network>())
{
    network_.observe(*this);
}

const mac_record *mac_table::find(const mac_address &mac, uint32_t bridge) const
{
    const mac_record *first = nullptr, *preferred = nullptr;
    const auto look = [&](const mac_record &row) {
        if (row.key.mac != mac)
            return false;
        first = first != nullptr ? first : &row;
        preferred = row.key.bridge == bridge ? &row : nullptr;
        return preferred == nullptr;
    };
    rows_.walk_from({mac, 0, 0}, look);
    return preferred != nullptr ? preferred : first;
}

mac_key mac_table::key_of(const static_mac_key &key) const
{
    const network_interface *bridge = network_.interface(key.interface);
    return {key.mac, key.vlan, bridge != nullptr ? bridge->index : absent_interface(key.interface)};
}

bool mac_table::is_static(const mac_key &key) const
{
    const network_interface *bridge = network_.interface(key.bridge);
    return bridge != nullptr && statics_.contains({key.mac, key.vlan, bridge->name});
}

void mac_table::put_static(const static_mac_key &key, std::string port)
{
    show_static(key, statics_[key] = std::move(port));
}

void mac_table::remove_static(const static_mac_key &key)
{
    if (statics_.erase(key) == 0)
        return;
    const mac_key shown = key_of(key);
    rows_.erase(shown);
    /* What it stood in front of is seen again. */
    const auto behind = network_.forwarding().find({shown.bridge, shown.vlan, shown.mac});
    if (behind != network_.forwarding().end())
        forwarding_changed(behind->first, behind->second);
}

void mac_table::show_static(const static_mac_key &key, const std::string &port)
{
    const network_interface *bridge = network_.interface(key.interface), *out = network_.interface(port);
    mac_record row{};
    row.key = key_of(key);
    row.port = out != nullptr ? out->index : 0;
    row.flags = mac_entry_static;
    if (bridge == nullptr || out == nullptr)
        row.flags |= mac_entry_idle;
    row.virtual_system = bridge != nullptr ? bridge->virtual_system : 0;
    row.updated = monotonic_seconds();
    fill_text(row.interface, key.interface);
    fill_text(row.port_name, port);
    rows_.put(row);
}

void mac_table::interfaces_changed()
{
    rows_.clear();
    for (const auto &[key, entry] : network_.forwarding())
        forwarding_changed(key, entry);
    for (const auto &[key, port] : statics_)
        show_static(key, port);
}

void mac_table::forwarding_changed(const forwarding_key &key, const forwarding_entry &entry)
{
    mac_record row{};
    row.key = {key.mac, key.vlan, key.bridge};
    if (is_static(row.key))
        return;
    const network_interface *bridge = network_.interface(key.bridge);
    row.port = entry.port;
    row.flags = flags_of(entry);
    row.virtual_system = bridge != nullptr ? bridge->virtual_system : 0;
    row.updated = entry.updated;
    fill_text(row.interface, network_.name_of(key.bridge));
    fill_text(row.port_name, network_.name_of(entry.port));
    rows_.put(row);
}

void mac_table::forwarding_gone(const forwarding_key &key)
{
    const mac_key shown{key.mac, key.vlan, key.bridge};
    if (!is_static(shown))
        rows_.erase(shown);
}

} // namespace mixd
