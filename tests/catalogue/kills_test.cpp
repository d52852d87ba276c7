/*
 * Writers are killed at random moments, over and over, and so are processes that come and read: readers never
 * crash and see untouched entries as they were, the writers that are left go on in bounded time, and at the
 * end the counters are exact and whoever comes reads all of it.
 *
 * MIX_TEST_KILLS says how many (default 20); MIX_TEST_SEED repeats a run.
 */
#include "processes.h"

#include <atomic>
#include <cstdlib>
#include <random>

using namespace catalogue;

namespace
{

constexpr int writers = 3;
constexpr double goes_on_within = 5; /* seconds */

struct board {
    std::atomic<bool> stop;
    std::atomic<uint64_t> rounds[writers]; /* each writer counts its own */
    std::atomic<uint64_t> reads;
};

/* Every kind of write, on entries that may be left half-way by whoever was killed before. */
bool write_on(board &on, int number, unsigned seed)
{
    std::mt19937 random(seed);
    const auto first = static_cast<uint16_t>(12000 + 1000 * number);
    for (; !on.stop; ++on.rounds[number]) {
        const auto type = static_cast<uint16_t>(first + random() % 50);
        const std::string name(1 + random() % 120, static_cast<char>('a' + random() % 26));
        const int own = app_ext_table_add(name.c_str(), name.c_str(), 65535, type);
        app_ext_table_add(name.c_str(), name.c_str(), 0, type);
        app_ext_table_add_element(type, 1, 2, 3, name.c_str(), name.c_str(), name.c_str(), name.c_str(),
                                  name.c_str());
        tq_app_modify_category(own, name.c_str(), name.c_str(), name.c_str(), name.c_str());
        tq_app_modify_technology(own, name.c_str());
        tq_app_edit_cn_name(type, name.c_str());
        if (own != 0)
            app_ext_table_del(static_cast<uint16_t>(own), 65535);
        if (tq_get_one_app_table_member(type) != nullptr)
            app_ext_table_del(type, 0);
    }
    return true;
}

/* A part of the catalogue, from entry `at` on, and one page of the export. False: something is not as it must
 * be. */
bool read_part(uint32_t &at, uint32_t steady)
{
    std::vector<uint8_t> page(50 * 686);
    if (tq_app_name2type("FTPS-DATA") != 6102 || tq_app_name2type_cn("域名系统") != tq_app_name2type("dns") ||
        tq_app_userdefined_name2type("Steady") != steady ||
        std::string(tq_app_type2category(steady)) != "Steady category")
        return false;
    for (int i = 0; i < 500; i++, at = (at + 1) % entry_count)
        if (!texts_end(at))
            return false;
    uint32_t cursor = at;
    int length = 0;
    return tq_get_all_app_to_x86(page.data(), static_cast<int>(page.size()), &cursor, &length) == 0;
}

bool read_on(board &on, uint32_t steady)
{
    for (uint32_t at = 0; !on.stop; ++on.reads)
        if (!read_part(at, steady))
            return false;
    return true;
}

/* A process that comes, attaches and reads all of it. */
bool visit(uint32_t steady)
{
    detach();
    tq_app_table_init();
    uint32_t at = 0;
    for (uint32_t read = 0; read < entry_count; read += 500)
        if (!read_part(at, steady))
            return false;
    return true;
}

using killing = with_mixd;

TEST_F(killing, of_writers_at_random_moments_stops_nobody_else)
{
    const unsigned kills = from_environment("MIX_TEST_KILLS", 20);
    const unsigned seed = from_environment("MIX_TEST_SEED", static_cast<unsigned>(getpid()));
    SCOPED_TRACE("MIX_TEST_SEED=" + std::to_string(seed));
    start_and_attach();
    const auto steady = static_cast<uint32_t>(app_ext_table_add("Steady", "Steady", 65535, 1));
    tq_app_modify_category(static_cast<int>(steady), "Steady category", "x", "x", "x");
    std::vector<uint8_t> untouched(reinterpret_cast<uint8_t *>(tq_app_ext_table),
                                   reinterpret_cast<uint8_t *>(tq_app_ext_table + 12000));

    const shared<board> on;
    const pid_t reader = beside([&] { return read_on(*on, steady); });
    std::mt19937 random(seed);
    std::vector<pid_t> all;
    const auto start_writer = [&](int number) {
        const unsigned its_seed = random();
        return beside([&, number, its_seed] { return write_on(*on, number, its_seed); });
    };
    for (int i = 0; i < writers; i++)
        all.push_back(start_writer(i));

    const auto freed = [&] {
        const std::string log = mixd.log();
        size_t times = 0;
        for (size_t at = 0; (at = log.find("its lock is free again", at)) != std::string::npos; at++)
            times++;
        return times;
    };

    double longest = 0;
    unsigned done = 0;
    /* On until one was inside the lock at least: a run without has tested nothing. */
    for (; (done < kills || (freed() == 0 && done < 1000)) && !HasFailure(); done++) {
        usleep(random() % 3000);
        const auto victim = random() % writers;
        kill(all[victim], SIGKILL);
        const bool buried_at_once = random() % 2 == 0;
        if (buried_at_once)
            waitpid(all[victim], nullptr, 0);
        uint64_t before[writers];
        std::copy(std::begin(on->rounds), std::end(on->rounds), before);
        const double start = seconds();
        for (size_t other = 0; other < writers; other++) {
            if (other == victim)
                continue;
            EXPECT_TRUE(within(goes_on_within, [&] { return on->rounds[other] > before[other] + 1; }))
                << "kill " << done << ": writer " << other << " stands still\n"
                << mixd.log();
        }
        longest = std::max(longest, seconds() - start);
        if (!buried_at_once)
            waitpid(all[victim], nullptr, 0);
        const pid_t visitor = beside([&] { return visit(steady); });
        usleep(random() % 2000);
        end(visitor);
        all[victim] = start_writer(static_cast<int>(victim));
    }
    on->stop = true;
    for (pid_t writer : all)
        EXPECT_TRUE(ends_well(writer, goes_on_within));
    EXPECT_TRUE(ends_well(reader, 10)) << "the reader saw what it should not";
    EXPECT_GT(on->reads, 0u);
    EXPECT_TRUE(ends_well(beside([&] { return visit(steady); }), 10)) << "who comes afterwards can't read it";

    std::printf("%u kills, %zu of them inside the lock; the longest wait was %.3f s\n", done, freed(),
                longest);
    EXPECT_GT(freed(), 0u) << "no writer was killed while it held the lock: this run has tested nothing";
    expect_exact_counters();
    EXPECT_EQ(std::vector<uint8_t>(reinterpret_cast<uint8_t *>(tq_app_ext_table),
                                   reinterpret_cast<uint8_t *>(tq_app_ext_table + 12000)),
              untouched);
    EXPECT_TRUE(mixd.running());
}

} // namespace
