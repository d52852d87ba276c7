/* What filling a wire record takes: naming its fields, and copying text and addresses into it. */
#ifndef MIX_FRAME_RECORD_H
#define MIX_FRAME_RECORD_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frame/reply.h"

/* A record's member as a field of a description. */
#define MIX_FIELD(record, member)                                                                            \
    (mix::frame::field{offsetof(record, member), static_cast<uint8_t>(sizeof(record::member))})

namespace mix::frame
{

/*
 * As strlcpy, which the C library in use does not have: at most room - 1 bytes and always a terminator; what
 * does not fit is cut. Returns the text's whole length.
 */
inline size_t copy_name(char *out, size_t room, const char *text)
{
    const size_t length = std::strlen(text);
    if (room == 0)
        return length;
    const size_t taken = length < room ? length : room - 1;
    std::memcpy(out, text, taken);
    out[taken] = '\0';
    return length;
}

/* Copies text into a field of a cleared record; NULL leaves the field empty. */
template <size_t Size>
void put_name(char (&out)[Size], const char *text)
{
    if (text != nullptr)
        copy_name(out, Size, text);
}

/* Copies an address into a field of a cleared record; NULL leaves it zero. True when one was given. */
template <size_t Size>
bool put_bytes(uint8_t (&out)[Size], const void *from)
{
    if (from != nullptr)
        std::memcpy(out, from, Size);
    return from != nullptr;
}

} // namespace mix::frame

#endif
