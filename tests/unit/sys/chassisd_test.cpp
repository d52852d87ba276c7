#include <libmix/chassisd.h>

#include "unit/sys/sys_cases.h"

using namespace mixtest;

namespace
{

constexpr auto plain = sender::send_and_recv;
constexpr auto timed = sender::send_and_recv_timeout;

/* The size that out parameters of handed-over buffers start with. */
void **out_pointer()
{
    return output.as<void *>();
}
uint32_t *out_length()
{
    return output.as<uint32_t>() + 4;
}

/* A status query into the output area, whose capacity must survive a failure. */
int64_t ask_slots(const std::function<int(void *, uint32_t *)> &ask)
{
    uint32_t capacity = 480;
    const int result = ask(output.bytes, &capacity);
    if (result != 0) {
        EXPECT_EQ(capacity, 480u);
    }
    return result;
}

sys_case silent(const char *name, std::function<int64_t()> call, expected_message sent)
{
    return {.name = name, .call = std::move(call), .sent = std::move(sent)};
}

expected_message slot_query(uint32_t destination)
{
    return {timed, destination, 153, 3000, repeat(0, 8), 5000};
}

expected_message cpu_query(uint32_t destination, uint32_t subtype, uint32_t capacity)
{
    return {timed, destination, 24, 3000, le32(subtype), capacity};
}

const uint8_t card[6] = {1, 2, 3, 4, 5, 6};

std::vector<sys_case> all_cases()
{
    std::vector<sys_case> cases;
    const auto add = [&](sys_case each) { cases.push_back(std::move(each)); };

    /* A reply of nothing is of sub-type 0, so these requests tell that when they
     * are answered with nothing. */
    add(silent(
        "slot_status",
        [] { return ask_slots([](void *o, uint32_t *n) { return get_slot_status(0, 0, o, n); }); },
        slot_query(17)));
    add(silent(
        "slot_status_of_another_board",
        [] { return ask_slots([](void *o, uint32_t *n) { return get_slot_status(3, 0x20102, o, n); }); },
        slot_query(0x03010211)));
    add(silent(
        "slot_status_ignores_the_cpu_of_slot_0",
        [] { return ask_slots([](void *o, uint32_t *n) { return get_slot_status(0, 5, o, n); }); },
        slot_query(17)));
    add(silent(
        "slot_status_of_no_node",
        [] { return ask_slots([](void *o, uint32_t *n) { return get_slot_status(256, 0, o, n); }); },
        slot_query(0xffffffff)));
    add(silent(
        "local_slot_status", [] { return ask_slots(chassisd_get_slot_status); }, slot_query(17)));
    add(silent(
        "slot_status2",
        [] { return ask_slots([](void *o, uint32_t *n) { return chassisd_get_slot_status2(2, 1, o, n); }); },
        slot_query(0x02000111)));
    add(silent(
        "specified_slot", [] { return get_chassis_specified_slot_status(1); }, slot_query(17)));
    add(silent(
        "card_is_online", [] { return chassisd_card_is_online(1); }, slot_query(17)));
    using state_test = int (*)(int);
    for (const auto &[name, call] :
         std::map<const char *, state_test>{{"card_is_present", chassisd_card_is_present},
                                            {"card_is_enter_booting", chassisd_card_is_enter_booting}}) {
        sys_case each = silent(
            name, [call = call] { return call(1); }, slot_query(17));
        each.result_not_sent = each.result_refused = each.result_no_buffer = 0;
        add(each);
    }
    sys_case qsm = silent("qsm_is_available", qsm_is_available, slot_query(17));
    qsm.result_not_sent = qsm.result_refused = qsm.result_no_buffer = 0;
    add(qsm);

    add(silent(
        "slot_cpu_info", [] { return chassisd_get_slot_cpu_info(4, 2, output.as<uint32_t>()); },
        cpu_query(0x04000211, 6, 33)));
    add(silent(
        "local_cpu_info", [] { return chassisd_get_local_cpu_info(output.as<uint32_t>()); },
        cpu_query(17, 6, 33)));
    add(silent(
        "system_cpu_info_of_a_single_board",
        [] { return chassisd_get_system_current_cpu_info(output.as<uint32_t>()); }, cpu_query(17, 6, 33)));

    sys_case mem = silent(
        "slot_mem", [] { return chassisd_get_slot_mem(4, 0x10002, output.as<uint64_t>()); },
        cpu_query(0x04000211, 11, 81));
    mem.result_not_sent = -3;
    mem.can_be_refused = false;
    add(mem);

    add(silent(
        "set_slot_mem_calc_mode", [] { return chassisd_set_slot_mem_calc_mode(2, 3, 0x01020304); },
        {timed, 0x02000311, 24, 3000, record_of(84, {{0, le32(12)}, {76, le32(0x01020304)}}), 84, true}));

    sys_case bypass = silent("bypass_info",
                             [] {
                                 const int result =
                                     chassisd_get_bypass_info(0x01020304, out_pointer(), out_length());
                                 if (result == 0)
                                     platform().free_as_caller(*out_pointer());
                                 return result;
                             },
                             {timed, 17, 24, 3000, {4, 3, 2, 1}, 4176});
    bypass.told_no_request = "[chassisd_get_bypass_info]some error occured: rc=-2, retval=0, outlen=4176\n";
    bypass.told_no_reply = "[chassisd_get_bypass_info]some error occured: rc=-3, retval=0, outlen=4176\n";
    bypass.told_not_sent = "[chassisd_get_bypass_info]some error occured: rc=-3, retval=0, outlen=4176\n";
    bypass.told_refused = "[chassisd_get_bypass_info]some error occured: rc=0, retval=-7, outlen=4176\n";
    add(bypass);

    sys_case temp =
        silent("cpu_temp", [] { return chassisd_get_cpu_temp(0x10203, 0x40506, output.as<uint32_t>()); },
               {plain, 17, 24, 2000, {28, 0, 0, 0, 3, 2, 6, 5, 0, 0, 0, 0}, 12, true});
    temp.told_not_sent = "ipc error, rc is -3, ret is 0, outlen is 12.\n";
    temp.told_refused = "ipc error, rc is 0, ret is -7, outlen is 12.\n";
    add(temp);
    temp.name = "cpu_temp_of_a_numa_platform";
    temp.board = {{"tq_is_numa_platform", 1}};
    temp.sent.request = {28, 0, 0, 0, 9, 0, 0, 0, 0, 0, 0, 0};
    add(temp);

    const auto module_request = [](uint32_t code, std::initializer_list<std::pair<size_t, bytes>> parts) {
        bytes out = record_of(220, parts);
        out[0] = static_cast<uint8_t>(code);
        return out;
    };
    sys_case module_info = silent(
        "module_info", [] { return libchassisd_get_module_info(output.as<uint32_t>(), 0x01020304); },
        {plain, 17, 149, 2000, module_request(20, {{208, le32(4)}, {212, le32(0x01020304)}}), 221, true});
    module_info.result_not_sent = module_info.result_refused = -2;
    add(module_info);

    const bytes by_slot = module_request(4, {{54, le16(0x0102)}});
    sys_case state = silent("module_slot_state",
                            [] { return libchassisd_get_module_slot_state(0x0102, output.as<uint32_t>()); },
                            {timed, 17, 149, 2000, by_slot, 4000, true});
    state.told_no_request = "ipcmsg_alloc error.\n";
    state.told_not_sent = state.told_refused = "ipc error.\n";
    add(state);
    sys_case platform_id = state;
    platform_id.name = "module_plat_id";
    platform_id.call = [] { return int64_t{libchassisd_get_module_plat_id(0x0102)}; };
    platform_id.result_not_sent = platform_id.result_refused = platform_id.result_no_buffer = 0;
    add(platform_id);
    sys_case fru = state;
    fru.name = "module_fru_entry";
    fru.call = [] { return libchassisd_get_module_fru_entry(0x0102, output.bytes, 208); };
    fru.board = {{"tq_get_mcp_slot", 6}};
    fru.sent.by = plain;
    fru.sent.destination = 0x07000011;
    add(fru);

    add(silent("is_slot_cfg_removable",
               [] { return libchassisd_is_slot_cfg_removable(0x0102, output.as<uint32_t>()); },
               {timed, 17, 224, 3000, {1, 0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0}, 12, true}));
    add(silent("clear_slot_cfg", [] { return libchassisd_clear_slot_cfg(0x0102); },
               {timed, 17, 224, 3000, {2, 0, 0, 0, 2, 1, 0, 0, 0, 0, 0, 0}, 12, true}));

    const char *const virtual_platforms[] = {"tq_is_vfw_platform", "tq_is_vwaf_platform",
                                             "tq_is_vadc_platform"};
    for (const char *predicate : virtual_platforms) {
        sys_case detach =
            silent(predicate, [] { return libchassisd_detach_slot(0x30102); },
                   {sender::send, 0, 152, 0, record_of(56, {{0, le32(30)}, {4, le16(0x0102)}})});
        detach.told_no_request = "Alloc ipcmsg buffer failed.\n";
        detach.board = {{predicate, 1}};
        add(detach);
    }

    sys_case pool =
        silent("data_pak_buffer_pool_info",
               [] { return libchassisd_get_data_pak_buffer_pool_info(output.as<uint32_t>(), 0x01020304); },
               {timed, 0, 40, 2000, record_of(24, {{0, le32(9)}, {4, le32(0x01020304)}}), 24, true});
    pool.result_not_sent = pool.result_refused = -2;
    add(pool);

    struct notice {
        const char *name;
        int (*call)(const void *, uint16_t *);
        uint32_t code;
    };
    for (const notice &each : {notice{"notify_boot_pic", libchassisd_vchassis_notify_boot_pic, 1},
                               notice{"notify_stop_pic", libchassisd_vchassis_notify_stop_pic, 3},
                               notice{"notify_reboot_pic", libchassisd_vchassis_notify_reboot_pic, 9}}) {
        sys_case notify = silent(
            each.name, [call = each.call] { return call(card, output.as<uint16_t>()); },
            {timed, 17, 651, 3000, record_of(264, {{0, le32(each.code)}, {4, {1, 2, 3, 4, 5, 6}}}), 3});
        notify.told_no_request = notify.told_no_reply = "Alloc ipcmsg buffer failed\n";
        add(notify);
    }
    return cases;
}

struct chassisd_exchanges : sys_exchanges {
};

TEST_P(chassisd_exchanges, send_their_request)
{
    check_message(GetParam());
}

TEST_P(chassisd_exchanges, fail_as_described)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(chassisd, chassisd_exchanges, testing::ValuesIn(all_cases()), sys_case_name);

struct chassisd : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        output.reset();
    }
};

