/* The compatibility lists that an image carries. Pure text, no exchange. */
#include <libmix/issu.h>

#include <cstring>

namespace
{

constexpr const char *line_ends = "\r\n";
constexpr const char *end_mark = "END";

/* Position of the first entry line at or after `text`, or NULL when the text or the list ends first. */
const char *next_entry(const char *text)
{
    for (;;) {
        text += std::strspn(text, line_ends);
        if (*text == '\0' || std::strncmp(text, end_mark, std::strlen(end_mark)) == 0)
            return nullptr;
        if (*text != '#')
            return text;
        text += std::strcspn(text, line_ends);
    }
}

/* The text after a list's name, or NULL. */
const char *entries_of(const char *text, const char *list_name)
{
    if (text == nullptr || list_name == nullptr)
        return nullptr;
    const char *found = std::strstr(text, list_name);
    return found != nullptr ? found + std::strlen(list_name) : nullptr;
}

/* Wildcards count on either side, on purpose. A '?' never stands for the end of the other text. */
bool matches(const char *entry, const char *version)
{
    for (;; entry++, version++) {
        if (*entry == '\0')
            return *version == '\0' || *version == '*';
        if (*version == '\0')
            return *entry == '*';
        if (*entry == '*' || *version == '*')
            return true;
        if (*entry != '?' && *version != '?' && *entry != *version)
            return false;
    }
}

} // namespace

const char *issu_get_clist_one(const char *text, char *out, uint32_t size) noexcept
{
    const char *entry = text != nullptr ? next_entry(text) : nullptr;
    if (entry == nullptr)
        return nullptr;
    const size_t length = std::strcspn(entry, line_ends);
    if (size != 0) {
        const size_t taken = length < size ? length : size - 1;
        std::memcpy(out, entry, taken);
        out[taken] = '\0';
    }
    return entry + length;
}

int issu_first_ver_get(const char *text, const char *list_name, char *out, uint32_t size) noexcept
{
    return issu_get_clist_one(entries_of(text, list_name), out, size) != nullptr ? 0 : -1;
}

int _issu_ver_ck_(const char *text, const char *version, const char *list_name) noexcept
{
    const char *at = entries_of(text, list_name);
    if (at == nullptr || version == nullptr)
        return -1;
    char entry[256];
    while ((at = issu_get_clist_one(at, entry, sizeof entry)) != nullptr)
        if (matches(entry, version))
            return 0;
    return 1;
}

int issu_ver_up_ck(const char *text, const char *version) noexcept
{
    return _issu_ver_ck_(text, version, "UP-LIST");
}

int issu_ver_down_ck(const char *text, const char *version) noexcept
{
    return _issu_ver_ck_(text, version, "DOWN-LIST");
}
