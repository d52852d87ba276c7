/*
 * libmix: the ARP table of the main daemon.
 *
 * What the functions here have in common:
 *  - Each request waits at most 500 ms; a listing makes one request for each page.
 *  - vsysid, vrid: virtual system and virtual router. node, instance: the board asked; node 0 is this board.
 *  - second, third, selector and the option bytes mean what the daemon takes them for; they are passed on.
 *  - An IPv4 address is passed on as the number it is; the daemons of the reference appliance take host order
 *    (10.1.2.3 is 0x0A010203). A MAC address is 6 bytes in wire order.
 *  - maximum: rows wanted; 0 lists everything. A page is always delivered whole, so that a listing can give a
 *    few rows more. first_request: a flag for the daemon, sent with the first request of a listing only.
 *  - Rows are the daemon's bytes, 56 for an ARP row, 280 for an ARP row joined with its MAC table data.
 *  - A listing returns the rows received, also those before a failure. A NULL row callback only counts.
 *  - Texts, unless said otherwise: "No enough memory\n" (request buffer; a missing reply buffer is silent),
 *    "ipcmsg send failed\n", "ARP show failed, ret is %d\n" (the daemon's negative status) and
 *    "Received buf len is wrong, len is %d\n".
 */
#ifndef LIBMIX_ARP_H
#define LIBMIX_ARP_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* Lists the table, 56-byte rows. The row callback's result is ignored. */
MIX_API uint32_t get_arp_items_detail(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third,
                                      row_callback row, void *context, print_callback print,
                                      uint32_t first_request, int32_t maximum, uint32_t node,
                                      uint16_t instance) MIX_NOEXCEPT;
/* The same on this board, virtual router 0. */
MIX_API uint32_t get_arp_items(uint16_t vsysid, uint16_t second, uint32_t third, row_callback row,
                               void *context, print_callback print, uint32_t first_request,
                               int32_t maximum) MIX_NOEXCEPT;
/* The same on this board. */
MIX_API uint32_t get_arp_items_vr(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third,
                                  row_callback row, void *context, print_callback print,
                                  uint32_t first_request, int32_t maximum) MIX_NOEXCEPT;

/* What a search goes by. None of the pointers may be NULL. */
struct arp_search_state {
    const uint32_t *key;   /* the key word */
    const uint16_t *scope; /* the scope word */
    uint32_t *position;    /* where to go on, 0 at first; each good page sets it, to 0 when no more follow */
};

/* row: a 56-byte row, valid during the call only; search_state: as given to the search. The result is
 * ignored. */
typedef int (*arp_search_callback)(const void *row, void *search_state);

/*
 * One page of the rows that match. The first two arguments are not used. search_state: a struct
 * arp_search_state, which may be the beginning of a larger structure of the caller's. filter: 108 bytes,
 * passed on unchanged; NULL counts as zero. Returns the rows of the page; 0 with the position untouched on
 * failure.
 */
MIX_API uint32_t search_arp_items(uint32_t unused_first, uint32_t unused_second, arp_search_callback row,
                                  void *search_state, print_callback print, const void *filter) MIX_NOEXCEPT;

/* Number of entries; 0 on any failure, silently. */
MIX_API int get_arp_items_count(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third,
                                uint32_t node, uint16_t instance) MIX_NOEXCEPT;
/* Number of proxy entries. key: 24 bytes, passed on; NULL counts as zero. 0 on any failure, silently. */
MIX_API int get_proxy_arp_items_count(uint16_t vsysid, uint16_t vrid, const uint8_t *key, uint32_t third,
                                      uint32_t node, uint16_t instance) MIX_NOEXCEPT;

/* The table's summary. out: 24 bytes, written only on success. Returns the daemon's status (0 or more), or
 * -1. */
MIX_API int arp_generic_data_get(uint16_t vsysid, uint16_t vrid, void *out, print_callback print,
                                 uint32_t node, uint16_t instance) MIX_NOEXCEPT;

