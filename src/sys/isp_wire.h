/* Wire record of the ISP table: daemon 6, message type 128. */
#ifndef MIX_SYS_ISP_WIRE_H
#define MIX_SYS_ISP_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t isp_daemon = 6;
inline constexpr uint32_t isp_type = 128;
inline constexpr uint32_t isp_check = 0x01000000;

struct [[gnu::packed]] isp_request {
    uint32_t code;
    uint8_t zero[60];
    uint32_t address;
    uint32_t isp;
    uint8_t end;
};
static_assert(sizeof(isp_request) == 73);
static_assert(offsetof(isp_request, code) == 0);
static_assert(offsetof(isp_request, address) == 64);
static_assert(offsetof(isp_request, isp) == 68);
static_assert(offsetof(isp_request, end) == 72);

} // namespace mix::wire

#endif
