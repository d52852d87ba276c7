#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include <chrono>

#include "appliance/platform/reason.h"
#include "integration/peer.h"
#include "platform/ipcmsg.h"
#include "support/descriptors.h"

using namespace mixtest;

namespace
{

constexpr uint32_t destination = 17, type = 9;

struct outcome {
    int32_t result;
    int32_t status = 4711;
    uint32_t length;
    bytes reply;
    std::string reason;
    int64_t took_ms;
};

outcome ask(const bytes &request, uint32_t capacity = 64, uint32_t timeout_ms = 2000,
            uint32_t to = destination)
{
    outcome out{};
    out.status = 4711;
    out.length = capacity;
    out.reply.assign(capacity + 16, 0xee);
    const auto start = std::chrono::steady_clock::now();
    out.result = ipcmsg_send_and_recv(to, 0, type, request.data(), static_cast<uint32_t>(request.size()),
                                      &out.status, out.reply.data(), &out.length, timeout_ms);
    out.took_ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
            .count();
    out.reason = mixplatform_last_reason();
    return out;
}

bytes first(const bytes &of, size_t count)
{
    return bytes(of.begin(), of.begin() + static_cast<ptrdiff_t>(count));
}

void expect_failure(const outcome &got, const std::string &words)
{
    EXPECT_LT(got.result, 0);
    EXPECT_NE(got.reason.find(words), std::string::npos) << got.reason;
    EXPECT_NE(got.reason.find("message type 9"), std::string::npos) << got.reason;
    EXPECT_EQ(got.status, 4711);
    EXPECT_EQ(got.length, got.reply.size() - 16);
    EXPECT_EQ(got.reply, bytes(got.reply.size(), 0xee));
}

struct transport : run_directory_test {
    std::string here() const { return path("node0/0.17.sock"); }
};

TEST_F(transport, carries_a_request_and_its_reply)
{
    peer daemon(here(), after_welcome([](int fd, const message_header &header, const bytes &payload) {
                    EXPECT_EQ(header.kind, static_cast<uint16_t>(message_kind::request));
                    EXPECT_EQ(header.type, type);
                    EXPECT_EQ(payload, (bytes{1, 2, 3}));
                    put_reply(fd, header, 12, {7, 8});
                }));
    const outcome got = ask({1, 2, 3});
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.status, 12);
    EXPECT_EQ(got.length, 2u);
    EXPECT_EQ(first(got.reply, 3), (bytes{7, 8, 0xee}));
    EXPECT_EQ(got.reason, "");
}

TEST_F(transport, says_hello_with_version_process_and_program)
{
    hello_payload seen{};
    {
        peer daemon(here(), [&](int fd, const message_header &header, const bytes &payload) {
            if (header.kind == static_cast<uint16_t>(message_kind::hello) && payload.size() == sizeof(seen))
                std::memcpy(&seen, payload.data(), sizeof(seen));
            polite(fd, header, payload);
        });
        EXPECT_EQ(ask({1}).result, 0);
    }
    EXPECT_EQ(seen.version, protocol_version);
    EXPECT_EQ(seen.pid, static_cast<uint32_t>(getpid()));
    EXPECT_EQ(std::string(seen.program), std::string(program_invocation_short_name).substr(0, name_size - 1));
}

TEST_F(transport, reply_may_come_into_the_request_buffer)
{
    peer daemon(here());
    uint8_t buffer[4] = {1, 2, 3, 4};
    int32_t status = -1;
    uint32_t length = sizeof(buffer);
    EXPECT_EQ(ipcmsg_send_and_recv_timeout(destination, 0, type, buffer, 2, &status, buffer, &length, 1000),
              0);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(bytes(buffer, buffer + 4), (bytes{1, 2, 3, 4}));
}

TEST_F(transport, keeps_its_connection)
{
    peer daemon(here());
    for (int i = 0; i < 10; i++)
        EXPECT_EQ(ask({1}).result, 0);
    EXPECT_EQ(daemon.accepted, 1);
}

TEST_F(transport, a_negative_status_is_told_and_is_no_failure)
{
    peer daemon(here(), after_welcome([](int fd, const message_header &header, const bytes &) {
                    put_reply(fd, header, -5, {});
                }));
    const outcome got = ask({1});
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.status, -5);
    EXPECT_EQ(got.reason, "daemon 17, message type 9: the daemon answered with status -5");
}

