#include "appliance/platform/places.h"

#include <cstdio>
#include <cstdlib>

#include "appliance/platform/settings.h"
#include "appliance/wire/message.h"

namespace mixplatform
{

namespace
{

const char *environment(const char *name)
{
    const char *value = std::getenv(name);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

std::string node_directory(const std::string &run, uint8_t node)
{
    if (auto elsewhere = endpoint_of_node(run + "/endpoints.toml", node))
        return *elsewhere;
    return run + "/node" + std::to_string(node);
}

} // namespace

std::string run_directory()
{
    if (const char *chosen = environment("MIX_RUN_DIR"))
        return chosen;
    if (const char *session = environment("XDG_RUNTIME_DIR"))
        return std::string(session) + "/mix";
    return "/run/mix";
}

std::string socket_path(uint32_t address)
{
    const mix::wire::address_parts parts = mix::wire::split_address(address);
    return node_directory(run_directory(), parts.node) + '/' + std::to_string(parts.instance) + '.' +
           std::to_string(parts.daemon) + ".sock";
}

} // namespace mixplatform
