#include <syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "appliance/platform/gateway.h"
#include "platform/services.h"

namespace
{

/* Where the log goes: standard error with MIX_LOG=stderr, else the system's. */
bool log_to_standard_error()
{
    static const bool chosen = [] {
        const char *where = std::getenv("MIX_LOG");
        return where != nullptr && std::strcmp(where, "stderr") == 0;
    }();
    return chosen;
}

/* Messages of tq_debug_print up to this level are logged: MIX_DEBUG, 0 without it. */
int debug_level()
{
    static const int level = [] {
        const char *chosen = std::getenv("MIX_DEBUG");
        return chosen != nullptr ? static_cast<int>(std::strtol(chosen, nullptr, 10)) : 0;
    }();
    return level;
}

[[gnu::format(printf, 2, 0)]] void log_line(int priority, const char *format, va_list arguments)
{
    if (log_to_standard_error())
        std::vfprintf(stderr, format, arguments);
    else
        vsyslog(LOG_USER | priority, format, arguments);
}

} // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" /* printed is what the caller formats */
int console_print(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int written = std::vprintf(format, arguments);
    va_end(arguments);
    return written;
}

void tq_clog(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_line(LOG_NOTICE, format, arguments);
    va_end(arguments);
}

void tq_debug_print(int level, const char *format, ...)
{
    if (level > debug_level())
        return;
    va_list arguments;
    va_start(arguments, format);
    log_line(LOG_DEBUG, format, arguments);
    va_end(arguments);
}
#pragma GCC diagnostic pop

int tq_localtime(const time_t *when, struct tm *out)
{
    if (when == nullptr || out == nullptr)
        return -1;
    return localtime_r(when, out) != nullptr ? 0 : -1;
}

int save_configuration(int first, const char *second, const char *third, const char *fourth,
                       const char *fifth, const char *sixth, int seventh, int eighth, int ninth, int tenth)
{
    const auto text = [](const char *from) {
        return from != nullptr ? std::optional<std::string_view>(from) : std::nullopt;
    };
    return mixplatform::save({{first, seventh, eighth, ninth, tenth},
                              {text(second), text(third), text(fourth), text(fifth), text(sixth)}});
}
