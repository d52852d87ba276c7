#include "appliance/mixd/announcer.h"

#include <cerrno>

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <sys/socket.h>

#include "appliance/wire/gas.h"

namespace mixd
{

namespace
{

/* As it goes over the cable, in network order, with the padding that the shortest frames have. */
struct [[gnu::packed]] arp_frame {
    uint8_t destination[6];
    uint8_t source[6];
    uint16_t ether_type;
    uint16_t hardware;
    uint16_t protocol;
    uint8_t hardware_size;
    uint8_t protocol_size;
    uint16_t operation;
    uint8_t sender_mac[6];
    uint32_t sender;
    uint8_t target_mac[6];
    uint32_t target;
    uint8_t padding[18];
};
static_assert(sizeof(arp_frame) == ETH_ZLEN);
static_assert(offsetof(arp_frame, sender_mac) == 22);

/* Sender and target are the same address: that is what makes it gratuitous. A request's target MAC counts for
 * nothing and is zero; a reply's is the announced one. */
arp_frame make_frame(uint16_t operation, uint32_t address, const mac_address &mac)
{
    arp_frame frame{};
    std::fill(std::begin(frame.destination), std::end(frame.destination), uint8_t{0xff});
    std::copy(mac.begin(), mac.end(), frame.source);
    frame.ether_type = htons(ETH_P_ARP);
    frame.hardware = htons(ARPHRD_ETHER);
    frame.protocol = htons(ETH_P_IP);
    frame.hardware_size = ETH_ALEN;
    frame.protocol_size = sizeof frame.sender;
    frame.operation = htons(operation);
    std::copy(mac.begin(), mac.end(), frame.sender_mac);
    frame.sender = htonl(address);
    if (operation == ARPOP_REPLY)
        std::copy(mac.begin(), mac.end(), frame.target_mac);
    frame.target = htonl(address);
    return frame;
}

int send_frame(int socket, uint32_t interface, const arp_frame &frame)
{
    sockaddr_ll to{};
    to.sll_family = AF_PACKET;
    to.sll_protocol = htons(ETH_P_ARP);
    to.sll_ifindex = static_cast<int>(interface);
    to.sll_halen = ETH_ALEN;
    std::copy(std::begin(frame.destination), std::end(frame.destination), to.sll_addr);
    const ssize_t sent = sendto(socket, &frame, sizeof frame, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&to), sizeof to);
    return sent < 0 ? -errno : 0;
}

} // namespace

int announcer::open()
{
    if (socket_)
        return 0;
    /* Protocol 0: it sends only, nothing is ever queued on it. */
    descriptor opened(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    if (!opened)
        return -errno;
    socket_ = std::move(opened);
    return 0;
}

int announcer::announce(uint32_t interface, uint32_t address, const mac_address &mac, uint8_t forms) const
{
    int result = 0;
    if ((forms & mix::wire::gas_as_request) != 0)
        result = send_frame(socket_.get(), interface, make_frame(ARPOP_REQUEST, address, mac));
    if (result == 0 && (forms & mix::wire::gas_as_reply) != 0)
        result = send_frame(socket_.get(), interface, make_frame(ARPOP_REPLY, address, mac));
    return result;
}

} // namespace mixd
