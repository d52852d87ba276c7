/* Wire records of the port driver (daemon 1, type 59) and of the data-plane counters (daemon 0, type 69). */
#ifndef MIX_SYS_DRV_WIRE_H
#define MIX_SYS_DRV_WIRE_H

#include <cstddef>
#include <cstdint>

namespace mix::wire
{

inline constexpr uint32_t drv_daemon = 1;
inline constexpr uint32_t drv_type = 59;
inline constexpr uint32_t drv_main = 0; /* answers data-plane driver information and the counters */

enum drv_code : uint32_t {
    drv_port_info = 4,
    drv_port_stats = 5,
    drv_bridge_stats = 7,
    drv_port_maxnum = 13,
    drv_dev_ioctl = 20,
    drv_hwif_ioctl = 21,
    drv_eye = 38, /* serdes data, too */
    drv_port_drv_info = 40,
    drv_px_config = 48,
    drv_set_px_config = 51,
    drv_port_valid = 52,
    drv_dp_drv_info = 92
};

inline constexpr uint32_t drv_message_size = 12568;
inline constexpr uint32_t drv_query_size = 20760;
inline constexpr uint32_t drv_bridge_size = 20832;

/* Heads every message of the driver but the control requests; reply data starts at option_a. */
struct [[gnu::packed]] drv_head {
    uint32_t code;
    uint32_t flag; /* 1: of the whole unit; of a validity query the caller's flag */
    uint16_t slot; /* 0: this board */
    uint16_t cpu;
    uint16_t index;
    uint16_t port;
    uint8_t zero[32];
    uint8_t option_a;
    uint8_t option_b;
};
static_assert(offsetof(drv_head, code) == 0);
static_assert(offsetof(drv_head, flag) == 4);
static_assert(offsetof(drv_head, slot) == 8);
static_assert(offsetof(drv_head, cpu) == 10);
static_assert(offsetof(drv_head, index) == 12);
static_assert(offsetof(drv_head, port) == 14);
static_assert(offsetof(drv_head, option_a) == 48);
static_assert(offsetof(drv_head, option_b) == 49);

inline constexpr uint32_t drv_data = 48;
inline constexpr uint32_t drv_serdes_size = 7;
inline constexpr uint32_t drv_port_info_size = 40;
inline constexpr uint32_t drv_dp_info_size = 88;
inline constexpr uint32_t drv_dp_name = 40; /* offset of the name in it */

/* Data-plane driver information. */
struct [[gnu::packed]] drv_dp_request {
    uint32_t code;
    uint8_t zero[76];
    uint16_t a;
    uint16_t b;
    uint32_t c;
};
static_assert(offsetof(drv_dp_request, a) == 80);
static_assert(offsetof(drv_dp_request, b) == 82);
static_assert(offsetof(drv_dp_request, c) == 84);

/* Control requests; the data follows. */
struct [[gnu::packed]] drv_ioctl_head {
    uint32_t code = 0;
    uint16_t slot = 0;
    uint16_t device = 0;    /* of a device request */
    uint16_t interface = 0; /* of a hardware-interface request */
    uint16_t zero = 0;
    uint32_t command = 0;
    uint32_t length = 0;
};
static_assert(sizeof(drv_ioctl_head) == 20);
static_assert(offsetof(drv_ioctl_head, slot) == 4);
static_assert(offsetof(drv_ioctl_head, device) == 6);
static_assert(offsetof(drv_ioctl_head, interface) == 8);
static_assert(offsetof(drv_ioctl_head, command) == 12);
static_assert(offsetof(drv_ioctl_head, length) == 16);

/* --- counters: type 69 --- */

inline constexpr uint32_t counter_type = 69;
inline constexpr uint32_t counter_show = 1;
inline constexpr uint32_t counter_drain = 7;
inline constexpr uint32_t counter_capacity = 5280;
inline constexpr uint32_t counter_dpdk_size = 64;

struct [[gnu::packed]] counter_request {
    uint32_t code;
    uint32_t which;
};
static_assert(sizeof(counter_request) == 8);
static_assert(offsetof(counter_request, which) == 4);

} // namespace mix::wire

#endif
