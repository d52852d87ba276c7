/* Wire records of the upgrade manager: message type 248. */
#ifndef MIX_SYS_ISSU_WIRE_H
#define MIX_SYS_ISSU_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t issu_type = 248;
inline constexpr uint32_t issu_manager = 17; /* the upgrade manager's own address */
inline constexpr uint32_t issu_main = 0;
inline constexpr uint32_t issu_config = 2; /* the daemon that holds the configuration lock */
inline constexpr uint32_t issu_reply_capacity = 16000;

enum class issu_code : uint32_t {
    show_sum = 0,
    start = 1,
    nat_transfer = 4,
    report_nat_transfer = 6,
    sess_transfer = 7,
    report_sess_transfer = 8,
    cpu_status = 9,
    check = 10,
    nat_merge = 11,
    sm_shut = 12,
    lock_cfg = 13,
    ver_get = 14,
    buf_image_ver_get = 15,
    show_gshut = 16,
    buf_image_load = 17,
    image_clist = 18,
    report_ssmha_warm_sync = 19,
    ssmha_warm_sync_poll = 20,
    dmcu_switch = 21
};

/* Where a command has no parameter the code fills 64 bits, so `parameter` is then always 0. */
struct [[gnu::packed]] issu_request {
    issu_code code;
    uint32_t parameter;
};
static_assert(sizeof(issu_request) == 8);
static_assert(offsetof(issu_request, code) == 0);
static_assert(offsetof(issu_request, parameter) == 4);

struct [[gnu::packed]] issu_words_request {
    issu_code code;
    uint32_t zero;
    uint16_t a, b, c, d; /* of a session transfer the first two are slot and cpu */
};
static_assert(sizeof(issu_words_request) == 16);
static_assert(offsetof(issu_words_request, a) == 8);
static_assert(offsetof(issu_words_request, b) == 10);
static_assert(offsetof(issu_words_request, c) == 12);
static_assert(offsetof(issu_words_request, d) == 14);

struct [[gnu::packed]] issu_value_request {
    issu_code code;
    uint32_t zero;
    uint32_t value;
};
static_assert(sizeof(issu_value_request) == 12);
static_assert(offsetof(issu_value_request, value) == 8);

struct [[gnu::packed]] issu_short_request {
    issu_code code;
    uint32_t zero;
    uint16_t value;
};
static_assert(sizeof(issu_short_request) == 10);
static_assert(offsetof(issu_short_request, value) == 8);

struct [[gnu::packed]] issu_page_request {
    issu_code code;
    uint32_t cpu;
    uint32_t cursor;
};
static_assert(sizeof(issu_page_request) == 12);
static_assert(offsetof(issu_page_request, cpu) == 4);
static_assert(offsetof(issu_page_request, cursor) == 8);

struct [[gnu::packed]] issu_start_request {
    issu_code code;
    uint32_t mode;
    char name[128];
    char second_name[32];
};
static_assert(sizeof(issu_start_request) == 168);
static_assert(offsetof(issu_start_request, mode) == 4);
static_assert(offsetof(issu_start_request, name) == 8);
static_assert(offsetof(issu_start_request, second_name) == 136);

struct [[gnu::packed]] issu_shut_request {
    issu_code code;
    uint32_t cpu;
    char name[128];
    char second_name[32];
    uint16_t p, q;
};
static_assert(sizeof(issu_shut_request) == 172);
static_assert(offsetof(issu_shut_request, cpu) == 4);
static_assert(offsetof(issu_shut_request, name) == 8);
static_assert(offsetof(issu_shut_request, second_name) == 136);
static_assert(offsetof(issu_shut_request, p) == 168);
static_assert(offsetof(issu_shut_request, q) == 170);

struct [[gnu::packed]] issu_load_request {
    issu_code code;
    uint32_t zero;
    char path[128];
};
static_assert(sizeof(issu_load_request) == 136);
static_assert(offsetof(issu_load_request, path) == 8);

struct [[gnu::packed]] issu_clist_request {
    issu_code code;
    uint32_t cpu;
    uint32_t selector;
    char name[128];
};
static_assert(sizeof(issu_clist_request) == 140);
static_assert(offsetof(issu_clist_request, cpu) == 4);
static_assert(offsetof(issu_clist_request, selector) == 8);
static_assert(offsetof(issu_clist_request, name) == 12);

/* Replies: 8 bytes that belong to the manager, then the data. */
struct [[gnu::packed]] issu_sum_reply {
    uint8_t header[8];
    uint8_t summary[712];
};
static_assert(sizeof(issu_sum_reply) == 720);
static_assert(offsetof(issu_sum_reply, summary) == 8);

struct [[gnu::packed]] issu_gshut_reply {
    uint8_t header[8];
    uint8_t record[460];
};
static_assert(sizeof(issu_gshut_reply) == 468);
static_assert(offsetof(issu_gshut_reply, record) == 8);

struct [[gnu::packed]] issu_version_reply {
    uint8_t header[8];
    char version[128];
};
static_assert(sizeof(issu_version_reply) == 136);
static_assert(offsetof(issu_version_reply, version) == 8);

struct [[gnu::packed]] issu_check_reply {
    uint8_t header[8];
    uint32_t result;
    char text[128]; /* a longer text may follow */
};
static_assert(sizeof(issu_check_reply) == 140);
static_assert(offsetof(issu_check_reply, result) == 8);
static_assert(offsetof(issu_check_reply, text) == 12);

struct [[gnu::packed]] issu_result_reply {
    uint8_t header[8];
    uint32_t result;
};
static_assert(sizeof(issu_result_reply) == 12);
static_assert(offsetof(issu_result_reply, result) == 8);

struct [[gnu::packed]] issu_clist_reply {
    uint8_t header[8];
    uint32_t unused;
    uint32_t length; /* of the list's text, which follows */
};
static_assert(sizeof(issu_clist_reply) == 16);
static_assert(offsetof(issu_clist_reply, length) == 12);

/* A page of processors: the entries follow. */
struct [[gnu::packed]] issu_page_reply {
    uint8_t header[8];
    uint32_t cursor;
    uint32_t more; /* not 0: another page follows at the cursor */
    uint32_t count;
};
static_assert(sizeof(issu_page_reply) == 20);
static_assert(offsetof(issu_page_reply, cursor) == 8);
static_assert(offsetof(issu_page_reply, more) == 12);
static_assert(offsetof(issu_page_reply, count) == 16);

inline constexpr uint32_t issu_status_entry_size = 40;

} // namespace mix::wire

#endif
