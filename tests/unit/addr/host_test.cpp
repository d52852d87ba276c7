/* Asking the kernel, on real sockets and interfaces; and on a kernel that this file plays, for what a real
 * one does not do. */
#include <libmix/ip_util.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "support/descriptors.h"
#include "support/net_namespace.h"

namespace
{

/* What the played kernel does. Unset: the real one answers. */
struct played_kernel {
    bool no_socket = false;
    std::vector<std::pair<int, int>> sockets; /* domain and type of each */
    std::function<int(unsigned long request, void *argument)> on_ioctl;
    std::function<int(int level, int option, const void *value, socklen_t length)> on_set;
    std::function<int(int level, int option, void *value, socklen_t *length)> on_get;
};
played_kernel kernel;

class played : public testing::Test
{
  protected:
    void SetUp() override { kernel = {}; }
    void TearDown() override { kernel = {}; }
};

} // namespace

extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    if (kernel.no_socket) {
        errno = EMFILE;
        return -1;
    }
    kernel.sockets.emplace_back(domain, type);
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void *argument = va_arg(arguments, void *);
    va_end(arguments);
    if (kernel.on_ioctl)
        return kernel.on_ioctl(request, argument);
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

int setsockopt(int fd, int level, int option, const void *value, socklen_t length) noexcept
{
    if (kernel.on_set)
        return kernel.on_set(level, option, value, length);
    return static_cast<int>(syscall(SYS_setsockopt, fd, level, option, value, length));
}

int getsockopt(int fd, int level, int option, void *value, socklen_t *length) noexcept
{
    if (kernel.on_get)
        return kernel.on_get(level, option, value, length);
    return static_cast<int>(syscall(SYS_getsockopt, fd, level, option, value, length));
}
}

