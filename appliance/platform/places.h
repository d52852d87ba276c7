/* Where daemons listen. */
#ifndef MIX_APPLIANCE_PLATFORM_PLACES_H
#define MIX_APPLIANCE_PLATFORM_PLACES_H

#include <cstdint>
#include <string>

namespace mixplatform
{

/* $MIX_RUN_DIR, else $XDG_RUNTIME_DIR/mix, else /run/mix. */
std::string run_directory();

/* The socket of an address: "<run>/node0/0.17.sock", or below the directory that <run>/endpoints.toml gives
 * the node. */
std::string socket_path(uint32_t address);

} // namespace mixplatform

#endif
