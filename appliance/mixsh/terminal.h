// The shell on a terminal: line editing, history, completion on the tabulator, help on "?".
#ifndef MIXSH_TERMINAL_H
#define MIXSH_TERMINAL_H

#include "appliance/mixsh/shell.h"

namespace mixsh
{

// Until exit, quit or Ctrl-D. The result is that of the session, not of its last command.
status run_terminal(shell &sh);

} // namespace mixsh

#endif
