/* What libmix imports: the message service. A platform library defines these with default visibility. */
#ifndef MIX_PLATFORM_IPCMSG_H
#define MIX_PLATFORM_IPCMSG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Message buffers. NULL when none is left; the content is undefined. Freeing NULL is allowed. */
void *ipcmsg_alloc(uint32_t size);
void ipcmsg_free(void *buffer);

/*
 * Sends a request and waits for its reply. Negative: not sent, or no reply in time. request and reply may be
 * the same buffer. *reply_length: the reply buffer's capacity in; out, the length the daemon sent, also when
 * that is more than the capacity (the surplus is dropped, never written). The second argument is always 0.
 */
int32_t ipcmsg_send_and_recv(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                             uint32_t request_length, int32_t *status, void *reply, uint32_t *reply_length,
                             uint32_t timeout_ms);
int32_t ipcmsg_send_and_recv_timeout(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                                     uint32_t request_length, int32_t *status, void *reply,
                                     uint32_t *reply_length, uint32_t timeout_ms);

/* One-way messages; negative on failure. A timeout of 0 is the platform's default. */
int32_t ipcmsg_send(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                    uint32_t request_length);
int32_t ipcmsg_send_timeout(uint32_t destination, uint32_t zero, uint32_t type, const void *request,
                            uint32_t request_length, uint32_t timeout_ms);

/*
 * Addresses: the node in bits 24 to 31, the instance in bits 8 to 23, the daemon in bits 0 to 7. Node 0 and
 * instance 0 give the daemon number itself; a node above 255 gives an address that no daemon has.
 */
uint32_t mktipcid(uint32_t node, uint16_t instance, uint32_t daemon);
/* Instance 0 of the board in that slot (node slot + 1). */
uint32_t mktipcid_by_slot(uint32_t slot, uint32_t daemon);

#ifdef __cplusplus
}
#endif

#endif