TEST_F(transport, an_absent_daemon_fails_at_once)
{
    const outcome got = ask({1}, 64, 10000);
    expect_failure(got, "no daemon listens at " + here());
    EXPECT_LT(got.took_ms, 1000);
    close(listen_at(here())); /* left over: there, but nobody behind it */
    const outcome stale = ask({1}, 64, 10000);
    expect_failure(stale, "no daemon listens at");
    EXPECT_LT(stale.took_ms, 1000);
}

TEST_F(transport, an_address_that_no_daemon_has_fails)
{
    EXPECT_EQ(mktipcid(0, 0, 17), 17u);
    EXPECT_EQ(mktipcid(3, 0x102, 17), 0x03010211u);
    EXPECT_EQ(mktipcid_by_slot(2, 17), 0x03000011u);
    EXPECT_EQ(mktipcid_by_slot(254, 17), 0xff000011u);
    for (uint32_t none : {mktipcid(256, 0, 17), mktipcid(0, 0, 256), mktipcid_by_slot(255, 17),
                          mktipcid_by_slot(0xffffffff, 17)})
        expect_failure(ask({1}, 8, 10000, none), "no such address");
}

TEST_F(transport, reaches_another_node_in_its_directory_or_where_the_endpoints_say)
{
    std::filesystem::create_directory(path("node2"));
    std::filesystem::create_directory(path("elsewhere"));
    peer there(path("node2/5.17.sock"));
    peer placed(path("elsewhere/0.17.sock"));
    EXPECT_EQ(ask({1}, 8, 1000, mktipcid(2, 5, 17)).result, 0);
    EXPECT_LT(ask({1}, 8, 1000, mktipcid(3, 0, 17)).result, 0);
    FILE *endpoints = fopen(path("endpoints.toml").c_str(), "w");
    fprintf(endpoints, "[node]\n3 = \"%s\"\n", path("elsewhere").c_str());
    fclose(endpoints);
    EXPECT_EQ(ask({1}, 8, 1000, mktipcid(3, 0, 17)).result, 0);
}

TEST_F(transport, a_daemon_that_never_answers_costs_the_timeout)
{
    peer daemon(here(), after_welcome([](int, const message_header &, const bytes &) {}));
    const outcome got = ask({1}, 64, 300);
    expect_failure(got, "no answer in time");
    EXPECT_GE(got.took_ms, 299);
    EXPECT_LT(got.took_ms, 800);
}

TEST_F(transport, a_daemon_that_never_says_welcome_costs_the_timeout)
{
    peer daemon(here(), [](int, const message_header &, const bytes &) {});
    const outcome got = ask({1}, 64, 300);
    expect_failure(got, "no answer in time");
    EXPECT_GE(got.took_ms, 299);
    EXPECT_LT(got.took_ms, 800);
}

TEST_F(transport, a_flood_of_other_answers_does_not_stretch_the_timeout)
{
    std::atomic<bool> over = false;
    std::thread flood;
    {
        peer daemon(here(), after_welcome([&](int fd, const message_header &header, const bytes &) {
                        if (!flood.joinable())
                            flood = std::thread([&over, fd = dup(fd), header] {
                                message_header other = header;
                                for (other.sequence += 1; !over; usleep(1000))
                                    put_reply(fd, other, 0, {1});
                                close(fd);
                            });
                    }));
        const outcome got = ask({1}, 64, 300);
        over = true;
        expect_failure(got, "no answer in time");
        EXPECT_LT(got.took_ms, 800);
    }
    flood.join();
}

TEST_F(transport, a_signal_does_not_end_or_stretch_the_wait)
{
    struct sigaction act = {}, before;
    act.sa_handler = [](int) {};
    sigaction(SIGUSR1, &act, &before);
    peer daemon(here(), after_welcome([](int, const message_header &, const bytes &) {}));
    const pthread_t self = pthread_self();
    std::atomic<bool> over = false;
    std::thread signals([&] {
        while (!over) {
            pthread_kill(self, SIGUSR1);
            usleep(20000);
        }
    });
    const outcome got = ask({1}, 64, 300);
    over = true;
    signals.join();
    sigaction(SIGUSR1, &before, nullptr);
    expect_failure(got, "no answer in time");
    EXPECT_GE(got.took_ms, 299);
    EXPECT_LT(got.took_ms, 800);
}

TEST_F(transport, a_late_answer_is_not_taken_for_the_next_ones)
{
    std::atomic<int> requests = 0;
    peer daemon(here(), after_welcome([&](int fd, const message_header &header, const bytes &payload) {
                    if (++requests == 1)
                        usleep(300 * 1000); /* past the first one's time */
                    put_reply(fd, header, requests, payload);
                }));
    expect_failure(ask({1}, 64, 100), "no answer in time");
    const outcome next = ask({2}, 64, 2000);
    EXPECT_EQ(next.result, 0);
    EXPECT_EQ(next.status, 2);
    EXPECT_EQ(first(next.reply, 1), (bytes{2}));
}

