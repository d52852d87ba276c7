/*
 * libmix: port drivers, data-plane counters and control requests, of this board and of the others of a
 * chassis.
 *
 * A slot of 0 is this board. Requests for another slot are sent to the board that serves it, as the platform
 * has it. Results are 0 on success and -1 on failure unless a comment says otherwise; outputs are then
 * untouched. Texts go to the operator's console. Buffers that are handed out are released with ipcmsg_free;
 * what the driver did not send of them is zero.
 */
#ifndef LIBMIX_DRV_H
#define LIBMIX_DRV_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* --- port messages: 12568 bytes, in the caller's own buffer --- */

/*
 * Clear a buffer of 12568 bytes and fill in a request: u32 command at 0, u32 unit flag at 4, u16 slot at 8,
 * u16 cpu at 10, u16 index at 12, u16 port at 14, options from 48 on. The reply comes back into the same
 * buffer, its data at 48.
 */
MIX_API void drv_port_stats_msg_init(void *buf, uint16_t slot, uint16_t cpu, uint16_t port, uint8_t a,
                                     uint8_t b) MIX_NOEXCEPT;
MIX_API void drv_unit_port_stats_msg_init(void *buf, uint16_t slot, uint16_t cpu, uint16_t index,
                                          uint16_t port, uint8_t a, uint8_t b) MIX_NOEXCEPT;
MIX_API void drv_port_stats_msg_init_eye(void *buf, uint16_t slot, uint16_t cpu, uint16_t index,
                                         uint16_t port, uint8_t a, uint8_t b) MIX_NOEXCEPT;
MIX_API void drv_port_stats_msg_init_serdes(void *buf, uint16_t slot, uint16_t cpu, uint16_t index,
                                            uint16_t port, const uint8_t rec[7]) MIX_NOEXCEPT;
MIX_API void drv_port_stats_msg_init_px_config(void *buf, uint16_t slot, uint16_t cpu, uint16_t index,
                                               uint16_t port, uint8_t a, uint8_t b) MIX_NOEXCEPT;
MIX_API void drv_port_stats_msg_init_set_px_config(void *buf, uint16_t slot, uint16_t cpu, uint16_t index,
                                                   uint16_t port, uint8_t a, uint8_t b) MIX_NOEXCEPT;
MIX_API void drv_get_port_drv_info_msg_init(void *buf, uint16_t slot, uint16_t port, uint8_t a) MIX_NOEXCEPT;

/*
 * Send such a message of len bytes and receive the reply into it, at most 10000 ms. The slot field holds the
 * caller's slot again afterwards, whatever the outcome; a refusal's bytes, too, overwrite the rest. A refusal
 * prints "Error: Failed to get statistic of slot %d index %d port %d\n". -1, and nothing is sent, for a NULL
 * buffer or fewer than 16 bytes, here and in the two functions that follow.
 */
MIX_API int drv_get_port_stats(void *buf, uint32_t len) MIX_NOEXCEPT;
MIX_API int drv_get_port_stats_with_cpuindex(void *buf, uint32_t len) MIX_NOEXCEPT;
/* The same, always to this board's driver. A refusal prints
 * "Error: Failed to get drv info of slot %d port %d\n". */
MIX_API int drv_get_port_drv_info(void *buf, uint32_t len) MIX_NOEXCEPT;
/* Sends such a message without waiting. The slot field is left as it was sent: 0 where the board that got it
 * serves no other. */
MIX_API int drv_get_port_eye_stats(void *buf, uint32_t len) MIX_NOEXCEPT;

/* --- port queries: to this board's driver, at most 2000 ms --- */

/*
 * 40 bytes of port information. The result is the transport's, so that it is not negative for a refused query
 * either; out is then untouched. Prints "%s: ipc error rc %d, ret %d\n" on a failure and
 * "%s: ipcmsg_alloc error.\n" (result -1) without a buffer, with "drv_get_port_info".
 */
