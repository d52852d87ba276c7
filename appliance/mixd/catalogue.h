/*
 * The application catalogue's segment, as its creator and keeper sees it. One mixd keeps a segment at a time:
 * it holds a lock (flock) on the object for as long as it runs.
 */
#ifndef MIXD_CATALOGUE_H
#define MIXD_CATALOGUE_H

#include <chrono>
#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "app/app_wire.h"
#include "appliance/mixd/event.h"

namespace mixd
{

/* The segment is another mixd's, or another user's. */
class kept_elsewhere : public startup_error
{
    using startup_error::startup_error;
};

class catalogue
{
  public:
    /*
     * Attaches this process, by libmix's four pointers, to the segment of that name; where there is none,
     * builds one that has no name yet, has it filled, and gives it its name when it is complete, so that
     * nobody ever attaches to half of it. Throws kept_elsewhere, or startup_error: no room, or the like.
     */
    catalogue(std::string name, const std::function<void()> &fill);
    catalogue(catalogue &&) = delete;
    ~catalogue();

    [[nodiscard]] bool made_here() const { return made_here_; }
    [[nodiscard]] mix::wire::app_segment &segment() const { return *segment_; }
    [[nodiscard]] pthread_rwlock_t &lock() const { return *lock_; }
    /* Tells this object from every other one since the machine was started, and from those before. */
    [[nodiscard]] std::string identity() const;
    /* Whether a process has the segment mapped. Where that can't be seen: yes. */
    [[nodiscard]] bool is_mapped_by(pid_t) const;
    /* Whether the lock could be had in that time: a writer that is stopped keeps it for as long as it is. */
    [[nodiscard]] bool can_be_written_within(std::chrono::milliseconds) const;

  private:
    bool attach();
    bool build(const std::function<void()> &fill);
    void map(descriptor object);
    void unmap();
    void await_lock() const;
    [[nodiscard]] bool is_published() const;

    std::string path_;
    descriptor object_;
    mix::wire::app_segment *segment_ = nullptr;
    pthread_rwlock_t *lock_ = nullptr;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    bool made_here_ = false;
};

/* Takes the write side of the catalogue's lock. */
class catalogue_write
{
  public:
    explicit catalogue_write(const catalogue &of) : lock_(of.lock()) { pthread_rwlock_wrlock(&lock_); }
    catalogue_write(const catalogue_write &) = delete;
    ~catalogue_write() { pthread_rwlock_unlock(&lock_); }

  private:
    pthread_rwlock_t &lock_;
};

/* Sets both counters to what is in use. The caller holds the lock. */
void recount(mix::wire::app_segment &);

} // namespace mixd

#endif
