#include "appliance/mixd/ethtool.h"

#include <cerrno>
#include <cstring>

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "appliance/mixd/event.h"
#include "appliance/wire/text.h"

namespace mixd
{

namespace
{

using mix::wire::fill_text;
using mix::wire::text_in;

constexpr uint32_t most_statistics = 4096; /* more than any driver has */

/* 0 or -errno. What the request needs beside the name is put into it already. */
int ask_interface(const std::string &interface, unsigned long request, ifreq &with)
{
    const descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socket)
        return -errno;
    fill_text(with.ifr_name, interface);
    return ::ioctl(socket.get(), request, &with) == 0 ? 0 : -errno;
}

int ask_driver(const std::string &interface, void *command)
{
    ifreq with{};
    with.ifr_data = static_cast<char *>(command);
    return ask_interface(interface, SIOCETHTOOL, with);
}

/* A command of ethtool's that is followed by a value for each statistic, in memory that is aligned for it. */
template <class Command>
Command *command_with_room(std::vector<uint64_t> &memory, uint32_t number, uint32_t statistics, size_t each)
{
    memory.assign((sizeof(Command) + statistics * each + sizeof(uint64_t) - 1) / sizeof(uint64_t), 0);
    auto *out = reinterpret_cast<Command *>(memory.data());
    out->cmd = number;
    return out;
}

} // namespace

std::optional<interface_driver> driver_of(const std::string &interface)
{
    ethtool_drvinfo info{};
    info.cmd = ETHTOOL_GDRVINFO;
    if (ask_driver(interface, &info) != 0)
        return {};
    return interface_driver{std::string(text_in(info.driver)), std::string(text_in(info.bus_info)),
                            info.n_stats};
}

std::vector<driver_statistic> statistics_of_driver(const std::string &interface)
{
    std::vector<driver_statistic> out;
    const auto driver = driver_of(interface);
    if (!driver || driver->statistics == 0 || driver->statistics > most_statistics)
        return out;
    std::vector<uint64_t> name_memory, value_memory;
    auto *names = command_with_room<ethtool_gstrings>(name_memory, ETHTOOL_GSTRINGS, driver->statistics,
                                                      ETH_GSTRING_LEN);
    names->string_set = ETH_SS_STATS;
    names->len = driver->statistics;
    auto *values =
        command_with_room<ethtool_stats>(value_memory, ETHTOOL_GSTATS, driver->statistics, sizeof(uint64_t));
    values->n_stats = driver->statistics;
    if (ask_driver(interface, names) != 0 || ask_driver(interface, values) != 0)
        return out;
    const auto *texts = reinterpret_cast<const char *>(names->data);
    for (uint32_t i = 0; i < std::min(names->len, values->n_stats); i++) {
        const char *text = texts + size_t{i} * ETH_GSTRING_LEN;
        out.push_back({std::string(text, strnlen(text, ETH_GSTRING_LEN)), values->data[i]});
    }
    return out;
}

int set_interface_up(const std::string &interface, bool up)
{
    ifreq with{};
    if (const int failed = ask_interface(interface, SIOCGIFFLAGS, with); failed != 0)
        return failed;
    with.ifr_flags = static_cast<short>(up ? with.ifr_flags | IFF_UP : with.ifr_flags & ~IFF_UP);
    return ask_interface(interface, SIOCSIFFLAGS, with);
}

int set_interface_mtu(const std::string &interface, uint32_t mtu)
{
    ifreq with{};
    with.ifr_mtu = static_cast<int>(mtu);
    return ask_interface(interface, SIOCSIFMTU, with);
}

} // namespace mixd
