/*
 * What libmix imports: the operator's console, the platform log, disks, time, saved configurations.
 *
 * Formats are printf's. All may be called from any thread.
 */
#ifndef MIX_PLATFORM_SERVICES_H
#define MIX_PLATFORM_SERVICES_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* To the operator's console. libmix ignores the result, and passes the function as a print callback. */
int console_print(const char *format, ...);
/* To the platform log. */
void tq_clog(const char *format, ...);
/* To the debug output; level: the higher, the less it matters. libmix uses 1. */
void tq_debug_print(int level, const char *format, ...);

/* A path on the storage that holds the system image; NULL when it is not known. The platform's to keep. */
const char *tq_get_image_path(void);

/*
 * Figures of the file system that holds a path, or of the device node of a storage (type: libmix's number of
 * its kind, 1 to 6). libmix hands on the first and the third, in the platform's unit, and ignores the second
 * and the result: what a call leaves untouched counts as 0.
 */
int tq_get_diskinfo_bypath(const char *path, uint64_t *first, uint64_t *second, uint64_t *third);
int tq_get_disk_info_by_devname(const char *device, uint32_t type, uint64_t *first, uint64_t *second,
                                uint64_t *third);

/* The local time. 0, or negative when it can't be had. */
int tq_localtime(const time_t *when, struct tm *out);

/*
 * Saves a configuration; 0, or not 0 when that failed and may be tried again. libmix passes -2, "running"
 * (what is saved), "", the name it is recorded under, "vchassis" (who saves), the local time as text, and
 * four zeros.
 */
int save_configuration(int, const char *, const char *, const char *, const char *, const char *, int, int,
                       int, int);

#ifdef __cplusplus
}
#endif

#endif
