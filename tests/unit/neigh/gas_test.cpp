#include <libmix/gas.h>

#include "support/client_suite.h"

#include <cstring>

using namespace mixtest;

namespace
{

const uint8_t mac[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};

struct gas : platform_test {
    char error[32];

    void SetUp() override
    {
        platform_test::SetUp();
        std::memset(error, '#', sizeof(error));
    }
    [[nodiscard]] bool error_untouched() const
    {
        return bytes(error, error + sizeof(error)) == repeat('#', sizeof(error));
    }
    int add(const char *ifname = "eth0", const uint8_t *from = mac, uintptr_t second = 5, uint8_t option = 1,
            print_callback print = collect_print)
    {
        return gas_add_item(1, 0x0a010203, from, ifname, second, option, print, error, sizeof(error));
    }
    int del(const char *ifname = "eth0", print_callback print = collect_print)
    {
        return gas_del_item(1, 0x0a010203, ifname, print, error, sizeof(error));
    }
};

TEST_F(gas, adding_commits_five_attributes)
{
    bool looked = false;
    platform().on_commit = [&](const mgi_message &message, const std::string &object) {
        looked = true;
        EXPECT_EQ(object, "final_set_gas_gase");
        EXPECT_EQ(*static_cast<const uint32_t *>(message.attr[0]), 0x0a010203u);
        EXPECT_STREQ(*static_cast<const char *const *>(message.attr[1]), "eth0");
        EXPECT_EQ(*static_cast<const uintptr_t *>(message.attr[2]), 0x1122334455667788u);
        EXPECT_EQ(std::memcmp(message.attr[3], mac, 6), 0);
        EXPECT_EQ(*static_cast<const uint8_t *>(message.attr[4]), 9);
        for (int i = 5; i < 16; i++)
            EXPECT_EQ(message.attr[i], nullptr);
    };
    EXPECT_EQ(add("eth0", mac, 0x1122334455667788, 9), 0);
    EXPECT_TRUE(looked);
    const gateway_call &call = platform().gateway_calls.at(0);
    EXPECT_EQ(call.type, 4u);
    EXPECT_EQ(call.language, 1);
    EXPECT_FALSE(call.vsysid_set);
    EXPECT_EQ(call.request_flag, 0);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(error_untouched());
}

TEST_F(gas, adding_needs_its_parameters)
{
    EXPECT_EQ(add(nullptr), -1);
    EXPECT_EQ(add("eth0", nullptr), -1);
    EXPECT_EQ(add("eth0", mac, 0), -1);
    EXPECT_EQ(add("eth0", mac, 5, 0), -1);
    EXPECT_EQ(printed, "Parameter error\nParameter error\nParameter error\nParameter error\n");
    EXPECT_STREQ(error, "Parameter error\n");
    EXPECT_TRUE(platform().gateway_calls.empty());
    EXPECT_EQ(platform().messages_initialised, 4u);
    EXPECT_EQ(add(nullptr, mac, 5, 1, nullptr), -1);
    EXPECT_EQ(gas_add_item(0, 1, mac, "e", 1, 0, nullptr, nullptr, 10), -1);
}

TEST_F(gas, a_refused_addition_is_printed_and_copied)
{
    platform().commit_results = {-3, 17, 5};
    platform().refusal_text = "busy 9%";
    EXPECT_EQ(add(), -3);
    EXPECT_EQ(printed, "busy 9%");
    EXPECT_STREQ(error, "busy 9%");

    std::memset(error, '#', sizeof(error));
    EXPECT_EQ(add("eth0", mac, 5, 1, nullptr), 17);
    EXPECT_STREQ(error, "busy 9%");

    printed.clear();
    EXPECT_EQ(gas_add_item(1, 1, mac, "e", 1, 1, collect_print, nullptr, 0), 5);
    EXPECT_EQ(printed, "busy 9%");
}

TEST_F(gas, a_refused_addition_without_a_text_leaves_the_buffer)
{
    platform().commit_results = {-3};
    platform().refusal_text = nullptr;
    EXPECT_EQ(add(), -3);
    EXPECT_EQ(printed, "");
    EXPECT_TRUE(error_untouched());
}

TEST_F(gas, deleting_commits_two_attributes)
{
    bool looked = false;
    platform().on_commit = [&](const mgi_message &message, const std::string &object) {
        looked = true;
        EXPECT_EQ(object, "final_set_gas_gase");
        EXPECT_EQ(*static_cast<const uint32_t *>(message.attr[0]), 0x0a010203u);
        EXPECT_STREQ(*static_cast<const char *const *>(message.attr[1]), "eth0");
        for (int i = 2; i < 16; i++)
            EXPECT_EQ(message.attr[i], nullptr);
    };
    EXPECT_EQ(del(), 0);
    EXPECT_TRUE(looked);
    EXPECT_EQ(platform().gateway_calls.at(0).type, 5u);
    EXPECT_EQ(platform().gateway_calls.at(0).language, 1);
    EXPECT_TRUE(error_untouched());
}

TEST_F(gas, deleting_needs_an_interface)
{
    EXPECT_EQ(del(nullptr), -1);
    EXPECT_EQ(printed, "ifname error\n");
    EXPECT_STREQ(error, "ifname error\n");
    EXPECT_TRUE(platform().gateway_calls.empty());
    EXPECT_EQ(gas_del_item(0, 1, nullptr, nullptr, nullptr, 5), -1);
}

TEST_F(gas, a_refused_deletion_writes_the_buffer_even_without_a_text)
{
    platform().commit_results = {-3, -3, 8, 9};
    EXPECT_EQ(del(), -3);
    EXPECT_EQ(printed, "refused");
    EXPECT_STREQ(error, "refused");

    printed.clear();
    platform().refusal_text = nullptr;
    EXPECT_EQ(del(), -3);
    EXPECT_EQ(printed, "");
    EXPECT_STREQ(error, "(null)");

    EXPECT_EQ(del("eth0", nullptr), 8);
    EXPECT_EQ(gas_del_item(1, 1, "e", collect_print, nullptr, 32), 9);
}

bytes page(uint32_t cursor, uint32_t count)
{
    return join({le16(cursor), le16(count), repeat(0x5c, 76 * count)});
}

TEST_F(gas, listing_request)
{
    check_request({"", [] { gas_get_item(0x1122, nullptr, nullptr, nullptr); }, 0, 88,
                   join({le32(0), le16(0), le16(0x1122)}), 2000});
}

TEST_F(gas, listing_pages_without_a_budget)
{
    collected_rows got{.row_size = 76, .answer = -1};
    platform().answers = {{0, 0, page(0xfffe, 2), {}}, {0, 0, page(0, 1), {}}};
    EXPECT_EQ(gas_get_item(0x1122, collect_row, &got, collect_print), 3u);
    EXPECT_EQ(got.first_flags, (std::vector<int>{1, 0, 0})) << "the callback can't stop the listing";
    ASSERT_EQ(platform().messages.size(), 2u);
    EXPECT_EQ(platform().messages[0].request, join({le32(0), le16(0), le16(0x1122)}));
    EXPECT_EQ(platform().messages[1].request, join({le32(0), le16(0xfffe), le16(0x1122)}));
}

TEST_F(gas, listing_keeps_rows_before_a_failure)
{
    struct {
        answer with;
        const char *text;
    } const failures[] = {
        {{-1, 0, {}, {}}, "ipcmsg send failed\n"},
        {{0, -2, {}, {}}, "Gratuitous ARP send show failed, ret is -2\n"},
        {{0, 0, {}, {}}, "Received buf len is wrong, len is 0\n"},
        {{0, 0, join({le16(0), le16(3), repeat(0, 152)}), {}}, "Received buf len is wrong, len is 156\n"},
        {{0, 0, join({page(0, 2), {0}}), {}}, "Received buf len is wrong, len is 157\n"},
        {{0, 0, page(0, 26), 2001}, "Received buf len is wrong, len is 2001\n"},
    };
    for (const auto &failure : failures) {
        printed.clear();
        platform().answers = {{0, 0, page(1, 2), {}}, failure.with};
        EXPECT_EQ(gas_get_item(0, nullptr, nullptr, collect_print), 2u);
        EXPECT_EQ(printed, failure.text);
        platform().answers = {{0, 0, page(1, 2), {}}, failure.with};
        EXPECT_EQ(gas_get_item(0, nullptr, nullptr, nullptr), 2u);
    }
}

TEST_F(gas, listing_tells_a_missing_request_buffer_only)
{
    platform().fail_allocation(1);
    EXPECT_EQ(gas_get_item(0, nullptr, nullptr, collect_print), 0u);
    EXPECT_EQ(printed, "No enough memory\n");
    printed.clear();
    platform().fail_allocation(3);
    EXPECT_EQ(gas_get_item(0, nullptr, nullptr, collect_print), 0u);
    EXPECT_EQ(printed, "");
}

TEST_F(gas, lookup_request)
{
    check_request({"", [] { gas_get_item_one(5, 0x0a010203, 0x1122, nullptr); }, 0, 88,
                   join({le32(3), le32(0x0a010203), le16(0x1122), repeat(0, 10)}), 4});
}

TEST_F(gas, lookup_returns_the_length_not_the_status)
{
    struct {
        answer with;
        uint32_t result;
        const char *text;
    } const cases[] = {
        {{0, 77, {1, 2, 3, 4}, {}}, 4, ""},
        {{0, 0, {}, {}}, 0, ""},
        {{0, 0, {1, 2, 3, 4, 5, 6}, {}}, 6, ""},
        {{0, -9, {1, 2}, {}}, 2, "Gratuitous ARP send show failed, ret is -9\n"},
        {{-1, 0, {}, {}}, 4, "ipcmsg send failed\n"},
    };
    for (const auto &each : cases) {
        printed.clear();
        platform().answers = {each.with, each.with};
        EXPECT_EQ(gas_get_item_one(5, 0x0a010203, 0x1122, collect_print), each.result);
        EXPECT_EQ(printed, each.text);
        EXPECT_EQ(gas_get_item_one(5, 0x0a010203, 0x1122, nullptr), each.result);
    }
}

TEST_F(gas, lookup_without_buffers)
{
    platform().fail_allocation(1);
    EXPECT_EQ(gas_get_item_one(0, 1, 2, collect_print), 0u);
    EXPECT_EQ(printed, "No enough memory\n");
    printed.clear();
    platform().fail_allocation(3);
    EXPECT_EQ(gas_get_item_one(0, 1, 2, collect_print), 4u);
    EXPECT_EQ(printed, "");
}

} // namespace
