#include <libmix/arp.h>

#include <cstring>

#include "support/client_suite.h"

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x00, 0x11, 0x22, 0xaa, 0xbb, 0xcc};

/* --- static entries --- */

/* What a commit carried, read while its values were alive. */
struct static_commit {
    std::string object;
    std::optional<uint32_t> address = {};
    std::optional<uint16_t> vrid = {};
    std::optional<bytes> mac = {};
    std::optional<std::string> vrname = {};
    const char *vrname_at = nullptr;
    std::optional<uint8_t> option = {};
    std::string description = {};
    int others = 0;
};

template <class Number>
std::optional<Number> value_of(const mgi_message &message, int number)
{
    if (message.attr[number] == nullptr)
        return {};
    Number value;
    std::memcpy(&value, message.attr[number], sizeof value);
    return value;
}

static_commit read_commit(const mgi_message &message, const std::string &object)
{
    static_commit out{.object = object};
    if (object == "final_set_md_macd") {
        out.description = *static_cast<const char *const *>(message.attr[1]);
        for (int number = 2; number < 16; number++)
            out.others += message.attr[number] != nullptr ? 1 : 0;
        return out;
    }
    out.address = value_of<uint32_t>(message, 0);
    out.vrid = value_of<uint16_t>(message, 1);
    if (const auto *from = static_cast<const uint8_t *>(message.attr[2]))
        out.mac = bytes(from, from + 6);
    if (const auto *text = static_cast<const char *const *>(message.attr[3]))
        out.vrname = out.vrname_at = *text;
    out.option = value_of<uint8_t>(message, 6);
    for (const int number : {4, 5, 7, 8, 9, 10, 11, 12, 13, 14, 15})
        out.others += message.attr[number] != nullptr ? 1 : 0;
    return out;
}

struct arp_static : platform_test {
    std::vector<static_commit> commits;
    char error[24];

    void SetUp() override
    {
        platform_test::SetUp();
        std::memset(error, '#', sizeof error);
        platform().fallback = {0, 0, text_field("main-router", 32), {}};
        platform().current_vsysid = 0x0909;
        platform().on_commit = [this](const mgi_message &message, const std::string &object) {
            commits.push_back(read_commit(message, object));
        };
    }
    int add(const char *description, print_callback print = collect_print)
    {
        return arp_add_static_items(0x1122, 0x0a010203, mac, description, 7, print, error, sizeof error, 1,
                                    0x55, 0x3344);
    }
    void expect_error_untouched() const
    {
        EXPECT_EQ(bytes(error, error + sizeof error), repeat('#', sizeof error));
    }
    void expect_vrname_of(uint32_t vrid) const
    {
        ASSERT_EQ(platform().messages.size(), 1u);
        EXPECT_EQ(platform().messages[0].destination, 1u);
        EXPECT_EQ(platform().messages[0].type, 114u);
        EXPECT_EQ(platform().messages[0].request, le32(vrid));
    }
};

TEST_F(arp_static, add_commits_the_entry_with_its_routers_name)
{
    EXPECT_EQ(add(nullptr), 0);
    ASSERT_EQ(commits.size(), 1u);
    EXPECT_EQ(commits[0].object, "final_set_arp_arpe");
    EXPECT_EQ(commits[0].address, 0x0a010203u);
    EXPECT_EQ(commits[0].vrid, 0x1122);
    EXPECT_EQ(commits[0].mac, bytes(mac, mac + 6));
    EXPECT_EQ(commits[0].vrname, "main-router");
    EXPECT_EQ(commits[0].option, 7);
    EXPECT_EQ(commits[0].others, 0);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.type, 2u);
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_EQ(call.vsysid, 0x3344);
    EXPECT_TRUE(call.language_set && call.vsysid_set);
    expect_vrname_of(0x1122);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(arp_static, add_describes_the_mac_first)
{
    EXPECT_EQ(add("printer"), 0);
    ASSERT_EQ(commits.size(), 2u);
    EXPECT_EQ(commits[0].object, "final_set_md_macd");
    EXPECT_EQ(commits[0].description, "printer");
    EXPECT_EQ(commits[0].others, 0);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.type, 4u);
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_EQ(call.vsysid, 0x0909) << "the current one";
    EXPECT_EQ(call.attr[0], mac);
    EXPECT_EQ(commits[1].object, "final_set_arp_arpe");
}

