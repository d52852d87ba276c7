/*
 * libmix: the gratuitous-ARP send list: the (interface, address, MAC) entries for which the system announces
 * itself.
 *
 * Changes go through the management gateway, queries to the main local daemon (at most 500 ms each). IPv4
 * addresses are passed on as the u32 they are.
 */
#ifndef LIBMIX_GAS_H
#define LIBMIX_GAS_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Adds a sender. mac: 6 bytes; ifname: interface name; second: opaque, not 0; option: not 0; language: of
 * error texts (0 English, 1 Chinese). Returns 0, the gateway's non-zero result, or -1 with "Parameter
 * error\n" when ifname or mac is NULL or second or option 0; nothing is committed then. A refusal's text is
 * printed as "%s" and copied into error_buffer (error_length bytes, cut and terminated), each where it is
 * given; a refusal without a text does neither.
 */
MIX_API int gas_add_item(uint8_t language, uint32_t address, const uint8_t *mac, const char *ifname,
                         uintptr_t second, uint8_t option, print_callback print, char *error_buffer,
                         int32_t error_length) MIX_NOEXCEPT;

/*
 * Deletes a sender. Returns 0, the gateway's non-zero result, or -1 with "ifname error\n" when ifname is
 * NULL. On a refusal the error buffer, when given, is written even when there is no text ("(null)" with the C
 * library in use); that is on purpose.
 */
MIX_API int gas_del_item(uint8_t language, uint32_t address, const char *ifname, print_callback print,
                         char *error_buffer, int32_t error_length) MIX_NOEXCEPT;

/*
 * Lists the senders that selector names, rows of 76 bytes; the row callback's result is ignored. Returns the
 * number of rows delivered, also after a failure. Texts: "No enough memory\n" (no request buffer; a missing
 * reply buffer is silent), "ipcmsg send failed\n", "Gratuitous ARP send show failed, ret is %d\n" (the
 * daemon's negative status), "Received buf len is wrong, len is %d\n".
 */
MIX_API uint32_t gas_get_item(uint16_t selector, row_callback row, void *context,
                              print_callback print) MIX_NOEXCEPT;

/*
 * Asks for one sender. Returns the reply's length as the exchange left it, not the status: 4 after a usual
 * answer, a refused one too, and when there is no reply buffer; 0 when there is no request buffer. It only
 * tells that the daemon answered. Texts as gas_get_item. unused: ignored.
 */
MIX_API uint32_t gas_get_item_one(uint32_t unused, uint32_t address, uint16_t selector,
                                  print_callback print) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
