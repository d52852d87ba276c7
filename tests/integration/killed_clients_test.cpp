/*
 * mixd is killed at random moments, over and over, while clients list and commit: every call returns within
 * its timeouts, every commit that was acknowledged is there afterwards, no client hangs or loses descriptors.
 *
 * MIX_TEST_KILLS says how many times (default 30); MIX_TEST_SEED repeats a run.
 */
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <set>

#include <libmix/arp.h>
#include <libmix/ipdefrag.h>
#include <libmix/mac.h>

#include "support/children.h"
#include "support/descriptors.h"
#include "support/mixd_fixture.h"

using namespace mixtest;

namespace
{

constexpr size_t listed_rows = 400;                  /* of the scenario: eight pages of ARP rows */
constexpr double page_limit = 0.5, commit_limit = 5; /* timeouts of one exchange, in seconds */
constexpr double slack = 2;                          /* a loaded machine */
constexpr double goes_on_within = 15;
constexpr unsigned enough_kills = 300; /* to hit something under way, instrumented code too */

/* One client's, written by it alone. */
struct client_state {
    std::atomic<uint64_t> good, failed;
    std::atomic<uint64_t> cut;   /* listings that ended half-way, commits that no answer came to */
    std::atomic<double> longest; /* call, as a part of what its timeouts allow */
    char complaint[256];
};
struct board {
    std::atomic<bool> stop;
    client_state of[4];
};

thread_local bool told; /* something was printed: the call failed */

int print(const char *, ...)
{
    told = true;
    return 0;
}

/* A call that may take so long at most; true when it was told of no failure. */
template <class Call>
bool timed(client_state &mine, double limit, Call &&call)
{
    told = false;
    const double start = seconds();
    call();
    mine.longest = std::max(mine.longest.load(), (seconds() - start) / limit);
    told ? ++mine.failed : ++mine.good;
    return !told;
}

bool complain(client_state &mine, const char *what, unsigned one = 0, unsigned two = 0, unsigned three = 0)
{
    std::snprintf(mine.complaint, sizeof mine.complaint, "%s (%u, %u, %u)", what, one, two, three);
    return false;
}

/* A listing that was told of no failure has every row, and none twice. */
bool list_once(client_state &mine)
{
    std::set<uint32_t> seen;
    const auto each = [](const void *row, void *context, int) {
        uint32_t address;
        std::memcpy(&address, row, sizeof address);
        static_cast<std::set<uint32_t> *>(context)->insert(address);
        return 0;
    };
    uint32_t rows = 0;
    const bool good = timed(mine, 8 * page_limit + slack,
                            [&] { rows = get_arp_items_vr(0, 1, 0, 0, each, &seen, print, 0, 0); });
    if (good && (rows != listed_rows || seen.size() != listed_rows))
        return complain(mine, "an unbroken listing is not whole", rows, static_cast<unsigned>(seen.size()));
    if (!good && !seen.empty())
        mine.cut++;
    return true;
}

/* The setting is what was acknowledged last, or what was tried since without an answer. Nothing new is tried
 * before it has been read which. */
struct settings_writer {
    uint32_t acknowledged = 0, tried = 0; /* 0: none yet */

    bool go_on(client_state &mine)
    {
        uint32_t first = 0, second = 0;
        if (!timed(mine, page_limit + slack, [&] { get_ipdefrag_para(&first, &second, print); }))
            return true;
        if (tried != 0 && first != acknowledged && first != tried)
            return complain(mine, "a setting is not what was committed", first, acknowledged, tried);
        if (tried != 0 && first != acknowledged)
            mine.cut++;
        acknowledged = first;
        tried = first % 60000 + 1;
        if (timed(mine, commit_limit + slack,
                  [&] { set_ipdefrag_para(static_cast<int32_t>(tried), 0, print); }))
            acknowledged = tried;
        return true;
    }
};

/* The same of a table's rows: descriptions of a few addresses, each a number that grows. */
struct description_writer {
    static constexpr uint8_t addresses = 20;
    uint8_t start[5] = {2, 0xde, 0xad, 0, 0}; /* of the client's own addresses */
    uint32_t acknowledged[addresses] = {}, tried[addresses] = {};
    uint32_t next = 0, found[addresses] = {};

    static int take(const void *row, void *context, int)
    {
        auto &self = *static_cast<description_writer *>(context);
        const auto *bytes = static_cast<const uint8_t *>(row);
        if (std::memcmp(bytes, self.start, sizeof self.start) == 0 && bytes[5] < addresses)
            self.found[bytes[5]] =
                static_cast<uint32_t>(std::strtoul(reinterpret_cast<const char *>(bytes) + 8, nullptr, 10));
        return 0;
    }

    explicit description_writer(uint8_t client) { start[4] = client; }

