/* What libmix imports: the operator's console, the platform log, disks, time, saved configurations. */
#ifndef MIX_PLATFORM_SERVICES_H
#define MIX_PLATFORM_SERVICES_H

#include <stdint.h>
#include <time.h>

#ifdef __cplusplus
extern "C" {
#endif

int console_print(const char *format, ...);
void tq_clog(const char *format, ...);
void tq_debug_print(int level, const char *format, ...);

const char *tq_get_image_path(void);
int tq_get_diskinfo_bypath(const char *path, uint64_t *first, uint64_t *second, uint64_t *third);
int tq_get_disk_info_by_devname(const char *device, uint32_t type, uint64_t *first, uint64_t *second,
                                uint64_t *third);
/* 0, or negative when the time can't be had. */
int tq_localtime(const time_t *when, struct tm *out);
int save_configuration(int, const char *, const char *, const char *, const char *, const char *, int, int,
                       int, int);

#ifdef __cplusplus
}
#endif

#endif