TEST_F(arp_static, add_goes_on_when_the_description_is_refused)
{
    platform().commit_results = {9, 0};
    EXPECT_EQ(add("printer"), 0);
    EXPECT_EQ(commits.size(), 2u);
    EXPECT_EQ(printed, "refused");
    expect_error_untouched();
}

TEST_F(arp_static, add_leaves_descriptions_alone_without_one)
{
    EXPECT_EQ(add(""), 0);
    ASSERT_EQ(commits.size(), 1u);
    EXPECT_EQ(commits[0].object, "final_set_arp_arpe");
}

TEST_F(arp_static, add_tells_a_refusal_in_both_places)
{
    platform().commit_results = {42};
    platform().refusal_text = "100% in use, try another one";
    EXPECT_EQ(add(nullptr), 42);
    EXPECT_EQ(platform().refusal_results, (std::vector<int>{42}));
    EXPECT_EQ(printed, "100% in use, try another one");
    EXPECT_EQ(printed_formats, (std::vector<std::string>{"%s"}));
    EXPECT_STREQ(error, "100% in use, try anothe") << "cut and terminated";
}

TEST_F(arp_static, add_fills_the_error_buffer_only_with_a_print_callback)
{
    platform().commit_results = {42};
    EXPECT_EQ(add(nullptr, nullptr), 42);
    expect_error_untouched();
}

TEST_F(arp_static, add_is_silent_about_a_refusal_without_a_text)
{
    platform().commit_results = {-5};
    platform().refusal_text = nullptr;
    EXPECT_EQ(add(nullptr), -5);
    EXPECT_EQ(printed, "");
    expect_error_untouched();
}

TEST_F(arp_static, add_needs_no_error_buffer)
{
    platform().commit_results = {42, 42};
    EXPECT_EQ(arp_add_static_items(1, 2, mac, nullptr, 0, collect_print, nullptr, 24, 0, 0, 0), 42);
    EXPECT_EQ(arp_add_static_items(1, 2, mac, nullptr, 0, collect_print, error, 0, 0, 0, 0), 42);
    EXPECT_EQ(printed, "refusedrefused");
    expect_error_untouched();
}

TEST_F(arp_static, remove_commits_the_address)
{
    EXPECT_EQ(arp_remove_static_items(0x1122, 0x0a010203, collect_print, 0, 1, 0x55, 0x3344), 0);
    ASSERT_EQ(commits.size(), 1u);
    EXPECT_EQ(commits[0].object, "final_set_arp_arpe");
    EXPECT_EQ(commits[0].address, 0x0a010203u);
    EXPECT_EQ(commits[0].vrid, 0x1122);
    EXPECT_EQ(commits[0].mac, std::nullopt);
    EXPECT_EQ(commits[0].vrname, "main-router");
    EXPECT_EQ(commits[0].option, std::nullopt);
    EXPECT_EQ(commits[0].others, 0);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.type, 5u);
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_EQ(call.vsysid, 0x3344);
    expect_vrname_of(0x1122);
}

TEST_F(arp_static, remove_all_sends_address_0)
{
    EXPECT_EQ(arp_remove_static_items(1, 0x0a010203, collect_print, 0x100, 0, 0, 0), 0);
    ASSERT_EQ(commits.size(), 1u);
    EXPECT_EQ(commits[0].address, 0u);
    EXPECT_EQ(platform().gateway_calls[0].type, 5u);
}

TEST_F(arp_static, remove_prints_a_refusal)
{
    platform().commit_results = {42, 42, 42};
    EXPECT_EQ(arp_remove_static_items(1, 2, collect_print, 0, 0, 0, 0), 42);
    EXPECT_EQ(printed, "refused");
    EXPECT_EQ(printed_formats, (std::vector<std::string>{"%s"}));
    EXPECT_EQ(arp_remove_static_items(1, 2, nullptr, 0, 0, 0, 0), 42);
    platform().refusal_text = nullptr;
    EXPECT_EQ(arp_remove_static_items(1, 2, collect_print, 0, 0, 0, 0), 42);
    EXPECT_EQ(printed, "refused");
}

