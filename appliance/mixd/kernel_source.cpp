#include "appliance/mixd/kernel_source.h"

#include <arpa/inet.h>
#include <cerrno>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <poll.h>
#include <sys/socket.h>

#include "appliance/wire/clock.h"

namespace mixd
{

namespace
{

constexpr size_t datagram_size = 64 * 1024;
constexpr int receive_buffer = 4 * 1024 * 1024;
constexpr int datagrams_at_a_time = 32;
constexpr int64_t fresh_ns = 200'000'000;

/* --- reading messages --- */

/* The attributes of a message, by type; one that is shorter than asked for counts as absent. */
template <size_t Most>
class attributes
{
  public:
    attributes(const nlmsghdr &message, size_t offset)
    {
        const auto *end = static_cast<const uint8_t *>(mnl_nlmsg_get_payload_tail(&message));
        keep_all(mnl_nlmsg_get_payload_offset(&message, offset), end);
    }
    explicit attributes(const nlattr *nest)
    {
        const auto *from = static_cast<const uint8_t *>(mnl_attr_get_payload(nest));
        keep_all(from, from + mnl_attr_get_payload_len(nest));
    }
    [[nodiscard]] const nlattr *nested(uint16_t type) const { return type < Most ? kept_[type] : nullptr; }
    template <class T>
    [[nodiscard]] std::optional<T> value(uint16_t type) const
    {
        const nlattr *one = nested(type);
        if (one == nullptr || mnl_attr_get_payload_len(one) < sizeof(T))
            return {};
        T value;
        std::memcpy(&value, mnl_attr_get_payload(one), sizeof value);
        return value;
    }
    [[nodiscard]] std::string text(uint16_t type) const
    {
        const nlattr *one = nested(type);
        if (one == nullptr)
            return {};
        const auto *from = static_cast<const char *>(mnl_attr_get_payload(one));
        return {from, strnlen(from, mnl_attr_get_payload_len(one))};
    }
    [[nodiscard]] size_t length(uint16_t type) const
    {
        return nested(type) != nullptr ? mnl_attr_get_payload_len(nested(type)) : 0;
    }

