#include <libmix/app_table.h>

#include <unistd.h>

#include "app/catalogue.h"
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

void attach()
{
    const app::segment_name segment = app::name_of_segment();
    const bool creator = access(segment.path, F_OK) != 0;
    auto *base = static_cast<uint8_t *>(init_shared_mem(segment.name, sizeof(wire::app_segment)));
    if (base == nullptr)
        return; /* unattached: every lookup answers as if the catalogue were empty */
    auto *lock = reinterpret_cast<pthread_rwlock_t *>(base + offsetof(wire::app_segment, lock));
    if (creator)
        app::make_shared(*lock);
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
