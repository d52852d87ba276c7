#include <libmix/ip_util.h>

#include <algorithm>

#include "addr/lan_wire.h"
#include "platform/shared_mem.h"

namespace
{

using namespace mix::wire;

/* The writer may be at work: each value is loaded once, so that what was checked is what is used. */
template <class T>
T load(const T &shared)
{
    return __atomic_load_n(&shared, __ATOMIC_RELAXED);
}

bool holds(const lan_entry &entry, uint32_t ip)
{
    const uint32_t length = load(entry.length);
    return length <= 32 && ((ip ^ load(entry.network)) & masklen2make[length]) == 0;
}

} // namespace

void *lan_addrs = nullptr;

int init_lan_addr(void) noexcept
{
    lan_addrs = init_shared_mem(lan_segment_name, lan_segment_size);
    return lan_addrs != nullptr;
}

int is_lan_addr(uint32_t ip) noexcept
{
    const auto *table = static_cast<const lan_table *>(lan_addrs);
    if (table == nullptr)
        return 0;
    const int32_t count = std::min(load(table->count), lan_entries_max);
    for (int32_t k = 0; k < count; k++) {
        if (holds(table->entries[k], ip))
            return 1;
    }
    return 0;
}
