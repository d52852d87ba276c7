/* What the management gateway hands to services, and what comes back. appliance/wire/gateway.h has the
 * objects. */
#ifndef MIXD_GATEWAY_OBJECT_H
#define MIXD_GATEWAY_OBJECT_H

#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "appliance/mixd/store.h"
#include "appliance/wire/gateway.h"

namespace mixd
{

/* A change that is not made. Where a text is left empty the client gets the result's usual one. */
struct refusal {
    /* Of gateway_result, or a number of the service's own from 100. */
    int32_t result = mix::wire::result_bad_value;
    std::string english = {};
    std::string chinese = {};  /* UTF-8 */
    int32_t response_type = 0; /* MGI_RESP_EXISTS: the object is already there */
};

/* The result's usual texts, and what it is about. */
inline refusal refusal_about(int32_t result, const std::string &what)
{
    using namespace mix::wire;
    return {result, std::string(text_of_result(result, language_english)) + ": " + what,
            std::string(text_of_result(result, language_chinese)) + "：" + what};
}

/* The kernel does not take the change; error: of errno. */
inline refusal not_applied(int error)
{
    return refusal_about(mix::wire::result_not_applied, std::strerror(error));
}

/*
 * Called inside a transaction with a change whose object, operation, attributes, kinds and sizes are in
 * order; what is left to check are values. Nothing comes back: accepted, and the transaction is committed
 * before the client hears of it. A refusal, or a store_error thrown, rolls it back.
 */
using commit_handler = std::function<std::optional<refusal>(const mix::wire::commit &, transaction &)>;
using record_handler = std::function<std::optional<refusal>(const mix::wire::record &, transaction &)>;

/* One batch of a read: 44 bytes of cookie, u16 row count, rows. With `more` the client comes again with that
 * cookie. */
struct read_batch {
    std::vector<uint8_t> bytes;
    bool more = false;
};
using read_handler = std::function<std::optional<refusal>(const mix::wire::commit &, read_batch &)>;

} // namespace mixd

#endif
