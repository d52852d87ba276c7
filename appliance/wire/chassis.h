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

/* As many as the clients' buffers take. */
inline constexpr uint32_t most_slots =
    (slot_status_capacity - sizeof(slot_status_header)) / sizeof(slot_entry);
static_assert(most_slots == 104);

enum slot_card_state : uint32_t { slot_empty = 1, slot_booting = 9, slot_loading = 11, slot_offline = 17 };

/* What the chassis manager tells of processors beside the record (chassis_cpu_record), by sub-type. */
enum cpu_detail : uint32_t {
    cpu_since_start = 5, /* the record, but of all the time since the board started */
    cpu_each = 7,        /* table of cpu_each_row */
    cpu_processes = 8,   /* table of cpu_process_row, most processor time first */
    cpu_memory = 9,      /* the same, most memory first */
    cpu_interrupts = 10, /* table of cpu_interrupt_row */
    cpu_summary = 24
};

/* Heads the tables. */
struct [[gnu::packed]] cpu_table_head {
    uint32_t subtype;
    uint32_t count; /* of rows that follow */
    uint32_t all;   /* how many there are, when they don't all fit */
};
static_assert(sizeof(cpu_table_head) == offsetof(cpu_record_reply, record));

/* In percent, since it was asked for the last time. */
struct [[gnu::packed]] cpu_each_row {
    uint16_t number;
    uint16_t busy;
    uint16_t user;
    uint16_t system;
};

struct [[gnu::packed]] cpu_process_row {
    uint32_t pid;
    uint32_t threads;
    uint64_t cpu_ms; /* processor time, all told */
    uint64_t memory_kib;
    char name[24];
};

struct [[gnu::packed]] cpu_interrupt_row {
    uint64_t count; /* on all processors */
    char name[8];   /* "24", "LOC" */
    char what[32];
};

struct [[gnu::packed]] cpu_summary_reply {
    uint32_t subtype;
    uint32_t processors; /* on line */
    uint32_t load;       /* the one-minute load, times 100 */
    uint32_t up_seconds;
};

/* The rows that a reply holds. */
constexpr uint32_t cpu_rows(cpu_detail subtype, uint32_t row)
{
    return (cpu_reply_capacity(subtype) - 1 - static_cast<uint32_t>(sizeof(cpu_table_head))) / row;
}
inline constexpr uint32_t most_cpu_each = cpu_rows(cpu_each, sizeof(cpu_each_row));
inline constexpr uint32_t most_cpu_processes = cpu_rows(cpu_processes, sizeof(cpu_process_row));
inline constexpr uint32_t most_cpu_interrupts = cpu_rows(cpu_interrupts, sizeof(cpu_interrupt_row));
static_assert(most_cpu_each == 73 && most_cpu_processes == 365 && most_cpu_interrupts == 146);
static_assert(sizeof(cpu_summary_reply) + 1 == cpu_reply_capacity(cpu_summary));

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

/* A module's FRU block: the bytes 12 to 219 of the module's message, with what the message leaves to it. */
struct [[gnu::packed]] module_fru {
    uint32_t platform_id;
    uint8_t unused_4[2];
    char serial[32];
    uint8_t unused_38[4];
    uint16_t slot;
    char part_number[34];
    char name[64];
    char revision[16];
    uint32_t made; /* seconds since 1970; 0: not known */
    uint8_t unused_162[30];
    uint32_t state;
    uint8_t unused_196[12];
};
static_assert(sizeof(module_fru) == module_fru_size);
static_assert(offsetof(module_fru, serial) == offsetof(module_message, second_text) - 12);
static_assert(offsetof(module_fru, slot) == offsetof(module_message, slot) - 12);
static_assert(offsetof(module_fru, part_number) == offsetof(module_message, unused_56) - 12);
static_assert(offsetof(module_fru, name) == offsetof(module_message, name) - 12);
static_assert(offsetof(module_fru, revision) == offsetof(module_message, unused_154) - 12);
static_assert(offsetof(module_fru, state) == offsetof(module_message, kind) - 12);
inline constexpr size_t module_fru_at = offsetof(module_message, platform_id);

} // namespace mix::wire

#endif
