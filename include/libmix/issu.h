/*
 * libmix: in-service upgrade.
 *
 * The functions of this header never print. A failure is -1 and, but in the compatibility lists' functions,
 * leaves a one-line text, without a newline, in a store of the process, which issu_err_str_get returns:
 *   "Wrong parameter"             a name or path is NULL
 *   "No enough memory"            a buffer can't be had
 *   "Failed to send IPC message"  the manager can't be reached, or does not answer within 500 ms
 *   "Handle error"                the manager answered with a status other than 0
 *   "wrong msg len"               its reply is shorter than the command's, or does not fit its buffer
 *   "Wrong msg"                   its reply holds fewer entries than it says
 * Outputs are untouched on failure. Names are cut to their fields: 127 characters, second names to 31.
 *
 * The store has no lock, so set_err_str, issu_err_str_get and a failure of any function here but the
 * compatibility lists' are not for concurrent use: failures at the same time overwrite each other's text, and
 * a text that is read meanwhile may be a mixture, which ends within the store all the same. Results and
 * outputs are each caller's own.
 */
#ifndef LIBMIX_ISSU_H
#define LIBMIX_ISSU_H

#include <libmix/mix_base.h>

#if defined(__GNUC__)
#define ISSU_FORMAT(string, first) __attribute__((format(printf, string, first)))
#else
#define ISSU_FORMAT(string, first)
#endif

MIX_BEGIN_DECLS

/* --- the error text --- */

/*
 * Formats a text into the store, cut to 255 characters. The store's memory is taken at the first call and
 * never freed; when it can't be had nothing is stored. Not for concurrent use.
 */
MIX_API void set_err_str(const char *format, ...) MIX_NOEXCEPT ISSU_FORMAT(1, 2);

/* The last text stored, or "null" when there was none. A success does not clear it. Not to be freed. Not for
 * concurrent use with a failure. */
MIX_API const char *issu_err_str_get(void) MIX_NOEXCEPT;

/* --- messages without an answer: 0 when sent, -1 otherwise --- */

/* To the configuration daemon. A buffer that can't be had gives -1 and stores no text. */
MIX_API int issu_lock_cfg(uint32_t lock) MIX_NOEXCEPT;
/* To the main local daemon; the values are its own. */
MIX_API int issu_send_nat_transfer(uint16_t a, uint16_t b, uint16_t c, uint16_t d) MIX_NOEXCEPT;
MIX_API int issu_send_ssmha_warm_sync_poll(uint16_t value) MIX_NOEXCEPT;
/* To the main daemon of a processor: the board is node slot + 1, the processor its instance. */
MIX_API int issu_send_nat_merge(uint16_t slot, uint16_t cpu) MIX_NOEXCEPT;
MIX_API int issu_send_sess_transfer(uint16_t slot, uint16_t cpu, uint16_t c, uint16_t d) MIX_NOEXCEPT;
MIX_API int issu_send_dmcu_switch(uint16_t slot, uint16_t cpu) MIX_NOEXCEPT;
/* To the local upgrade manager. */
MIX_API int issu_report_nat_transfer(uint32_t value) MIX_NOEXCEPT;
MIX_API int issu_report_ssmha_warm_sync(uint16_t value) MIX_NOEXCEPT;
/* To the upgrade manager of a processor. */
MIX_API int issu_report_sess_transfer(uint16_t slot, uint16_t cpu, uint32_t value) MIX_NOEXCEPT;

/* --- commands and queries of the upgrade manager: 0 or -1 unless said otherwise --- */

/* mode: the manager's own number. Neither name may be NULL. */
MIX_API int issu_start(uint32_t mode, const char *name, const char *second_name) MIX_NOEXCEPT;

/* Fills a buffer of 712 bytes (summary) or 460 bytes (graceful shutdown) whose layout is the manager's. */
MIX_API int issu_show_sum(uint32_t cpu, void *buffer) MIX_NOEXCEPT;
MIX_API int issu_show_gshut(uint32_t cpu, void *buffer) MIX_NOEXCEPT;

/* entry: 40 bytes of the manager's layout, valid during the call; first: 1 for the first entry of each page
 * that the manager sends, else 0. The result is ignored. */
typedef int (*issu_cpu_status_callback)(const void *entry, int first);

/* Calls back with each processor's status; entries of the pages before a failure have been delivered. A NULL
 * callback gets none, and the result is the same. */
MIX_API int issu_show_cpu_status(uint32_t cpu, issu_cpu_status_callback callback) MIX_NOEXCEPT;

/* The version text that a processor runs, or of the image in the manager's buffer; cut to size - 1
 * characters and always terminated (nothing is written for size 0). The text has at most 128 characters. */
MIX_API int issu_ver_get(uint16_t slot, uint16_t cpu, char *buffer, uint32_t size) MIX_NOEXCEPT;
MIX_API int issu_buf_image_ver_get(char *buffer, uint32_t size) MIX_NOEXCEPT;

/* Asks whether an upgrade can start: *result is the manager's number, buffer its text, cut to size - 1
 * characters and terminated (no text is written for size 0). */
MIX_API int issu_check(uint32_t cpu, uint32_t *result, char *buffer, uint32_t size) MIX_NOEXCEPT;

/* Loads an image into the manager's buffer. Returns the manager's 32-bit answer, or -1 on a failure. */
MIX_API int issu_buf_image_load(const char *path) MIX_NOEXCEPT;

/* Shuts service modules down; *result is the manager's. p and q are its own. Neither name may be NULL. */
MIX_API int issu_sm_shut(uint32_t cpu, uint32_t *result, uint16_t p, uint16_t q, const char *name,
                         const char *second_name) MIX_NOEXCEPT;

/*
 * The compatibility list of an image. *len: the capacity of buffer in; out, lowered to the list's length when
 * that is less. A longer list is cut, no terminator is added, and bytes of the stated length that the manager
 * did not send are zero.
 */
MIX_API int issu_image_clist_get(uint32_t cpu, const char *name, uint8_t selector, char *buffer,
                                 uint32_t *len) MIX_NOEXCEPT;

/* --- compatibility lists: pure functions of their arguments --- */

/*
 * Reads the next entry of a list from a position in its text: lines that begin with '#' are skipped, a line
 * that begins with "END" ends the list. The entry, a whole line, is copied to out, cut to size - 1 characters
 * and terminated (not at all for size 0).
 * Returns the position just after the entry; NULL, with out untouched, when there is none or text is NULL.
 */
MIX_API const char *issu_get_clist_one(const char *text, char *out, uint32_t size) MIX_NOEXCEPT;

/* The first entry of the list with that name: 0, or -1 when there is no such list or it is empty. */
MIX_API int issu_first_ver_get(const char *text, const char *list_name, char *out,
                               uint32_t size) MIX_NOEXCEPT;

/*
 * Looks a version up in the list "UP-LIST", "DOWN-LIST" or of any name: 0 when an entry matches, 1 when none
 * does, -1 when there is no such list (or an argument is NULL). '*' stands for all that follows and '?' for
 * one character, in the entry and in the version alike. Of an entry 255 characters count.
 */
MIX_API int issu_ver_up_ck(const char *text, const char *version) MIX_NOEXCEPT;
MIX_API int issu_ver_down_ck(const char *text, const char *version) MIX_NOEXCEPT;
MIX_API int _issu_ver_ck_(const char *text, const char *version, const char *list_name) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
