#include <libmix/ip_util.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "support/guarded_text.h"
#include "unit/addr/address_models.h"

namespace
{

namespace model = mixtest::model;

struct rated {
    const char *word;
    int answer;
};

void PrintTo(const rated &r, std::ostream *out)
{
    *out << (r.word != nullptr ? r.word : "NULL") << " " << r.answer;
}

/* The word stands at the end of readable memory. */
int rate(int (*match)(const char *), const char *word)
{
    static mixtest::guarded_text page;
    return match(word != nullptr ? page.put(word) : nullptr);
}

class ipv4_word : public testing::TestWithParam<rated>
{
};
class ipv4_prefix_word : public testing::TestWithParam<rated>
{
};
class ipv6_word : public testing::TestWithParam<rated>
{
};
class ipv6_prefix_word : public testing::TestWithParam<rated>
{
};

TEST_P(ipv4_word, is_rated)
{
    EXPECT_EQ(rate(ipv4_match, GetParam().word), GetParam().answer);
}

TEST_P(ipv4_prefix_word, is_rated)
{
    EXPECT_EQ(rate(ipv4_prefix_match, GetParam().word), GetParam().answer);
}

TEST_P(ipv6_word, is_rated)
{
    EXPECT_EQ(rate(ipv6_match, GetParam().word), GetParam().answer);
}

TEST_P(ipv6_prefix_word, is_rated)
{
    EXPECT_EQ(rate(ipv6_prefix_match, GetParam().word), GetParam().answer);
}

const rated ipv4_words[] = {
    {nullptr, 7},
    {"", 7},
    {"1", 7},
    {"10", 7},
    {"10.", 7},
    {"1.2", 7},
    {"1.2.", 7},
    {"1.2.3", 7},
    {"1.2.3.", 7},
    {"1.2.3.4", 8},
    {"10.0.0.1", 8},
    {"0.0.0.0", 8},
    {"255.255.255.255", 8},
    {"1.2.3.4.", 0},
    {"1.2.3.4.5", 0},
    {"10.0.0.1.", 0},
    {"10..1", 0},
    {"1..2", 0},
    {"1..", 0},
    {"..", 0},
    {"10.0.0.01", 0},
    {"01.1.1.1", 0},
    {"00.1.1.1", 0},
    {"256.1.1.1", 0},
    {"1.1.1.256", 0},
    {"1.1.1.1000", 0},
    {"1000", 0},
    {"256", 0},
    {"01", 0},
    {"1a", 0},
    {"a", 0},
    {" 1", 0},
    {"1.2.3.4 ", 0},
    {"-1", 0},
    {"+1", 0},
    {"1.2.3.4/8", 0},
    {"1:2", 0},
    /* an empty first octet passes; a last dot is taken before the octet in front of it is judged */
    {".1.2.3", 8},
    {".1.2.3.4", 0},
    {".1", 7},
    {".", 7},
    {"256.", 7},
    {"01.", 7},
    {"123456789.", 7},
    {"1.999.", 7},
    {"1.2.3.999.", 0},
    {"\xb2.1.1.1", 0}, /* a digit in no C locale */
};
INSTANTIATE_TEST_SUITE_P(listed, ipv4_word, testing::ValuesIn(ipv4_words));

const rated ipv4_prefix_words[] = {
    {nullptr, 7},
    {"", 7},
    {"10.0.0.1", 7},
    {"10.0.0.1/", 7},
    {"10.0.0.1/24", 8},
    {"10.0.0.1/0", 8},
    {"10.0.0.1/32", 8},
    {"10.0.0.1/33", 0},
    {"10.0.0.1/2x", 0},
    {"10.0.0.1/x", 0},
    {"10.0.0.1/ 8", 0},
    {"10.0.0.1/-1", 0},
    {"10.0.0.1/8/", 0},
    {"10.0.0.1//", 0},
    {"10.0.0./8", 0},
    {"10./8", 0},
    {"10..", 0},
    /* any number of length digits */
    {"10.0.0.1/00000000000000000000000000000000000000032", 8},
    {"10.0.0.1/00000000000000000000000000000000000000033", 0},
    {"10.0.0.1/4294967296", 0},
    {"10.0.0.1/18446744073709551616", 0},
    {"10.0.0.1/99999999999999999999999999999999999999999", 0},
    /* "/" in front, and as a separator that is no dot */
    {"/10.0.0.1/24", 8},
    {"///10.0.0.1/24", 8},
    {"/", 7},
    {"//", 7},
    {"1/2.3.4/8", 7},
    {"1/2.3.4.5/8", 8},
    {"1/2/3/4/5/6", 7},
    {"1//2", 7},
    {"1/.2", 7},
    {"10/8", 7},
    {"10/33", 7},
    {"10/256", 0},
    {"10/01", 0},
    {"1.2.3/4.5/6", 8},
    {"1.2.3.4/5.6", 0},
    /* octet rules and the last dot */
    {"256.1.1.1/8", 0},
    {"01.1.1.1/8", 0},
    {"1.1.1.256/", 0},
    {"1.1.1.1000/8", 0},
    {"256.", 7},
    {"1.2.3.4.", 0},
    {"1.2.3.4.5", 0},
    {".1.2.3/4", 8},
    {".", 7},
    {"1.2.3.4a", 0},
    {"a", 0},
};
INSTANTIATE_TEST_SUITE_P(listed, ipv4_prefix_word, testing::ValuesIn(ipv4_prefix_words));

const rated ipv6_words[] = {
    {nullptr, 7},
    {"", 8},
    {":", 8},
    {"::", 8},
    {":::", 0},
    {":1", 0},
    {":.", 0},
    {"::1", 8},
    {"2001:db8::1", 8},
    {"2001:DB8::1", 8},
    {"1::2::3", 0},
    {"12345::", 0},
    {"12345", 0},
    {"1234", 8},
    {"g::1", 0},
    {"1 ", 0},
    {"1/", 0},
    {"fe80::1%1", 8},
    {"%", 8},
    {"fe80::1%eth0", 0},
    {"1:::", 0},
    {"1:::2", 0},
    {"1:", 8},
    {"1::", 8},
    /* eight groups, seven colons */
    {"1:2:3:4:5:6:7:8", 8},
    {"1:2:3:4:5:6:7:8:9", 0},
    {"1:2:3:4:5:6:7:8:", 0},
    {"1:2:3:4:5:6:7:", 8},
    {"1:2:3:4:5:6:7::", 8},
    {"1:2:3:4:5:6:7:8::", 0},
    {"1:2:3:4:5:6:7::8", 0},
    {"1:2:3:4:5:6::", 8},
    {"1:2:3:4:5:6::7", 8},
    {"1:2:3:4:5:6::7:", 0},
    {"1:2:3:4:5:6::7:8", 0},
    {"1:2:3:4:5::6:", 8},
    {"1:2:3:4:5::6:7", 8},
    {"1:2:3:4:5::6:7:8", 0},
    {"::1:2:3:4:5:6:7", 8},
    {"::1:2:3:4:5:6:7:8", 0},
    {"::1:2:3:4:5:6:7:", 0},
    {"::1:2:3:4:5:6:", 8},
    /* a dotted tail of four characters, or any that ends in its dot */
    {"::1.2", 8},
    {"::1.23", 8},
    {"::1.234", 0},
    {"::1.2.3.4", 0},
    {"::1.2.3.", 8},
    {"12345.", 8},
    {".", 8},
    {"::.", 8},
    {"1.2.", 8},
    {"1.2.3", 0},
    {"..", 8},
    {"...", 8},
    {"....", 8},
    {".....", 8},
    {"....1", 0},
    /* a dot takes what follows it into the group, a colon too */
    {"1.:", 8},
    {"1.:2", 8},
    {"1.:23", 0},
    {"1.::", 8},
    {"1.::2", 8},
    {"1.::::", 0},
    {"1.:::2::3", 0},
    {"1:2:3:4:5:6:7:12345.", 8},
    {"1:2:3:4:5:6:7:8:.", 0},
    {"1:2:3:4:5:6::7.", 8},
    {"1:2:3:4:5:6::7:.", 0},
};
INSTANTIATE_TEST_SUITE_P(listed, ipv6_word, testing::ValuesIn(ipv6_words));

const rated ipv6_prefix_words[] = {
    {nullptr, 7},
    {"", 7},
    {":", 7},
    {"::", 7},
    {":::", 0},
    {":1", 0},
    {":/", 0},
    {":/64", 0},
    {"::/", 7},
    {"::/0", 8},
    {"::/128", 8},
    {"::/129", 0},
    {"::/a", 0},
    {"::/1a", 0},
    {"::/64/", 0},
    {"::/1:", 0},
    {"::/000000000000000000000000000000000000128", 8},
    {"::/18446744073709551617", 0},
    {"::/9223372036854775808", 0},
    {"2001:db8::", 7},
    {"2001:db8::/", 7},
    {"2001:db8::/32", 8},
    {"2001:db8::/129", 0},
    {"2001:db8:", 7},
    {"1:/64", 0},
    {"1::2::3", 0},
    {"1::2::/3", 0},
    {"1:::", 0},
    {"1:::/3", 0},
    {"::1", 7},
    {"::1/128", 8},
    {"12345::/32", 0},
    {"12345", 0},
    {"12345/1", 0},
    {"12345.", 0},
    {"g::/1", 0},
    {"::1 /1", 0},
    {"fe80::1%1/64", 8},
    /* an empty group before "/" passes; a slash that comes first has one */
    {"/", 7},
    {"/64", 8},
    {"1./64", 8},
    {"1.", 7},
    {".", 7},
    {"..", 7},
    {"./1", 8},
    {"1.:2", 7},
    {"1.::2/3", 8},
    {"::.", 7},
    {"::./1", 8},
    {"1:.2", 7},
    /* seven colons: a "::" inside counts two, one in front counts one */
    {"1:2:3:4:5:6:7:8/64", 8},
    {"1:2:3:4:5:6:7:", 7},
    {"1:2:3:4:5:6:7:8:", 0},
    {"1:2:3:4:5:6:7:8:9", 0},
    {"1:2:3:4:5:6::/64", 8},
    {"1:2:3:4:5:6:7::/64", 0},
    {"1:2:3:4:5:6:7::", 7},
    {"1:2:3:4:5:6:7:8::", 7},
    {"1:2:3:4:5:6:7:8::/64", 0},
    {"1:2:3:4:5:6::7/64", 8},
    {"1:2:3:4:5:6:7::8", 0},
    {"::1:2:3:4:5:6:7/64", 8},
    {"::1:2:3:4:5:6:7:8/64", 0},
    /* eleven tokens: dotted octets count, a "::" counts once more */
    {"::ffff:1.2.3.4/128", 8},
    {"1:2:3:4:5:6:1.2.3.4/128", 8},
    {"1:2:3:4:5:6:7:1.2.3.4/128", 8},
    {"1:2:3:4:5:6:7:1.2.3.4.5/128", 0},
    {"1.2.3.4.5.6.7.8.9.a.b/1", 8},
    {"1.2.3.4.5.6.7.8.9.a.b.c/1", 0},
    {"1.2.3.4.5.6.7.8.9.a.b", 7},
    {"1.2.3.4.5.6.7.8.9.a.b.", 7},
    {"1.2.3.4.5.6.7.8.9.a.b./1", 0},
    {"1.2.3.4.5.6.7.8.9.a.b.c", 0},
    {"1.2.3.4.5.6.7.8.9.a::", 7},
    {"1.2.3.4.5.6.7.8.9.a.b::", 0},
    {"1.2.3.4.5.6.7.8.9.a::/1", 8},
    {"1.2.3.4.5.6.7.8.9.a.b::/1", 0},
    {"1.2.3.4.5.6.7.8.9::a/1", 8},
    {"1.2.3.4.5.6.7.8.9.a::b/1", 0},
    {"1.2.3.4.5.6.7.8.9.a:", 7},
    {"1.2.3.4.5.6.7.8.9.a.b:", 0},
    {"::1.2.3.4.5.6.7.8.9.a/1", 8},
    {"::1.2.3.4.5.6.7.8.9.a.b/1", 0},
};
INSTANTIATE_TEST_SUITE_P(listed, ipv6_prefix_word, testing::ValuesIn(ipv6_prefix_words));

/* --- against the models --- */

struct matcher {
    const char *name;
    int (*match)(const char *);
    int (*expected)(const std::string &);
    const char *alphabet; /* of short words, one character of each kind */
    size_t longest;
    std::vector<std::string> seeds;  /* to mutate */
    std::vector<std::string> pieces; /* to join */
};

void PrintTo(const matcher &m, std::ostream *out)
{
    *out << m.name;
}

class against_model : public testing::TestWithParam<matcher>
{
  protected:
    void check(const std::string &word)
    {
        const int answer = GetParam().match(page.put(word));
        const int expected = GetParam().expected(word);
        if (answer != expected && ++differences <= 20)
            ADD_FAILURE() << "'" << word << "' is rated " << answer << ", expected " << expected;
        seen[answer == 8 ? 2 : answer == 7 ? 1 : 0]++;
    }
    void every_word(std::string &word, size_t length)
    {
        check(word);
        if (length == 0)
            return;
        for (const char *c = GetParam().alphabet; *c != '\0'; c++) {
            word.push_back(*c);
            every_word(word, length - 1);
            word.pop_back();
        }
    }
    mixtest::guarded_text page;
    int differences = 0;
    size_t seen[3] = {};
};

TEST_P(against_model, agrees_on_every_short_word)
{
    std::string word;
    every_word(word, GetParam().longest);
    EXPECT_GT(seen[0], 0u);
    EXPECT_GT(seen[1] + seen[2], 0u);
}

TEST_P(against_model, agrees_on_mutations_of_valid_words)
{
    const std::string alphabet = "01259afF:./% x";
    for (const std::string &seed : GetParam().seeds) {
        for (size_t at = 0; at <= seed.size(); at++) {
            check(seed.substr(0, at));
            check(seed.substr(at));
            for (const char c : alphabet) {
                std::string inserted = seed;
                inserted.insert(at, 1, c);
                check(inserted);
                if (at == seed.size())
                    continue;
                std::string replaced = seed;
                replaced[at] = c;
                check(replaced);
                for (size_t second = 0; second < seed.size(); second++) {
                    std::string twice = inserted;
                    twice.erase(second, 1);
                    check(twice);
                }
            }
            if (at < seed.size()) {
                std::string erased = seed;
                erased.erase(at, 1);
                check(erased);
            }
        }
    }
    EXPECT_GT(seen[0], 0u);
    EXPECT_GT(seen[2], 0u);
}

TEST_P(against_model, agrees_on_long_words_made_of_pieces)
{
    std::mt19937 random(20240917);
    const auto &pieces = GetParam().pieces;
    for (int round = 0; round < 200000; round++) {
        std::string word;
        for (unsigned left = random() % 26; left > 0; left--)
            word += pieces[random() % pieces.size()];
        check(word);
    }
    EXPECT_GT(seen[0], 0u);
    EXPECT_GT(seen[1] + seen[2], 0u);
}

const matcher matchers[] = {
    {"ipv4",
     ipv4_match,
     model::ipv4_match,
     "0125.a",
     7,
     {"1.2.3.4", "255.255.255.255", "0.0.0.0", "10.20.30.40"},
     {"0", "1", "25", "255", "256", ".", ".", "10."}},
    {"ipv4_prefix",
     ipv4_prefix_match,
     model::ipv4_prefix_match,
     "023./a",
     7,
     {"1.2.3.4/8", "255.255.255.255/32", "0.0.0.0/0", "/10.20.30.40/24", "1/2.3.4.5/6"},
     {"0", "1", "25", "255", "256", ".", ".", "10.", "/", "33"}},
    {"ipv6",
     ipv6_match,
     model::ipv6_match,
     "1:./",
     9,
     {"2001:db8::1", "1:2:3:4:5:6:7:8", "::", "::ffff:1.2", "1:2:3:4:5:6::", "fe80::1%2", "::1:2:3:4:5:6:7"},
     {"1", "ab", "1234", "1:", "2:", ":", "::", ".", "12345", "%"}},
    {"ipv6_prefix",
     ipv6_prefix_match,
     model::ipv6_prefix_match,
     "1:./",
     9,
     {"2001:db8::/32", "1:2:3:4:5:6:7:8/128", "::/0", "::ffff:1.2.3.4/96", "1:2:3:4:5:6::/64", "::1/128",
      "1:2:3:4:5:6:7:1.2.3.4/1"},
     {"1", "ab", "1234", "1:", "2:", ":", "::", ".", "3.", "12345", "%", "/64"}},
};
INSTANTIATE_TEST_SUITE_P(matchers, against_model, testing::ValuesIn(matchers),
                         [](const auto &test) { return std::string(test.param.name); });

/* --- ranges --- */

struct ranged {
    const char *range;
    const char *word;
    int answer;
};

void PrintTo(const ranged &r, std::ostream *out)
{
    *out << r.range << " " << (r.word != nullptr ? r.word : "NULL");
}

class range : public testing::TestWithParam<ranged>
{
};

TEST_P(range, holds_the_word_or_not)
{
    mixtest::guarded_text range_page;
    mixtest::guarded_text word_page;
    const auto &[text, word, answer] = GetParam();
    EXPECT_EQ(range_match(range_page.put(text), word != nullptr ? word_page.put(word) : nullptr), answer);
}

const ranged ranges[] = {
    {"<1-4094>", "1", 1},
    {"<1-4094>", "4094", 1},
    {"<1-4094>", "77", 1},
    {"<1-4094>", "0", 0},
    {"<1-4094>", "4095", 0},
    {"<1-4094>", "12a", 0},
    {"<1-4094>", "a", 0},
    {"<1-4094>", "", 0},
    {"<1-4094>", nullptr, 1},
    {"<0-5>", "", 1},
    {"<1-4094>", "1 ", 0},
    {"<1-4094>", " 7", 1},
    {"<1-4094>", "+7", 1},
    {"<1-4094>", "0007", 1},
    {"<1-4094>", "0x7", 0},
    {"<1-4094>", "-", 0},
    {"<1-4094>", " ", 0},
    {"<5-5>", "5", 1},
    {"<5-5>", "4", 0},
    {"<6-5>", "5", 0},
    {"<6-5>", "6", 0},
    /* a negative number is a very large one */
    {"<1-4294967295>", "-1", 0},
    {"<0-4294967295>", "4294967295", 1},
    {"<0-4294967295>", "4294967296", 0},
    /* the first character is skipped unchecked; text behind the ">" is not looked at */
    {"(1-9>", "5", 1},
    {"91-9>", "5", 1},
    {"<1-9>junk", "5", 1},
    /* no lower bound, no upper bound, not a number */
    {"<19>", "5", 0},
    {"<1-9", "5", 0},
    {"<", "5", 0},
    {"", "5", 0},
    {"", "", 0},
    {"<1x-9>", "5", 0},
    {"<1-9x>", "5", 0},
    {"<1-2-9>", "2", 0},
    {"<->", "0", 1},
    {"<->", "1", 0},
    {"<-9>", "3", 1},
    {"<1->", "0", 0},
    {"-1-9>", "5", 1},
    {"--9>", "5", 1},
    /* ten characters are read, eleven are not */
    {"<0000000001-9>", "5", 1},
    {"<00000000001-9>", "5", 0},
    {"<1-0000000009>", "5", 1},
    {"<1-00000000009>", "5", 0},
    {"<1-9999999999>", "9999999999", 1},
    {"<1-9999999999>", "10000000000", 0},
    {"<1-9999999999>", "18446744073709551616", 0},
};
INSTANTIATE_TEST_SUITE_P(listed, range, testing::ValuesIn(ranges));

TEST(range, without_a_text_holds_nothing_but_an_absent_word)
{
    EXPECT_EQ(range_match(nullptr, "5"), 0);
    EXPECT_EQ(range_match(nullptr, nullptr), 1);
}

} // namespace
