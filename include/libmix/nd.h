/*
 * libmix: the IPv6 neighbour table of the main daemon.
 *
 * What the functions here have in common:
 *  - Each request waits at most 500 ms; a listing makes one request for each page.
 *  - node, instance: the board asked; node 0 is this board. Of an instance the low 16 bits count.
 *  - Selectors and option bytes mean what the daemon takes them for; they are passed on.
 *  - An IPv6 address is 16 bytes in network order, a MAC address 6 bytes in wire order.
 *  - maximum: rows wanted; 0 lists everything. A page is always delivered whole, so that a listing can give a
 *    few rows more. first_request: a flag for the daemon, sent with the first request of a listing only.
 *  - Rows are 64 bytes: IPv6 address at 0, interface name at 22, MAC address at 54, flags at 61 (bit value 2:
 *    static; bits 2 to 4: the state). The rest is the daemon's.
 *  - A listing returns the rows received, also those before a failure. A NULL row callback only counts.
 */
#ifndef LIBMIX_ND_H
#define LIBMIX_ND_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Lists the neighbours. address: one to look for, or NULL. The row callback's result is ignored. Texts: "No
 * enough memory\n" (request buffer; a missing reply buffer is silent), "ipcmsg send failed\n", "nd show
 * failed, ret is %d\n" (the daemon's negative status) and "Received buf len is wrong, len is %d\n".
 */
MIX_API uint32_t get_nd_items_detail(uint16_t vsysid, uint16_t first, uint16_t second, const uint8_t *address,
                                     row_callback row, void *context, print_callback print,
                                     uint32_t first_request, int32_t maximum, uint32_t node,
                                     uint32_t instance) MIX_NOEXCEPT;
/* The same, of static neighbours only. */
MIX_API uint32_t get_nd_items_static_detail(uint16_t vsysid, uint16_t first, uint16_t second,
                                            const uint8_t *address, row_callback row, void *context,
                                            print_callback print, uint32_t first_request, int32_t maximum,
                                            uint32_t node, uint32_t instance) MIX_NOEXCEPT;
/* get_nd_items_detail in virtual system 0 with a first selector of 0. */
MIX_API uint32_t get_nd_items(uint16_t second, const uint8_t *address, row_callback row, void *context,
                              print_callback print, uint32_t first_request, int32_t maximum, uint32_t node,
                              uint32_t instance) MIX_NOEXCEPT;

/*
 * Lists the neighbours that match, in the caller's current virtual system. address: 16 bytes, always sent
 * (zero matches all); mac: one to look for, or NULL. A negative result of the row callback ends the listing
 * at once; the whole page it ended in counts. total: receives how many neighbours match in all, only when the
 * listing came to its end (nothing more, or the maximum reached); untouched when it failed or was stopped.
 * Texts: "No enough memory\n" (either buffer), "ipcmsg send failed %d\n" (the send's result), "NEIGHBOR show
 * failed, ret is %d\n" and "Received buf len is wrong, len is %d\n".
 */
MIX_API uint32_t get_nd_items_ex2_vr(row_callback row, void *context, print_callback print,
                                     uint32_t first_request, uint32_t maximum, const uint8_t *address,
                                     const uint8_t *mac, uint32_t selector, int8_t option, uint16_t vrid,
                                     uint32_t *total) MIX_NOEXCEPT;

/*
 * Clears dynamic neighbours, one of them when address is not NULL. Returns the daemon's status (0 or more),
 * or -1 after one of "nd_remove_dynamic_items_detail, No enough memory\n" (request buffer), "No enough
 * memory\n" (reply buffer), "ipcmsg send failed\n", "nd clear failed, ret is %d\n".
 */
MIX_API int nd_remove_dynamic_items_detail(uint16_t first, uint16_t second, uint16_t third,
                                           const uint8_t *address, print_callback print, uint32_t node,
                                           uint8_t option, uint32_t instance) MIX_NOEXCEPT;

/*
 * The table's summary. out: 16 bytes, written only on success. Returns the daemon's status (0 or more), or -1
 * after one of "No enough memory\n" (request buffer; a missing reply buffer is silent), "ipcmsg send
 * failed\n", "ND show failed, ret is %d\n", "Received buf len is wrong, len is %d\n" (anything but 16 bytes).
 */
MIX_API int nd_generic_data_get(uint16_t first, uint16_t second, void *out, print_callback print,
                                uint32_t node, uint32_t instance) MIX_NOEXCEPT;

/* For each row: makes a dynamic neighbour a static one through the management gateway, silently. Static ones
 * and those in state 2 are left alone. */
MIX_API void exec_ipv6_nd_dynamic_to_static_callback(const void *row) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