TEST_F(arp_static, remove_conf_unsets_by_virtual_router)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(arp_remove_static_conf(0x1122, 1, 0x55), 0);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ASSERT_EQ(commits.size(), 1u);
    EXPECT_EQ(commits[0].object, "final_set_arp_arpe");
    EXPECT_EQ(commits[0].address, std::nullopt);
    EXPECT_EQ(commits[0].vrid, 0x1122);
    EXPECT_EQ(commits[0].mac, std::nullopt);
    EXPECT_EQ(commits[0].vrname, "main-router");
    EXPECT_EQ(commits[0].option, std::nullopt);
    EXPECT_EQ(commits[0].others, 0);
    const gateway_call &call = platform().gateway_calls[0];
    EXPECT_EQ(call.type, 9u);
    EXPECT_EQ(call.language, 1);
    EXPECT_EQ(call.request_flag, 0x55);
    EXPECT_FALSE(call.vsysid_set);
    expect_vrname_of(0x1122);
}

TEST_F(arp_static, remove_conf_tells_a_refusal_on_standard_output)
{
    platform().commit_results = {42, 43};
    testing::internal::CaptureStdout();
    EXPECT_EQ(arp_remove_static_conf(1, 0, 0), 42);
    platform().refusal_text = nullptr;
    EXPECT_EQ(arp_remove_static_conf(1, 0, 0), 43);
    std::fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error: unset install in arp refused\n");
    EXPECT_EQ(platform().console, "");
}

/* --- a router without a name --- */

struct nameless_case {
    const char *name;
    std::function<int()> change;
};

struct nameless_router : arp_static, testing::WithParamInterface<nameless_case> {
    void expect_committed_as(const std::string &name)
    {
        commits.clear();
        EXPECT_EQ(GetParam().change(), 0);
        ASSERT_EQ(commits.size(), 1u) << name;
        EXPECT_EQ(commits[0].vrname, name);
        EXPECT_EQ(commits[0].vrname_at, get_vrname_by_vrid(0x1122)) << "what the look-up handed over";
    }
};

TEST_P(nameless_router, is_committed_with_what_stands_for_its_name)
{
    platform().fallback = {-1, 0, {}, {}};
    expect_committed_as("ipc-fail");
    platform().fallback = {0, -1, text_field("main-router", 32), {}};
    expect_committed_as("not-found-name");
    platform().fallback = {0, 0, {}, {}};
    expect_committed_as("");
    platform().fallback = {0, 0, text_field("main-router", 32), {}};
    platform().fail_allocation(platform().allocations + 1, true);
    expect_committed_as("");
    EXPECT_EQ(printed, "");
    EXPECT_EQ(platform().console, "");
}

INSTANTIATE_TEST_SUITE_P(
    arp, nameless_router,
    testing::Values(
        nameless_case{"add",
                      [] {
                          return arp_add_static_items(0x1122, 1, mac, nullptr, 0, collect_print, nullptr, 0,
                                                      0, 0, 0);
                      }},
        nameless_case{"remove", [] { return arp_remove_static_items(0x1122, 1, collect_print, 0, 0, 0, 0); }},
        nameless_case{"remove_conf", [] { return arp_remove_static_conf(0x1122, 0, 0); }}),
    case_name);

/* --- removing what a listing shows --- */

bytes arp_row(uint32_t address, uint16_t vrid, uint8_t kind)
{
    bytes row = repeat(0xEE, 56);
    const auto put = [&](size_t offset, const bytes &part) {
        std::copy(part.begin(), part.end(), row.begin() + static_cast<ptrdiff_t>(offset));
    };
    put(0, le32(address));
    put(8, le16(vrid));
    put(43, {kind});
    return row;
}

struct row_case {
    uint16_t vrid;
    uint8_t kind;
    bool removed;
};

