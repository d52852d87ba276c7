/* mixd as a process: start, stop, run directory, scenarios, boards, faults, the control service. */
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "support/mixd_fixture.h"

using namespace mixtest;
using namespace mix::wire;

namespace
{

constexpr const char *main_daemon = "node0/0.0.sock";
constexpr const char *control = "node0/0.201.sock";
const bytes show = {2, 0, 0, 0};

struct mixd_life : testing::Test {
    temporary_directory place;
    mixd_process mixd{place.path() + "/run"};

    std::optional<raw_answer> ask_settings()
    {
        raw_client client;
        if (!client.open(mixd, main_daemon))
            return {};
        return client.ask(38, show);
    }
    void expect_no_start(const std::string &reason)
    {
        EXPECT_FALSE(mixd.start());
        EXPECT_EQ(mixd.wait(), 1);
        EXPECT_NE(mixd.log().find(reason), std::string::npos) << mixd.log();
    }
};

TEST_F(mixd_life, a_second_one_on_the_same_run_directory_refuses_and_names_the_first)
{
    ASSERT_TRUE(mixd.start()) << mixd.log();
    mixd_process second{place.path() + "/run"};
    second.arguments = {"--store", place.path() + "/second.db"};
    EXPECT_FALSE(second.start());
    EXPECT_EQ(second.wait(), 1);
    EXPECT_NE(second.log().find("another mixd (pid " + std::to_string(mixd.pid()) + ") serves"),
              std::string::npos)
        << second.log();
    EXPECT_TRUE(ask_settings());
}

TEST_F(mixd_life, sockets_of_a_killed_one_are_replaced)
{
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(mixd.stop(SIGKILL), -SIGKILL);
    EXPECT_EQ(access(mixd.socket(main_daemon).c_str(), F_OK), 0);
    raw_client early;
    EXPECT_FALSE(early.connect(mixd.socket(main_daemon)));
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_TRUE(ask_settings());
}

TEST_F(mixd_life, a_file_in_the_place_of_a_socket_is_left_alone)
{
    std::filesystem::create_directories(mixd.socket("node0"));
    std::ofstream(mixd.socket(main_daemon)) << "letters";
    expect_no_start("is in the way and not a socket");
    EXPECT_TRUE(std::filesystem::is_regular_file(mixd.socket(main_daemon)));
}

TEST_F(mixd_life, a_run_directory_of_another_user_is_refused)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a directory away";
    std::filesystem::create_directories(mixd.run_dir());
    ASSERT_EQ(chown(mixd.run_dir().c_str(), 4242, 4242), 0);
    expect_no_start("belongs to uid 4242");
}

TEST_F(mixd_life, a_run_directory_whose_name_is_too_long_for_sockets_is_refused)
{
    mixd_process deep{place.path() + "/" + std::string(100, 'd')};
    EXPECT_FALSE(deep.start());
    EXPECT_EQ(deep.wait(), 1);
    EXPECT_NE(deep.log().find("longer than the 107 bytes"), std::string::npos) << deep.log();
}

/* Where the store is depends on whether somebody chose the run directory. */
struct run_dir_choice {
    const char *name;
    const char *variable; /* MIX_RUN_DIR beneath the test's directory; "": empty; nullptr: unset */
    std::vector<std::string> arguments;
    const char *store; /* beneath the test's directory */
};
void PrintTo(const run_dir_choice &value, std::ostream *out)
{
    *out << value.name;
}

struct chosen_run_dir : testing::TestWithParam<run_dir_choice> {
    temporary_directory place;
};

