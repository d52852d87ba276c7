/*
 * Listing 200,000 ARP entries, beside a bare ping-pong of as many datagrams of the same sizes. The bound
 * holds for libmix and the transport: its peer has every page ready. What a running mixd adds, with its event
 * loop and the copying of rows out of its table, is shown as well.
 */
#include <libmix/arp.h>

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>

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

void list(benchmark::State &state, uint32_t node)
{
    for (auto _ : state) {
        uint32_t rows = 0;
        if (get_arp_items_detail(0, 0, 0, 0, count_row, &rows, printf, 0, 0, node, 0) != entries ||
            rows != entries)
            state.SkipWithError("not every entry came");
    }
    state.SetItemsProcessed(state.iterations() * entries);
}

constexpr uint32_t peers_node = 3; /* where mixd has no board */

void get_arp_items_of_a_peer(benchmark::State &state)
{
    list(state, peers_node);
}
BENCHMARK(get_arp_items_of_a_peer)->UseRealTime()->Unit(benchmark::kMillisecond);

void get_arp_items_of_mixd(benchmark::State &state)
{
    list(state, 0);
}
BENCHMARK(get_arp_items_of_mixd)->UseRealTime()->Unit(benchmark::kMillisecond);

/* The cursor is the number of rows before the page. */
void answer_listings(int connection)
{
    answer_requests(connection, [](const char *request, char *reply) {
        arp_request wanted;
        std::memcpy(&wanted, request, sizeof(wanted));
        const uint32_t end = std::min(entries, wanted.cursor + rows_of_a_page);
        const arp_page page{.cursor = end < entries ? end : 0, .count = end - wanted.cursor};
        std::memcpy(reply, &page, sizeof(page));
        return static_cast<uint32_t>(sizeof(page) + page.count * sizeof(arp_row));
    });
}

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
    stay_on_one_processor();
    make_folder();
    start_mixd();
    mkdir((folder + "/node3").c_str(), 0700);
    start_peer(folder + "/node3/0.0.sock", answer_listings);
    start_peer(folder + "/pages.sock", answer_pages);
    const int result = mixbench::run(argc, argv,
                                     {{"get_arp_items_of_a_peer/real_time", "bare_ping_pong/real_time", 1.25},
                                      {"get_arp_items_of_mixd/real_time", "bare_ping_pong/real_time", 0}});
    kill(mixd, SIGTERM);
    waitpid(mixd, nullptr, 0);
    remove_folder();
    return result;
}
