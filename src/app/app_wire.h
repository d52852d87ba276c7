/*
 * The catalogue's segment and its export records. The segment is shared with programs that are built apart,
 * so every byte has its place for good; integers are in the machine's byte order.
 */
#ifndef MIX_APP_APP_WIRE_H
#define MIX_APP_APP_WIRE_H

#include <cstddef>
#include <cstdint>
#include <pthread.h>

#include <libmix/app_table.h>

namespace mix::wire
{

inline constexpr uint32_t app_entries = 16383;
inline constexpr uint32_t app_first_user_defined = 15871; /* up to the last entry */
inline constexpr uint32_t app_last = app_entries - 1;
inline constexpr size_t app_longest_name = sizeof(app_entry::name) - 1; /* (sub)categories too */
inline constexpr size_t app_longest_technology = sizeof(app_entry::technology) - 1;

static_assert(sizeof(app_entry) == 664);
static_assert(offsetof(app_entry, reserved) == 0);
static_assert(offsetof(app_entry, in_use) == 1);
static_assert(offsetof(app_entry, type) == 2);
static_assert(offsetof(app_entry, property) == 4);
static_assert(offsetof(app_entry, risk) == 8);
static_assert(offsetof(app_entry, flags) == 12);
static_assert(offsetof(app_entry, name_key) == 16);
static_assert(offsetof(app_entry, name_cn_key) == 20);
static_assert(offsetof(app_entry, name) == 24);
static_assert(offsetof(app_entry, name_cn) == 120);
static_assert(offsetof(app_entry, technology) == 216);
static_assert(offsetof(app_entry, category) == 280);
static_assert(offsetof(app_entry, category_cn) == 376);
static_assert(offsetof(app_entry, subcategory) == 472);
static_assert(offsetof(app_entry, subcategory_cn) == 568);
static_assert(sizeof(app_table_row) == 196);

static_assert(sizeof(pthread_rwlock_t) == 56,
              "the catalogue's read/write lock must take 56 bytes: the counters stand right behind it, at an "
              "offset that every process of the appliance relies on");

/* Mapped at a page's start, so the lock is aligned although the record's size is no multiple of 8. */
struct [[gnu::packed, gnu::aligned(4)]] app_segment
{
    app_entry entries[app_entries];
    pthread_rwlock_t lock;
    uint32_t cur_app_num;
    uint32_t cur_predef_app_num;
    uint32_t reserved;
};
static_assert(sizeof(app_segment) == 10878380);
static_assert(offsetof(app_segment, entries) == 0);
static_assert(offsetof(app_segment, lock) == 10878312);
static_assert(offsetof(app_segment, lock) % alignof(pthread_rwlock_t) == 0);
static_assert(offsetof(app_segment, cur_app_num) == 10878368);
static_assert(offsetof(app_segment, cur_predef_app_num) == 10878372);
static_assert(offsetof(app_segment, reserved) == 10878376);

/* Integers in network byte order, all else zero. */
struct [[gnu::packed]] app_export {
    uint16_t zero;
    uint16_t type;
    uint16_t marker; /* 0 predefined, 0xffff user-defined */
    uint8_t kind;    /* 2 predefined, 0 user-defined */
    uint8_t zeros[7];
    char name[96];
    char between[96];
    char name_cn[96];
    char rest[384];
};
static_assert(sizeof(app_export) == APP_EXPORT_RECORD_SIZE);
static_assert(offsetof(app_export, type) == 2);
static_assert(offsetof(app_export, marker) == 4);
static_assert(offsetof(app_export, kind) == 6);
static_assert(offsetof(app_export, zeros) == 7);
static_assert(offsetof(app_export, name) == 14);
static_assert(offsetof(app_export, between) == 110);
static_assert(offsetof(app_export, name_cn) == 206);
static_assert(offsetof(app_export, rest) == 302);

} // namespace mix::wire

#endif
