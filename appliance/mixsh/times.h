// Times of rows as text.
#ifndef MIXSH_TIMES_H
#define MIXSH_TIMES_H

#include <cstdint>
#include <ctime>
#include <string>

namespace mixsh
{

// Seconds since 1970, in the user's time zone; empty for 0, which stands for never.
inline std::string local_time(std::uint64_t seconds)
{
    if (seconds == 0)
        return {};
    const auto when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    char text[32] = {};
    if (localtime_r(&when, &parts) != nullptr)
        std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    return text;
}

} // namespace mixsh

#endif
