/* How a child process that a test forked comes to its end. */
#ifndef MIX_TESTS_END_PROCESS_H
#define MIX_TESTS_END_PROCESS_H

#include <cstdlib>
#include <unistd.h>

namespace mixtest
{

/* Whether what the library executes is counted; such a library writes its counts when a process ends in
 * order. */
inline bool counts_coverage()
{
    return std::getenv("MIX_COVERAGE") != nullptr;
}

/* As _exit, but writes the counts. */
[[noreturn]] inline void end_process(int status)
{
    if (counts_coverage())
        std::exit(status);
    _exit(status);
}

} // namespace mixtest

#endif
