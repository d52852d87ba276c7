/* Announcements by gratuitous ARP: frames that tell a network which MAC address has an IPv4 address. */
#ifndef MIXD_ANNOUNCER_H
#define MIXD_ANNOUNCER_H

#include <cstdint>

#include "appliance/mixd/event.h"
#include "appliance/mixd/scenario.h"

namespace mixd
{

class announcer
{
  public:
    /* Needs CAP_NET_RAW. 0 or -errno; does nothing when it has been opened before. */
    int open();

    /* Sends a frame for each of the forms (bits of mix::wire::gas_form);
     * address in host order. 0 or -errno. */
    int announce(uint32_t interface, uint32_t address, const mac_address &mac, uint8_t forms) const;

  private:
    descriptor socket_;
};

} // namespace mixd

#endif
