/* What the management gateway hands to a service: a validated change, or a read; and what comes back. */
#ifndef MIXD_GATEWAY_OBJECT_H
#define MIXD_GATEWAY_OBJECT_H

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mixd
{

/* Operation types of requests. */
enum operation : uint32_t {
    operation_set = 2,
    operation_add = 4,
    operation_delete = 5,
    operation_create = 7,
    operation_read = 8,
    operation_unset = 9
};

/* Refusal numbers of the gateway itself; services use numbers from 100. */
enum refusal_number : int32_t {
    refusal_malformed = 1,
    refusal_unknown_object = 2,
    refusal_unknown_attribute = 3,
    refusal_attribute_size = 4,
    refusal_attribute_missing = 5,
    refusal_value = 6,
    refusal_operation = 7,
    refusal_store_full = 8,
    refusal_store = 9,
    refusal_apply = 10,
    refusal_injected = 11,
    refusal_of_service = 100
};

/* A change that is not made, with a text in each language (UTF-8, a newline at its end is the client's
 * matter). */
struct refusal {
    int32_t number;
    std::string english;
    std::string chinese;
    int32_t response_type = 0; /* 15: the object is already there */
};

/*
 * One change (or the selection of a read). Kinds and sizes have been checked against the object's table;
 * numbers are little-endian on the way and host numbers here. A value that is absent reads as zero or empty.
 */
struct commit {
    static constexpr size_t most_attributes = 16;

    uint32_t object = 0;
    uint32_t operation = 0;
    uint8_t language = 0;
    uint8_t request_flag = 0;
    uint16_t vsysid = 0;
    std::span<const uint8_t> cookie;
    std::array<std::optional<std::span<const uint8_t>>, most_attributes> values;

    [[nodiscard]] bool has(size_t attribute) const { return values[attribute].has_value(); }
    [[nodiscard]] std::span<const uint8_t> bytes(size_t attribute) const
    {
        return values[attribute].value_or(std::span<const uint8_t>{});
    }
    [[nodiscard]] uint64_t number(size_t attribute) const
    {
        uint64_t value = 0;
        const std::span<const uint8_t> from = bytes(attribute);
        if (!from.empty())
            std::memcpy(&value, from.data(), std::min(sizeof value, from.size()));
        return value;
    }
    [[nodiscard]] std::string_view text(size_t attribute) const
    {
        const std::span<const uint8_t> from = bytes(attribute);
        return {reinterpret_cast<const char *>(from.data()), from.size()};
    }
};

/* The batches of a read, each handed to the client's callback as it is (header included). */
struct read_batches {
    std::vector<std::vector<uint8_t>> batches;
};

} // namespace mixd

#endif
