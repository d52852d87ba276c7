/*
 * libmix: what every public header needs.
 *
 * Conventions of the whole library:
 *  - Functions run on the caller's thread and block it for at most their exchange timeout per request.
 *  - Functions may be called from any thread, unless their comment says otherwise. One state for the whole
 *    process is behind get_vrname_by_vrid and the changes of static ARP entries, the upgrade's error text,
 *    init_lan_addr and tqac_register_callback. Matchers and vectors belong to who makes them.
 *  - A child of fork may go on calling; it never uses its parent's connections.
 *  - A print callback may be NULL: the function is then silent and behaves the same.
 *  - Outputs are untouched on failure unless a comment says otherwise.
 *  - Integers on the wire are little-endian; the byte order of an address is stated where it is taken.
 */
#ifndef LIBMIX_MIX_BASE_H
#define LIBMIX_MIX_BASE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define MIX_API __attribute__((visibility("default")))
#else
#define MIX_API
#endif

#ifdef __cplusplus
#define MIX_BEGIN_DECLS extern "C" {
#define MIX_END_DECLS }
#else
#define MIX_BEGIN_DECLS
#define MIX_END_DECLS
#endif

/* No exception leaves a function of this library, nor may one pass through it from a callback. */
#if defined(__cplusplus)
#define MIX_NOEXCEPT noexcept
#else
#define MIX_NOEXCEPT
#endif

MIX_BEGIN_DECLS

/* printf-like. The result is ignored unless a function says otherwise. */
typedef int (*print_callback)(const char *format, ...);

/*
 * Called once for each row of a listing. row: the row's bytes, valid during the call only and not aligned;
 * context: the caller's own; first: 1 for the very first row of the listing, else 0. Whether the result
 * stops the listing is said with each function.
 */
typedef int (*row_callback)(const void *row, void *context, int first);
typedef int (*entry_callback)(const void *row, void *context, int first);

MIX_END_DECLS

#endif
