#include <libmix/bhv.h>

#include "support/client_suite.h"

#include <cstring>

using namespace mixtest;

namespace
{

TEST(mail_types, every_row)
{
    const char *const names[] = {"smtp", "webmail", "163",   "gmail",   "hotmail", "yahoo", "126",
                                 "QQ",   "sina",    "tom",   "sohu",    "taobao",  "eyou",  "21cn",
                                 "yeah", "188",     "sogou", "koomail", "139"};
    static_assert(sizeof(bhv_mail_type) == 36);
    for (uint32_t i = 0; i < 19; i++) {
        EXPECT_EQ(bhv_mail_type_table[i].type, static_cast<int32_t>(i));
        EXPECT_STREQ(bhv_mail_type_table[i].name, names[i]);
        EXPECT_EQ(bhv_mail_type2name(i), bhv_mail_type_table[i].name);
    }
    const bhv_mail_type none{};
    EXPECT_EQ(std::memcmp(&bhv_mail_type_table[19], &none, sizeof(none)), 0);
    for (const uint32_t type : {19u, 20u, 0xffffffffu})
        EXPECT_STREQ(bhv_mail_type2name(type), "");
}

struct received {
    std::vector<uint8_t> first_bytes;
};

int collect_record(const void *record, void *arg)
{
    static_cast<received *>(arg)->first_bytes.push_back(*static_cast<const uint8_t *>(record));
    return -1; /* must not matter */
}

bytes records(uint32_t count, size_t size, uint8_t first)
{
    bytes out;
    for (uint32_t i = 0; i < count; i++)
        out = join({out, repeat(static_cast<uint8_t>(first + i), size)});
    return out;
}

bytes object_page(uint32_t cursor, uint32_t count, uint8_t first = 1)
{
    return join({le16(cursor), le16(0xeeee), le32(count), records(count, 616, first)});
}

bytes profile_page(uint32_t cursor, uint32_t count, uint8_t first = 1)
{
    return join({le16(cursor), le16(count), records(count, 7640, first)});
}

struct behaviour : platform_test {
    received got;

