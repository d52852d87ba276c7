/* Settings files in TOML: board profiles, and where boards' sockets are. */
#ifndef MIX_APPLIANCE_PLATFORM_SETTINGS_H
#define MIX_APPLIANCE_PLATFORM_SETTINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "appliance/platform/profile.h"

namespace mixplatform
{

/* Reads a profile. On failure nothing comes, and `why` says "file:line: reason". */
std::optional<profile> read_profile_file(const std::string &path, std::string &why);
std::optional<profile> read_profile_text(std::string_view text, std::string_view name, std::string &why);

/* The directory of a node's sockets by the table [node] of an endpoints file. Nothing when the file or the
 * entry is not there. A file that can't be read is reported on standard error, once. */
std::optional<std::string> endpoint_of_node(const std::string &path, uint8_t node);

} // namespace mixplatform

#endif
