/* The application catalogue as tests know it: where things stand in its segment, and what holds at every
 * moment. */
#ifndef MIX_TESTS_SUPPORT_CATALOGUE_H
#define MIX_TESTS_SUPPORT_CATALOGUE_H

#include <libmix/app_table.h>

#include <cstdint>
#include <cstring>
#include <sys/mman.h>

namespace catalogue
{

inline constexpr char segment_path[] = "/dev/shm/app_ext_table";
inline constexpr size_t segment_size = 10878380;
inline constexpr size_t entry_size = 664;
inline constexpr uint32_t entry_count = 16383;
inline constexpr uint32_t first_user_defined = 15871;
inline constexpr size_t lock_at = 10878312;
inline constexpr size_t counters_at = 10878368;

/* As before the process attached, though the segment stays mapped. */
inline void forget()
{
    tq_app_ext_table = nullptr;
    app_table_rwlock = nullptr;
    cur_app_num = cur_predef_app_num = nullptr;
}

inline void detach()
{
    if (tq_app_ext_table != nullptr)
        munmap(tq_app_ext_table, segment_size);
    forget();
}

/* Whether every text of an entry ends inside its field, as a reader sees it. */
inline bool texts_end(uint32_t type)
{
    const auto ends = [](const char *text, size_t room) { return strnlen(text, room) < room; };
    return ends(tq_app_type2name(type), 96) && ends(tq_app_type2name_cn(type), 96) &&
           ends(tq_app_type2category(type), 96) && ends(tq_app_type2category_cn(type), 96) &&
           ends(tq_app_type2subcategory(type), 96) && ends(tq_app_type2subcategory_cn(type), 96) &&
           ends(tq_app_type2technology(static_cast<int>(type)), 64);
}

} // namespace catalogue

#endif
