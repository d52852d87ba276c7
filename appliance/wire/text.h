/* Texts in the fixed fields of records. */
#ifndef MIX_APPLIANCE_WIRE_TEXT_H
#define MIX_APPLIANCE_WIRE_TEXT_H

#include <cstddef>
#include <cstring>
#include <string_view>

namespace mix::wire
{

/* Cut where it is too long, terminated, the rest zero. */
template <size_t Size>
void fill_text(char (&field)[Size], std::string_view text)
{
    std::memset(field, 0, Size);
    text.copy(field, Size - 1); /* also of a view of nothing */
}

/* What stands in a field, whether it is terminated or not. */
template <size_t Size>
std::string_view text_in(const char (&field)[Size])
{
    return {field, strnlen(field, Size)};
}

} // namespace mix::wire

#endif
