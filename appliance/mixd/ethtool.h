/* What the drivers of this host's interfaces tell of themselves. */
#ifndef MIXD_ETHTOOL_H
#define MIXD_ETHTOOL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace mixd
{

struct interface_driver {
    std::string name;    /* "virtio_net"; the kernel's own interfaces have one, too: "veth" */
    std::string bus;     /* "0000:00:03.0"; empty: there is no device */
    uint32_t statistics; /* how many it keeps */
};

/* Nothing for an interface whose driver does not say. */
std::optional<interface_driver> driver_of(const std::string &interface);

struct driver_statistic {
    std::string name;
    uint64_t value;
};

/* In the driver's order; empty where it keeps none. */
std::vector<driver_statistic> statistics_of_driver(const std::string &interface);

/* 0 or -errno. */
int set_interface_up(const std::string &interface, bool up);
int set_interface_mtu(const std::string &interface, uint32_t mtu);

} // namespace mixd

#endif
