/*
 * mixscan: finds many byte patterns in files and streams, with libmix's multi-pattern matcher.
 *
 * A file is read in pieces of one buffer; the end of each piece is kept in front of the next, so that a match
 * that began there can be shown.
 */
#define _POSIX_C_SOURCE 200809L

#include <libmix/tqac.h>

#include <errno.h>
#include <fcntl.h>
#include <getopt.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

/* grep's exit statuses. */
enum { found = 0, found_nothing = 1, trouble = 2 };

struct options {
    int nocase, markup, count_only, text_found, quiet, stats;
    size_t piece;
};

struct pattern_list {
    char **bytes; /* in the order given; ids are 1 and up */
    size_t *lengths;
    size_t count, room, longest;
};

/* One file or stream being scanned. */
struct scan {
    const struct options *options;
    const struct pattern_list *patterns;
    const char *prefix;   /* file name and a colon, or nothing */
    const uint8_t *piece; /* bytes before it are still those of the stream, as far back as a match reaches */
    uint64_t offset;      /* of the piece in the stream */
    uint64_t matches;
};

static void complain(const char *what, const char *why)
{
    fflush(stdout);
    fprintf(stderr, "mixscan: %s: %s\n", what, why);
}

static void *allocate(int64_t size)
{
    return malloc((size_t)size);
}

static int release(void *pointer)
{
    free(pointer);
    return 0;
}

static int print_to_stderr(const char *format, ...)
{
    va_list arguments;
    int length;
    va_start(arguments, format);
    length = vfprintf(stderr, format, arguments);
    va_end(arguments);
    return length;
}

/* --- patterns --- */

static int add_pattern(struct pattern_list *list, const char *bytes, size_t length)
{
    if (length == 0 || length > 1000000) {
        complain("pattern", length == 0 ? "is empty" : "is longer than 1000000 bytes");
        return -1;
    }
    if (list->count == list->room) {
        size_t room = list->room ? 2 * list->room : 16;
        char **more_bytes = realloc(list->bytes, room * sizeof(*more_bytes));
        if (more_bytes)
            list->bytes = more_bytes;
        size_t *more_lengths = realloc(list->lengths, room * sizeof(*more_lengths));
        if (more_lengths)
            list->lengths = more_lengths;
        if (!more_bytes || !more_lengths) {
            complain("patterns", strerror(ENOMEM));
            return -1;
        }
        list->room = room;
    }
    char *copy = malloc(length);
    if (!copy) {
        complain("patterns", strerror(ENOMEM));
        return -1;
    }
    memcpy(copy, bytes, length);
    list->bytes[list->count] = copy;
    list->lengths[list->count++] = length;
    if (length > list->longest)
        list->longest = length;
    return 0;
}

/* A pattern a line; empty lines are left out. */
static int add_patterns_of_file(struct pattern_list *list, const char *name)
{
    FILE *file = strcmp(name, "-") == 0 ? stdin : fopen(name, "rb");
    char *line = NULL;
    size_t room = 0;
    ssize_t length;
    int result = 0;
    if (!file) {
        complain(name, strerror(errno));
        return -1;
    }
    while (result == 0 && (length = getline(&line, &room, file)) > 0) {
        if (line[length - 1] == '\n')
            --length;
        if (length > 0)
            result = add_pattern(list, line, (size_t)length);
    }
    if (result == 0 && ferror(file)) {
        complain(name, strerror(errno));
        result = -1;
    }
    free(line);
    if (file != stdin)
        fclose(file);
    return result;
}

static void free_patterns(struct pattern_list *list)
{
    for (size_t i = 0; i < list->count; ++i)
        free(list->bytes[i]);
    free(list->bytes);
    free(list->lengths);
}

static tqac_matcher *compile(const struct pattern_list *list, const struct options *options)
{
    tqac_matcher *matcher = tqac_new(allocate, release, 0);
    int result = matcher ? 0 : -1;
    for (size_t i = 0; result == 0 && i < list->count; ++i)
        result = tqac_add_pattern(matcher, list->bytes[i], (int)list->lengths[i], options->nocase, i + 1, 0);
    if (result == 0)
        result = tqac_compile(matcher);
    if (result == 0)
        return matcher;
    complain("patterns", strerror(ENOMEM));
    if (matcher)
        tqac_free(matcher);
    return NULL;
}

/* --- scanning --- */

static int on_match(uint64_t id, int start, uint64_t arg, int len)
{
    struct scan *scan = (struct scan *)(uintptr_t)arg;
    const void *shown = scan->options->text_found ? (const void *)(scan->piece + start)
                                                  : (const void *)scan->patterns->bytes[id - 1];
    ++scan->matches;
    if (scan->options->quiet)
        return 1;
    if (scan->options->count_only)
        return 0;
    printf("%s%llu:", scan->prefix, (unsigned long long)(scan->offset + (uint64_t)(int64_t)start));
    fwrite(shown, 1, (size_t)len, stdout);
    putchar('\n');
    return 0;
}

