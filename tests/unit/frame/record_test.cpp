#include "frame/record.h"

#include <gtest/gtest.h>

#include <string>

using namespace mix::frame;

namespace
{

struct [[gnu::packed]] record {
    uint8_t before;
    uint32_t number;
    char name[5];
    uint8_t mac[6];
    uint8_t after;
};

TEST(record_field, is_where_the_member_is)
{
    constexpr field number = MIX_FIELD(record, number);
    EXPECT_EQ(number.offset, 1u);
    EXPECT_EQ(number.width, 4u);
}

struct name_case {
    const char *text;
    size_t room;
    const char *stored;
};

TEST(copy_name, cuts_what_does_not_fit_and_always_terminates)
{
    const name_case cases[] = {{"", 1, ""},       {"a", 1, ""},       {"", 4, ""},
                               {"abc", 4, "abc"}, {"abcd", 4, "abc"}, {"abcdefgh", 4, "abc"}};
    for (const name_case &each : cases) {
        char out[8];
        std::memset(out, '#', sizeof out);
        EXPECT_EQ(copy_name(out, each.room, each.text), std::strlen(each.text));
        EXPECT_STREQ(out, each.stored);
        EXPECT_EQ(std::string(out + each.room, out + sizeof out), std::string(sizeof out - each.room, '#'));
    }
}

TEST(copy_name, writes_nothing_where_there_is_no_room)
{
    char out = '#';
    EXPECT_EQ(copy_name(&out, 0, "abc"), 3u);
    EXPECT_EQ(out, '#');
}

TEST(put_name, stays_within_its_field_and_leaves_it_empty_for_null)
{
    record one{};
    one.mac[0] = 7;
    put_name(one.name, "eth10");
    EXPECT_STREQ(one.name, "eth1");
    EXPECT_EQ(one.mac[0], 7);

    record other{};
    put_name(other.name, nullptr);
    EXPECT_STREQ(other.name, "");
}

TEST(put_bytes, copies_the_whole_field_and_says_whether_there_was_something)
{
    const uint8_t mac[7] = {1, 2, 3, 4, 5, 6, 7};
    record one{};
    EXPECT_TRUE(put_bytes(one.mac, mac));
    EXPECT_EQ(std::memcmp(one.mac, mac, 6), 0);
    EXPECT_EQ(one.after, 0);

    record other{};
    EXPECT_FALSE(put_bytes(other.mac, nullptr));
    EXPECT_EQ(other.mac[0], 0);
}

} // namespace
