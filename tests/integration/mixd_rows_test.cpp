/* Rows of spoofing protection, gratuitous ARP and behaviour as they go over the wire, and requests that
 * nobody should make. */
#include <cerrno>

#include "support/raw_requests.h"

using namespace mixtest;

namespace
{

constexpr const char *scenario = R"(
[[spoofing.arp]]
mac = "02:00:00:00:00:01"
virtual_system = 7
vlan = 258
address = "10.1.2.3"
interface = "ge0"
mac_check = 1
reverse_check = 2
rate_check = 3
last = 4
[[spoofing.nd]]
address = "2001:db8::1"
mac = "02:00:00:00:00:01"
virtual_system = 7
interface = "ge0"
mac_check = 1
reverse_check = 2
rate_check = 3
last = 4
[[inspection.arp]]
virtual_system = 258
interface = "ge0"
first_vlan = 10
last_vlan = 20
rate = 50
trusted = true
checks = ["rate"]
policy = "office"
description = "desks"
[[inspection.nd]]
virtual_system = 258
interface = "ge1"
[[gratuitous_arp.sender]]
address = "10.1.2.3"
mac = "02:00:00:00:00:01"
interface = "ge0"
seconds = 5
form = "both"
[[behaviour.object]]
name = "games"
class = "keyword"
subclass = 9
description = "text"
items = ["one", "two"]
[[behaviour.profile]]
name = "staff"
[[behaviour.profile.rule]]
object = "games"
class = "keyword"
subclass = 9
action = "block"
log = true
mail_types = 258
hits = 3
)";

struct rows : mixd_test {
    void prepare() override { mixd.arguments = {"--scenario", place.file("s.toml", scenario)}; }

    raw_answer ask(const char *daemon, uint32_t type, const bytes &request)
    {
        return ask_once(mixd, daemon, type, request);
    }
};

const bytes station = {2, 0, 0, 0, 0, 1};
const bytes counts = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0};

TEST_F(rows, of_arp_statistics)
{
    const bytes page = ask(main_daemon, 90, request_of(12, {{6, 7}})).payload;
    ASSERT_EQ(page.size(), 4u + 48u);
    EXPECT_EQ(part(page, 0, 4), (bytes{0, 0, 1, 0}));
    EXPECT_EQ(part(page, 4, 6), station);
    EXPECT_EQ(part(page, 10, 6), (bytes{7, 0, 2, 1, 0, 0}));
    EXPECT_EQ(part(page, 16, 4), (bytes{3, 2, 1, 10}));
    EXPECT_EQ(text_at(page, 20), "ge0");
    EXPECT_EQ(part(page, 36, 16), counts);
}

