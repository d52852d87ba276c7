/*
 * The interfaces, neighbours and bridge tables that services show: the kernel's, kept current by its events,
 * or a scenario's. Services that show them derive rows of their own and are told of each change.
 */
#ifndef MIXD_NETWORK_H
#define MIXD_NETWORK_H

#include <array>
#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "appliance/mixd/scenario.h"

namespace mixd
{

class setup;
class kernel_source;

struct network_interface {
    uint32_t index = 0;
    std::string name;
    std::string kind;            /* "bridge", "vrf", "veth"; empty: a plain device */
    uint32_t master = 0;         /* the index of the bridge or VRF it belongs to, or 0 */
    uint32_t routing_table = 0;  /* of a VRF */
    uint16_t virtual_router = 0; /* of a scenario; the kernel's follows from VRFs */
    uint16_t virtual_system = 0;
    uint32_t generation = 0;

    bool operator==(const network_interface &) const = default;
};

/* An IPv4 address of an interface, host order. */
struct network_address {
    uint32_t interface = 0;
    uint32_t address = 0;
    uint8_t prefix = 32;

    auto operator<=>(const network_address &) const = default;
};

enum class neighbour_family : uint8_t { ipv4, ipv6 };

struct neighbour_key {
    neighbour_family family;
    uint32_t interface;
    std::array<uint8_t, 16> address; /* network order, IPv4 in the first four bytes */

    auto operator<=>(const neighbour_key &) const = default;
};

/* states as the kernel's NUD_ constants have them */
struct neighbour {
    std::optional<mac_address> mac;
    uint16_t state = 0;
    bool is_router = false;
    uint32_t confirmed = 0; /* seconds of the monotonic clock */
    uint32_t generation = 0;
};

struct forwarding_key {
    uint32_t bridge;
    uint16_t vlan;
    mac_address mac;

    auto operator<=>(const forwarding_key &) const = default;
};

struct forwarding_entry {
    enum class kind : uint8_t { dynamic, fixed, local };
    uint32_t port = 0;
    kind is = kind::dynamic;
    bool learned_elsewhere = false;
    uint32_t updated = 0; /* seconds of the monotonic clock */
    uint32_t generation = 0;
};

class network_observer
{
  public:
    virtual ~network_observer() = default;
    /* Interfaces, their addresses or their masters are others now.
     * Comes before entries that refer to them. */
    virtual void interfaces_changed() {}
    virtual void neighbour_changed(const neighbour_key &, const neighbour &) {}
    virtual void neighbour_gone(const neighbour_key &) {}
    virtual void forwarding_changed(const forwarding_key &, const forwarding_entry &) {}
    virtual void forwarding_gone(const forwarding_key &) {}
};

class network
{
  public:
    network() = default;
    explicit network(setup &with); /* reads [network]; with --host, the kernel too */
    network(const network &) = delete;
    network &operator=(const network &) = delete;
    ~network();

    /* Tells the observer of all that is there, and of every change from now on.
     * It must outlive the network. */
    void observe(network_observer &);

    [[nodiscard]] const std::map<uint32_t, network_interface> &interfaces() const { return interfaces_; }
    /* With the generation that each was last met in. */
    [[nodiscard]] const std::map<network_address, uint32_t> &addresses() const { return addresses_; }
    [[nodiscard]] const network_interface *interface(uint32_t index) const;
    [[nodiscard]] const network_interface *interface(std::string_view name) const;
    [[nodiscard]] std::string name_of(uint32_t index) const; /* "if7" for one that is not known */
    /* The interface whose network an IPv4 address belongs to (the longest prefix), of one virtual router (0:
     * any). */
    [[nodiscard]] const network_interface *interface_towards(uint32_t address, uint16_t virtual_router) const;
    /* Whether the address is the interface's own. */
    [[nodiscard]] bool is_own(uint32_t address) const;
    [[nodiscard]] const std::map<neighbour_key, neighbour> &neighbours() const { return neighbours_; }
    [[nodiscard]] const std::map<forwarding_key, forwarding_entry> &forwarding() const { return forwarding_; }

    /* Virtual routers: 1 is the usual one, the others are the kernel's VRFs (by their routing table) and the
     * scenario's. */
    [[nodiscard]] const std::string *router_name(uint32_t id) const;
    [[nodiscard]] uint16_t router_of(const network_interface &) const;

    /* An interface of a scenario, made when it is not there yet. */
    uint32_t need_interface(std::string_view name);

    void put(network_interface);
    void remove_interface(uint32_t index);
    void put(const network_address &);
    void remove(const network_address &);
    void put(const neighbour_key &, neighbour);
    void remove(const neighbour_key &);
    void put(const forwarding_key &, forwarding_entry);
    void remove(const forwarding_key &);

    /* What is put belongs to the current generation. A new look at everything starts another one, and what it
     * has not met again is gone; a neighbour or a forwarding entry when two of them have not. */
    void begin_generation() { ++generation_; }
    void sweep_interfaces();
    void sweep_addresses();
    void sweep_neighbours();
    void sweep_forwarding();
    /* Tells of changed interfaces, once after any number of them. */
    void settle();

    /* Takes neighbours away, out of the kernel too. How many, or -errno when the first can't be. */
    int32_t clear(std::span<const neighbour_key>);

    /* At the start of a listing: what comes after it will be of now. Never waits. */
    void refresh();
    [[nodiscard]] kernel_source *kernel() { return kernel_.get(); } /* NULL with a scenario */

  private:
    void read(scenario_table table);
    void derive_routers();

    std::map<uint32_t, network_interface> interfaces_;
    std::map<network_address, uint32_t> addresses_; /* to its generation */
    std::map<neighbour_key, neighbour> neighbours_;
    std::map<forwarding_key, forwarding_entry> forwarding_;
    std::map<uint32_t, std::string> configured_routers_;
    std::map<uint32_t, std::string> routers_;
    std::vector<network_observer *> observers_;
    uint32_t generation_ = 1;
    bool interfaces_changed_ = false;
    std::unique_ptr<kernel_source> kernel_;
};

/* Stands for the index of an interface that is not there: rows of configured entries have it in their keys,
 * where it is above every index and tells the entries of one name from those of another. */
uint32_t absent_interface(std::string_view name);

/* The address that many above another; only the last four bytes change. */
mac_address counted_up(const mac_address &from, uint32_t steps);
ipv6_address counted_up(const ipv6_address &from, uint32_t steps);

/* Seconds of the monotonic clock. */
uint32_t monotonic_seconds();

} // namespace mixd

#endif
