/*
 * A whole get_ipdefrag_para between two processes, beside a bare ping-pong of datagrams of the same sizes on
 * a kept SOCK_SEQPACKET connection. Both peers are as small as they can be: one answers the appliance's
 * protocol, one echoes.
 */
#include <libmix/ipdefrag.h>

#include <cstring>

#include <sys/stat.h>

#include "appliance/wire/message.h"
#include "peer.h"
#include "ratio.h"

namespace
{

using namespace mix::wire;
using namespace mixbench;

constexpr size_t datagram = sizeof(message_header) + 4; /* request and reply alike */

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
    const int connection = connect_to(folder + "/echo.sock");
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
    make_folder();
    mkdir((folder + "/node0").c_str(), 0700);
    start_peer(folder + "/node0/0.0.sock", answer_requests);
    start_peer(folder + "/echo.sock", echo);
    const int result = mixbench::run(
        argc, argv, {{"get_ipdefrag_para_between_processes/real_time", "bare_ping_pong/real_time", 1.25}});
    remove_folder();
    return result;
}
