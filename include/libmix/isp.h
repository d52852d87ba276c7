/* libmix: does an address belong to an ISP? */
#ifndef LIBMIX_ISP_H
#define LIBMIX_ISP_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/*
 * Asks the daemon that holds the ISP address tables (at most 500 ms). addr is passed on as the number it is;
 * the daemon of the reference appliance takes host order (10.1.2.3 is 0x0A010203). isp: the daemon's number
 * of the ISP. Returns 1 when the address belongs to the entry, and 0 when it does not, when the daemon
 * refuses or does not answer, and without a buffer; the platform's debug output then gets, at level 1,
 * "Function name: check_ip_isp, IPC Malloc error\n".
 */
MIX_API int check_ip_isp(uint32_t addr, uint32_t isp) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
