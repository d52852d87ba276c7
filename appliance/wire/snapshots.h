/* Saved configurations: snapshots of mixd's store, listed, restored, deleted through the control daemon. */
#ifndef MIX_APPLIANCE_WIRE_SNAPSHOTS_H
#define MIX_APPLIANCE_WIRE_SNAPSHOTS_H

#include "appliance/wire/control.h"

namespace mix::wire
{

inline constexpr uint32_t control_list_snapshots = 240;   /* control_list; page of snapshot_row */
inline constexpr uint32_t control_restore_snapshot = 241; /* snapshot_name; no reply bytes */
inline constexpr uint32_t control_delete_snapshot = 244;  /* snapshot_name; no reply bytes */

struct [[gnu::packed]] snapshot_row {
    char name[64];  /* "vchassis-3" */
    char saver[64]; /* under which the save was recorded */
    char when[32];  /* as the saver gave it */
    uint64_t size;  /* bytes */
};

struct [[gnu::packed]] snapshot_name {
    char name[64];
};

} // namespace mix::wire

#endif