TEST_P(chosen_run_dir, decides_where_the_store_is)
{
    const auto &choice = GetParam();
    const std::string user = place.path() + "/user", state = place.path() + "/state";
    std::filesystem::create_directories(user);
    mixd_process mixd{user + "/mix"};
    mixd.names_run_dir = false;
    mixd.arguments = choice.arguments;
    mixd.before_exec = [&] {
        const bool led = choice.variable && *choice.variable;
        const std::string variable = led ? place.path() + choice.variable : "";
        return unsetenv("STATE_DIRECTORY") == 0 && setenv("XDG_RUNTIME_DIR", user.c_str(), 1) == 0 &&
               setenv("XDG_STATE_HOME", state.c_str(), 1) == 0 &&
               (choice.variable ? setenv("MIX_RUN_DIR", variable.c_str(), 1) : unsetenv("MIX_RUN_DIR")) == 0;
    };
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_TRUE(std::filesystem::exists(mixd.socket(main_daemon)));
    for (const char *store : {"/user/mix/mixd.db", "/state/mix/mixd.db"})
        EXPECT_EQ(std::filesystem::exists(place.path() + store), std::string(store) == choice.store) << store;
}

INSTANTIATE_TEST_SUITE_P(
    each, chosen_run_dir,
    testing::Values(run_dir_choice{"by_the_variable", "/user/mix", {}, "/user/mix/mixd.db"},
                    run_dir_choice{"by_nobody", nullptr, {}, "/state/mix/mixd.db"},
                    run_dir_choice{"by_an_empty_variable", "", {}, "/state/mix/mixd.db"},
                    run_dir_choice{"by_an_empty_option", nullptr, {"--run-dir", ""}, "/state/mix/mixd.db"}),
    [](const auto &of) { return std::string(of.param.name); });

TEST_F(mixd_life, hangup_reloads_and_serves_on)
{
    ASSERT_TRUE(mixd.start()) << mixd.log();
    raw_client client;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    kill(mixd.pid(), SIGHUP);
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(client.ask(38, show));
    EXPECT_NE(mixd.log().find("reloading"), std::string::npos);
    EXPECT_EQ(mixd.stop(SIGINT), 0);
}

TEST_F(mixd_life, apply_and_scenario_exclude_each_other)
{
    mixd.arguments = {"--apply", "--scenario", place.file("s.toml", "")};
    EXPECT_FALSE(mixd.start());
    EXPECT_EQ(mixd.wait(), 2);
    EXPECT_TRUE(mixd.log().starts_with("mixd: --scenario excludes --apply")) << mixd.log();
}

/* --- scenarios --- */

struct bad_scenario {
    const char *name;
    std::string content;
    const char *reason; /* after "FILE:" */
};

std::string boards(int count)
{
    std::string out;
    for (int slot = 0; slot < count; slot++)
        out += "[[board]]\nslot = " + std::to_string(slot) + "\n" + (slot == 0 ? "this = true\n" : "");
    return out;
}

class malformed_scenario : public mixd_life, public testing::WithParamInterface<bad_scenario>
{
};

TEST_P(malformed_scenario, is_refused_with_file_line_and_reason)
{
    const std::string file = place.file("bad.toml", GetParam().content);
    mixd.arguments = {"--scenario", file};
    expect_no_start(file + ":" + GetParam().reason);
    EXPECT_NE(access(mixd.socket("mixd.db").c_str(), F_OK), 0) << "a store is left behind";
}

TEST_F(mixd_life, a_scenario_that_is_refused_leaves_the_store_that_was_there)
{
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(mixd.stop(), 0);
    mixd.arguments = {"--scenario", place.file("bad.toml", "[ipdefrag]\nfragments = 0\n")};
    expect_no_start("fragments");
    EXPECT_EQ(access(mixd.socket("mixd.db").c_str(), F_OK), 0);
}

