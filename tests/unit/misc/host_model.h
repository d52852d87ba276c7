/* check_http_host once more, for tests to hold the library against. */
#ifndef MIX_TESTS_HOST_MODEL_H
#define MIX_TESTS_HOST_MODEL_H

#include <cstring>
#include <string>

namespace mixtest::model
{

/* The four steps once more, written with positions and jumps instead of states. */
inline int check_http_host(const std::string &text)
{
    const char *const letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    const auto one_of = [&](char c, const char *more) {
        return c != '\0' && (std::strchr(letters, c) != nullptr || std::strchr(more, c) != nullptr);
    };
    size_t i = 0;
    if (text[0] == '[') {
        for (i = 1;; i++) {
            if (i >= text.size())
                return 0;
            if (text[i] == ']')
                break;
            if (!one_of(text[i], "!$&'()*+,-.:;=_~"))
                return -1;
        }
        i++;
    } else {
        while (i < text.size() && one_of(text[i], "-."))
            i++;
    }
    if (i >= text.size())
        return 0;
    if (text[i] == ':') {
        do
            i++;
        while (i < text.size() && text[i] >= '0' && text[i] <= '9');
        if (i >= text.size())
            return 0;
        if (text[i] != ' ' && text[i] != '/')
            return -1;
    }
    if (text[i] == ' ') {
        while (i < text.size() && text[i] == ' ')
            i++;
        if (i >= text.size())
            return 0;
        if (text[i] != '\r' && text[i] != '\n' && text[i] != 'H')
            return -1;
    } else if (text[i] != '/') {
        return -1;
    }
    for (i++; i < text.size(); i++)
        if (text[i] != '\n')
            return -1;
    return 0;
}

} // namespace mixtest::model

#endif
