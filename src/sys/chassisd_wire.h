/* Wire records of the chassis manager: daemon 17, and types 40 and 152 of the main local daemon. */
#ifndef MIX_SYS_CHASSISD_WIRE_H
#define MIX_SYS_CHASSISD_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t chassis_manager = 17;
inline constexpr uint32_t chassis_main = 0;

/* --- slot table: type 153 --- */

inline constexpr uint32_t slot_status_type = 153;
inline constexpr uint16_t slot_status_ask = 0;
inline constexpr uint16_t slot_status_answer = 1;
inline constexpr uint32_t slot_status_capacity = 5000;

/* Heads the request, which has no data, and the reply, whose entries follow. */
struct [[gnu::packed]] slot_status_header {
    uint16_t subtype;
    uint32_t unused;
    uint16_t data_length;
};
static_assert(sizeof(slot_status_header) == 8);
static_assert(offsetof(slot_status_header, subtype) == 0);
static_assert(offsetof(slot_status_header, data_length) == 6);

struct [[gnu::packed]] slot_entry {
    uint16_t slot;
    uint16_t cpu;
    uint32_t card_type;
    uint8_t unused[32];
    uint32_t state;
    uint32_t role;
};
static_assert(sizeof(slot_entry) == 48);
static_assert(offsetof(slot_entry, slot) == 0);
static_assert(offsetof(slot_entry, cpu) == 2);
static_assert(offsetof(slot_entry, card_type) == 4);
static_assert(offsetof(slot_entry, unused) == 8);
static_assert(offsetof(slot_entry, state) == 40);
static_assert(offsetof(slot_entry, role) == 44);

enum slot_state : uint32_t {
    slot_last_absent = 2,  /* a state above it: the card is present */
    slot_last_present = 8, /* a state above it: the card has entered booting */
    slot_online = 15
};
inline constexpr uint32_t slot_role_counted = 6; /* the card's processors count for the system's CPU figure */

/* --- CPU, memory, storage: type 24 --- */

inline constexpr uint32_t chassis_query_type = 24;

enum chassis_query : uint32_t {
    chassis_cpu_record = 6,
    chassis_slot_mem = 11,
    chassis_set_mem_mode = 12,
    chassis_harddisk = 13,
    chassis_flash = 14,
    chassis_cpu_temp = 28
};

struct [[gnu::packed]] chassis_query_request {
    uint32_t subtype; /* of a bypass query, the bypass asked for */
};
static_assert(sizeof(chassis_query_request) == 4);

/* Processor information, by sub-type: the reply's capacity, a byte more than what it holds. */
struct cpu_reply {
    uint32_t subtype;
    uint32_t capacity;
};
inline constexpr cpu_reply cpu_replies[] = {
    {5, 33}, {chassis_cpu_record, 33}, {7, 597}, {8, 17533}, {9, 17533}, {10, 7021}, {24, 17}};

/* 0: there is no such sub-type. */
constexpr uint32_t cpu_reply_capacity(uint32_t subtype)
{
    for (const cpu_reply &each : cpu_replies)
        if (each.subtype == subtype)
            return each.capacity;
    return 0;
}

/* The reply of sub-type 6. */
struct [[gnu::packed]] cpu_record_reply {
    uint8_t unused[12];
    uint32_t record[5];
    uint8_t end;
};
static_assert(sizeof(cpu_record_reply) == cpu_reply_capacity(chassis_cpu_record));
static_assert(offsetof(cpu_record_reply, record) == 12);

struct [[gnu::packed]] slot_mem_reply {
    uint64_t figures[10];
    uint8_t end;
};
static_assert(sizeof(slot_mem_reply) == 81);

struct [[gnu::packed]] mem_mode_request {
    uint32_t subtype;
    uint8_t unused[72];
    uint32_t mode;
    uint32_t end;
};
static_assert(sizeof(mem_mode_request) == 84);
static_assert(offsetof(mem_mode_request, mode) == 76);

struct [[gnu::packed]] cpu_temp_message {
    uint32_t subtype;
    uint16_t slot;
    uint16_t cpu;
    int16_t temperature; /* of the reply; degrees, as the manager has them */
    uint16_t unused;
};
static_assert(sizeof(cpu_temp_message) == 12);
static_assert(offsetof(cpu_temp_message, slot) == 4);
static_assert(offsetof(cpu_temp_message, cpu) == 6);
static_assert(offsetof(cpu_temp_message, temperature) == 8);

