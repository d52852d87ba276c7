#include "appliance/mixsh/parser.h"
#include "toy_table.h"

#include <gtest/gtest.h>

namespace
{

using namespace mixsh;

reading read(std::string_view line)
{
    return read_line(toy::families, line, split_words(line));
}

// "show port: PORT=3 verbose=verbose", or the verdict, the place and the sentence.
std::string told(std::string_view line)
{
    const auto result = read(line);
    if (!result.runs)
        return std::string(result.why.is == verdict::wrong ? "wrong" : "incomplete") + " at " +
               std::to_string(result.why.at) + ": " + result.why.text;
    std::string text(result.which->words);
    for (const auto &word : result.words)
        text += " " + std::string(word.to->name) + "=" + word.text;
    return text;
}

struct example {
    const char *line;
    const char *told;
};
class a_line : public testing::TestWithParam<example>
{
};
TEST_P(a_line, is_read)
{
    EXPECT_EQ(told(GetParam().line), GetParam().told) << GetParam().line;
}

INSTANTIATE_TEST_SUITE_P(
    that_runs, a_line,
    testing::Values(example{"show port 3", "show port PORT=3"},
                    example{"show port summary", "show port summary"},
                    example{"sh po 3", "incomplete at 5: \"po\" may mean more than one word"},
                    example{"sh por 3", "show port PORT=3"}, example{"sh por su", "show port summary"},
                    example{"show port 3 vlan 7 verbose", "show port PORT=3 vlan=7 verbose=verbose"},
                    example{"show port verbose vlan 7 3", "show port verbose=verbose vlan=7 PORT=3"},
                    example{"show port 3 v 7", "incomplete at 13: \"v\" may mean more than one word"},
                    example{"show port 3 vl 7 ve", "show port PORT=3 vlan=7 verbose=verbose"},
                    example{"show port 3 colour gree", "show port PORT=3 colour=green"},
                    example{"show port 0x10", "show port PORT=0x10"},
                    example{"add name bob colour red", "add name NAME=bob colour=red"},
                    example{"add name 'colour' colour red", "add name NAME=colour colour=red"},
                    example{"add name col colour red", "add name NAME=col colour=red"},
                    example{"add name bob note 'a b' colour red", "add name NAME=bob note=a b colour=red"},
                    example{"set colours red 1 2 3", "set colours COLOUR=red PORT=1 PORT=2 PORT=3"},
                    example{"eat", "eat"}, example{"eat banana", "eat FRUIT=banana"},
                    example{"eat bare", "eat bare=bare"}, example{"eat ba", "eat bare=bare"}));

INSTANTIATE_TEST_SUITE_P(
    that_is_incomplete, a_line,
    testing::Values(example{"show", "incomplete at 5: the command is not complete"},
                    example{"show ", "incomplete at 5: the command is not complete"},
                    example{"show port", "incomplete at 10: PORT is missing"},
                    example{"show port 3 vlan", "incomplete at 17: vlan needs a value"},
                    example{"add name bob", "incomplete at 13: colour red|green|grey is missing"},
                    example{"set colours red", "incomplete at 16: PORT is missing"},
                    example{"show port 3 colour gr", "incomplete at 21: \"gr\" may mean more than one word"},
                    example{"eat bana", "incomplete at 8: \"bana\" is not complete: expected a fruit"},
                    example{"show 'port", "incomplete at 5: the quote is not closed"},
                    example{"show port\\", "incomplete at 9: nothing follows the backslash"}));

INSTANTIATE_TEST_SUITE_P(
    that_is_wrong, a_line,
    testing::Values(
        example{"shaw port", "wrong at 2: \"shaw\" is not a word that may stand here"},
        example{"show portx", "wrong at 9: \"portx\" is not a word that may stand here"},
        example{"show port 53", "wrong at 11: \"53\" is wrong: expected a number from 1 to 52"},
        example{"show port 1a", "wrong at 11: \"1a\" is wrong: expected a number from 1 to 52"},
        example{"show port summary 3", "wrong at 18: nothing may follow here, but \"3\" does"},
        example{"show port 3 vlan 4095", "wrong at 20: \"4095\" is wrong: expected a number from 1 to 4094"},
        example{"show port 3 verbose verbose", "wrong at 21: \"verbose\" is not a word that may stand here"},
        example{"show port 3 4", "wrong at 12: \"4\" is not a word that may stand here"},
        example{"show port 3 colour blue", "wrong at 19: \"blue\" is not a word that may stand here"},
        example{"'show' port 3", "wrong at 1: \"show\" is not a word that may stand here"},
        example{"add name verylongname colour red",
                "wrong at 17: \"verylongname\" is wrong: at most 8 bytes fit"},
        example{"eat \"bax\"", "wrong at 7: \"bax\" is wrong: expected a fruit"}));

TEST(complaint, names_what_may_stand_there)
{
    const auto result = read("show port 3 colour blue");
    ASSERT_EQ(result.why.instead.size(), 3u);
    EXPECT_EQ(result.why.instead[0].text, "red");
    EXPECT_EQ(result.why.instead[2].text, "grey");
}

// --- completion

std::vector<std::string> offered(std::string_view line)
{
    std::vector<std::string> words;
    for (const auto &one : complete(toy::families, line).candidates)
        words.push_back(one.word);
    return words;
}

struct offer {
    const char *line;
    std::vector<std::string> words;
};
class completion_of : public testing::TestWithParam<offer>
{
};
TEST_P(completion_of, offers_what_may_stand_there)
{
    EXPECT_EQ(offered(GetParam().line), GetParam().words) << GetParam().line;
}
INSTANTIATE_TEST_SUITE_P(
    lines, completion_of,
    testing::Values(offer{"", {"show", "add", "set", "eat"}}, offer{"s", {"show", "set"}},
                    offer{"show ", {"port", "policy"}}, offer{"show por", {"port"}},
                    offer{"show port ", {"summary", "vlan", "colour", "verbose"}},
                    offer{"show port 3 v", {"vlan", "verbose"}}, offer{"show port 3 vlan ", {}},
                    offer{"show port 3 verbose ", {"vlan", "colour"}},
                    offer{"show port 3 colour gr", {"green", "grey"}}, offer{"eat b", {"banana", "bare"}},
                    offer{"eat tw", {"two words"}}, offer{"shaw ", {}}, offer{"eat banana", {"banana"}}));

TEST(completion, tells_where_the_word_begins)
{
    const auto at = complete(toy::families, "show  po");
    EXPECT_TRUE(at.readable);
    EXPECT_EQ(at.replaces, 6u);
    EXPECT_EQ(at.beginning, "po");
}

TEST(completion, of_an_unreadable_line_says_why)
{
    const auto at = complete(toy::families, "shaw port ");
    EXPECT_FALSE(at.readable);
    EXPECT_EQ(at.why.at, 2u);
}

TEST(completion, says_when_the_line_may_end)
{
    EXPECT_EQ(complete(toy::families, "show port ").here.ends, nullptr);
    const auto at = complete(toy::families, "show port 3 ");
    ASSERT_NE(at.here.ends, nullptr);
    EXPECT_EQ(at.here.ends->words, "show port");
}

// Whatever is offered for a beginning can be typed there: the line that it makes is never wrong.
TEST(completion, never_offers_what_would_be_wrong)
{
    for (const std::string line :
         {"", "s", "show ", "show port ", "show port 3 ", "add name x ", "set colours ", "eat "})
        for (const auto &one : complete(toy::families, line).candidates) {
            if (one.word == "two words")
                continue; // the toy kind offers it, but does not take it
            const auto typed = line.substr(0, complete(toy::families, line).replaces) + one.word;
            EXPECT_NE(told(typed).substr(0, 5), "wrong") << typed;
        }
}

// --- the tables

TEST(usage_text, shows_every_argument)
{
    EXPECT_EQ(usage(toy::commands[0]), "show port PORT [vlan <1-4094>] [colour red|green|grey] [verbose]");
    EXPECT_EQ(usage(toy::commands[3]), "add name NAME colour red|green|grey [note NOTE]");
    EXPECT_EQ(usage(toy::commands[4]), "set colours red|green|grey PORT...");
    EXPECT_EQ(usage(toy::commands[5]), "eat [FRUIT] [bare]");
}

TEST(tables, of_the_shell_have_no_mistakes)
{
    EXPECT_EQ(check_tables(all_families()), std::vector<std::string>{});
    EXPECT_EQ(check_tables(toy::families), std::vector<std::string>{});
}

TEST(tables, mistakes_are_found)
{
    static constexpr argument twice[] = {flag("x", "help"), flag("x", "help")};
    static constexpr argument order[] = {optional_value("A", kinds::word, "help"),
                                         value("B", kinds::word, "help")};
    static constexpr argument silent[] = {flag("x", "")};
    static constexpr argument empty[] = {value("A", kinds::number, "help", {.low = 2, .high = 1})};
    static constexpr command bad[] = {
        {"a", "help", toy::nothing, twice},  {"a", "help", toy::nothing}, {"b", "help", toy::nothing, order},
        {"c", "help", toy::nothing, silent}, {"d", "", toy::nothing},     {"e", "help", toy::nothing, empty},
    };
    const family families[] = {{"bad", "bad", bad}};
    EXPECT_EQ(check_tables(families),
              (std::vector<std::string>{
                  "a: x is declared twice", "a: stands in the tables twice", "b: B can never be reached",
                  "c: x has no help", "d: has no words, no help or no function", "e: A has an empty range"}));
}

// Random lines of words and garbage: reading ends, and points into the line or right behind it.
TEST(reading_lines, never_points_outside)
{
    const char *pieces[] = {"show",   "port", "3", " ",        " ",  "'",   "\"", "\\",
                            "colour", "gr",   "x", "\xe4\xb8", "0x", "eat", "b",  "#"};
    unsigned seed = 1;
    for (int round = 0; round < 20000; ++round) {
        std::string line;
        for (int i = 0; i < 8; ++i) {
            seed = seed * 1664525u + 1013904223u;
            line += pieces[seed >> 28];
        }
        const auto split = split_words(line);
        const auto result = read_line(toy::families, line, split);
        if (!result.runs) {
            EXPECT_LE(result.why.at, line.size() + 1) << line;
        }
        EXPECT_LE(complete(toy::families, line).replaces, line.size()) << line;
    }
}

} // namespace