  private:
    void keep_all(const void *from, const uint8_t *end)
    {
        const auto *one = static_cast<const nlattr *>(from);
        for (; mnl_attr_ok(one, static_cast<int>(end - reinterpret_cast<const uint8_t *>(one)));
             one = mnl_attr_next(one))
            if (mnl_attr_get_type(one) < Most)
                kept_[mnl_attr_get_type(one)] = one;
    }
    std::array<const nlattr *, Most> kept_{};
};

template <class Header>
const Header *header_of(const nlmsghdr &message)
{
    if (mnl_nlmsg_get_payload_len(&message) < sizeof(Header))
        return nullptr;
    return static_cast<const Header *>(mnl_nlmsg_get_payload(&message));
}

void take_link(const nlmsghdr &message, network &into)
{
    const auto *header = header_of<ifinfomsg>(message);
    /* Messages of the bridge family are about ports: they don't say that a device is gone. */
    if (header == nullptr || header->ifi_family != AF_UNSPEC || header->ifi_index <= 0)
        return;
    const auto index = static_cast<uint32_t>(header->ifi_index);
    if (message.nlmsg_type == RTM_DELLINK) {
        into.remove_interface(index);
        return;
    }
    const attributes<IFLA_MASTER + 16> found(message, sizeof(*header));
    network_interface one;
    one.index = index;
    one.name = found.text(IFLA_IFNAME);
    one.master = found.value<uint32_t>(IFLA_MASTER).value_or(0);
    if (const nlattr *info = found.nested(IFLA_LINKINFO)) {
        const attributes<IFLA_INFO_DATA + 1> described(info);
        one.kind = described.text(IFLA_INFO_KIND);
        const nlattr *data = described.nested(IFLA_INFO_DATA);
        if (one.kind == "vrf" && data != nullptr)
            one.routing_table =
                attributes<IFLA_VRF_TABLE + 1>(data).value<uint32_t>(IFLA_VRF_TABLE).value_or(0);
    }
    into.put(one);
}

void take_address(const nlmsghdr &message, network &into)
{
    const auto *header = header_of<ifaddrmsg>(message);
    if (header == nullptr || header->ifa_family != AF_INET)
        return;
    const attributes<IFA_LOCAL + 1> found(message, sizeof(*header));
    const auto address = found.value<uint32_t>(IFA_LOCAL);
    if (!address || header->ifa_prefixlen > 32)
        return;
    const network_address one{header->ifa_index, ntohl(*address), header->ifa_prefixlen};
    if (message.nlmsg_type == RTM_NEWADDR)
        into.put(one);
    else
        into.remove(one);
}

using neighbour_attributes = attributes<NDA_MAX + 1>;

uint8_t kernel_family(neighbour_family family)
{
    return family == neighbour_family::ipv4 ? AF_INET : AF_INET6;
}

size_t size_of(neighbour_family family)
{
    return family == neighbour_family::ipv4 ? 4 : 16;
}

/* Whose neighbour a message is about; nothing without a whole address. */
std::optional<neighbour_key> key_of(const ndmsg &header, const neighbour_attributes &found)
{
    const auto family = header.ndm_family == AF_INET ? neighbour_family::ipv4 : neighbour_family::ipv6;
    neighbour_key key{family, static_cast<uint32_t>(header.ndm_ifindex), {}};
    if (found.length(NDA_DST) != size_of(family))
        return {};
    std::memcpy(key.address.data(), mnl_attr_get_payload(found.nested(NDA_DST)), size_of(family));
    return key;
}

uint32_t seconds_ago(uint32_t ticks)
{
    static const long ticks_a_second = sysconf(_SC_CLK_TCK);
    return monotonic_seconds() - static_cast<uint32_t>(ticks / ticks_a_second);
}

/* As the kernel's own tools have it: entries that need no resolution are not neighbours. */
bool is_shown(const ndmsg &header)
{
    return (header.ndm_state & ~NUD_NOARP) != 0 || (header.ndm_flags & NTF_EXT_LEARNED) != 0;
}

void take_neighbour(const nlmsghdr &message, const ndmsg &header, network &into)
{
    const neighbour_attributes found(message, sizeof(header));
    const auto key = key_of(header, found);
    if (!key || (header.ndm_flags & NTF_PROXY) != 0)
        return;
    if (message.nlmsg_type == RTM_DELNEIGH || !is_shown(header)) {
        into.remove(*key);
        return;
    }
    neighbour entry;
    if (found.length(NDA_LLADDR) == sizeof(mac_address))
        entry.mac = found.value<mac_address>(NDA_LLADDR);
    entry.state = header.ndm_state;
    entry.is_router = (header.ndm_flags & NTF_ROUTER) != 0;
    const auto times = found.value<nda_cacheinfo>(NDA_CACHEINFO);
    entry.confirmed = seconds_ago(times ? times->ndm_confirmed : 0);
    into.put(*key, entry);
}

forwarding_entry::kind kind_of(uint16_t state)
{
    if ((state & NUD_PERMANENT) != 0)
        return forwarding_entry::kind::local;
    return (state & NUD_NOARP) != 0 ? forwarding_entry::kind::fixed : forwarding_entry::kind::dynamic;
}

void take_forwarding(const nlmsghdr &message, const ndmsg &header, network &into)
{
    const neighbour_attributes found(message, sizeof(header));
    const auto bridge = found.value<uint32_t>(NDA_MASTER);
    const auto mac = found.value<mac_address>(NDA_LLADDR);
    /* Without a bridge it is a device's own filter, not a forwarding table. */
    if (!bridge || !mac || found.length(NDA_LLADDR) != sizeof(mac_address))
        return;
    const forwarding_key key{*bridge, found.value<uint16_t>(NDA_VLAN).value_or(0), *mac};
    if (message.nlmsg_type == RTM_DELNEIGH) {
        into.remove(key);
        return;
    }
    forwarding_entry entry;
    entry.port = static_cast<uint32_t>(header.ndm_ifindex);
    entry.is = kind_of(header.ndm_state);
    entry.learned_elsewhere = (header.ndm_flags & NTF_EXT_LEARNED) != 0;
    const auto times = found.value<nda_cacheinfo>(NDA_CACHEINFO);
    entry.updated = seconds_ago(times ? times->ndm_updated : 0);
    into.put(key, entry);
}

netlink_socket open_socket(unsigned groups)
{
    netlink_socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC));
    if (!socket || mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) < 0)
        fail("netlink socket");
    return socket;
}

} // namespace

