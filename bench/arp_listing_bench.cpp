/*
 * Listing 200,000 ARP entries from a running mixd, beside a bare ping-pong of as many datagrams of the same
 * sizes with a peer that does nothing but echo.
 */
#include <libmix/arp.h>

#include <cstring>
#include <fcntl.h>

#include "appliance/wire/arp.h"
#include "appliance/wire/message.h"
#include "peer.h"
#include "ratio.h"

namespace
{

using namespace mix::wire;
using namespace mixbench;

constexpr uint32_t entries = 200000;
constexpr uint32_t rows_of_a_page = (arp_page_capacity - sizeof(arp_page)) / sizeof(arp_row);
constexpr uint32_t pages = (entries + rows_of_a_page - 1) / rows_of_a_page;
constexpr size_t request_datagram = sizeof(message_header) + sizeof(arp_request);
constexpr size_t reply_datagram =
    sizeof(message_header) + sizeof(arp_page) + rows_of_a_page * sizeof(arp_row);

pid_t mixd = -1;

void start_mixd()
{
    const std::string scenario = folder + "/scenario.toml", store = folder + "/store.db";
    FILE *file = std::fopen(scenario.c_str(), "we");
    if (file == nullptr)
        fail(scenario.c_str());
    std::fprintf(file, "[[arp.many]]\ncount = %u\nfirst = \"10.0.0.1\"\ninterface = \"ge0\"\n", entries);
    std::fclose(file);
    mixd = fork();
    if (mixd == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        execl(MIXD_PROGRAM, "mixd", "--no-catalogue", "--scenario", scenario.c_str(), "--store",
              store.c_str(), nullptr);
        _exit(1);
    }
    for (int i = 0; i < 500; i++, usleep(10000))
        if (get_arp_items_count(0, 0, 0, 0, 0, 0) == static_cast<int>(entries))
            return;
    fail("mixd does not answer");
}

int count_row(const void *, void *context, int)
{
    ++*static_cast<uint32_t *>(context);
    return 0;
}

void get_arp_items_of_mixd(benchmark::State &state)
{
    for (auto _ : state) {
        uint32_t rows = 0;
        if (get_arp_items(0, 0, 0, count_row, &rows, printf, 0, 0) != entries || rows != entries)
            state.SkipWithError("not every entry came");
    }
    state.SetItemsProcessed(state.iterations() * entries);
}
BENCHMARK(get_arp_items_of_mixd)->UseRealTime()->Unit(benchmark::kMillisecond);

/* Answers each request with a page that stands ready. */
void answer_pages(int connection)
{
    static char request[request_datagram], page[reply_datagram];
    while (recv(connection, request, sizeof(request), 0) > 0)
        if (send(connection, page, sizeof(page), MSG_NOSIGNAL) < 0)
            return;
}

void bare_ping_pong(benchmark::State &state)
{
    const int connection = connect_to(folder + "/pages.sock");
    static char request[request_datagram], page[reply_datagram];
    for (auto _ : state)
        for (uint32_t i = 0; i < pages; i++)
            if (send(connection, request, sizeof(request), MSG_NOSIGNAL) < 0 ||
                recv(connection, page, sizeof(page), 0) != static_cast<ssize_t>(sizeof(page)))
                state.SkipWithError("no answer");
    state.SetItemsProcessed(state.iterations() * entries);
    close(connection);
}
BENCHMARK(bare_ping_pong)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char **argv)
{
    make_folder();
    start_mixd();
    start_peer(folder + "/pages.sock", answer_pages);
    const int result =
        mixbench::run(argc, argv, {{"get_arp_items_of_mixd/real_time", "bare_ping_pong/real_time", 1.25}});
    kill(mixd, SIGTERM);
    waitpid(mixd, nullptr, 0);
    remove_folder();
    return result;
}