INSTANTIATE_TEST_SUITE_P(
    each, malformed_scenario,
    testing::Values(
        bad_scenario{"syntax", "[ipdefrag]\nfragments = = 5\n", "2: "},
        bad_scenario{"unknown_table", "\n\n[ipdefragg]\n",
                     "3: unknown key \"ipdefragg\" at the top; known: "},
        bad_scenario{"unknown_key", "[ipdefrag]\nfragments = 5\nsecond = 3\n",
                     "3: unknown key \"second\" in [ipdefrag]; known: fragments, seconds"},
        bad_scenario{"wrong_type", "[ipdefrag]\nfragments = \"many\"\n",
                     "2: ipdefrag.fragments: must be a whole number, not string"},
        bad_scenario{"fraction", "[ipdefrag]\nseconds = 1.5\n",
                     "2: ipdefrag.seconds: must be a whole number, not floating-point"},
        bad_scenario{"too_small", "[ipdefrag]\nfragments = 0\n",
                     "2: ipdefrag.fragments: 0 is out of range, 1 to 65535 is allowed"},
        bad_scenario{"too_large", "[ipdefrag]\nseconds = 3601\n",
                     "2: ipdefrag.seconds: 3601 is out of range, 1 to 3600 is allowed"},
        bad_scenario{"not_a_table", "ipdefrag = 5\n", "1: ipdefrag: must be a table [ipdefrag], not integer"},
        bad_scenario{"second_of_two_mistakes", "[ipdefrag]\nfragments = 0\nseconds = 0\n",
                     "3: ipdefrag.seconds: 0 is out of range, 1 to 3600 is allowed"},
        bad_scenario{"fault_without_daemon", "\n[[fault]]\nkind = \"drop\"\n",
                     "2: key \"daemon\" is missing in [fault]"},
        bad_scenario{"fault_without_kind", "[[fault]]\ndaemon = 0\n",
                     "1: key \"kind\" is missing in [fault]"},
        bad_scenario{
            "fault_of_unknown_kind", "[[fault]]\ndaemon = 0\nkind = \"melt\"\n",
            "3: fault.kind: \"melt\" is not one of: delay, drop, refuse, short, long, overstated, crash"},
        bad_scenario{"fault_refusing_with_success", "[[fault]]\ndaemon = 0\nkind = \"refuse\"\nvalue = 0\n",
                     "4: fault.value: 0 is out of range"},
        bad_scenario{"fault_of_the_control_service", "[[fault]]\ndaemon = 201\nkind = \"drop\"\n",
                     "2: fault.daemon: the control service takes no faults"},
        bad_scenario{"faults_not_a_list", "[fault]\ndaemon = 0\nkind = \"drop\"\n",
                     "1: fault: must be a list of tables [[fault]]"},
        bad_scenario{"board_without_slot", "[[board]]\nthis = true\n",
                     "1: key \"slot\" is missing in [board]"},
        bad_scenario{"slot_twice", "[[board]]\nslot = 1\nthis = true\n[[board]]\nslot = 1\n",
                     "5: board.slot: slot 1 has a board already"},
        bad_scenario{"boards_beyond_the_slot_table", boards(105),
                     "211: board.slot: a chassis has 104 boards at most"},
        bad_scenario{"two_boards_are_this",
                     "[[board]]\nslot = 1\nthis = true\n[[board]]\nslot = 2\nthis = true\n",
                     "6: board.this: another board is this board already"},
        bad_scenario{"no_board_is_this", "[[board]]\nslot = 1\n",
                     "1: board: one board needs this = true: the one that node 0 means"},
        bad_scenario{"slot_without_a_node", "[[board]]\nslot = 254\nthis = true\n",
                     "2: board.slot: 254 is out of range, 0 to 253 is allowed"},
        bad_scenario{"unknown_role", "[[board]]\nslot = 1\nthis = true\nrole = \"boss\"\n",
                     "4: board.role: \"boss\" is not one of: main, standby, service"},
        bad_scenario{"this_not_boolean", "[[board]]\nslot = 1\nthis = 1\n",
                     "3: board.this: must be true or false, not integer"},
        bad_scenario{"name_too_long",
                     "[[board]]\nslot = 1\nthis = true\nname = \"01234567890123456789012345678901\"\n",
                     "4: board.name: is 32 bytes long, at most 31 fit"},
        bad_scenario{"spoofing_without_a_mac", "[[spoofing.arp]]\ninterface = \"ge0\"\n",
                     "1: key \"mac\" is missing in [spoofing.arp]"},
        bad_scenario{"spoofing_without_an_interface", "[[spoofing.arp]]\nmac = \"02:00:00:00:00:01\"\n",
                     "1: key \"interface\" is missing in [spoofing.arp]"},
        bad_scenario{"spoofing_of_one_mac_twice",
                     "[[spoofing.arp]]\nmac = \"02:00:00:00:00:01\"\ninterface = "
                     "\"ge0\"\n[[spoofing.arp]]\nmac = \"02:00:00:00:00:01\"\ninterface = \"ge1\"\n",
                     "4: is described already"},
        bad_scenario{"spoofing_in_no_vlan",
                     "[[spoofing.arp]]\nmac = \"02:00:00:00:00:01\"\ninterface = \"ge0\"\nvlan = 4095\n",
                     "4: spoofing.arp.vlan: 4095 is out of range, 0 to 4094 is allowed"},
        bad_scenario{"nd_spoofing_of_an_ipv4_address",
                     "[[spoofing.nd]]\naddress = \"10.0.0.1\"\ninterface = \"ge0\"\n",
                     "2: spoofing.nd.address: \"10.0.0.1\" is not an IPv6 address"},
        bad_scenario{"inspection_by_an_unknown_check",
                     "[[inspection.arp]]\ninterface = \"ge0\"\nchecks = [\"luck\"]\n",
                     "3: inspection.arp.checks: must be of mac, reverse and rate"},
        bad_scenario{"inspection_of_a_backward_range",
                     "[[inspection.nd]]\ninterface = \"ge0\"\nfirst_vlan = 9\nlast_vlan = 8\n",
                     "4: inspection.nd.last_vlan: must not be below first_vlan, nor stand alone"},
        bad_scenario{"inspection_policy_too_long",
                     "[[inspection.arp]]\ninterface = \"ge0\"\npolicy = \"012345678901\"\n",
                     "3: inspection.arp.policy: is 12 bytes long, at most 11 fit"},
        bad_scenario{"nd_inspection_is_not_described",
                     "[[inspection.nd]]\ninterface = \"ge0\"\ndescription = \"x\"\n",
                     "3: unknown key \"description\" in [inspection.nd]; known: "},
        bad_scenario{"sender_without_a_mac",
                     "[[gratuitous_arp.sender]]\naddress = \"10.0.0.1\"\ninterface = \"ge0\"\n",
                     "1: key \"mac\" is missing in [gratuitous_arp.sender]"},
        bad_scenario{"sender_of_a_group",
                     "[[gratuitous_arp.sender]]\naddress = \"224.0.0.1\"\nmac = "
                     "\"02:00:00:00:00:01\"\ninterface = \"ge0\"\n",
                     "2: gratuitous_arp.sender.address: must be the address of a host"},
        bad_scenario{"sender_with_a_mac_of_a_group",
                     "[[gratuitous_arp.sender]]\naddress = \"10.0.0.1\"\nmac = "
                     "\"01:00:00:00:00:01\"\ninterface = \"ge0\"\n",
                     "3: gratuitous_arp.sender.mac: must be the address of one station"},
        bad_scenario{"sender_too_slow",
                     "[[gratuitous_arp.sender]]\naddress = \"10.0.0.1\"\nmac = "
                     "\"02:00:00:00:00:01\"\ninterface = \"ge0\"\nseconds = 86401\n",
                     "5: gratuitous_arp.sender.seconds: 86401 is out of range, 1 to 86400 is allowed"},
        bad_scenario{"behaviour_object_without_a_class", "[[behaviour.object]]\nname = \"a\"\n",
                     "1: key \"class\" is missing in [behaviour.object]"},
        bad_scenario{"behaviour_object_twice",
                     "[[behaviour.object]]\nname = \"a\"\nclass = \"url\"\n[[behaviour.object]]\nname = "
                     "\"a\"\nclass = \"url\"\n",
                     "4: is described already"},
        bad_scenario{"behaviour_object_of_nine_items",
                     "[[behaviour.object]]\nname = \"a\"\nclass = \"url\"\nitems = "
                     "[\"1\",\"2\",\"3\",\"4\",\"5\",\"6\",\"7\",\"8\",\"9\"]\n",
                     "4: behaviour.object.items: must be at most 8"},
        bad_scenario{"behaviour_rule_without_an_object",
                     "[[behaviour.profile]]\nname = \"a\"\n[[behaviour.profile.rule]]\nclass = \"url\"\n",
                     "3: key \"object\" is missing in [behaviour.profile.rule]"},
        bad_scenario{"behaviour_rule_for_unknown_mail",
                     "[[behaviour.profile]]\nname = \"a\"\n[[behaviour.profile.rule]]\nobject = \"b\"\nclass "
                     "= \"mail\"\nmail_types = 524288\n",
                     "6: behaviour.profile.rule.mail_types: 524288 is out of range, 0 to 524287 is allowed"}),
    [](const auto &one) { return one.param.name; });

