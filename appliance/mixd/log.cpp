#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>

#include "appliance/mixd/service.h"

namespace mixd
{

/* Under systemd the priority goes before the line; on a terminal nobody wants to see it. */
void log(priority level, std::string_view text)
{
    static const bool journal = std::getenv("JOURNAL_STREAM") != nullptr;
    if (journal)
        fmt::print(stderr, "<{}>mixd: {}\n", static_cast<int>(level), text);
    else
        fmt::print(stderr, "mixd: {}\n", text);
}

} // namespace mixd
