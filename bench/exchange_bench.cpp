/*
 * A whole get_ipdefrag_para between two processes, beside a bare ping-pong of datagrams of the same sizes on
 * a kept SOCK_SEQPACKET connection. Both peers are as small as they can be: one answers the appliance's
 * protocol, one echoes.
 */
#include <libmix/ipdefrag.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "appliance/wire/message.h"
#include "ratio.h"

namespace
{

using namespace mix::wire;

constexpr size_t datagram = sizeof(message_header) + 4; /* request and reply alike */

[[noreturn]] void fail(const char *what)
{
    std::perror(what);
    std::exit(1);
}

std::string folder;

int listen_at(const std::string &path)
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

void echo(int connection)
{
    char bytes[4096];
    for (ssize_t got; (got = recv(connection, bytes, sizeof(bytes), 0)) > 0;)
        if (send(connection, bytes, static_cast<size_t>(got), MSG_NOSIGNAL) < 0)
            return;
}

void answer_requests(int connection)
{
    struct {
        message_header header;
        char payload[4096];
    } message;
    while (recv(connection, &message, sizeof(message), 0) > 0) {
        uint32_t length = 4;
        if (message.header.kind == static_cast<uint16_t>(message_kind::hello)) {
            welcome_payload welcome{
                .version = protocol_version, .reserved = 0, .pid = 1, .daemon_version = {}, .name = {}};
            std::memcpy(message.payload, &welcome, sizeof(welcome));
            length = sizeof(welcome);
            message.header.kind = static_cast<uint16_t>(message_kind::welcome);
        } else {
            message.header.kind = static_cast<uint16_t>(message_kind::reply);
        }
        message.header.length = length;
        if (send(connection, &message, sizeof(message.header) + length, MSG_NOSIGNAL) < 0)
            return;
    }
}

void get_ipdefrag_para_between_processes(benchmark::State &state)
{
    uint32_t first, second;
    for (auto _ : state)
        if (get_ipdefrag_para(&first, &second, printf) < 0)
            state.SkipWithError("no answer");
}
BENCHMARK(get_ipdefrag_para_between_processes)->UseRealTime();

void bare_ping_pong(benchmark::State &state)
{
    const int connection = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
    (folder + "/echo.sock").copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (connect(connection, reinterpret_cast<sockaddr *>(&address), sizeof(address)) < 0)
        fail("connect");
    char bytes[datagram] = {};
    for (auto _ : state)
        if (send(connection, bytes, sizeof(bytes), MSG_NOSIGNAL) < 0 ||
            recv(connection, bytes, sizeof(bytes), 0) < 0)
            state.SkipWithError("no echo");
    close(connection);
}
BENCHMARK(bare_ping_pong)->UseRealTime();

} // namespace

int main(int argc, char **argv)
{
    char pattern[] = "/tmp/mix-bench-XXXXXX";
    if (mkdtemp(pattern) == nullptr)
        fail("mkdtemp");
    folder = pattern;
    setenv("MIX_RUN_DIR", pattern, 1);
    mkdir((folder + "/node0").c_str(), 0700);
    start_peer(folder + "/node0/0.0.sock", answer_requests);
    start_peer(folder + "/echo.sock", echo);
    const int result = mixbench::run(
        argc, argv, {{"get_ipdefrag_para_between_processes/real_time", "bare_ping_pong/real_time", 1.25}});
    const std::string command = "rm -rf '" + folder + "'";
    return std::system(command.c_str()) != 0 ? 1 : result;
}