/* Progress of a long input, on a terminal only, about four times a second. */
struct progress {
    const char *name;
    uint64_t size; /* 0: not known, a stream */
    struct timespec last;
    int wanted, shown;
};

static void begin_progress(struct progress *progress, const char *name, int file,
                           const struct options *options)
{
    struct stat about;
    memset(progress, 0, sizeof(*progress));
    progress->name = name;
    progress->wanted = !options->quiet && isatty(STDERR_FILENO);
    if (fstat(file, &about) == 0 && S_ISREG(about.st_mode))
        progress->size = (uint64_t)about.st_size;
    clock_gettime(CLOCK_MONOTONIC, &progress->last);
}

static void show_progress(struct progress *progress, uint64_t done)
{
    struct timespec now;
    if (!progress->wanted)
        return;
    clock_gettime(CLOCK_MONOTONIC, &now);
    if ((now.tv_sec - progress->last.tv_sec) * 1000 + (now.tv_nsec - progress->last.tv_nsec) / 1000000 < 250)
        return;
    progress->last = now;
    progress->shown = 1;
    if (progress->size)
        fprintf(stderr, "\r%s: %llu%% of %llu MiB\033[K", progress->name,
                (unsigned long long)(done * 100 / progress->size),
                (unsigned long long)(progress->size >> 20));
    else
        fprintf(stderr, "\r%s: %llu MiB\033[K", progress->name, (unsigned long long)(done >> 20));
}

static void end_progress(const struct progress *progress)
{
    if (progress->shown)
        fprintf(stderr, "\r\033[K");
}

/*
 * The library keeps the state that stood before trailing bytes that are in no pattern. Such bytes part a
 * match here, so the next piece starts at the root.
 */
static uint32_t state_after(const tqac_matcher *matcher, uint32_t state, uint8_t last)
{
    return matcher->input_map[last] == 0 ? 0 : state;
}

/* buffer: the end of the last piece, `kept` bytes, then room for a piece. Returns 0, or an errno. */
static int scan_pieces(struct scan *scan, const tqac_matcher *matcher, int file, uint8_t *buffer,
                       struct progress *progress)
{
    const size_t kept = scan->patterns->longest;
    uint32_t state = 0, depth = 0;
    uint8_t quote = 0;
    scan->piece = buffer + kept;
    for (;;) {
        const ssize_t got = read(file, buffer + kept, scan->options->piece);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got < 0 ? errno : 0;
        if (scan->options->markup)
            tqac_search2_(matcher, scan->piece, (int)got, on_match, (uintptr_t)scan, &state, &depth, &quote);
        else
            tqac_search_(matcher, scan->piece, (int)got, on_match, (uintptr_t)scan, &state);
        if (scan->options->quiet && scan->matches)
            return 0;
        state = state_after(matcher, state, scan->piece[got - 1]);
        scan->offset += (uint64_t)got;
        memmove(buffer, buffer + got, kept);
        show_progress(progress, scan->offset);
    }
}

/* Returns 0; -1 after saying what is wrong. The number of matches is added to *matches. */
static int scan_file(const char *name, const char *prefix, const struct options *options,
                     const struct pattern_list *patterns, const tqac_matcher *matcher, uint64_t *matches)
{
    struct scan scan = {options, patterns, prefix, NULL, 0, 0};
    struct progress progress;
    const int standard = strcmp(name, "-") == 0;
    const int file = standard ? STDIN_FILENO : open(name, O_RDONLY | O_CLOEXEC);
    uint8_t *buffer = calloc(1, patterns->longest + options->piece);
    int error = 0;
    if (file < 0 || !buffer) {
        complain(name, file < 0 ? strerror(errno) : strerror(ENOMEM));
        if (file > STDIN_FILENO)
            close(file);
        free(buffer);
        return -1;
    }
    begin_progress(&progress, standard ? "(standard input)" : name, file, options);
    error = scan_pieces(&scan, matcher, file, buffer, &progress);
    end_progress(&progress);
    if (error)
        complain(standard ? "(standard input)" : name, strerror(error));
    if (options->count_only && !options->quiet)
        printf("%s%llu\n", prefix, (unsigned long long)scan.matches);
    *matches += scan.matches;
    free(buffer);
    if (!standard)
        close(file);
    return error ? -1 : 0;
}

/* --- the program --- */

static const char usage[] =
    "usage: mixscan [OPTION]... PATTERN [FILE]...\n"
    "       mixscan [OPTION]... -e PATTERN | -f FILE ... [FILE]...\n"
    "Finds every occurrence of every pattern, overlapping ones too, in the order in which they end.\n"
    "  -e, --pattern=PATTERN  a pattern; may be given many times\n"
    "  -f, --file=FILE        patterns from a file, one a line\n"
    "  -i, --ignore-case      ignore the case of ASCII letters\n"
    "      --markup           only what ends outside of markup tags\n"
    "  -c, --count            print the number of matches of each file\n"
    "  -o, --only-matching    print the text that was found rather than the pattern\n"
    "  -q, --quiet            print nothing, stop at the first match\n"
    "      --stats            print the matcher and its states with matches to standard error;\n"
    "                         --stats=all: all states\n"
    "      --piece=BYTES      read in pieces of that many bytes (default 1048576)\n"
    "      --help, --version\n"
    "Exit status: 0 something was found, 1 nothing was found, 2 trouble.\n";

