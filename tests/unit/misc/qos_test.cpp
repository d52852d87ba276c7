#include <libmix/qos.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>

namespace
{

constexpr qos_dscp_phb_row rows[] = {
    {"ef", "match packets with EF DSCP (101110)", 46},
    {"af11", "match packets with AF11 DSCP (001010)", 10},
    {"af12", "match packets with AF12 DSCP (001100)", 12},
    {"af13", "match packets with AF13 DSCP (001110)", 14},
    {"af21", "match packets with AF21 DSCP (010010)", 18},
    {"af22", "match packets with AF22 DSCP (010100)", 20},
    {"af23", "match packets with AF23 DSCP (010110)", 22},
    {"af31", "match packets with AF31 DSCP (011010)", 26},
    {"af32", "match packets with AF32 DSCP (011100)", 28},
    {"af33", "match packets with AF33 DSCP (011110)", 30},
    {"af41", "match packets with AF41 DSCP (100010)", 34},
    {"af42", "match packets with AF42 DSCP (100100)", 36},
    {"af43", "match packets with AF43 DSCP (100110)", 38},
    {"default", "match packets with default DSCP (000000)", 0},
    {"cs1", "match packets with CS1 (precedence 1) DSCP (001000)", 8},
    {"cs2", "match packets with CS1 (precedence 2) DSCP (010000)", 16},
    {"cs3", "match packets with CS1 (precedence 3) DSCP (011000)", 24},
    {"cs4", "match packets with CS1 (precedence 4) DSCP (100000)", 32},
    {"cs5", "match packets with CS1 (precedence 5) DSCP (101000)", 40},
    {"cs6", "match packets with CS1 (precedence 6) DSCP (110000)", 48},
    {"cs7", "match packets with CS1 (precedence 7) DSCP (111000)", 56},
};

static_assert(sizeof(qos_dscp_phb_row) == 24);
static_assert(offsetof(qos_dscp_phb_row, description) == 8);
static_assert(offsetof(qos_dscp_phb_row, value) == 16);

TEST(per_hop_behaviours, every_row)
{
    ASSERT_EQ(std::size(rows), std::size(qos_dscp_phb));
    for (int i = 0; i < 21; i++) {
        EXPECT_STREQ(qos_dscp_phb[i].name, rows[i].name);
        EXPECT_STREQ(get_dscp_phb_name(i), rows[i].name);
        EXPECT_STREQ(get_dscp_phb_desc(i), rows[i].description);
        EXPECT_EQ(qos_dscp_phb[i].value, rows[i].value);
        EXPECT_EQ(qos_phb_name2type(rows[i].name), rows[i].value);
        EXPECT_STREQ(qos_phb_type2name(rows[i].value), rows[i].name);
    }
}

TEST(per_hop_behaviours, names_in_any_case)
{
    EXPECT_EQ(qos_phb_name2type("AF41"), 34);
    EXPECT_EQ(qos_phb_name2type("Default"), 0);
}

TEST(per_hop_behaviours, names_that_there_are_not)
{
    for (const char *name : {"af5", "af", "ef ", "", "cs0"})
        EXPECT_EQ(qos_phb_name2type(name), -1);
}

TEST(per_hop_behaviours, every_value_without_a_row_has_no_name)
{
    int named = 0;
    for (int value = INT16_MIN; value <= INT16_MAX; value++)
        named += qos_phb_type2name(static_cast<int16_t>(value)) != nullptr;
    EXPECT_EQ(named, 21);
    for (const int16_t value : {-1, 1, 63, 64, 65})
        EXPECT_EQ(qos_phb_type2name(value), nullptr);
}

TEST(pipe_name, follows_the_fifth_hyphen)
{
    const struct {
        const char *object, *pipe;
    } cases[] = {
        {"a-b-c-d-e-pipe1", "pipe1"},
        {"a-b-c", ""},
        {"a-b-c-d-e-", ""},
        {"a-b-c-d-e", ""},
        {"", ""},
        {"-----", ""},
        {"-----x-y", "x-y"},
        {"----", ""},
    };
    for (const auto &each : cases) {
        const char *pipe = get_qos_pipe_name(each.object);
        EXPECT_STREQ(pipe, each.pipe);
        EXPECT_EQ(pipe, each.object + std::string(each.object).size() - std::string(each.pipe).size())
            << "points into the object's name";
    }
}

} // namespace
