#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>

#include "appliance/mixd/service.h"

namespace mixd
{

/* Under systemd the priority goes before the line; on a terminal nobody wants to see it. A line that can't be
 * written, to a file on a full disk or a terminal that is gone, is lost: mixd goes on. */
void log(priority level, std::string_view text)
{
    static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
    const std::string line = journal ? fmt::format("<{}>mixd: {}\n", static_cast<int>(level), text)
                                     : fmt::format("mixd: {}\n", text);
    static_cast<void>(std::fwrite(line.data(), 1, line.size(), stderr));
}

} // namespace mixd