TEST_F(transport, a_reply_of_another_sequence_is_dropped)
{
    peer daemon(here(), after_welcome([](int fd, const message_header &header, const bytes &) {
                    message_header other = header;
                    other.sequence--;
                    put_reply(fd, other, 1, bytes(60, 0x11));
                    put_reply(fd, header, 2, {9});
                }));
    const outcome got = ask({1});
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.status, 2);
    EXPECT_EQ(got.length, 1u);
    EXPECT_EQ(first(got.reply, 2), (bytes{9, 0xee}));
}

TEST_F(transport, an_oversized_reply_tells_its_length_and_is_cut)
{
    peer daemon(here(), after_welcome([](int fd, const message_header &header, const bytes &) {
                    put_reply(fd, header, 0, bytes(3000, 0x11));
                }));
    const outcome got = ask({1}, 4);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(got.length, 3000u);
    EXPECT_EQ(got.reply, [] {
        bytes expected(20, 0xee);
        std::fill_n(expected.begin(), 4, 0x11);
        return expected;
    }());
}

TEST_F(transport, the_longest_messages_pass_and_longer_ones_are_refused)
{
    peer daemon(here());
    const bytes longest(maximum_payload, 0x5a);
    const outcome got = ask(longest, maximum_payload);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(first(got.reply, longest.size()), longest);
    expect_failure(ask(bytes(maximum_payload + 1, 0x5a)), "too long");
}

struct garbage {
    const char *name;
    bytes (*answer)(const message_header &request);
    const char *words;
};

class garbage_answer : public transport, public testing::WithParamInterface<garbage>
{
};

TEST_P(garbage_answer, fails_and_the_next_request_works)
{
    std::atomic<int> requests = 0;
    peer daemon(here(), after_welcome([&](int fd, const message_header &header, const bytes &payload) {
                    if (++requests == 1)
                        put(fd, GetParam().answer(header));
                    else
                        put_reply(fd, header, 0, payload);
                }));
    expect_failure(ask({1}), GetParam().words);
    EXPECT_EQ(ask({1}).result, 0);
}

message_header reply_to(const message_header &request)
{
    return make_header(message_kind::reply, request.type, request.sequence, 0, 0);
}

INSTANTIATE_TEST_SUITE_P(
    all, garbage_answer,
    testing::Values(garbage{"short_header", [](const message_header &) { return bytes(23, 1); },
                            "shorter than its header"},
                    garbage{"wrong_magic",
                            [](const message_header &request) {
                                message_header header = reply_to(request);
                                header.magic++;
                                return datagram(header, {1});
                            },
                            "not of this protocol"},
                    garbage{"length_too_large",
                            [](const message_header &request) {
                                bytes out = datagram(reply_to(request), {1, 2, 3});
                                out.pop_back();
                                return out;
                            },
                            "disagrees"},
                    garbage{"length_too_small",
                            [](const message_header &request) {
                                bytes out = datagram(reply_to(request), {1, 2, 3});
                                out.push_back(4);
                                return out;
                            },
                            "disagrees"},
                    garbage{"longer_than_any_may_be",
                            [](const message_header &request) {
                                return datagram(reply_to(request), bytes(maximum_payload + 1, 0));
                            },
                            "longer than any"},
                    garbage{"another_type",
                            [](const message_header &request) {
                                message_header header = reply_to(request);
                                header.type++;
                                return datagram(header, {1});
                            },
                            "answered for message type 10"},
                    garbage{"empty_datagram", [](const message_header &) { return bytes(); },
                            "closed the connection"}),
    [](const auto &row) { return std::string(row.param.name); });

