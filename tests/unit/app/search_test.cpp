#include "catalogue_test.h"

using namespace catalogue;

namespace
{

/* One of the three lookups by name, and how an entry gets the name that it goes by. */
struct lookup {
    const char *name;
    uint32_t (*find)(const char *);
    bool chinese;
    bool user_defined;
};

const lookup by_name = {"by_name", tq_app_name2type, false, false};
const lookup by_chinese_name = {
    "by_chinese_name", [](const char *name) -> uint32_t { return tq_app_name2type_cn(name); }, true, false};
const lookup by_user_defined_name = {"by_user_defined_name", tq_app_userdefined_name2type, false, true};

struct finding : seeded, testing::WithParamInterface<lookup> {
    static uint32_t find(const std::string &name) { return GetParam().find(name.c_str()); }
    /* Adds an entry that the lookup should find under the name; the other name is a decoy. */
    static uint32_t add(const std::string &name)
    {
        static uint16_t type = 200;
        const char *first = GetParam().chinese ? "Decoy" : name.c_str();
        const char *second = GetParam().chinese ? name.c_str() : "Decoy";
        return static_cast<uint32_t>(
            app_ext_table_add(first, second, GetParam().user_defined ? 65535 : 0, ++type));
    }
    /* Of a user-defined entry of a full table: two have the same four bytes in front, and so the same key. */
    static std::string name_of(uint32_t index)
    {
        return (std::to_string(index / 2) + "-" + std::to_string(index)).substr(1);
    }
    static void fill()
    {
        for (uint32_t index = 16382; index >= 15871; index--) {
            const std::string name = name_of(index);
            ASSERT_EQ(app_ext_table_add(name.c_str(), name.c_str(), 65535, 1), static_cast<int>(index));
        }
    }
    static uint8_t &lowest_byte_of_key(uint32_t index) { return entry(index)[GetParam().chinese ? 20 : 16]; }
    static void remove(uint32_t index)
    {
        app_ext_table_del(static_cast<uint16_t>(index), GetParam().user_defined ? 65535 : 0);
    }
};

TEST_P(finding, ignores_letter_case)
{
    const uint32_t index = add("MiXeD-Case");
    ASSERT_NE(index, 0u);
    for (const char *name : {"MiXeD-Case", "mixed-case", "MIXED-CASE", "mIxEd-cASE"})
        EXPECT_EQ(find(name), index) << name;
}

TEST_P(finding, needs_the_whole_name)
{
    add("Whole-Name");
    for (const char *name : {"Whole-Nam", "Whole-Name2", "Whol", "whole-nbme", " Whole-Name", "Decoy", "Who"})
        EXPECT_EQ(find(name), 0u) << name;
}

TEST_P(finding, short_names_and_the_empty_one)
{
    EXPECT_EQ(find(""), 0u);
    const uint32_t empty = add(""), one = add("a"), three = add("abc");
    EXPECT_EQ(find(""), empty);
    EXPECT_EQ(find("A"), one);
    EXPECT_EQ(find("ABC"), three);
    EXPECT_EQ(find("AB"), 0u);
}

/* Wherever an entry stands among those that are compared together, and behind entries of the same key. */
TEST_P(finding, finds_each_of_all_user_defined_entries)
{
    ASSERT_NO_FATAL_FAILURE(fill());
    for (uint32_t index = 16382; index >= 15871; index--)
        EXPECT_EQ(find(name_of(index)), index);
    EXPECT_EQ(find("000-0"), 0u);
}

TEST_P(finding, drops_a_star_at_the_end)
{
    const uint32_t index = add("Starred");
    EXPECT_EQ(find("starred*"), index);
    EXPECT_EQ(find("star*"), 0u) << "it is no pattern";
    EXPECT_EQ(find("starred**"), 0u) << "one star only";
    EXPECT_EQ(find("*starred"), 0u);
    EXPECT_EQ(find("star*red"), 0u);
}

TEST_P(finding, a_lone_star_is_the_empty_name)
{
    EXPECT_EQ(find("*"), 0u);
    const uint32_t index = add("");
    EXPECT_EQ(find("*"), index);
}

TEST_P(finding, a_name_that_ends_in_a_star_needs_a_second_one)
{
    const uint32_t index = add("Odd*");
    EXPECT_EQ(find("odd*"), 0u);
    EXPECT_EQ(find("odd**"), index);
}

TEST_P(finding, a_key_that_a_star_was_part_of_is_computed_without_it)
{
    const uint32_t index = add("ab");
    EXPECT_EQ(find("AB*"), index);
}

TEST_P(finding, a_star_as_96th_byte_ends_the_name)
{
    const std::string longest(95, 'q');
    const uint32_t index = add(longest);
    EXPECT_EQ(find(longest), index);
    EXPECT_EQ(find(longest + "*"), index);
    EXPECT_EQ(find(longest + "*and what follows"), index);
    EXPECT_EQ(find(longest + "q"), 0u) << "the stored name is shorter";
    EXPECT_EQ(find(longest + "qq*"), 0u) << "a star behind the 96th byte is not seen";
}

TEST_P(finding, a_truncated_name_goes_by_what_is_left_of_it)
{
    const uint32_t index = add(std::string(150, 'w'));
    EXPECT_EQ(find(std::string(95, 'W')), index);
    EXPECT_EQ(find(std::string(150, 'w')), 0u);
}

TEST_P(finding, bytes_above_127_by_their_value)
{
    const uint32_t index = add("微信视频");
    EXPECT_EQ(find("微信视频"), index);
    EXPECT_EQ(find("微信视频*"), index);
    EXPECT_EQ(find("微信"), 0u);
    const uint32_t last = add("\xff\xfe");
    EXPECT_EQ(find("\xff\xfe"), last);
}

TEST_P(finding, passes_over_entries_that_are_not_in_use)
{
    const uint32_t first = add("Twin"), second = add("Twin");
    EXPECT_EQ(find("twin"), first);
    remove(first);
    EXPECT_EQ(find("twin"), second);
    remove(second);
    EXPECT_EQ(find("twin"), 0u);
}

TEST_P(finding, passes_over_equal_keys_of_other_names)
{
    add("Same-a");
    add("Same-b");
    const uint32_t index = add("Same-c");
    EXPECT_EQ(find("same-c"), index);
}

TEST_P(finding, goes_by_the_key_before_the_name)
{
    const uint32_t index = add("Keyed");
    lowest_byte_of_key(index) ^= 1;
    EXPECT_EQ(find("keyed"), 0u);
}

TEST_P(finding, goes_by_the_key_wherever_an_entry_stands)
{
    ASSERT_NO_FATAL_FAILURE(fill());
    for (uint32_t index = 16382; index >= 15871; index--) {
        lowest_byte_of_key(index) ^= 0x80; /* of no name here */
        EXPECT_EQ(find(name_of(index)), 0u) << index;
        lowest_byte_of_key(index) ^= 0x80;
    }
}

TEST_P(finding, finds_the_last_entry_behind_others_of_its_key)
{
    ASSERT_NO_FATAL_FAILURE(fill());
    for (uint32_t index = 16382; index > 16374; index--) {
        std::memcpy(&lowest_byte_of_key(index), &lowest_byte_of_key(15871), 4);
        EXPECT_EQ(find(name_of(15871)), 15871u) << index;
    }
}

INSTANTIATE_TEST_SUITE_P(lookups, finding, testing::Values(by_name, by_chinese_name, by_user_defined_name),
                         [](const auto &one) { return one.param.name; });

/* However many entries of the same key have been passed when the last ones are looked at. */
TEST_F(seeded, a_lookup_of_user_defined_names_never_reaches_the_predefined_ones)
{
    ASSERT_EQ(app_ext_table_add("Same-name", "Decoy", 0, 15870), 15870);
    for (int i = 0; i < 9; i++) {
        EXPECT_EQ(tq_app_userdefined_name2type("Same-name"), 0u) << i;
        ASSERT_NE(app_ext_table_add(("Same-key" + std::to_string(i)).c_str(), "Decoy", 65535, 1), 0);
    }
}

using name2type = seeded;

TEST_F(name2type, finds_from_the_first_entry_to_the_last)
{
    EXPECT_EQ(tq_app_name2type("other"), 0u);
    EXPECT_EQ(app_ext_table_add("Own", "自", 65535, 1), 16382);
    EXPECT_EQ(tq_app_name2type("own"), 16382u);
    EXPECT_EQ(tq_app_name2type_cn("自"), 16382u);
    app_ext_table_add("Own", "自", 0, 1);
    EXPECT_EQ(tq_app_name2type("own"), 1u) << "the lowest index wins";
    EXPECT_EQ(tq_app_name2type_cn("自"), 1u);
}

TEST_F(name2type, knows_the_listed_examples)
{
    EXPECT_EQ(tq_app_name2type("ftp-data"), 70u);
    EXPECT_EQ(tq_app_name2type("FTP-DATA*"), 70u);
}

TEST_F(name2type, of_no_name_is_0)
{
    EXPECT_EQ(tq_app_name2type(nullptr), 0u);
    EXPECT_EQ(tq_app_name2type_cn(nullptr), 0u);
}

TEST_F(name2type, of_user_defined_applications_searches_its_range_from_above)
{
    EXPECT_EQ(tq_app_userdefined_name2type("FTP-DATA"), 0u);
    app_ext_table_add("Edge", "Edge", 0, 15870);
    EXPECT_EQ(tq_app_userdefined_name2type("Edge"), 0u);
    for (int i = 0; i < 512; i++)
        app_ext_table_add("Own", "own", 65535, 1);
    EXPECT_EQ(tq_app_userdefined_name2type("own"), 16382u);
    for (uint16_t index = 16382; index > 15871; index--)
        app_ext_table_del(index, 65535);
    EXPECT_EQ(tq_app_userdefined_name2type("own"), 15871u);
    app_ext_table_del(15871, 65535);
    EXPECT_EQ(tq_app_userdefined_name2type("own"), 0u);
}

} // namespace
