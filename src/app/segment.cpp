#include <libmix/app_table.h>

#include <cstdio>
#include <unistd.h>

#include "app/catalogue.h"
#include "platform/board.h"
#include "platform/shared_mem.h"

app_entry *tq_app_ext_table = nullptr;
void *app_table_rwlock = nullptr;
uint32_t *cur_app_num = nullptr;
uint32_t *cur_predef_app_num = nullptr;

namespace
{

using namespace mix;

/* Two threads of a process may attach at once. */
pthread_mutex_t attaching = PTHREAD_MUTEX_INITIALIZER;

struct segment_name {
    char name[64];
    char path[128];
};

segment_name name_of_segment()
{
    segment_name out{};
    if (tq_is_numa_platform() != 0)
        std::snprintf(out.name, sizeof out.name, "app_ext_table_%d", static_cast<int>(tq_get_slot()));
    else
        std::snprintf(out.name, sizeof out.name, "app_ext_table");
    std::snprintf(out.path, sizeof out.path, "/dev/shm/%s", out.name);
    return out;
}

void make_lock(pthread_rwlock_t *lock)
{
    pthread_rwlockattr_t shared;
    pthread_rwlockattr_init(&shared);
    pthread_rwlockattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
    pthread_rwlock_init(lock, &shared);
    pthread_rwlockattr_destroy(&shared);
}

void attach()
{
    const segment_name segment = name_of_segment();
    const bool creator = access(segment.path, F_OK) != 0;
    auto *base = static_cast<uint8_t *>(init_shared_mem(segment.name, sizeof(wire::app_segment)));
    if (base == nullptr)
        return; /* unattached: every lookup answers as if the catalogue were empty */
    auto *lock = reinterpret_cast<pthread_rwlock_t *>(base + offsetof(wire::app_segment, lock));
    if (creator)
        make_lock(lock);
    app_table_rwlock = lock;
    cur_app_num = reinterpret_cast<uint32_t *>(base + offsetof(wire::app_segment, cur_app_num));
    cur_predef_app_num = reinterpret_cast<uint32_t *>(base + offsetof(wire::app_segment, cur_predef_app_num));
    /* Last: who sees the entries may use the lock and the counters. */
    __atomic_store_n(&tq_app_ext_table, reinterpret_cast<app_entry *>(base), __ATOMIC_RELEASE);
}

} // namespace

int tq_app_table_init() noexcept
{
    if (app::entries() != nullptr)
        return 1;
    pthread_mutex_lock(&attaching);
    if (app::entries() == nullptr)
        attach();
    pthread_mutex_unlock(&attaching);
    return 1;
}
