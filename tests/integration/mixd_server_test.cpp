/* mixd's sockets: greetings, bad messages, clients that don't read, many clients. */
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "support/mixd_fixture.h"

using namespace mixtest;
using namespace mix::wire;

namespace
{

constexpr const char *main_daemon = "node0/0.0.sock";
constexpr uint32_t ipdefrag = 38;
const bytes show = {2, 0, 0, 0};

struct mixd_sockets : mixd_test {
};

TEST_F(mixd_sockets, greet_with_protocol_version_and_name_of_the_service)
{
    raw_client client;
    ASSERT_TRUE(client.connect(mixd.socket("node0/0.200.sock")));
    ASSERT_TRUE(client.send(hello_bytes()));
    const auto answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, message_kind::welcome);
    ASSERT_EQ(answer->payload.size(), 72u);
    EXPECT_EQ(answer->payload[0], 1);
    /* Several services share the address: the first one names it, and how many more there are. */
    EXPECT_TRUE(
        std::string(reinterpret_cast<const char *>(answer->payload.data()) + 40).starts_with("gateway"));
}

TEST_F(mixd_sockets, refuse_another_version_with_a_text_that_names_both)
{
    raw_client client;
    ASSERT_TRUE(client.connect(mixd.socket(main_daemon)));
    ASSERT_TRUE(client.send(hello_bytes(7)));
    const auto answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, message_kind::refusal);
    EXPECT_NE(answer->text().find("version 1"), std::string::npos) << answer->text();
    EXPECT_NE(answer->text().find("version 7"), std::string::npos) << answer->text();
    EXPECT_TRUE(client.closed_by_peer());
}

TEST_F(mixd_sockets, answer_a_ping_with_its_own_bytes)
{
    raw_client client;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    ASSERT_TRUE(client.send(message_kind::ping, 0, {9, 8, 7}, 77));
    const auto answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, message_kind::pong);
    EXPECT_EQ(answer->sequence, 77u);
    EXPECT_EQ(answer->payload, (bytes{9, 8, 7}));
}

TEST_F(mixd_sockets, echo_sequence_and_type_in_a_reply)
{
    raw_client client;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    ASSERT_TRUE(client.send(message_kind::request, ipdefrag, show, 0xfffffffe));
    const auto answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, message_kind::reply);
    EXPECT_EQ(answer->sequence, 0xfffffffeu);
    EXPECT_EQ(answer->type, ipdefrag);
    EXPECT_EQ(answer->status, 0);
    EXPECT_EQ(answer->payload.size(), 4u);
}

TEST_F(mixd_sockets, refuse_a_message_type_that_nobody_serves_and_stay_open)
{
    raw_client client;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    const auto refused = client.ask(65000);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, -ENOSYS);
    const auto served = client.ask(ipdefrag, show);
    ASSERT_TRUE(served);
    EXPECT_EQ(served->status, 0);
}

TEST_F(mixd_sockets, never_answer_a_notice)
{
    raw_client client;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    ASSERT_TRUE(client.send(message_kind::notice, ipdefrag, show, 5));
    ASSERT_TRUE(client.send(message_kind::notice, 65000, show, 6));
    ASSERT_TRUE(client.send(message_kind::ping, 0, {}, 7));
    const auto answer = client.receive();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->kind, message_kind::pong);
    EXPECT_EQ(answer->sequence, 7u);
}

struct garbage {
    const char *name;
    bool greeted;
    bytes datagram;
};

bytes header_with(size_t offset, uint8_t value, uint32_t length = 0)
{
    bytes made = record_bytes(make_header(message_kind::request, ipdefrag, 1, 0, length));
    made[offset] = value;
    return made;
}

class garbage_on_a_socket : public mixd_test, public testing::WithParamInterface<garbage>
{
};

TEST_P(garbage_on_a_socket, ends_that_connection_with_a_reason_and_no_other)
{
    raw_client other, bad;
    ASSERT_TRUE(other.open(mixd, main_daemon));
    if (GetParam().greeted)
        ASSERT_TRUE(bad.open(mixd, main_daemon));
    else
        ASSERT_TRUE(bad.connect(mixd.socket(main_daemon)));
    ASSERT_TRUE(bad.send(GetParam().datagram));
    const auto reason = bad.receive();
    ASSERT_TRUE(reason);
    EXPECT_EQ(reason->kind, message_kind::refusal);
    EXPECT_FALSE(reason->text().empty());
    EXPECT_TRUE(bad.closed_by_peer());
    const auto answer = other.ask(ipdefrag, show);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 0);
}

