/*
 * A first program: reads the two IP fragment reassembly settings and, with two arguments, changes them first.
 *
 *     cc fragment_settings.c $(pkg-config --cflags --libs libmix)
 */
#include <libmix/ipdefrag.h>

#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

int main(int argc, char **argv)
{
    uint32_t limit, seconds;

    /* libmix tells failures through any function that is shaped like printf. */
    if (argc == 3)
        set_ipdefrag_para(atoi(argv[1]), atoi(argv[2]), printf);
    if (get_ipdefrag_para(&limit, &seconds, printf) < 0)
        return 1;
    printf("at most %" PRIu32 " fragments between, reassembly within %" PRIu32 " seconds\n", limit, seconds);
    return 0;
}