/*
 * Lists the table joined with MAC table data, 280-byte rows. mac: a MAC address to look for, or NULL; ifname
 * (at most 191 bytes), second_name, third_name (31 each): names to look for, or NULL; longer ones are cut.
 * The caller's current virtual system is used. A negative result of the row callback ends the listing at
 * once; the whole page it ended in counts.
 */
MIX_API uint32_t get_arp_mac_items_ex2_vr(row_callback row, void *context, print_callback print,
                                          uint32_t first_request, int32_t maximum, uint32_t selector,
                                          const uint8_t *mac, const char *ifname, const char *second_name,
                                          const char *third_name, uint8_t first_option, uint8_t second_option,
                                          uint16_t vrid, uint8_t display_mode) MIX_NOEXCEPT;
/* The same in virtual router 1, display mode 2. */
MIX_API uint32_t get_arp_mac_items_ex2(row_callback row, void *context, print_callback print,
                                       uint32_t first_request, int32_t maximum, uint32_t selector,
                                       const uint8_t *mac, const char *ifname, const char *second_name,
                                       const char *third_name, uint8_t first_option,
                                       uint8_t second_option) MIX_NOEXCEPT;
/* Without options, display mode 2. */
MIX_API uint32_t get_arp_mac_items_ex_vr(row_callback row, void *context, print_callback print,
                                         uint32_t first_request, int32_t maximum, uint32_t selector,
                                         const uint8_t *mac, const char *ifname, const char *second_name,
                                         const char *third_name, uint16_t vrid) MIX_NOEXCEPT;
/* Without options, in virtual router 1, display mode 2. */
MIX_API uint32_t get_arp_mac_items_ex(row_callback row, void *context, print_callback print,
                                      uint32_t first_request, int32_t maximum, uint32_t selector,
                                      const uint8_t *mac, const char *ifname, const char *second_name,
                                      const char *third_name) MIX_NOEXCEPT;
/* Every row of a virtual router. */
MIX_API uint32_t get_arp_mac_items_vr(row_callback row, void *context, print_callback print,
                                      uint32_t first_request, int32_t maximum, uint16_t vrid,
                                      uint8_t display_mode) MIX_NOEXCEPT;
/* Every row of virtual router 1, display mode 2. */
MIX_API uint32_t get_arp_mac_items(row_callback row, void *context, print_callback print,
                                   uint32_t first_request, int32_t maximum) MIX_NOEXCEPT;

/* Number of joined rows, selected as in the listing; 0 on failure. */
MIX_API int get_arp_mac_items_count2_vr(print_callback print, uint32_t selector, const uint8_t *mac,
                                        const char *ifname, const char *second_name, const char *third_name,
                                        uint8_t first_option, uint8_t second_option,
                                        uint16_t vrid) MIX_NOEXCEPT;
/* In virtual router 1. */
MIX_API int get_arp_mac_items_count2(print_callback print, uint32_t selector, const uint8_t *mac,
                                     const char *ifname, const char *second_name, const char *third_name,
                                     uint8_t first_option, uint8_t second_option) MIX_NOEXCEPT;
/* Without options, in virtual router 1. */
MIX_API int get_arp_mac_items_count(print_callback print, uint32_t selector, const uint8_t *mac,
                                    const char *ifname, const char *second_name,
                                    const char *third_name) MIX_NOEXCEPT;
/* Without options. */
MIX_API int get_arp_mac_items_count_vr(print_callback print, uint32_t selector, const uint8_t *mac,
                                       const char *ifname, const char *second_name, const char *third_name,
                                       uint16_t vrid) MIX_NOEXCEPT;

/*
 * Number of addresses that share a MAC. mac: text as 0011.2233.4455; NULL, or text of another form, asks for
 * all of them. 0 on failure; a refusal prints "ARP get reduplicate mac count failed, ret is %d\n".
 */
MIX_API int get_arp_reduplicate_mac_items_count(print_callback print, const char *mac) MIX_NOEXCEPT;

/*
 * The name of a virtual router, in a static buffer that every call overwrites: copy it before the next call.
 * Not for concurrent use. At most 32 bytes; "ipc-fail" when the daemon can't be reached, "not-found-name"
 * when it refuses, empty without buffers. Prints nothing.
 */
