/*
 * Token matchers. Each walks the word once, from left to right, and settles as soon as the answer is certain;
 * the order of the tests decides between "wrong" and "incomplete", so it is part of what they promise.
 */
#include <libmix/ip_util.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "misc/digits.h"

namespace
{

using mix::is_digit;
using verdict = std::optional<mix_match>; /* nothing: not settled yet */

const char *skip_digits(const char *at)
{
    while (is_digit(*at))
        at++;
    return at;
}

bool only_of(const char *word, const char *characters)
{
    return word[std::strspn(word, characters)] == '\0';
}

/* The number of decimal digits only; what lies above the limit need not be exact. */
bool is_decimal_up_to(const char *digits, int limit)
{
    int value = 0;
    for (; is_digit(*digits); digits++) {
        value = value * 10 + (*digits - '0');
        if (value > limit)
            return false;
    }
    return true;
}

/* What follows the "/" of a prefix, with any number of digits. */
mix_match length_match(const char *digits, int limit)
{
    if (*digits == '\0')
        return MATCH_INCOMPLETE;
    if (*skip_digits(digits) != '\0' || !is_decimal_up_to(digits, limit))
        return MATCH_NONE;
    return MATCH_COMPLETE;
}

/* The digits from begin to end as an octet. None at all pass as 0, on purpose. */
bool is_octet(const char *begin, const char *end)
{
    if (end - begin > 3)
        return false;
    if (end - begin > 1 && *begin == '0')
        return false;
    return is_decimal_up_to(begin, 255);
}

/* Takes the dot at `dot`; a word that ends with it is incomplete whatever stands before. */
verdict pass_dot(const char *dot, int &dots)
{
    if (dots == 3 || dot[1] == '.')
        return MATCH_NONE;
    if (dot[1] == '\0')
        return MATCH_INCOMPLETE;
    dots++;
    return {};
}

/* An IPv6 word in progress. */
struct ipv6_word {
    const char *at; /* where the next group starts */
    int colons = 0; /* single ones, and two for a "::" inside the word: one less than there are groups */
    bool doubled = false; /* a "::" was seen */
    int tokens = 0;       /* of a prefix: groups and dotted octets */
};

constexpr int most_tokens = 11; /* seven groups and a dotted quad */
constexpr int most_colons = 7;
constexpr int longest_group = 4;

/* --- IPv6 address --- */

verdict leading_colons(ipv6_word &word)
{
    const char *at = word.at;
    if (*at != ':')
        return {};
    if (at[1] == '\0')
        return MATCH_COMPLETE;
    if (at[1] != ':' || at[2] == ':')
        return MATCH_NONE;
    if (at[2] == '\0')
        return MATCH_COMPLETE;
    word = {at + 2, 1, true};
    return {};
}

/* The end of the group that starts at `at`; NULL when the word ends right behind a dot of it. */
const char *group_end(const char *at)
{
    while (*at != ':' && *at != '\0') {
        if (*at != '.') {
            at++;
            continue;
        }
        if (at[1] == '\0')
            return nullptr;
        at += 2; /* a dot takes the next character into the group, be it a colon */
    }
    return at;
}

verdict double_colon(ipv6_word &word, const char *colon)
{
    if (word.colons + 1 > most_colons || word.doubled || colon[2] == ':')
        return MATCH_NONE;
    if (colon[2] == '\0')
        return MATCH_COMPLETE;
    word = {colon + 2, word.colons + 2, true};
    return word.colons > most_colons ? verdict(MATCH_NONE) : verdict();
}

verdict single_colon(ipv6_word &word, const char *colon)
{
    word.colons++;
    if (word.colons > most_colons)
        return MATCH_NONE;
    if (colon[1] == '\0')
        return MATCH_COMPLETE;
    word.at = colon + 1;
    return {};
}

/* One group and the colon or colons behind it. */
verdict group_and_colon(ipv6_word &word)
{
    const char *end = group_end(word.at);
    if (end == nullptr)
        return MATCH_COMPLETE;
    if (end - word.at > longest_group)
        return MATCH_NONE;
    if (*end == '\0')
        return MATCH_COMPLETE;
    return end[1] == ':' ? double_colon(word, end) : single_colon(word, end);
}

/* --- IPv6 prefix --- */

mix_match ipv6_length_match(const char *slash)
{
    return length_match(slash + 1, 128);
}

verdict prefix_leading_colons(ipv6_word &word)
{
    const char *at = word.at;
    if (*at != ':')
        return {};
    if (at[1] == '\0')
        return MATCH_INCOMPLETE;
    if (at[1] != ':' || at[2] == ':')
        return MATCH_NONE;
    if (at[2] == '/')
        return ipv6_length_match(at + 2);
    if (at[2] == '\0')
        return MATCH_INCOMPLETE;
    word = {at + 2, 1, true, 1};
    return {};
}

verdict prefix_double_colon(ipv6_word &word, const char *colon)
{
    if (word.doubled || colon[2] == ':')
        return MATCH_NONE;
    word.tokens++;
    if (word.tokens > most_tokens)
        return MATCH_NONE;
    if (colon[2] == '\0')
        return MATCH_INCOMPLETE; /* whatever the colons: only what follows them makes them too many */
    word.colons += 2;
    if (word.colons > most_colons)
        return MATCH_NONE;
    if (colon[2] == '/')
        return ipv6_length_match(colon + 2);
    word.at = colon + 2;
    word.doubled = true;
    return {};
}

verdict prefix_colon(ipv6_word &word, const char *colon)
{
    if (colon[1] == '/')
        return MATCH_NONE;
    if (colon[1] == ':')
        return prefix_double_colon(word, colon);
    word.colons++;
    if (word.colons > most_colons)
        return MATCH_NONE;
    word.at = colon + 1;
    return {};
}

/* One token and what ends it: a colon or two, a dot, the "/" or the end of the word. */
verdict token_and_stop(ipv6_word &word)
{
    const char *end = word.at + std::strcspn(word.at, ":./");
    word.tokens++;
    if (end - word.at > longest_group || word.tokens > most_tokens)
        return MATCH_NONE;
    switch (*end) {
    case ':':
        return prefix_colon(word, end);
    case '/':
        return ipv6_length_match(end);
    case '.':
        if (end[1] == '\0')
            return MATCH_INCOMPLETE;
        word.at = end + 1;
        return {};
    default:
        return MATCH_INCOMPLETE;
    }
}

/* --- ranges --- */

std::optional<unsigned long> number_of(const char *text)
{
    char *rest;
    const unsigned long value = std::strtoul(text, &rest, 10);
    return *rest == '\0' ? std::optional(value) : std::nullopt;
}

struct bound {
    unsigned long value;
    const char *stop; /* the character that ends it */
};

/* The number from `at` to the next `stop`, of at most 10 characters. */
std::optional<bound> bound_up_to(const char *at, char stop)
{
    char copy[11] = {};
    const char *end = std::strchr(at, stop);
    if (end == nullptr || end - at >= static_cast<ptrdiff_t>(sizeof(copy)))
        return {};
    std::memcpy(copy, at, static_cast<size_t>(end - at));
    const auto value = number_of(copy);
    return value ? std::optional(bound{*value, end}) : std::nullopt;
}

} // namespace

