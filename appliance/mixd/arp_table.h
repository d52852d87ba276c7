/* The ARP table that is shown: the network's IPv4 neighbours and the configured static entries. */
#ifndef MIXD_ARP_TABLE_H
#define MIXD_ARP_TABLE_H

#include <map>
#include <unordered_map>

#include "appliance/mixd/network.h"
#include "appliance/mixd/ordered_table.h"
#include "appliance/wire/arp.h"

namespace mixd
{

struct arp_key {
    uint16_t virtual_router;
    uint16_t virtual_system;
    uint32_t address;
    uint32_t interface;

    auto operator<=>(const arp_key &) const = default;
};

struct arp_key_of {
    arp_key operator()(const mix::wire::arp_row &row) const
    {
        return {row.vrid, row.vsysid, row.address, row.interface_index};
    }
};

/* Rows as they are sent, but for their age: here it is the second of the monotonic clock it counts from. */
using arp_rows = ordered_table<mix::wire::arp_row, arp_key_of>;

struct static_arp_key {
    uint16_t virtual_router;
    uint16_t virtual_system;
    uint32_t address;

    auto operator<=>(const static_arp_key &) const = default;
};

struct static_arp {
    mac_address mac;
    uint8_t option = 0;
};

class arp_table final : private network_observer
{
  public:
    /* apply: static entries are put into the kernel as well, whenever an interface has their network. */
    arp_table(network &of, bool apply) : network_(of), apply_(apply) {}
    void begin() { network_.observe(*this); } /* once the static entries are known */

    [[nodiscard]] const arp_rows &rows() const { return rows_; }
    [[nodiscard]] const std::map<static_arp_key, static_arp> &statics() const { return statics_; }
    void put_static(const static_arp_key &, const static_arp &);
    void remove_static(const static_arp_key &);

    /* Addresses that have the MAC, when it is more than one; or all addresses whose MAC another has, too. */
    [[nodiscard]] uint32_t sharing(uint16_t virtual_system, const mac_address &) const;
    [[nodiscard]] uint32_t sharing(uint16_t virtual_system) const;

  private:
    void interfaces_changed() override;
    void neighbour_changed(const neighbour_key &, const neighbour &) override;
    void neighbour_gone(const neighbour_key &) override;
    void show_static(const static_arp_key &, const static_arp &);
    void apply_static(const static_arp_key &, const static_arp &);
    void withdraw(const static_arp_key &);
    void erase_all_of(const static_arp_key &);
    void put(const mix::wire::arp_row &);
    void erase(const arp_key &);
    void count(const mix::wire::arp_row &, bool added);

    network &network_;
    bool apply_;
    arp_rows rows_;
    std::map<static_arp_key, static_arp> statics_;
    std::map<static_arp_key, uint32_t> applied_;          /* to the interface they were put on, or 0 */
    std::unordered_map<uint64_t, uint32_t> addresses_of_; /* by virtual system and MAC */
    std::unordered_map<uint16_t, uint32_t> sharing_;      /* by virtual system */
};

/* The key of an IPv4 neighbour. */
neighbour_key ipv4_neighbour(uint32_t interface, uint32_t address);
uint32_t ipv4_of(const neighbour_key &);

} // namespace mixd

#endif
