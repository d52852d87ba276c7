#include <libmix/http_host.h>

#include <initializer_list>
#include <optional>

#include "misc/digits.h"

namespace
{

using mix::is_digit;
using mix::is_letter;

enum class state : uint8_t { literal, name, after_literal, port, spaces, tail };

constexpr bool is_name_byte(char c)
{
    return is_letter(c) || is_digit(c) || c == '-' || c == '.';
}

constexpr bool is_literal_byte(char c)
{
    if (is_letter(c) || is_digit(c))
        return true;
    for (const char allowed :
         {'!', '$', '&', '\'', '(', ')', '*', '+', ',', '-', '.', ':', ';', '=', '_', '~'})
        if (c == allowed)
            return true;
    return false;
}

/* The byte that ends the host, or follows the closing bracket. */
constexpr std::optional<state> after_host(char c)
{
    switch (c) {
    case '/':
        return state::tail;
    case ':':
        return state::port;
    case ' ':
        return state::spaces;
    default:
        return {};
    }
}

/* Where a byte leads; nowhere: it may not stand there. */
constexpr std::optional<state> step(state now, char c)
{
    switch (now) {
    case state::literal:
        if (c == ']')
            return state::after_literal;
        return is_literal_byte(c) ? std::optional(state::literal) : std::nullopt;
    case state::name:
        return is_name_byte(c) ? state::name : after_host(c);
    case state::after_literal:
        return after_host(c);
    case state::port:
        if (is_digit(c))
            return state::port;
        return c == ' ' || c == '/' ? after_host(c) : std::nullopt;
    case state::spaces:
        if (c == ' ')
            return state::spaces;
        return c == '\r' || c == '\n' || c == 'H' ? std::optional(state::tail) : std::nullopt;
    case state::tail:
        if (c == '\n')
            return state::tail;
        break;
    }
    return {};
}

} // namespace

int check_http_host(const char *buf, uint32_t len) noexcept
{
    if (buf == nullptr || len == 0)
        return -1;
    const bool bracket = buf[0] == '[';
    state now = bracket ? state::literal : state::name;
    for (uint32_t i = bracket ? 1 : 0; i < len; i++) {
        const auto next = step(now, buf[i]);
        if (!next)
            return -1;
        now = *next;
    }
    return 0;
}
