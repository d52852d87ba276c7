/*
 * libmix: DHCP snooping. The settings of interfaces and VLANs go through the management gateway, the binding
 * table comes from the main daemon, with at most 500 ms for each request.
 */
#ifndef LIBMIX_DHCPSN_H
#define LIBMIX_DHCPSN_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Change one setting of an interface: whether snooping is on, whether requests or responses are denied,
 * whether messages are checked for validity (all as the gateway takes the number), how many messages a second
 * are let through. Return 0 always: a refusal is only printed, as "%s" with the gateway's text.
 */
MIX_API int dhcpsn_enable_set(const char *ifname, uint8_t value, print_callback print) MIX_NOEXCEPT;
MIX_API int dhcpsn_deny_request_set(const char *ifname, uint8_t value, print_callback print) MIX_NOEXCEPT;
MIX_API int dhcpsn_deny_response_set(const char *ifname, uint8_t value, print_callback print) MIX_NOEXCEPT;
MIX_API int dhcpsn_validity_check_set(const char *ifname, uint8_t value, print_callback print) MIX_NOEXCEPT;
MIX_API int dhcpsn_rate_limit_set(const char *ifname, uint16_t value, print_callback print) MIX_NOEXCEPT;

/*
 * Show the settings of one interface (ifname, at most 31 bytes, longer ones are cut) or of those that
 * selector chooses (ifname NULL; 0 chooses all); of one VLAN, or of all (vlan 0). row: called with each
 * 40-byte row; a result other than 0 ends it. Return 0 always; what goes wrong is printed as
 * dhcpsn_cfg_show_callback says.
 */
MIX_API int dhcpsn_if_config_show(const char *ifname, uint8_t selector, row_callback row, void *context,
                                  print_callback print) MIX_NOEXCEPT;
MIX_API int dhcpsn_vlan_config_show(uint16_t vlan, row_callback row, void *context,
                                    print_callback print) MIX_NOEXCEPT;

/* What dhcpsn_cfg_show_callback delivers to. */
struct dhcpsn_show_context {
    row_callback row;
    void *context;
    print_callback print;
    int first; /* 1 until the first row was delivered */
};

/*
 * The callback of the reads above, for one batch. data: 44 bytes of cookie, the number of rows as u16 at 44,
 * rows of 40 bytes from 46; length: of all that, rows beyond it are not there. error: not 0 when the exchange
 * reported an error. context: a struct dhcpsn_show_context. Returns 0; -1 after a row callback's result other
 * than 0, for an error (whose text is printed as "%s"), or after "Error: the para data of callback is
 * NULL\n".
 */
MIX_API int dhcpsn_cfg_show_callback(const void *data, uint32_t length, int error,
                                     void *context) MIX_NOEXCEPT;

/*
 * The binding table. vlan: a VLAN id, or 0 for none, and c counts instead; b, c, d: selectors, passed on;
 * mac: a MAC address to look for (6 bytes, wire order), or NULL. Texts: "No enough memory\n" (request buffer;
 * a missing reply buffer is silent), "ipcmsg send failed\n", "DHCP snooping show failed, ret is %d\n" (the
 * daemon's negative status) and "Received buf len is wrong, len is %d\n".
 */

/* The number of bindings; 0 on failure. */
MIX_API int get_dhcpsn_items_number(uint16_t vlan, uint16_t b, uint16_t c, uint32_t d, const uint8_t *mac,
                                    print_callback print) MIX_NOEXCEPT;

/*
 * Lists bindings, 80-byte rows. A result of the callback other than 0 ends the listing at once; the whole
 * page it ended in counts. start: a value for the daemon, sent with the first request only. maximum: bindings
 * wanted, 0 lists everything; a page is always delivered whole. Returns the bindings received, also those
 * before a failure.
 */
MIX_API int get_dhcpsn_items(uint16_t vlan, uint16_t b, uint16_t c, uint32_t d, const uint8_t *mac,
                             row_callback row, void *context, print_callback print, uint32_t start,
                             int maximum) MIX_NOEXCEPT;

/*
 * Clears dynamic bindings; a, b, c: selectors, passed on. Returns the daemon's status, whatever its sign; 0
 * after "ipcmsg send failed\n"; -1 when a buffer can't be had ("dhcpsn_remove_dynamic_items, No enough
 * memory\n" for the request's, a missing reply buffer is silent).
 */
MIX_API int dhcpsn_remove_dynamic_items(uint16_t a, uint32_t b, uint16_t c,
                                        print_callback print) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
