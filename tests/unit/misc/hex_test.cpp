#include <libmix/hex.h>

#include <gtest/gtest.h>

#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace
{

using text = std::vector<char>;
using raw = std::vector<uint8_t>;

/* One byte after the other, as the contract says it. */
void encode_by_bytes(char *out, const uint8_t *in, int n)
{
    for (int i = 0; i < n; i++) {
        out[2 * i] = "0123456789abcdef"[in[i] / 16];
        out[2 * i + 1] = "0123456789abcdef"[in[i] % 16];
    }
}

int digit(char c)
{
    const char *digits = "0123456789abcdefABCDEF";
    const char *found = c != '\0' ? std::strchr(digits, c) : nullptr;
    if (found == nullptr)
        return -1;
    const auto value = static_cast<int>(found - digits);
    return value < 16 ? value : value - 6;
}

void decode_by_bytes(uint8_t *out, const char *in, int n)
{
    for (int i = 0; i < (n + 1) / 2; i++) {
        if (const int high = digit(in[2 * i]); high >= 0)
            out[i] = static_cast<uint8_t>(high * 16);
        if (const int low = digit(in[2 * i + 1]); low >= 0)
            out[i] = static_cast<uint8_t>(out[i] | low);
    }
}

TEST(hex, encodes_lower_case_high_nibble_first)
{
    char out[5] = "####";
    const uint8_t in[] = {0x00, 0xab};
    hex_encode(out, in, 2);
    EXPECT_STREQ(out, "00ab");
}

TEST(hex, encodes_every_byte)
{
    uint8_t in[256];
    for (int i = 0; i < 256; i++)
        in[i] = static_cast<uint8_t>(i);
    text out(513, '#'), expected(513, '#');
    hex_encode(out.data(), in, 256);
    encode_by_bytes(expected.data(), in, 256);
    EXPECT_EQ(out, expected) << "and nothing after it";
}

TEST(hex, nothing_is_written_for_0_or_less)
{
    char out[3] = "##";
    uint8_t bytes[2] = {1, 2};
    for (const int n : {0, -1, INT_MIN}) {
        hex_encode(out, bytes, n);
        EXPECT_STREQ(out, "##");
        hex_decode(bytes, "ffff", n);
        EXPECT_EQ(bytes[0], 1);
    }
}

TEST(hex, decodes_both_cases)
{
    uint8_t out[3] = {9, 9, 9};
    hex_decode(out, "00ABcd", 6);
    EXPECT_EQ(out[0], 0x00);
    EXPECT_EQ(out[1], 0xab);
    EXPECT_EQ(out[2], 0xcd);
}

TEST(hex, an_odd_count_reads_the_character_after_it)
{
    uint8_t out[2] = {};
    hex_decode(out, "abc", 3);
    EXPECT_EQ(out[0], 0xab);
    EXPECT_EQ(out[1], 0xc0);
    hex_decode(out, "abcd", 3);
    EXPECT_EQ(out[1], 0xcd);
}

TEST(hex, a_first_character_that_is_no_digit_leaves_the_byte)
{
    uint8_t out = 0x5a;
    hex_decode(&out, "zz", 2);
    EXPECT_EQ(out, 0x5a);
    hex_decode(&out, "z5", 2);
    EXPECT_EQ(out, 0x5f) << "the second one is added to what was there";
    hex_decode(&out, "3z", 2);
    EXPECT_EQ(out, 0x30);
}

TEST(hex, every_pair_of_characters_decodes_as_one_byte_after_the_other_does)
{
    /* 40 pairs at a time, so that both the vector part and the rest are met. */
    for (int high = 0; high < 256; high++) {
        for (int low = 0; low < 256; low++) {
            text in;
            for (int i = 0; i < 40; i++) {
                in.push_back(static_cast<char>(high));
                in.push_back(static_cast<char>(low));
            }
            raw out(40, 0xa5), expected(40, 0xa5);
            hex_decode(out.data(), in.data(), 80);
            decode_by_bytes(expected.data(), in.data(), 80);
            ASSERT_EQ(out, expected) << high << " " << low;
        }
    }
}

struct hex_lengths : testing::Test {
    std::mt19937 random{7};

    text characters(size_t count, bool digits_only)
    {
        text in;
        for (size_t i = 0; i < count; i++)
            in.push_back(digits_only || random() % 4 != 0 ? "0123456789abcdefABCDEF"[random() % 22]
                                                          : static_cast<char>(random()));
        return in;
    }
};

TEST_F(hex_lengths, any_length_and_alignment)
{
    for (int n = 0; n < 200; n++) {
        for (size_t shift = 0; shift < 3; shift++) {
            raw in(static_cast<size_t>(n) + shift);
            for (uint8_t &byte : in)
                byte = static_cast<uint8_t>(random());
            text out(static_cast<size_t>(2 * n) + shift + 1, '#'), expected = out;
            hex_encode(out.data() + shift, in.data() + shift, n);
            encode_by_bytes(expected.data() + shift, in.data() + shift, n);
            ASSERT_EQ(out, expected);

            text digits = characters(static_cast<size_t>(n) + shift + 1, shift == 0);
            raw back(static_cast<size_t>(n) + shift + 1, 0x5a), wanted = back;
            hex_decode(back.data() + shift, digits.data() + shift, n);
            decode_by_bytes(wanted.data() + shift, digits.data() + shift, n);
            ASSERT_EQ(back, wanted);
        }
    }
}

TEST_F(hex_lengths, decoding_in_place)
{
    for (int n = 0; n < 300; n++) {
        text in = characters(static_cast<size_t>(n) + 1, false);
        raw once(in.begin(), in.end()), wanted = once;
        hex_decode(once.data(), reinterpret_cast<const char *>(once.data()), n);
        decode_by_bytes(wanted.data(), reinterpret_cast<const char *>(wanted.data()), n);
        ASSERT_EQ(once, wanted) << n;
    }
}

TEST_F(hex_lengths, exact_buffers)
{
    /* Heap blocks of the exact sizes: a step past either end is seen by the address sanitizer. */
    for (int n = 1; n < 100; n++) {
        const raw in(static_cast<size_t>(n), 0xc3);
        text encoded(static_cast<size_t>(2 * n));
        hex_encode(encoded.data(), in.data(), n);
        raw decoded(static_cast<size_t>(n));
        hex_decode(decoded.data(), encoded.data(), 2 * n);
        ASSERT_EQ(decoded, in);
    }
}

} // namespace
