/* What the kernel says about its own addresses and about a connection. */
#include <libmix/ip_util.h>

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <optional>

namespace
{

/* --- interface addresses --- */

static_assert(sizeof(ifreq) == 40);
constexpr int most_records = 64;

/* The address that the kernel has for the record's interface now, network order. */
std::optional<uint32_t> address_of(int sock, ifreq record)
{
    sockaddr_in address;
    if (ioctl(sock, SIOCGIFADDR, &record) < 0)
        return {};
    std::memcpy(&address, &record.ifr_addr, sizeof(address));
    return address.sin_addr.s_addr;
}

bool kernel_has(int sock, uint32_t ip)
{
    ifreq records[most_records] = {};
    ifconf list = {};
    list.ifc_len = sizeof(records);
    list.ifc_req = records;
    if (ioctl(sock, SIOCGIFCONF, &list) < 0)
        return false;
    for (auto left = static_cast<size_t>(list.ifc_len) / sizeof(ifreq); left > 0; left--) {
        if (address_of(sock, records[left - 1]) == ip)
            return true;
    }
    return false;
}

/* --- control messages --- */

/* Which message names the interface, how it is asked for, and where in its data the index stands. */
struct packet_info {
    int level;
    int enable;  /* option that turns the message on */
    int options; /* option that reads the messages back */
    int type;    /* of the message */
    size_t index_offset;
};

constexpr int ipv6_2292_pktinfo = 2;
constexpr int ipv6_2292_pktoptions = 6;

constexpr packet_info ipv4_info{IPPROTO_IP, IP_PKTINFO, IP_PKTOPTIONS, IP_PKTINFO, 0};
constexpr packet_info ipv6_info{IPPROTO_IPV6, ipv6_2292_pktinfo, ipv6_2292_pktoptions, ipv6_2292_pktinfo, 16};

constexpr size_t option_bytes = 1024;
using option_buffer = unsigned char[option_bytes];

struct control_header {
    uint64_t length; /* header included */
    int32_t level;
    int32_t type;
};
static_assert(sizeof(control_header) == 16);
static_assert(sizeof(control_header) == sizeof(cmsghdr));

/* Walked by hand: the messages end where the buffer does, behind the last one it is zero. */
int index_in(const option_buffer &buffer, const packet_info &info)
{
    for (size_t at = 0; at + sizeof(control_header) <= option_bytes;) {
        control_header header;
        std::memcpy(&header, buffer + at, sizeof(header));
        if (header.length < sizeof(header) || header.length > option_bytes - at)
            return -1;
        if (header.level == info.level && header.type == info.type) {
            uint32_t index;
            const size_t offset = sizeof(header) + info.index_offset;
            if (header.length < offset + sizeof(index))
                return -1;
            std::memcpy(&index, buffer + at + offset, sizeof(index));
            return static_cast<int>(index);
        }
        at += (header.length + 7) / 8 * 8;
    }
    return -1;
}

int index_of(int sock, const packet_info &info)
{
    option_buffer buffer = {};
    const int on = 1;
    socklen_t length = sizeof(buffer);
    if (setsockopt(sock, info.level, info.enable, &on, sizeof(on)) < 0)
        return -1;
    if (getsockopt(sock, info.level, info.options, buffer, &length) < 0)
        return -1;
    return index_in(buffer, info);
}

} // namespace

int is_linux_ip(uint32_t ip) noexcept
{
    const int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return 0;
    const bool found = kernel_has(sock, ip);
    close(sock);
    return found;
}

int get_tcp_sock_if_index(int sock, uint16_t family) noexcept
{
    switch (family) {
    case AF_INET:
        return index_of(sock, ipv4_info);
    case AF_INET6:
        return index_of(sock, ipv6_info);
    default:
        return -1;
    }
}