TEST_F(mixd_life, a_scenario_that_is_not_there_is_told)
{
    mixd.arguments = {"--scenario", place.path() + "/none.toml"};
    expect_no_start("none.toml: No such file or directory");
}

TEST_F(mixd_life, a_directory_is_no_scenario)
{
    mixd.arguments = {"--scenario", place.path()};
    expect_no_start(place.path() + ": Is a directory");
}

TEST_F(mixd_life, a_scenario_replaces_the_host)
{
    mixd.arguments = {"--scenario", place.file("s.toml", "[ipdefrag]\nfragments = 4321\nseconds = 21\n")};
    ASSERT_TRUE(mixd.start()) << mixd.log();
    const auto answer = ask_settings();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->payload, (bytes{0xe1, 0x10, 21, 0}));
}

TEST_F(mixd_life, an_empty_scenario_has_the_usual_settings)
{
    mixd.arguments = {"--scenario", place.file("s.toml", "")};
    ASSERT_TRUE(mixd.start()) << mixd.log();
    const auto answer = ask_settings();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->payload, (bytes{64, 0, 30, 0}));
}

TEST_F(mixd_life, the_virtual_system_of_a_scenario_is_the_gateways)
{
    mixd.arguments = {"--scenario", place.file("s.toml", "[gateway]\nvirtual_system = 7\n")};
    ASSERT_TRUE(mixd.start()) << mixd.log();
    raw_client gateway;
    ASSERT_TRUE(gateway.open(mixd, "node0/0.200.sock"));
    const auto answer = gateway.ask(gateway_current_vsys);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 7);
}

