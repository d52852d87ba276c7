/* A print callback that collects what is printed. */
#ifndef MIX_TESTS_PRINTED_H
#define MIX_TESTS_PRINTED_H

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

namespace mixtest
{

inline std::string printed;
inline std::vector<std::string> printed_formats; /* one a call */

__attribute__((format(printf, 1, 0))) inline std::string formatted(const char *format, va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments);
    return text;
}

__attribute__((format(printf, 1, 2))) inline int collect_print(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    printed += text;
    printed_formats.emplace_back(format);
    return static_cast<int>(text.size());
}

} // namespace mixtest

#endif
