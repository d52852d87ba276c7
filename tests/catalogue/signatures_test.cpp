/* The signature file: what is accepted, what is complained of, and the file that is installed. */
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <sstream>

#include <libmix/app_table.h>

#include "appliance/mixd/signatures.h"

using mixd::read_signatures;
using mixd::signature;
using mixd::signature_list;

namespace
{

signature_list read(const std::string &text)
{
    std::istringstream from(text);
    return read_signatures(from, "list.csv");
}

const std::string header =
    "type,name,name_cn,category,category_cn,subcategory,subcategory_cn,technology,risk,"
    "flags,property\n";

TEST(signature_file, a_line_has_every_field)
{
    const signature_list list = read(header + "1000,HTTP,超文本,Web,网页,Protocol,协议,browser,3,1,0x1f\n");
    EXPECT_TRUE(list.complaints.empty());
    ASSERT_EQ(list.rows.size(), 1u);
    const signature &row = list.rows[0];
    EXPECT_EQ(row.type, 1000);
    EXPECT_EQ(row.name, "HTTP");
    EXPECT_EQ(row.name_cn, "超文本");
    EXPECT_EQ(row.category, "Web");
    EXPECT_EQ(row.category_cn, "网页");
    EXPECT_EQ(row.subcategory, "Protocol");
    EXPECT_EQ(row.subcategory_cn, "协议");
    EXPECT_EQ(row.technology, "browser");
    EXPECT_EQ(row.risk, 3u);
    EXPECT_EQ(row.flags, 1u);
    EXPECT_EQ(row.property, 31u);
}

TEST(signature_file, columns_come_in_any_order_and_may_be_left_out)
{
    const signature_list list = read("name,risk,type\nA,2,1\n");
    ASSERT_EQ(list.rows.size(), 1u);
    EXPECT_EQ(list.rows[0].type, 1);
    EXPECT_EQ(list.rows[0].risk, 2u);
    EXPECT_EQ(list.rows[0].name_cn, "A") << "the name serves for both";
    EXPECT_EQ(list.rows[0].category, "");
}

TEST(signature_file, comments_empty_lines_carriage_returns_and_a_byte_order_mark_are_passed_over)
{
    const signature_list list = read("\xEF\xBB\xBF# a comment\r\n\r\ntype,name\r\n# another\r\n\r\n1,A\r\n");
    EXPECT_TRUE(list.complaints.empty());
    ASSERT_EQ(list.rows.size(), 1u);
    EXPECT_EQ(list.rows[0].name, "A");
}

TEST(signature_file, fields_may_be_quoted)
{
    const signature_list list = read("type,name\n1,\"A, \"\"B\"\"\"\n\"5\",\"\"\"\"\n");
    EXPECT_TRUE(list.complaints.empty());
    ASSERT_EQ(list.rows.size(), 2u);
    EXPECT_EQ(list.rows[0].name, "A, \"B\"");
    EXPECT_EQ(list.rows[1].name, "\"");
}

TEST(signature_file, the_last_line_needs_no_end)
{
    EXPECT_EQ(read("type,name\n1,A").rows.size(), 1u);
}

TEST(signature_file, types_and_texts_at_their_limits)
{
    const signature_list list =
        read("type,name,technology\n15870," + std::string(95, 'n') + "," + std::string(63, 't') + "\n1,B,\n");
    EXPECT_TRUE(list.complaints.empty());
    EXPECT_EQ(list.rows.size(), 2u);
}

struct wrong {
    const char *what;
    std::string line;
    std::string complaint;
};

struct wrong_line : testing::TestWithParam<wrong> {
};

TEST_P(wrong_line, is_skipped_and_complained_of_by_file_and_line)
{
    const signature_list list =
        read("type,name,technology,risk\n1,First,,\n" + GetParam().line + "\n5,Last,,\n");
    EXPECT_EQ(list.complaints, (std::vector<std::string>{"list.csv:3: " + GetParam().complaint}));
    ASSERT_EQ(list.rows.size(), 2u);
    EXPECT_EQ(list.rows[0].name, "First");
    EXPECT_EQ(list.rows[1].name, "Last");
}

INSTANTIATE_TEST_SUITE_P(
    all, wrong_line,
    testing::Values(wrong{"too_few_fields", "4,A,", "has 3 fields, not 4"},
                    wrong{"too_many_fields", "4,A,,,", "has 5 fields, not 4"},
                    wrong{"type_not_a_number", "four,A,,", "type \"four\" is not a number"},
                    wrong{"type_missing", ",A,,", "type \"\" is not a number"},
                    wrong{"type_with_a_rest", "4x,A,,", "type \"4x\" is not a number"},
                    wrong{"type_negative", "-4,A,,", "type \"-4\" is not a number"},
                    wrong{"type_above_the_predefined", "15871,A,,", "type 15871 is above 15870"},
                    wrong{"type_far_above", "99999999999,A,,", "type 99999999999 is above 15870"},
                    wrong{"type_twice", "1,A,,", "type 1 stands in line 2 already"},
                    wrong{"type_of_a_row_of_libmix", "70,A,,", "type 70 is \"FTP-DATA\" always"},
                    wrong{"name_empty", "4,,,", "name is empty"},
                    wrong{"name_too_long", "4," + std::string(96, 'n') + ",,", "name has 96 bytes, 95 fit"},
                    wrong{"name_twice", "4,FIRST,,", "\"FIRST\" is the name of type 1"},
                    wrong{"name_of_a_row_of_libmix", "4,ftp-data,,", "\"ftp-data\" is the name of type 70"},
                    wrong{"technology_too_long", "4,A," + std::string(64, 't') + ",",
                          "technology has 64 bytes, 63 fit"},
                    wrong{"risk_too_large", "4,A,,4294967296", "risk 4294967296 is above 4294967295"},
                    wrong{"risk_not_a_number", "4,A,,high", "risk \"high\" is not a number"},
                    wrong{"bare_hexadecimal_prefix", "4,A,,0x", "risk \"0x\" is not a number"},
                    wrong{"quote_not_closed", "4,\"A,,", "a quote is not closed"},
                    wrong{"text_after_a_quote", "4,\"A\"B,,", "something follows a closing quote"},
                    wrong{"control_character", "4,A\tB,,", "name has a control character at byte 2"},
                    wrong{"stray_continuation", "4,A\x80,,", "name is not UTF-8 at byte 2"},
                    wrong{"cut_sequence", "4,A\xe4\xb8,,", "name is not UTF-8 at byte 2"},
                    wrong{"overlong_sequence", "4,\xc0\x80,,", "name is not UTF-8 at byte 1"},
                    wrong{"surrogate", "4,\xed\xa0\x80,,", "name is not UTF-8 at byte 1"},
                    wrong{"beyond_unicode", "4,\xf4\x90\x80\x80,,", "name is not UTF-8 at byte 1"}),
    [](const auto &one) { return one.param.what; });

TEST(signature_file, a_row_of_libmix_may_be_described)
{
    const signature_list list = read("type,name,risk\n70,FTP-DATA,3\n");
    EXPECT_TRUE(list.complaints.empty());
    EXPECT_EQ(list.rows.size(), 1u);
}

TEST(signature_file, a_skipped_line_claims_neither_type_nor_name)
{
    const signature_list list = read("type,name,risk\n4,A,bad\n4,A,1\n");
    EXPECT_EQ(list.complaints.size(), 1u);
    EXPECT_EQ(list.rows.size(), 1u);
}

void expect_refused(const std::string &text, const std::string &why)
{
    try {
        read(text);
        FAIL() << "accepted";
    } catch (const std::runtime_error &refused) {
        EXPECT_EQ(refused.what(), why);
    }
}

TEST(signature_file, without_a_proper_header_is_refused)
{
    expect_refused("", "list.csv: names no columns");
    expect_refused("# only\n", "list.csv: names no columns");
    expect_refused("name,risk\n", "list.csv:1: column type is missing");
    expect_refused("type,risk\n", "list.csv:1: column name is missing");
    expect_refused("#\ntype,name,colour\n", "list.csv:2: \"colour\" is not a column");
    expect_refused("type,name,type\n", "list.csv:1: column type stands twice");
    expect_refused("1000,HTTP\n", "list.csv:1: \"1000\" is not a column");
}

TEST(signature_file, that_is_not_there_is_refused)
{
    try {
        read_signatures(std::string("/nowhere/list.csv"));
        FAIL() << "accepted";
    } catch (const std::runtime_error &refused) {
        EXPECT_EQ(refused.what(), std::string("/nowhere/list.csv: No such file or directory"));
    }
}

TEST(installed_signature_file, is_read_without_a_complaint_and_knows_hundreds)
{
    const signature_list list = read_signatures(std::string(SIGNATURE_FILE));
    EXPECT_EQ(list.complaints, std::vector<std::string>{});
    EXPECT_GE(list.rows.size(), 300u);
}

TEST(installed_signature_file, describes_every_application_in_both_languages)
{
    std::map<std::string, std::string> categories;
    for (const signature &row : read_signatures(std::string(SIGNATURE_FILE)).rows) {
        for (const std::string &text : {row.name, row.name_cn, row.category, row.category_cn, row.subcategory,
                                        row.subcategory_cn, row.technology})
            EXPECT_FALSE(text.empty()) << row.name;
        EXPECT_GE(row.risk, 1u) << row.name;
        EXPECT_LE(row.risk, 5u) << row.name;
        EXPECT_LE(row.flags, 1u) << row.name;
        EXPECT_EQ(categories.emplace(row.category, row.category_cn).first->second, row.category_cn);
    }
}

TEST(installed_signature_file, describes_every_row_of_libmix)
{
    std::set<int> types;
    for (const signature &row : read_signatures(std::string(SIGNATURE_FILE)).rows)
        types.insert(row.type);
    for (const app_table_row &row : tq_app_table)
        EXPECT_TRUE(types.contains(row.type)) << row.name;
}

} // namespace
