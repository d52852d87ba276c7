#include "catalogue_test.h"

#include <atomic>

using namespace catalogue;

namespace
{

using at_once = seeded;

TEST_F(at_once, two_processes_add_and_delete_and_the_counters_are_exact)
{
    constexpr int rounds = 3000;
    const auto churn = [](uint16_t first_type) {
        return [first_type] {
            for (int i = 0; i < rounds; i++) {
                const auto type = static_cast<uint16_t>(first_type + i % 500);
                const int own = app_ext_table_add("Churn", "Churn", 65535, 1);
                if (own < 15871 || app_ext_table_add("Churn", "Churn", 0, type) != type)
                    return false;
                app_ext_table_add_element(type, 1, 2, 3, "s", "s", "c", "c", "t");
                if (app_ext_table_del(static_cast<uint16_t>(own), 65535) != 0 ||
                    app_ext_table_del(type, 0) != 0)
                    return false;
            }
            return app_ext_table_add("Left", "Left", 65535, 1) != 0 &&
                   app_ext_table_add("Left", "Left", 0, first_type) == first_type;
        };
    };
    const pid_t one = beside(churn(1000)), two = beside(churn(2000));
    expect_held(one);
    expect_held(two);
    uint32_t in_use = 0, predefined = 0;
    for (uint32_t i = 0; i < entry_count; i++) {
        in_use += entry(i)[1];
        predefined += i < 15871 ? entry(i)[1] : 0;
    }
    EXPECT_EQ(count(), 28u);
    EXPECT_EQ(predefined_count(), 26u);
    EXPECT_EQ(in_use, 28u);
    EXPECT_EQ(predefined, 26u);
}

/* Maps the segment between pages that may not be touched, so that a step outside of it ends the process. */
void map_guarded()
{
    const size_t page = 4096, room = (segment_size + page - 1) / page * page;
    auto *reserved =
        static_cast<uint8_t *>(mmap(nullptr, room + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    const int fd = shm_open("app_ext_table", O_RDWR, 0600);
    void *memory = mmap(reserved + page, segment_size, PROT_READ, MAP_SHARED | MAP_FIXED, fd, 0);
    close(fd);
    tq_app_ext_table = static_cast<app_entry *>(memory);
}

/* Every text of an entry ends inside its field, and its last byte is zero at every moment. */
bool texts_are_whole(uint32_t index)
{
    const uint8_t *entry = reinterpret_cast<const uint8_t *>(tq_app_ext_table) + index * entry_size;
    for (size_t end : {119, 215, 279, 375, 471, 567, 663})
        if (static_cast<const volatile uint8_t *>(entry)[end] != 0)
            return false;
    return texts_end(index);
}

constexpr uint16_t renamed = 16382; /* the last entry: nothing but the lock is behind it */

bool read_until(const std::atomic<bool> &stop)
{
    map_guarded();
    bytes page(3 * 686);
    while (!stop) {
        if (!texts_are_whole(renamed) || !texts_are_whole(100))
            return false;
        /* Entries that nobody touches are found whatever happens around them. */
        if (tq_app_name2type("FTPS-DATA") != 6102 || tq_app_name2type_cn("oracle") != 125)
            return false;
        const uint32_t own = tq_app_userdefined_name2type("Steady");
        if (own != 16381)
            return false;
        const uint32_t seen = tq_app_name2type(std::string(95, 'a').c_str());
        if (seen != 0 && seen != renamed && seen != 100)
            return false;
        uint32_t cursor = 16380;
        int length = 0;
        tq_get_all_app_to_x86(page.data(), static_cast<int>(page.size()), &cursor, &length);
        for (int at = 0; at < length; at += 686)
            if (page[static_cast<size_t>(at) + 109] != 0 || page[static_cast<size_t>(at) + 301] != 0)
                return false;
    }
    return true;
}

bool rename_until(const std::atomic<bool> &stop, int seed)
{
    for (unsigned i = static_cast<unsigned>(seed); !stop; i++) {
        const std::string name(i % 3 == 0 ? 200 : 95 - i % 95, static_cast<char>('a' + i % 26));
        const char *text = name.c_str();
        tq_app_edit_cn_name(renamed, text);
        tq_app_modify_category(renamed, text, text, text, text);
        tq_app_modify_technology(renamed, text);
        app_ext_table_add_element(100, i, i, i, text, text, text, text, text);
        tq_app_edit_cn_name(100, text);
        if (i % 16 == 0) {
            app_ext_table_del(100, 0);
            app_ext_table_add(text, text, 0, 100);
        }
    }
    return true;
}

TEST_F(at_once, a_reader_stays_inside_every_field_while_writers_rename)
{
    ASSERT_EQ(app_ext_table_add("Renamed", "Renamed", 65535, 1), renamed);
    ASSERT_EQ(app_ext_table_add("Steady", "Steady", 65535, 1), 16381);
    ASSERT_EQ(app_ext_table_add("Hundred", "Hundred", 0, 100), 100);
    const shared<std::atomic<bool>> stop;
    const pid_t reader = beside([&] { return read_until(*stop); });
    const pid_t one = beside([&] { return rename_until(*stop, 0); });
    const pid_t two = beside([&] { return rename_until(*stop, 1000); });
    usleep(500000);
    *stop = true;
    expect_held(reader);
    expect_held(one);
    expect_held(two);
    EXPECT_EQ(count(), 27u);
}

} // namespace
