// Talks to mixd's control service. libmix has nothing to do with it, so the platform library is asked
// directly.
#ifndef MIXSH_CONTROL_CLIENT_H
#define MIXSH_CONTROL_CLIENT_H

#include "appliance/mixsh/invocation.h"
#include "appliance/wire/control.h"

#include <cstring>

namespace mixsh::control
{

inline constexpr std::uint32_t timeout_ms = 2000;

// For invocation::fail().
constexpr request about(std::uint32_t type)
{
    return {.destination = mix::wire::control_daemon, .type = type};
}

struct answer {
    bool came = false; // and with a status of 0 or more; if not, the reason has been kept for the failure
    std::int32_t status = 0;
    std::vector<std::uint8_t> bytes;
};

answer ask(std::uint32_t type, const void *request, std::uint32_t length,
           std::uint32_t patience_ms = timeout_ms);

// A record at an offset; false if the bytes end before it does.
template <typename Record>
bool read(const std::vector<std::uint8_t> &bytes, std::size_t at, Record &out)
{
    if (at > bytes.size() || bytes.size() - at < sizeof(Record))
        return false;
    std::memcpy(&out, bytes.data() + at, sizeof(Record));
    return true;
}

// Whether the bytes are a page of whole rows; if not, the reason has been kept for the failure.
bool is_page(const answer &page, std::size_t row_size);

// Hands every row of a listing to `take` until that answers false. False after a failure.
template <typename Row, typename Take>
bool each_row(std::uint32_t type, Take take)
{
    mix::wire::control_list list{};
    do {
        const auto page = ask(type, &list, sizeof list);
        if (!page.came || !is_page(page, sizeof(Row)))
            return false;
        mix::wire::control_page header{};
        read(page.bytes, 0, header);
        for (std::uint32_t i = 0; i < header.count; ++i) {
            Row row{};
            read(page.bytes, sizeof header + i * sizeof(Row), row);
            if (!take(row))
                return true;
        }
        list.cursor = header.cursor;
    } while (list.cursor != 0);
    return true;
}

} // namespace mixsh::control

#endif
