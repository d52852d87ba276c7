/* Wire records of behaviour objects (message type 97) and profiles (96) of the main local daemon. */
#ifndef MIX_MISC_BHV_WIRE_H
#define MIX_MISC_BHV_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t bhv_obj_type = 97;
inline constexpr uint32_t bhv_profile_type = 96;
inline constexpr uint32_t bhv_obj_operation = 0;
inline constexpr uint32_t bhv_profile_operation = 2;
inline constexpr uint16_t bhv_obj_row_size = 616;
inline constexpr uint16_t bhv_profile_row_size = 7640;
inline constexpr uint32_t bhv_obj_capacity = 4096;
inline constexpr uint32_t bhv_profile_capacity = 8192;

/* The buffer's 4096 bytes are sent whole. */
struct [[gnu::packed]] bhv_obj_request {
    uint32_t operation;
    char name[32]; /* empty: all */
    uint8_t object_class;
    uint8_t subclass;
    uint8_t zero[2];
    uint32_t cursor;
    uint8_t rest[4052];
};
static_assert(sizeof(bhv_obj_request) == 4096);
static_assert(offsetof(bhv_obj_request, name) == 4);
static_assert(offsetof(bhv_obj_request, object_class) == 36);
static_assert(offsetof(bhv_obj_request, subclass) == 37);
static_assert(offsetof(bhv_obj_request, cursor) == 40);

struct [[gnu::packed]] bhv_obj_page {
    uint16_t cursor;
    uint16_t zero;
    uint32_t count;
};
static_assert(sizeof(bhv_obj_page) == 8);
static_assert(offsetof(bhv_obj_page, cursor) == 0);
static_assert(offsetof(bhv_obj_page, count) == 4);

/* The most that a page holds. */
inline constexpr uint16_t bhv_obj_rows = (bhv_obj_capacity - sizeof(bhv_obj_page)) / bhv_obj_row_size;
static_assert(bhv_obj_rows == 6);

struct [[gnu::packed]] bhv_profile_request {
    uint32_t operation;
    char name[32]; /* empty: all */
    uint32_t cursor;
};
static_assert(sizeof(bhv_profile_request) == 40);
static_assert(offsetof(bhv_profile_request, name) == 4);
static_assert(offsetof(bhv_profile_request, cursor) == 36);

struct [[gnu::packed]] bhv_profile_page {
    uint16_t cursor;
    uint16_t count;
};
static_assert(sizeof(bhv_profile_page) == 4);
static_assert(offsetof(bhv_profile_page, cursor) == 0);
static_assert(offsetof(bhv_profile_page, count) == 2);

} // namespace mix::wire

#endif
