#include "appliance/mixsh/output.h"

#include <clocale>
#include <cstdlib>
#include <gtest/gtest.h>

namespace
{

using namespace mixsh;

// What is written to a stream in memory.
class page
{
  public:
    page() : stream_(open_memstream(&text_, &size_)) { std::setlocale(LC_CTYPE, "C.UTF-8"); }
    ~page()
    {
        std::fclose(stream_);
        std::free(text_);
    }
    std::FILE *stream() { return stream_; }
    std::string text()
    {
        std::fflush(stream_);
        return std::string(text_, size_);
    }

  private:
    char *text_ = nullptr;
    std::size_t size_ = 0;
    std::FILE *stream_;
};

constexpr column columns[] = {{"Name", "name"}, {"Count", "count"}, {"Description", "description", true}};

TEST(a_table, lines_up_text_on_the_left_and_numbers_on_the_right)
{
    page to;
    output out(to.stream(), form::columns, 0);
    {
        table rows(out, columns);
        rows.row({"a", 7, "first"});
        rows.row({"longer", 1234567, nullptr});
        rows.row({"", 0, true});
        rows.row({"", 0, std::vector<std::string>{"x", "y"}});
        rows.row({"", 0, std::vector<std::string>()});
    }
    EXPECT_EQ(to.text(), "Name      Count  Description\n"
                         "a             7  first\n"
                         "longer  1234567  -\n"
                         "-             0  yes\n"
                         "-             0  x,y\n"
                         "-             0  -\n");
}

TEST(a_table, counts_wide_characters_as_two_columns)
{
    page to;
    output out(to.stream(), form::columns, 0);
    {
        table rows(out, columns);
        rows.row({"微信", 1, "x"});
        rows.row({"abc", 2, "y"});
    }
    EXPECT_EQ(to.text(), "Name  Count  Description\n微信      1  x\nabc       2  y\n");
}

TEST(a_table, is_cut_to_a_terminal_only_where_it_may_be)
{
    page to;
    output out(to.stream(), form::columns, 30);
    {
        table rows(out, columns);
        rows.row({"name-of-it", 1, "a description that is long"});
    }
    EXPECT_EQ(to.text(), "Name        Count  Description\nname-of-it      1  a descript…\n");
}

TEST(a_table, shows_its_first_rows_before_the_last_ones_come)
{
    page to;
    output out(to.stream(), form::columns, 0);
    table rows(out, columns);
    for (int i = 0; i < 39; ++i)
        rows.row({"a", i, "x"});
    EXPECT_EQ(to.text(), "");
    rows.row({"a", 39, "x"});
    EXPECT_NE(to.text().find("39"), std::string::npos);
    rows.row({"wider than the first ones", 40, "x"});
    EXPECT_NE(to.text().find("wider than the first ones     40  x\n"), std::string::npos);
    EXPECT_EQ(rows.rows(), 41u);
}

TEST(a_table, without_rows_prints_nothing)
{
    page to;
    output out(to.stream(), form::columns, 0);
    {
        table rows(out, columns);
    }
    EXPECT_EQ(to.text(), "");
}

TEST(a_table, can_keep_columns_for_programs)
{
    static constexpr column two[] = {{.title = "A", .key = "a", .programs_only = true}, {"B", "b"}};
    page people;
    page programs;
    output shown(people.stream(), form::columns, 0);
    output json(programs.stream(), form::json, 0);
    {
        table(shown, two).row({1, "x"});
        table(json, two).row({1, "x"});
    }
    EXPECT_EQ(people.text(), "B\nx\n");
    EXPECT_EQ(programs.text(), "{\"a\": 1, \"b\": \"x\"}\n");
}

TEST(a_table, asks_for_no_more_rows_once_interrupted)
{
    page to;
    output out(to.stream(), form::columns, 0);
    table rows(out, columns);
    EXPECT_TRUE(rows.row({"a", 1, "x"}));
    set_interrupted(true);
    EXPECT_FALSE(rows.row({"a", 2, "x"}));
    set_interrupted(false);
}

TEST(json_rows, keep_the_types_of_their_values)
{
    page to;
    output out(to.stream(), form::json, 0);
    {
        table rows(out, columns);
        rows.row({"a \"b\" \\ \n\t\x01", std::uint64_t{18446744073709551615u}, false});
        rows.row({nullptr, -5, cell(1.5, 1)});
        rows.row({"", unless_zero(0), std::vector<std::string>{"a", "b,\n"}});
        rows.row({std::string(), unless_zero(7u), std::vector<std::string>()});
    }
    EXPECT_EQ(to.text(), "{\"name\": \"a \\\"b\\\" \\\\ \\n\\t\\u0001\", \"count\": 18446744073709551615, "
                         "\"description\": false}\n"
                         "{\"name\": null, \"count\": -5, \"description\": 1.5}\n"
                         "{\"name\": null, \"count\": null, \"description\": [\"a\", \"b,\\n\"]}\n"
                         "{\"name\": null, \"count\": 7, \"description\": []}\n");
}

TEST(json_text, is_utf8_whatever_comes)
{
    EXPECT_EQ(json_string("微信"), "\"微信\"");
    EXPECT_EQ(json_string("a\xff\xc0z"), "\"a\xef\xbf\xbd\xef\xbf\xbdz\"");
    EXPECT_EQ(json_string("\xed\xa0\x80"), "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\"") << "a surrogate";
    EXPECT_EQ(json_string(std::string_view("a\0b", 3)), "\"a\\u0000b\"");
}

TEST(a_record, lines_up_its_titles)
{
    page to;
    output out(to.stream(), form::columns, 0);
    out.record({{"Limit", "limit", 64}, {"Reassembly time", "seconds", 30}, {"微信", "x", "y"}});
    EXPECT_EQ(to.text(), "Limit            64\nReassembly time  30\n微信             y\n");
}

TEST(a_record, is_an_object_for_programs)
{
    page to;
    output out(to.stream(), form::json, 0);
    out.record({{"Limit", "limit", 64}, {"None", "none", nullptr}});
    out.note("for people");
    EXPECT_EQ(to.text(), "{\"limit\": 64, \"none\": null}\n");
}

TEST(text_for_a_terminal, can_not_move_its_cursor)
{
    EXPECT_EQ(printable("a\x1b[2Jb\r\n\x7f"), "a\\x1b[2Jb\\x0d\\x0a\\x7f");
    EXPECT_EQ(printable("\xc2\x9b"
                        "31m"),
              "\\xc2\\x9b31m")
        << "the one-byte CSI of ISO 6429";
    EXPECT_EQ(printable("a\xe2\x80\xae"
                        "b"),
              "a\\xe2\\x80\\xaeb")
        << "right-to-left override";
    EXPECT_EQ(printable("\xff"), "\\xff");
    EXPECT_EQ(printable("微信 é"), "微信 é");
}

TEST(cutting, never_halves_a_character)
{
    page locale;
    EXPECT_EQ(cut_to("abcdef", 6), "abcdef");
    EXPECT_EQ(cut_to("abcdefg", 6), "abcde…");
    EXPECT_EQ(cut_to("微信微信", 6), "微信… ");
    EXPECT_EQ(display_width(cut_to("微信微信", 6)), 6u);
    EXPECT_EQ(cut_to("abc", 0), "");
}

TEST(an_output, tells_when_it_can_not_be_written)
{
    std::FILE *full = std::fopen("/dev/full", "w");
    ASSERT_NE(full, nullptr);
    output out(full, form::columns, 0);
    out.note("x");
    EXPECT_FALSE(out.flush());
    EXPECT_TRUE(out.unwanted());
    std::fclose(full);
}

} // namespace
