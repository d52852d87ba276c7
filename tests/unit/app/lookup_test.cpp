#include "catalogue_test.h"

using namespace catalogue;

namespace
{

struct looking_up : seeded {
    void SetUp() override
    {
        seeded::SetUp();
        if (IsSkipped())
            return;
        describe(app_ext_table_add("First", "第一", 0, 1));
        describe(app_ext_table_add("Last", "末", 0, 15870));
        app_ext_table_add_element(0, 21, 22, 23, "sub", "subcn", "cat", "catcn", "tech");
        describe(app_ext_table_add("Own", "自己", 65535, 3));
        app_ext_table_add("Bare", "空", 65535, 4); /* 16381: no attributes */
        for (int i = 0; i < 510; i++)
            app_ext_table_add("Filler", "Filler", 65535, 5);
        app_ext_table_del(16000, 65535); /* a free one that has been used */
    }
    static void describe(int index)
    {
        app_ext_table_add_element(static_cast<uint16_t>(index), 21, 22, 23, "sub", "subcn", "cat", "catcn",
                                  "tech");
    }
};

TEST_F(looking_up, names)
{
    EXPECT_STREQ(tq_app_type2name(0), "Other");
    EXPECT_STREQ(tq_app_type2name_cn(0), "Other");
    EXPECT_STREQ(tq_app_type2name(1), "First");
    EXPECT_STREQ(tq_app_type2name_cn(1), "第一");
    EXPECT_STREQ(tq_app_type2name(15870), "Last");
    EXPECT_STREQ(tq_app_type2name(16382), "Own");
    EXPECT_STREQ(tq_app_type2name_cn(16382), "自己");
}

TEST_F(looking_up, the_name_of_the_pseudo_type)
{
    EXPECT_STREQ(tq_app_type2name(65535), "user-defined");
    EXPECT_STREQ(tq_app_type2name_cn(65535), "\xE7\x94\xA8\xE6\x88\xB7\xE8\x87\xAA\xE5\xAE\x9A\xE4\xB9\x89");
}

TEST_F(looking_up, names_of_types_that_are_free_or_out_of_range)
{
    for (uint32_t type :
         {4u, 71u, 16000u, 16383u, 16384u, 65534u, 65536u, 65536u + 2u, 0x80000000u, 0xffffffffu}) {
        EXPECT_STREQ(tq_app_type2name(type), "") << type;
        EXPECT_STREQ(tq_app_type2name_cn(type), "") << type;
    }
}

TEST_F(looking_up, attributes_at_both_ends_of_both_ranges)
{
    for (uint32_t type : {1u, 15870u, 16382u}) {
        EXPECT_STREQ(tq_app_type2category(type), "cat") << type;
        EXPECT_STREQ(tq_app_type2category_cn(type), "catcn") << type;
        EXPECT_STREQ(tq_app_type2subcategory(type), "sub") << type;
        EXPECT_STREQ(tq_app_type2subcategory_cn(type), "subcn") << type;
        EXPECT_STREQ(tq_app_type2technology(static_cast<int>(type)), "tech") << type;
        EXPECT_EQ(tq_apptype2property(static_cast<int>(type)), 21u) << type;
        EXPECT_EQ(tq_apptype2risk(static_cast<int>(type)), 22u) << type;
        EXPECT_EQ(tq_apptype2shadow_it(static_cast<int>(type)), 1) << type;
    }
}

TEST_F(looking_up, attributes_of_types_that_are_free_or_out_of_range_and_of_type_0)
{
    for (uint32_t type : {0u, 4u, 71u, 16000u, 16383u, 65535u, 65536u + 1u, 0x80000000u, 0xffffffffu}) {
        EXPECT_STREQ(tq_app_type2category(type), "") << type;
        EXPECT_STREQ(tq_app_type2category_cn(type), "") << type;
        EXPECT_STREQ(tq_app_type2subcategory(type), "") << type;
        EXPECT_STREQ(tq_app_type2subcategory_cn(type), "") << type;
        EXPECT_STREQ(tq_app_type2technology(static_cast<int>(type)), "") << type;
        EXPECT_EQ(tq_apptype2property(static_cast<int>(type)), 0u) << type;
        EXPECT_EQ(tq_apptype2risk(static_cast<int>(type)), 0u) << type;
        EXPECT_EQ(tq_apptype2shadow_it(static_cast<int>(type)), 0) << type;
    }
}

TEST_F(looking_up, empty_categories_of_a_user_defined_application_have_stand_ins)
{
    constexpr char user_defined[] = "\xE7\x94\xA8\xE6\x88\xB7\xE8\x87\xAA\xE5\xAE\x9A\xE4\xB9\x89";
    for (uint32_t type : {16381u, 15871u}) {
        EXPECT_STREQ(tq_app_type2category(type), "APP_USERDEFINED_CATEGORY");
        EXPECT_STREQ(tq_app_type2category_cn(type), user_defined);
        EXPECT_STREQ(tq_app_type2subcategory(type), "APP_USERDEFINED_SUBCATEGORY");
        EXPECT_STREQ(tq_app_type2subcategory_cn(type), user_defined);
        EXPECT_STREQ(tq_app_type2technology(static_cast<int>(type)), "");
    }
}

TEST_F(looking_up, empty_categories_of_a_predefined_application_stay_empty)
{
    app_ext_table_del(15870, 0);
    std::memset(entry(15870), 0, entry_size);
    app_ext_table_add("Edge", "Edge", 0, 15870);
    for (uint32_t type : {70u, 15870u}) {
        EXPECT_STREQ(tq_app_type2category(type), "");
        EXPECT_STREQ(tq_app_type2category_cn(type), "");
        EXPECT_STREQ(tq_app_type2subcategory(type), "");
        EXPECT_STREQ(tq_app_type2subcategory_cn(type), "");
    }
}

TEST_F(looking_up, shadow_it_is_the_lowest_flag_alone)
{
    app_ext_table_add_element(1, 0, 0, 0xfffffffe, "", "", "", "", "");
    EXPECT_EQ(tq_apptype2shadow_it(1), 0);
    app_ext_table_add_element(1, 0, 0, 0xffffffff, "", "", "", "", "");
    EXPECT_EQ(tq_apptype2shadow_it(1), 1);
}

TEST_F(looking_up, words_are_all_32_bits)
{
    app_ext_table_add_element(1, 0xfedcba98, 0x89abcdef, 0, "", "", "", "", "");
    EXPECT_EQ(tq_apptype2property(1), 0xfedcba98u);
    EXPECT_EQ(tq_apptype2risk(1), 0x89abcdefu);
}

TEST_F(looking_up, texts_lie_in_the_segment)
{
    EXPECT_EQ(static_cast<const void *>(tq_app_type2name(1)), entry(1) + 24);
    EXPECT_EQ(static_cast<const void *>(tq_app_type2category(1)), entry(1) + 280);
}

TEST_F(looking_up, one_member)
{
    EXPECT_EQ(static_cast<const void *>(tq_get_one_app_table_member(0)), entry(0));
    EXPECT_EQ(static_cast<const void *>(tq_get_one_app_table_member(16382)), entry(16382));
    EXPECT_EQ(tq_get_one_app_table_member(4), nullptr);
    EXPECT_EQ(tq_get_one_app_table_member(16000), nullptr);
    EXPECT_EQ(tq_get_one_app_table_member(16383), nullptr);
    EXPECT_EQ(tq_get_one_app_table_member(2147483647), nullptr);
}

TEST_F(looking_up, one_member_does_not_reject_a_negative_index)
{
    app_entry *whole = tq_app_ext_table;
    tq_app_ext_table = whole + 2; /* so that there is something before the start */
    EXPECT_EQ(tq_get_one_app_table_member(-1), whole + 1);
    tq_app_ext_table = whole;
}

TEST_F(looking_up, comparison_of_an_entry_with_a_name)
{
    EXPECT_EQ(app_hashtbl_cmp(entry(70), "FTP-DATA"), 1);
    EXPECT_EQ(app_hashtbl_cmp(entry(70), "ftp-Data"), 1);
    EXPECT_EQ(app_hashtbl_cmp(entry(70), "ftp-dat"), 0);
    EXPECT_EQ(app_hashtbl_cmp(entry(70), "ftp-data2"), 0);
    EXPECT_EQ(app_hashtbl_cmp(entry(70), ""), 0);
    app_ext_table_del(70, 0);
    EXPECT_EQ(app_hashtbl_cmp(entry(70), "FTP-DATA"), 0);
}

using looking_up_unattached = unattached;

TEST_F(looking_up_unattached, answers_empty_or_0_everywhere)
{
    for (uint32_t type : {0u, 1u, 16382u, 65535u}) {
        EXPECT_STREQ(tq_app_type2name(type), "");
        EXPECT_STREQ(tq_app_type2name_cn(type), "");
        EXPECT_STREQ(tq_app_type2category(type), "");
        EXPECT_STREQ(tq_app_type2category_cn(type), "");
        EXPECT_STREQ(tq_app_type2subcategory(type), "");
        EXPECT_STREQ(tq_app_type2subcategory_cn(type), "");
        EXPECT_STREQ(tq_app_type2technology(static_cast<int>(type)), "");
        EXPECT_EQ(tq_apptype2property(static_cast<int>(type)), 0u);
        EXPECT_EQ(tq_apptype2risk(static_cast<int>(type)), 0u);
        EXPECT_EQ(tq_apptype2shadow_it(static_cast<int>(type)), 0);
        EXPECT_EQ(tq_get_one_app_table_member(static_cast<int>(type)), nullptr);
    }
    EXPECT_EQ(tq_app_name2type("Other"), 0u);
    EXPECT_EQ(tq_app_name2type_cn("Other"), 0u);
    EXPECT_EQ(tq_app_userdefined_name2type("Other"), 0u);
    EXPECT_TRUE(platform().shared_memories.empty()) << "a lookup does not attach";
}

} // namespace
