/*
 * libmix: finding many byte patterns in one pass.
 *
 * A matcher is created, given patterns, compiled once, and then scans buffers; a stream can be scanned in
 * pieces, its state kept by the caller. Every occurrence of every pattern is reported, overlapping ones
 * included, in the order of the offset at which it ends.
 *
 * One thread builds a matcher. Once tqac_compile() has succeeded any number of threads may search and print
 * it at the same time, each stream with a state word of its own.
 */
#ifndef LIBMIX_TQAC_H
#define LIBMIX_TQAC_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* The caller's memory functions. The allocation takes a count of bytes and returns NULL when it fails. */
typedef void *(*tqac_alloc_function)(int64_t size);
typedef int (*tqac_free_function)(void *pointer);

/* One pattern: an allocation of len + 25 bytes, 24 before the bytes and a zero byte behind them. */
typedef struct tqac_pattern {
    struct tqac_pattern *next; /* in whatever list holds the record */
    uint64_t id;               /* the caller's word, reported with every match */
    uint32_t nocase;           /* as passed; not 0: case-insensitive */
    int32_t len;               /* bytes */
    uint8_t bytes[1];          /* len + 1 of them; in upper case when nocase is set */
} tqac_pattern;

/* One transition while a matcher is being compiled. */
typedef struct trans_node {
    uint32_t key;  /* the byte, in upper case when the matcher ignores case */
    uint32_t next; /* the state it leads to */
    struct trans_node *link;
} trans_node;

/*
 * The matcher. Made by tqac_new() only, which allocates more than these fields; held by pointer, read freely,
 * never written by the caller.
 */
typedef struct tqac_matcher {
    int32_t max_states;         /* bound used for the arrays; grows with every compilation */
    tqac_pattern *patterns;     /* added and not yet compiled, newest first */
    uint32_t *fail;             /* during compilation only */
    tqac_pattern **match_lists; /* per state: copies of the patterns that end there */
    trans_node **trans_lists;   /* per state; during compilation only */
    int32_t num_trans;          /* transition nodes ever made */
    int32_t num_states;         /* state 0 is the root */
    void *table;                /* num_states rows of charset cells; not NULL: compiled */
    uint8_t nocase;             /* 1 once a case-insensitive pattern was added */
    uint8_t charset_shift;      /* log2 of charset */
    uint8_t state_size;         /* bytes of a cell: 2 or 4 */
    uint8_t input_map[256];     /* a byte's column; 0: the byte is in no pattern */
    uint16_t real_charset;      /* distinct pattern bytes plus 1 */
    uint16_t charset;           /* cells of a row */
    tqac_alloc_function alloc;
    tqac_free_function free;
    uintptr_t context; /* third argument of tqac_new() */
    uint32_t compiled; /* 1 after the first successful compilation, for good */
    int32_t error;     /* code of the last failed compilation, for good */
} tqac_matcher;

/*
 * A match: id of the pattern; start: offset of its first byte in the buffer being searched, negative when the
 * match began in an earlier buffer; arg: the caller's word; len: bytes of the pattern. Not 0 stops the
 * search.
 */
typedef int (*tqac_match_callback)(uint64_t id, int start, uint64_t arg, int len);
typedef void (*tqac_hook)(tqac_matcher *matcher);

/* Every byte to itself, 'a' to 'z' to 'A' to 'Z': the only folding the matcher knows. */
MIX_API extern const uint8_t xlatcase[256];

/*
 * Hooks of all matchers of the process, NULL at first. Register them once, before other threads use matchers.
 * tqac_compile_cb is called at the end of every successful compilation, just before `compiled` is set;
 * tqac_free_cb at the start of tqac_free().
 */
MIX_API extern tqac_hook tqac_compile_cb;
MIX_API extern tqac_hook tqac_free_cb;

/*
 * A matcher without patterns, in one allocation. alloc, free: all memory of the matcher goes through them.
 * context: stored only. NULL when alloc returns NULL. Release it with tqac_free().
 */
MIX_API tqac_matcher *tqac_new(tqac_alloc_function alloc, tqac_free_function free,
                               uintptr_t context) MIX_NOEXCEPT;

/*
 * Adds a copy of a pattern. len: bytes, 0 or more. nocase: not 0 ignores the case of ASCII letters. The word
 * reported with a match is id, or data when id is 0. Duplicates are kept and reported each. Returns 0; -1
 * when alloc returns NULL, then nothing has changed.
 *
 * Add no pattern to a compiled matcher: it is not found. One that ignores case still sets `nocase`, after
 * which searches compare case-sensitive patterns with the buffer and, where all 256 bytes occur in patterns,
 * lose column 256: they take byte 255 for byte 254.
 */
MIX_API int tqac_add_pattern(tqac_matcher *matcher, const void *pattern, int len, int nocase, uint64_t id,
                             uint64_t data) MIX_NOEXCEPT;

