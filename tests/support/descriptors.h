#ifndef MIX_TESTS_DESCRIPTORS_H
#define MIX_TESTS_DESCRIPTORS_H

#include <cstddef>
#include <filesystem>

namespace mixtest
{

/* Open descriptors of this process, that of the look itself included. */
inline size_t open_descriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto &each : std::filesystem::directory_iterator("/proc/self/fd"))
        count++;
    return count;
}

} // namespace mixtest

#endif
