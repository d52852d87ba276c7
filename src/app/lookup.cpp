#include <libmix/app_table.h>

#include <strings.h>

#include "app/catalogue.h"

namespace
{

using namespace mix;

constexpr char user_defined_cn[] = "用户自定义";

/* The name lookups know entry 0 and the pseudo-type; the attribute lookups know neither, on purpose. */
constexpr int64_t lowest_named = 0;
constexpr int64_t lowest_described = 1;

template <size_t Size>
const char *text_of(int64_t type, int64_t lowest, char (app_entry::*field)[Size])
{
    const app_entry *entry = app::find(type, lowest);
    return entry != nullptr ? entry->*field : "";
}

const char *name_of(uint32_t type, char (app_entry::*field)[96], const char *pseudo)
{
    if (type == APP_KIND_USER_DEFINED && app::entries() != nullptr)
        return pseudo;
    return text_of(type, lowest_named, field);
}

/* A category text; a user-defined entry without one has a stand-in. */
const char *category_of(uint32_t type, char (app_entry::*field)[96], const char *stand_in)
{
    const char *text = text_of(type, lowest_described, field);
    if (text[0] == '\0' && app::find(type, app::app_first_user_defined) != nullptr)
        return stand_in;
    return text;
}

uint32_t word_of(int type, uint32_t app_entry::*field)
{
    const app_entry *entry = app::find(type, lowest_described);
    return entry != nullptr ? entry->*field : 0;
}

} // namespace

const char *tq_app_type2name(uint32_t type) noexcept
{
    return name_of(type, &app_entry::name, "user-defined");
}

const char *tq_app_type2name_cn(uint32_t type) noexcept
{
    return name_of(type, &app_entry::name_cn, user_defined_cn);
}

const char *tq_app_type2category(uint32_t type) noexcept
{
    return category_of(type, &app_entry::category, "APP_USERDEFINED_CATEGORY");
}

const char *tq_app_type2category_cn(uint32_t type) noexcept
{
    return category_of(type, &app_entry::category_cn, user_defined_cn);
}

const char *tq_app_type2subcategory(uint32_t type) noexcept
{
    return category_of(type, &app_entry::subcategory, "APP_USERDEFINED_SUBCATEGORY");
}

const char *tq_app_type2subcategory_cn(uint32_t type) noexcept
{
    return category_of(type, &app_entry::subcategory_cn, user_defined_cn);
}

const char *tq_app_type2technology(int type) noexcept
{
    return text_of(type, lowest_described, &app_entry::technology);
}

uint32_t tq_apptype2risk(int type) noexcept
{
    return word_of(type, &app_entry::risk);
}

int tq_apptype2shadow_it(int type) noexcept
{
    return static_cast<int>(word_of(type, &app_entry::flags) & 1);
}

uint32_t tq_apptype2property(int type) noexcept
{
    return word_of(type, &app_entry::property);
}

const app_entry *tq_get_one_app_table_member(int index) noexcept
{
    /* No lower bound, on purpose: a negative index is the caller's to avoid. */
    const app_entry *all = app::entries();
    if (index > static_cast<int>(app::app_last) || all == nullptr || !app::is_in_use(all[index]))
        return nullptr;
    return &all[index];
}

int app_hashtbl_cmp(const void *entry, const char *name) noexcept
{
    const auto *one = static_cast<const app_entry *>(entry);
    return app::is_in_use(*one) && strcasecmp(one->name, name) == 0 ? 1 : 0;
}
