/* The compatibility lists as the tests read them, apart from the library's code. */
#ifndef MIX_TESTS_CLIST_MODEL_H
#define MIX_TESTS_CLIST_MODEL_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/*
 * An independent reading of the lists: the text is cut into all its entries first, and matching is a
 * recursion over both texts.
 */
namespace mixtest::clist_model
{

inline std::optional<std::vector<std::string>> entries(std::string_view text, std::string_view list_name)
{
    const size_t found = text.find(list_name);
    if (found == std::string_view::npos)
        return {};
    std::vector<std::string> out;
    std::string line;
    const std::string rest = std::string(text.substr(found + list_name.size())) + "\n";
    for (const char c : rest) {
        if (c != '\n' && c != '\r') {
            line += c;
            continue;
        }
        if (line.rfind("END", 0) == 0)
            break;
        if (!line.empty() && line[0] != '#')
            out.push_back(line.substr(0, 255));
        line.clear();
    }
    return out;
}

inline bool match(std::string_view entry, std::string_view version)
{
    if (entry.empty() && version.empty())
        return true;
    if (!entry.empty() && entry[0] == '*')
        return true;
    if (!version.empty() && version[0] == '*')
        return true;
    if (entry.empty() || version.empty())
        return false;
    if (entry[0] != version[0] && entry[0] != '?' && version[0] != '?')
        return false;
    return match(entry.substr(1), version.substr(1));
}

inline int check(const std::string &text, const std::string &version, const char *list_name)
{
    const auto all = entries(text, list_name);
    if (!all)
        return -1;
    for (const std::string &entry : *all)
        if (match(entry, version))
            return 0;
    return 1;
}

} // namespace mixtest::clist_model

#endif
