#include <libmix/ip_util.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/guarded_text.h"
#include "unit/addr/address_models.h"

namespace
{

namespace model = mixtest::model;
using words = std::vector<const char *>;

void expect_all(int (*validator)(const char *), int answer, const words &texts)
{
    mixtest::guarded_text page;
    for (const char *text : texts)
        EXPECT_EQ(validator(page.put(text)), answer) << text;
}

const words ipv4_prefixes = {"1.2.3.4/8",
                             "10.0.0.0/0",
                             "10.0.0.0/32",
                             "255.255.255.255/32",
                             "0.0.0.0/0",
                             "0.0.0.0/24",
                             "1.2.3.4/0000000000000000000000000000000008"};
const words zero_net_prefixes = {"0.1.2.0/24", "0.0.0.1/32"};
const words not_ipv4_prefixes = {
    "",
    "/",
    "/8",
    "1.2.3.4",
    "1.2.3.4/",
    "1.2.3.4/33",
    "1.2.3.4/-1",
    "1.2.3.4/+8",
    "1.2.3.4/ 8",
    "1.2.3.4/8 ",
    "1.2.3.4/8/",
    "1.2.3.4/8x",
    "1.2.3/8",
    "01.2.3.4/8",
    "/1.2.3.4/8",
    "1/2.3.4.5/6",
    ".1.2.3/4",
    "1.2.3.256/8",
    "1.2.3.4/4294967304",
    "1.2.3.4/18446744073709551624",
    "1.2.3.4/99999999999999999999",
    "::/8",
    "1.2.3.4567890123/8",
    "255.255.255.2555/8",
    "255.255.255.255 /8",
};

TEST(is_ipv4_prefix_str, takes_an_address_and_a_length_up_to_32)
{
    expect_all(is_ipv4_prefix_str, 1, ipv4_prefixes);
    expect_all(is_ipv4_prefix_str, 0, not_ipv4_prefixes);
    expect_all(is_ipv4_prefix_str, 0, zero_net_prefixes);
    EXPECT_EQ(is_ipv4_prefix_str(nullptr), 0);
}

TEST(is_ipv4_r_prefix_str, takes_the_zero_network_too)
{
    expect_all(is_ipv4_r_prefix_str, 1, ipv4_prefixes);
    expect_all(is_ipv4_r_prefix_str, 0, not_ipv4_prefixes);
    expect_all(is_ipv4_r_prefix_str, 1, zero_net_prefixes);
    EXPECT_EQ(is_ipv4_r_prefix_str(nullptr), 0);
}

const words ipv6_prefixes = {"2001:db8::/32",
                             "::/1",
                             "::/128",
                             "::1/128",
                             "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff/64",
                             "::ffff:1.2.3.4/96",
                             "::/000000000000000000000000000000000001"};
const words zero_lengths = {"::/0", "2001:db8::/0", "::/000"};
const words not_ipv6_prefixes = {
    "",
    "/",
    "/64",
    "::",
    "::1",
    "::/",
    "::/129",
    "::/-1",
    "::/+1",
    "::/ 1",
    "::/1 ",
    "::/1/",
    "::/1x",
    "::/x",
    "1:/64",
    "1.2.3.4/8",
    "1::2::3/4",
    "fe80::1%1/64",
    "::/18446744073709551617",
    "::/99999999999999999999",
    /* an address of 40 characters and more stands no more before the "/" */
    "0000:0000:0000:0000:0000:ffff:192.168.1.1/96",
    "0000:0000:0000:0000:0000:0000:1.23.45.67/96",
    /* an address that inet_pton takes and the matcher does not */
    "1:2:3:4:5:6:7::/64",
};

TEST(is_ipv6_prefix_str, takes_an_address_and_a_length_up_to_128)
{
    for (const auto validator : {is_ipv6_prefix_str, is_ipv6_r_prefix_str}) {
        expect_all(validator, 1, ipv6_prefixes);
        expect_all(validator, 1, zero_lengths);
        expect_all(validator, 0, not_ipv6_prefixes);
        EXPECT_EQ(validator(nullptr), 0);
    }
}

TEST(is_ipv6_g_prefix_str, refuses_the_length_0)
{
    expect_all(is_ipv6_g_prefix_str, 1, ipv6_prefixes);
    expect_all(is_ipv6_g_prefix_str, 0, zero_lengths);
    expect_all(is_ipv6_g_prefix_str, 0, not_ipv6_prefixes);
    EXPECT_EQ(is_ipv6_g_prefix_str(nullptr), 0);
}

TEST(is_ipv6_prefix_str, takes_an_address_of_39_characters_and_no_more)
{
    const std::string full = "1111:2222:3333:4444:5555:6666:7777:8888";
    ASSERT_EQ(full.size(), 39u);
    EXPECT_EQ(is_ipv6_prefix_str((full + "/64").c_str()), 1);
    const std::string dotted = "1111:2222:3333:4444:5555:6666:7.77.77.77";
    ASSERT_EQ(dotted.size(), 40u);
    EXPECT_EQ(is_ipv6_str(dotted.c_str()), 1);
    EXPECT_EQ(ipv6_prefix_match((dotted + "/64").c_str()), 8);
    EXPECT_EQ(is_ipv6_prefix_str((dotted + "/64").c_str()), 0);
}

TEST(prefix_validators, do_not_mind_the_error_of_an_earlier_call)
{
    for (const auto validator : {is_ipv4_prefix_str, is_ipv4_r_prefix_str}) {
        errno = ERANGE;
        EXPECT_EQ(validator("1.2.3.4/8"), 1);
    }
    for (const auto validator : {is_ipv6_prefix_str, is_ipv6_r_prefix_str, is_ipv6_g_prefix_str}) {
        errno = ERANGE;
        EXPECT_EQ(validator("2001:db8::/32"), 1);
    }
}

TEST(prefix_validators, agree_with_the_model_on_every_short_text)
{
    mixtest::guarded_text page;
    std::string word;
    const std::string alphabet = "10:./";
    const auto every_word = [&](const auto &self, size_t length) -> void {
        const char *text = page.put(word);
        ASSERT_EQ(is_ipv4_prefix_str(text), model::is_ipv4_prefix(word, false)) << word;
        ASSERT_EQ(is_ipv4_r_prefix_str(text), model::is_ipv4_prefix(word, true)) << word;
        ASSERT_EQ(is_ipv6_prefix_str(text), model::is_ipv6_prefix(word, true)) << word;
        ASSERT_EQ(is_ipv6_r_prefix_str(text), model::is_ipv6_prefix(word, true)) << word;
        ASSERT_EQ(is_ipv6_g_prefix_str(text), model::is_ipv6_prefix(word, false)) << word;
        for (const char c : length > 0 ? alphabet : std::string()) {
            word.push_back(c);
            self(self, length - 1);
            word.pop_back();
        }
    };
    every_word(every_word, 7);
    for (const char *tail : {"/8", "/0", "/33", "/x"}) {
        for (const char *address : {"0.0.0.0", "0.0.0.1", "10.0.0.1", "10.0.0.01", "10.0.0.1 "}) {
            word = std::string(address) + tail;
            EXPECT_EQ(is_ipv4_prefix_str(word.c_str()), model::is_ipv4_prefix(word, false)) << word;
            EXPECT_EQ(is_ipv4_r_prefix_str(word.c_str()), model::is_ipv4_prefix(word, true)) << word;
        }
    }
}

/* --- wildcard masks --- */

struct wildcard_text {
    const char *text;
    int limited;
    int unlimited;
    uint32_t out; /* of the unlimited form */
};

TEST(wildcard_mask, is_read_with_the_first_octet_least_significant)
{
    const wildcard_text texts[] = {
        {"0.0.0.0", 1, 1, 0},
        {"1.0.0.0", 1, 1, 1},
        {"255.0.0.0", 1, 1, 8},
        {"255.1.0.0", 1, 1, 9},
        {"255.255.0.0", 1, 1, 16},
        {"255.255.255.255", 1, 1, 32},
        {"255.255.255.127", 1, 1, 31},
        {"2.0.0.0", 1, 1, 2},
        {"0.1.0.0", 1, 1, 0x100},              /* 8 holes */
        {"0.2.0.0", 0, 1, 0x200},              /* 9 holes */
        {"254.255.255.255", 1, 1, 0xFFFFFFFE}, /* 1 hole */
        {"255.0.255.255", 1, 1, 0xFFFF00FF},   /* 8 holes */
        {"254.0.255.255", 0, 1, 0xFFFF00FE},   /* 9 holes */
        {"0.0.0.255", 0, 1, 0xFF000000},       /* 24 holes */
        {"1.2.3.4", 0, 1, 0x04030201},         /* 22 holes */
        {"0.0.0.128", 0, 1, 0x80000000},       /* 31 holes */
    };
    for (const auto &[text, limited, unlimited, expected] : texts) {
        uint32_t out = 0x55555555;
        EXPECT_EQ(get_wildcard_mask_ipv4(text, &out), limited) << text;
        EXPECT_EQ(out, limited == 1 ? expected : 0x55555555) << text;
        out = 0x55555555;
        EXPECT_EQ(get_wildcard_mask_without_limit_ipv4(text, &out), unlimited) << text;
        EXPECT_EQ(out, expected) << text;
    }
}

TEST(wildcard_mask, is_refused_when_it_is_no_strict_address)
{
    mixtest::guarded_text page;
    for (const auto reader : {get_wildcard_mask_ipv4, get_wildcard_mask_without_limit_ipv4}) {
        uint32_t out = 0x55555555;
        for (const char *text : {"", "255", "255.0", "255.0.0", "255.0.0.0.", "0255.0.0.0", ".255.0.0",
                                 "0xFF.0.0.0", "256.0.0.0", "255.0.0.0 ", "x"})
            EXPECT_EQ(reader(page.put(text), &out), -1) << text;
        EXPECT_EQ(reader(nullptr, &out), -1);
        EXPECT_EQ(out, 0x55555555u);
    }
}

TEST(wildcard_mask, agrees_with_the_model)
{
    for (const int a : {0, 1, 127, 128, 254, 255}) {
        for (const int b : {0, 1, 15, 240, 255}) {
            for (const int c : {0, 1, 3, 254, 255}) {
                for (const int d : {0, 1, 128, 255}) {
                    const std::string text = std::to_string(a) + "." + std::to_string(b) + "." +
                                             std::to_string(c) + "." + std::to_string(d);
                    for (const bool limited : {false, true}) {
                        uint32_t out = 0x55555555;
                        const auto expected = model::wildcard_mask(text, limited);
                        const int result = limited ? get_wildcard_mask_ipv4(text.c_str(), &out)
                                                   : get_wildcard_mask_without_limit_ipv4(text.c_str(), &out);
                        EXPECT_EQ(result, expected.result) << text;
                        EXPECT_EQ(out, expected.out.value_or(0x55555555)) << text;
                    }
                }
            }
        }
    }
}

} // namespace
