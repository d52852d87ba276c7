#include <libmix/ip_util.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "support/guarded_text.h"
#include "unit/addr/address_models.h"

namespace
{

namespace model = mixtest::model;

using octets = std::vector<uint8_t>;

const octets documentation = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

octets bytes_of(const void *from, size_t size)
{
    const auto *at = static_cast<const uint8_t *>(from);
    return octets(at, at + size);
}

template <class T>
T filled(uint8_t with)
{
    T value;
    std::memset(&value, with, sizeof(value));
    return value;
}

/* --- layouts --- */

TEST(address_record, has_its_address_at_offset_8)
{
    EXPECT_EQ(sizeof(mix_addr), 24u);
    EXPECT_EQ(alignof(mix_addr), 8u);
    EXPECT_EQ(offsetof(mix_addr, family), 0u);
    EXPECT_EQ(offsetof(mix_addr, address), 8u);
    EXPECT_EQ(sizeof(mix_addr::family), 1u);
}

TEST(inet_address_record, has_its_address_right_behind_the_family)
{
    EXPECT_EQ(sizeof(mix_inet_addr), 17u);
    EXPECT_EQ(alignof(mix_inet_addr), 1u);
    EXPECT_EQ(offsetof(mix_inet_addr, address), 1u);
}

/* --- IPv4 text --- */

struct ipv4_text {
    const char *text;
    uint32_t value;
};

TEST(ipv4str_2_uint, reads_every_form_into_host_order)
{
    const ipv4_text texts[] = {
        {"10.1.2.3", 0x0A010203},
        {"10.1", 0x0A000001},
        {"0x0A.1.2.3", 0x0A010203},
        {"012.1.2.3", 0x0A010203},
        {"1", 0x00000001},
        {"0x0A010203", 0x0A010203},
        {"10.1.515", 0x0A010203},
        {"255.255.255.255", 0xFFFFFFFF},
        {"0.0.0.0", 0},
        {"10.1.2.3 tail", 0x0A010203},
    };
    mixtest::guarded_text page;
    for (const auto &[text, value] : texts) {
        uint32_t out = 0x55555555;
        EXPECT_EQ(ipv4str_2_uint(page.put(text), &out), 0) << text;
        EXPECT_EQ(out, value) << text;
    }
}

TEST(ipv4str_2_uint, refuses_what_is_no_address_and_leaves_the_output)
{
    uint32_t out = 0x55555555;
    for (const char *text : {"", "a", "1.2.3.256", "1.2.3.4.5", "1..2", "09", "::1"})
        EXPECT_EQ(ipv4str_2_uint(text, &out), -1) << text;
    EXPECT_EQ(ipv4str_2_uint(nullptr, &out), -1);
    EXPECT_EQ(out, 0x55555555u);
    EXPECT_EQ(ipv4str_2_uint("1.2.3.4", nullptr), -1);
}

TEST(ipv4_2_str, writes_the_dotted_quad_and_zeroes_all_of_the_buffer)
{
    char out[32];
    std::memset(out, '#', sizeof(out));
    EXPECT_EQ(ipv4_2_str(0x0A010203, out, 24), out);
    EXPECT_EQ(bytes_of(out, 24), [] {
        octets expected(24);
        std::memcpy(expected.data(), "10.1.2.3", 8);
        return expected;
    }());
    EXPECT_EQ(out[24], '#');
    EXPECT_STREQ(ipv4_2_str(0xFFFFFFFF, out, 16), "255.255.255.255");
    EXPECT_STREQ(ipv4_2_str(0, out, 16), "0.0.0.0");
}

TEST(ipv4_2_str, writes_nothing_into_fewer_than_16_bytes)
{
    char out[16];
    std::memset(out, '#', sizeof(out));
    for (const int len : {15, 8, 0, -1})
        EXPECT_EQ(ipv4_2_str(0x0A010203, out, len), nullptr) << len;
    EXPECT_EQ(bytes_of(out, 16), octets(16, '#'));
}

/* --- IPv6 text --- */

TEST(ipv6str_2_bin, writes_16_bytes_in_network_order)
{
    octets out(18, 0x55);
    EXPECT_EQ(ipv6str_2_bin("2001:db8::1", out.data() + 1, 16), 0);
    EXPECT_EQ(octets(out.begin() + 1, out.end() - 1), documentation);
    EXPECT_EQ(out.front(), 0x55);
    EXPECT_EQ(out.back(), 0x55);
    EXPECT_EQ(ipv6str_2_bin("2001:DB8::0.0.0.1", out.data(), 17), 0);
    EXPECT_EQ(octets(out.begin(), out.begin() + 16), documentation);
}

TEST(ipv6str_2_bin, refuses_a_short_buffer_and_a_bad_text_and_leaves_the_buffer)
{
    octets out(16, 0x55);
    EXPECT_EQ(ipv6str_2_bin("2001:db8::1", out.data(), 15), -1);
    EXPECT_EQ(ipv6str_2_bin("2001:db8::1", out.data(), -1), -1);
    EXPECT_EQ(ipv6str_2_bin("2001:db8::1", nullptr, 16), -1);
    EXPECT_EQ(ipv6str_2_bin(nullptr, out.data(), 16), -1);
    for (const char *text : {"", ":", "1.2.3.4", "1::2::3", "12345::", "::1%1", "1:2:3:4:5:6:7:x"})
        EXPECT_EQ(ipv6str_2_bin(text, out.data(), 16), -1) << text;
    EXPECT_EQ(out, octets(16, 0x55));
}

TEST(ipv6_2_str, writes_the_compressed_form_in_lower_case)
{
    char out[64];
    EXPECT_EQ(ipv6_2_str(documentation.data(), out, 40), out);
    EXPECT_STREQ(out, "2001:db8::1");
    const octets ones(16, 0xFF);
    EXPECT_STREQ(ipv6_2_str(ones.data(), out, 40), "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
}

TEST(ipv6_2_str, writes_nothing_into_fewer_than_40_bytes)
{
    char out[40];
    std::memset(out, '#', sizeof(out));
    for (const int len : {39, 0, -1})
        EXPECT_EQ(ipv6_2_str(documentation.data(), out, len), nullptr);
    EXPECT_EQ(bytes_of(out, 40), octets(40, '#'));
}

TEST(bracketed_ipv6, is_upper_case_between_brackets)
{
    char out[64];
    std::memset(out, '#', sizeof(out));
    tq_ipv6_addr_2_string_with_bracket(documentation.data(), out, 48);
    EXPECT_STREQ(out, "[2001:DB8::1]");
    EXPECT_EQ(out[48], '#');
    const octets ones(16, 0xFF);
    tq_ipv6_addr_2_string_with_bracket(ones.data(), out, 64);
    EXPECT_STREQ(out, "[FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF]");
    const octets mapped = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 1, 2, 3, 4};
    tq_ipv6_addr_2_string_with_bracket(mapped.data(), out, 64);
    EXPECT_STREQ(out, "[::FFFF:1.2.3.4]");
}

TEST(bracketed_ipv6, is_not_written_into_47_bytes_or_fewer)
{
    char out[48];
    std::memset(out, '#', sizeof(out));
    for (const uint32_t len : {47u, 20u, 0u})
        tq_ipv6_addr_2_string_with_bracket(documentation.data(), out, len);
    EXPECT_EQ(bytes_of(out, 48), octets(48, '#'));
}

/* --- records --- */

TEST(ipstr_2_addr, keeps_ipv4_in_host_order)
{
    auto out = filled<mix_addr>(0x55);
    EXPECT_EQ(ipstr_2_addr("10.1.2.3", &out), 0);
    EXPECT_EQ(bytes_of(&out, 1), (octets{2}));
    EXPECT_EQ(bytes_of(&out.address, 6), (octets{3, 2, 1, 10, 0x55, 0x55}));
    EXPECT_EQ(ipstr_2_addr("10.1", &out), 0);
    EXPECT_EQ(out.address.ipv4, 0x0A000001u);
}

TEST(ipstr_2_addr, keeps_ipv6_in_network_order)
{
    auto out = filled<mix_addr>(0x55);
    EXPECT_EQ(ipstr_2_addr("2001:db8::1", &out), 0);
    EXPECT_EQ(out.family, 10);
    EXPECT_EQ(bytes_of(&out.address, 16), documentation);
}

TEST(ipstr_2_addr, writes_the_family_before_it_fails)
{
    for (const char *text : {"", "nonsense", "1::2::3", "1.2.3.256", static_cast<const char *>(nullptr)}) {
        auto out = filled<mix_addr>(0x55);
        EXPECT_EQ(ipstr_2_addr(text, &out), -1);
        EXPECT_EQ(out.family, 2);
        EXPECT_EQ(bytes_of(&out.address, 16), octets(16, 0x55));
    }
}

TEST(ipstr_with_bracket_2_addr, strips_the_brackets)
{
    mixtest::guarded_text page;
    /* the last character goes unchecked */
    for (const char *text : {"[2001:db8::1]", "[2001:db8::1x", "[2001:db8::1["}) {
        auto out = filled<mix_addr>(0x55);
        EXPECT_EQ(ipstr_with_bracket_2_addr(page.put(text), &out), 0) << text;
        EXPECT_EQ(out.family, 10);
        EXPECT_EQ(bytes_of(&out.address, 16), documentation);
    }
}

TEST(ipstr_with_bracket_2_addr, reads_a_text_without_bracket_as_it_is)
{
    auto out = filled<mix_addr>(0x55);
    EXPECT_EQ(ipstr_with_bracket_2_addr("10.1.2.3", &out), 0);
    EXPECT_EQ(out.family, 2);
    EXPECT_EQ(out.address.ipv4, 0x0A010203u);
    EXPECT_EQ(ipstr_with_bracket_2_addr("2001:db8::1", &out), 0);
    EXPECT_EQ(out.family, 10);
    EXPECT_EQ(ipstr_with_bracket_2_addr("", &out), -1);
    EXPECT_EQ(out.family, 2);
}

TEST(ipstr_with_bracket_2_addr, writes_family_10_before_the_inside_fails)
{
    for (const char *text : {"[10.0.0.1]", "[]", "[x", "[2001:db8::g]"}) {
        auto out = filled<mix_addr>(0x55);
        EXPECT_EQ(ipstr_with_bracket_2_addr(text, &out), -1) << text;
        EXPECT_EQ(out.family, 10) << text;
        EXPECT_EQ(bytes_of(&out.address, 16), octets(16, 0x55));
    }
}

TEST(ipstr_with_bracket_2_addr, writes_nothing_for_a_lone_bracket_or_46_characters_inside)
{
    mixtest::guarded_text page;
    const std::string too_long = "[" + std::string(46, '1') + "]";
    for (const std::string &text : {std::string("["), too_long}) {
        auto out = filled<mix_addr>(0x55);
        EXPECT_EQ(ipstr_with_bracket_2_addr(page.put(text), &out), -1) << text;
        EXPECT_EQ(bytes_of(&out, sizeof(out)), octets(sizeof(out), 0x55));
    }
}

TEST(ipstr_with_bracket_2_addr, takes_45_characters_inside)
{
    const std::string longest = "[0000:0000:0000:0000:0000:ffff:192.168.100.200]";
    ASSERT_EQ(longest.size(), 47u);
    auto out = filled<mix_addr>(0x55);
    EXPECT_EQ(ipstr_with_bracket_2_addr(longest.c_str(), &out), 0);
    EXPECT_EQ(bytes_of(&out.address, 16),
              (octets{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 192, 168, 100, 200}));
}

TEST(tq_ip_string_2_inet_addr, keeps_both_families_in_network_order)
{
    auto out = filled<mix_inet_addr>(0x55);
    EXPECT_EQ(tq_ip_string_2_inet_addr(&out, "10.0.0.1"), 0);
    EXPECT_EQ(bytes_of(&out, 6), (octets{2, 10, 0, 0, 1, 0x55}));
    EXPECT_EQ(tq_ip_string_2_inet_addr(&out, "2001:db8::1"), 0);
    EXPECT_EQ(out.family, 10);
    EXPECT_EQ(bytes_of(out.address, 16), documentation);
    EXPECT_EQ(tq_ip_string_2_inet_addr(&out, "::1.2.3.4"), 0);
    EXPECT_EQ(out.family, 10);
}

TEST(tq_ip_string_2_inet_addr, leaves_the_record_on_failure)
{
    mixtest::guarded_text page;
    auto out = filled<mix_inet_addr>(0x55);
    for (const char *text :
         {"", "10", "10.1", "0x0A.1.2.3", "1.2.3.256", "1.2.3.4 ", ":", "1::2::3", "[::1]", "a.b"})
        EXPECT_EQ(tq_ip_string_2_inet_addr(&out, page.put(text)), -1) << text;
    EXPECT_EQ(tq_ip_string_2_inet_addr(&out, nullptr), -1);
    EXPECT_EQ(bytes_of(&out, sizeof(out)), octets(sizeof(out), 0x55));
}

TEST(tq_ip_string_with_bracket_2_inet_addr, strips_the_brackets_of_both_families)
{
    auto out = filled<mix_inet_addr>(0x55);
    EXPECT_EQ(tq_ip_string_with_bracket_2_inet_addr(&out, "[10.0.0.1]"), 0);
    EXPECT_EQ(bytes_of(&out, 6), (octets{2, 10, 0, 0, 1, 0x55}));
    EXPECT_EQ(tq_ip_string_with_bracket_2_inet_addr(&out, "[2001:db8::1x"), 0);
    EXPECT_EQ(out.family, 10);
    EXPECT_EQ(bytes_of(out.address, 16), documentation);
    EXPECT_EQ(tq_ip_string_with_bracket_2_inet_addr(&out, "10.0.0.2"), 0);
    EXPECT_EQ(bytes_of(&out, 5), (octets{2, 10, 0, 0, 2}));
    EXPECT_EQ(tq_ip_string_with_bracket_2_inet_addr(&out, "[0000:0000:0000:0000:0000:ffff:192.168.100.200]"),
              0);
}

TEST(tq_ip_string_with_bracket_2_inet_addr, leaves_the_record_on_failure)
{
    mixtest::guarded_text page;
    auto out = filled<mix_inet_addr>(0x55);
    const std::string too_long = "[" + std::string(46, ':') + "]";
    for (const std::string &text :
         {std::string("["), std::string("[]"), std::string("[10]"), too_long, std::string("")})
        EXPECT_EQ(tq_ip_string_with_bracket_2_inet_addr(&out, page.put(text)), -1) << text;
    EXPECT_EQ(tq_ip_string_with_bracket_2_inet_addr(&out, nullptr), -1);
    EXPECT_EQ(bytes_of(&out, sizeof(out)), octets(sizeof(out), 0x55));
}

/* --- validators --- */

TEST(is_ipv4_str, takes_a_strict_dotted_quad_outside_the_zero_network)
{
    for (const char *text : {"1.2.3.4", "255.255.255.255", "0.0.0.0", "10.0.0.0"}) {
        EXPECT_EQ(is_ipv4_str(text), 1) << text;
        EXPECT_EQ(is_ipv4_r_str(text), 1) << text;
    }
    for (const char *text : {"", "10.1", "1", "01.2.3.4", "1.2.3.04", "1.2.3.256", "1.2.3.4.", "1.2.3.4 ",
                             " 1.2.3.4", ".1.2.3", ".1.2.3.4", "0x1.2.3.4", "::1", "1.2.3.4/8"}) {
        EXPECT_EQ(is_ipv4_str(text), 0) << text;
        EXPECT_EQ(is_ipv4_r_str(text), 0) << text;
    }
    EXPECT_EQ(is_ipv4_str(nullptr), 0);
    EXPECT_EQ(is_ipv4_r_str(nullptr), 0);
}

TEST(is_ipv4_r_str, takes_the_zero_network_too)
{
    for (const char *text : {"0.1.2.3", "0.0.0.1", "0.255.255.255"}) {
        EXPECT_EQ(is_ipv4_str(text), 0) << text;
        EXPECT_EQ(is_ipv4_r_str(text), 1) << text;
    }
}

TEST(is_ipv4_str, is_what_the_converter_and_the_matcher_both_accept)
{
    mixtest::guarded_text page;
    const std::string alphabet = "012.x";
    std::string word;
    const auto every_word = [&](const auto &self, size_t length) -> void {
        const char *text = page.put(word);
        ASSERT_EQ(is_ipv4_str(text), model::is_ipv4(word, false)) << word;
        ASSERT_EQ(is_ipv4_r_str(text), model::is_ipv4(word, true)) << word;
        for (const char c : length > 0 ? alphabet : std::string()) {
            word.push_back(c);
            self(self, length - 1);
            word.pop_back();
        }
    };
    every_word(every_word, 8);
}

TEST(is_ipv6_str, takes_what_inet_pton_takes)
{
    for (const auto validator : {is_ipv6_str, is_ipv6_r_str}) {
        for (const char *text : {"::", "::1", "2001:DB8::1", "::ffff:1.2.3.4", "1:2:3:4:5:6:7:8"})
            EXPECT_EQ(validator(text), 1) << text;
        for (const char *text :
             {"", ":", "1", "1.2.3.4", "fe80::1%1", "1:2:3:4:5:6:7", "12345::", ":::", "::1 "})
            EXPECT_EQ(validator(text), 0) << text;
        EXPECT_EQ(validator(nullptr), 0);
    }
}

TEST(is_hex_str, takes_hexadecimal_digits_only)
{
    mixtest::guarded_text page;
    for (const char *text : {"0", "0aF", "0123456789abcdefABCDEF"})
        EXPECT_EQ(is_hex_str(page.put(text)), 1) << text;
    for (const char *text : {"", "0x1", "g", "G", " 1", "1 ", "-1", "0a:"})
        EXPECT_EQ(is_hex_str(page.put(text)), 0) << text;
    EXPECT_EQ(is_hex_str(nullptr), 0);
}

/* A file of `chunk` bytes "a", mapped again and again to `length` of them and a terminator. */
class repeated_text
{
  public:
    explicit repeated_text(size_t length) : size_((length / chunk + 1) * chunk)
    {
        const int file = memfd_create("digits", MFD_CLOEXEC);
        const std::string digits(chunk, 'a');
        text_ = static_cast<char *>(
            mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
        good_ = text_ != MAP_FAILED && write(file, digits.data(), chunk) == static_cast<ssize_t>(chunk);
        for (size_t at = 0; good_ && at < size_; at += chunk)
            good_ = mmap(text_ + at, chunk, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_FIXED, file, 0) !=
                    MAP_FAILED;
        close(file);
        if (good_)
            text_[length] = '\0';
    }
    repeated_text(const repeated_text &) = delete;
    repeated_text &operator=(const repeated_text &) = delete;
    ~repeated_text() { munmap(text_, size_); }
    [[nodiscard]] bool good() const { return good_; }
    [[nodiscard]] const char *text() const { return text_; }

  private:
    static constexpr size_t chunk = size_t{8} << 20;
    size_t size_;
    char *text_;
    bool good_;
};

TEST(is_hex_str, counts_the_characters_in_32_bits_with_sign)
{
    const repeated_text two_gigabytes(size_t{1} << 31);
    if (!two_gigabytes.good())
        GTEST_SKIP() << "no room in the address space";
    EXPECT_EQ(is_hex_str(two_gigabytes.text()), 0);
    EXPECT_EQ(is_hex_str(two_gigabytes.text() + 1), 1);
}

} // namespace
