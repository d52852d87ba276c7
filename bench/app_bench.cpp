/*
 * The application catalogue. A lookup by name is a scan, so it is held to what memory allows: one cache line
 * of each entry it passes, touched as fast as that can be done (with the same reading ahead), warm and after
 * the segment has been driven out of the caches. The export is held against memcpy of the bytes it writes.
 */
#include "ratio.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/mman.h>

#include "app/app_wire.h"

namespace
{

using mix::wire::app_entries;
using mix::wire::app_first_user_defined;
using mix::wire::app_segment;

/* Where a hit stands: the first, the middle and the last entry.
 * The last is also the whole table of a miss. */
constexpr uint32_t front = 1, middle = app_entries / 2, last = app_entries - 1;

uint8_t *base()
{
    return reinterpret_cast<uint8_t *>(tq_app_ext_table);
}

/* Names differ in their first four bytes as names do: 36^4 beginnings for 16383 entries. */
std::string name_of(uint32_t index)
{
    constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
    std::string out;
    uint64_t mixed = index * 2654435761u % 1679616u;
    for (int i = 0; i < 4; i++, mixed /= 36)
        out += letters[mixed % 36];
    return out + "-application-" + std::to_string(index);
}

/* A full catalogue in memory of this process alone; nothing in /dev/shm is touched. */
void fill()
{
    void *memory = mmap(nullptr, sizeof(app_segment), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED)
        std::abort();
    tq_app_ext_table = static_cast<app_entry *>(memory);
    auto *lock = reinterpret_cast<pthread_rwlock_t *>(base() + offsetof(app_segment, lock));
    pthread_rwlock_init(lock, nullptr);
    app_table_rwlock = lock;
    cur_app_num = reinterpret_cast<uint32_t *>(base() + offsetof(app_segment, cur_app_num));
    cur_predef_app_num = reinterpret_cast<uint32_t *>(base() + offsetof(app_segment, cur_predef_app_num));
    for (uint32_t i = 0; i < app_first_user_defined; i++)
        app_ext_table_add(name_of(i).c_str(), name_of(i).c_str(), 0, static_cast<uint16_t>(i));
    for (uint32_t i = last; i >= app_first_user_defined; i--) {
        *cur_app_num = 0; /* the last entry of all is past the limit that the counter sets */
        app_ext_table_add(name_of(i).c_str(), name_of(i).c_str(), APP_KIND_USER_DEFINED,
                          static_cast<uint16_t>(i));
    }
}

/* Drives the segment out of every cache, line by line. */
void evict()
{
    for (size_t at = 0; at < sizeof(app_segment); at += 64) {
#if defined(__x86_64__)
        __builtin_ia32_clflush(base() + at);
#else
        __asm__ volatile("dc civac, %0" ::"r"(base() + at) : "memory");
#endif
    }
    __sync_synchronize();
}

/* The bound: a word of each entry up to index, read as the scan may read it and nothing else done. */
__attribute__((noinline)) uint32_t touch(uint32_t index)
{
    constexpr size_t ahead = 64;
    uint32_t sum = 0;
    const uint8_t *at = base() + offsetof(app_entry, name_key);
    for (uint32_t i = 0; i <= index; i++, at += sizeof(app_entry)) {
        __builtin_prefetch(
            reinterpret_cast<const void *>(reinterpret_cast<uintptr_t>(at) + ahead * sizeof(app_entry)));
        sum += *reinterpret_cast<const volatile uint32_t *>(at);
    }
    return sum;
}

template <class Call>
void measure(benchmark::State &state, bool cold, const Call &call)
{
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            evict();
            state.ResumeTiming();
        }
        benchmark::DoNotOptimize(call());
    }
}

void lookup(benchmark::State &state, uint32_t index, bool cold)
{
    const std::string name = index <= last ? name_of(index) : "no such application";
    const uint32_t expected = index <= last ? index : 0;
    if (tq_app_name2type(name.c_str()) != expected) {
        state.SkipWithError("the lookup is wrong");
        return;
    }
    measure(state, cold, [&] { return tq_app_name2type(name.c_str()); });
}

void touching(benchmark::State &state, uint32_t index, bool cold)
{
    measure(state, cold, [&] { return touch(index); });
}

constexpr uint32_t none = UINT32_MAX;

#define PAIR(where, index, limit)                                                                            \
    void lookup_##where##_warm(benchmark::State &state)                                                      \
    {                                                                                                        \
        lookup(state, index, false);                                                                         \
    }                                                                                                        \
    void touch_##where##_warm(benchmark::State &state)                                                       \
    {                                                                                                        \
        touching(state, limit, false);                                                                       \
    }                                                                                                        \
    void lookup_##where##_cold(benchmark::State &state)                                                      \
    {                                                                                                        \
        lookup(state, index, true);                                                                          \
    }                                                                                                        \
    void touch_##where##_cold(benchmark::State &state)                                                       \
    {                                                                                                        \
        touching(state, limit, true);                                                                        \
    }                                                                                                        \
    BENCHMARK(lookup_##where##_warm);                                                                        \
    BENCHMARK(touch_##where##_warm);                                                                         \
    BENCHMARK(lookup_##where##_cold)->Iterations(30);                                                        \
    BENCHMARK(touch_##where##_cold)->Iterations(30);

PAIR(front, front, front)
PAIR(middle, middle, middle)
PAIR(end, last, last)
PAIR(miss, none, last)

void by_type(benchmark::State &state)
{
    uint32_t type = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(tq_app_type2name(type));
        type = (type + 7919) % app_entries;
    }
}
BENCHMARK(by_type);

constexpr size_t export_size = size_t{app_entries} * APP_EXPORT_RECORD_SIZE;

uint8_t *buffer(int which)
{
    static uint8_t *two[2] = {static_cast<uint8_t *>(std::calloc(1, export_size)),
                              static_cast<uint8_t *>(std::calloc(1, export_size))};
    return two[which];
}

void export_full(benchmark::State &state)
{
    for (auto _ : state) {
        uint32_t cursor = 0;
        int length = 0;
        tq_get_all_app_to_x86(buffer(0), static_cast<int>(export_size), &cursor, &length);
        if (static_cast<size_t>(length) != export_size)
            state.SkipWithError("the export is not complete");
        benchmark::ClobberMemory();
    }
}
BENCHMARK(export_full);

void export_memcpy(benchmark::State &state)
{
    std::memset(buffer(1), 1, export_size);
    for (auto _ : state) {
        std::memcpy(buffer(0), buffer(1), export_size);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(export_memcpy);

} // namespace

int main(int argc, char **argv)
{
    fill();
    return mixbench::run(argc, argv,
                         {{"lookup_front_warm", "touch_front_warm", 0},
                          {"lookup_middle_warm", "touch_middle_warm", 1.1},
                          {"lookup_end_warm", "touch_end_warm", 1.1},
                          {"lookup_miss_warm", "touch_miss_warm", 1.1},
                          {"lookup_front_cold", "touch_front_cold", 0},
                          {"lookup_middle_cold", "touch_middle_cold", 1.1},
                          {"lookup_end_cold", "touch_end_cold", 1.1},
                          {"lookup_miss_cold", "touch_miss_cold", 1.1},
                          {"export_full", "export_memcpy", 0}});
}
