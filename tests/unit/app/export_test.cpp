#include "catalogue_test.h"

using namespace catalogue;

namespace
{

bytes be16(uint32_t value)
{
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

bytes record(uint32_t type, bool predefined, const std::string &name, const std::string &name_cn)
{
    return join({{0, 0},
                 be16(type),
                 predefined ? bytes{0, 0, 2} : bytes{0xff, 0xff, 0},
                 repeat(0, 7),
                 text_field(name, 96),
                 repeat(0, 96),
                 text_field(name_cn, 96),
                 repeat(0, 384)});
}

struct exporting : seeded {
    uint32_t cursor = 0;
    int length = 0;

    bytes page(size_t size)
    {
        bytes out(size + 16, 0xA5);
        EXPECT_EQ(tq_get_all_app_to_x86(out.data(), static_cast<int>(size), &cursor, &length), 0);
        EXPECT_EQ(bytes(out.begin() + static_cast<ptrdiff_t>(size), out.end()), repeat(0xA5, 16));
        out.resize(size);
        return out;
    }
};

TEST_F(exporting, entry_0_as_any)
{
    EXPECT_EQ(page(686), record(0, true, "Any", "Any"));
    EXPECT_EQ(cursor, 1u);
    EXPECT_EQ(length, 686);
}

TEST_F(exporting, entry_0_as_type_0_whatever_it_says)
{
    entry(0)[2] = 0x34;
    EXPECT_EQ(page(686), record(0, true, "Any", "Any"));
}

TEST_F(exporting, a_predefined_entry_by_its_stored_type)
{
    cursor = 70;
    EXPECT_EQ(page(686), record(70, true, "FTP-DATA", "FTP-DATA"));
    EXPECT_EQ(cursor, 71u);
    entry(70)[2] = 0x34;
    entry(70)[3] = 0x12;
    cursor = 70;
    EXPECT_EQ(page(686), record(0x1234, true, "FTP-DATA", "FTP-DATA"));
}

TEST_F(exporting, the_last_predefined_and_the_user_defined_ones_by_their_index)
{
    app_ext_table_add("Edge", "边", 0, 15870);
    app_ext_table_add("Own", "自己", 65535, 0x1234);
    for (int i = 0; i < 511; i++)
        app_ext_table_add("Lowest", "低", 65535, 1);
    cursor = 15870;
    EXPECT_EQ(page(686), record(15870, true, "Edge", "边"));
    EXPECT_EQ(page(686), record(15871, false, "Lowest", "低"));
    cursor = 16382;
    EXPECT_EQ(page(686), record(16382, false, "Own", "自己"));
    EXPECT_EQ(cursor, 16383u);
}

TEST_F(exporting, names_of_full_length)
{
    const std::string longest(95, 'x');
    app_ext_table_add(longest.c_str(), std::string(95, 'y').c_str(), 0, 1);
    cursor = 1;
    EXPECT_EQ(page(686), record(1, true, longest, std::string(95, 'y')));
}

TEST_F(exporting, names_without_what_an_earlier_longer_name_left_behind)
{
    app_ext_table_add("A long name", "Another", 0, 1);
    app_ext_table_del(1, 0);
    app_ext_table_add("Short", "S", 0, 1);
    cursor = 1;
    EXPECT_EQ(page(686), record(1, true, "Short", "S"));
}

TEST_F(exporting, a_page_of_ten_ends_just_past_the_tenth_entry)
{
    const bytes first = page(10 * 686);
    EXPECT_EQ(cursor, 37u);
    EXPECT_EQ(length, 6860);
    EXPECT_EQ(bytes(first.begin() + 9 * 686, first.end()), record(36, true, "GTPUv1", "GTPUv1"));
    length = 0;
    page(10 * 686);
    EXPECT_EQ(cursor, 127u) << "just past the twentieth";
    EXPECT_EQ(length, 6860);
}

TEST_F(exporting, all_pages_are_the_whole_list)
{
    bytes all;
    while (cursor < 16383) {
        length = 0;
        const bytes one = page(7 * 686 + 300);
        all.insert(all.end(), one.begin(), one.begin() + length);
    }
    EXPECT_EQ(cursor, 16383u);
    bytes expected = record(0, true, "Any", "Any");
    for (int i = 1; i < 24; i++) {
        const app_table_row &row = tq_app_table[i];
        expected = join({expected, record(static_cast<uint32_t>(row.type), true, row.name, row.name)});
    }
    EXPECT_EQ(all, expected);
}

TEST_F(exporting, the_rest_of_a_page_is_zero)
{
    cursor = 5116;
    const bytes out = page(4 * 686 + 100);
    EXPECT_EQ(length, 2 * 686);
    EXPECT_EQ(cursor, 16383u);
    EXPECT_EQ(bytes(out.begin() + 2 * 686, out.end()), repeat(0, 2 * 686 + 100));
}

TEST_F(exporting, too_small_a_buffer_is_zeroed_and_the_cursor_stays)
{
    cursor = 5;
    length = 77;
    EXPECT_EQ(page(685), repeat(0, 685));
    EXPECT_EQ(cursor, 5u);
    EXPECT_EQ(length, 77);
    EXPECT_EQ(page(0), bytes());
    EXPECT_EQ(cursor, 5u);
}

TEST_F(exporting, a_negative_size_counts_as_0)
{
    bytes out(686, 0xA5);
    EXPECT_EQ(tq_get_all_app_to_x86(out.data(), -1, &cursor, &length), 0);
    EXPECT_EQ(tq_get_all_app_to_x86(out.data(), -2147483647 - 1, &cursor, &length), 0);
    EXPECT_EQ(out, repeat(0xA5, 686));
    EXPECT_EQ(cursor, 0u);
    EXPECT_EQ(length, 0);
}

TEST_F(exporting, past_the_end_zeroes_the_page_and_writes_nothing)
{
    for (uint32_t past : {16383u, 16384u, 0xffffffffu}) {
        cursor = past;
        EXPECT_EQ(page(2 * 686), repeat(0, 2 * 686));
        EXPECT_EQ(cursor, past);
        EXPECT_EQ(length, 0);
    }
}

TEST_F(exporting, the_length_grows_from_what_it_was)
{
    length = 1000;
    page(2 * 686);
    EXPECT_EQ(length, 1000 + 2 * 686);
}

/* What the library writes to standard output. */
std::string output_of(const std::function<void()> &call)
{
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

TEST_F(exporting, without_a_parameter_says_so_and_touches_nothing)
{
    bytes out(686, 0xA5);
    int result = 0;
    const std::string text = "tq_get_all_app_to_x86: parameter is NULL.\n";
    EXPECT_EQ(output_of([&] { result = tq_get_all_app_to_x86(nullptr, 686, &cursor, &length); }), text);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(output_of([&] { result = tq_get_all_app_to_x86(out.data(), 686, nullptr, &length); }), text);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(output_of([&] { result = tq_get_all_app_to_x86(out.data(), 686, &cursor, nullptr); }), text);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out, repeat(0xA5, 686));
    EXPECT_EQ(cursor, 0u);
    EXPECT_EQ(length, 0);
}

using exporting_unattached = unattached;

TEST_F(exporting_unattached, says_so_first_and_touches_nothing)
{
    bytes out(686, 0xA5);
    uint32_t cursor = 0;
    int length = 0, result = 0;
    const std::string text = "tq_get_all_app_to_x86: tq_app_ext_table is NULL.\n";
    EXPECT_EQ(output_of([&] { result = tq_get_all_app_to_x86(out.data(), 686, &cursor, &length); }), text);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(out, repeat(0xA5, 686));
    EXPECT_EQ(output_of([&] { result = tq_get_all_app_to_x86(nullptr, 686, nullptr, nullptr); }), text);
    EXPECT_EQ(result, -1);
}

} // namespace