/* --- faults --- */

struct injected_fault : mixd_test {
    raw_client client;
    void SetUp() override
    {
        mixd_test::SetUp();
        ASSERT_TRUE(client.open(mixd, main_daemon));
    }
    void expect_good_answer()
    {
        const auto answer = client.ask(38, show);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, 0);
        EXPECT_EQ(answer->payload.size(), 4u);
        EXPECT_EQ(answer->claimed, 4u);
    }
};

TEST_F(injected_fault, refusal_hits_as_often_as_it_is_told_to)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::refuse, -12345, 2), 0);
    for (int i = 0; i < 2; ++i) {
        const auto answer = client.ask(38, show);
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->status, -12345);
        EXPECT_TRUE(answer->payload.empty());
    }
    expect_good_answer();
}

TEST_F(injected_fault, short_reply_misses_bytes_at_its_end)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::short_reply, 2, 1), 0);
    const auto answer = client.ask(38, show);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->payload.size(), 2u);
    EXPECT_EQ(answer->claimed, 2u);
    expect_good_answer();
}

TEST_F(injected_fault, short_reply_has_no_less_than_nothing)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::short_reply, 100, 1), 0);
    const auto answer = client.ask(38, show);
    ASSERT_TRUE(answer);
    EXPECT_TRUE(answer->payload.empty());
}

