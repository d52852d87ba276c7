// The application catalogue: what is in it, user-defined applications, its export. Read and written in shared
// memory through libmix; mixd made it.
#include "app/catalogue.h"
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <libmix/app_table.h>
#include <map>
#include <strings.h>
#include <unistd.h>

#include <fmt/format.h>

namespace mixsh
{

namespace
{

using mix::wire::app_first_user_defined;
using mix::wire::app_last;
constexpr limits name_limits{.longest = mix::wire::app_longest_name};

// --- attaching

bool attach(invocation &call)
{
    // libmix makes an empty catalogue where there is none; that is mixd's to do.
    if (tq_app_ext_table == nullptr && access(mix::app::name_of_segment().path, F_OK) != 0) {
        call.fail("there is no application catalogue on this machine", "start mixd, it makes the catalogue");
        return false;
    }
    tq_app_table_init();
    if (tq_app_ext_table == nullptr)
        call.fail("the application catalogue can't be attached", "run mixsh as the user that runs mixd");
    return tq_app_ext_table != nullptr;
}

// --- showing

constexpr column application_columns[] = {
    {.title = "Type", .key = "type", .at_least = 5},
    {.title = "Name", .key = "name", .may_be_cut = true, .at_least = 20},
    {.title = "Chinese name", .key = "chinese_name", .may_be_cut = true, .at_least = 16},
    {.title = "User-defined", .key = "user_defined", .programs_only = true},
    {.title = "Category", .key = "category", .may_be_cut = true, .at_least = 18},
    {.title = "Chinese category", .key = "chinese_category", .programs_only = true},
    {.title = "Subcategory", .key = "subcategory", .may_be_cut = true, .at_least = 18},
    {.title = "Chinese subcategory", .key = "chinese_subcategory", .programs_only = true},
    {.title = "Technology", .key = "technology", .programs_only = true},
    {.title = "Risk", .key = "risk"},
    {.title = "Shadow IT", .key = "shadow_it"},
    {.title = "Property", .key = "property", .programs_only = true},
};

bool is_user_defined(std::uint32_t type)
{
    return type >= app_first_user_defined && type <= app_last;
}

void show_one(invocation &call, std::uint32_t type)
{
    const int number = static_cast<int>(type);
    call.out().record({
        {"Type", "type", type},
        {"Name", "name", tq_app_type2name(type)},
        {"Chinese name", "chinese_name", tq_app_type2name_cn(type)},
        {"User-defined", "user_defined", is_user_defined(type)},
        {"Category", "category", tq_app_type2category(type)},
        {"Chinese category", "chinese_category", tq_app_type2category_cn(type)},
        {"Subcategory", "subcategory", tq_app_type2subcategory(type)},
        {"Chinese subcategory", "chinese_subcategory", tq_app_type2subcategory_cn(type)},
        {"Technology", "technology", tq_app_type2technology(number)},
        {"Risk", "risk", tq_apptype2risk(number)},
        {"Shadow IT", "shadow_it", tq_apptype2shadow_it(number) != 0},
        {"Property", "property", tq_apptype2property(number)},
    });
}

bool is_in_use(std::uint32_t type)
{
    return tq_get_one_app_table_member(static_cast<int>(type)) != nullptr;
}

// What a lookup by name has found: 0 means both nothing and the application 0.
bool is_found(std::uint32_t type, const char *name, const char *name_of_0)
{
    return type != 0 || (is_in_use(0) && strcasecmp(name, name_of_0) == 0);
}

bool passes(const invocation &call, std::uint32_t type)
{
    if (const char *category = call.text("category");
        category != nullptr && strcasecmp(category, tq_app_type2category(type)) != 0 &&
        strcasecmp(category, tq_app_type2category_cn(type)) != 0)
        return false;
    if (const auto risk = call.number("risk"); risk && *risk != tq_apptype2risk(static_cast<int>(type)))
        return false;
    return !call.has("user-defined") || is_user_defined(type);
}

outcome show_list(invocation &call)
{
    table rows(call.out(), application_columns);
    for (std::uint32_t type = 0; type <= app_last; type++) {
        if (!is_in_use(type) || !passes(call, type))
            continue;
        const int number = static_cast<int>(type);
        if (!rows.row({type, tq_app_type2name(type), tq_app_type2name_cn(type), is_user_defined(type),
                       tq_app_type2category(type), tq_app_type2category_cn(type),
                       tq_app_type2subcategory(type), tq_app_type2subcategory_cn(type),
                       tq_app_type2technology(number), tq_apptype2risk(number),
                       tq_apptype2shadow_it(number) != 0, tq_apptype2property(number)}))
            break;
    }
    return outcome::done;
}

outcome show(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    const bool filtered = call.has("category") || call.has("risk") || call.has("user-defined");
    const int one = call.has("type") + call.has("name") + call.has("chinese-name");
    if (one == 0)
        return show_list(call);
    if (one > 1 || filtered)
        return call.misused("type, name and chinese-name each find one application and stand alone");
    std::uint32_t type = call.number_or<std::uint32_t>("type", 0);
    bool found = call.has("type") && is_in_use(type);
    if (const char *name = call.text("name")) {
        type = tq_app_name2type(name);
        found = is_found(type, name, tq_app_type2name(0));
    }
    if (const char *name = call.text("chinese-name")) {
        type = tq_app_name2type_cn(name);
        found = is_found(type, name, tq_app_type2name_cn(0));
    }
    if (!found)
        return call.fail("there is no such application");
    show_one(call, type);
    return outcome::done;
}
constexpr argument show_arguments[] = {
    option("type", kinds::number, "the application of this type", {.high = app_last}),
    option("name", kinds::word, "the application of this name"),
    option("chinese-name", kinds::word, "the application of this Chinese name"),
    option("category", kinds::word, "applications of this category, in either language"),
    option("risk", kinds::number, "applications of this risk"),
    flag("user-defined", "user-defined applications only"),
};

outcome show_counts(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    const std::uint32_t all = *cur_app_num, predefined = *cur_predef_app_num;
    call.out().record({
        {"Applications", "applications", all},
        {"Predefined", "predefined", predefined},
        {"User-defined", "user_defined", static_cast<std::int32_t>(all - predefined)},
    });
    return outcome::done;
}

constexpr column category_columns[] = {
    {.title = "Category", .key = "category", .may_be_cut = true, .at_least = 18},
    {.title = "Chinese category", .key = "chinese_category", .may_be_cut = true, .at_least = 16},
    {.title = "Applications", .key = "applications"},
};

outcome show_categories(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    std::map<std::pair<std::string, std::string>, std::uint32_t> counts;
    for (std::uint32_t type = 0; type <= app_last; type++)
        if (is_in_use(type))
            counts[{tq_app_type2category(type), tq_app_type2category_cn(type)}]++;
    table rows(call.out(), category_columns);
    for (const auto &[category, count] : counts)
        rows.row({category.first, category.second, count});
    return outcome::done;
}

// --- user-defined applications

constexpr argument attributes[] = {
    option("chinese-name", kinds::text, "its Chinese name", name_limits),
    option("category", kinds::text, "its category", name_limits),
    option("chinese-category", kinds::text, "its category in Chinese", name_limits),
    option("subcategory", kinds::text, "its subcategory", name_limits),
    option("chinese-subcategory", kinds::text, "its subcategory in Chinese", name_limits),
    option("technology", kinds::text, "its technology", {.longest = mix::wire::app_longest_technology}),
    option("risk", kinds::number, "its risk"),
    option("property", kinds::number, "its property word"),
    option("shadow-it", kinds::one_of, "whether it is shadow IT", on_off),
};

template <std::size_t Before, std::size_t After>
constexpr auto joined(const argument (&before)[Before], const argument (&after)[After])
{
    std::array<argument, Before + After> all{};
    std::copy(std::begin(before), std::end(before), all.begin());
    std::copy(std::begin(after), std::end(after), all.begin() + Before);
    return all;
}

// Stores what was given; what was not stays as `now` says. The entry was found a moment ago, and libmix looks
// again.
void store(const invocation &call, int type, const app_entry &now)
{
    tq_app_modify_category(type, call.text_or("category", now.category),
                           call.text_or("chinese-category", now.category_cn),
                           call.text_or("subcategory", now.subcategory),
                           call.text_or("chinese-subcategory", now.subcategory_cn));
    tq_app_modify_technology(type, call.text_or("technology", now.technology));
    std::uint32_t flags = now.flags;
    if (const auto shadow = call.chosen("shadow-it"))
        flags = (flags & ~1u) | static_cast<std::uint32_t>(*shadow);
    app_ext_table_add_element(static_cast<std::uint16_t>(type), call.number_or("property", now.property),
                              call.number_or("risk", now.risk), flags, nullptr, nullptr, nullptr, nullptr,
                              nullptr);
}

outcome add(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    const char *name = call.text("NAME");
    if (const std::uint32_t taken = tq_app_name2type(name); is_found(taken, name, tq_app_type2name(0)))
        return call.fail(fmt::format("the name is that of application {}", taken));
    const int type = app_ext_table_add(name, call.text_or("chinese-name", name), APP_KIND_USER_DEFINED, 0);
    if (type == 0)
        return call.fail("there is no room for another user-defined application",
                         "delete one; the catalogue has 512 places for them");
    store(call, type, {}); // the place may still have what an application before it left there
    call.out().record({{"Type", "type", type}});
    return outcome::done;
}
constexpr argument add_first[] = {value("NAME", kinds::text, "name of the application", name_limits)};
constexpr auto add_arguments = joined(add_first, attributes);

// By its name, or by its type where nothing has that name. 0: there is none.
std::uint32_t find_user_defined(invocation &call)
{
    const char *name = call.text("NAME");
    if (const std::uint32_t type = tq_app_userdefined_name2type(name))
        return type;
    char *end = nullptr;
    const unsigned long type = std::strtoul(name, &end, 10);
    if (*name != '\0' && *end == '\0' && type <= app_last &&
        is_user_defined(static_cast<std::uint32_t>(type)) && is_in_use(static_cast<std::uint32_t>(type)))
        return static_cast<std::uint32_t>(type);
    call.fail(
        "there is no such user-defined application",
        "\"show application user-defined\" lists them; predefined ones come from mixd's signature file");
    return 0;
}

outcome edit(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    if (std::none_of(std::begin(attributes), std::end(attributes),
                     [&](const argument &one) { return call.has(one.name); }))
        return call.misused("name at least one attribute to change");
    const std::uint32_t type = find_user_defined(call);
    if (type == 0)
        return outcome::failed;
    const app_entry now = *tq_get_one_app_table_member(static_cast<int>(type));
    store(call, static_cast<int>(type), now);
    if (const char *name = call.text("chinese-name")) {
        if (tq_app_edit_cn_name(static_cast<std::uint16_t>(type), name) != 0)
            return call.fail("the Chinese name was not changed", "it can't be empty");
        call.out().note(
            "A search by Chinese name still goes by the first letters of the name it was added with.");
    }
    return outcome::done;
}
constexpr argument edit_first[] = {value("NAME", kinds::text, "name or type of the application")};
constexpr auto edit_arguments = joined(edit_first, attributes);

outcome remove(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    const std::uint32_t type = find_user_defined(call);
    if (type == 0)
        return outcome::failed;
    if (app_ext_table_del(static_cast<std::uint16_t>(type), APP_KIND_USER_DEFINED) != 0)
        return call.fail("the application was not deleted");
    return outcome::done;
}

// --- export

constexpr int records_a_page = 64;

outcome export_to(invocation &call)
{
    if (!attach(call))
        return outcome::failed;
    const char *path = call.text("FILE");
    std::FILE *file = std::fopen(path, "wbe");
    if (file == nullptr)
        return call.fail(fmt::format("{}: {}", path, std::strerror(errno)));
    std::vector<std::uint8_t> page(records_a_page * APP_EXPORT_RECORD_SIZE);
    std::uint32_t cursor = 0, records = 0;
    bool written = true;
    while (written && cursor <= app_last) {
        int length = 0;
        tq_get_all_app_to_x86(page.data(), static_cast<int>(page.size()), &cursor, &length);
        const auto size = static_cast<std::size_t>(length);
        written = std::fwrite(page.data(), 1, size, file) == size;
        records += static_cast<std::uint32_t>(size / APP_EXPORT_RECORD_SIZE);
    }
    int reason = errno;
    if (std::fclose(file) != 0 && written) {
        written = false;
        reason = errno;
    }
    if (!written)
        return call.fail(fmt::format("{}: {}", path, std::strerror(reason)), "the file is not complete");
    call.out().record({{"Applications", "applications", records}, {"File", "file", path}});
    return outcome::done;
}
constexpr argument export_arguments[] = {value("FILE", kinds::file, "file to write the export records to")};

constexpr command commands[] = {
    {"show application", "applications of the catalogue", show, show_arguments},
    {"show application counts", "how many applications there are", show_counts},
    {"show application categories", "categories and how many applications each has", show_categories},
    {"add application", "add a user-defined application", add, add_arguments},
    {"set application", "change a user-defined application", edit, edit_arguments},
    {"delete application", "delete a user-defined application", remove, edit_first},
    {"export application", "write every application to a file, as the data plane takes them", export_to,
     export_arguments},
};

} // namespace

extern const family application_family;
const family application_family{"application", "the application catalogue", commands};

} // namespace mixsh
