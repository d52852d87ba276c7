/*
 * Many words in one pass over a stream that comes in pieces: where each of the arguments stands in standard
 * input, whatever its case.
 *
 *     cc find_words.c $(pkg-config --cflags --libs libmix)
 *     ./a.out warp weft <book.txt
 */
#include <libmix/tqac.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

struct stream {
    char **words;
    long long offset; /* of the piece that is being searched */
};

/* libmix takes all memory of a matcher from its caller. */
static void *get_memory(int64_t size)
{
    return malloc((size_t)size);
}

static int give_back(void *memory)
{
    free(memory);
    return 0;
}

/* start is counted from the piece, and is negative where a word began in an earlier one. */
static int found(uint64_t id, int start, uint64_t arg, int len)
{
    const struct stream *in = (const struct stream *)(uintptr_t)arg;

    (void)len;
    printf("%lld: %s\n", in->offset + start, in->words[id]);
    return 0; /* anything else stops the search */
}

int main(int argc, char **argv)
{
    struct stream in = {argv, 0};
    tqac_matcher *matcher = tqac_new(get_memory, give_back, 0);
    uint32_t state = 0; /* the stream's, carried from piece to piece */
    char piece[16];     /* small, to show that words are found across pieces */
    size_t size;
    int i;

    if (matcher == NULL)
        return 1;
    for (i = 1; i < argc; i++)
        if (tqac_add_pattern(matcher, argv[i], (int)strlen(argv[i]), 1, (uint64_t)i, 0) < 0)
            return 1;
    if (tqac_compile(matcher) < 0)
        return 1;
    while ((size = fread(piece, 1, sizeof piece, stdin)) > 0) {
        tqac_search_(matcher, piece, (int)size, found, (uint64_t)(uintptr_t)&in, &state);
        in.offset += (long long)size;
    }
    return tqac_free(matcher);
}
