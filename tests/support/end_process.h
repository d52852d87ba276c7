/* How a child process that a test forked comes to its end. */
#ifndef MIX_TESTS_END_PROCESS_H
#define MIX_TESTS_END_PROCESS_H

#include <cstdlib>
#include <unistd.h>

namespace mixtest
{

/* As _exit; a program that counts coverage ends in order instead, which writes its counts. */
[[noreturn]] inline void end_process(int status)
{
#ifdef MIX_COVERAGE
    std::exit(status);
#else
    _exit(status);
#endif
}

} // namespace mixtest

#endif