MIX_API const char *get_vrname_by_vrid(uint32_t vrid) MIX_NOEXCEPT;

/*
 * Changes of static entries go through the management gateway. They return the commit's result, 0 for
 * success, and print a refusal as "%s" with the gateway's text; language is the text's language.
 *
 * Not for concurrent use, with each other or with get_vrname_by_vrid, whose buffer they use: the five
 * functions arp_add_static_items, arp_remove_static_items, arp_remove_static_conf,
 * arp_remove_one_static_items_vrouter and arp_remove_all_static_items_vrouter.
 */

/*
 * Adds an entry; option: the entry's option byte. A description that is not NULL and not empty is first
 * attached to the MAC address, whatever comes of it. A refusal is written to error (error_length bytes,
 * terminated) too, but only when print is given.
 */
MIX_API int arp_add_static_items(uint16_t vrid, uint32_t address, const uint8_t *mac, const char *description,
                                 uint8_t option, print_callback print, char *error, int32_t error_length,
                                 uint8_t language, uint8_t request_flag, uint16_t vsysid) MIX_NOEXCEPT;

/* Removes an entry, or every entry of the virtual router when all is not 0. */
MIX_API int arp_remove_static_items(uint16_t vrid, uint32_t address, print_callback print, uint32_t all,
                                    uint8_t language, uint8_t request_flag, uint16_t vsysid) MIX_NOEXCEPT;

/* Removes the static configuration of a virtual router. A refusal goes to standard output, as
 * "Error: unset install in arp %s\n". */
MIX_API int arp_remove_static_conf(uint16_t vrid, uint8_t language, uint8_t request_flag) MIX_NOEXCEPT;

/* What arp_remove_one_static_items_vrouter removes by. */
struct arp_removal_context {
    uint32_t request_flag;
    uint32_t language;
    uint16_t vrid;
    uint16_t vsysid;
};

/* For each 56-byte row: removes the entry when it is static and of the context's virtual router. context: a
 * struct arp_removal_context. A refusal goes to the operator's console. Returns 0. */
MIX_API int arp_remove_one_static_items_vrouter(const void *row, void *context) MIX_NOEXCEPT;

/* Lists a virtual router's entries and removes the static ones. Texts go to the operator's console. Returns
 * 0. */
MIX_API int arp_remove_all_static_items_vrouter(uint16_t vrid, uint32_t unused, uint32_t request_flag,
                                                uint16_t vsysid) MIX_NOEXCEPT;

/*
 * Clears dynamic entries. Returns the daemon's status (0 or more), or -1 after one of
 * "arp_remove_dynamic_items_detail, No enough memory\n" (request buffer), "No enough memory\n" (reply
 * buffer), "ipcmsg send failed\n", "ARP clear failed, ret is %d\n".
 */
MIX_API int arp_remove_dynamic_items_detail(uint16_t vsysid, uint16_t vrid, uint16_t second, uint32_t third,
                                            print_callback print, uint32_t node, uint8_t option,
                                            uint16_t instance) MIX_NOEXCEPT;
/* In virtual system 0, virtual router 1, on this board. */
MIX_API int arp_remove_dynamic_items(uint16_t second, uint32_t third, print_callback print,
                                     uint8_t option) MIX_NOEXCEPT;
/* In virtual system 0, on this board. */
MIX_API int arp_remove_dynamic_items_vr(uint16_t vrid, uint16_t second, uint32_t third, print_callback print,
                                        uint8_t option) MIX_NOEXCEPT;

/* Starts an active scan on this board, in the caller's current virtual system. Returns the daemon's status (0
 * or more), or -1; prints nothing. */
MIX_API int arp_active_scan(uint32_t first, uint32_t second, int16_t option) MIX_NOEXCEPT;

/* The family's response hook for the gateway. Ignores its arguments, returns 0. */
MIX_API int arp_mgi_get_resp(const void *record, uint32_t size) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