int ipv4_match(const char *word) noexcept
{
    if (word == nullptr || *word == '\0')
        return MATCH_INCOMPLETE;
    int dots = 0;
    for (const char *begin = word;;) {
        const char *end = skip_digits(begin);
        if (*end != '.' && *end != '\0')
            return MATCH_NONE;
        if (*end == '.') {
            if (const verdict settled = pass_dot(end, dots))
                return *settled;
        }
        if (!is_octet(begin, end))
            return MATCH_NONE;
        if (*end == '\0')
            return dots < 3 ? MATCH_INCOMPLETE : MATCH_COMPLETE;
        begin = end + 1;
    }
}

int ipv4_prefix_match(const char *word) noexcept
{
    if (word == nullptr || *word == '\0')
        return MATCH_INCOMPLETE;
    int dots = 0;
    for (const char *begin = word + std::strspn(word, "/");;) {
        const char *end = skip_digits(begin);
        const char stop = *end;
        if (stop != '.' && stop != '/' && stop != '\0')
            return MATCH_NONE;
        if (stop == '.') {
            if (end[1] == '/')
                return MATCH_NONE;
            if (const verdict settled = pass_dot(end, dots))
                return *settled;
        }
        if (!is_octet(begin, end))
            return MATCH_NONE;
        if (stop == '\0')
            return MATCH_INCOMPLETE;
        if (stop == '/' && dots == 3)
            return length_match(end + 1, 32);
        begin = end + 1; /* a "/" before the third dot only separates, on purpose */
    }
}

int ipv6_match(const char *word) noexcept
{
    if (word == nullptr)
        return MATCH_INCOMPLETE;
    if (!only_of(word, "0123456789abcdefABCDEF:.%"))
        return MATCH_NONE;
    if (*word == '\0')
        return MATCH_COMPLETE; /* unlike the other matchers, on purpose */
    ipv6_word progress{word};
    verdict settled = leading_colons(progress);
    while (!settled)
        settled = group_and_colon(progress);
    return *settled;
}

int ipv6_prefix_match(const char *word) noexcept
{
    if (word == nullptr)
        return MATCH_INCOMPLETE;
    if (!only_of(word, "0123456789abcdefABCDEF:.%/"))
        return MATCH_NONE;
    if (*word == '\0')
        return MATCH_INCOMPLETE;
    ipv6_word progress{word};
    verdict settled = prefix_leading_colons(progress);
    while (!settled)
        settled = token_and_stop(progress);
    return *settled;
}

int range_match(const char *range, const char *word) noexcept
{
    if (word == nullptr)
        return 1;
    const auto value = number_of(word);
    if (!value || range == nullptr || *range == '\0')
        return 0;
    const auto lower = bound_up_to(range + 1, '-');
    if (!lower)
        return 0;
    const auto upper = bound_up_to(lower->stop + 1, '>');
    return upper && lower->value <= *value && *value <= upper->value;
}
