#include <libmix/vchassisd.h>

#include "unit/sys/sys_cases.h"

using namespace mixtest;

/* The waits of the configuration save, without waiting:
 * this program's sleep stands before the C library's. */
static std::vector<unsigned> slept;
extern "C" unsigned sleep(unsigned seconds)
{
    slept.push_back(seconds);
    if (platform().local_time)
        platform().local_time->tm_sec += static_cast<int>(seconds);
    return 0;
}

namespace
{

using parts = std::initializer_list<std::pair<size_t, bytes>>;

expected_message asks(uint32_t timeout_ms, parts with, uint32_t destination = 97)
{
    return {sender::send_and_recv_timeout, destination, 647, timeout_ms, record_of(2361, with), 2361, true};
}

expected_message tells(parts with)
{
    return {sender::send, 97, 647, 0, record_of(2360, with)};
}

expected_message tells_master(parts with)
{
    return {sender::send_timeout, 0x06000061, 647, 500, record_of(2360, with)};
}

sys_case vchassis(const char *name, std::function<int64_t()> call, expected_message sent)
{
    return {.name = name,
            .call = std::move(call),
            .sent = std::move(sent),
            .result_not_sent = -4,
            .result_refused = -1,
            .result_no_buffer = -2,
            .board = {{"tq_get_mcp_slot", 5}}};
}

constexpr uint32_t master = 0x06000061;
const uint64_t operation[2] = {0x0102030405060708, 0x1112131415161718};
const std::string long_text(300, 't');
const char *const canonical = "01234567-89ab-cdef-0123-456789abcdef";

sys_case tenant(const char *name, const char *vm_id, const std::string &sent)
{
    return vchassis(
        name, [=] { return libvchassisd_get_tenant_vm_ip(vm_id, output.bytes); },
        asks(3000, {{0, le32(13)}, {40, bytes(sent.begin(), sent.end())}}, master));
}

const sys_case cases[] = {
    vchassis(
        "vm_oper_request", [] { return libvchassisd_vm_oper_request(operation, nullptr, 0); },
        asks(3000, {{40, join({le64(operation[0]), le64(operation[1])})}})),
    vchassis(
        "set_metadata",
        [] { return libvchassisd_set_metadata("key", 9, "value", 8, 0x01020304, nullptr, 0); },
        asks(2000, {{0, le32(1)},
                    {40, text_field("key", 3)},
                    {296, text_field("value", 5)},
                    {552, le32(0x01020304)}})),
    vchassis(
        "set_metadata_cuts_its_texts",
        [] { return libvchassisd_set_metadata(long_text.c_str(), 0, long_text.c_str(), 0, 0, nullptr, 0); },
        asks(2000, {{0, le32(1)}, {40, repeat('t', 255)}, {296, repeat('t', 255)}})),
    vchassis(
        "get_metadata",
        [] {
            const int result = libvchassisd_get_metadata("key", 9, output.as<char>(), 100, 7, nullptr, 0);
            return result;
        },
        asks(2000, {{0, le32(2)}, {40, text_field("key", 3)}, {552, le32(7)}})),
    vchassis(
        "register_address",
        [] { return libvchassisd_register_address(0x0102, 0x03040506, 0x0708090a, "10.0.0.1"); },
        tells({{0, le32(6)},
               {40, le32(0x03040506)},
               {44, le32(0x0708090a)},
               {48, le16(0x0102)},
               {50, le16(8)},
               {52, text_field("10.0.0.1", 8)}})),
    vchassis(
        "register_address_cuts_its_text",
        [] { return libvchassisd_register_address(0, 0, 0, long_text.c_str()); },
        tells({{0, le32(6)}, {50, le16(255)}, {52, repeat('t', 255)}})),
    vchassis(
        "unregister_address",
        [] { return libvchassisd_unregister_address(0x0102, 0x03040506, 0x0708090a, ""); },
        tells({{0, le32(7)}, {40, le32(0x03040506)}, {44, le32(0x0708090a)}, {48, le16(0x0102)}})),
    vchassis(
        "reset_vsom_password", [] { return libvchassisd_exec_reset_vsom_password(nullptr); },
        asks(3000, {{0, le32(9)}})),
    vchassis(
        "show_addr_debug", [] { return libvchassisd_show_addr_debug(0x0102); },
        tells({{0, le32(10)}, {40, le16(0x0102)}})),
    vchassis(
        "slot_host_cpu_num", [] { return libvchassisd_get_slot_host_cpu_num(0x0102, output.as<uint32_t>()); },
        asks(2000, {{0, le32(12)}, {40, le32(0x0102)}})),
    tenant("tenant_vm_of_digits", "0123456789abcdef0123456789abcdef", canonical),
    tenant("tenant_vm_of_the_canonical_form", canonical, canonical),
    tenant("tenant_vm_with_blanks", " 0123-4567 89ab-cdef0123456789ab cdef ", canonical),
    tenant("tenant_vm_of_other_characters", "x\ty_/89", "x\ty_/89"),
    tenant("tenant_vm_that_ends_before_a_hyphen", "01234567", "01234567"),
    tenant("tenant_vm_with_one_digit_after_a_hyphen", "012345678", "01234567-8"),
    tenant("tenant_vm_too_long", "0123456789abcdef0123456789abcdefXYZ", std::string(canonical) + "X"),
    tenant("tenant_vm_empty", "", ""),
    tenant("tenant_vm_of_nothing", nullptr, ""),
    vchassis("master_vscm_crash", libvchassisd_notify_master_vscm_crash, tells_master({{0, le32(14)}})),
    vchassis(
        "slot_state", [] { return libvchassisd_notify_slot_state(0x0102, 0x03040506); },
        asks(2000, {{0, le32(15)}, {40, le32(0x0102)}, {44, le32(0x03040506)}})),
    vchassis(
        "slot_disk_state", [] { return libvchassisd_notify_slot_disk_state(0x0102, 0x03040506); },
        tells_master({{0, le32(16)}, {40, le32(0x0102)}, {44, le32(0x03040506)}})),
    vchassis(
        "service_mode", [] { return libvchassisd_get_service_mode(output.as<uint16_t>()); },
        asks(2000, {{0, {17, 0, 0, 0}}}, master)),
    vchassis(
        "clear_mac2host", [] { return libvchassisd_exec_clear_mac2host(0x01020304, "host", nullptr); },
        asks(3000, {{0, le32(0x01020304)}, {40, text_field("host", 4)}})),
    vchassis(
        "clear_mac2host_without_a_text",
        [] { return libvchassisd_exec_clear_mac2host(11, nullptr, nullptr); }, asks(3000, {{0, le32(11)}})),
    vchassis(
        "clear_mac2host_cuts_its_text",
        [] { return libvchassisd_exec_clear_mac2host(11, long_text.c_str(), nullptr); },
        asks(3000, {{0, le32(11)}, {40, repeat('t', 255)}})),
};

struct vchassisd_exchanges : sys_exchanges {
};

TEST_P(vchassisd_exchanges, send_their_request)
{
    check_message(GetParam());
}

TEST_P(vchassisd_exchanges, fail_with_graded_codes_and_print_nothing)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(vchassisd, vchassisd_exchanges, testing::ValuesIn(cases), sys_case_name);

struct vchassisd : platform_test {
    void SetUp() override
    {
        platform_test::SetUp();
        output.reset();
        slept.clear();
        platform().behind_reply = 0xEE; /* neither is it the reply's, nor what the request had there */
    }
};

TEST_F(vchassisd, required_pointers)
{
    uint64_t op[2] = {};
    char text[8] = "";
    EXPECT_EQ(libvchassisd_vm_oper_request(nullptr, text, 8), -3);
    EXPECT_EQ(libvchassisd_set_metadata(nullptr, 0, "v", 0, 0, text, 8), -3);
    EXPECT_EQ(libvchassisd_set_metadata("k", 0, nullptr, 0, 0, text, 8), -3);
    EXPECT_EQ(libvchassisd_get_metadata(nullptr, 0, text, 8, 0, text, 8), -3);
    EXPECT_EQ(libvchassisd_get_metadata("k", 0, nullptr, 8, 0, text, 8), -3);
    EXPECT_EQ(libvchassisd_get_slot_host_cpu_num(1, nullptr), -3);
    EXPECT_EQ(libvchassisd_get_tenant_vm_ip("1", nullptr), -3);
    EXPECT_EQ(libvchassisd_get_service_mode(nullptr), -3);
    EXPECT_EQ(libvchassisd_addr_get_info(1, nullptr), -3);
    EXPECT_EQ(libvchassisd_register_address(1, 2, 3, nullptr), -1);
    EXPECT_EQ(libvchassisd_unregister_address(1, 2, 3, nullptr), -1);
    EXPECT_EQ(platform().allocations, 0u);
    EXPECT_EQ(op[0], 0u);
}

struct error_case {
    const char *name;
    std::function<int(char *, int)> call;
    bool has_length;
};

const error_case error_cases[] = {
    {"vm_oper_request",
     [](char *err, int length) { return libvchassisd_vm_oper_request(operation, err, length); }, true},
    {"set_metadata",
     [](char *err, int length) { return libvchassisd_set_metadata("k", 0, "v", 0, 0, err, length); }, true},
    {"get_metadata",
     [](char *err, int length) {
         char out[4];
         return libvchassisd_get_metadata("k", 0, out, 4, 0, err, length);
     },
     true},
    {"clear_mac2host", [](char *err, int) { return libvchassisd_exec_clear_mac2host(1, "x", err); }, false},
    {"reset_vsom_password", [](char *err, int) { return libvchassisd_exec_reset_vsom_password(err); }, false},
};

struct vchassisd_errors : vchassisd, testing::WithParamInterface<error_case> {
    std::string refused(const bytes &reply, int length, std::optional<uint32_t> received = {})
    {
        output.reset();
        platform().fallback = {0, -7, reply, received};
        EXPECT_EQ(GetParam().call(output.as<char>(), length), -1);
        return {output.as<char>(), strnlen(output.as<char>(), 1000)};
    }
};

TEST_P(vchassisd_errors, bring_the_managers_text_back)
{
    EXPECT_EQ(refused(text_field("no such VM", 30), 256), "no such VM");
    EXPECT_EQ(refused(repeat('e', 255), 256), std::string(255, 'e'));
    EXPECT_EQ(refused(repeat('e', 300), 256), std::string(255, 'e'));
    EXPECT_EQ(output.bytes[256], 0x5A);
    EXPECT_EQ(refused({'a', 'b'}, 256), "ab") << "the text ends with the reply";
    EXPECT_EQ(refused({}, 256), "");
    EXPECT_EQ(refused(repeat('e', 100), 256, 0xffffffff), std::string(100, 'e') + std::string())
        << "nothing beyond the buffer";
}

TEST_P(vchassisd_errors, are_cut_to_the_callers_length)
{
    if (!GetParam().has_length)
        return;
    EXPECT_EQ(refused(text_field("no such VM", 30), 5), "no s");
    EXPECT_EQ(refused(text_field("no such VM", 30), 1), "");
    for (const int none : {0, -1}) {
        refused(text_field("no such VM", 30), none);
        EXPECT_TRUE(output.untouched());
    }
}

TEST_P(vchassisd_errors, stay_as_they_were_after_other_outcomes)
{
    output.reset();
    for (const answer &with : {answer{0, 0, text_field("fine", 8), {}}, answer{-1, 0, {}, {}}}) {
        platform().fallback = with;
        EXPECT_EQ(GetParam().call(output.as<char>(), 256), with.sent < 0 ? -4 : 0);
    }
    EXPECT_TRUE(output.untouched());
}

INSTANTIATE_TEST_SUITE_P(vchassisd, vchassisd_errors, testing::ValuesIn(error_cases),
                         [](const auto &one) { return one.param.name; });

TEST_F(vchassisd, metadata_is_cut_to_the_callers_length)
{
    platform().fallback = {0, 0, text_field("the value", 20), {}};
    EXPECT_EQ(libvchassisd_get_metadata("k", 0, output.as<char>(), 100, 0, nullptr, 0), 0);
    EXPECT_STREQ(output.as<char>(), "the value");
    output.reset();
    EXPECT_EQ(libvchassisd_get_metadata("k", 0, output.as<char>(), 4, 0, nullptr, 0), 0);
    EXPECT_EQ(output.first(5), (bytes{'t', 'h', 'e', 0, 0x5A}));
    output.reset();
    EXPECT_EQ(libvchassisd_get_metadata("k", 0, output.as<char>(), 0, 0, nullptr, 0), 0);
    EXPECT_TRUE(output.untouched());
    platform().fallback = {0, 0, {'x', 'y'}, {}};
    EXPECT_EQ(libvchassisd_get_metadata("k", 0, output.as<char>(), 100, 0, nullptr, 0), 0);
    EXPECT_STREQ(output.as<char>(), "xy") << "the request's own bytes behind it are not the reply's";
}

TEST_F(vchassisd, host_cpu_count_goes_to_its_flavour)
{
    const std::pair<uint32_t, int> flavours[] = {{2, 0}, {4, 1}, {8, 2}, {0, -1}, {6, -1}, {0xffffffff, -1}};
    for (const auto &[flavour, place] : flavours) {
        platform().fallback = {0, 0, join({le32(flavour), le32(77)}), {}};
        uint32_t out[4] = {9, 9, 9, 9};
        EXPECT_EQ(libvchassisd_get_slot_host_cpu_num(1, out), 0);
        for (int i = 0; i < 3; i++)
            EXPECT_EQ(out[i], i == place ? 77u : 0u) << flavour;
        EXPECT_EQ(out[3], 9u);
    }
}

TEST_F(vchassisd, tenant_record_is_44_bytes)
{
    platform().fallback = {0, 0, repeat('r', 60), {}};
    EXPECT_EQ(libvchassisd_get_tenant_vm_ip("1", output.bytes), 0);
    EXPECT_EQ(output.first(45), join({repeat('r', 44), {0x5A}}));
    platform().fallback = {0, 0, repeat('r', 43), {}};
    EXPECT_EQ(libvchassisd_get_tenant_vm_ip("1", output.bytes), 0);
    EXPECT_EQ(output.first(44), join({repeat('r', 43), {0}}));
}

TEST_F(vchassisd, service_mode_is_at_0)
{
    platform().fallback = {0, 3, {0x34, 0x92, 0xff}, {}};
    EXPECT_EQ(libvchassisd_get_service_mode(output.as<uint16_t>()), 0);
    EXPECT_EQ(*output.as<uint16_t>(), 0x9234);
}

TEST_F(vchassisd, address_entries_are_sent_and_overwritten)
{
    for (const uint32_t count : {0u, 1u, 2u, 33u}) {
        platform().reset();
        const uint32_t size = count * 294;
        std::vector<uint8_t> entries(size + 1, 'q');
        platform().fallback = {0, 0, repeat('r', size), {}};
        EXPECT_EQ(libvchassisd_addr_get_info(count, entries.data()), 0);
        const bytes request =
            record_of(45 + size, {{0, le32(8)}, {40, le32(count)}, {44, repeat('q', size)}});
        expect_message(platform().messages.at(0),
                       {sender::send_and_recv_timeout, 97, 647, 3000, request, 45 + size, true});
        EXPECT_EQ(platform().allocation_sizes, (std::vector<uint32_t>{45 + size}));
        EXPECT_EQ(entries, join({repeat('r', size), {'q'}}));
    }
}

TEST_F(vchassisd, address_entries_that_do_not_fit_are_not_sent)
{
    std::vector<uint8_t> entries(40 * 294, 'q');
    for (const uint32_t count : {34u, 35u, 0x01000000u, 14608715u, 0xffffffffu})
        EXPECT_EQ(libvchassisd_addr_get_info(count, entries.data()), -3) << count;
    EXPECT_EQ(platform().allocations, 0u);
    EXPECT_EQ(libvchassisd_addr_get_max_vm_count_per_time(), 33);
}

TEST_F(vchassisd, address_entries_survive_failures)
{
    std::vector<uint8_t> entries(294, 'q');
    platform().answers = {{-1, 0, {}, {}}, {0, -1, repeat('r', 339), {}}, {0, 0, repeat('r', 100), {}}};
    EXPECT_EQ(libvchassisd_addr_get_info(1, entries.data()), -4);
    EXPECT_EQ(libvchassisd_addr_get_info(1, entries.data()), -1);
    platform().fail_allocation(3);
    EXPECT_EQ(libvchassisd_addr_get_info(1, entries.data()), -2);
    EXPECT_EQ(entries, repeat('q', 294));
    EXPECT_EQ(libvchassisd_addr_get_info(1, entries.data()), 0);
    EXPECT_EQ(entries, join({repeat('r', 100), repeat(0, 194)})) << "what was not sent is zero";
}

TEST_F(vchassisd, two_functions_do_nothing)
{
    EXPECT_EQ(libvchassisd_exec_vesa(), 0);
    EXPECT_EQ(libvchassisd_get_vchassis_status(), 0);
    EXPECT_EQ(platform().allocations, 0u);
}

/* --- texts --- */

TEST(vchassisd_text, vm_states_in_full)
{
    const std::map<uint32_t, const char *> texts = {{1, "Empty"},
                                                    {2, "Remove"},
                                                    {3, "Present"},
                                                    {5, "InitWait"},
                                                    {6, "InitDone"},
                                                    {7, "UnInitWait"},
                                                    {9, "Booting"},
                                                    {10, "Ready"},
                                                    {11, "Loading"},
                                                    {12, "UnLoading"},
                                                    {13, "OnlineWait"},
                                                    {15, "Online"},
                                                    {16, "OfflineWait"},
                                                    {17, "Offline"},
                                                    {18, "OutOfCon"},
                                                    {20, "Error"},
                                                    {21, "PowerDown"},
                                                    {22, "InCompatable"},
                                                    {23, "Unsupported"},
                                                    {25, "Build"},
                                                    {26, "Active"},
                                                    {27, "CMP-Error"},
                                                    {28, "Shutoff"},
                                                    {29, "Reboot"},
                                                    {30, "Hard-reboot"},
                                                    {31, "Rescue"},
                                                    {32, "Rebuild"},
                                                    {33, "Resize"},
                                                    {34, "Updating-password"},
                                                    {35, "Verify-resize"},
                                                    {36, "Revert-resize"},
                                                    {37, "Migrating"},
                                                    {38, "Paused"},
                                                    {39, "Suspend"},
                                                    {40, "Soft-deleted"},
                                                    {41, "Deleted"},
                                                    {42, "Shelved"},
                                                    {43, "Shelved-offloaded"}};
    for (uint32_t state = 0; state < 300; state++) {
        const auto known = texts.find(state);
        EXPECT_STREQ(vchassisd_vm_state2str(state), known != texts.end() ? known->second : "Unknown")
            << state;
    }
    EXPECT_STREQ(vchassisd_vm_state2str(0xffffffff), "Unknown");
}

struct text_table {
    const char *(*function)(uint32_t);
    std::map<uint32_t, const char *> texts;
    const char *otherwise;
};

TEST(vchassisd_text, tables_in_full)
{
    const text_table tables[] = {
        {vchassisd_vm_type2str, {{1, "vSCM"}, {2, "vSSM"}, {3, "vDSM"}}, "unknown"},
        {vchassisd_vm_type2low_str, {{1, "vscm"}, {2, "vssm"}, {3, "vdsm"}}, "unknown"},
        {vchassisd_vm_flavor2str, {{2, "vSSM-02"}, {4, "vSSM-04"}, {8, "vSSM-08"}}, ""},
        {vchassisd_stauts_2str,
         {{0, "init"}, {1, "vESA start"}, {2, "vESA stop"}, {3, "running"}, {4, "error"}},
         "unknown"},
        {vchassisd_resource_type2str,
         {{0, "CPU"}, {1, "Memory"}, {2, "Bandwidth"}, {3, "Session"}},
         "unknown"},
    };
    for (const text_table &table : tables)
        for (const uint32_t number :
             {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 100u, 0x80000000u, 0xffffffffu}) {
            const auto known = table.texts.find(number);
            EXPECT_STREQ(table.function(number), known != table.texts.end() ? known->second : table.otherwise)
                << number;
        }
}

TEST(vchassisd_text, cloud_platforms)
{
    EXPECT_EQ(vchassisd_cmp_type_str2type("VMWARE"), 2);
    EXPECT_EQ(vchassisd_cmp_type_str2type("NSX"), 4);
    for (const char *other : {"", "vmware", "nsx", "NSX2", "OPENSTACK"})
        EXPECT_EQ(vchassisd_cmp_type_str2type(other), 1) << other;
    EXPECT_EQ(vchassisd_cmp_type_str2type(nullptr), 1);
}

TEST(vchassisd_text, virtual_switch_types_are_read)
{
    const std::map<const char *, uint32_t> texts = {{"VSS", 0}, {"vss", 0}, {"PER_HOST", 0},
                                                    {"NSX", 2}, {"nsx", 2}, {"dvs", 1},
                                                    {"VDS", 1}, {"Vss", 1}, {"VSSX", 1}};
    for (const auto &[text, number] : texts) {
        char copy[16] = "";
        std::strcpy(copy, text);
        uint32_t type = 99;
        vchassisd_trans_vswitch_type(copy, &type);
        EXPECT_EQ(type, number) << text;
        EXPECT_STREQ(copy, text);
    }
}

TEST(vchassisd_text, virtual_switch_types_are_written)
{
    const std::pair<uint32_t, const char *> types[] = {{0, "VSS"}, {1, "VDS"}, {2, "NSX"}, {5, "VDS"}};
    for (const auto &[number, text] : types) {
        char written[5] = {0, 'x', 'x', 'x', 'x'};
        uint32_t type = number;
        vchassisd_trans_vswitch_type(written, &type);
        EXPECT_STREQ(written, text);
        EXPECT_EQ(written[4], 'x');
        EXPECT_EQ(type, number);
    }
    uint32_t type = 7;
    vchassisd_trans_vswitch_type(nullptr, &type);
    EXPECT_EQ(type, 7u);
}

/* --- conversions --- */

struct range_case {
    const char *text;
    int result;
    uint32_t address;
    uint8_t prefix;
};

TEST(vchassisd_ip_range, is_an_address_and_a_prefix)
{
    const range_case cases_of_range[] = {
        {"10.0.0.0/24", 1, 0x0a000000, 24},
        {"10.0.0.0", -1, 0, 0},
        {"10.0.0.0/300", 1, 0x0a000000, 44},
        {"10.0.0.0/255", 1, 0x0a000000, 255},
        {"10.0.0.0/256", 1, 0x0a000000, 0},
        {"10.0.0.0/4294967297", 1, 0x0a000000, 1},
        {"10.0.0.0/18446744073709551617", 1, 0x0a000000, 1},
        {"10.0.0.0/", -1, 0, 0},
        {"10.0.0.0/x", -1, 0, 0},
        {"10.0.0.0/-1", -1, 0, 0},
        {"10.0.0.0/ 8", -1, 0, 0},
        {"10.0.0.0/8x9", 1, 0x0a000000, 8},
        {"10.0.0.0/8/9", 1, 0x0a000000, 8},
        {"10.1/16", 1, 0x0a000001, 16},
        {"/24", -1, 0, 0},
        {"ten/24", -1, 0, 0},
        {"", -1, 0, 0},
        {"192.168.255.254/0", 1, 0xc0a8fffe, 0},
    };
    for (const range_case &each : cases_of_range) {
        std::string text = each.text;
        uint32_t address = 77;
        uint8_t prefix = 77;
        EXPECT_EQ(vchassisd_trans_ip_range(text.data(), &address, &prefix), each.result) << each.text;
        EXPECT_EQ(address, each.result == 1 ? each.address : 77u) << each.text;
        EXPECT_EQ(prefix, each.result == 1 ? each.prefix : 77) << each.text;
    }
    char text[] = "10.0.0.0/24";
    uint32_t address;
    uint8_t prefix;
    EXPECT_EQ(vchassisd_trans_ip_range(text, &address, &prefix), 1);
    EXPECT_STREQ(text, "10.0.0.0") << "the slash is now the end";
}

TEST(vchassisd_cpu_capacity, carries_a_rest_but_no_shortfall)
{
    const auto check = [](std::array<uint32_t, 3> have, std::array<uint32_t, 3> need) {
        return chassisd_vssm_cpu_cap_check(have.data(), need.data());
    };
    EXPECT_EQ(check({2, 0, 0}, {1, 1, 0}), 1);
    EXPECT_EQ(check({0, 0, 3}, {0, 0, 2}), 0);
    EXPECT_EQ(check({0, 0, 0}, {0, 0, 0}), 1);
    EXPECT_EQ(check({0, 0, 2}, {0, 0, 2}), 1);
    EXPECT_EQ(check({0, 0, 1}, {0, 0, 2}), 1);
    EXPECT_EQ(check({5, 0, 0}, {0, 0, 4}), 0);
    EXPECT_EQ(check({0, 0, 1}, {9, 9, 0}), 0) << "a shortfall below is forgotten";
    EXPECT_EQ(check({9, 0, 0}, {1, 9, 0}), 1) << "and takes the rest with it";
    EXPECT_EQ(check({0xffffffff, 1, 0}, {0, 0, 0}), 1) << "sums are 32 bits wide";
}

struct metadata_case {
    const char *text;
    int result;
    uint32_t count;
    const char *entry;
};

TEST(vchassisd_metadata_string, holds_one_item)
{
    const metadata_case metadata_cases[] = {
        {"", 0, 0, ""},
        {";", 0, 0, ""},
        {";;;", 0, 0, ""},
        {"a:b", 0, 1, "a:b"},
        {"a:b;", 0, 1, "a:b"},
        {";;a:b;;", 0, 1, "a:b"},
        {":", 0, 1, ":"},
        {"abc:def", 0, 1, "abc:def"},
        {"abcd:def", -1, 0, ""},
        {"abcdefg", -1, 0, ""},
        {"a", -1, 0, ""},
        {"a;b:c", -1, 0, ""},
        {"a:b;c:d", -1, 1, "a:b"},
        {"a:b;c", -1, 1, "a:b"},
    };
    for (const metadata_case &each : metadata_cases) {
        std::string text = each.text;
        vchassisd_metadata record;
        std::memset(&record, 0xEE, sizeof record);
        EXPECT_EQ(vchassisd_metadata_string_handler(text.data(), &record), each.result) << each.text;
        EXPECT_EQ(record.count, each.count) << each.text;
        bytes entry(std::begin(record.entry), std::end(record.entry));
        EXPECT_EQ(entry, text_field(each.entry, 8)) << each.text;
    }
    static_assert(sizeof(vchassisd_metadata) == 12);
    vchassisd_metadata record{5, "x"};
    EXPECT_EQ(vchassisd_metadata_string_handler(nullptr, &record), 0);
    EXPECT_EQ(record.count, 0u);
}

/* --- saving the configuration --- */

TEST_F(vchassisd, saves_under_its_name_with_the_local_time)
{
    platform().local_time = std::tm{};
    platform().local_time->tm_year = 126;
    platform().local_time->tm_mon = 0;
    platform().local_time->tm_mday = 2;
    platform().local_time->tm_hour = 3;
    platform().local_time->tm_min = 4;
    platform().local_time->tm_sec = 5;
    const time_t before = time(nullptr);
    EXPECT_EQ(vchassisd_save_config(), 0);
    EXPECT_EQ(platform().saved_configurations,
              (std::vector<std::vector<std::string>>{{"-2", "running", "", "tarquelle", "vchassis",
                                                      "2026-01-02 03:04:05", "0", "0", "0", "0"}}));
    EXPECT_TRUE(slept.empty());
    ASSERT_EQ(platform().local_times_asked.size(), 1u);
    EXPECT_GE(platform().local_times_asked[0], before);
    EXPECT_LE(platform().local_times_asked[0], time(nullptr));
}

TEST_F(vchassisd, saves_without_a_time_that_cannot_be_read)
{
    EXPECT_EQ(vchassisd_save_config(), 0);
    ASSERT_EQ(platform().saved_configurations.size(), 1u);
    EXPECT_EQ(platform().saved_configurations[0][5], "");
}

TEST_F(vchassisd, tries_to_save_again_every_three_seconds_until_it_is_done)
{
    platform().local_time = std::tm{};
    platform().save_results = {-1, 5, -1, -1, 0};
    EXPECT_EQ(vchassisd_save_config(), 0);
    const auto &saved = platform().saved_configurations;
    EXPECT_EQ(saved, (std::vector<std::vector<std::string>>(5, saved.at(0)))) << "with the first one's time";
    EXPECT_EQ(slept, (std::vector<unsigned>{3, 3, 3, 3}));
}

} // namespace