void take_netlink_message(const nlmsghdr &message, network &into)
{
    switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
        take_link(message, into);
        return;
    case RTM_NEWADDR:
    case RTM_DELADDR:
        take_address(message, into);
        return;
    case RTM_NEWNEIGH:
    case RTM_DELNEIGH:
        break;
    default:
        return;
    }
    const auto *header = header_of<ndmsg>(message);
    if (header == nullptr || header->ndm_ifindex <= 0)
        return;
    if (header->ndm_family == AF_BRIDGE)
        take_forwarding(message, *header, into);
    else if (header->ndm_family == AF_INET || header->ndm_family == AF_INET6)
        take_neighbour(message, *header, into);
}

/* --- the event socket --- */

kernel_source::kernel_source(network &into, sd_event *loop)
    : into_(into), events_(open_socket(RTMGRP_LINK | RTMGRP_NEIGH | RTMGRP_IPV4_IFADDR)),
      changes_(open_socket(0)), buffer_(datagram_size)
{
    const int fd = mnl_socket_get_fd(events_.get());
    setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &receive_buffer, sizeof receive_buffer);
    const timeval patience{1, 0};
    setsockopt(mnl_socket_get_fd(changes_.get()), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    look_again();
    while (dumping_ != dumps_done) {
        pollfd ready{fd, POLLIN, 0};
        if (poll(&ready, 1, 5000) <= 0)
            throw startup_error("the kernel does not tell its neighbours");
        const int size = receive(buffer_);
        if (size > 0)
            take({buffer_.data(), static_cast<size_t>(size)});
    }
    sd_event_source *source = nullptr;
    need(sd_event_add_io(loop, &source, fd, EPOLLIN, on_ready, this), "watching the kernel's events");
    source_.reset(source);
}

kernel_source::~kernel_source() = default;

int kernel_source::receive(std::span<uint8_t> into)
{
    const ssize_t size =
        recv(mnl_socket_get_fd(events_.get()), into.data(), into.size(), MSG_DONTWAIT | MSG_TRUNC);
    if (size >= 0 && static_cast<size_t>(size) <= into.size())
        return static_cast<int>(size);
    /* Events were lost, or cut: what is known may be wrong. */
    if (size >= 0 || errno == ENOBUFS)
        look_again();
    return size >= 0 || errno == ENOBUFS ? 0 : -errno;
}

int kernel_source::on_ready(sd_event_source *, int, uint32_t, void *data)
{
    auto *self = static_cast<kernel_source *>(data);
    for (int i = 0; i < datagrams_at_a_time; ++i) {
        const int size = self->receive(self->buffer_);
        if (size < 0)
            break;
        self->take({self->buffer_.data(), static_cast<size_t>(size)});
    }
    self->into_.settle();
    return 0;
}

void kernel_source::look_again()
{
    if (dumping_ != dumps_done) {
        again_ = true; /* one dump at a time; then all over */
        return;
    }
    looked_at_ = mix::wire::monotonic_ns();
    into_.begin_generation();
    start(dump_links);
}

void kernel_source::refresh()
{
    if (dumping_ == dumps_done && mix::wire::monotonic_ns() - looked_at_ >= fresh_ns)
        look_again();
}