TEST_F(injected_fault, long_reply_has_bytes_too_many)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::long_reply, 4, 1), 0);
    const auto answer = client.ask(38, show);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->payload.size(), 8u);
    EXPECT_EQ(answer->claimed, 8u);
    EXPECT_EQ(answer->payload[7], 0xee);
    expect_good_answer();
}

TEST_F(injected_fault, overstated_reply_claims_more_than_it_carries)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::overstated, 100, 1), 0);
    const auto answer = client.ask(38, show);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->payload.size(), 4u);
    EXPECT_EQ(answer->claimed, 104u);
    expect_good_answer();
}

TEST_F(injected_fault, dropped_request_gets_no_answer)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::drop, 0, 1), 0);
    ASSERT_TRUE(client.send(message_kind::request, 38, show, 5));
    EXPECT_FALSE(client.receive(100));
    expect_good_answer();
}

TEST_F(injected_fault, dropped_commit_is_not_made)
{
    ASSERT_EQ(inject(mixd, 200, gateway_record, fault_kind::drop, 0, 1), 0);
    raw_client gateway;
    ASSERT_TRUE(gateway.open(mixd, "node0/0.200.sock"));
    bytes message(64);
    writer out(message);
    const uint32_t fields[] = {0, 61234, 0};
    ASSERT_TRUE(encode_record(0x1a0001, 2, fields, 3, 0, out));
    message.resize(out.size());
    ASSERT_TRUE(gateway.send(message_kind::request, gateway_record, message, 1));
    EXPECT_FALSE(gateway.receive(100));
    const auto answer = client.ask(38, show);
    ASSERT_TRUE(answer);
    EXPECT_NE(answer->payload[0] | answer->payload[1] << 8, 61234);
}

TEST_F(injected_fault, delayed_answer_comes_late_and_holds_nobody_else_up)
{
    constexpr int delay_ms = 400;
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::delay, delay_ms, 1), 0);
    const auto began = std::chrono::steady_clock::now();
    ASSERT_TRUE(client.send(message_kind::request, 38, show, 5));
    raw_client other;
    ASSERT_TRUE(other.open(mixd, main_daemon));
    ASSERT_TRUE(other.ask(38, show));
    const auto others = std::chrono::steady_clock::now() - began;
    const auto answer = client.receive();
    const auto own = std::chrono::steady_clock::now() - began;
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->sequence, 5u);
    EXPECT_EQ(answer->payload.size(), 4u);
    EXPECT_GE(own, std::chrono::milliseconds(delay_ms));
    EXPECT_LT(others, own);
}

TEST_F(injected_fault, delayed_answer_of_a_client_that_left_is_forgotten)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::delay, 100, 1), 0);
    {
        raw_client leaving;
        ASSERT_TRUE(leaving.open(mixd, main_daemon));
        ASSERT_TRUE(leaving.send(message_kind::request, 38, show, 5));
    }
    usleep(200'000);
    expect_good_answer();
}

TEST_F(injected_fault, crash_ends_mixd_and_the_next_start_serves)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::crash, 0, 1), 0);
    EXPECT_FALSE(client.ask(38, show));
    EXPECT_EQ(mixd.wait(), -SIGKILL);
    ASSERT_TRUE(mixd.start()) << mixd.log();
    ASSERT_TRUE(client.open(mixd, main_daemon));
    expect_good_answer();
}

TEST_F(injected_fault, of_every_type_gives_way_to_one_of_the_exact_type)
{
    ASSERT_EQ(inject(mixd, 0, 0, fault_kind::refuse, -1, 0), 0);
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::refuse, -2, 1), 0);
    const auto first = client.ask(38, show), second = client.ask(38, show);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->status, -2);
    EXPECT_EQ(second->status, -1);
}

