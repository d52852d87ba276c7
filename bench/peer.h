/* Small peers in processes of their own, on a folder of sockets that is also the run directory. */
#ifndef MIX_BENCH_PEER_H
#define MIX_BENCH_PEER_H

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "appliance/wire/message.h"

namespace mixbench
{

[[noreturn]] inline void fail(const char *what)
{
    std::perror(what);
    std::exit(1);
}

/* Of sockets; the run directory that the environment names. */
inline std::string folder;

inline int listen_at(const std::string &path)
{
    const int at = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (at < 0 || bind(at, reinterpret_cast<sockaddr *>(&address), sizeof(address)) < 0 || listen(at, 8) < 0)
        fail(path.c_str());
    return at;
}

/* A child that serves one connection after another; it ends with its parent. */
template <class Serve>
void start_peer(const std::string &path, Serve serve)
{
    const int at = listen_at(path);
    if (fork() != 0) {
        close(at);
        return;
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        const int connection = accept(at, nullptr, nullptr);
        if (connection < 0)
            _exit(1);
        serve(connection);
        close(connection);
    }
}

inline int connect_to(const std::string &path)
{
    const int connection = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof(address)) < 0)
        fail(path.c_str());
    return connection;
}

inline void echo(int connection)
{
    char bytes[4096];
    for (ssize_t got; (got = recv(connection, bytes, sizeof(bytes), 0)) > 0;)
        if (send(connection, bytes, static_cast<size_t>(got), MSG_NOSIGNAL) < 0)
            return;
}

/* As little of the appliance's protocol as a client needs. payload(request, reply): the reply's length. */
template <class Payload>
void answer_requests(int connection, Payload payload)
{
    using namespace mix::wire;
    static struct {
        message_header header;
        char payload[4096];
    } received, sent;
    while (recv(connection, &received, sizeof(received), 0) > 0) {
        sent.header = received.header;
        if (received.header.kind == static_cast<uint16_t>(message_kind::hello)) {
            const welcome_payload welcome{
                .version = protocol_version, .reserved = 0, .pid = 1, .daemon_version = {}, .name = {}};
            std::memcpy(sent.payload, &welcome, sizeof(welcome));
            sent.header.length = sizeof(welcome);
            sent.header.kind = static_cast<uint16_t>(message_kind::welcome);
        } else {
            sent.header.length = payload(received.payload, sent.payload);
            sent.header.kind = static_cast<uint16_t>(message_kind::reply);
        }
        if (send(connection, &sent, sizeof(sent.header) + sent.header.length, MSG_NOSIGNAL) < 0)
            return;
    }
}

/*
 * This process and those that it starts take turns on one processor: what a wakeup costs then depends neither
 * on where the scheduler puts the other end nor on how deeply an idle processor sleeps, and what the two ends
 * do can't overlap.
 */
inline void stay_on_one_processor()
{
    cpu_set_t first;
    CPU_ZERO(&first);
    CPU_SET(sched_getcpu(), &first);
    if (sched_setaffinity(0, sizeof(first), &first) < 0)
        fail("sched_setaffinity");
}

inline void make_folder()
{
    char pattern[] = "/tmp/mix-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        fail("mkdtemp");
    folder = pattern;
    setenv("MIX_RUN_DIR", pattern, 1);
}

inline void remove_folder()
{
    const std::string command = "rm -rf '" + folder + "'";
    if (std::system(command.c_str()) != 0)
        fail("rm");
}

} // namespace mixbench

#endif
