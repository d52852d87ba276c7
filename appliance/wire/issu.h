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
    char text[256]; /* of the last step, or of the last refusal */
    uint8_t reserved[48];
};
static_assert(sizeof(upgrade_summary) == sizeof(issu_sum_reply::summary));

/* The graceful-shutdown record. */
struct [[gnu::packed]] graceful_record {
    uint32_t modules; /* shut down so far */
    char last[128];   /* name of the last one */
    char second[32];
    uint8_t reserved[296];
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