TEST_F(arp_static, a_row_is_removed_when_it_is_static_and_of_the_router)
{
    const row_case cases[] = {{0x1122, 0, true},  {0x1122, 9, true},   {0x1122, 1, false},
                              {0x1122, 8, false}, {0x1122, 10, false}, {0x1122, 255, false},
                              {0x1123, 0, false}, {0x2211, 9, false},  {0x0022, 0, false}};
    for (const row_case &each : cases) {
        commits.clear();
        arp_removal_context context{0x55, 1, 0x1122, 0x3344};
        EXPECT_EQ(
            arp_remove_one_static_items_vrouter(arp_row(0x0a010203, each.vrid, each.kind).data(), &context),
            0);
        ASSERT_EQ(commits.size(), each.removed ? 1u : 0u) << each.vrid << " " << int{each.kind};
        if (!each.removed)
            continue;
        EXPECT_EQ(commits[0].address, 0x0a010203u);
        EXPECT_EQ(commits[0].vrid, 0x1122);
        const gateway_call &call = platform().gateway_calls.back();
        EXPECT_EQ(call.type, 5u);
        EXPECT_EQ(call.language, 1);
        EXPECT_EQ(call.request_flag, 0x55);
        EXPECT_EQ(call.vsysid, 0x3344);
    }
}

TEST_F(arp_static, a_row_that_can_not_be_removed_is_told_on_the_console)
{
    platform().commit_results = {42};
    arp_removal_context context{0, 0, 1, 0};
    EXPECT_EQ(arp_remove_one_static_items_vrouter(arp_row(2, 1, 0).data(), &context), 0);
    EXPECT_EQ(platform().console, "refused");
}

TEST_F(arp_static, remove_all_of_a_router_lists_it_and_removes_what_is_static)
{
    platform().commit_results = {42, 0, 0};
    size_t page = 0;
    platform().handler = [&](const sent_message &sent) -> answer {
        if (sent.type == 114)
            return {0, 0, text_field("main-router", 32), {}};
        if (page++ == 0)
            return {0,
                    0,
                    join({le32(5), le32(4), arp_row(1, 0x1122, 0), arp_row(2, 0x1122, 3), arp_row(3, 7, 0),
                          arp_row(4, 0x1122, 9)}),
                    {}};
        return {0, 0, join({le32(0), le32(1), arp_row(5, 0x1122, 0)}), {}};
    };
    EXPECT_EQ(arp_remove_all_static_items_vrouter(0x1122, 99, 0x1055, 0x3344), 0);
    ASSERT_EQ(commits.size(), 3u) << "a refusal does not end the listing";
    EXPECT_EQ(commits[0].address, 1u);
    EXPECT_EQ(commits[1].address, 4u);
    EXPECT_EQ(commits[2].address, 5u);
    EXPECT_EQ(platform().gateway_calls[0].language, 0);
    EXPECT_EQ(platform().gateway_calls[0].request_flag, 0x55);
    EXPECT_EQ(platform().gateway_calls[0].vsysid, 0x3344);
    EXPECT_EQ(platform().console, "refused");
    EXPECT_EQ(platform().messages[0].destination, 0u);
    EXPECT_EQ(platform().messages[0].request,
              record_of(140, {{0, {2}}, {4, le16(0x3344)}, {6, le16(0x1122)}, {20, le32(0x7fffffff)}}));
}

TEST_F(arp_static, remove_all_of_a_router_tells_a_failed_listing_on_the_console)
{
    platform().fallback = {0, -7, {}, {}};
    EXPECT_EQ(arp_remove_all_static_items_vrouter(1, 0, 0, 0), 0);
    EXPECT_EQ(platform().console, "ARP show failed, ret is -7\n");
    EXPECT_TRUE(commits.empty());
}

/* --- dynamic entries and scans --- */

struct arp_clear_requests : platform_test, testing::WithParamInterface<request_case> {
};