TEST_F(injected_fault, is_listed_and_cleared)
{
    ASSERT_EQ(inject(mixd, 0, 38, fault_kind::refuse, -7, 10), 0);
    ASSERT_TRUE(client.ask(38, show));
    raw_client asker;
    ASSERT_TRUE(asker.open(mixd, control));
    const auto list = asker.ask(control_list_faults, record_bytes(control_list{0}));
    ASSERT_TRUE(list);
    ASSERT_EQ(list->payload.size(), 8u + 24u);
    control_fault row;
    std::memcpy(&row, list->payload.data() + 8, sizeof row);
    EXPECT_EQ(row.type, 38u);
    EXPECT_EQ(row.value, -7);
    EXPECT_EQ(row.count, 9u);
    EXPECT_EQ(row.hits, 1u);
    const auto cleared = asker.ask(control_clear_faults, record_bytes(control_clear{every_daemon, 0}));
    ASSERT_TRUE(cleared);
    EXPECT_EQ(cleared->status, 1);
    expect_good_answer();
}

TEST_F(injected_fault, that_makes_no_sense_is_refused)
{
    EXPECT_EQ(inject(mixd, 0, 38, static_cast<fault_kind>(0), 0, 1), -EINVAL);
    EXPECT_EQ(inject(mixd, 0, 38, static_cast<fault_kind>(8), 0, 1), -EINVAL);
    EXPECT_EQ(inject(mixd, 0, 38, fault_kind::refuse, 0, 1), -EINVAL);
    EXPECT_EQ(inject(mixd, 0, 38, fault_kind::short_reply, 0, 1), -EINVAL);
    EXPECT_EQ(inject(mixd, 0, 38, fault_kind::delay, -1, 1), -EINVAL);
    EXPECT_EQ(inject(mixd, 256, 38, fault_kind::drop, 0, 1), -EINVAL);
    EXPECT_EQ(inject(mixd, 201, 250, fault_kind::drop, 0, 1), -EINVAL);
    expect_good_answer();
}

TEST_F(mixd_life, faults_of_a_scenario_hit)
{
    mixd.arguments = {"--scenario",
                      place.file("s.toml", "[[fault]]\ndaemon = 0\ntype = 38\nkind = \"refuse\"\n"
                                           "value = -61\ncount = 1\n")};
    ASSERT_TRUE(mixd.start()) << mixd.log();
    const auto first = ask_settings(), second = ask_settings();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->status, -61);
    EXPECT_EQ(second->status, 0);
}

/* --- the control service --- */

struct control_service : mixd_test {
};

TEST_F(control_service, lists_every_service_with_its_counters)
{
    raw_client client, asker;
    ASSERT_TRUE(client.open(mixd, main_daemon));
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(client.ask(38, show));
    ASSERT_TRUE(client.ask(38, {9}));
    ASSERT_TRUE(asker.open(mixd, control));
    const auto list = asker.ask(control_list_services, record_bytes(control_list{0}));
    ASSERT_TRUE(list);
    control_page page;
    ASSERT_GE(list->payload.size(), sizeof page);
    std::memcpy(&page, list->payload.data(), sizeof page);
    ASSERT_EQ(list->payload.size(), sizeof page + page.count * sizeof(mix::wire::control_service));
    bool seen = false;
    for (uint32_t i = 0; i < page.count; ++i) {
        mix::wire::control_service row;
        std::memcpy(&row, list->payload.data() + sizeof page + i * sizeof row, sizeof row);
        if (row.address != 0 || row.type != 38)
            continue;
        seen = true;
        EXPECT_STREQ(row.name, "ipdefrag");
        EXPECT_EQ(row.requests, 4u);
        EXPECT_EQ(row.refused, 1u);
        EXPECT_EQ(row.reply_bytes, 12u);
        EXPECT_GT(row.total_ns, 0u);
        EXPECT_LE(row.slowest_ns, row.total_ns);
    }
    EXPECT_TRUE(seen);
}

