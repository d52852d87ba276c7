/*
 * libmix's own share of an exchange: the platform answers at once, from buffers that are already there, so
 * that what is left is the frame.
 */
#include <libmix/arp.h>
#include <libmix/ipdefrag.h>

#include <cstring>

#include "platform/ipcmsg.h"
#include "ratio.h"

extern "C" {

static char request_buffer[140], reply_buffer[3000];
static bool request_out;

/* An ARP page of as many rows as fit, which stand in the reply buffer already;
 * so many pages, then the last. */
static constexpr uint32_t arp_rows = 53, arp_pages = 40, arp_page_size = 8 + arp_rows * 56;
static uint32_t arp_pages_left;

static void answer_arp_page(void *reply, uint32_t *reply_length)
{
    const uint32_t head[2] = {--arp_pages_left, arp_rows};
    std::memcpy(reply, head, sizeof(head));
    *reply_length = arp_page_size;
}

void *ipcmsg_alloc(uint32_t)
{
    request_out = !request_out;
    return request_out ? request_buffer : reply_buffer;
}

void ipcmsg_free(void *) {}

int32_t ipcmsg_send_and_recv(uint32_t, uint32_t, uint32_t type, const void *, uint32_t, int32_t *status,
                             void *reply, uint32_t *reply_length, uint32_t)
{
    *status = 0;
    if (type == 4) {
        answer_arp_page(reply, reply_length);
        return 0;
    }
    std::memset(reply, 1, 4);
    *reply_length = 4;
    return 0;
}
}

static void fragment_settings(benchmark::State &state)
{
    uint32_t first, second;
    for (auto _ : state) {
        benchmark::DoNotOptimize(get_ipdefrag_para(&first, &second, nullptr));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(fragment_settings);

static int count_row(const void *row, void *context, int first)
{
    *static_cast<uint32_t *>(context) +=
        *static_cast<const unsigned char *>(row) + 1u + static_cast<unsigned>(first);
    return 0;
}

/* One iteration: 40 pages of 53 rows, each to a callback that does nearly nothing. */
static void arp_listing(benchmark::State &state)
{
    uint32_t sum = 0;
    for (auto _ : state) {
        arp_pages_left = arp_pages;
        benchmark::DoNotOptimize(get_arp_items(0, 0, 0, count_row, &sum, nullptr, 0, 0));
        benchmark::ClobberMemory();
    }
    benchmark::DoNotOptimize(sum);
    state.SetItemsProcessed(state.iterations() * arp_pages * arp_rows);
}
BENCHMARK(arp_listing);

int main(int argc, char **argv)
{
    return mixbench::run(argc, argv, {},
                         {{"fragment_settings", 150}, {"arp_listing", 5, arp_pages * arp_rows, "a row"}});
}
