#include "catalogue_test.h"

using namespace catalogue;

namespace
{

const std::string exactly_95(95, 'n'), of_96(96, 'n'), of_200(200, 'n');
const std::string exactly_63(63, 't'), of_64(64, 't');

using adding = seeded;

TEST_F(adding, a_predefined_application_fills_the_entry_of_its_type)
{
    EXPECT_EQ(app_ext_table_add("Alpha", "阿尔法", 0, 15870), 15870);
    EXPECT_EQ(entry_bytes(15870), join({{0, 1},
                                        le16(15870),
                                        repeat(0, 12),
                                        {'A', 'L', 'P', 'H'},
                                        {0xe9, 0x98, 0xbf, 0xe5},
                                        text_field("Alpha", 96),
                                        text_field("阿尔法", 96),
                                        repeat(0, 64 + 4 * 96)}));
    EXPECT_EQ(count(), 25u);
    EXPECT_EQ(predefined_count(), 25u);
}

TEST_F(adding, a_user_defined_application_takes_the_highest_free_slot)
{
    EXPECT_EQ(app_ext_table_add("Own", "own", 65535, 4711), 16382);
    EXPECT_EQ(entry_bytes(16382), join({{0, 1},
                                        le16(4711),
                                        repeat(0, 12),
                                        {'O', 'W', 'N', 0},
                                        {'O', 'W', 'N', 0},
                                        text_field("Own", 96),
                                        text_field("own", 96),
                                        repeat(0, 64 + 4 * 96)}))
        << "the stored type is the caller's, not the index";
    EXPECT_EQ(count(), 25u);
    EXPECT_EQ(predefined_count(), 24u);
    EXPECT_EQ(app_ext_table_add("Next", "next", 65535, 1), 16381);
    EXPECT_EQ(app_ext_table_del(16382, 65535), 0);
    EXPECT_EQ(app_ext_table_add("Again", "again", 65535, 1), 16382);
}

TEST_F(adding, a_user_defined_application_ignores_the_range_of_the_type)
{
    EXPECT_EQ(app_ext_table_add("Own", "own", 65535, 65535), 16382);
    EXPECT_EQ(app_ext_table_add("Own", "own", 65535, 2), 16381);
}

TEST_F(adding, the_513th_user_defined_application_fails)
{
    for (int i = 0; i < 512; i++)
        ASSERT_EQ(app_ext_table_add("Own", "own", 65535, 1), 16382 - i);
    const bytes before(base(), base() + segment_size);
    EXPECT_EQ(app_ext_table_add("Own", "own", 65535, 1), 0);
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
    EXPECT_EQ(count(), 24u + 512u);
}

TEST_F(adding, a_predefined_type_that_is_there_fails_and_changes_nothing)
{
    const bytes before(base(), base() + segment_size);
    EXPECT_EQ(app_ext_table_add("Other name", "x", 0, 70), 0);
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

TEST_F(adding, a_predefined_type_of_the_user_defined_range_fails)
{
    const bytes before(base(), base() + segment_size);
    EXPECT_EQ(app_ext_table_add("n", "c", 0, 15871), 0);
    EXPECT_EQ(app_ext_table_add("n", "c", 1, 16383), 0);
    EXPECT_EQ(app_ext_table_add("n", "c", 0, 65535), 0);
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

TEST_F(adding, any_kind_but_65535_is_predefined)
{
    int type = 1000;
    for (int kind : {0, 1, 2, -1, 65534, 65536}) {
        EXPECT_EQ(app_ext_table_add("n", "c", kind, static_cast<uint16_t>(type)), type) << kind;
        type++;
    }
    EXPECT_EQ(predefined_count(), 30u);
}

TEST_F(adding, goes_on_while_the_count_is_16381_and_ends_above)
{
    *cur_app_num = 16381;
    EXPECT_EQ(app_ext_table_add("n", "c", 65535, 1), 16382);
    EXPECT_EQ(count(), 16382u);
    EXPECT_EQ(app_ext_table_add("n", "c", 65535, 1), 0);
    EXPECT_EQ(app_ext_table_add("n", "c", 0, 5), 0);
    EXPECT_EQ(count(), 16382u);
    EXPECT_EQ(predefined_count(), 24u);
}

TEST_F(adding, type_0_gives_0_although_it_is_added)
{
    app_ext_table_del(0, 0);
    EXPECT_EQ(app_ext_table_add("Zero", "Zero", 0, 0), 0);
    EXPECT_STREQ(tq_app_type2name(0), "Zero");
    EXPECT_EQ(count(), 24u);
    EXPECT_EQ(predefined_count(), 24u);
}

TEST_F(adding, names_are_cut_to_95_bytes)
{
    app_ext_table_add(exactly_95.c_str(), of_96.c_str(), 0, 5);
    EXPECT_STREQ(tq_app_type2name(5), exactly_95.c_str());
    EXPECT_STREQ(tq_app_type2name_cn(5), exactly_95.c_str());
    EXPECT_EQ(entry(5)[24 + 95], 0);
    EXPECT_EQ(entry(5)[120 + 95], 0);
    EXPECT_EQ(entry(5)[216], 0) << "past the field";
    app_ext_table_add(of_200.c_str(), of_200.c_str(), 65535, 5);
    EXPECT_STREQ(tq_app_type2name(16382), exactly_95.c_str());
    EXPECT_STREQ(tq_app_type2name_cn(16382), exactly_95.c_str());
}

struct keyed {
    const char *name;
    uint32_t key;
};

struct name_key : seeded, testing::WithParamInterface<keyed> {
};

TEST_P(name_key, is_the_first_four_bytes_in_upper_case)
{
    app_ext_table_add(GetParam().name, "x", 0, 5);
    app_ext_table_add("x", GetParam().name, 0, 6);
    EXPECT_EQ(word(5 * entry_size + 16), GetParam().key);
    EXPECT_EQ(word(5 * entry_size + 20), 0x58u);
    EXPECT_EQ(word(6 * entry_size + 16), 0x58u);
    EXPECT_EQ(word(6 * entry_size + 20), GetParam().key);
}

INSTANTIATE_TEST_SUITE_P(of_names, name_key,
                         testing::Values(keyed{"", 0}, keyed{"a", 0x41}, keyed{"Zz", 0x5a5a},
                                         keyed{"abc", 0x434241}, keyed{"abcd", 0x44434241},
                                         keyed{"abcde", 0x44434241}, keyed{"[`{~", 0x7e7b605b},
                                         keyed{"\x80\xe4\xfe\xff", 0xfffee480}, keyed{"1-9\n", 0x0a392d31}));

TEST_F(adding, keeps_the_other_fields_of_the_slot)
{
    app_ext_table_add("Old", "Old", 65535, 1);
    app_ext_table_add_element(16382, 1, 2, 3, "sub", "subcn", "cat", "catcn", "tech");
    app_ext_table_del(16382, 65535);
    const bytes before = entry_bytes(16382);
    app_ext_table_add("New", "New", 65535, 2);
    const bytes after = entry_bytes(16382);
    EXPECT_EQ(bytes(after.begin() + 4, after.begin() + 16), bytes(before.begin() + 4, before.begin() + 16));
    EXPECT_EQ(bytes(after.begin() + 216, after.end()), bytes(before.begin() + 216, before.end()));
    EXPECT_STREQ(tq_app_type2category(16382), "cat");
}

using adding_elements = seeded;

TEST_F(adding_elements, fills_every_field_of_the_entry)
{
    const bytes before = entry_bytes(70);
    EXPECT_EQ(
        app_ext_table_add_element(70, 0x01020304, 0x05060708, 0x090a0b0c, "sub", "子类", "cat", "类", "tech"),
        0);
    EXPECT_EQ(
        entry_bytes(70),
        join({bytes(before.begin(), before.begin() + 4), le32(0x01020304), le32(0x05060708), le32(0x090a0b0c),
              bytes(before.begin() + 16, before.begin() + 216), text_field("tech", 64), text_field("cat", 96),
              text_field("类", 96), text_field("sub", 96), text_field("子类", 96)}));
}

TEST_F(adding_elements, keeps_texts_that_are_null_or_empty_and_stores_the_numbers_all_the_same)
{
    app_ext_table_add_element(70, 1, 2, 3, "sub", "subcn", "cat", "catcn", "tech");
    const bytes texts(entry(70) + 216, entry(71));
    EXPECT_EQ(app_ext_table_add_element(70, 0, 9, 0, nullptr, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(bytes(entry(70) + 216, entry(71)), texts);
    EXPECT_EQ(app_ext_table_add_element(70, 7, 0, 8, "", "", "", "", ""), 0);
    EXPECT_EQ(bytes(entry(70) + 216, entry(71)), texts);
    EXPECT_EQ(bytes(entry(70) + 4, entry(70) + 16), join({le32(7), le32(0), le32(8)}));
}

TEST_F(adding_elements, cuts_technology_to_63_bytes_and_the_others_to_95)
{
    app_ext_table_add_element(70, 0, 0, 0, of_96.c_str(), of_96.c_str(), of_96.c_str(), of_96.c_str(),
                              of_64.c_str());
    EXPECT_EQ(bytes(entry(70) + 216, entry(71)),
              join({text_field(exactly_63, 64), text_field(exactly_95, 96), text_field(exactly_95, 96),
                    text_field(exactly_95, 96), text_field(exactly_95, 96)}));
}

TEST_F(adding_elements, takes_texts_that_just_fit)
{
    app_ext_table_add_element(70, 0, 0, 0, exactly_95.c_str(), exactly_95.c_str(), exactly_95.c_str(),
                              exactly_95.c_str(), exactly_63.c_str());
    EXPECT_STREQ(tq_app_type2technology(70), exactly_63.c_str());
    EXPECT_STREQ(tq_app_type2category(70), exactly_95.c_str());
    EXPECT_STREQ(tq_app_type2category_cn(70), exactly_95.c_str());
    EXPECT_STREQ(tq_app_type2subcategory(70), exactly_95.c_str());
    EXPECT_STREQ(tq_app_type2subcategory_cn(70), exactly_95.c_str());
}

TEST_F(adding_elements, works_on_entry_0_and_on_the_last)
{
    EXPECT_EQ(app_ext_table_add_element(0, 5, 0, 0, "", "", "", "", ""), 0);
    EXPECT_EQ(word(4), 5u);
    app_ext_table_add("n", "c", 65535, 1);
    EXPECT_EQ(app_ext_table_add_element(16382, 6, 0, 0, "", "", "", "", ""), 0);
    EXPECT_EQ(word(16382 * entry_size + 4), 6u);
}

TEST_F(adding_elements, fails_for_entries_that_are_free_or_not_there)
{
    const bytes before(base(), base() + segment_size);
    for (uint16_t index : {1, 71, 15871, 16382, 16383, 16384, 65535})
        EXPECT_EQ(app_ext_table_add_element(index, 1, 2, 3, "a", "b", "c", "d", "e"), -1) << index;
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

using deleting = seeded;

TEST_F(deleting, clears_the_flag_and_counts_down)
{
    bytes expected = entry_bytes(70);
    expected[1] = 0;
    EXPECT_EQ(app_ext_table_del(70, 0), 0);
    EXPECT_EQ(entry_bytes(70), expected);
    EXPECT_EQ(count(), 23u);
    EXPECT_EQ(predefined_count(), 23u);
    EXPECT_STREQ(tq_app_type2name(70), "");
    EXPECT_EQ(tq_app_name2type("FTP-DATA"), 0u);
}

TEST_F(deleting, a_user_defined_entry_leaves_the_predefined_count)
{
    app_ext_table_add("n", "c", 65535, 1);
    EXPECT_EQ(app_ext_table_del(16382, 65535), 0);
    EXPECT_EQ(count(), 24u);
    EXPECT_EQ(predefined_count(), 24u);
}

TEST_F(deleting, a_free_entry_counts_the_predefined_down_all_the_same)
{
    EXPECT_EQ(app_ext_table_del(71, 0), 0);
    EXPECT_EQ(count(), 24u);
    EXPECT_EQ(predefined_count(), 23u);
    EXPECT_EQ(app_ext_table_del(16383, 1), 0);
    EXPECT_EQ(app_ext_table_del(65535, -1), 0);
    EXPECT_EQ(count(), 24u);
    EXPECT_EQ(predefined_count(), 21u);
}

TEST_F(deleting, goes_by_the_callers_kind_alone)
{
    EXPECT_EQ(app_ext_table_del(70, 65535), 0);
    EXPECT_EQ(count(), 23u);
    EXPECT_EQ(predefined_count(), 24u);
    EXPECT_EQ(app_ext_table_del(70, 65535), 0);
    EXPECT_EQ(count(), 23u);
    EXPECT_EQ(predefined_count(), 24u);
}

struct modifying : seeded {
    void SetUp() override
    {
        seeded::SetUp();
        if (IsSkipped())
            return;
        for (int i = 0; i < 512; i++)
            app_ext_table_add("Own", "own", 65535, 1);
        app_ext_table_del(16000, 65535);
        app_ext_table_add("Predefined", "p", 0, 15870);
    }
    static void all(int type)
    {
        tq_app_modify_category(type, "cat", "catcn", "sub", "subcn");
        tq_app_modify_technology(type, "tech");
        tq_app_modify_app_property_and_risk(type, 11, 12);
    }
};

TEST_F(modifying, changes_user_defined_entries_at_both_ends_of_the_range)
{
    for (uint32_t type : {15871u, 16382u}) {
        const bytes before = entry_bytes(type);
        all(static_cast<int>(type));
        EXPECT_EQ(entry_bytes(type),
                  join({bytes(before.begin(), before.begin() + 4), le32(11), le32(12),
                        bytes(before.begin() + 12, before.begin() + 216), text_field("tech", 64),
                        text_field("cat", 96), text_field("catcn", 96), text_field("sub", 96),
                        text_field("subcn", 96)}));
    }
}

TEST_F(modifying, leaves_every_other_entry)
{
    const bytes before(base(), base() + segment_size);
    for (int type : {-1, 0, 2, 70, 15870, 16000, 16383, 16384, 65535, 65535 + 16384, -2147483647 - 1})
        all(type);
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

TEST_F(modifying, needs_every_text)
{
    const bytes before(base(), base() + segment_size);
    tq_app_modify_category(16382, nullptr, "b", "c", "d");
    tq_app_modify_category(16382, "a", nullptr, "c", "d");
    tq_app_modify_category(16382, "a", "b", nullptr, "d");
    tq_app_modify_category(16382, "a", "b", "c", nullptr);
    tq_app_modify_technology(16382, nullptr);
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

TEST_F(modifying, takes_empty_texts)
{
    all(16382);
    tq_app_modify_category(16382, "", "", "", "");
    tq_app_modify_technology(16382, "");
    EXPECT_STREQ(tq_app_type2category(16382), "APP_USERDEFINED_CATEGORY");
    EXPECT_STREQ(tq_app_type2technology(16382), "");
}

TEST_F(modifying, cuts_technology_to_63_bytes_and_the_others_to_95)
{
    tq_app_modify_category(16382, of_96.c_str(), of_200.c_str(), of_96.c_str(), exactly_95.c_str());
    tq_app_modify_technology(16382, of_64.c_str());
    EXPECT_EQ(bytes(entry(16382) + 216, entry(16383)),
              join({text_field(exactly_63, 64), text_field(exactly_95, 96), text_field(exactly_95, 96),
                    text_field(exactly_95, 96), text_field(exactly_95, 96)}));
    EXPECT_EQ(pthread_rwlock_trywrlock(static_cast<pthread_rwlock_t *>(app_table_rwlock)), 0)
        << "the lock behind the last entry was overwritten";
    pthread_rwlock_unlock(static_cast<pthread_rwlock_t *>(app_table_rwlock));
}

using renaming = seeded;

TEST_F(renaming, changes_the_chinese_name_and_nothing_else)
{
    const bytes before = entry_bytes(70);
    EXPECT_EQ(tq_app_edit_cn_name(70, "文件传输"), 0);
    EXPECT_EQ(entry_bytes(70), join({bytes(before.begin(), before.begin() + 120), text_field("文件传输", 96),
                                     bytes(before.begin() + 216, before.end())}));
}

TEST_F(renaming, is_not_followed_by_the_lookup_by_chinese_name)
{
    tq_app_edit_cn_name(70, "文件传输");
    EXPECT_EQ(tq_app_name2type_cn("文件传输"), 0u);
    EXPECT_STREQ(tq_app_type2name_cn(70), "文件传输");
    EXPECT_EQ(tq_app_name2type_cn("FTP-DATA"), 0u);
    tq_app_edit_cn_name(70, "ftp-文件");
    EXPECT_EQ(tq_app_name2type_cn("FTP-文件"), 70u) << "the first four bytes are those of the key";
}

TEST_F(renaming, fails_without_a_name_or_for_entry_0)
{
    const bytes before(base(), base() + segment_size);
    EXPECT_EQ(tq_app_edit_cn_name(70, nullptr), -1);
    EXPECT_EQ(tq_app_edit_cn_name(70, ""), -1);
    EXPECT_EQ(tq_app_edit_cn_name(0, "x"), -1);
    EXPECT_EQ(tq_app_edit_cn_name(71, ""), -1) << "the name is looked at first";
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

TEST_F(renaming, fails_for_entries_that_are_free_or_not_there)
{
    const bytes before(base(), base() + segment_size);
    for (uint16_t index : {1, 71, 16382, 16383, 65535})
        EXPECT_EQ(tq_app_edit_cn_name(index, "x"), -2) << index;
    EXPECT_EQ(bytes(base(), base() + segment_size), before);
}

TEST_F(renaming, cuts_the_name_to_95_bytes)
{
    tq_app_edit_cn_name(70, of_96.c_str());
    EXPECT_STREQ(tq_app_type2name_cn(70), exactly_95.c_str());
    EXPECT_EQ(entry(70)[216], 0);
}

} // namespace
