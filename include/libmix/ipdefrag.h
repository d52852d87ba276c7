/* libmix: the system's two IP fragment reassembly settings. */
#ifndef LIBMIX_IPDEFRAG_H
#define LIBMIX_IPDEFRAG_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Reads both settings from the main local daemon (one request, at most 500 ms).
 *
 * first, second: each receives one setting, 0 to 65535; written only on success.
 * Returns the daemon's status (0 or more); -1 on failure, after printing one of
 *   "No enough memory\n", "ipcmsg send failed\n", "fragment setting show failed, ret is %d\n" (the daemon's
 *   negative status) or "Received buf len is wrong, len is %d\n" (anything but 4 bytes).
 * A reply buffer that can't be had gives -1 without a text.
 */
MIX_API int get_ipdefrag_para(uint32_t *first, uint32_t *second, print_callback print) MIX_NOEXCEPT;

/*
 * Changes the settings whose argument is not 0, through the management gateway; with both 0 the exchange is
 * made all the same. Returns 0 always: a refusal is only printed, as "%s" with the gateway's text.
 */
MIX_API int set_ipdefrag_para(int32_t first, int32_t second, print_callback print) MIX_NOEXCEPT;

/* The response hook that set_ipdefrag_para gives to the gateway. Ignores its arguments, returns 0. */
MIX_API int ip_defrag_mgi_get_resp(const void *record, uint32_t size) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
