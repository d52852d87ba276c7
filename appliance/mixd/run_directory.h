/* The run directory: where clients find the sockets, owned by one mixd at a time. */
#ifndef MIXD_RUN_DIRECTORY_H
#define MIXD_RUN_DIRECTORY_H

#include <string>

#include "appliance/mixd/boards.h"
#include "appliance/mixd/event.h"

namespace mixd
{

/*
 * Where the store is when nobody says: in $MIX_STATE_DIR; else in systemd's $STATE_DIRECTORY; else in the run
 * directory if that was chosen by hand; else beside the default run directory's owner: /var/lib/mix for
 * /run/mix, $XDG_STATE_HOME/mix or ~/.local/state/mix for a user's.
 */
std::string default_store(const std::string &run_dir, bool run_dir_chosen);

/* Holds the directory's lock for its life. The constructor throws startup_error:
 * not ours, in use, no place. */
class run_directory
{
  public:
    explicit run_directory(std::string path);
    run_directory(run_directory &&) = default;

    /* A listening socket for an address. One that a dead mixd left there is replaced. */
    descriptor listen(const address_parts &) const;
    void remove(const address_parts &) const;
    [[nodiscard]] const std::string &path() const { return path_; }

  private:
    void make_private(const std::string &folder) const;
    std::string path_;
    descriptor lock_;
};

} // namespace mixd

#endif
