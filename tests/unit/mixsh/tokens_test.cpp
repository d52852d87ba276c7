#include "appliance/mixsh/tokens.h"

#include <gtest/gtest.h>

namespace
{

using namespace mixsh;

std::vector<std::string> texts(std::string_view line)
{
    std::vector<std::string> all;
    for (const auto &one : split_words(line).tokens)
        all.push_back(one.text);
    return all;
}

struct cut {
    const char *line;
    std::vector<std::string> words;
};
class words_of_a_line : public testing::TestWithParam<cut>
{
};
TEST_P(words_of_a_line, are_cut)
{
    EXPECT_EQ(texts(GetParam().line), GetParam().words);
}
INSTANTIATE_TEST_SUITE_P(lines, words_of_a_line,
                         testing::Values(cut{"", {}}, cut{" \t ", {}}, cut{"show arp", {"show", "arp"}},
                                         cut{"  show\t arp  ", {"show", "arp"}},
                                         cut{"a 'b c' d", {"a", "b c", "d"}},
                                         cut{"a \"b c\" d", {"a", "b c", "d"}}, cut{"a ''", {"a", ""}},
                                         cut{"pre'fix x'ed", {"prefix xed"}},
                                         cut{"\"say \\\"hi\\\" \\\\ \\n\"", {"say \"hi\" \\ \\n"}},
                                         cut{"'no \\escape'", {"no \\escape"}},
                                         cut{"one\\ word", {"one word"}}, cut{"a\\\"b", {"a\"b"}},
                                         cut{"a#b c!d", {"a#b", "c!d"}},
                                         cut{"\xe4\xb8\xad x", {"\xe4\xb8\xad", "x"}}));

TEST(tokens, know_where_they_stand)
{
    const auto line = split_words("  ab  'c d'e");
    ASSERT_EQ(line.tokens.size(), 2u);
    EXPECT_EQ(line.tokens[0].begin, 2u);
    EXPECT_EQ(line.tokens[0].end, 4u);
    EXPECT_EQ(line.tokens[1].begin, 6u);
    EXPECT_EQ(line.tokens[1].end, 12u);
    EXPECT_EQ(line.tokens[1].place(0), 7u) << "behind the quote";
    EXPECT_EQ(line.tokens[1].place(3), 11u);
    EXPECT_EQ(line.tokens[1].place(4), 12u) << "past the text: its end";
}

TEST(tokens, quoted_and_escaped_words_are_values)
{
    const auto line = split_words("a 'a' \"a\" \\a");
    ASSERT_EQ(line.tokens.size(), 4u);
    EXPECT_FALSE(line.tokens[0].quoted);
    for (int i = 1; i < 4; ++i)
        EXPECT_TRUE(line.tokens[i].quoted) << i;
}

TEST(tokens, lines_that_begin_with_a_mark_are_comments)
{
    EXPECT_TRUE(split_words("# show").comment);
    EXPECT_TRUE(split_words("  ! show").comment);
    EXPECT_FALSE(split_words("show # x").comment);
    EXPECT_TRUE(split_words("# show").tokens.empty());
}

TEST(tokens, open_quotes_and_last_backslashes_are_told_with_their_place)
{
    for (const auto &[text, at] : std::initializer_list<std::pair<const char *, std::size_t>>{
             {"a 'bc", 2}, {"a \"b\\\"", 2}, {"a b\\", 3}, {"\"a\\", 0}}) {
        const auto line = split_words(text);
        EXPECT_TRUE(line.open) << text;
        EXPECT_EQ(line.open_at, at) << text;
    }
    EXPECT_FALSE(split_words("a 'bc'").open);
}

TEST(tokens, the_last_word_is_touched_unless_a_blank_follows)
{
    EXPECT_TRUE(split_words("show").touches_last);
    EXPECT_FALSE(split_words("show ").touches_last);
    EXPECT_TRUE(split_words("'show ").touches_last);
    EXPECT_FALSE(split_words("").touches_last);
}

TEST(tokens, quoting_a_word_gives_it_back)
{
    for (const std::string word :
         {"plain", "two words", "", "a\"b", "back\\slash", "what?", "#x", "it's", "tab\tbed"}) {
        const auto line = split_words(quoted_for_line(word));
        ASSERT_EQ(line.tokens.size(), 1u) << word;
        EXPECT_EQ(line.tokens[0].text, word);
        EXPECT_FALSE(line.open);
    }
    EXPECT_EQ(quoted_for_line("plain"), "plain");
}

} // namespace
