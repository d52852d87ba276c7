/*
 * libmix: a growable array of pointer-sized slots, addressed by index; a NULL slot is empty.
 *
 * Not synchronised: a vector belongs to one thread at a time. Memory comes from calloc and realloc; when it
 * can't be had, or a vector would grow past 2^31 slots, the process ends with abort(). v is never NULL.
 */
#ifndef LIBMIX_VECTOR_H
#define LIBMIX_VECTOR_H

#include <libmix/mix_base.h>

MIX_BEGIN_DECLS

/* active <= alloced; slots at or beyond active are NULL, slots below it may be. */
typedef struct vector {
    uint32_t active;  /* one past the highest slot that was set and not shrunk away since */
    uint32_t alloced; /* slots there are, never 0 */
    void **index;
} vector;

/* A new vector of size slots (1 when size is 0), all empty. Released with vector_free. */
MIX_API vector *vector_init(uint32_t size) MIX_NOEXCEPT;

/* Doubles the slots until slot num is among them. */
MIX_API void vector_ensure(vector *v, uint32_t num) MIX_NOEXCEPT;

/* The lowest empty slot below active, else active. Linear in active. */
MIX_API uint32_t vector_empty_slot(vector *v) MIX_NOEXCEPT;

/* Stores val in the lowest empty slot and returns that slot's index. A NULL val still makes the slot count as
 * set. */
MIX_API uint32_t vector_set(vector *v, void *val) MIX_NOEXCEPT;

/* Stores val in slot i, growing the vector where needed; returns i. */
MIX_API uint32_t vector_set_index(vector *v, uint32_t i, void *val) MIX_NOEXCEPT;

/* Slot i, or NULL when i is not below active. */
MIX_API void *vector_lookup(vector *v, uint32_t i) MIX_NOEXCEPT;

/* Slot i, growing the vector where needed; active stays. */
MIX_API void *vector_lookup_ensure(vector *v, uint32_t i) MIX_NOEXCEPT;

/* Empties slot i; an i beyond the slots is ignored. Emptying the last active slot shrinks active to one past
 * the highest slot that is still set. */
MIX_API void vector_unset(vector *v, uint32_t i) MIX_NOEXCEPT;

/* How many slots below active are not empty. */
MIX_API uint32_t vector_count(vector *v) MIX_NOEXCEPT;

/* A new vector with the same slots; what they point at is shared. Released with vector_free. */
MIX_API vector *vector_copy(vector *v) MIX_NOEXCEPT;

/* Releases the slots and the vector, not what the slots point at. */
MIX_API void vector_free(vector *v) MIX_NOEXCEPT;

/* Releases the vector alone; the caller keeps its index, and releases it with vector_only_index_free. */
MIX_API void vector_only_wrapper_free(vector *v) MIX_NOEXCEPT;
MIX_API void vector_only_index_free(void *index) MIX_NOEXCEPT;

MIX_END_DECLS

#endif