MIX_API int drv_get_port_info(uint16_t slot, uint16_t port, uint64_t out[5]) MIX_NOEXCEPT;
/* The processor that serves a port; *cpu_index is 0 on every failure. The result is drv_get_port_info's; -1
 * for a NULL pointer. */
MIX_API int drv_get_cpu_index_though_eth_port(uint16_t slot, uint16_t port, uint32_t *cpu_index) MIX_NOEXCEPT;

/* The number of a slot's ports; 0 after "ipc error.\n", -1 after "ipcmsg_alloc error.\n". */
MIX_API int drv_get_port_maxnum(uint16_t slot) MIX_NOEXCEPT;
/* 1 when port is below drv_get_port_maxnum, compared as signed numbers, else 0. */
MIX_API int is_port_valid(uint16_t slot, int port) MIX_NOEXCEPT;
/* The driver's answer; 0 after "%s ipc error rc %d ret %d.\n" with "drv_is_port_vaild", -1 after
 * "ipcmsg_alloc error.\n". */
MIX_API int drv_is_port_vaild(uint16_t slot, uint16_t a, uint16_t b, uint32_t flag) MIX_NOEXCEPT;

/* Bridge statistics of the board that serves the slot: *out receives a buffer of 20832 bytes, data at 48. */
MIX_API int drv_get_bridge_stats(void **out, uint16_t slot, uint16_t index, uint8_t option) MIX_NOEXCEPT;

/* 88 bytes of the main daemon's data-plane driver information (at most 5000 ms). The platform log gets
 * "%s:%d ipc malloc error\n", with "drv_dp_get_port_drv_info" and 746, when there is no buffer. */
MIX_API int drv_dp_get_port_drv_info(uint16_t a, uint16_t b, uint32_t c, uint64_t out[11]) MIX_NOEXCEPT;
/* The name in it, cut to len - 1 characters; on failure the len bytes are zero. */
MIX_API int drv_dp_get_port_drv_name(uint16_t a, uint16_t b, char *out, int len) MIX_NOEXCEPT;

/* --- counters of a processor, at most 2000 ms --- */

/*
 * Ask a main daemon: this board's when slot is 0 or its own, else that of node slot + 1, instance cpu (16
 * bits). which: the daemon's number of what is counted. *out receives the reply: at most 5280 bytes, or
 * exactly 64. A refusal prints "Error: Failed to get slot %d cpu counter, ret = %d.\n", another length than
 * 64 "Error: Failed to get slot %d cpu counter, received len is %d\n".
 */
MIX_API int drv_get_cpu_cntr(void **out, uint32_t slot, uint32_t cpu, uint32_t which) MIX_NOEXCEPT;
MIX_API int drv_get_dpdk_cpu_cntr(void **out, uint32_t slot, uint32_t cpu, uint32_t which) MIX_NOEXCEPT;
/* Tells the slot's main daemon (as above, cpu 0) to empty its packet buffers, without an answer: 0 when sent,
 * else -1. */
MIX_API int drv_drain_pkt_buffer(uint32_t slot) MIX_NOEXCEPT;

/* --- control requests executed on another board, at most 2000 ms --- */

/*
 * command 62, 64 or 68 with 4 bytes of data; 66, 69, 70, 77 or 78 with 12 bytes. Any other, and NULL data, is
 * -1 without a message.
 */
MIX_API int remote_dev_ioctl(uint16_t slot, uint16_t second, uint32_t command, void *data) MIX_NOEXCEPT;
/* command 1 with 4 bytes of data, which receive the answer; 12 with 12568 bytes. */
MIX_API int remote_hwif_ioctl(uint16_t slot, uint16_t second, uint32_t command, void *data) MIX_NOEXCEPT;

/* --- direct uplink --- */

/* 1 when it is switched on; 0 when it is not, or not supported. */
MIX_API int drv_direct_uplink_is_enabled(void) MIX_NOEXCEPT;
/* Switches it on or off and writes that through to the disk. Returns 0, also where it is not supported; the
 * negative result of creating or removing its marker file on failure. */
MIX_API int drv_set_direct_uplink(int enable) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