TEST_F(rows, of_nd_statistics)
{
    const bytes page = ask(main_daemon, 138, request_of(12, {{6, 7}})).payload;
    ASSERT_EQ(page.size(), 8u + 56u);
    EXPECT_EQ(part(page, 0, 8), (bytes{0, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(page, 8, 16), (bytes{0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(part(page, 24, 6), station);
    EXPECT_EQ(part(page, 30, 2), (bytes{7, 0}));
    EXPECT_EQ(text_at(page, 32), "ge0");
    EXPECT_EQ(part(page, 48, 16), counts);
}

/* The mode stands at 4 and the virtual system at 6 here, and the other way round in the next test. */
TEST_F(rows, of_arp_inspection)
{
    const bytes page =
        ask(inspection_daemon, 100, request_of(84, {{0, 1}, {6, 2}, {7, 1}, {76, 42}})).payload;
    ASSERT_EQ(page.size(), 8u + 70u);
    EXPECT_EQ(part(page, 0, 8), (bytes{1, 0, 0, 0, 0, 0, 0, 0})) << "the count comes first";
    EXPECT_EQ(part(page, 8, 10), (bytes{2, 1, 10, 0, 20, 0, 50, 0, 3, 4}));
    EXPECT_EQ(text_at(page, 18), "ge0");
    EXPECT_EQ(text_at(page, 34), "office");
    EXPECT_EQ(text_at(page, 46), "desks");
}

TEST_F(rows, of_nd_inspection)
{
    const bytes page =
        ask(inspection_daemon, 137, request_of(48, {{0, 1}, {4, 2}, {5, 1}, {40, 78}})).payload;
    ASSERT_EQ(page.size(), 8u + 38u);
    EXPECT_EQ(part(page, 0, 8), (bytes{1, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(part(page, 8, 10), (bytes{2, 1, 0, 0, 0, 0, 0, 0, 1, 0}));
    EXPECT_EQ(text_at(page, 18), "ge1");
}

TEST_F(rows, of_gratuitous_arp_senders)
{
    const bytes page = ask(main_daemon, 88, request_of(8)).payload;
    ASSERT_EQ(page.size(), 4u + 76u);
    EXPECT_EQ(part(page, 0, 4), (bytes{0, 0, 1, 0}));
    EXPECT_EQ(part(page, 4, 4), (bytes{3, 2, 1, 10}));
    EXPECT_EQ(part(page, 8, 6), station);
    EXPECT_EQ(part(page, 14, 2), (bytes{3, 0}));
    EXPECT_EQ(part(page, 16, 4), (bytes{5, 0, 0, 0}));
    EXPECT_EQ(part(page, 28, 2), (bytes{1, 0}));
    EXPECT_EQ(text_at(page, 32), "ge0");
    const raw_answer one = ask(main_daemon, 88, request_of(20, {{0, 3}, {4, 3}, {5, 2}, {6, 1}, {7, 10}}));
    EXPECT_EQ(one.status, 0);
    EXPECT_EQ(one.payload, (bytes{0, 0, 0, 0}));
}

TEST_F(rows, of_behaviour_objects)
{
    const bytes page = ask(main_daemon, 97, request_of(4096)).payload;
    ASSERT_EQ(page.size(), 8u + 616u);
    EXPECT_EQ(part(page, 0, 8), (bytes{0, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(text_at(page, 8), "games");
    EXPECT_EQ(part(page, 40, 8), (bytes{2, 9, 2, 0, 1, 0, 0, 0}));
    EXPECT_EQ(text_at(page, 48), "text");
    EXPECT_EQ(text_at(page, 112), "one");
    EXPECT_EQ(text_at(page, 176), "two");
}

TEST_F(rows, of_behaviour_profiles)
{
    const bytes page = ask(main_daemon, 96, request_of(40, {{0, 2}})).payload;
    ASSERT_EQ(page.size(), 4u + 7640u);
    EXPECT_EQ(part(page, 0, 4), (bytes{0, 0, 1, 0}));
    EXPECT_EQ(text_at(page, 4), "staff");
    EXPECT_EQ(part(page, 100, 2), (bytes{1, 0}));
    EXPECT_EQ(text_at(page, 108), "games");
    EXPECT_EQ(part(page, 140, 8), (bytes{2, 9, 1, 1, 2, 1, 0, 0}));
    EXPECT_EQ(part(page, 148, 8), (bytes{3, 0, 0, 0, 0, 0, 0, 0}));
}

/* --- requests that are refused --- */

class refused_request : public rows, public testing::WithParamInterface<bad_request>
{
};

TEST_P(refused_request, changes_nothing)
{
    const raw_answer answer = ask(GetParam().daemon, GetParam().type, GetParam().request);
    EXPECT_EQ(answer.status, GetParam().status);
    EXPECT_EQ(ask(main_daemon, 90, request_of(12, {{6, 7}})).payload.size(), 4u + 48u);
    EXPECT_EQ(ask(main_daemon, 138, request_of(12, {{6, 7}})).payload.size(), 8u + 56u);
}

INSTANTIATE_TEST_SUITE_P(
    each, refused_request,
    testing::Values(
        bad_request{"arp_statistics_short_list", main_daemon, 90, request_of(11), -EINVAL},
        bad_request{"arp_statistics_unknown", main_daemon, 90, request_of(16, {{0, 3}, {4, 7}}), -EINVAL},
        bad_request{"arp_statistics_short_clear", main_daemon, 90, request_of(15, {{0, 1}, {4, 7}}), -EINVAL},
        bad_request{"arp_statistics_cursor_of_nobody", main_daemon, 90, request_of(12, {{4, 1}, {6, 7}}),
                    -ESTALE},
        bad_request{"nd_statistics_short_list", main_daemon, 138, request_of(11), -EINVAL},
        bad_request{"nd_statistics_unknown", main_daemon, 138, request_of(8, {{0, 2}, {4, 7}}), -EINVAL},
        bad_request{"nd_statistics_short_clear", main_daemon, 138, request_of(7, {{0, 1}, {4, 7}}), -EINVAL},
        bad_request{"arp_inspection_short", inspection_daemon, 100, request_of(83, {{0, 1}}), -EINVAL},
        bad_request{"arp_inspection_unknown", inspection_daemon, 100, request_of(84), -EINVAL},
        bad_request{"nd_inspection_short", inspection_daemon, 137, request_of(47, {{0, 1}}), -EINVAL},
        bad_request{"nd_inspection_unknown", inspection_daemon, 137, request_of(48, {{0, 2}}), -EINVAL},
        bad_request{"senders_short_list", main_daemon, 88, request_of(7), -EINVAL},
        bad_request{"senders_short_lookup", main_daemon, 88, request_of(19, {{0, 3}}), -EINVAL},
        bad_request{"senders_unknown", main_daemon, 88, request_of(20, {{0, 1}}), -EINVAL},
        bad_request{"senders_lookup_of_none", main_daemon, 88, request_of(20, {{0, 3}}), -ENOENT},
        bad_request{"objects_short", main_daemon, 97, request_of(43), -EINVAL},
        bad_request{"objects_unknown", main_daemon, 97, request_of(4096, {{0, 2}}), -EINVAL},
        bad_request{"profiles_short", main_daemon, 96, request_of(39, {{0, 2}}), -EINVAL},
        bad_request{"profiles_unknown", main_daemon, 96, request_of(40), -EINVAL}),
    [](const auto &one) { return one.param.name; });

/* A scenario that is wrong anywhere leaves the store as it was. */
TEST_F(rows, stay_when_a_wrong_scenario_is_refused)
{
    mixd.stop();
    const std::string wrong = place.file("wrong.toml", "[ipdefrag]\nfragments = 0\n");
    const std::vector<std::string> right = std::exchange(mixd.arguments, {"--scenario", wrong});
    EXPECT_FALSE(mixd.start());
    mixd.wait();
    mixd.arguments.clear(); /* this host: what the store has */
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(ask(main_daemon, 90, request_of(12, {{6, 7}})).payload.size(), 4u + 48u);
    EXPECT_EQ(ask(main_daemon, 97, request_of(4096)).payload.size(), 8u + 616u);
}

} // namespace
