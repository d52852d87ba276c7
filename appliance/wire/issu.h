/* What the upgrade manager puts into its records. The requests are libmix's (src/sys/issu_wire.h). */
#ifndef MIX_APPLIANCE_WIRE_ISSU_H
#define MIX_APPLIANCE_WIRE_ISSU_H

#include "sys/issu_wire.h"

namespace mix::wire
{

enum class upgrade_state : uint32_t { idle, checking, loading, moving, restarting, done, failed };
inline constexpr const char *upgrade_state_names[] = {"idle",       "checking", "loading", "moving sessions",
                                                      "restarting", "done",     "failed"};

/* The summary. */
struct [[gnu::packed]] upgrade_summary {
    upgrade_state state;
    uint32_t percent;
    uint32_t processors;
    uint32_t upgraded; /* of the processors */
    uint32_t config_locked;
    uint32_t notices; /* messages without an answer that came in */
    char running[128];
    char target[128];
    char image[128];
    char text[256];       /* of the last step, or of the last refusal */
    uint32_t last_notice; /* its issu_code, when notices is not 0 */
    uint16_t notice_slot; /* of the board that took it */
    uint16_t notice_cpu;
    uint16_t notice_daemon;
    uint16_t notice_words[4]; /* what it carried: up to four words, or one number, low half first */
    uint8_t reserved[30];
};
static_assert(sizeof(upgrade_summary) == sizeof(issu_sum_reply::summary));

/* The graceful-shutdown record. */
struct [[gnu::packed]] graceful_record {
    uint32_t modules; /* shut down so far */
    char last[128];   /* name of the last one */
    char second[32];
    uint32_t cpu; /* as it was asked for */
    uint16_t words[2];
    uint8_t reserved[288];
};
static_assert(sizeof(graceful_record) == sizeof(issu_gshut_reply::record));

struct [[gnu::packed]] upgrade_processor {
    uint16_t slot;
    uint16_t cpu;
    upgrade_state state;
    uint32_t percent;
    char version[28];
};
static_assert(sizeof(upgrade_processor) == issu_status_entry_size);

struct upgrade_notice_name {
    issu_code code;
    const char *name;
};
inline constexpr upgrade_notice_name upgrade_notices[] = {
    {issu_code::nat_transfer, "NAT transfer"},
    {issu_code::report_nat_transfer, "NAT transfer report"},
    {issu_code::sess_transfer, "session transfer"},
    {issu_code::report_sess_transfer, "session transfer report"},
    {issu_code::nat_merge, "NAT merge"},
    {issu_code::lock_cfg, "configuration lock"},
    {issu_code::report_ssmha_warm_sync, "warm synchronisation report"},
    {issu_code::ssmha_warm_sync_poll, "warm synchronisation poll"},
    {issu_code::dmcu_switch, "control unit switch"},
};

/* issu_start: how strict. */
enum upgrade_mode : uint32_t { upgrade_checked = 0, upgrade_forced = 1 };
/* issu_check's result and the answer to loading an image. */
enum upgrade_answer : uint32_t {
    upgrade_ok = 0,
    upgrade_no_image = 1,
    upgrade_bad_image = 2,
    upgrade_incompatible = 3,
    upgrade_busy = 4
};
/* Which lists issu_image_clist_get asks for. */
enum upgrade_lists : uint32_t { lists_all = 0, lists_up = 1, lists_down = 2 };

} // namespace mix::wire

#endif
