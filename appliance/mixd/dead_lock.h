/*
 * Freeing a process-shared read/write lock whose owner died holding it.
 *
 * Such a lock can't be robust, and to initialise it anew would leave whoever waits on it asleep for ever.
 * What works is to release it in the dead owner's name. That leans on how the C library lays a lock out; all
 * of that is in dead_lock.cpp, and lock_layout_is_known() tells at run time whether it still holds.
 */
#ifndef MIXD_DEAD_LOCK_H
#define MIXD_DEAD_LOCK_H

#include <chrono>
#include <compare>
#include <pthread.h>
#include <sys/types.h>

namespace mixd
{

struct lock_state {
    bool written = false; /* held by a writer, or on the way from or to one */
    bool read = false;    /* held by readers; then its writer is one that waits for them */
    pid_t writer = 0;     /* the thread that holds it; 0 for the few instructions before and after */
    auto operator<=>(const lock_state &) const = default;
};
lock_state look_at(const pthread_rwlock_t &);

/* Made for several processes, and of the kind that libmix makes. Others are not ours to judge. */
bool is_shared(const pthread_rwlock_t &);

/* Takes the write side; false: it could not be had in that time. */
bool take_within(pthread_rwlock_t &, std::chrono::milliseconds);

/*
 * Makes the calling thread the writer in the place of one that is gone (or, with 0, of one that died before
 * it gave its number or after it took it back). True: this thread now holds the lock, and ends it by
 * release_for_all. False: the lock has gone on meanwhile.
 */
bool take_over(pthread_rwlock_t &, pid_t gone);
void release_for_all(pthread_rwlock_t &);

/*
 * Wakes every waiting writer; each looks again and sleeps again where it must. Whoever dies between freeing
 * the lock and waking the next, or when it has been woken itself, takes that wake-up along.
 */
void wake_writers(pthread_rwlock_t &);

/* Tries all of this on a lock of its own, in some milliseconds. */
bool lock_layout_is_known();

} // namespace mixd

#endif
