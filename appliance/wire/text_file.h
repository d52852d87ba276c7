/* Files that people write: scenarios, board profiles, lists. */
#ifndef MIX_APPLIANCE_WIRE_TEXT_FILE_H
#define MIX_APPLIANCE_WIRE_TEXT_FILE_H

#include <fstream>
#include <string>

namespace mix::wire
{

/* Opens a file to be read from its beginning; false: it can't be, and errno says why. A directory opens, too,
 * but does not read. */
inline bool open_text(std::ifstream &input, const std::string &file)
{
    input.open(file, std::ios::binary);
    if (!input.is_open())
        return false;
    input.peek();
    if (input.bad())
        return false;
    input.clear(); /* an empty file ends where it begins */
    return true;
}

} // namespace mix::wire

#endif
