/*
 * Fills a network from the kernel by rtnetlink: a dump of everything at start, its multicast events from then
 * on. When events were lost, everything is dumped again beside the work, and what was not met again is
 * dropped.
 */
#ifndef MIXD_KERNEL_SOURCE_H
#define MIXD_KERNEL_SOURCE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include "appliance/mixd/event.h"
#include "appliance/mixd/network.h"

namespace mixd
{

struct netlink_close {
    void operator()(mnl_socket *socket) const { mnl_socket_close(socket); }
};
using netlink_socket = std::unique_ptr<mnl_socket, netlink_close>;

/* Takes rtnetlink messages, dumped or multicast, into a network. Nothing of a message is believed that it
 * does not carry in full. */
void take_netlink_message(const nlmsghdr &message, network &into);

class kernel_source
{
  public:
    /* Returns when the network holds everything. Throws startup_error. */
    kernel_source(network &into, sd_event *loop);
    kernel_source(const kernel_source &) = delete;
    kernel_source &operator=(const kernel_source &) = delete;
    ~kernel_source();

    /* Looks at everything again beside the work, unless that was done just now: what the kernel does not tell
     * by events (addresses it has just begun to ask for) shows in the next listing. */
    void refresh();

    /* Changes, each answered by the kernel before the call returns: 0 or -errno. They show by events. */
    int set_neighbour(const neighbour_key &, const mac_address &);
    int delete_neighbour(const neighbour_key &);
    int probe_neighbour(const neighbour_key &); /* the kernel asks for it now */
    int set_forwarding(uint32_t port, uint16_t vlan, const mac_address &);
    int delete_forwarding(uint32_t port, uint16_t vlan, const mac_address &);

    /* Proxy entries, which the kernel tells of only when it is asked. */
    void each_proxy(neighbour_family, const std::function<void(const neighbour_key &)> &);

  private:
    enum dump : uint8_t { dump_links, dump_addresses, dump_neighbours, dump_forwarding, dumps_done };

    static int on_ready(sd_event_source *, int, uint32_t, void *data);
    void look_again();
    void start(dump);
    void finish_dump(bool failed);
    void take(std::span<uint8_t> datagram);
    int receive(std::span<uint8_t> into);
    int change_neighbour(uint16_t type, uint16_t flags, const neighbour_key &, uint16_t state,
                         uint8_t ndm_flags, const mac_address *);
    int change_forwarding(uint16_t type, uint16_t flags, uint32_t port, uint16_t vlan, const mac_address &);
    int ask(nlmsghdr *);

    network &into_;
    netlink_socket events_;
    netlink_socket changes_;
    event_source source_;
    std::vector<uint8_t> buffer_;
    dump dumping_ = dumps_done;
    bool interrupted_ = false;
    bool again_ = false;
    int64_t looked_at_ = 0; /* nanoseconds of the monotonic clock */
    uint32_t sequence_ = 0;
    uint32_t dump_sequence_ = 0;
};

/* For a commit: the kernel is written before it, and gets the configured entry that it had (NULL: none) back
 * when that fails. */
std::optional<refusal> commit_neighbour(kernel_source &, const neighbour_key &, const mac_address &,
                                        const mac_address *before, transaction &);

} // namespace mixd

#endif
