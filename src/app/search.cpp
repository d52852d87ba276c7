#include <libmix/app_table.h>

#include <cstring>
#include <strings.h>

#include "app/catalogue.h"
#include "frame/record.h"

namespace
{

using namespace mix;

constexpr size_t longest_name = 96;

/* What is looked for: the name as given, or without the star that ended it. */
struct wanted {
    char shortened[longest_name];
    const char *name;
    uint32_t key;
};

void prepare(wanted &out, const char *name)
{
    const size_t length = strnlen(name, longest_name);
    out.name = name;
    if (length != 0 && name[length - 1] == '*') {
        frame::copy_name(out.shortened, length, name); /* room for one less: the star goes */
        out.name = out.shortened;
    }
    out.key = app::key_of(out.name);
}

/*
 * Entries ahead of the one being compared. They lie about ten to a page, too far apart for the hardware to
 * run ahead of a scan by itself.
 */
constexpr ptrdiff_t ahead = 64;

/* Entries compared between two looks at the loop's end. One at a time costs more than memory does. */
constexpr uint32_t block = 8;

template <uint32_t app_entry::*Key, int Step>
void read_ahead(const app_entry *entry)
{
    /* Past the last entry it reads nothing: a prefetch of what is not mapped is dropped. */
    const auto line =
        reinterpret_cast<uintptr_t>(&(entry->*Key)) + Step * ahead * static_cast<ptrdiff_t>(sizeof *entry);
    __builtin_prefetch(reinterpret_cast<const void *>(line));
}

template <uint32_t app_entry::*Key>
bool has_key(const app_entry *entry, uint32_t key)
{
    return __builtin_expect(__atomic_load_n(&(entry->*Key), __ATOMIC_RELAXED) == key, false);
}

/* How many entries come, Step apart, before the first of that key; left: none of them has it. */
template <uint32_t app_entry::*Key, int Step>
uint32_t without_key(const app_entry *entry, uint32_t left, uint32_t key)
{
    uint32_t passed = 0;
    for (; left - passed >= block; passed += block, entry += Step * static_cast<int>(block)) {
#pragma GCC unroll 8
        for (int i = 0; i < static_cast<int>(block); i++)
            read_ahead<Key, Step>(entry + Step * i);
#pragma GCC unroll 8
        for (int i = 0; i < static_cast<int>(block); i++)
            if (has_key<Key>(entry + Step * i, key))
                return passed + static_cast<uint32_t>(i);
    }
    while (passed < left && !has_key<Key>(entry, key))
        passed++, entry += Step;
    return passed;
}

/*
 * Scans entries from first on, Step apart; the index of the first that matches, or 0. The key is looked at
 * before the flag: it is wrong nearly always, and it lies in the cache line that a match would read next.
 * Only an equal key costs a string comparison.
 */
template <uint32_t app_entry::*Key, char (app_entry::*Name)[longest_name], int Step>
uint32_t scan(const app_entry *all, uint32_t first, uint32_t count, const wanted &what)
{
    const app_entry *entry = all + first;
    for (uint32_t left = count;;) {
        const uint32_t passed = without_key<Key, Step>(entry, left, what.key);
        if (passed == left)
            return 0;
        entry += Step * static_cast<int>(passed);
        if (app::is_in_use(*entry) && strcasecmp(entry->*Name, what.name) == 0)
            return static_cast<uint32_t>(entry - all);
        entry += Step;
        left -= passed + 1;
    }
}

} // namespace

uint32_t tq_app_name2type(const char *name) noexcept
{
    const app_entry *all = app::entries();
    if (name == nullptr || all == nullptr)
        return 0;
    wanted what;
    prepare(what, name);
    return scan<&app_entry::name_key, &app_entry::name, 1>(all, 0, app::app_entries, what);
}

uint16_t tq_app_name2type_cn(const char *name_cn) noexcept
{
    const app_entry *all = app::entries();
    if (name_cn == nullptr || all == nullptr)
        return 0;
    wanted what;
    prepare(what, name_cn);
    return static_cast<uint16_t>(
        scan<&app_entry::name_cn_key, &app_entry::name_cn, 1>(all, 0, app::app_entries, what));
}

uint32_t tq_app_userdefined_name2type(const char *name) noexcept
{
    const app_entry *all = app::entries();
    if (all == nullptr)
        return 0;
    wanted what;
    prepare(what, name);
    return scan<&app_entry::name_key, &app_entry::name, -1>(
        all, app::app_last, app::app_entries - app::app_first_user_defined, what);
}