TEST_P(arp_clear_requests, are_sent_byte_for_byte)
{
    platform().current_vsysid = 0x0909;
    check_request(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    arp, arp_clear_requests,
    testing::Values(
        request_case{"detail",
                     [] {
                         arp_remove_dynamic_items_detail(0x1122, 0x3344, 0x5566, 0x778899aa, nullptr, 2, 7,
                                                         0x0304);
                     },
                     0x02030400, 4,
                     record_of(28, {{0, {3}},
                                    {4, le16(0x1122)},
                                    {8, le32(0x778899aa)},
                                    {12, le32(0x5566)},
                                    {16, le32(0x3344)},
                                    {20, le32(2)},
                                    {24, {7}}}),
                     4},
        request_case{"detail_of_this_board",
                     [] { arp_remove_dynamic_items_detail(0, 0, 0, 0, nullptr, 0, 0, 9); }, 0, 4,
                     record_of(28, {{0, {3}}}), 4},
        request_case{
            "plain", [] { arp_remove_dynamic_items(0x5566, 0x778899aa, nullptr, 7); }, 0, 4,
            record_of(28, {{0, {3}}, {8, le32(0x778899aa)}, {12, le32(0x5566)}, {16, le32(1)}, {24, {7}}}),
            4},
        request_case{
            "vr", [] { arp_remove_dynamic_items_vr(0x3344, 0x5566, 0x778899aa, nullptr, 7); }, 0, 4,
            record_of(28,
                      {{0, {3}}, {8, le32(0x778899aa)}, {12, le32(0x5566)}, {16, le32(0x3344)}, {24, {7}}}),
            4},
        request_case{"active_scan", [] { arp_active_scan(0x11223344, 0x55667788, -2); }, 0, 4,
                     record_of(32, {{0, {6}},
                                    {4, {0xfe, 0xff}},
                                    {12, le32(0x11223344)},
                                    {16, le32(0x55667788)},
                                    {28, le16(0x0909)}}),
                     4}),
    case_name);

struct arp_clear_failures : platform_test, testing::WithParamInterface<failure_case> {
};

TEST_P(arp_clear_failures, are_told_and_answered)
{
    check_failures(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    arp, arp_clear_failures,
    testing::Values(
        failure_case{
            "arp_remove_dynamic_items_detail",
            [](print_callback print) { return arp_remove_dynamic_items_detail(0, 0, 0, 0, print, 0, 0, 0); },
            "ARP clear failed, ret is -7\n", -1, "arp_remove_dynamic_items_detail, No enough memory\n",
            "No enough memory\n"},
        failure_case{"arp_remove_dynamic_items",
                     [](print_callback print) { return arp_remove_dynamic_items(0, 0, print, 0); },
                     "ARP clear failed, ret is -7\n", -1,
                     "arp_remove_dynamic_items_detail, No enough memory\n", "No enough memory\n"},
        failure_case{"arp_remove_dynamic_items_vr",
                     [](print_callback print) { return arp_remove_dynamic_items_vr(0, 0, 0, print, 0); },
                     "ARP clear failed, ret is -7\n", -1,
                     "arp_remove_dynamic_items_detail, No enough memory\n", "No enough memory\n"},
        failure_case{"arp_active_scan", [](print_callback) { return arp_active_scan(0, 0, 0); }, "", -1, "",
                     "", ""}),
    case_name);

TEST_F(arp_static, clears_and_scans_give_the_status_whatever_the_reply_is)
{
    platform().fallback = {0, 17, repeat(3, 9), {}};
    EXPECT_EQ(arp_remove_dynamic_items_detail(0, 0, 0, 0, collect_print, 0, 0, 0), 17);
    EXPECT_EQ(arp_remove_dynamic_items(0, 0, collect_print, 0), 17);
    EXPECT_EQ(arp_remove_dynamic_items_vr(0, 0, 0, collect_print, 0), 17);
    EXPECT_EQ(arp_active_scan(0, 0, 0), 17);
    EXPECT_EQ(printed, "");
}

TEST(arp_mgi_get_resp, returns_0_whatever_it_is_given)
{
    EXPECT_EQ(arp_mgi_get_resp(nullptr, 12), 0);
    EXPECT_EQ(arp_mgi_get_resp("record", 0), 0);
}

} // namespace