/* --- the slot table --- */

bytes entry(uint16_t slot, uint16_t cpu, uint32_t type, uint32_t state, uint32_t role = 0)
{
    return join({le16(slot), le16(cpu), le32(type), repeat(0xCC, 32), le32(state), le32(role)});
}

bytes table(const std::vector<bytes> &entries)
{
    bytes rows;
    for (const bytes &each : entries)
        rows.insert(rows.end(), each.begin(), each.end());
    return join({le16(1), repeat(0xDD, 4), le16(static_cast<uint32_t>(rows.size())), rows});
}

TEST_F(chassisd, slot_table_is_copied_and_its_length_told)
{
    platform().fallback = {0, 0, table({entry(1, 0, 7, 15), entry(2, 0, 8, 9)}), {}};
    uint32_t length = 500;
    EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), 0);
    EXPECT_EQ(length, 96u);
    EXPECT_EQ(output.first(97), join({entry(1, 0, 7, 15), entry(2, 0, 8, 9), {0x5A}}));
}

TEST_F(chassisd, slot_table_may_just_fit)
{
    platform().fallback = {0, 3, table({entry(1, 0, 7, 15)}), {}};
    uint32_t length = 48;
    EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), 0);
    length = 47;
    output.reset();
    EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), -1);
    EXPECT_EQ(platform().console, "*outbuf len is 47,rsp->datalen is 48\n");
    EXPECT_EQ(length, 47u);
    EXPECT_TRUE(output.untouched());
}