INSTANTIATE_TEST_SUITE_P(every_kind, garbage_on_a_socket,
                         testing::Values(garbage{"one_byte", false, {0x4d}},
                                         garbage{"a_byte_less_than_a_header", true, bytes(23, 0x4d)},
                                         garbage{"wrong_magic", true, header_with(0, 0)},
                                         garbage{"other_version", true, header_with(4, 2)},
                                         garbage{"unknown_kind", true, header_with(6, 99)},
                                         garbage{"a_kind_of_daemons", true, header_with(6, 5)},
                                         garbage{"length_too_large", true, header_with(20, 1)},
                                         garbage{"length_above_any", true, header_with(23, 0xff)},
                                         garbage{"random_bytes", true, bytes(60000, 0x5a)},
                                         garbage{"longer_than_any_message", true, bytes(100000, 0x5a)},
                                         garbage{"request_before_hello", false, header_with(6, 4)},
                                         garbage{"hello_twice", true, hello_bytes()}),
                         [](const auto &one) { return one.param.name; });

TEST_F(mixd_sockets, a_client_that_does_not_read_stalls_nobody)
{
    raw_client slow, other;
    ASSERT_TRUE(slow.open(mixd, main_daemon));
    ASSERT_TRUE(other.open(mixd, main_daemon));
    const bytes large(maximum_payload, 1);
    const timeval soon = {0, 200'000};
    setsockopt(slow.fd(), SOL_SOCKET, SO_SNDTIMEO, &soon, sizeof soon);
    uint32_t sent = 0;
    while (sent < 1000 && slow.send(message_kind::ping, 0, large, sent + 1))
        ++sent;
    EXPECT_LT(sent, 1000u) << "its answers pile up somewhere without a bound";
    for (int i = 0; i < 100; ++i) {
        const auto answer = other.ask(ipdefrag, show);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 0);
    }
    for (uint32_t i = 1; i <= sent; ++i) {
        const auto late = slow.receive();
        ASSERT_TRUE(late) << i;
        ASSERT_EQ(late->sequence, i);
        ASSERT_EQ(late->payload.size(), large.size());
    }
}

TEST_F(mixd_sockets, five_hundred_clients_at_once_are_all_served)
{
    std::vector<std::unique_ptr<raw_client>> clients;
    for (int i = 0; i < 500; ++i) {
        clients.push_back(std::make_unique<raw_client>());
        ASSERT_TRUE(clients.back()->open(mixd, main_daemon)) << i;
    }
    for (auto &client : clients) {
        const auto answer = client->ask(ipdefrag, show);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 0);
    }
}

struct few_descriptors : mixd_test {
    void prepare() override
    {
        mixd.before_exec = [] {
            const rlimit limit = {40, 40}; /* mixd's own take three quarters of them */
            return setrlimit(RLIMIT_NOFILE, &limit) == 0;
        };
    }
};

TEST_F(few_descriptors, turn_clients_away_at_once_and_serve_the_others)
{
    std::vector<std::unique_ptr<raw_client>> clients;
    size_t served = 0, turned_away = 0;
    for (int i = 0; i < 40; ++i) {
        clients.push_back(std::make_unique<raw_client>());
        if (clients.back()->open(mixd, main_daemon))
            ++served;
        else if (clients.back()->closed_by_peer(0))
            ++turned_away;
    }
    EXPECT_GT(served, 5u);
    EXPECT_EQ(served + turned_away, 40u);
    EXPECT_GT(turned_away, 0u);
    const auto answer = clients.front()->ask(ipdefrag, show);
    ASSERT_TRUE(answer);
    clients.resize(2);
    raw_client late;
    EXPECT_TRUE(late.open(mixd, main_daemon));
}

TEST_F(mixd_sockets, are_private_to_their_owner)
{
    struct stat there {
    };
    ASSERT_EQ(stat(mixd.run_dir().c_str(), &there), 0);
    EXPECT_EQ(there.st_mode & 0777, 0700u);
    ASSERT_EQ(stat(mixd.socket(main_daemon).c_str(), &there), 0);
    EXPECT_EQ(there.st_mode & 0777, 0600u);
}

} // namespace
