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

/*
 * Scans entries from first on, step apart; the index of the first that matches, or 0. The key is looked at
 * before the flag: it is wrong nearly always, and it lies in the cache line that a match would read next.
 * Only an equal key costs a string comparison.
 */
template <uint32_t app_entry::*Key, char (app_entry::*Name)[longest_name], int Step>
uint32_t scan(const app_entry *all, uint32_t first, uint32_t count, const wanted &what)
{
    const app_entry *entry = all + first;
    for (uint32_t left = count; left != 0; left--, entry += Step) {
        const auto line =
            reinterpret_cast<uintptr_t>(&(entry->*Key)) + Step * ahead * ptrdiff_t{sizeof *entry};
        __builtin_prefetch(reinterpret_cast<const void *>(line));
        if (__atomic_load_n(&(entry->*Key), __ATOMIC_RELAXED) != what.key)
            continue;
        if (app::is_in_use(*entry) && strcasecmp(entry->*Name, what.name) == 0)
            return static_cast<uint32_t>(entry - all);
    }
    return 0;
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