    uint16_t objects(const char *name = "", print_callback print = collect_print)
    {
        return get_bhv_obj(name, 3, 4, collect_record, &got, print);
    }
    uint16_t profiles(const char *name = "", print_callback print = collect_print)
    {
        return get_bhv_profile(name, collect_record, &got, print);
    }
};

TEST_F(behaviour, objects_request)
{
    check_request({"", [this] { objects("web"); }, 0, 97,
                   join({le32(0), text_field("web", 32), {3, 4, 0, 0}, le32(0), repeat(0, 4052)}), 4096});
}

TEST_F(behaviour, objects_go_on_after_a_page_of_six)
{
    platform().answers = {{0, 0, object_page(0xfffe, 6), {}}, {0, 0, object_page(9, 5, 7), {}}};
    EXPECT_EQ(objects(), 11);
    EXPECT_EQ(got.first_bytes, (std::vector<uint8_t>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    ASSERT_EQ(platform().messages.size(), 2u);
    EXPECT_EQ(bytes(platform().messages[1].request.begin() + 40, platform().messages[1].request.begin() + 44),
              le32(0xfffe));
}

TEST_F(behaviour, objects_end_with_the_cursor)
{
    platform().answers = {{0, 0, object_page(0, 6), {}}};
    EXPECT_EQ(objects(), 6);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_F(behaviour, objects_of_one_name_go_on_too)
{
    platform().answers = {{0, 0, object_page(1, 6), {}}, {0, 0, object_page(0, 0), {}}};
    EXPECT_EQ(objects("web"), 6);
    EXPECT_EQ(platform().messages.size(), 2u);
}

TEST_F(behaviour, profiles_request)
{
    check_request(
        {"", [this] { profiles("web"); }, 0, 96, join({le32(2), text_field("web", 32), le32(0)}), 8192});
}

TEST_F(behaviour, profiles_go_on_without_a_name)
{
    for (const char *name : {"", static_cast<const char *>(nullptr)}) {
        platform().messages.clear();
        platform().answers = {{0, 0, profile_page(0xfffe, 1), {}}, {0, 0, profile_page(0, 1), {}}};
        EXPECT_EQ(profiles(name), 2);
        ASSERT_EQ(platform().messages.size(), 2u);
        EXPECT_EQ(platform().messages[1].request, join({le32(2), repeat(0, 32), le32(0xfffe)}));
    }
}

TEST_F(behaviour, a_profile_of_one_name_takes_one_request)
{
    platform().answers = {{0, 0, profile_page(1, 1), {}}};
    EXPECT_EQ(profiles("web"), 1);
    EXPECT_EQ(platform().messages.size(), 1u);
}

TEST_F(behaviour, names_are_cut_to_31_characters_and_null_is_empty)
{
    const std::string longest(40, 'n');
    platform().answers = {
        {0, 0, object_page(0, 0), {}}, {0, 0, object_page(0, 0), {}}, {0, 0, profile_page(0, 0), {}}};
    objects(longest.c_str());
    objects(nullptr);
    profiles(longest.c_str());
    const auto name = [](size_t message) {
        const bytes &request = platform().messages.at(message).request;
        return bytes(request.begin() + 4, request.begin() + 36);
    };
    EXPECT_EQ(name(0), text_field(longest.substr(0, 31), 32));
    EXPECT_EQ(name(1), repeat(0, 32));
    EXPECT_EQ(name(2), text_field(longest.substr(0, 31), 32));
}

TEST_F(behaviour, records_are_counted_without_a_callback)
{
    platform().answers = {{0, 0, object_page(0, 2), {}}, {0, 0, profile_page(0, 1), {}}};
    EXPECT_EQ(get_bhv_obj("", 0, 0, nullptr, nullptr, collect_print), 2);
    EXPECT_EQ(get_bhv_profile("", nullptr, nullptr, collect_print), 1);
}

TEST_F(behaviour, the_count_is_16_bits)
{
    platform().handler = [n = 0](const sent_message &) mutable -> answer {
        n++;
        return {0, 0, object_page(n < 10923 ? 1 : 0, 6), {}};
    };
    EXPECT_EQ(get_bhv_obj("", 0, 0, nullptr, nullptr, nullptr), static_cast<uint16_t>(10923 * 6));
    platform().messages.clear();
}

struct behaviour_failure {
    bool profile;
    answer with;
    const char *text;
};

TEST_F(behaviour, failures_keep_what_was_delivered)
{
    const behaviour_failure failures[] = {
        {false, {-1, 0, {}, {}}, "ipcmsg send failed\n"},
        {false, {0, -7, {}, {}}, "Failed to get bhv obj, ret is -7\n"},
        {false, {0, 0, {}, {}}, "Received buf len is wrong, len is 0\n"},
        {false,
         {0, 0, join({object_page(0, 6), repeat(0, 392)}), {}},
         "Received buf len is wrong, len is 4096,correct:3704\n"},
        {false, {0, 0, object_page(0, 0), 4097}, "Received buf len is wrong, len is 4097\n"},
        {false, {0, 0, repeat(9, 1), {}}, "Received buf len is wrong, len is 1,correct:8\n"},
        {false, {0, 0, repeat(9, 7), {}}, "Received buf len is wrong, len is 7,correct:8\n"},
        {false,
         {0, 0, join({object_page(0, 2), {1}}), {}},
         "Received buf len is wrong, len is 1241,correct:1240\n"},
        {false,
         {0, 0, join({le32(0), le32(2), repeat(0, 616)}), {}},
         "Received buf len is wrong, len is 624,correct:1240\n"},
        {true, {-1, 0, {}, {}}, "ipcmsg send failed\n"},
        {true, {0, -7, {}, {}}, "Failed to get bhv profile, ret is -7\n"},
        {true, {0, 0, {}, {}}, "Received buf len is wrong, len is 0\n"},
        {true, {0, 0, profile_page(0, 1), 8193}, "Received buf len is wrong, len is 8193\n"},
        {true, {0, 0, join({profile_page(0, 1), {1}}), {}}, "Received buf len is wrong, len is 7645\n"},
        {true, {0, 0, repeat(0, 3), {}}, "Received buf len is wrong, len is 3\n"},
    };
    for (const behaviour_failure &each : failures) {
        const answer good{0, 0, each.profile ? profile_page(1, 1) : object_page(1, 6), {}};
        platform().answers = {good, each.with, good, each.with};
        printed.clear();
        const uint16_t kept = each.profile ? 1 : 6;
        EXPECT_EQ(each.profile ? profiles() : objects(), kept);
        EXPECT_EQ(printed, each.text);
        EXPECT_EQ(each.profile ? profiles("", nullptr) : objects("", nullptr), kept);
        EXPECT_EQ(printed, each.text);
    }
}

TEST_F(behaviour, only_a_missing_request_buffer_is_told)
{
    for (const bool profile : {false, true}) {
        printed.clear();
        platform().fail_allocation(platform().allocations + 1);
        EXPECT_EQ(profile ? profiles() : objects(), 0);
        EXPECT_EQ(printed, "No enough memory\n");
        printed.clear();
        platform().fail_allocation(platform().allocations + 2);
        EXPECT_EQ(profile ? profiles() : objects(), 0);
        EXPECT_EQ(printed, "");
    }
}

} // namespace