TEST_F(chassisd, slot_table_of_another_kind_is_refused)
{
    for (const uint32_t subtype : {0u, 2u, 0xffffu}) {
        bytes reply = table({entry(1, 0, 7, 15)});
        reply[0] = static_cast<uint8_t>(subtype);
        reply[1] = static_cast<uint8_t>(subtype >> 8);
        platform().console.clear();
        platform().fallback = {0, 0, reply, {}};
        uint32_t length = 500;
        EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), -1);
        EXPECT_EQ(platform().console, "rsp sub type is " + std::to_string(subtype) + "\n");
        EXPECT_EQ(length, 500u);
    }
    EXPECT_TRUE(output.untouched());
}

TEST_F(chassisd, slot_table_bytes_that_were_not_sent_are_zero)
{
    bytes reply = table({entry(1, 0, 7, 15)});
    reply.resize(20);
    platform().fallback = {0, 0, reply, {}};
    uint32_t length = 500;
    EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), 0);
    EXPECT_EQ(length, 48u);
    bytes expected(reply.begin() + 8, reply.end());
    expected.resize(48);
    expected.push_back(0x5A);
    EXPECT_EQ(output.first(49), expected);
}

TEST_F(chassisd, slot_table_longer_than_the_reply_buffer_is_not_read_beyond_it)
{
    bytes reply = join({le16(1), repeat(0, 4), le16(6000), repeat('r', 5992)});
    platform().fallback = {0, 0, reply, {}};
    std::vector<uint8_t> out(6000, 0x5A);
    uint32_t length = 6000;
    EXPECT_EQ(get_slot_status(0, 0, out.data(), &length), 0);
    EXPECT_EQ(out[4991], 'r');
    EXPECT_EQ(bytes(out.begin() + 4992, out.end()), repeat(0, 1008));
}

TEST_F(chassisd, empty_reply_is_of_sub_type_0)
{
    platform().fallback = {0, 0, {}, {}};
    uint32_t length = 500;
    EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), -1);
    EXPECT_EQ(platform().console, "rsp sub type is 0\n");
}

TEST_F(chassisd, a_numa_io_board_serves_no_queries)
{
    platform().board["tq_is_numa_ioc"] = 1;
    platform().fallback = {0, 0, repeat(1, 600), {}};
    uint32_t length = 500;
    EXPECT_EQ(get_slot_status(0, 0, output.bytes, &length), -1);
    EXPECT_EQ(chassisd_get_cpu_info(0, 0, 6, out_pointer(), out_length()), -1);
    EXPECT_EQ(chassisd_get_slot_mem(0, 0, output.as<uint64_t>()), -1);
    EXPECT_EQ(chassisd_set_slot_mem_calc_mode(0, 0, 1), -1);
    EXPECT_EQ(get_chassis_specified_slot_status(1), -1);
    EXPECT_EQ(chassisd_get_slot_cpu_info(1, 0, output.as<uint32_t>()), -1);
    EXPECT_EQ(chassisd_get_local_cpu_info(output.as<uint32_t>()), -1);
    for (const uint32_t multi_processor : {0u, 1u}) {
        platform().board["tq_is_mcpu_platform"] = multi_processor;
        EXPECT_EQ(chassisd_get_system_current_cpu_info(output.as<uint32_t>()), -1);
    }
    EXPECT_EQ(qsm_is_available(), 0);
    EXPECT_EQ(platform().allocations, 0u);
    EXPECT_EQ(platform().console, "");
    EXPECT_TRUE(output.untouched());
}

