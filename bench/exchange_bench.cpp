/*
 * A whole get_ipdefrag_para between two processes, beside a bare ping-pong of datagrams of the same sizes on
 * a kept SOCK_SEQPACKET connection. Both peers are as small as they can be: one answers the appliance's
 * protocol, one echoes.
 */
#include <libmix/ipdefrag.h>

#include <sys/stat.h>

#include "appliance/wire/message.h"
#include "peer.h"
#include "ratio.h"

namespace
{

using namespace mix::wire;
using namespace mixbench;

constexpr size_t datagram = sizeof(message_header) + 4; /* request and reply alike */

void answer_with_a_word(int connection)
{
    answer_requests(connection, [](const char *, char *) { return 4u; });
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
    stay_on_one_processor();
    make_folder();
    mkdir((folder + "/node0").c_str(), 0700);
    start_peer(folder + "/node0/0.0.sock", answer_with_a_word);
    start_peer(folder + "/echo.sock", echo);
    const int result = mixbench::run(
        argc, argv, {{"get_ipdefrag_para_between_processes/real_time", "bare_ping_pong/real_time", 1.25}});
    remove_folder();
    return result;
}
