/*
 * Behaviour objects and profiles as the behaviour service has them. The requests are libmix's
 * (src/misc/bhv_wire.h); here stands what libmix passes on unread. Numbers are little-endian, texts
 * terminated.
 *
 * In requests class 0 and subclass 0 stand for all.
 */
#ifndef MIX_APPLIANCE_WIRE_BHV_H
#define MIX_APPLIANCE_WIRE_BHV_H

#include "misc/bhv_wire.h"

namespace mix::wire
{

enum bhv_class : uint8_t { bhv_url = 1, bhv_keyword = 2, bhv_mail = 3, bhv_file = 4, bhv_application = 5 };

inline constexpr size_t bhv_most_items = 8;
inline constexpr size_t bhv_most_rules = 157;

struct [[gnu::packed]] bhv_obj_row {
    char name[32];
    uint8_t object_class;
    uint8_t subclass;
    uint16_t items; /* that follow */
    uint32_t uses;  /* rules of profiles that name it */
    char description[64];
    char item[bhv_most_items][64]; /* patterns, addresses, file types: what the class has */
};
static_assert(sizeof(bhv_obj_row) == bhv_obj_row_size);
static_assert(offsetof(bhv_obj_row, object_class) == 32);
static_assert(offsetof(bhv_obj_row, subclass) == 33);
static_assert(offsetof(bhv_obj_row, items) == 34);
static_assert(offsetof(bhv_obj_row, uses) == 36);
static_assert(offsetof(bhv_obj_row, description) == 40);
static_assert(offsetof(bhv_obj_row, item) == 104);

enum bhv_action : uint8_t { bhv_permit = 0, bhv_block = 1 };

struct [[gnu::packed]] bhv_rule {
    char object[32];
    uint8_t object_class;
    uint8_t subclass;
    uint8_t action; /* bhv_action */
    uint8_t log;    /* 1: matches are logged */
    uint32_t mail;  /* class mail: a bit for each mail type; 0: all */
    uint64_t hits;
};
static_assert(sizeof(bhv_rule) == 48);
static_assert(offsetof(bhv_rule, object_class) == 32);
static_assert(offsetof(bhv_rule, subclass) == 33);
static_assert(offsetof(bhv_rule, action) == 34);
static_assert(offsetof(bhv_rule, log) == 35);
static_assert(offsetof(bhv_rule, mail) == 36);
static_assert(offsetof(bhv_rule, hits) == 40);

struct [[gnu::packed]] bhv_profile_row {
    char name[32];
    char description[64];
    uint16_t rules; /* that follow */
    uint16_t unused_98[3];
    bhv_rule rule[bhv_most_rules];
};
static_assert(sizeof(bhv_profile_row) == bhv_profile_row_size);
static_assert(offsetof(bhv_profile_row, description) == 32);
static_assert(offsetof(bhv_profile_row, rules) == 96);
static_assert(offsetof(bhv_profile_row, rule) == 104);

} // namespace mix::wire

#endif
