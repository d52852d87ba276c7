#include "appliance/mixd/dead_lock.h"

#include <atomic>
#include <climits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

#include "app/catalogue.h"
#include "appliance/wire/clock.h"

namespace mixd
{

namespace
{

/* Bits of the word that counts readers. */
constexpr unsigned written = 2;
constexpr unsigned reader_shift = 3;
/* Bit of the word that writers sleep on: the owner has to wake one. */
constexpr unsigned slept_on = 2;

template <class T>
T load(const T &from)
{
    return __atomic_load_n(&from, __ATOMIC_SEQ_CST);
}

bool somebody_sleeps(const pthread_rwlock_t &lock)
{
    return (load(lock.__data.__writers_futex) & slept_on) != 0;
}

/* The states that a lock goes through in one thread. */
bool states_are_as_expected(pthread_rwlock_t &lock)
{
    const lock_state free{};
    if (!is_shared(lock) || look_at(lock) != free || pthread_rwlock_wrlock(&lock) != 0)
        return false;
    const bool named = look_at(lock) == lock_state{true, false, gettid()};
    if (pthread_rwlock_unlock(&lock) != 0 || !named || look_at(lock) != free)
        return false;
    if (pthread_rwlock_rdlock(&lock) != 0)
        return false;
    const bool read = look_at(lock) == lock_state{false, true, 0};
    return pthread_rwlock_unlock(&lock) == 0 && read && look_at(lock) == free;
}

/* A thread dies with the lock, another waits for it, this one frees it. */
bool a_waiter_goes_on(pthread_rwlock_t &lock)
{
    pid_t owner = 0;
    std::thread([&] {
        owner = gettid();
        pthread_rwlock_wrlock(&lock);
    }).join();
    std::atomic<bool> got{false};
    std::thread waiter([&] {
        got = take_within(lock, std::chrono::seconds(2));
        if (got)
            pthread_rwlock_unlock(&lock);
    });
    for (int i = 0; i < 1000 && !somebody_sleeps(lock); i++)
        usleep(1000);
    const bool freed = somebody_sleeps(lock) && !got && take_over(lock, owner);
    if (freed)
        release_for_all(lock);
    waiter.join();
    return freed && got && look_at(lock) == lock_state{};
}

} // namespace

lock_state look_at(const pthread_rwlock_t &lock)
{
    const unsigned readers = load(lock.__data.__readers);
    return {(readers & written) != 0, readers >> reader_shift != 0, load(lock.__data.__cur_writer)};
}

bool is_shared(const pthread_rwlock_t &lock)
{
    return load(lock.__data.__shared) != 0 && load(lock.__data.__flags) == PTHREAD_RWLOCK_PREFER_READER_NP;
}

bool take_within(pthread_rwlock_t &lock, std::chrono::milliseconds patience)
{
    const int64_t until = mix::wire::monotonic_ns() + std::chrono::nanoseconds(patience).count();
    const timespec at{until / 1'000'000'000, until % 1'000'000'000};
    return pthread_rwlock_clockwrlock(&lock, CLOCK_MONOTONIC, &at) == 0;
}

bool take_over(pthread_rwlock_t &lock, pid_t gone)
{
    int expected = gone;
    return __atomic_compare_exchange_n(&lock.__data.__cur_writer, &expected, gettid(), false,
                                       __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
}

void release_for_all(pthread_rwlock_t &lock)
{
    pthread_rwlock_unlock(&lock);
    wake_writers(lock);
}

void wake_writers(pthread_rwlock_t &lock)
{
    syscall(SYS_futex, &lock.__data.__writers_futex, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0);
}

bool lock_layout_is_known()
{
    pthread_rwlock_t lock;
    mix::app::make_shared(lock);
    return states_are_as_expected(lock) && a_waiter_goes_on(lock);
}

} // namespace mixd