TEST_F(chassisd, state_of_a_slot_is_that_of_its_first_entry)
{
    platform().fallback = {
        0, 0, table({entry(1, 0, 0, 4), entry(2, 1, 0, 5), entry(2, 0, 0, 6), entry(2, 0, 0, 7)}), {}};
    EXPECT_EQ(get_chassis_specified_slot_status(1), 4);
    EXPECT_EQ(get_chassis_specified_slot_status(2), 6) << "an entry of another processor is another number";
    EXPECT_EQ(get_chassis_specified_slot_status(0x10002), 5);
    EXPECT_EQ(get_chassis_specified_slot_status(3), 0);
}

TEST_F(chassisd, looks_at_32_slots_at_most)
{
    std::vector<bytes> entries;
    for (uint16_t slot = 1; slot <= 32; slot++)
        entries.push_back(entry(slot, 0, 0, 15));
    platform().fallback = {0, 0, table(entries), {}};
    EXPECT_EQ(get_chassis_specified_slot_status(32), 15);
    entries.push_back(entry(33, 0, 0, 15));
    platform().fallback = {0, 0, table(entries), {}};
    EXPECT_EQ(get_chassis_specified_slot_status(1), -1);
    EXPECT_EQ(platform().console, "*outbuf len is 1536,rsp->datalen is 1584\n");
}

TEST_F(chassisd, part_of_an_entry_is_none)
{
    bytes reply = table({entry(1, 0, 0, 15), entry(2, 0, 0, 15)});
    reply[6] = 95;
    platform().fallback = {0, 0, reply, {}};
    EXPECT_EQ(get_chassis_specified_slot_status(1), 15);
    EXPECT_EQ(get_chassis_specified_slot_status(2), 0);
}

struct state_case {
    uint32_t state;
    int present, booting, online;
};

TEST_F(chassisd, card_states)
{
    const state_case cases[] = {{0, 0, 0, 0},  {2, 0, 0, 0},  {3, 1, 0, 0},
                                {8, 1, 0, 0},  {9, 1, 1, 0},  {14, 1, 1, 0},
                                {15, 1, 1, 1}, {16, 1, 1, 0}, {0x80000000, 0, 0, INT32_MIN}};
    for (const state_case &each : cases) {
        platform().fallback = {0, 0, table({entry(5, 0, 0, each.state)}), {}};
        EXPECT_EQ(chassisd_card_is_present(5), each.present) << each.state;
        EXPECT_EQ(chassisd_card_is_enter_booting(5), each.booting) << each.state;
        EXPECT_EQ(chassisd_card_is_online(5), each.online) << each.state;
    }
    platform().fallback = {0, 0, table({}), {}};
    EXPECT_EQ(chassisd_card_is_present(5), 0) << "not in the table: absent";
    EXPECT_EQ(chassisd_card_is_enter_booting(5), 0);
    EXPECT_EQ(chassisd_card_is_online(5), 0);
}

TEST_F(chassisd, qsm_must_be_of_its_type_and_present)
{
    platform().board_of[{"tq_is_qsm_id", 0x77}] = 5;
    platform().fallback = {0, 0, table({entry(1, 0, 0x66, 15), entry(2, 0, 0x77, 2)}), {}};
    EXPECT_EQ(qsm_is_available(), 0);
    platform().fallback = {0, 0, table({entry(1, 0, 0x66, 15), entry(2, 0, 0x77, 3)}), {}};
    EXPECT_EQ(qsm_is_available(), 1);
    platform().fallback = {0, 0, table({}), {}};
    EXPECT_EQ(qsm_is_available(), 0);
}

TEST_F(chassisd, qsm_is_found_in_any_place)
{
    platform().board_of[{"tq_is_qsm_id", 0x77}] = 1;
    for (size_t slots = 1; slots < 10; slots++)
        for (size_t at = 0; at <= slots; at++) {
            std::vector<bytes> entries(slots, entry(1, 0, 0x66, 15));
            for (size_t i = 1; i < slots; i += 2)
                entries[i] = entry(1, 0, 0x77, 2);
            if (at < slots)
                entries[at] = entry(1, 0, 0x77, 3);
            platform().fallback = {0, 0, table(entries), {}};
            EXPECT_EQ(qsm_is_available(), at < slots ? 1 : 0) << at << " of " << slots;
        }
}

/* --- processors --- */

TEST_F(chassisd, cpu_info_reply_sizes_go_by_the_sub_type)
{
    const std::map<uint32_t, uint32_t> capacities = {{5, 33},    {6, 33},    {7, 597}, {8, 17533},
                                                     {9, 17533}, {10, 7021}, {24, 17}};
    for (uint32_t subtype = 0; subtype < 40; subtype++) {
        SCOPED_TRACE(subtype);
        platform().reset();
        platform().fallback = {0, 0, repeat(static_cast<uint8_t>(subtype), 10), {}};
        void *out = nullptr;
        uint32_t length = 0;
        const auto known = capacities.find(subtype);
        const int result = chassisd_get_cpu_info(2, 1, subtype, &out, &length);
        if (known == capacities.end()) {
            EXPECT_EQ(result, -1);
            EXPECT_EQ(platform().allocations, 0u);
            continue;
        }
        EXPECT_EQ(result, 0);
        expect_message(platform().messages.at(0), cpu_query(0x02000111, subtype, known->second));
        EXPECT_EQ(length, 10u);
        EXPECT_EQ(static_cast<uint8_t *>(out)[9], subtype);
        EXPECT_EQ(platform().outstanding(), 1u);
        platform().free_as_caller(out);
    }
}