TEST_F(control_service, tells_about_the_process)
{
    raw_client asker;
    ASSERT_TRUE(asker.open(mixd, control));
    const auto answer = asker.ask(control_about_type);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->payload.size(), sizeof(control_about));
    control_about about;
    std::memcpy(&about, answer->payload.data(), sizeof about);
    EXPECT_EQ(about.pid, static_cast<uint32_t>(mixd.pid()));
    EXPECT_EQ(about.flags, 0u);
    EXPECT_EQ(about.clients, 1u);
    EXPECT_STREQ(about.run_dir, mixd.run_dir().c_str());
    EXPECT_EQ(std::string(about.store), mixd.run_dir() + "/mixd.db");
}

/* --- boards --- */

struct asked_board {
    const char *name;
    const char *socket;
    const char *board; /* NULL: nothing listens there */
    uint32_t slot;
};

class boards_of_a_chassis : public mixd_test, public testing::WithParamInterface<asked_board>
{
    void prepare() override
    {
        mixd.arguments = {"--scenario",
                          place.file("s.toml",
                                     "[[board]]\nslot = 0\nname = \"master\"\nrole = \"main\"\n"
                                     "[[board]]\nslot = 2\nname = \"front\"\nthis = true\ncpus = 2\n"
                                     "[[board]]\nslot = 253\n")};
    }
};

TEST_P(boards_of_a_chassis, answer_at_their_own_addresses)
{
    raw_client client;
    if (!GetParam().board) {
        EXPECT_FALSE(client.connect(mixd.socket(GetParam().socket)));
        return;
    }
    ASSERT_TRUE(client.open(mixd, GetParam().socket));
    const auto answer = client.ask(control_about_type);
    ASSERT_TRUE(answer);
    ASSERT_EQ(answer->payload.size(), sizeof(control_about));
    control_about about;
    std::memcpy(&about, answer->payload.data(), sizeof about);
    EXPECT_STREQ(about.board, GetParam().board);
    EXPECT_EQ(about.slot, GetParam().slot);
}

INSTANTIATE_TEST_SUITE_P(
    each, boards_of_a_chassis,
    testing::Values(asked_board{"node_zero_is_this_one", "node0/0.201.sock", "front", 2},
                    asked_board{"second_cpu_of_this_one", "node0/1.201.sock", "front", 2},
                    asked_board{"this_one_by_its_node", "node3/1.201.sock", "front", 2},
                    asked_board{"the_master", "node1/0.201.sock", "master", 0},
                    asked_board{"one_without_a_name", "node254/0.201.sock", "slot253", 253},
                    asked_board{"no_second_cpu", "node1/1.201.sock", nullptr, 0},
                    asked_board{"no_board_there", "node2/0.201.sock", nullptr, 0}),
    [](const auto &one) { return one.param.name; });

/* --- readiness --- */

TEST_F(mixd_life, the_service_manager_hears_of_readiness_and_of_the_stop)
{
    const std::string path = place.path() + "/notify";
    const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un at{};
    at.sun_family = AF_UNIX;
    std::memcpy(at.sun_path, path.c_str(), path.size());
    ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr *>(&at), sizeof at), 0);
    mixd.before_exec = [path] { return setenv("NOTIFY_SOCKET", path.c_str(), 1) == 0; };
    ASSERT_TRUE(mixd.start()) << mixd.log();
    EXPECT_EQ(mixd.stop(), 0);
    std::string heard;
    char text[256];
    for (ssize_t size; (size = recv(manager, text, sizeof text, MSG_DONTWAIT)) > 0;)
        heard += std::string(text, static_cast<size_t>(size)) + "\n";
    close(manager);
    EXPECT_NE(heard.find("READY=1"), std::string::npos) << heard;
    EXPECT_NE(heard.find("STOPPING=1"), std::string::npos) << heard;
    EXPECT_LT(heard.find("READY=1"), heard.find("STOPPING=1"));
}

} // namespace
