#include <libmix/app_table.h>

#include <cstring>

#include "app/catalogue.h"
#include "frame/record.h"

namespace
{

using namespace mix;

/*
 * The write side of the catalogue's lock. That taking it may fail with EDEADLK is passed over on purpose: no
 * writer here calls another, so it means that a thread died holding the lock and its number has come to this
 * thread. The lock is then this thread's to hold and to release, and no other's.
 */
int lock()
{
    return pthread_rwlock_wrlock(static_cast<pthread_rwlock_t *>(app_table_rwlock));
}

int unlock()
{
    return pthread_rwlock_unlock(static_cast<pthread_rwlock_t *>(app_table_rwlock));
}

struct locked {
    locked() { lock(); }
    ~locked() { unlock(); }
    locked(const locked &) = delete;
    locked &operator=(const locked &) = delete;
};

/* Cut to the field. Its last byte is never anything but zero, so a reader that comes between still ends. */
template <size_t Size>
void copy_text(char (&field)[Size], const char *text)
{
    frame::copy_name(field, Size, text);
}

template <size_t Size>
void copy_given(char (&field)[Size], const char *text)
{
    if (text != nullptr && text[0] != '\0')
        copy_text(field, text);
}

void set_in_use(app_entry &entry, uint8_t in_use)
{
    __atomic_store_n(&entry.in_use, in_use, __ATOMIC_RELEASE);
}

struct naming {
    const char *name;
    const char *name_cn;
    uint32_t key;
    uint32_t key_cn;
};

/* Before the lock is taken: a bad pointer must not leave it held. */
naming names_of(const char *name, const char *name_cn)
{
    return {name, name_cn, app::key_of(name), app::key_of(name_cn)};
}

/* in_use comes last: what a reader finds, or a killed writer leaves, is a whole entry or none. */
void fill(app_entry &entry, const naming &with, uint16_t type)
{
    copy_text(entry.name, with.name);
    copy_text(entry.name_cn, with.name_cn);
    entry.type = type;
    entry.name_key = with.key;
    entry.name_cn_key = with.key_cn;
    set_in_use(entry, 1);
}

bool add_predefined(app_entry *all, const naming &with, uint16_t type)
{
    if (type >= app::app_first_user_defined || app::is_in_use(all[type]))
        return false;
    fill(all[type], with, type);
    *cur_app_num += 1;
    *cur_predef_app_num += 1;
    return true;
}

/* The index, or 0 when no slot is free. */
uint32_t add_user_defined(app_entry *all, const naming &with, uint16_t type)
{
    for (uint32_t index = app::app_last; index >= app::app_first_user_defined; index--) {
        if (app::is_in_use(all[index]))
            continue;
        fill(all[index], with, type);
        *cur_app_num += 1;
        return index;
    }
    return 0;
}

void seed(app_entry *all)
{
    for (const app_table_row &row : tq_app_table)
        add_predefined(all, names_of(row.name, row.name_cn), static_cast<uint16_t>(row.type));
}

/* A user-defined entry that is in use, or NULL. */
app_entry *user_defined(int type)
{
    return app::find(type, app::app_first_user_defined);
}

} // namespace

int tq_app_table_create() noexcept
{
    tq_app_table_init();
    app_entry *all = app::entries();
    if (all == nullptr)
        return -1;
    const locked here;
    std::memset(static_cast<void *>(all), 0, app::app_entries * sizeof *all);
    *cur_app_num = 0;
    *cur_predef_app_num = 0;
    seed(all);
    return 0;
}

int tq_app_table_reset() noexcept
{
    app_entry *all = app::entries();
    if (all == nullptr)
        return -1;
    const locked here;
    for (uint32_t i = 0; i < app::app_first_user_defined; i++)
        set_in_use(all[i], 0);
    uint32_t kept = 0;
    for (uint32_t i = app::app_first_user_defined; i <= app::app_last; i++)
        kept += app::is_in_use(all[i]) ? 1 : 0;
    *cur_predef_app_num = 0;
    *cur_app_num = kept;
    seed(all);
    return 0;
}

int app_ext_table_add(const char *name, const char *name_cn, int kind, uint16_t type) noexcept
{
    app_entry *all = app::entries();
    if (all == nullptr)
        return 0;
    const naming with = names_of(name, name_cn);
    const locked here;
    if (*cur_app_num >= app::app_last)
        return 0;
    if (kind == APP_KIND_USER_DEFINED)
        return static_cast<int>(add_user_defined(all, with, type));
    return add_predefined(all, with, type) ? type : 0;
}

int app_ext_table_add_element(uint16_t index, uint32_t property, uint32_t risk, uint32_t flags,
                              const char *subcategory, const char *subcategory_cn, const char *category,
                              const char *category_cn, const char *technology) noexcept
{
    app_entry *entry = app::find(index, 0);
    if (entry == nullptr)
        return -1;
    const locked here;
    copy_given(entry->subcategory, subcategory);
    copy_given(entry->subcategory_cn, subcategory_cn);
    copy_given(entry->category, category);
    copy_given(entry->category_cn, category_cn);
    copy_given(entry->technology, technology);
    entry->property = property;
    entry->risk = risk;
    entry->flags = flags;
    return 0;
}

int app_ext_table_del(uint16_t index, int kind) noexcept
{
    app_entry *all = app::entries();
    if (all == nullptr)
        return -1;
    lock();
    if (index < app::app_entries && app::is_in_use(all[index])) {
        set_in_use(all[index], 0);
        *cur_app_num -= 1;
    }
    /* By the caller's word alone, on purpose: also when nothing was deleted. */
    if (kind != APP_KIND_USER_DEFINED)
        *cur_predef_app_num -= 1;
    return unlock();
}

void tq_app_modify_category(int type, const char *category, const char *category_cn, const char *subcategory,
                            const char *subcategory_cn) noexcept
{
    if (category == nullptr || category_cn == nullptr || subcategory == nullptr || subcategory_cn == nullptr)
        return;
    app_entry *entry = user_defined(type);
    if (entry == nullptr)
        return;
    const locked here;
    copy_text(entry->category, category);
    copy_text(entry->category_cn, category_cn);
    copy_text(entry->subcategory, subcategory);
    copy_text(entry->subcategory_cn, subcategory_cn);
}

void tq_app_modify_technology(int type, const char *technology) noexcept
{
    if (technology == nullptr)
        return;
    app_entry *entry = user_defined(type);
    if (entry == nullptr)
        return;
    const locked here;
    copy_text(entry->technology, technology);
}

void tq_app_modify_app_property_and_risk(int type, uint32_t property, uint32_t risk) noexcept
{
    app_entry *entry = user_defined(type);
    if (entry == nullptr)
        return;
    const locked here;
    entry->property = property;
    entry->risk = risk;
}

int tq_app_edit_cn_name(uint16_t index, const char *name_cn) noexcept
{
    if (name_cn == nullptr || name_cn[0] == '\0' || index == 0)
        return -1;
    app_entry *entry = app::find(index, 0);
    if (entry == nullptr)
        return -2;
    const locked here;
    copy_text(entry->name_cn, name_cn); /* the key stays, on purpose: the new name is not found by it */
    return 0;
}