TEST_F(chassisd, cpu_info_length_is_what_the_buffer_holds)
{
    platform().fallback = {0, 0, repeat(1, 100), {}};
    void *out = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(chassisd_get_cpu_info(0, 0, 24, &out, &length), 0);
    EXPECT_EQ(length, 17u);
    platform().free_as_caller(out);
}

TEST_F(chassisd, cpu_info_failures_hand_nothing_over)
{
    sys_case with = silent(
        "cpu_info", [] { return chassisd_get_cpu_info(0, 0, 7, out_pointer(), out_length()); },
        cpu_query(17, 7, 597));
    check_failures(with);
}

bytes cpu_reply(std::initializer_list<uint32_t> record)
{
    bytes out = repeat(0xEE, 12);
    for (const uint32_t each : record) {
        const bytes word = le32(each);
        out.insert(out.end(), word.begin(), word.end());
    }
    out.push_back(0xEE);
    return out;
}

TEST_F(chassisd, cpu_record_is_at_12)
{
    platform().fallback = {0, 0, cpu_reply({1, 2, 3, 4, 0xfffffff5}), {}};
    EXPECT_EQ(chassisd_get_slot_cpu_info(1, 2, output.as<uint32_t>()), 0);
    EXPECT_EQ(output.first(21), join({le32(1), le32(2), le32(3), le32(4), le32(0xfffffff5), {0x5A}}));
    EXPECT_EQ(platform().outstanding(), 0u);
}

TEST_F(chassisd, cpu_record_of_a_short_reply_is_zero_where_nothing_came)
{
    platform().fallback = {0, 0, bytes(18, 0x11), {}};
    EXPECT_EQ(chassisd_get_local_cpu_info(output.as<uint32_t>()), 0);
    EXPECT_EQ(output.first(20), join({repeat(0x11, 6), repeat(0, 14)}));
}

/* A chassis: the slot table at 17, processor records at the boards. */
struct chassisd_system_cpu : chassisd {
    std::vector<bytes> entries;
    std::map<uint32_t, std::array<uint32_t, 2>> figures; /* by address: second field and the first, a mark */
    std::vector<uint32_t> asked;
    bool table_fails = false;

    void SetUp() override
    {
        chassisd::SetUp();
        platform().board["tq_is_mcpu_platform"] = 1;
        figures[17] = {1, 999};
        platform().handler = [this](const sent_message &sent) -> answer {
            if (sent.type == 153)
                return table_fails ? answer{-1, 0, {}, {}} : answer{0, 0, table(entries), {}};
            asked.push_back(sent.destination);
            const auto found = figures.find(sent.destination);
            if (found == figures.end())
                return {-1, 0, {}, {}};
            return {0, 0, cpu_reply({found->second[1], found->second[0], 0, 0, 0}), {}};
        };
    }
    uint32_t winner()
    {
        uint32_t record[5] = {};
        EXPECT_EQ(chassisd_get_system_current_cpu_info(record), 0);
        return record[0];
    }
};

TEST_F(chassisd_system_cpu, is_the_largest_of_the_counted_cards)
{
    entries = {entry(1, 0, 0, 15, 6), entry(2, 3, 0, 15, 6), entry(3, 0, 0, 15, 6)};
    figures[0x02000011] = {50, 101};
    figures[0x03000311] = {70, 102};
    figures[0x04000011] = {60, 103};
    EXPECT_EQ(winner(), 102u);
    EXPECT_EQ(asked, (std::vector<uint32_t>{0x02000011, 0x03000311, 0x04000011}));
}

TEST_F(chassisd_system_cpu, the_first_wins_a_tie)
{
    entries = {entry(1, 0, 0, 15, 6), entry(2, 0, 0, 15, 6)};
    figures[0x02000011] = {50, 101};
    figures[0x03000011] = {50, 102};
    EXPECT_EQ(winner(), 101u);
}

TEST_F(chassisd_system_cpu, a_winner_may_be_idle)
{
    entries = {entry(1, 0, 0, 15, 6)};
    figures[0x02000011] = {0, 101};
    EXPECT_EQ(winner(), 101u);
}

TEST_F(chassisd_system_cpu, compares_without_a_sign)
{
    entries = {entry(1, 0, 0, 15, 6), entry(2, 0, 0, 15, 6)};
    figures[0x02000011] = {5, 101};
    figures[0x03000011] = {0x80000000, 102};
    EXPECT_EQ(winner(), 102u);
}

TEST_F(chassisd_system_cpu, passes_over_boards_that_do_not_answer)
{
    entries = {entry(1, 0, 0, 15, 6), entry(2, 0, 0, 15, 6)};
    figures[0x03000011] = {0, 102};
    EXPECT_EQ(winner(), 102u);
}

TEST_F(chassisd_system_cpu, counts_online_cards_of_the_role_only)
{
    entries = {entry(1, 0, 0, 14, 6),         entry(2, 0, 0, 15, 5),         entry(3, 0, 0x1052300, 15, 6),
               entry(4, 0, 0x1052400, 15, 6), entry(5, 0, 0x1190300, 15, 6), entry(6, 0, 0, 16, 6)};
    for (uint32_t node = 1; node < 9; node++)
        figures[node << 24 | 17] = {99, node};
    EXPECT_EQ(winner(), 999u) << "the local record";
    EXPECT_EQ(asked, (std::vector<uint32_t>{17}));
}

