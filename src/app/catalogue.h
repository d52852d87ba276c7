/* The catalogue as a process sees it; shared by the lookups, the writers, the export and the appliance. */
#ifndef MIX_APP_CATALOGUE_H
#define MIX_APP_CATALOGUE_H

#include <cctype>
#include <cstdint>
#include <cstdio>

#include "app/app_wire.h"
#include "platform/board.h"

namespace mix::app
{

using wire::app_entries;
using wire::app_first_user_defined;
using wire::app_last;

/* The entries, or NULL before the process has attached. Pairs with the store that publishes them. */
inline app_entry *entries()
{
    return __atomic_load_n(&tq_app_ext_table, __ATOMIC_ACQUIRE);
}

/* Of this board's segment. */
struct segment_name {
    char name[64];
    char path[128];
};

inline segment_name name_of_segment()
{
    segment_name out{};
    if (tq_is_numa_platform() != 0)
        std::snprintf(out.name, sizeof out.name, "app_ext_table_%d", static_cast<int>(tq_get_slot()));
    else
        std::snprintf(out.name, sizeof out.name, "app_ext_table");
    std::snprintf(out.path, sizeof out.path, "/dev/shm/%s", out.name);
    return out;
}

/* Makes a lock that several processes use. */
inline void make_shared(pthread_rwlock_t &lock)
{
    pthread_rwlockattr_t shared;
    pthread_rwlockattr_init(&shared);
    pthread_rwlockattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
    pthread_rwlock_init(&lock, &shared);
    pthread_rwlockattr_destroy(&shared);
}

/* The flag is set last when an entry is added: whoever sees it sees the entry's names and keys. */
inline bool is_in_use(const app_entry &entry)
{
    return __atomic_load_n(&entry.in_use, __ATOMIC_ACQUIRE) != 0;
}

/* The entry of a type in lowest..16382 that is in use; NULL when there is none or nothing is attached. */
inline app_entry *find(int64_t type, int64_t lowest)
{
    app_entry *all = entries();
    if (all == nullptr || type < lowest || type > app_last || !is_in_use(all[type]))
        return nullptr;
    return &all[type];
}

/*
 * The first four bytes in upper case, the first lowest. The letters above 127 go to toupper as negative
 * numbers on every machine, also where char is unsigned: the keys in the segment are shared between them.
 */
inline uint32_t key_of(const char *name)
{
    uint32_t key = 0;
    for (int i = 0; i < 4 && name[i] != '\0'; i++) {
        const int upper = std::toupper(static_cast<signed char>(name[i]));
        key |= uint32_t{static_cast<uint8_t>(upper)} << (8 * i);
    }
    return key;
}

} // namespace mix::app

#endif
