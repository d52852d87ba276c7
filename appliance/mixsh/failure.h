#ifndef MIXSH_FAILURE_H
#define MIXSH_FAILURE_H

#include <cstdint>
#include <string>

namespace mixsh
{

// "main local daemon (daemon 0)", with the board if it is another one.
std::string daemon_title(std::uint32_t address);

} // namespace mixsh

#endif