void kernel_source::start(dump which)
{
    dumping_ = which;
    interrupted_ = false;
    if (which == dumps_done) {
        if (std::exchange(again_, false))
            look_again();
        return;
    }
    alignas(nlmsghdr) uint8_t room[256];
    nlmsghdr *message = mnl_nlmsg_put_header(room);
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message->nlmsg_seq = dump_sequence_ = ++sequence_;
    const auto family = [&](uint16_t type, size_t size, uint8_t value) {
        message->nlmsg_type = type;
        *static_cast<uint8_t *>(mnl_nlmsg_put_extra_header(message, size)) =
            value; /* the first of each header */
    };
    if (which == dump_links)
        family(RTM_GETLINK, sizeof(ifinfomsg), AF_UNSPEC);
    else if (which == dump_addresses)
        family(RTM_GETADDR, sizeof(ifaddrmsg), AF_INET);
    else if (which == dump_neighbours)
        family(RTM_GETNEIGH, sizeof(ndmsg), AF_UNSPEC);
    else /* the size of a link's header: the kernel takes a shorter one for something else */
        family(RTM_GETNEIGH, sizeof(ifinfomsg), AF_BRIDGE);
    if (mnl_socket_sendto(events_.get(), message, message->nlmsg_len) < 0)
        log(priority::warning,
            fmt::format("the kernel's tables can't be asked for: {}", std::strerror(errno)));
}

void kernel_source::finish_dump(bool failed)
{
    if (!failed && interrupted_) { /* the table changed under the dump: it may lack entries */
        start(dumping_);
        return;
    }
    if (failed) /* what it did not come to is still there */
        log(priority::warning, "the kernel broke off telling its tables");
    else if (dumping_ == dump_links)
        into_.sweep_interfaces();
    else if (dumping_ == dump_addresses)
        into_.sweep_addresses();
    else if (dumping_ == dump_neighbours)
        into_.sweep_neighbours();
    else
        into_.sweep_forwarding();
    into_.settle();
    start(static_cast<dump>(dumping_ + 1));
}

void kernel_source::take(std::span<uint8_t> datagram)
{
    int left = static_cast<int>(datagram.size());
    for (const auto *message = reinterpret_cast<const nlmsghdr *>(datagram.data());
         mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
        const bool of_dump = message->nlmsg_seq == dump_sequence_ && dumping_ != dumps_done;
        interrupted_ = interrupted_ || (of_dump && (message->nlmsg_flags & NLM_F_DUMP_INTR) != 0);
        if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
            if (of_dump)
                finish_dump(message->nlmsg_type == NLMSG_ERROR);
            continue;
        }
        take_netlink_message(*message, into_);
    }
}

/* --- changes --- */

int kernel_source::ask(nlmsghdr *message)
{
    message->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
    message->nlmsg_seq = ++sequence_;
    if (mnl_socket_sendto(changes_.get(), message, message->nlmsg_len) < 0)
        return -errno;
    alignas(nlmsghdr) uint8_t room[8192];
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(changes_.get(), room, sizeof room);
        if (size < 0)
            return -errno;
        const auto *answer = reinterpret_cast<const nlmsghdr *>(room);
        if (!mnl_nlmsg_ok(answer, static_cast<int>(size)) || answer->nlmsg_seq != message->nlmsg_seq)
            continue;
        const auto *error = header_of<nlmsgerr>(*answer);
        return answer->nlmsg_type == NLMSG_ERROR && error != nullptr ? error->error : -EPROTO;
    }
}

int kernel_source::change_neighbour(uint16_t type, uint16_t flags, const neighbour_key &key, uint16_t state,
                                    uint8_t ndm_flags, const mac_address *mac)
{
    alignas(nlmsghdr) uint8_t room[256];
    nlmsghdr *message = mnl_nlmsg_put_header(room);
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    auto *header = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    header->ndm_family = kernel_family(key.family);
    header->ndm_ifindex = static_cast<int>(key.interface);
    header->ndm_state = state;
    header->ndm_flags = ndm_flags;
    mnl_attr_put(message, NDA_DST, size_of(key.family), key.address.data());
    if (mac != nullptr)
        mnl_attr_put(message, NDA_LLADDR, mac->size(), mac->data());
    return ask(message);
}

