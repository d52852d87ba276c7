/* Where daemons listen: one rule for those who ask there and those who answer. */
#ifndef MIX_APPLIANCE_WIRE_PLACES_H
#define MIX_APPLIANCE_WIRE_PLACES_H

#include <cstdlib>
#include <string>

#include "appliance/wire/message.h"

namespace mix::wire
{

/* A variable of the environment; empty: it is not set. */
inline std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

/* $MIX_RUN_DIR, else $XDG_RUNTIME_DIR/mix, else /run/mix. */
inline std::string run_directory()
{
    if (std::string chosen = environment("MIX_RUN_DIR"); !chosen.empty())
        return chosen;
    if (const std::string session = environment("XDG_RUNTIME_DIR"); !session.empty())
        return session + "/mix";
    return "/run/mix";
}

/* The socket of an address in the directory of its node: "0.17.sock". */
inline std::string socket_name(const address_parts &of)
{
    return std::to_string(of.instance) + '.' + std::to_string(of.daemon) + ".sock";
}

/* Where a run directory has it: "<run>/node0/0.17.sock". */
inline std::string socket_path(const std::string &run, const address_parts &of)
{
    return run + "/node" + std::to_string(of.node) + '/' + socket_name(of);
}

} // namespace mix::wire

#endif
