/* The lease file of a DHCP server, in the form that dnsmasq writes: one line a lease,
 * "EXPIRY MAC ADDRESS HOST CLIENT-ID". */
#ifndef MIXD_LEASE_FILE_H
#define MIXD_LEASE_FILE_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "appliance/mixd/event.h"
#include "appliance/mixd/scenario.h"

namespace mixd
{

struct lease {
    uint64_t expiry = 0; /* seconds since 1970; 0: never */
    mac_address mac{};
    uint32_t address = 0; /* host order */
    std::string host;     /* empty: none */

    bool operator==(const lease &) const = default;
};

/* Lines of another form (leases of IPv6, of other hardware than Ethernet,
 * half-written ones) are passed over. */
std::vector<lease> parse_leases(std::string_view text);

/* Watches the file, also while it is not there, and reads it again when it was written. */
class lease_file
{
  public:
    using on_change = std::function<void(const std::vector<lease> &)>;

    /* Calls back at once when the file is there. */
    lease_file(std::string path, sd_event *loop, on_change);
    lease_file(const lease_file &) = delete;
    lease_file &operator=(const lease_file &) = delete;

  private:
    static int on_event(sd_event_source *, const struct inotify_event *, void *data);
    static int on_timer(sd_event_source *, uint64_t, void *data);
    void watch();
    void read();

    std::string path_;
    std::string directory_;
    std::string name_;
    sd_event *loop_;
    on_change changed_;
    event_source directory_source_;
    event_source timer_;
};

} // namespace mixd

#endif
