/* Bytes of messages as tests write them: numbers, texts, records, pages. */
#ifndef MIX_TESTS_BYTES_H
#define MIX_TESTS_BYTES_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace mixtest
{

using bytes = std::vector<uint8_t>;

/* The low bytes of a number, little-endian. */
inline bytes little_endian(uint64_t value, size_t size)
{
    bytes out;
    for (size_t i = 0; i < size; i++)
        out.push_back(static_cast<uint8_t>(value >> (8 * i)));
    return out;
}
inline bytes le16(uint32_t value)
{
    return little_endian(value, 2);
}
inline bytes le32(uint32_t value)
{
    return little_endian(value, 4);
}
inline bytes le64(uint64_t value)
{
    return little_endian(value, 8);
}

inline bytes join(std::initializer_list<bytes> parts)
{
    bytes out;
    for (const bytes &part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

inline bytes repeat(uint8_t value, size_t count)
{
    return bytes(count, value);
}

/* Text in a field of that many bytes, the rest zero. */
inline bytes text_field(const std::string &text, size_t size)
{
    bytes out(text.begin(), text.end());
    out.resize(size);
    return out;
}

/* As it stands in memory. */
template <class Record>
bytes record_bytes(const Record &record)
{
    const auto *from = reinterpret_cast<const uint8_t *>(&record);
    return {from, from + sizeof record};
}

/* Bytes put over others at an offset. */
inline void put_at(bytes &into, size_t offset, const bytes &part)
{
    if (offset + part.size() > into.size()) {
        ADD_FAILURE() << "the part at " << offset << " does not fit";
        return;
    }
    std::copy(part.begin(), part.end(), into.begin() + static_cast<ptrdiff_t>(offset));
}

/* A cleared record with bytes put in at their offsets. */
inline bytes record_of(size_t size, std::initializer_list<std::pair<size_t, bytes>> parts)
{
    bytes out(size);
    for (const auto &[offset, part] : parts)
        put_at(out, offset, part);
    return out;
}

/* How a listing's pages look: a header with the cursor and the count of rows, then the rows. */
struct page_format {
    struct field {
        size_t offset, width;
    };
    uint32_t capacity; /* of the reply buffer */
    uint32_t header;
    uint32_t row_size;
    field cursor, count;
    field more = {}; /* where a flag of its own says whether another page follows; width 0: the cursor does */

    [[nodiscard]] uint32_t fullest() const { return (capacity - header) / row_size; }

    /* A page with a count of its own; each row is filled with its number. */
    [[nodiscard]] bytes page_claiming(uint32_t next, uint32_t claimed, uint32_t rows,
                                      uint8_t number = 0) const
    {
        bytes out = repeat(0xEE, header);
        put_at(out, cursor.offset, little_endian(next, cursor.width));
        put_at(out, count.offset, little_endian(claimed, count.width));
        put_at(out, more.offset, little_endian(next != 0 ? 1 : 0, more.width));
        for (uint32_t i = 0; i < rows; i++)
            out.insert(out.end(), row_size, static_cast<uint8_t>(number + i));
        return out;
    }
    [[nodiscard]] bytes page(uint32_t next, uint32_t rows, uint8_t number = 0) const
    {
        return page_claiming(next, rows, rows, number);
    }
};

} // namespace mixtest

#endif
