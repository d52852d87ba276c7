/*
 * Watches the catalogue's lock from a thread of its own, so that it also frees the lock for the rest of mixd.
 *
 * A writer holds the lock for microseconds. One that was killed in that time is found by its thread number:
 * it is gone, or has come to a process that has not mapped the catalogue. All writers must therefore be of
 * mixd's own process namespace.
 */
#ifndef MIXD_LOCK_KEEPER_H
#define MIXD_LOCK_KEEPER_H

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "appliance/mixd/catalogue.h"
#include "appliance/mixd/dead_lock.h"

namespace mixd
{

class lock_keeper
{
  public:
    /* Does nothing but say so where the C library lays locks out in another way. */
    explicit lock_keeper(const catalogue &);
    lock_keeper(const lock_keeper &) = delete;
    ~lock_keeper();

  private:
    void run();
    void look();
    [[nodiscard]] bool is_stuck(const lock_state &) const;
    bool stays(const lock_state &, std::chrono::milliseconds long_enough);
    void free(const lock_state &);
    bool sleep(int milliseconds);

    const catalogue &catalogue_;
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace mixd

#endif
