#include <libmix/http_host.h>

#include <initializer_list>

namespace
{

enum class state : uint8_t { literal, name, after_literal, port, spaces, tail, invalid };

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

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
constexpr state after_host(char c)
{
    switch (c) {
    case '/':
        return state::tail;
    case ':':
        return state::port;
    case ' ':
        return state::spaces;
    default:
        return state::invalid;
    }
}

constexpr state step(state now, char c)
{
    switch (now) {
    case state::literal:
        if (c == ']')
            return state::after_literal;
        return is_literal_byte(c) ? state::literal : state::invalid;
    case state::name:
        return is_name_byte(c) ? state::name : after_host(c);
    case state::after_literal:
        return after_host(c);
    case state::port:
        if (is_digit(c))
            return state::port;
        return c == ' ' || c == '/' ? after_host(c) : state::invalid;
    case state::spaces:
        if (c == ' ')
            return state::spaces;
        return c == '\r' || c == '\n' || c == 'H' ? state::tail : state::invalid;
    case state::tail:
        return c == '\n' ? state::tail : state::invalid;
    case state::invalid:
        break;
    }
    return state::invalid;
}

} // namespace

int check_http_host(const char *buf, uint32_t len) noexcept
{
    if (buf == nullptr || len == 0)
        return -1;
    const bool bracket = buf[0] == '[';
    state now = bracket ? state::literal : state::name;
    for (uint32_t i = bracket ? 1 : 0; i < len && now != state::invalid; i++)
        now = step(now, buf[i]);
    return now == state::invalid ? -1 : 0;
}