    /* False when it could not be read. */
    bool read(client_state &mine)
    {
        std::fill(std::begin(found), std::end(found), 0);
        return timed(mine, 10 * page_limit + slack,
                     [&] { get_mac_desc_items(nullptr, take, this, print, 0, 0, 0); });
    }
    bool go_on(client_state &mine)
    {
        if (!read(mine))
            return true;
        for (unsigned i = 0; i < addresses; i++) {
            if (found[i] != acknowledged[i] && found[i] != tried[i])
                return complain(mine, "a description is not what was committed", found[i], acknowledged[i],
                                tried[i]);
            if (found[i] != acknowledged[i])
                mine.cut++;
            acknowledged[i] = found[i];
        }
        for (int i = 0; i < 5; i++) {
            const uint8_t which = static_cast<uint8_t>(next++ % addresses);
            const uint8_t mac[6] = {start[0], start[1], start[2], start[3], start[4], which};
            tried[which] = next;
            const std::string text = std::to_string(next);
            if (!timed(mine, commit_limit + slack,
                       [&] { mac_description_add(mac, text.c_str(), print, nullptr, 0, 0, 0); }))
                break;
            acknowledged[which] = next;
        }
        return true;
    }
};

/* A client's life: it goes on whatever happens to mixd, and at the end all that it committed is there. */
bool live(const std::atomic<bool> &stop, client_state &mine, const std::function<bool()> &go_on)
{
    const auto one_good_round = [&] {
        const uint64_t before = mine.failed;
        return go_on() && mine.failed == before;
    };
    if (!one_good_round())
        return mine.complaint[0] == '\0' && complain(mine, "the first round failed");
    const size_t before = open_descriptors();
    for (uint64_t failed = mine.failed; !stop; failed = mine.failed) {
        if (!go_on())
            return false;
        if (mine.failed != failed)
            usleep(1000); /* mixd is away */
    }
    if (!one_good_round())
        return mine.complaint[0] == '\0' && complain(mine, "the last round failed");
    if (open_descriptors() > before)
        return complain(mine, "descriptors are left open", static_cast<unsigned>(before),
                        static_cast<unsigned>(open_descriptors()));
    return true;
}

struct killed : mixd_test {
    void prepare() override
    {
        mixd.arguments = {"--scenario", place.file("s.toml", "[[network.interface]]\nname = \"ge0\"\n"
                                                             "[[arp.many]]\ncount = 400\n"
                                                             "first = \"10.0.0.2\"\n"
                                                             "mac = \"02:00:00:00:00:00\"\n"
                                                             "interface = \"ge0\"\n")};
    }
    const shared<board> on;
    std::vector<pid_t> clients;

    template <class Writer>
    void start_client(Writer writer)
    {
        client_state &mine = on->of[clients.size()];
        clients.push_back(
            beside([&, writer]() mutable { return live(on->stop, mine, [&] { return writer(mine); }); }));
    }
    [[nodiscard]] uint64_t rounds(size_t client) const { return on->of[client].good; }
};

TEST_F(killed, at_random_moments_mixd_loses_nothing_and_holds_nobody_up)
{
    const unsigned kills = from_environment("MIX_TEST_KILLS", 30);
    const unsigned seed = from_environment("MIX_TEST_SEED", static_cast<unsigned>(getpid()));
    SCOPED_TRACE("MIX_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    start_client(list_once);
    start_client([writer = settings_writer()](client_state &mine) mutable { return writer.go_on(mine); });
    for (const uint8_t number : {uint8_t{1}, uint8_t{2}})
        start_client(
            [writer = description_writer(number)](client_state &mine) mutable { return writer.go_on(mine); });
    EXPECT_TRUE(within(goes_on_within, [&] {
        return rounds(0) > 0 && rounds(1) > 1 && rounds(2) > 5 && rounds(3) > 5;
    })) << "the clients don't come to work";

    for (unsigned done = 0; done < kills && !HasFailure(); done++) {
        uint64_t before[4];
        for (size_t i = 0; i < 4; i++)
            before[i] = rounds(i);
        usleep(random() % 15000);
        ASSERT_EQ(mixd.stop(SIGKILL), -SIGKILL);
        ASSERT_TRUE(mixd.start()) << mixd.log();
        for (size_t i = 0; i < 4; i++)
            EXPECT_TRUE(within(goes_on_within, [&] { return rounds(i) > before[i]; }))
                << "kill " << done << ": client " << i << " stands still";
    }
    on->stop = true;
    for (size_t i = 0; i < 4; i++) {
        EXPECT_TRUE(ends_well(clients[i], 30)) << "client " << i << ": " << on->of[i].complaint;
        EXPECT_LE(on->of[i].longest, 1) << "client " << i << " waited longer than its timeouts";
        std::printf(
            "client %zu: %lu calls went well, %lu failed, %lu of them half-way; the longest took %.2f of its "
            "limit\n",
            i, static_cast<unsigned long>(on->of[i].good), static_cast<unsigned long>(on->of[i].failed),
            static_cast<unsigned long>(on->of[i].cut), on->of[i].longest.load());
    }
    if (kills < enough_kills)
        return;
    EXPECT_GT(on->of[0].cut, 0u) << "no listing was under way when mixd was killed";
    EXPECT_GT(on->of[1].cut + on->of[2].cut + on->of[3].cut, 0u)
        << "no commit was under way when mixd was killed";
}

} // namespace