inline constexpr uint32_t bypass_capacity = 4176;

struct [[gnu::packed]] storage_figures_reply {
    uint64_t figures[3];
    uint8_t end;
};
static_assert(sizeof(storage_figures_reply) == 25);

/* --- modules: type 149 --- */

inline constexpr uint32_t module_type = 149;

enum module_code : uint32_t { module_of_slot = 4, module_number = 19, module_info = 20 };

/* Request and reply, one layout. A slot's FRU block overlaps most of it. */
struct [[gnu::packed]] module_message {
    uint32_t code;
    uint8_t unused_4[8];
    uint32_t platform_id; /* also where the 208-byte FRU block starts */
    uint8_t unused_16[2];
    char second_text[32];
    uint8_t unused_50[4];
    uint16_t slot;
    uint8_t unused_56[34];
    char name[64];
    uint8_t unused_154[50];
    uint32_t kind; /* or the slot's state */
    uint32_t data_kind;
    uint32_t value; /* of a request an index, of a reply a count */
    uint32_t end;
};
static_assert(sizeof(module_message) == 220);
static_assert(offsetof(module_message, code) == 0);
static_assert(offsetof(module_message, platform_id) == 12);
static_assert(offsetof(module_message, second_text) == 18);
static_assert(offsetof(module_message, slot) == 54);
static_assert(offsetof(module_message, name) == 90);
static_assert(offsetof(module_message, kind) == 204);
static_assert(offsetof(module_message, data_kind) == 208);
static_assert(offsetof(module_message, value) == 212);

inline constexpr uint32_t module_capacity = 221;
inline constexpr uint32_t module_slot_capacity = 4000; /* of the queries by slot */
inline constexpr uint32_t module_data_number = 3;
inline constexpr uint32_t module_data_info = 4;
inline constexpr uint32_t module_fru_size = 208;

/* --- slot configuration: type 224; detaching a slot: type 152 --- */

inline constexpr uint32_t slot_cfg_type = 224;

enum slot_cfg_code : uint32_t { slot_cfg_is_removable = 1, slot_cfg_clear = 2 };

struct [[gnu::packed]] slot_cfg_message {
    uint32_t code;
    uint16_t slot;
    uint16_t zero;
    uint32_t answer;
};
static_assert(sizeof(slot_cfg_message) == 12);
static_assert(offsetof(slot_cfg_message, slot) == 4);
static_assert(offsetof(slot_cfg_message, zero) == 6);
static_assert(offsetof(slot_cfg_message, answer) == 8);

inline constexpr uint32_t slot_detach_type = 152;
inline constexpr uint32_t slot_detach = 30;

struct [[gnu::packed]] slot_detach_request {
    uint32_t code;
    uint16_t slot;
    uint16_t zero;
    uint32_t zero_too;
    uint8_t unused[44];
};
static_assert(sizeof(slot_detach_request) == 56);
static_assert(offsetof(slot_detach_request, slot) == 4);
static_assert(offsetof(slot_detach_request, zero) == 6);
static_assert(offsetof(slot_detach_request, zero_too) == 8);

/* --- data packet buffer pools: type 40 --- */

inline constexpr uint32_t buffer_pool_type = 40;
inline constexpr uint32_t buffer_pool_show = 9;

struct [[gnu::packed]] buffer_pool_message {
    uint32_t code;
    uint32_t pool;
    uint32_t figures[4]; /* of the reply */
};
static_assert(sizeof(buffer_pool_message) == 24);
static_assert(offsetof(buffer_pool_message, pool) == 4);
static_assert(offsetof(buffer_pool_message, figures) == 8);

/* --- notices about virtual-chassis cards: type 651 --- */

inline constexpr uint32_t card_notice_type = 651;

enum card_notice_code : uint32_t { card_boot = 1, card_stop = 3, card_reboot = 9 };

struct [[gnu::packed]] card_notice_request {
    uint32_t code;
    uint8_t card[6];
    uint8_t unused[254];
};
static_assert(sizeof(card_notice_request) == 264);
static_assert(offsetof(card_notice_request, card) == 4);

struct [[gnu::packed]] card_notice_reply {
    uint16_t answer;
    uint8_t end;
};
static_assert(sizeof(card_notice_reply) == 3);

} // namespace mix::wire

#endif
