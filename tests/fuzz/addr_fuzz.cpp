/*
 * Every function that reads an address word, on any bytes, held against the independent models of the unit
 * tests and against the C library. The word ends with its page: reading on is fatal.
 */
#include <libmix/ip_util.h>

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/shared_mem.h"
#include "support/guarded_text.h"
#include "unit/addr/address_models.h"

namespace
{

namespace model = mixtest::model;

constexpr size_t longest_word = 1024;
constexpr uint8_t untouched = 0x5A;

void must(bool agreed, const char *what, const std::string &word)
{
    if (agreed)
        return;
    std::fprintf(stderr, "%s disagrees about '%s'\n", what, word.c_str());
    std::abort();
}

void check_matchers(const char *text, const std::string &word)
{
    must(ipv4_match(text) == model::ipv4_match(word), "ipv4_match", word);
    must(ipv4_prefix_match(text) == model::ipv4_prefix_match(word), "ipv4_prefix_match", word);
    must(ipv6_match(text) == model::ipv6_match(word), "ipv6_match", word);
    must(ipv6_prefix_match(text) == model::ipv6_prefix_match(word), "ipv6_prefix_match", word);
}

void check_validators(const char *text, const std::string &word)
{
    must((is_ipv4_str(text) != 0) == model::is_ipv4(word, false), "is_ipv4_str", word);
    must((is_ipv4_r_str(text) != 0) == model::is_ipv4(word, true), "is_ipv4_r_str", word);
    must((is_ipv6_str(text) != 0) == model::is_ipv6(word), "is_ipv6_str", word);
    must((is_ipv6_r_str(text) != 0) == model::is_ipv6(word), "is_ipv6_r_str", word);
    must((is_hex_str(text) != 0) == model::is_hex(word), "is_hex_str", word);
    must((is_ipv4_prefix_str(text) != 0) == model::is_ipv4_prefix(word, false), "is_ipv4_prefix_str", word);
    must((is_ipv4_r_prefix_str(text) != 0) == model::is_ipv4_prefix(word, true), "is_ipv4_r_prefix_str",
         word);
    must((is_ipv6_prefix_str(text) != 0) == model::is_ipv6_prefix(word, true), "is_ipv6_prefix_str", word);
    must((is_ipv6_r_prefix_str(text) != 0) == model::is_ipv6_prefix(word, true), "is_ipv6_r_prefix_str",
         word);
    must((is_ipv6_g_prefix_str(text) != 0) == model::is_ipv6_prefix(word, false), "is_ipv6_g_prefix_str",
         word);
}

void check_masks(const char *text, const std::string &word)
{
    in_addr parsed;
    int expected = -1;
    if (inet_aton(text, &parsed) != 0) {
        const uint32_t mask = ntohl(parsed.s_addr);
        for (int n = 0; n <= 32; n++)
            expected = masklen2make[n] == mask ? n : expected;
    }
    must(maskv4str_2_num(text) == expected, "maskv4str_2_num", word);
    must((is_maskv4_str(text) != 0) == (expected >= 0), "is_maskv4_str", word);
    for (const bool limited : {false, true}) {
        uint32_t out = 0x55555555;
        const auto wanted = model::wildcard_mask(word, limited);
        const int result =
            limited ? get_wildcard_mask_ipv4(text, &out) : get_wildcard_mask_without_limit_ipv4(text, &out);
        must(result == wanted.result && out == wanted.out.value_or(0x55555555), "wildcard mask", word);
    }
}

void check_converters(const char *text, const std::string &word)
{
    uint32_t four = 0x55555555;
    in_addr parsed{};
    const bool is_four = inet_aton(text, &parsed) != 0;
    must(ipv4str_2_uint(text, &four) == (is_four ? 0 : -1), "ipv4str_2_uint", word);
    must(four == (is_four ? ntohl(parsed.s_addr) : 0x55555555), "ipv4str_2_uint's value", word);

    uint8_t six[16];
    uint8_t expected[16];
    std::memset(six, untouched, sizeof six);
    std::memset(expected, untouched, sizeof expected);
    const bool is_six = inet_pton(AF_INET6, text, expected) > 0;
    must(ipv6str_2_bin(text, six, 16) == (is_six ? 0 : -1), "ipv6str_2_bin", word);
    must(std::memcmp(six, expected, 16) == 0, "ipv6str_2_bin's bytes", word);

    mix_addr record;
    std::memset(&record, untouched, sizeof record);
    must(ipstr_2_addr(text, &record) == (is_six || is_four ? 0 : -1), "ipstr_2_addr", word);
    must(record.family == (is_six ? AF_INET6 : AF_INET), "ipstr_2_addr's family", word);
}

bool strict_record(const std::string &word, mix_inet_addr &out)
{
    const bool six = word.find(':') != std::string::npos;
    uint8_t parsed[16];
    if ((!six && word.find('.') == std::string::npos) ||
        inet_pton(six ? AF_INET6 : AF_INET, word.c_str(), parsed) <= 0)
        return false;
    out.family = six ? AF_INET6 : AF_INET;
    std::memcpy(out.address, parsed, six ? 16 : 4);
    return true;
}

void check_records(const char *text, const std::string &word)
{
    mix_inet_addr got;
    mix_inet_addr wanted;
    std::memset(&got, untouched, sizeof got);
    std::memset(&wanted, untouched, sizeof wanted);
    const bool good = strict_record(word, wanted);
    must(tq_ip_string_2_inet_addr(&got, text) == (good ? 0 : -1), "tq_ip_string_2_inet_addr", word);
    must(std::memcmp(&got, &wanted, sizeof got) == 0, "tq_ip_string_2_inet_addr's record", word);

    std::memset(&got, untouched, sizeof got);
    std::memset(&wanted, untouched, sizeof wanted);
    const bool bracket = !word.empty() && word[0] == '[';
    const bool fits = word.size() >= 2 && word.size() <= 47;
    const std::string inside = bracket && fits ? word.substr(1, word.size() - 2) : word;
    const bool read = (!bracket || fits) && strict_record(inside, wanted);
    must(tq_ip_string_with_bracket_2_inet_addr(&got, text) == (read ? 0 : -1), "bracketed inet address",
         word);
    must(std::memcmp(&got, &wanted, sizeof got) == 0, "bracketed inet address's record", word);

    mix_addr record;
    std::memset(&record, untouched, sizeof record);
    const bool six = model::is_ipv6(inside);
    const bool expected = bracket ? fits && six : six || model::aton_accepts(word);
    must(ipstr_with_bracket_2_addr(text, &record) == (expected ? 0 : -1), "bracketed address", word);
    if (bracket)
        must(record.family == (fits ? AF_INET6 : untouched), "bracketed address's family", word);
}

/* The bounds in the middle of the word, the number behind it. */
void check_ranges(const char *text, const std::string &word)
{
    must(range_match(text, nullptr) == 1, "range_match without a word", word);
    const int low = range_match("<10-4094>", text);
    char *rest;
    const unsigned long value = std::strtoul(word.c_str(), &rest, 10);
    must(low == (*rest == '\0' && value >= 10 && value <= 4094 ? 1 : 0), "range_match", word);
    const int any = range_match(text, "5");
    const size_t hyphen = word.find('-', 1);
    const size_t end = hyphen == std::string::npos ? hyphen : word.find('>', hyphen + 1);
    if (word.empty() || end == std::string::npos || hyphen - 1 > 10 || end - hyphen - 1 > 10) {
        must(any == 0, "range_match of a range that is none", word);
        return;
    }
    const std::string lower = word.substr(1, hyphen - 1);
    const std::string upper = word.substr(hyphen + 1, end - hyphen - 1);
    const unsigned long from = std::strtoul(lower.c_str(), &rest, 10);
    bool holds = *rest == '\0' && from <= 5;
    const unsigned long to = std::strtoul(upper.c_str(), &rest, 10);
    holds = holds && *rest == '\0' && 5 <= to;
    must(any == (holds ? 1 : 0), "range_match of a range", word);
}

} // namespace

/* The only thing that these functions' neighbours import; nothing here asks for it. */
void *init_shared_mem(const char *, size_t)
{
    std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static mixtest::guarded_text page;
    if (size > longest_word || std::memchr(data, 0, size) != nullptr)
        return 0;
    const std::string word(reinterpret_cast<const char *>(data), size);
    const char *text = page.put(word);
    check_matchers(text, word);
    check_validators(text, word);
    check_masks(text, word);
    check_converters(text, word);
    check_records(text, word);
    check_ranges(text, word);
    return 0;
}
