// Behaviour objects, and the profiles whose rules name them.
#include "appliance/mixsh/shared.h"
#include "appliance/wire/bhv.h"

#include <algorithm>
#include <libmix/bhv.h>

namespace mixsh
{

namespace
{

namespace wire = mix::wire;

constexpr choice class_words[] = {
    {"url", "addresses of pages", wire::bhv_url},       {"keyword", "words in texts", wire::bhv_keyword},
    {"mail", "mail services", wire::bhv_mail},          {"file", "kinds of files", wire::bhv_file},
    {"application", "programs", wire::bhv_application},
};

// --- objects

constexpr column object_columns[] = {
    {.title = "Name", .key = "name", .may_be_cut = true, .at_least = 12},
    {"Class", "class", false, 11},
    {"Subclass", "subclass"},
    {"Uses", "uses"},
    {.title = "Items", .key = "items", .may_be_cut = true, .at_least = 16},
    {.title = "Description", .key = "description", .may_be_cut = true, .at_least = 11},
};

std::vector<std::string> items_of(const wire::bhv_obj_row &row)
{
    std::vector<std::string> items;
    for (std::size_t i = 0; i < std::min<std::size_t>(row.items, wire::bhv_most_items); i++)
        items.push_back(field_text(row.item[i]));
    return items;
}

int print_object(const void *record, void *context)
{
    wire::bhv_obj_row one;
    std::memcpy(&one, record, sizeof one);
    static_cast<table *>(context)->row({field_text(one.name), word_of(class_words, one.object_class),
                                        unless_zero(one.subclass), one.uses, items_of(one),
                                        field_text(one.description)});
    return 0;
}

outcome show_objects(invocation &call)
{
    table rows(call.out(), object_columns);
    get_bhv_obj(call.text("NAME"), static_cast<std::uint8_t>(call.chosen("class").value_or(0)),
                call.number_or<std::uint8_t>("subclass", 0), print_object, &rows, call.print());
    rows.end();
    return call.end(request{.type = wire::bhv_obj_type, .subcommand = wire::bhv_obj_operation},
                    "the behaviour objects can't be read");
}
constexpr argument object_arguments[] = {
    optional_value("NAME", kinds::word, "objects of this name", {.longest = 31}),
    option("class", kinds::one_of, "objects of this class", {.choices = class_words}),
    option("subclass", kinds::number, "objects of this subclass", {.low = 1, .high = 255}),
};

// --- profiles

constexpr request asking_profiles{.type = wire::bhv_profile_type, .subcommand = wire::bhv_profile_operation};

constexpr column profile_columns[] = {
    {.title = "Name", .key = "name", .may_be_cut = true, .at_least = 12},
    {"Rules", "rules"},
    {.title = "Description", .key = "description", .may_be_cut = true, .at_least = 11},
};

int print_profile(const void *record, void *context)
{
    wire::bhv_profile_row one;
    std::memcpy(&one, record, sizeof one);
    static_cast<table *>(context)->row({field_text(one.name), one.rules, field_text(one.description)});
    return 0;
}

outcome show_profiles(invocation &call)
{
    table rows(call.out(), profile_columns);
    get_bhv_profile(call.text("NAME"), print_profile, &rows, call.print());
    rows.end();
    return call.end(asking_profiles, "the behaviour profiles can't be read");
}
constexpr argument profile_arguments[] = {
    optional_value("NAME", kinds::word, "this profile only", {.longest = 31})};

constexpr column rule_columns[] = {
    {.title = "Object", .key = "object", .may_be_cut = true, .at_least = 12},
    {"Class", "class", false, 11},
    {"Subclass", "subclass"},
    {"Action", "action"},
    {"Log", "log"},
    {"Hits", "hits", false, 6},
    {.title = "Mail", .key = "mail", .may_be_cut = true, .at_least = 4},
};

std::vector<std::string> mail_services(std::uint32_t bits)
{
    std::vector<std::string> names;
    for (std::uint32_t type = 0; type < BHV_MAIL_TYPES; type++)
        if ((bits >> type & 1) != 0)
            names.emplace_back(bhv_mail_type2name(type));
    return names;
}

int print_rules(const void *record, void *context)
{
    wire::bhv_profile_row profile;
    std::memcpy(&profile, record, sizeof profile);
    for (std::size_t i = 0; i < std::min<std::size_t>(profile.rules, wire::bhv_most_rules); i++) {
        const wire::bhv_rule &one = profile.rule[i];
        static_cast<table *>(context)->row({field_text(one.object), word_of(class_words, one.object_class),
                                            unless_zero(one.subclass),
                                            one.action == wire::bhv_block ? "block" : "permit",
                                            cell(one.log != 0), one.hits, mail_services(one.mail)});
    }
    return 0;
}

outcome show_rules(invocation &call)
{
    table rows(call.out(), rule_columns);
    const std::uint16_t found = get_bhv_profile(call.text("PROFILE"), print_rules, &rows, call.print());
    rows.end();
    if (!call.said().empty())
        return call.fail(asking_profiles, "the behaviour profile can't be read");
    if (found == 0)
        return call.fail("there is no such behaviour profile", "\"show behaviour profiles\" lists them");
    return outcome::done;
}
constexpr argument rule_arguments[] = {
    value("PROFILE", kinds::word, "profile whose rules are shown", {.longest = 31})};

constexpr command commands[] = {
    {"show behaviour objects", "what behaviour rules are about", show_objects, object_arguments},
    {"show behaviour profiles", "behaviour profiles", show_profiles, profile_arguments},
    {"show behaviour rules", "the rules of a behaviour profile", show_rules, rule_arguments},
};

} // namespace

extern const family behaviour_family;
const family behaviour_family{"behaviour", "user behaviour control", commands};

} // namespace mixsh
