/* Why the last exchange failed, in words. Exported by libmixplatform.so beside what libmix imports. */
#ifndef MIX_APPLIANCE_PLATFORM_REASON_H
#define MIX_APPLIANCE_PLATFORM_REASON_H

#ifdef __cplusplus
extern "C" {
#endif

/*
 * What went wrong with the calling thread's last message: the daemon's address, the message type and the
 * reason, one line without an end. Empty (never NULL) when it went well or there was none. A reply with a
 * negative status counts as a reason too. Valid until the thread's next message.
 */
const char *mixplatform_last_reason(void);

#ifdef __cplusplus
}
#endif

#endif