namespace
{

/* --- is_linux_ip --- */

uint32_t network_order(const std::string &text)
{
    return inet_addr(text.c_str());
}

void put_address(ifreq &record, uint32_t address)
{
    sockaddr_in socket_address = {};
    socket_address.sin_family = AF_INET;
    socket_address.sin_addr.s_addr = address;
    std::memcpy(&record.ifr_addr, &socket_address, sizeof(socket_address));
}

/* Gives an address to an interface, or to an alias of it ("lo:1"). */
void set_address(const std::string &label, const std::string &address)
{
    ifreq request = {};
    std::strncpy(request.ifr_name, label.c_str(), IFNAMSIZ - 1);
    put_address(request, network_order(address));
    const int sock = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(ioctl(sock, SIOCSIFADDR, &request), 0) << label << ": " << std::strerror(errno);
    close(sock);
}

TEST(is_linux_ip, knows_the_loopback_in_network_order)
{
    MIX_IN_NET_NAMESPACE([] {
        EXPECT_EQ(is_linux_ip(network_order("127.0.0.1")), 1);
        EXPECT_EQ(is_linux_ip(ntohl(network_order("127.0.0.1"))), 0);
        EXPECT_EQ(is_linux_ip(network_order("127.0.0.2")), 0);
        EXPECT_EQ(is_linux_ip(0), 0);
    });
}

TEST(is_linux_ip, follows_addresses_as_they_come_and_go)
{
    MIX_IN_NET_NAMESPACE([] {
        EXPECT_EQ(is_linux_ip(network_order("192.0.2.1")), 0);
        set_address("lo:1", "192.0.2.1");
        set_address("lo:2", "198.51.100.1");
        EXPECT_EQ(is_linux_ip(network_order("192.0.2.1")), 1);
        EXPECT_EQ(is_linux_ip(network_order("198.51.100.1")), 1);
        set_address("lo:1", "0.0.0.0"); /* takes the alias away */
        EXPECT_EQ(is_linux_ip(network_order("192.0.2.1")), 0);
        EXPECT_EQ(is_linux_ip(network_order("198.51.100.1")), 1);
    });
}

TEST(is_linux_ip, looks_at_64_addresses)
{
    MIX_IN_NET_NAMESPACE([] {
        for (int i = 1; i <= 66; i++)
            set_address("lo:" + std::to_string(i), "192.0.2." + std::to_string(i));
        EXPECT_EQ(is_linux_ip(network_order("127.0.0.1")), 1);
        EXPECT_EQ(is_linux_ip(network_order("192.0.2.63")), 1) << "the 64th";
        EXPECT_EQ(is_linux_ip(network_order("192.0.2.64")), 0) << "the 65th";
    });
}

TEST(is_linux_ip, leaves_no_descriptor_open)
{
    const size_t before = mixtest::open_descriptors();
    is_linux_ip(network_order("127.0.0.1"));
    is_linux_ip(network_order("192.0.2.1"));
    EXPECT_EQ(mixtest::open_descriptors(), before);
}

using is_linux_ip_played = played;

TEST_F(is_linux_ip_played, knows_nothing_without_a_socket)
{
    kernel.no_socket = true;
    EXPECT_EQ(is_linux_ip(network_order("127.0.0.1")), 0);
}

TEST_F(is_linux_ip_played, knows_nothing_without_a_list)
{
    const size_t before = mixtest::open_descriptors();
    kernel.on_ioctl = [](unsigned long request, void *) {
        EXPECT_EQ(request, static_cast<unsigned long>(SIOCGIFCONF));
        return -1;
    };
    EXPECT_EQ(is_linux_ip(0), 0);
    EXPECT_EQ(mixtest::open_descriptors(), before);
    ASSERT_EQ(kernel.sockets.size(), 1u);
    EXPECT_EQ(kernel.sockets[0].first, AF_INET);
    EXPECT_EQ(kernel.sockets[0].second & ~(SOCK_CLOEXEC | SOCK_NONBLOCK), SOCK_DGRAM);
}

TEST_F(is_linux_ip_played, asks_for_each_record_from_the_last_to_the_first)
{
    std::vector<std::string> asked;
    kernel.on_ioctl = [&](unsigned long request, void *argument) {
        if (request == SIOCGIFCONF) {
            auto *list = static_cast<ifconf *>(argument);
            EXPECT_EQ(list->ifc_len, 2560);
            for (const char byte : std::string(list->ifc_buf, 2560))
                EXPECT_EQ(byte, 0);
            for (int i = 0; i < 3; i++) {
                std::strcpy(list->ifc_req[i].ifr_name, ("if" + std::to_string(i)).c_str());
                put_address(list->ifc_req[i], network_order("192.0.2.9"));
            }
            list->ifc_len = 3 * 40;
            return 0;
        }
        EXPECT_EQ(request, static_cast<unsigned long>(SIOCGIFADDR));
        auto *record = static_cast<ifreq *>(argument);
        asked.emplace_back(record->ifr_name);
        /* The list's own record: by its address the kernel tells an interface's addresses apart. */
        sockaddr_in listed = {};
        std::memcpy(&listed, &record->ifr_addr, sizeof listed);
        EXPECT_EQ(listed.sin_family, AF_INET);
        EXPECT_EQ(listed.sin_addr.s_addr, network_order("192.0.2.9"));
        if (asked.back() == "if2")
            return -1; /* gone since: what the list said doesn't count */
        put_address(*record, network_order(asked.back() == "if1" ? "192.0.2.1" : "192.0.2.0"));
        return 0;
    };
    EXPECT_EQ(is_linux_ip(network_order("192.0.2.1")), 1);
    EXPECT_EQ(asked, (std::vector<std::string>{"if2", "if1"}));
    asked.clear();
    EXPECT_EQ(is_linux_ip(network_order("192.0.2.9")), 0) << "only the address asked for counts";
    EXPECT_EQ(asked, (std::vector<std::string>{"if2", "if1", "if0"}));
}

/* --- get_tcp_sock_if_index on real connections --- */

struct connection {
    int listener = -1, client = -1, server = -1;
    ~connection()
    {
        for (const int fd : {listener, client, server}) {
            if (fd >= 0)
                close(fd);
        }
    }
};

template <class Address>
bool listen_at(connection &c, Address &address)
{
    socklen_t length = sizeof(address);
    c.listener = socket(reinterpret_cast<sockaddr *>(&address)->sa_family, SOCK_STREAM, 0);
    return bind(c.listener, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
           listen(c.listener, 1) == 0 &&
           getsockname(c.listener, reinterpret_cast<sockaddr *>(&address), &length) == 0;
}

template <class Address>
bool connect_to(connection &c, Address &address)
{
    c.client = socket(reinterpret_cast<sockaddr *>(&address)->sa_family, SOCK_STREAM, 0);
    return connect(c.client, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
}

sockaddr_in ipv4_at(const char *text)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(text);
    return address;
}

sockaddr_in6 ipv6_at(const char *text)
{
    sockaddr_in6 address = {};
    address.sin6_family = AF_INET6;
    inet_pton(AF_INET6, text, &address.sin6_addr);
    return address;
}

template <class Address>
void accept_on_loopback(Address address, uint16_t family, uint16_t other_family)
{
    connection c;
    ASSERT_TRUE(listen_at(c, address)) << std::strerror(errno);
    ASSERT_TRUE(connect_to(c, address)) << std::strerror(errno);
    c.server = accept(c.listener, nullptr, nullptr);
    ASSERT_GE(c.server, 0);
    EXPECT_EQ(get_tcp_sock_if_index(c.server, family), static_cast<int>(if_nametoindex("lo")));
    EXPECT_EQ(get_tcp_sock_if_index(c.server, family), static_cast<int>(if_nametoindex("lo"))) << "again";
    for (const uint16_t none : {0, 1, 17, 65535})
        EXPECT_EQ(get_tcp_sock_if_index(c.server, none), -1) << none;
    if (other_family != 0) {
        EXPECT_EQ(get_tcp_sock_if_index(c.server, other_family), -1);
    }
}

TEST(get_tcp_sock_if_index, names_the_loopback)
{
    accept_on_loopback(ipv4_at("127.0.0.1"), AF_INET, AF_INET6);
}

TEST(get_tcp_sock_if_index, names_the_loopback_of_an_ipv6_connection)
{
    MIX_IN_NET_NAMESPACE([] { accept_on_loopback(ipv6_at("::1"), AF_INET6, 0); });
}

TEST(get_tcp_sock_if_index, fails_without_a_stream_socket)
{
    const int datagram = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(get_tcp_sock_if_index(datagram, AF_INET), -1);
    close(datagram);
    EXPECT_EQ(get_tcp_sock_if_index(-1, AF_INET), -1);
    EXPECT_EQ(get_tcp_sock_if_index(-1, AF_INET6), -1);
    EXPECT_EQ(get_tcp_sock_if_index(-1, 17), -1);
}

int run(const std::string &command)
{
    return std::system((command + " >/dev/null 2>&1").c_str());
}

/* Two namespaces on a wire: the far end, in a child of its own, connects to the near end. */
template <class Address>
void accept_over_a_wire(Address address, uint16_t family)
{
    int wired[2];
    ASSERT_EQ(pipe2(wired, O_CLOEXEC), 0);
    int there[2];
    ASSERT_EQ(pipe2(there, O_CLOEXEC), 0);
    ASSERT_EQ(run("ip link add filler type veth peer name filler2; ip link add near type veth peer name far"),
              0);
    connection c;
    const pid_t far = fork();
    if (far == 0) {
        char go;
        if (unshare(CLONE_NEWNET) != 0 || write(there[1], "x", 1) != 1 || read(wired[0], &go, 1) != 1)
            _exit(1);
        run("ip addr add 198.51.100.2/24 dev far; ip addr add 2001:db8::2/64 dev far nodad; ip link set far "
            "up");
        if (read(wired[0], &address, sizeof(address)) != sizeof(address))
            _exit(1);
        for (int left = 50; left > 0 && !connect_to(c, address); left--) {
            close(c.client);
            usleep(100000);
        }
        _exit(read(wired[0], &go, 1) == 1 ? 0 : 1);
    }
    char ready;
    ASSERT_EQ(read(there[0], &ready, 1), 1);
    ASSERT_EQ(run("ip link set far netns " + std::to_string(far) +
                  " && ip addr add 198.51.100.1/24 dev near && ip addr add 2001:db8::1/64 dev near nodad"
                  " && ip link set near up"),
              0);
    ASSERT_EQ(write(wired[1], "x", 1), 1);
    ASSERT_TRUE(listen_at(c, address)) << std::strerror(errno);
    ASSERT_EQ(write(wired[1], &address, sizeof(address)), static_cast<ssize_t>(sizeof(address)));
    const timeval limit{10, 0};
    setsockopt(c.listener, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    c.server = accept(c.listener, nullptr, nullptr);
    ASSERT_GE(c.server, 0) << std::strerror(errno);
    EXPECT_NE(if_nametoindex("near"), if_nametoindex("lo"));
    EXPECT_EQ(get_tcp_sock_if_index(c.server, family), static_cast<int>(if_nametoindex("near")));
    ASSERT_EQ(write(wired[1], "x", 1), 1);
    int status = 1;
    waitpid(far, &status, 0);
    EXPECT_EQ(status, 0);
}

bool has_wires()
{
    return mixtest::in_net_namespace([] { EXPECT_EQ(run("ip link add near type veth peer name far"), 0); }) ==
           mixtest::namespace_outcome::passed;
}

TEST(get_tcp_sock_if_index, names_the_interface_that_the_connection_came_in_on)
{
    if (!has_wires())
        GTEST_SKIP() << "virtual wires can't be made here";
    MIX_IN_NET_NAMESPACE([] { accept_over_a_wire(ipv4_at("198.51.100.1"), AF_INET); });
}

TEST(get_tcp_sock_if_index, names_the_interface_of_an_ipv6_connection)
{
    if (!has_wires())
        GTEST_SKIP() << "virtual wires can't be made here";
    MIX_IN_NET_NAMESPACE([] { accept_over_a_wire(ipv6_at("2001:db8::1"), AF_INET6); });
}

/* --- get_tcp_sock_if_index on answers that a kernel would not give --- */

using octets = std::vector<uint8_t>;

/* Padded to the next message's start. */
octets message(uint64_t length, int32_t level, int32_t type, const octets &data)
{
    octets bytes((16 + data.size() + 7) / 8 * 8, 0xEE);
    std::memcpy(bytes.data(), &length, 8);
    std::memcpy(bytes.data() + 8, &level, 4);
    std::memcpy(bytes.data() + 12, &type, 4);
    std::copy(data.begin(), data.end(), bytes.begin() + 16);
    return bytes;
}

octets joined(std::initializer_list<octets> parts)
{
    octets all;
    for (const octets &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

const octets ipv4_data = {7, 6, 5, 4, 1, 1, 1, 1, 2, 2, 2, 2}; /* index 0x04050607 */
const octets ipv6_data = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 7, 6, 5, 4};

int answered(uint16_t family, const octets &with)
{
    int asked = 0;
    kernel.on_set = [&](int level, int option, const void *value, socklen_t length) {
        int on;
        EXPECT_EQ(length, sizeof(on));
        std::memcpy(&on, value, sizeof(on));
        EXPECT_EQ(on, 1);
        EXPECT_EQ(level, family == AF_INET ? 0 : 41);
        EXPECT_EQ(option, family == AF_INET ? 8 : 2);
        asked++;
        return 0;
    };
    kernel.on_get = [&](int level, int option, void *value, socklen_t *length) {
        EXPECT_EQ(asked, 1) << "read before it is turned on";
        EXPECT_EQ(level, family == AF_INET ? 0 : 41);
        EXPECT_EQ(option, family == AF_INET ? 9 : 6);
        EXPECT_EQ(*length, 1024u);
        EXPECT_EQ(octets(static_cast<uint8_t *>(value), static_cast<uint8_t *>(value) + 1024), octets(1024));
        EXPECT_LE(with.size(), 1024u);
        std::copy(with.begin(), with.end(), static_cast<uint8_t *>(value));
        *length = static_cast<socklen_t>(with.size());
        return 0;
    };
    const int index = get_tcp_sock_if_index(0, family);
    kernel = {};
    return index;
}

using control_messages = played;

TEST_F(control_messages, give_the_index_of_the_first_that_names_an_interface)
{
    const octets second = {1, 0, 0, 0};
    EXPECT_EQ(answered(AF_INET, message(28, 0, 8, ipv4_data)), 0x04050607);
    EXPECT_EQ(answered(AF_INET6, message(36, 41, 2, ipv6_data)), 0x04050607);
    EXPECT_EQ(answered(AF_INET, joined({message(28, 0, 8, ipv4_data), message(20, 0, 8, second)})),
              0x04050607);
}

TEST_F(control_messages, of_another_level_or_type_are_stepped_over)
{
    for (const octets &other : {message(21, 0, 2, octets(5, 1)), message(28, 41, 8, ipv4_data),
                                message(16, 0, 9, {}), message(24, 0, 0, octets(8, 8))})
        EXPECT_EQ(answered(AF_INET, joined({other, message(28, 0, 8, ipv4_data)})), 0x04050607);
    EXPECT_EQ(answered(AF_INET6, joined({message(36, 41, 50, ipv6_data), message(36, 0, 2, ipv6_data),
                                         message(36, 41, 2, ipv6_data)})),
              0x04050607);
    EXPECT_EQ(answered(AF_INET, message(36, 41, 2, ipv6_data)), -1);
    EXPECT_EQ(answered(AF_INET6, message(28, 0, 8, ipv4_data)), -1);
}

TEST_F(control_messages, end_where_a_length_is_below_16)
{
    EXPECT_EQ(answered(AF_INET, {}), -1);
    for (const uint64_t length : {0, 1, 15})
        EXPECT_EQ(answered(AF_INET, joined({message(length, 0, 8, ipv4_data), message(28, 0, 8, ipv4_data)})),
                  -1);
    EXPECT_EQ(answered(AF_INET, joined({message(16, 0, 2, {}), message(15, 0, 8, ipv4_data)})), -1);
}

TEST_F(control_messages, may_fill_the_buffer_but_not_run_past_it)
{
    const auto behind = [](size_t at, uint64_t length, const octets &data) {
        return joined({message(at, 0, 2, octets(at - 16)), message(length, 0, 8, data)});
    };
    EXPECT_EQ(answered(AF_INET, behind(1000, 24, octets(ipv4_data.begin(), ipv4_data.begin() + 8))),
              0x04050607);
    EXPECT_EQ(answered(AF_INET, behind(1000, 25, octets(ipv4_data.begin(), ipv4_data.begin() + 8))), -1);
    EXPECT_EQ(answered(AF_INET, behind(1000, ~uint64_t{0}, octets(ipv4_data.begin(), ipv4_data.begin() + 8))),
              -1);
    EXPECT_EQ(answered(AF_INET, behind(1000, ~uint64_t{0} - 999, octets(8))), -1);
    /* the header fits, its data does not */
    EXPECT_EQ(answered(AF_INET, behind(1008, 16, {})), -1);
    /* the next header does not fit */
    EXPECT_EQ(answered(AF_INET, message(1016, 0, 2, octets(1000))), -1);
    EXPECT_EQ(answered(AF_INET, message(1024, 0, 2, octets(1008))), -1);
    EXPECT_EQ(answered(AF_INET, message(1025, 0, 2, octets(1008))), -1);
    EXPECT_EQ(answered(AF_INET, message(~uint64_t{0}, 0, 2, octets(8))), -1);
}

TEST_F(control_messages, too_short_for_their_index_don_t_give_one)
{
    EXPECT_EQ(answered(AF_INET, message(19, 0, 8, ipv4_data)), -1);
    EXPECT_EQ(answered(AF_INET, message(20, 0, 8, ipv4_data)), 0x04050607);
    EXPECT_EQ(answered(AF_INET6, message(35, 41, 2, ipv6_data)), -1);
    EXPECT_EQ(answered(AF_INET6, message(36, 41, 2, ipv6_data)), 0x04050607);
}

TEST_F(control_messages, are_not_read_when_they_can_t_be_turned_on)
{
    for (const uint16_t family : {AF_INET, AF_INET6}) {
        kernel.on_set = [](int, int, const void *, socklen_t) { return -1; };
        kernel.on_get = [](int, int, void *, socklen_t *) {
            ADD_FAILURE() << "read";
            return 0;
        };
        EXPECT_EQ(get_tcp_sock_if_index(0, family), -1);
    }
}

TEST_F(control_messages, that_can_t_be_read_give_no_index)
{
    kernel.on_set = [](int, int, const void *, socklen_t) { return 0; };
    kernel.on_get = [](int, int, void *, socklen_t *) { return -1; };
    EXPECT_EQ(get_tcp_sock_if_index(0, AF_INET), -1);
    EXPECT_EQ(get_tcp_sock_if_index(0, AF_INET6), -1);
}

TEST_F(control_messages, are_not_asked_for_in_another_family)
{
    kernel.on_set = [](int, int, const void *, socklen_t) {
        ADD_FAILURE() << "asked";
        return 0;
    };
    for (const uint16_t family : {0, 1, 17, 0x0A02})
        EXPECT_EQ(get_tcp_sock_if_index(0, family), -1);
}

} // namespace