TEST_F(chassisd_system_cpu, is_the_local_record_without_a_table_or_a_chassis)
{
    entries = {entry(1, 0, 0, 15, 6)};
    figures[0x02000011] = {50, 101};
    table_fails = true;
    EXPECT_EQ(winner(), 999u);
    table_fails = false;
    EXPECT_EQ(winner(), 101u);
    platform().board["tq_is_mcpu_platform"] = 0;
    EXPECT_EQ(winner(), 999u);
}

TEST_F(chassisd_system_cpu, failures_leave_the_record)
{
    entries = {entry(1, 0, 0, 15, 6)};
    figures.clear();
    EXPECT_EQ(chassisd_get_system_current_cpu_info(output.as<uint32_t>()), -1);
    EXPECT_TRUE(output.untouched());
}

/* --- memory, bypass, temperature --- */

TEST_F(chassisd, slot_mem_is_ten_figures)
{
    bytes reply;
    for (uint64_t i = 1; i <= 10; i++) {
        const bytes each = le64(i << 40 | i);
        reply.insert(reply.end(), each.begin(), each.end());
    }
    for (const size_t length : {80u, 81u, 90u}) {
        output.reset();
        reply.resize(80);
        bytes sent = reply;
        sent.resize(length, 0xEE);
        platform().fallback = {0, -5, sent, {}};
        EXPECT_EQ(chassisd_get_slot_mem(0, 0, output.as<uint64_t>()), 0) << length;
        EXPECT_EQ(output.first(81), join({reply, {0x5A}}));
    }
}

TEST_F(chassisd, slot_mem_of_a_short_reply_is_the_transports_result)
{
    platform().answers = {{0, 0, repeat(1, 79), {}}, {4, 0, repeat(1, 79), {}}, {-4, 0, {}, {}}};
    EXPECT_EQ(chassisd_get_slot_mem(0, 0, output.as<uint64_t>()), 0);
    EXPECT_EQ(chassisd_get_slot_mem(0, 0, output.as<uint64_t>()), 4);
    EXPECT_EQ(chassisd_get_slot_mem(0, 0, output.as<uint64_t>()), -4);
    EXPECT_TRUE(output.untouched());
}

TEST_F(chassisd, slot_mem_without_a_buffer_is_minus_one)
{
    for (const uint32_t failing : {1u, 2u}) {
        platform().reset();
        platform().fail_allocation(failing);
        EXPECT_EQ(chassisd_get_slot_mem(0, 0, output.as<uint64_t>()), -1);
    }
    EXPECT_TRUE(output.untouched());
}

TEST_F(chassisd, bypass_reply_is_handed_over)
{
    platform().fallback = {0, 2, repeat(0x44, 4000), {}};
    void *out = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(chassisd_get_bypass_info(1, &out, &length), 0);
    EXPECT_EQ(length, 4000u);
    EXPECT_EQ(static_cast<uint8_t *>(out)[3999], 0x44);
    platform().free_as_caller(out);
    EXPECT_EQ(platform().console, "");
}

TEST_F(chassisd, bypass_failure_tells_the_received_length)
{
    platform().fallback = {2, -9, repeat(0x44, 77), {}};
    EXPECT_EQ(chassisd_get_bypass_info(1, out_pointer(), out_length()), -1);
    EXPECT_EQ(platform().console,
              "[chassisd_get_bypass_info]some error occured: rc=2, retval=-9, outlen=77\n");
}

TEST_F(chassisd, temperature_keeps_its_sign)
{
    const std::pair<uint16_t, uint32_t> cases[] = {
        {45, 45}, {0x7fff, 0x7fff}, {0x8000, 0xffff8000}, {0xfff6, 0xfffffff6}};
    for (const auto &[sent, expected] : cases) {
        platform().fallback = {0, 0, record_of(12, {{8, le16(sent)}}), {}};
        EXPECT_EQ(chassisd_get_cpu_temp(1, 1, output.as<uint32_t>()), 0);
        EXPECT_EQ(*output.as<uint32_t>(), expected);
    }
}

TEST_F(chassisd, temperature_that_a_short_reply_does_not_reach_is_0)
{
    platform().fallback = {0, 0, repeat(0x11, 9), {}};
    EXPECT_EQ(chassisd_get_cpu_temp(1, 1, output.as<uint32_t>()), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0u);
}

TEST_F(chassisd, temperature_needs_a_place)
{
    EXPECT_EQ(chassisd_get_cpu_temp(1, 1, nullptr), -1);
    EXPECT_EQ(platform().allocations, 0u);
}

/* --- modules --- */

TEST_F(chassisd, module_number_is_at_212)
{
    platform().fallback = {0, 0, record_of(220, {{212, le32(0x01020304)}}), {}};
    EXPECT_EQ(libchassisd_get_module_number(output.as<uint32_t>()), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0x01020304u);
    expect_message(platform().messages.at(0),
                   {plain, 17, 149, 2000, record_of(220, {{0, le32(19)}, {208, le32(3)}}), 221, true});
    EXPECT_EQ(platform().allocation_sizes, (std::vector<uint32_t>{221}));
}

