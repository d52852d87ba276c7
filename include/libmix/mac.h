/*
 * libmix: the MAC address table, and the descriptions attached to MAC addresses.
 *
 * What the functions here have in common:
 *  - Each request waits at most 500 ms; a listing makes one request for each page.
 *  - A MAC address is 6 bytes in wire order.
 *  - slot, service: the board asked; slot 0 is this board. The other selectors are passed on to the daemon.
 *  - maximum: entries wanted; 0 lists everything. A page is always delivered whole, so that a listing can
 *    give a few entries more. start: a value for the daemon, sent with the first request of a listing only.
 *  - A listing returns the entries received, also those before a failure. Its callback's result is ignored; a
 *    NULL callback only counts.
 *  - Texts, unless said otherwise: "No enough memory\n" (request buffer; a missing reply buffer is silent),
 *    "ipcmsg send failed\n", "MAC show failed, ret is %d\n" (the daemon's negative status) and
 *    "Received buf len is wrong, len is %d\n".
 *  - Changes go through the management gateway. They return the commit's result, 0 for success, and print a
 *    refusal as "%s" with the gateway's text; of language, the text's, the low 8 bits count. tag becomes the
 *    request's flag byte.
 */
#ifndef LIBMIX_MAC_H
#define LIBMIX_MAC_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Lists the table, 78-byte entries. a, b (its low 16 bits), c: selectors. mac: an address to look for, or
 * NULL. mode: which kinds of entries: 1, 2 and 3 choose a kind, any other value gives all.
 */
MIX_API int get_mac_items(uint16_t a, uint32_t b, uint16_t c, const uint8_t *mac, entry_callback entry,
                          void *context, print_callback print, uint32_t start, int maximum, uint8_t mode,
                          uint32_t slot, uint32_t service) MIX_NOEXCEPT;

/*
 * The table's summary. out: 16 bytes, written only on success. Returns the daemon's status (0 or more); -1
 * when the exchange fails; 0, after "No enough memory\n", when either buffer can't be had.
 */
MIX_API int mac_generic_data_get(uint8_t *out, print_callback print, uint32_t slot,
                                 uint32_t service) MIX_NOEXCEPT;

/*
 * Clears dynamic entries, of one address when mac is not NULL. Returns the daemon's result; 0 on any failure,
 * after "mac_remove_dynamic_items, No enough memory\n" (request buffer), "ipcmsg send failed\n",
 * "MAC clear failed, ret is %d\n" or "Received buf len is wrong, len is %d\n" (anything but 8 bytes).
 */
MIX_API int mac_remove_dynamic_items(uint16_t a, uint32_t b, const uint8_t *mac, print_callback print,
                                     uint32_t slot, uint32_t service) MIX_NOEXCEPT;

/* Adds a static entry for each dynamic one that selector a lists. Returns the number of entries listed. */
MIX_API int mac_dynamic2static(uint16_t a, print_callback print, uint32_t tag) MIX_NOEXCEPT;

/* For each 78-byte entry that is not static: adds a static one of the same names, address and VLAN id. tag: a
 * number whose low 8 bits become the request's flag byte. Returns 0. */
MIX_API int show_callback(const void *entry, const uint32_t *tag) MIX_NOEXCEPT;

/* 1 when get_mac_items lists an entry in mode 1 for the selectors b and c (low 16 bits each), else 0, also on
 * failure. Prints nothing. */
MIX_API int is_if_bound_with_l2_mac(uint32_t b, uint32_t c) MIX_NOEXCEPT;

/* Whether an entry is bound in one of the VLANs of the bitmap (512 bytes, bit v mod 8 of byte v div 8): the
 * daemon's answer, one byte; 0 on failure. Prints nothing. */
MIX_API int is_if_bound_with_l2_mac_vlan_bitmap(uint16_t a, const uint8_t *bitmap) MIX_NOEXCEPT;

/*
 * Adds a static entry. ifname: the interface, NULL for "vlan" and the VLAN id; name2: the second name. The
 * interface is made known to the gateway first; a failure of that is printed, and the addition goes on. A
 * refusal of the entry is printed and written to error (error_length bytes, terminated), each where given.
 * -1 at once, silently, when name2 or mac is NULL.
 */
MIX_API int mac_add_static_items(const char *ifname, const char *name2, const uint8_t *mac, uint16_t vlan,
                                 print_callback print, char *error, int error_length, uint32_t language,
                                 uint8_t tag) MIX_NOEXCEPT;

/*
 * Removes a static entry, or all of them when all is not 0. ifname: NULL for "vlan" and the VLAN id, or for
 * no interface when vlan is 0 too. Without a MAC address and without all: "Parameter mac is NULL\n" and -1.
 */
MIX_API int mac_remove_static_items(const char *ifname, const char *name2, const uint8_t *mac, uint16_t vlan,
                                    print_callback print, int all, uint32_t language, uint8_t tag,
                                    uint16_t vsysid) MIX_NOEXCEPT;

/* 1 when all six bytes are zero, else 0. */
MIX_API int is_mac_null(const uint8_t *mac) MIX_NOEXCEPT;

/*
 * Attaches a description to a MAC address, in the caller's current virtual system. An empty text returns 0
 * and sends nothing; a NULL text is sent as absent. A refusal is printed and written to error (error_length
 * bytes, terminated), each where given.
 */
MIX_API int mac_description_add(const uint8_t *mac, const char *text, print_callback print, char *error,
                                int error_length, uint32_t language, uint8_t tag) MIX_NOEXCEPT;

/* Removes the description of a MAC address, or every description of the virtual system when all is not 0. */
MIX_API int mac_description_remove(const uint8_t *mac, print_callback print, int all, uint32_t language,
                                   uint16_t vsysid) MIX_NOEXCEPT;

/* Lists descriptions, 198-byte entries. mac: an address to look for, which makes the maximum 1, or NULL. */
MIX_API int get_mac_desc_items(const uint8_t *mac, entry_callback entry, void *context, print_callback print,
                               uint32_t start, int maximum, uint16_t vsysid) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
