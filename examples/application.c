/*
 * The application catalogue: what it has of the applications that are named, by name or by number. It lies in
 * shared memory, so looking something up asks no daemon.
 *
 *     cc application.c $(pkg-config --cflags --libs libmix)
 *     ./a.out TFTP 1000
 */
#include <libmix/app_table.h>

#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv)
{
    int missing = 0;
    int i;

    tq_app_table_init(); /* once a process */
    for (i = 1; i < argc; i++) {
        char *end;
        unsigned long number = strtoul(argv[i], &end, 10);
        uint32_t type = *end == '\0' ? (uint32_t)number : tq_app_name2type(argv[i]);

        if (type == 0 || *tq_app_type2name(type) == '\0') {
            printf("%s: no such application\n", argv[i]);
            missing = 1;
            continue;
        }
        printf("%u %s: %s, %s, risk %u%s\n", (unsigned)type, tq_app_type2name(type),
               tq_app_type2category(type), tq_app_type2subcategory(type),
               (unsigned)tq_apptype2risk((int)type), tq_apptype2shadow_it((int)type) ? ", shadow IT" : "");
    }
    return missing;
}