/* Sets both hooks; NULL disables one. */
MIX_API void tqac_register_callback(tqac_hook compile_cb, tqac_hook free_cb) MIX_NOEXCEPT;

/* Releases the records of `patterns` and empties the list. */
MIX_API void tqac_free_unused_fields(tqac_matcher *matcher) MIX_NOEXCEPT;

/*
 * Releases all that the matcher holds but its own record: match lists, table, failure array, patterns,
 * transition lists. Counters, flags, map and error code stay. Give it patterns and compile it before the next
 * search.
 */
MIX_API void tqac_clear(tqac_matcher *matcher) MIX_NOEXCEPT;

/* Calls tqac_free_cb, clears the matcher and releases it. Returns what the matcher's free returned. */
MIX_API int tqac_free(tqac_matcher *matcher) MIX_NOEXCEPT;

/* A copy of a pattern record, `next` NULL, from the matcher's alloc; NULL when it returns NULL. */
MIX_API tqac_pattern *tqac_pattern_copy(const tqac_matcher *matcher,
                                        const tqac_pattern *pattern) MIX_NOEXCEPT;

/*
 * Sets a transition while a matcher is being compiled. key: 0 to 255. A node with that key gets the new
 * target; otherwise one is made at the head of the state's list and num_trans grows. Returns 0; -1 when alloc
 * returns NULL or the matcher is not being compiled.
 */
MIX_API int tqac_list_putstate(tqac_matcher *matcher, uint32_t state, int key, uint32_t next) MIX_NOEXCEPT;

/*
 * Compiles the patterns into the table. Returns 0; on a compiled matcher too, after printing
 * "This AC struct has been compiled already!\n" to standard output. On failure -1, the matcher is cleared and
 * `error` tells what could not be allocated: -1 transition lists, -2 match lists, -3 the trie, -4 failure
 * array, -5 failure links, -6 the complete automaton, -7 the table.
 */
MIX_API int tqac_compile(tqac_matcher *matcher) MIX_NOEXCEPT;

/*
 * Searches a buffer. len: bytes. cb is called for each match with arg. state: the stream's state, 0 at its
 * start; on return where the search got to, or where the callback stopped it. A state that the matcher does
 * not have is put to 0, also where a len of 0 or less leaves nothing to search.
 *
 * Bytes that are in no pattern do not reset the state, on purpose: a buffer that ends in them hands on the
 * state from before them, so that with the pattern "she" the buffers "sh.." and "e" give a match at -2. Of a
 * match that began in an earlier buffer only the part in this one is compared with case. An empty pattern
 * ends at state 0: it is reported where a byte that is in a pattern leads there, and by states that inherit
 * it.
 *
 * Returns the number of candidates: the matches, and in a matcher that ignores case also the places where a
 * case-sensitive pattern stood in other case, which are counted but not reported. 0 and nothing touched when
 * the matcher is not compiled or a compilation of it has failed.
 */
MIX_API uint32_t tqac_search_(const tqac_matcher *matcher, const void *buf, int len, tqac_match_callback cb,
                              uint64_t arg, uint32_t *state) MIX_NOEXCEPT;

/*
 * tqac_search_ that reports and counts only matches which end outside markup tags: outside '<' to '>', a
 * quoted attribute value taken as a whole. depth: tags open at the start and at the end of the buffer; quote:
 * the quotation mark in force inside a tag, or 0; both 0 at the start of a stream.
 */
MIX_API uint32_t tqac_search2_(const tqac_matcher *matcher, const void *buf, int len, tqac_match_callback cb,
                               uint64_t arg, uint32_t *state, uint32_t *depth, uint8_t *quote) MIX_NOEXCEPT;

/*
 * Stops at the first state with matches and prints it: "Found state %u\n", then for each pattern
 * "Pattern:%*s,n:%d,nocase:%d" without a newline. Starts at state 0 and looks neither at `compiled` nor at
 * `error`. Returns the number of patterns printed; 0 when none is found, for a len of 0 or less, and for a
 * matcher without a table.
 */
MIX_API int tqac_find(const tqac_matcher *matcher, print_callback print, const void *buf,
                      int len) MIX_NOEXCEPT;

/* Prints a summary to standard output. Returns the result of the last puts. */
MIX_API int tqac_print_info(const tqac_matcher *matcher) MIX_NOEXCEPT;

/*
 * Prints a summary and the input map; from level 1 on the states with matches, from level 2 on all states and
 * their transitions. Returns the result of the last print, from level 1 on that of tqac_print_dfa().
 */
MIX_API int tqac_dump(const tqac_matcher *matcher, int level, print_callback print) MIX_NOEXCEPT;

/* Prints the automaton: the states with matches, or with all not 0 every state. Returns num_states. */
MIX_API int tqac_print_dfa(const tqac_matcher *matcher, print_callback print, int all) MIX_NOEXCEPT;

/* Prints the transition lists to standard output while a matcher is being compiled. Returns 0. */
MIX_API int tqac_print_trans_table(const tqac_matcher *matcher) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