enum { option_markup = 256, option_stats, option_piece, option_help, option_version };

static const struct option long_options[] = {
    {"pattern", required_argument, NULL, 'e'},
    {"file", required_argument, NULL, 'f'},
    {"ignore-case", no_argument, NULL, 'i'},
    {"markup", no_argument, NULL, option_markup},
    {"count", no_argument, NULL, 'c'},
    {"only-matching", no_argument, NULL, 'o'},
    {"quiet", no_argument, NULL, 'q'},
    {"stats", optional_argument, NULL, option_stats},
    {"piece", required_argument, NULL, option_piece},
    {"help", no_argument, NULL, option_help},
    {"version", no_argument, NULL, option_version},
    {NULL, 0, NULL, 0},
};

static int set_piece(struct options *options, const char *text)
{
    char *end;
    const unsigned long size = strtoul(text, &end, 10);
    if (*text < '0' || *text > '9' || *end || size < 1 || size > 1UL << 30) {
        complain("--piece", "must be 1 to 1073741824 bytes");
        return -1;
    }
    options->piece = size;
    return 0;
}

static int set_stats(struct options *options, const char *text)
{
    if (text && strcmp(text, "all") != 0) {
        complain("--stats", "takes nothing or \"all\"");
        return -1;
    }
    options->stats = text ? 2 : 1;
    return 0;
}

/* Returns -1 to go on, else the exit status. */
static int take_option(int option, struct options *options, struct pattern_list *patterns)
{
    switch (option) {
    case 'e':
        return add_pattern(patterns, optarg, strlen(optarg)) ? trouble : -1;
    case 'f':
        return add_patterns_of_file(patterns, optarg) ? trouble : -1;
    case 'i':
        options->nocase = 1;
        return -1;
    case 'c':
        options->count_only = 1;
        return -1;
    case 'o':
        options->text_found = 1;
        return -1;
    case 'q':
        options->quiet = 1;
        return -1;
    case option_markup:
        options->markup = 1;
        return -1;
    case option_stats:
        return set_stats(options, optarg) ? trouble : -1;
    case option_piece:
        return set_piece(options, optarg) ? trouble : -1;
    case option_help:
        fputs(usage, stdout);
        return 0;
    case option_version:
        puts("mixscan (libmix) " MIX_VERSION);
        return 0;
    default:
        fputs("Try 'mixscan --help'.\n", stderr);
        return trouble;
    }
}

/* All files, or standard input when there is none. */
static int scan_all(char **files, int count, const struct options *options,
                    const struct pattern_list *patterns, const tqac_matcher *matcher)
{
    static char standard[] = "-";
    char *alone[] = {standard};
    char prefix[4096 + 2] = "";
    uint64_t matches = 0;
    int status = 0;
    if (count == 0) {
        files = alone;
        count = 1;
    }
    for (int i = 0; i < count && !(options->quiet && matches); ++i) {
        if (count > 1)
            snprintf(prefix, sizeof(prefix),
                     "%s:", strcmp(files[i], "-") == 0 ? "(standard input)" : files[i]);
        if (scan_file(files[i], prefix, options, patterns, matcher, &matches) != 0)
            status = trouble;
    }
    if (fflush(stdout) != 0 || ferror(stdout)) {
        complain("standard output", strerror(errno));
        return trouble;
    }
    if (options->quiet && matches)
        return found;
    return status ? status : matches ? found : found_nothing;
}

int main(int argc, char **argv)
{
    struct options options = {0, 0, 0, 0, 0, 0, 1 << 20};
    struct pattern_list patterns = {NULL, NULL, 0, 0, 0};
    tqac_matcher *matcher = NULL;
    int option, status = -1, from_options = 0;
    while (status < 0 && (option = getopt_long(argc, argv, "e:f:icoq", long_options, NULL)) != -1) {
        from_options |= option == 'e' || option == 'f';
        status = take_option(option, &options, &patterns);
    }
    if (status < 0 && !from_options) {
        if (optind == argc) {
            fputs(usage, stderr);
            status = trouble;
        } else if (add_pattern(&patterns, argv[optind], strlen(argv[optind])) != 0) {
            status = trouble;
        } else {
            ++optind;
        }
    }
    if (status < 0 && !(matcher = compile(&patterns, &options)))
        status = trouble;
    if (status < 0) {
        if (options.stats)
            tqac_dump(matcher, options.stats, print_to_stderr);
        status = scan_all(argv + optind, argc - optind, &options, &patterns, matcher);
    }
    if (matcher)
        tqac_free(matcher);
    free_patterns(&patterns);
    return status;
}
