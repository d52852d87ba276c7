// What other programs ask of the command table: its manual, and the completion of a system shell.
#ifndef MIXSH_LISTING_H
#define MIXSH_LISTING_H

#include "appliance/mixsh/command.h"

#include <string>

namespace mixsh
{

// The whole table, a line for each family, command and argument, three fields parted by tabs: what it is,
// how it is written, what it means. Arguments stand behind their command, commands behind their family.
std::string command_list(std::span<const family> families);

// What the tabulator offers at the end of a line, one a line: the word as it is to be typed, a tab, its
// meaning. Nothing where the line can't be read, or any value may stand.
std::string completions(std::span<const family> families, std::string_view line);

} // namespace mixsh

#endif