TEST_F(chassisd, module_number_is_0_on_failure)
{
    platform().answers = {{-1, 0, {}, {}}, {0, -1, repeat(1, 220), {}}};
    for (int i = 0; i < 3; i++) {
        output.reset();
        if (i == 2)
            platform().fail_allocation(3);
        EXPECT_EQ(libchassisd_get_module_number(output.as<uint32_t>()), -1);
        EXPECT_EQ(*output.as<uint32_t>(), 0u);
    }
    EXPECT_EQ(platform().console, "");
}

bytes module_reply(uint32_t kind, const bytes &name, const bytes &second, uint16_t slot = 3)
{
    return record_of(220, {{18, second}, {54, le16(slot)}, {90, name}, {204, le32(kind)}});
}

TEST_F(chassisd, module_record_is_filled_whole)
{
    platform().fallback = {
        0, 0, module_reply(20, text_field("SM-8X", 20), text_field("serial 1", 20), 0xffff), {}};
    EXPECT_EQ(libchassisd_get_module_info(output.as<uint32_t>(), 0), 0);
    EXPECT_EQ(output.first(233), join({le32(1),
                                       text_field("slot 65535", 128),
                                       le32(11),
                                       text_field("SM-8X", 64),
                                       text_field("serial 1", 32),
                                       {0x5A}}));
}

TEST_F(chassisd, module_texts_are_cut_to_their_fields)
{
    platform().fallback = {0, 0, module_reply(0, repeat('n', 64), repeat('s', 32)), {}};
    EXPECT_EQ(libchassisd_get_module_info(output.as<uint32_t>(), 0), 0);
    EXPECT_EQ(bytes(output.bytes + 136, output.bytes + 232),
              join({repeat('n', 63), {0}, repeat('s', 31), {0}}));
}

TEST_F(chassisd, module_record_of_an_empty_reply)
{
    platform().behind_reply = 0xEE;
    platform().fallback = {0, 0, {}, {}};
    EXPECT_EQ(libchassisd_get_module_info(output.as<uint32_t>(), 0), 0);
    EXPECT_EQ(output.first(232), join({le32(1), text_field("slot 0", 128), repeat(0, 100)}));
}

TEST_F(chassisd, module_texts_end_with_the_reply)
{
    platform().behind_reply = 0xEE;
    platform().fallback = {0, 0, repeat('t', 93), {}};
    EXPECT_EQ(libchassisd_get_module_info(output.as<uint32_t>(), 0), 0);
    EXPECT_STREQ(output.as<char>() + 136, "ttt");
    platform().fallback = {0, 0, repeat('t', 20), {}};
    EXPECT_EQ(libchassisd_get_module_info(output.as<uint32_t>(), 0), 0);
    EXPECT_STREQ(output.as<char>() + 136, "");
    EXPECT_STREQ(output.as<char>() + 200, "tt");
}

TEST_F(chassisd, module_kinds_are_the_librarys)
{
    const std::map<uint32_t, uint32_t> kinds = {{0, 0},   {1, 1},   {3, 2},   {8, 9},  {9, 9},  {11, 10},
                                                {13, 3},  {14, 4},  {15, 5},  {16, 6}, {17, 7}, {18, 8},
                                                {20, 11}, {21, 13}, {22, 14}, {23, 12}};
    for (uint32_t kind = 0; kind < 300; kind++) {
        platform().fallback = {0, 0, module_reply(kind, {}, {}), {}};
        EXPECT_EQ(libchassisd_get_module_info(output.as<uint32_t>(), 0), 0);
        const auto known = kinds.find(kind);
        EXPECT_EQ(output.as<uint32_t>()[33], known != kinds.end() ? known->second : 0u) << kind;
    }
}

TEST_F(chassisd, module_record_must_be_there)
{
    EXPECT_EQ(libchassisd_get_module_info(nullptr, 0), -1);
    EXPECT_EQ(platform().allocations, 0u);
}

TEST_F(chassisd, module_queries_by_slot)
{
    bytes reply = record_of(300, {{12, le32(0x01020304)}, {204, le32(0x0a0b0c0d)}});
    platform().fallback = {0, 0, reply, {}};
    EXPECT_EQ(libchassisd_get_module_plat_id(1), 0x01020304u);
    EXPECT_EQ(libchassisd_get_module_slot_state(1, output.as<uint32_t>()), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0x0a0b0c0du);
}

TEST_F(chassisd, fru_block_is_208_bytes_at_12)
{
    bytes reply(400);
    for (size_t i = 0; i < reply.size(); i++)
        reply[i] = static_cast<uint8_t>(i);
    platform().fallback = {0, 0, reply, {}};
    const std::pair<int, size_t> lengths[] = {{-1, 0}, {0, 0}, {1, 1}, {207, 207}, {208, 208}, {209, 208}};
    for (const auto &[asked, copied] : lengths) {
        output.reset();
        EXPECT_EQ(libchassisd_get_module_fru_entry(1, output.bytes, asked), 0);
        bytes expected(reply.begin() + 12, reply.begin() + 12 + static_cast<ptrdiff_t>(copied));
        expected.push_back(0x5A);
        EXPECT_EQ(output.first(copied + 1), expected);
    }
    const size_t asked_so_far = platform().messages.size();
    EXPECT_EQ(libchassisd_get_module_fru_entry(1, nullptr, 208), -1);
    EXPECT_EQ(platform().messages.size(), asked_so_far);
}

