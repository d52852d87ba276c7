/* The MAC address table: the bridges' forwarding entries and the configured static ones, as services show
 * them. */
#ifndef MIXD_MAC_TABLE_H
#define MIXD_MAC_TABLE_H

#include <map>
#include <string>

#include "appliance/mixd/network.h"
#include "appliance/mixd/ordered_table.h"
#include "appliance/wire/mac.h"

namespace mixd
{

struct mac_key {
    mac_address mac;
    uint16_t vlan;
    uint32_t bridge;

    bool operator==(const mac_key &) const = default;
    /* By address, VLAN and bridge. As numbers: joined listings of large tables spend their time here. */
    std::strong_ordering operator<=>(const mac_key &other) const
    {
        const auto by_station = station() <=> other.station();
        return by_station != 0 ? by_station : bridge <=> other.bridge;
    }

  private:
    [[nodiscard]] uint64_t station() const
    {
        uint64_t number = vlan;
        for (size_t byte = 0; byte < mac.size(); ++byte)
            number |= uint64_t{mac[byte]} << (56 - 8 * byte);
        return number;
    }
};

struct mac_record {
    mac_key key;
    uint32_t port;
    uint16_t flags; /* mac_entry_static and mac_entry_flag */
    uint16_t virtual_system;
    uint32_t updated; /* seconds of the monotonic clock */
    char interface[32];
    char port_name[32];
};

struct mac_record_key {
    mac_key operator()(const mac_record &one) const { return one.key; }
};

using mac_rows = ordered_table<mac_record, mac_record_key>;

/* Tells the bridge and port names of configured entries from each other: an entry is known by address, VLAN
 * and bridge, by name, since its interfaces may come and go. */
struct static_mac_key {
    mac_address mac;
    uint16_t vlan;
    std::string interface;

    auto operator<=>(const static_mac_key &) const = default;
};

class mac_table final : private network_observer
{
  public:
    explicit mac_table(setup &with);

    [[nodiscard]] const mac_rows &rows() const { return rows_; }
    /* The first entry of an address, on any bridge; `bridge` is preferred. NULL: none. */
    [[nodiscard]] const mac_record *find(const mac_address &, uint32_t bridge) const;

    [[nodiscard]] const std::map<static_mac_key, std::string> &statics() const { return statics_; }
    void put_static(const static_mac_key &, std::string port);
    void remove_static(const static_mac_key &);

  private:
    void interfaces_changed() override;
    void forwarding_changed(const forwarding_key &, const forwarding_entry &) override;
    void forwarding_gone(const forwarding_key &) override;
    void show_static(const static_mac_key &, const std::string &port);
    [[nodiscard]] mac_key key_of(const static_mac_key &) const;
    [[nodiscard]] bool is_static(const mac_key &) const;

    network &network_;
    mac_rows rows_;
    std::map<static_mac_key, std::string> statics_; /* to their port */
};

} // namespace mixd

#endif
