/* Requests put together byte by byte, and their answers taken apart: what goes over the wire, by offsets. */
#ifndef MIX_TESTS_RAW_REQUESTS_H
#define MIX_TESTS_RAW_REQUESTS_H

#include "support/mixd_fixture.h"

namespace mixtest
{

inline constexpr const char *main_daemon = "node0/0.0.sock";
inline constexpr const char *inspection_daemon = "node0/0.1.sock";

/* Asks once, on a connection of its own; an answer of zeros when there is none. */
inline raw_answer ask_once(const mixd_process &mixd, const char *daemon, uint32_t type, const bytes &request)
{
    raw_client client;
    if (!client.open(mixd, daemon))
        return {};
    return client.ask(type, request).value_or(raw_answer{});
}

/* A request of `size` zeros with these bytes at these places. */
inline bytes request_of(size_t size, std::initializer_list<std::pair<size_t, uint8_t>> set = {})
{
    bytes made(size);
    for (const auto &[at, value] : set)
        made[at] = value;
    return made;
}

inline bytes part(const bytes &of, size_t at, size_t size)
{
    if (at + size > of.size())
        return {};
    return {of.begin() + static_cast<ptrdiff_t>(at), of.begin() + static_cast<ptrdiff_t>(at + size)};
}

inline uint32_t u32_at(const bytes &of, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 0; i < sizeof value && at + i < of.size(); ++i)
        value |= uint32_t{of[at + i]} << (8 * i);
    return value;
}

inline std::string text_at(const bytes &of, size_t at)
{
    std::string text;
    while (at < of.size() && of[at] != 0)
        text += static_cast<char>(of[at++]);
    return text;
}

/* A request that must not be made, and the status it is refused with. */
struct bad_request {
    const char *name;
    const char *daemon;
    uint32_t type;
    bytes request;
    int32_t status;
};

inline void PrintTo(const bad_request &one, std::ostream *out)
{
    *out << one.name;
}

} // namespace mixtest

#endif