TEST_F(transport, a_peer_of_another_version_is_told_with_both_versions)
{
    {
        peer daemon(here(), [](int fd, const message_header &, const bytes &) {
            message_header header = make_header(message_kind::refusal, 0, 0, 0, 0);
            header.version = 7;
            const std::string text = "this daemon speaks version 7, you speak version 1";
            put(fd, datagram(header, bytes(text.begin(), text.end())));
        });
        expect_failure(ask({1}), "refused: this daemon speaks version 7, you speak version 1");
    }
    {
        peer daemon(here(), [](int fd, const message_header &, const bytes &) {
            message_header header = make_header(message_kind::welcome, 0, 0, 0, 0);
            header.version = 7;
            put(fd, datagram(header, bytes(sizeof(welcome_payload), 0)));
        });
        expect_failure(ask({1}), "the daemon speaks protocol version 7, this program version 1");
    }
    {
        peer daemon(here(), [](int fd, const message_header &, const bytes &) {
            put(fd, datagram(make_header(message_kind::welcome, 0, 0, 0, 0), {8, 0}));
        });
        expect_failure(ask({1}), "welcome is cut short");
    }
    {
        peer daemon(here(), [](int fd, const message_header &, const bytes &) {
            welcome_payload welcome{8, 0, 1, {}, {}};
            put(fd, datagram(make_header(message_kind::welcome, 0, 0, 0, 0), record_bytes(welcome)));
        });
        expect_failure(ask({1}), "the daemon speaks protocol version 8, this program version 1");
    }
}

TEST_F(transport, a_restarted_daemon_is_found_again_without_a_failure)
{
    {
        peer daemon(here());
        EXPECT_EQ(ask({1}).result, 0);
    }
    peer again(here());
    EXPECT_EQ(ask({2}).result, 0);
    EXPECT_EQ(ask({3}).result, 0);
    EXPECT_EQ(again.accepted, 1);
}

TEST_F(transport, a_daemon_that_dies_over_a_request_fails_it_and_it_is_not_sent_twice)
{
    int told[2];
    ASSERT_EQ(pipe(told), 0);
    const int listening = listen_at(here());
    const pid_t daemon = fork();
    if (daemon == 0) {
        std::atomic<int> accepted = 0;
        int stop[2];
        if (pipe(stop) == 0)
            serve(listening, stop[0], after_welcome([&](int, const message_header &, const bytes &) {
                      if (write(told[1], "x", 1) == 1)
                          raise(SIGKILL);
                  }),
                  accepted);
        _exit(1);
    }
    close(listening);
    const outcome got = ask({1}, 64, 5000);
    expect_failure(got, "closed the connection before it answered");
    EXPECT_LT(got.took_ms, 2000);
    waitpid(daemon, nullptr, 0);
    close(told[1]);
    char marks[4];
    EXPECT_EQ(read(told[0], marks, sizeof(marks)), 1);
    close(told[0]);
}

TEST_F(transport, one_way_messages_arrive_and_are_not_waited_for)
{
    std::atomic<int> notices = 0;
    {
        peer daemon(here(), after_welcome([&](int, const message_header &header, const bytes &payload) {
                        if (header.kind == static_cast<uint16_t>(message_kind::notice) &&
                            header.type == type && payload == bytes{5})
                            notices++;
                    }));
        const uint8_t five = 5;
        EXPECT_EQ(ipcmsg_send(destination, 0, type, &five, 1), 0);
        EXPECT_EQ(ipcmsg_send_timeout(destination, 0, type, &five, 1, 0), 0);
        for (int i = 0; i < 200 && notices < 2; i++)
            usleep(5000);
    }
    EXPECT_EQ(notices, 2);
    EXPECT_LT(ipcmsg_send(destination + 1, 0, type, nullptr, 0), 0);
}

TEST_F(transport, one_way_messages_to_a_daemon_that_does_not_read_end_in_time)
{
    std::atomic<bool> over = false;
    peer daemon(here(), after_welcome([&](int, const message_header &, const bytes &) {
                    while (!over)
                        usleep(1000);
                }));
    const bytes large(60000, 1);
    int32_t result = 0;
    const auto start = std::chrono::steady_clock::now();
    int sent = 0;
    for (; result == 0 && sent < 10000; sent++)
        result = ipcmsg_send_timeout(destination, 0, type, large.data(), 60000, 100);
    EXPECT_LT(result, 0);
    EXPECT_NE(std::string(mixplatform_last_reason()).find("does not take messages in time"),
              std::string::npos);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    over = true;
}

TEST_F(transport, two_threads_and_a_forked_child_each_get_their_own_answers)
{
    peer daemon(here());
    EXPECT_EQ(ask({1}).result, 0);
    const auto many = [](uint8_t mark) {
        for (int i = 0; i < 200; i++) {
            const bytes mine{mark, static_cast<uint8_t>(i)};
            const outcome got = ask(mine);
            if (got.result != 0 || first(got.reply, 2) != mine)
                return false;
        }
        return true;
    };
    const pid_t child = fork();
    if (child == 0)
        _exit(many(3) ? 0 : 1);
    std::atomic<int> good = 0;
    std::thread one([&] { good += many(1); });
    std::thread two([&] { good += many(2); });
    const bool self = many(4);
    one.join();
    two.join();
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(self);
    EXPECT_EQ(good, 2);
    EXPECT_EQ(daemon.accepted, 4); /* one each: nobody used another's */
}

