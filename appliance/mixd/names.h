/* Copying names into the fields of records. */
#ifndef MIXD_NAMES_H
#define MIXD_NAMES_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

namespace mixd
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

} // namespace mixd

#endif