TEST_F(chassisd, fru_block_of_a_short_reply_is_zero_where_nothing_came)
{
    platform().behind_reply = 0xEE;
    for (const size_t length : {0u, 12u, 13u, 219u}) {
        output.reset();
        platform().fallback = {0, 0, repeat(0x41, length), {}};
        EXPECT_EQ(libchassisd_get_module_fru_entry(1, output.bytes, 208), 0);
        const size_t came = length < 12 ? 0 : length - 12;
        EXPECT_EQ(output.first(209), join({repeat(0x41, came), repeat(0, 208 - came), {0x5A}})) << length;
    }
}

/* --- slot operations --- */

TEST_F(chassisd, slot_cfg_answer_is_at_8)
{
    platform().fallback = {0, 0, record_of(12, {{8, le32(0x01020304)}}), {}};
    EXPECT_EQ(libchassisd_is_slot_cfg_removable(1, output.as<uint32_t>()), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0x01020304u);
    EXPECT_EQ(libchassisd_clear_slot_cfg(1), 0);
}

TEST_F(chassisd, slot_cfg_answer_that_a_short_reply_does_not_reach_is_0)
{
    platform().fallback = {0, 0, repeat(0xff, 11), {}};
    EXPECT_EQ(libchassisd_is_slot_cfg_removable(1, output.as<uint32_t>()), 0);
    EXPECT_EQ(*output.as<uint32_t>(), 0u);
}

TEST_F(chassisd, slots_are_detached_on_virtual_platforms_only)
{
    EXPECT_EQ(libchassisd_detach_slot(1), -1);
    EXPECT_EQ(platform().console, "Support detach slot on vFW platform\n");
    EXPECT_EQ(platform().allocations, 0u);
    platform().board["tq_is_vadc_platform"] = 1;
    platform().fallback = {1, 0, {}, {}};
    EXPECT_EQ(libchassisd_detach_slot(1), 0);
}

TEST_F(chassisd, buffer_pool_figures_are_at_8)
{
    platform().fallback = {
        0, 0, record_of(24, {{8, le32(1)}, {12, le32(2)}, {16, le32(3)}, {20, le32(0xfffffffe)}}), {}};
    EXPECT_EQ(libchassisd_get_data_pak_buffer_pool_info(output.as<uint32_t>(), 7), 0);
    EXPECT_EQ(output.first(17), join({le32(1), le32(2), le32(3), le32(0xfffffffe), {0x5A}}));
}

TEST_F(chassisd, buffer_pool_figures_of_other_lengths)
{
    platform().behind_reply = 0xEE;
    for (const size_t length : {0u, 8u, 11u, 23u, 30u}) {
        output.reset();
        platform().fallback = {0, 0, repeat(0x41, length), {}};
        EXPECT_EQ(libchassisd_get_data_pak_buffer_pool_info(output.as<uint32_t>(), 7), 0);
        const size_t came = length < 8 ? 0 : std::min<size_t>(length - 8, 16);
        EXPECT_EQ(output.first(17), join({repeat(0x41, came), repeat(0, 16 - came), {0x5A}})) << length;
    }
}

TEST_F(chassisd, card_notices_need_an_answer_of_two_bytes)
{
    for (const auto call : {libchassisd_vchassis_notify_boot_pic, libchassisd_vchassis_notify_stop_pic,
                            libchassisd_vchassis_notify_reboot_pic}) {
        for (size_t length = 0; length < 5; length++) {
            output.reset();
            platform().fallback = {0, 0, bytes{0x34, 0x92, 0xEE, 0xEE}, {}};
            platform().fallback.reply.resize(length);
            EXPECT_EQ(call(card, output.as<uint16_t>()), length < 2 ? -1 : 0) << length;
            if (length < 2)
                EXPECT_TRUE(output.untouched());
            else
                EXPECT_EQ(*output.as<uint16_t>(), 0x9234);
        }
    }
    EXPECT_EQ(platform().console, "");
}

TEST_F(chassisd, card_notice_without_a_card_sends_zeros)
{
    platform().fallback = {0, 0, {1, 0}, {}};
    EXPECT_EQ(libchassisd_vchassis_notify_boot_pic(nullptr, output.as<uint16_t>()), 0);
    EXPECT_EQ(platform().messages.at(0).request, record_of(264, {{0, le32(1)}}));
}

TEST_F(chassisd, emmc_behind_a_usb_bridge)
{
    EXPECT_EQ(check_emmc_convert_by_usb(), 0);
    EXPECT_EQ(platform().board_calls,
              (std::vector<std::string>{"tq_is_platform(17760768)", "tq_is_platform(17760512)",
                                        "tq_is_platform(17957120)", "tq_is_mirel7_emmc_platform"}));
    for (const uint32_t each : {0x10f0200u, 0x10f0100u, 0x1120100u}) {
        platform().reset();
        platform().board_of[{"tq_is_platform", each}] = 7;
        EXPECT_EQ(check_emmc_convert_by_usb(), 1) << each;
        EXPECT_EQ(platform().board_calls.back(), "tq_is_platform(" + std::to_string(each) + ")");
    }
    platform().reset();
    platform().board["tq_is_mirel7_emmc_platform"] = 7;
    EXPECT_EQ(check_emmc_convert_by_usb(), 7);
}

} // namespace
