/* Characters as the wire and the configuration have them, whatever the locale. */
#ifndef MIX_MISC_DIGITS_H
#define MIX_MISC_DIGITS_H

namespace mix
{

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool is_letter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/* The value of a hexadecimal digit, or -1. */
constexpr int hex_value(char c)
{
    if (is_digit(c))
        return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

/* The decimal number at `text`, the low bits that Number holds; moves `text` behind it. 0 where there is
 * none. */
template <class Number>
Number take_number(const char *&text)
{
    Number number = 0;
    for (; is_digit(*text); text++)
        number = static_cast<Number>(number * 10 + (*text - '0'));
    return number;
}

} // namespace mix

#endif
