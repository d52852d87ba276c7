#include <libmix/app_table.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "app/catalogue.h"
#include "frame/record.h"

namespace
{

using namespace mix;

constexpr uint16_t big_endian(uint16_t value)
{
    return __builtin_bswap16(value); /* the machines that libmix runs on are little-endian */
}

void export_entry(wire::app_export &record, const app_entry &entry, uint32_t index)
{
    record = {};
    const bool predefined = index < app::app_first_user_defined;
    /* Entry 0 is "Other" in the catalogue and "Any" to the peer. */
    const char *name = index == 0 ? "Any" : entry.name;
    const char *name_cn = index == 0 ? "Any" : entry.name_cn;
    uint16_t type = predefined ? entry.type : static_cast<uint16_t>(index);
    if (index == 0)
        type = 0;
    record.type = big_endian(type);
    record.marker = predefined ? 0 : 0xffff;
    record.kind = predefined ? 2 : 0;
    frame::copy_name(record.name, sizeof record.name, name);
    frame::copy_name(record.name_cn, sizeof record.name_cn, name_cn);
}

} // namespace

int tq_get_all_app_to_x86(void *buf, int buf_len, uint32_t *cursor, int *out_len) noexcept
{
    const app_entry *all = app::entries();
    if (all == nullptr) {
        std::printf("%s: tq_app_ext_table is NULL.\n", "tq_get_all_app_to_x86");
        return -1;
    }
    if (buf == nullptr || cursor == nullptr || out_len == nullptr) {
        std::printf("%s: parameter is NULL.\n", "tq_get_all_app_to_x86");
        return -1;
    }
    /* Each record is cleared as it is written, while it is in the cache; at last what is left of the page. */
    const auto size = static_cast<size_t>(std::max(buf_len, 0));
    auto *record = static_cast<wire::app_export *>(buf);
    size_t room = size / sizeof *record;
    for (; room != 0 && *cursor < app::app_entries; ++*cursor) {
        if (!app::is_in_use(all[*cursor]))
            continue;
        export_entry(*record, all[*cursor], *cursor);
        *out_len += static_cast<int>(sizeof *record);
        record++;
        room--;
    }
    auto *rest = reinterpret_cast<uint8_t *>(record);
    std::memset(rest, 0, static_cast<size_t>(static_cast<uint8_t *>(buf) + size - rest));
    return 0;
}
