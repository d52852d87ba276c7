/*
 * libmix: ARP and ND spoofing protection: statistics and inspection settings.
 *
 * Every listing pages through a daemon's table, at most 500 ms a page, hands each row unparsed to the row
 * callback and returns the number of rows received, also after a failure. The callback's result is ignored.
 * Failures print one of "No enough memory\n" (no request buffer; a missing reply buffer is silent), "ipcmsg
 * send failed\n", the family's text with the daemon's negative status, "Received buf len is wrong, len is
 * %d\n".
 */
#ifndef LIBMIX_SPOOFING_H
#define LIBMIX_SPOOFING_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * ARP spoofing statistics, rows of 48 bytes. start: cursor of the first page (its low 16 bits; 0: from the
 * beginning); maximum: rows wanted, 0 for all. It stops the listing only when it is reached exactly at a
 * page's end. row may be NULL. Text: "ARP spoofing statistics show failed, ret is %d\n".
 */
MIX_API uint32_t get_aspf_stats_items(uint16_t vsysid, uint32_t start, uint32_t maximum, row_callback row,
                                      void *context, print_callback print) MIX_NOEXCEPT;

/*
 * Clears the ARP spoofing statistics: of one MAC (6 bytes, with selector), or of all when mac is NULL.
 * Returns 0 always; a failure is only printed, "ARP spoofing statistics clear failed, ret is %d\n" for a
 * negative status.
 */
MIX_API int aspf_stats_clear(uint16_t vsysid, const uint8_t *mac, uint16_t selector,
                             print_callback print) MIX_NOEXCEPT;

/*
 * ND spoofing statistics, rows of 56 bytes. word: sent unchanged with each request. row may be NULL.
 * Text: "ND spoofing statistics show failed, ret is %d\n".
 */
MIX_API uint32_t get_ndspf_stats_items(uint16_t vsysid, uint32_t word, row_callback row, void *context,
                                       print_callback print) MIX_NOEXCEPT;

/* Clears all ND spoofing statistics. Returns 0 always; prints "ND spoofing statistics clear failed, ret is
 * %d\n". */
MIX_API int ndspf_stats_clear(uint16_t vsysid, print_callback print) MIX_NOEXCEPT;

/*
 * ARP inspection settings, rows of 70 bytes. mode 1 and 2 select by name (at most 31 characters; NULL:
 * empty), all others by number. Text: "ARP inspection show failed, ret is %d\n".
 */
MIX_API uint32_t arpi_config_show(uint16_t vsysid, const char *name, uint16_t number, uint8_t mode,
                                  row_callback row, void *context, print_callback print) MIX_NOEXCEPT;

/*
 * ARP inspection settings of one interface (not NULL, at most 31 characters). A name such as Vlan10 or
 * Vlan10-20 also sends its VLAN numbers. unused: ignored.
 */
MIX_API uint32_t show_arpi_config_by_if(uint16_t vsysid, uint32_t unused, row_callback row, void *context,
                                        const char *ifname, print_callback print) MIX_NOEXCEPT;

/* ND inspection settings, rows of 38 bytes; arguments as arpi_config_show. Text: "ND inspection show failed,
 * ret is %d\n". */
MIX_API uint32_t ndi_config_show(uint16_t vsysid, const char *name, uint16_t number, uint8_t mode,
                                 row_callback row, void *context, print_callback print) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