int kernel_source::set_neighbour(const neighbour_key &key, const mac_address &mac)
{
    return change_neighbour(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, key, NUD_PERMANENT, 0, &mac);
}

int kernel_source::delete_neighbour(const neighbour_key &key)
{
    return change_neighbour(RTM_DELNEIGH, 0, key, 0, 0, nullptr);
}

int kernel_source::probe_neighbour(const neighbour_key &key)
{
    return change_neighbour(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, key, NUD_NONE, NTF_USE, nullptr);
}

int kernel_source::change_forwarding(uint16_t type, uint16_t flags, uint32_t port, uint16_t vlan,
                                     const mac_address &mac)
{
    alignas(nlmsghdr) uint8_t room[256];
    nlmsghdr *message = mnl_nlmsg_put_header(room);
    message->nlmsg_type = type;
    message->nlmsg_flags = flags;
    auto *header = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    header->ndm_family = AF_BRIDGE;
    header->ndm_ifindex = static_cast<int>(port);
    header->ndm_state = NUD_NOARP; /* static, as the bridge has it */
    header->ndm_flags = NTF_MASTER;
    mnl_attr_put(message, NDA_LLADDR, mac.size(), mac.data());
    if (vlan != 0)
        mnl_attr_put_u16(message, NDA_VLAN, vlan);
    return ask(message);
}

int kernel_source::set_forwarding(uint32_t port, uint16_t vlan, const mac_address &mac)
{
    return change_forwarding(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, port, vlan, mac);
}

int kernel_source::delete_forwarding(uint32_t port, uint16_t vlan, const mac_address &mac)
{
    return change_forwarding(RTM_DELNEIGH, 0, port, vlan, mac);
}

std::optional<refusal> commit_neighbour(kernel_source &kernel, const neighbour_key &on,
                                        const mac_address &mac, const mac_address *before, transaction &in)
{
    if (const int result = kernel.set_neighbour(on, mac); result < 0)
        return not_applied(-result);
    if (before != nullptr)
        in.on_rollback([&kernel, on, mac_before = *before] { kernel.set_neighbour(on, mac_before); });
    else
        in.on_rollback([&kernel, on] { kernel.delete_neighbour(on); });
    return {};
}

void kernel_source::each_proxy(neighbour_family family,
                               const std::function<void(const neighbour_key &)> &visit)
{
    alignas(nlmsghdr) uint8_t room[8192];
    nlmsghdr *message = mnl_nlmsg_put_header(room);
    message->nlmsg_type = RTM_GETNEIGH;
    message->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    message->nlmsg_seq = ++sequence_;
    auto *header = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(message, sizeof(ndmsg)));
    header->ndm_family = kernel_family(family);
    header->ndm_flags = NTF_PROXY;
    const uint32_t sequence = message->nlmsg_seq;
    if (mnl_socket_sendto(changes_.get(), message, message->nlmsg_len) < 0)
        return;
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(changes_.get(), buffer_.data(), buffer_.size());
        if (size <= 0)
            return;
        int left = static_cast<int>(size);
        for (const auto *each = reinterpret_cast<const nlmsghdr *>(buffer_.data()); mnl_nlmsg_ok(each, left);
             each = mnl_nlmsg_next(each, &left)) {
            if (each->nlmsg_seq != sequence)
                continue;
            if (each->nlmsg_type == NLMSG_DONE || each->nlmsg_type == NLMSG_ERROR)
                return;
            const auto *proxy = header_of<ndmsg>(*each);
            if (proxy == nullptr || (proxy->ndm_flags & NTF_PROXY) == 0)
                continue;
            if (const auto key = key_of(*proxy, neighbour_attributes(*each, sizeof(*proxy))))
                visit(*key);
        }
    }
}

} // namespace mixd
