/* Owners for what sd-event hands out. */
#ifndef MIXD_EVENT_H
#define MIXD_EVENT_H

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>
#include <systemd/sd-event.h>

#include "appliance/mixd/service.h"

namespace mixd
{

struct event_source_release {
    void operator()(sd_event_source *source) const { sd_event_source_disable_unref(source); }
};
using event_source = std::unique_ptr<sd_event_source, event_source_release>;

struct event_loop_release {
    void operator()(sd_event *loop) const { sd_event_unref(loop); }
};
using event_loop = std::unique_ptr<sd_event, event_loop_release>;

/* A file descriptor that is closed once. */
class descriptor
{
  public:
    descriptor() = default;
    explicit descriptor(int fd) : fd_(fd) {}
    descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor &operator=(descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor() { close(); }
    void close()
    {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }
    [[nodiscard]] int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

/* mixd can't start without what has just failed by errno. */
[[noreturn]] inline void fail(const std::string &what)
{
    throw startup_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

/* The library's own calls fail with -errno, all for lack of resources while mixd starts. */
inline void need(int result, std::string_view what)
{
    if (result < 0)
        throw startup_error(fmt::format("{}: {}", what, std::strerror(-result)));
}

/* A timer of the monotonic clock that waits for go_off_after, or for a time that is set. */
inline event_source idle_timer(sd_event *loop, sd_event_time_handler_t when_due, void *data,
                               std::string_view what)
{
    sd_event_source *timer = nullptr;
    need(sd_event_add_time(loop, &timer, CLOCK_MONOTONIC, 0, 1000, when_due, data), what);
    sd_event_source_set_enabled(timer, SD_EVENT_OFF);
    return event_source(timer);
}

/* Once, that long after now. */
inline void go_off_after(const event_source &timer, uint64_t delay_us)
{
    sd_event_source_set_time_relative(timer.get(), delay_us);
    sd_event_source_set_enabled(timer.get(), SD_EVENT_ONESHOT);
}

} // namespace mixd

#endif
