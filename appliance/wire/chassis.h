/*
 * What the chassis manager puts where its clients look at nothing or at little. The requests are libmix's
 * (src/sys/chassisd_wire.h). A slot is addressed as node slot + 1, a processor as its instance.
 */
#ifndef MIX_APPLIANCE_WIRE_CHASSIS_H
#define MIX_APPLIANCE_WIRE_CHASSIS_H

#include "sys/chassisd_wire.h"

namespace mix::wire
{

/* The bytes 8 to 39 of a slot entry. */
struct [[gnu::packed]] slot_entry_own {
    char name[24];
    uint32_t cpus;
    uint32_t in_state; /* seconds */
};
static_assert(sizeof(slot_entry_own) == sizeof(slot_entry::unused));

enum slot_card_state : uint32_t { slot_empty = 1, slot_booting = 9, slot_loading = 11, slot_offline = 17 };

/* The five fields of a processor's record. */
enum cpu_field : uint32_t { cpu_count, cpu_busy, cpu_user, cpu_system, cpu_load, cpu_fields };
/* busy, user and system in percent; load: the one-minute load, times 100. */
static_assert(cpu_fields == sizeof(cpu_record_reply::record) / sizeof(uint32_t));

/* The ten memory figures, in KiB but the percentage and the mode. */
enum mem_field : uint32_t {
    mem_total,
    mem_free,
    mem_available,
    mem_buffers,
    mem_cached,
    mem_swap_total,
    mem_swap_free,
    mem_used,
    mem_used_percent,
    mem_mode,
    mem_fields
};
static_assert(mem_fields == sizeof(slot_mem_reply::figures) / sizeof(uint64_t));

/* How used memory is calculated. */
enum mem_calc_mode : uint32_t {
    mem_without_caches = 0, /* what can't be had back: total less available */
    mem_with_caches = 1     /* all that is not free */
};

/* Storage figures, in KiB. */
enum storage_field : uint32_t { storage_total, storage_used, storage_free };

/* Of a buffer pool. */
enum pool_field : uint32_t { pool_total, pool_used, pool_free, pool_failed };

/* The reply to a bypass query. */
struct [[gnu::packed]] bypass_reply {
    uint32_t which;
    uint32_t supported; /* 1 when the board has such a bypass */
    uint32_t on;
};

} // namespace mix::wire

#endif
