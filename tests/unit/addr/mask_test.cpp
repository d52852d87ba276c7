#include <libmix/ip_util.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cstring>
#include <string>

namespace
{

using ipv6_mask = std::array<uint8_t, 16>;

ipv6_mask mask_of(const char *text)
{
    ipv6_mask mask{};
    EXPECT_EQ(inet_pton(AF_INET6, text, mask.data()), 1) << text;
    return mask;
}

uint32_t leading_ones(int count)
{
    uint32_t mask = 0;
    for (int i = 0; i < count; i++)
        mask |= uint32_t{1} << (31 - i);
    return mask;
}

TEST(mask_tables, hold_every_length)
{
    for (int n = 0; n <= 32; n++)
        EXPECT_EQ(masklen2make[n], leading_ones(n)) << n;
    EXPECT_EQ(sizeof(masklen2make), 33 * 4u);
    for (int k = 0; k <= 8; k++)
        EXPECT_EQ(ipv6_maskbit[k], leading_ones(k) >> 24) << k;
    EXPECT_EQ(sizeof(ipv6_maskbit), 9u);
}

TEST(mask_tables, know_the_nine_octets_that_are_masks)
{
    for (unsigned octet = 0; octet < 256; octet++) {
        unsigned expected = 255;
        for (int k = 0; k <= 8; k++) {
            if (leading_ones(k) >> 24 == octet)
                expected = static_cast<unsigned>(k);
        }
        EXPECT_EQ(mask_bmap_table[octet], expected) << octet;
    }
    EXPECT_EQ(sizeof(mask_bmap_table), 256u);
}

TEST(masknum_2_v4, shifts_modulo_32)
{
    for (int n = 0; n <= 32; n++)
        EXPECT_EQ(masknum_2_v4(static_cast<uint32_t>(n)), leading_ones(n)) << n;
    EXPECT_EQ(masknum_2_v4(24), 0xFFFFFF00u);
    EXPECT_EQ(masknum_2_v4(33), 0x80000000u);
    EXPECT_EQ(masknum_2_v4(64), 0xFFFFFFFFu);
    EXPECT_EQ(masknum_2_v4(0xFFFFFFFF), 0xFFFFFFFEu);
}

TEST(maskv4num_2_str, writes_the_mask_and_zeroes_what_is_behind_it)
{
    char out[20];
    for (uint32_t bits = 0; bits <= 31; bits++) {
        std::memset(out, '#', sizeof(out));
        const in_addr expected{htonl(leading_ones(static_cast<int>(bits)))};
        EXPECT_EQ(maskv4num_2_str(bits, out, 18), out);
        EXPECT_STREQ(out, inet_ntoa(expected));
        EXPECT_EQ(out[17], '\0');
        EXPECT_EQ(out[18], '#');
    }
    EXPECT_STREQ(maskv4num_2_str(0, out, 16), "0.0.0.0");
}

TEST(maskv4num_2_str, writes_32_and_above_as_all_ones_and_nothing_behind)
{
    for (const uint32_t bits : {32u, 33u, 99u, 0xFFFFFFFFu}) {
        char out[20];
        std::memset(out, '#', sizeof(out));
        EXPECT_EQ(maskv4num_2_str(bits, out, 20), out);
        EXPECT_STREQ(out, "255.255.255.255");
        EXPECT_EQ(out[16], '#');
        EXPECT_EQ(maskv4num_2_str(bits, out, 16), out);
    }
}

TEST(maskv4num_2_str, writes_nothing_into_fewer_than_16_bytes)
{
    char out[16];
    std::memset(out, '#', sizeof(out));
    for (const uint32_t bits : {8u, 32u}) {
        for (const int len : {15, 0, -1})
            EXPECT_EQ(maskv4num_2_str(bits, out, len), nullptr);
    }
    EXPECT_EQ(std::string(out, 16), std::string(16, '#'));
}

TEST(maskv4_2_num, counts_contiguous_ones)
{
    for (int n = 0; n <= 32; n++)
        EXPECT_EQ(maskv4_2_num(leading_ones(n)), n);
}

TEST(maskv4_2_num, refuses_every_other_value)
{
    for (const uint32_t mask : {0xFFFF00FFu, 0xFF00FF00u, 0x00FFFFFFu, 0xFE000001u, 0xFFFFFEFFu, 0xFFFFFE80u,
                                0x00000001u, 0x7FFFFFFFu, 0xFFFFFFFDu, 0xFF7F0000u, 0x00800000u, 0xF0F00000u})
        EXPECT_EQ(maskv4_2_num(mask), -1) << std::hex << mask;
    /* every mask with one bit turned, unless that makes another mask */
    for (int n = 0; n <= 32; n++) {
        for (int bit = 0; bit < 32; bit++) {
            const uint32_t mask = leading_ones(n) ^ uint32_t { 1 } << bit;
            const int ones = std::popcount(mask);
            EXPECT_EQ(maskv4_2_num(mask), mask == leading_ones(ones) ? ones : -1) << std::hex << mask;
        }
    }
}

TEST(maskv4str_2_num, reads_text_and_passes_failures_on)
{
    EXPECT_EQ(maskv4str_2_num("255.255.254.0"), 23);
    EXPECT_EQ(maskv4str_2_num("0.0.0.0"), 0);
    EXPECT_EQ(maskv4str_2_num("255.255.255.255"), 32);
    EXPECT_EQ(maskv4str_2_num("0xFFFFFF00"), 24);
    EXPECT_EQ(maskv4str_2_num("255.0.255.0"), -1);
    EXPECT_EQ(maskv4str_2_num("nonsense"), -1);
    EXPECT_EQ(maskv4str_2_num(nullptr), -1);
}

TEST(is_maskv4_str, tells_masks_from_other_texts)
{
    for (const char *text : {"0.0.0.0", "255.0.0.0", "255.255.255.255", "128.0.0.0"})
        EXPECT_EQ(is_maskv4_str(text), 1) << text;
    for (const char *text : {"0.255.255.255", "255.0.255.0", "", "x"})
        EXPECT_EQ(is_maskv4_str(text), 0) << text;
    EXPECT_EQ(is_maskv4_str(nullptr), 0);
}

TEST(masknum_2_v6, sets_the_leading_bits_of_16_bytes)
{
    for (int bits = 0; bits <= 128; bits++) {
        std::array<uint8_t, 18> out;
        out.fill(0x55);
        masknum_2_v6(out.data() + 1, bits);
        for (int bit = 0; bit < 128; bit++)
            ASSERT_EQ(out[1 + bit / 8] >> (7 - bit % 8) & 1, bit < bits ? 1 : 0) << bits << " bit " << bit;
        EXPECT_EQ(out.front(), 0x55);
        EXPECT_EQ(out.back(), 0x55);
    }
}

TEST(masknum_2_v6, stays_inside_its_16_bytes_whatever_the_number)
{
    for (const int bits : {-2147483647, -9, -1, 129, 137, 2147483647}) {
        std::array<uint8_t, 18> out;
        out.fill(0x55);
        masknum_2_v6(out.data() + 1, bits);
        EXPECT_EQ(out[1], bits < 0 ? 0 : 0xFF);
        EXPECT_EQ(out[16], bits < 0 ? 0 : 0xFF);
        EXPECT_EQ(out.front(), 0x55);
        EXPECT_EQ(out.back(), 0x55);
    }
}

TEST(maskv6_2_num, counts_contiguous_ones)
{
    for (int bits = 0; bits <= 128; bits++) {
        std::array<uint8_t, 17> mask{};
        masknum_2_v6(mask.data() + 1, bits); /* not aligned */
        EXPECT_EQ(maskv6_2_num(mask.data() + 1), bits);
    }
}

struct bad_mask {
    const char *text;
    int answer;
};

TEST(maskv6_2_num, gives_minus_the_word_at_fault)
{
    const bad_mask masks[] = {
        {"ffff:ffff:ffff:ff00::", 56},
        /* the first word that is not all ones is itself not contiguous */
        {"0fff::", 0},
        {"ffff:00ff::", 0},
        {"ffff:ffff:0fff::", -1},
        {"ffff:ffff:ffff:ffff:0:1::", -2},
        {"ffff:ffff:ffff:ffff:ffff:ffff:ffff:1", -3},
        /* a word behind it is not zero: word 1 is reported as 2 */
        {"ffff:0:ffff::", -2},
        {"0:0:0:1::", -2},
        {"::1:0:0", -2},
        {"0:0:0:0:0:1::", -2},
        {"::1", -3},
        {"ffff:8000::1", -3},
        {"ffff:ffff:ffff:0:1::", -2},
        {"ffff:ffff:ffff::1", -3},
        {"ffff:ffff:ffff:ffff:ffff:0:0:1", -3},
        {"ffff:ffff:ffff:ffff::1", -3},
        {"ffff:0:1::1", -2},
    };
    for (const auto &[text, answer] : masks)
        EXPECT_EQ(maskv6_2_num(mask_of(text).data()), answer) << text;
}

} // namespace
