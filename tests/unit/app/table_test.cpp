#include "catalogue_test.h"

using namespace catalogue;

namespace
{

struct predefined {
    uint32_t type;
    const char *name;
    uint32_t key; /* first four bytes, upper case, first lowest */
};

constexpr predefined rows[] = {
    {0, "Other", 0x4548544f},          {2, "UDP-ANY", 0x2d504455},        {3, "TCP-ANY", 0x2d504354},
    {9, "TFTP", 0x50544654},           {14, "NBNAME", 0x414e424e},        {27, "H.245", 0x34322e48},
    {30, "H323-Media", 0x33323348},    {32, "SCCP", 0x50434353},          {35, "GTPCv1", 0x43505447},
    {36, "GTPUv1", 0x55505447},        {37, "GTPv0", 0x56505447},         {39, "OSPF", 0x4650534f},
    {40, "SCTP", 0x50544353},          {61, "SOQ", 0x00514f53},           {65, "Jabber", 0x4242414a},
    {70, "FTP-DATA", 0x2d505446},      {106, "REXEC", 0x45584552},        {123, "DB2", 0x00324244},
    {125, "ORACLE", 0x4341524f},       {126, "SUNRPC-CALL", 0x524e5553},  {875, "SIP MEDIA", 0x20504953},
    {5115, "ONVIF-PROBE", 0x49564e4f}, {5116, "DAHUA-PROBE", 0x55484144}, {6102, "FTPS-DATA", 0x53505446},
};

struct predefined_row : seeded, testing::WithParamInterface<size_t> {
    const predefined &row() const { return rows[GetParam()]; }
};

TEST_P(predefined_row, stands_in_the_table_in_this_order)
{
    const app_table_row &one = tq_app_table[GetParam()];
    EXPECT_EQ(one.type, static_cast<int32_t>(row().type));
    EXPECT_EQ(bytes(one.name, one.name + 96), text_field(row().name, 96));
    EXPECT_EQ(bytes(one.name_cn, one.name_cn + 96), text_field(row().name, 96));
}

TEST_P(predefined_row, is_seeded_with_every_byte_in_its_place)
{
    const bytes expected = join({{0, 1},
                                 le16(row().type),
                                 le32(0),
                                 le32(0),
                                 le32(0),
                                 le32(row().key),
                                 le32(row().key),
                                 text_field(row().name, 96),
                                 text_field(row().name, 96),
                                 repeat(0, 64 + 4 * 96)});
    ASSERT_EQ(expected.size(), 664u);
    EXPECT_EQ(entry_bytes(row().type), expected);
}

TEST_P(predefined_row, is_found_by_its_type_and_by_its_names)
{
    EXPECT_STREQ(tq_app_type2name(row().type), row().name);
    EXPECT_STREQ(tq_app_type2name_cn(row().type), row().name);
    EXPECT_EQ(tq_app_name2type(row().name), row().type);
    EXPECT_EQ(tq_app_name2type_cn(row().name), row().type);
}

INSTANTIATE_TEST_SUITE_P(all, predefined_row, testing::Range(size_t{0}, std::size(rows)),
                         [](const auto &one) { return "type_" + std::to_string(rows[one.param].type); });

TEST(predefined_rows, are_24)
{
    EXPECT_EQ(tq_get_app_table_member_num(), 24);
    EXPECT_EQ(std::size(rows), 24u);
    EXPECT_EQ(sizeof tq_app_table, 24u * 196u);
}

using creating = seeded;

TEST_F(creating, counts_the_predefined_rows)
{
    EXPECT_EQ(count(), 24u);
    EXPECT_EQ(predefined_count(), 24u);
    EXPECT_EQ(word(counters_at + 8), 0u);
}

TEST_F(creating, leaves_all_other_entries_zero)
{
    for (const predefined &row : rows)
        std::memset(entry(row.type), 0, entry_size);
    EXPECT_EQ(bytes(base(), base() + lock_at), repeat(0, lock_at));
}

TEST_F(creating, again_clears_every_entry_and_counts_anew)
{
    const bytes fresh(base(), base() + segment_size);
    std::memset(base(), 0x55, lock_at);
    *cur_app_num = 1000;
    *cur_predef_app_num = 2000;
    EXPECT_EQ(tq_app_table_create(), 0);
    EXPECT_EQ(bytes(base(), base() + segment_size), fresh);
}

using resetting = seeded;

TEST_F(resetting, drops_predefined_entries_and_adds_the_rows)
{
    app_ext_table_add("First", "First", 0, 1);
    app_ext_table_add("Last", "Last", 0, 15870);
    app_ext_table_del(2, 0);
    EXPECT_EQ(tq_app_table_reset(), 0);
    EXPECT_STREQ(tq_app_type2name(1), "");
    EXPECT_STREQ(tq_app_type2name(15870), "");
    for (const predefined &row : rows)
        EXPECT_STREQ(tq_app_type2name(row.type), row.name);
    EXPECT_EQ(count(), 24u);
    EXPECT_EQ(predefined_count(), 24u);
}

TEST_F(resetting, keeps_user_defined_entries_and_their_count)
{
    for (int i = 0; i < 512; i++)
        ASSERT_EQ(app_ext_table_add("Mine", "Mine", 65535, 9), 16382 - i);
    app_ext_table_del(16000, 65535);
    const bytes before(entry(15871), entry(16383));
    *cur_app_num = 7; /* wrong on purpose: the entries are counted, the counter is not believed */
    EXPECT_EQ(tq_app_table_reset(), 0);
    EXPECT_EQ(bytes(entry(15871), entry(16383)), before);
    EXPECT_EQ(count(), 24u + 511u);
    EXPECT_EQ(predefined_count(), 24u);
}

TEST_F(resetting, clears_nothing_of_a_dropped_entry_but_its_flag)
{
    app_ext_table_add("Dropped", "Fallen", 0, 5);
    app_ext_table_add_element(5, 1, 2, 3, "sub", "subcn", "cat", "catcn", "tech");
    bytes expected = entry_bytes(5);
    expected[1] = 0;
    tq_app_table_reset();
    EXPECT_EQ(entry_bytes(5), expected);
}

TEST_F(resetting, keeps_the_attributes_of_the_predefined_rows)
{
    app_ext_table_add_element(70, 1, 2, 3, "sub", "subcn", "cat", "catcn", "tech");
    tq_app_table_reset();
    EXPECT_STREQ(tq_app_type2category(70), "cat");
    EXPECT_EQ(tq_apptype2risk(70), 2u);
}

} // namespace