TEST_F(transport, a_forked_child_holds_none_of_its_parents_connections)
{
    peer daemon(here());
    EXPECT_EQ(ask({1}).result, 0);
    EXPECT_GE(client_sockets(), 1u);
    const pid_t child = fork();
    if (child == 0)
        _exit(static_cast<int>(client_sockets()));
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ask({1}).result, 0);
    EXPECT_EQ(daemon.accepted, 1);
}

TEST_F(transport, a_thread_that_ends_leaves_no_descriptor)
{
    peer daemon(here());
    EXPECT_EQ(ask({1}).result, 0);
    const auto settle = [&](size_t wanted) {
        for (int i = 0; i < 400 && open_descriptors() != wanted; i++)
            usleep(5000); /* the peer's end closes a little later */
        return open_descriptors();
    };
    const size_t before = open_descriptors();
    for (int i = 0; i < 50; i++)
        std::thread([] { EXPECT_EQ(ask({1}).result, 0); }).join();
    EXPECT_EQ(settle(before), before);
}

TEST_F(transport, a_thousand_reconnects_leave_no_descriptor)
{
    peer daemon(here(), after_welcome([](int fd, const message_header &header, const bytes &) {
                    put(fd, datagram(make_header(message_kind::refusal, 0, 0, 0, 0), {'n', 'o'}));
                    (void)header;
                }));
    ask({1});
    const size_t before = client_sockets();
    for (int i = 0; i < 1000; i++)
        EXPECT_LT(ask({1}).result, 0);
    EXPECT_EQ(client_sockets(), before);
    EXPECT_EQ(daemon.accepted, 1001);
}

TEST_F(transport, connections_are_closed_on_exec)
{
    peer daemon(here());
    EXPECT_EQ(ask({1}).result, 0);
    int sockets = 0;
    for (const auto &each : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int fd = std::atoi(each.path().filename().c_str());
        int kind = 0;
        socklen_t size = sizeof(kind);
        if (getsockopt(fd, SOL_SOCKET, SO_TYPE, &kind, &size) != 0 || kind != SOCK_SEQPACKET)
            continue; /* no socket, or another one */
        sockets++;
        EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << fd;
    }
    EXPECT_GE(sockets, 3); /* listening, accepted, connected */
}

TEST_F(transport, more_addresses_than_are_kept_all_answer)
{
    std::vector<std::unique_ptr<peer>> daemons;
    for (int i = 0; i < 40; i++)
        daemons.push_back(std::make_unique<peer>(path("node0/" + std::to_string(i) + ".17.sock")));
    for (int round = 0; round < 2; round++)
        for (uint16_t i = 0; i < 40; i++)
            EXPECT_EQ(ask({1}, 8, 1000, mktipcid(0, i, 17)).result, 0) << i;
}

TEST_F(transport, a_socket_of_another_user_is_refused)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can be two users";
    peer daemon(here()); /* root's: good for the child too */
    chmod(place.path().c_str(), 0755);
    chmod(here().c_str(), 0777);
    chmod(path("node0").c_str(), 0777);
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t other = fork();
    if (other == 0) {
        if (setuid(65534) != 0 || ask({1}).result != 0)
            _exit(1); /* root's daemon is trusted by everyone */
        const int listening = listen_at(path("node0/0.18.sock"));
        std::atomic<int> accepted = 0;
        int never[2];
        if (pipe(never) == 0 && write(ready[1], "x", 1) == 1)
            serve(listening, never[0], polite, accepted);
        _exit(2);
    }
    close(ready[1]);
    char mark;
    ASSERT_EQ(read(ready[0], &mark, 1), 1);
    /* root itself must not talk to a daemon that somebody else runs */
    const outcome got = ask({1}, 64, 2000, 18);
    expect_failure(got, "is served by user 65534, who is neither this user nor root");
    close(ready[0]);
    kill(other, SIGKILL);
    waitpid(other, nullptr, 0);
}

TEST(buffers, are_freed_like_any_other_and_none_may_be_freed)
{
    void *buffer = ipcmsg_alloc(2000);
    ASSERT_NE(buffer, nullptr);
    std::memset(buffer, 1, 2000);
    ipcmsg_free(buffer);
    ipcmsg_free(nullptr);
}

} // namespace
