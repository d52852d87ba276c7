#include "appliance/mixsh/listing.h"

#include "appliance/mixsh/parser.h"

#include <fmt/format.h>

namespace mixsh
{

namespace
{

std::string written(const argument &of)
{
    const std::string form = of.is ? form_of(of) : std::string(of.name);
    return form == of.name ? form : fmt::format("{} {}", of.name, form);
}

} // namespace

std::string command_list(std::span<const family> families)
{
    std::string list;
    for (const auto &group : families) {
        list += fmt::format("family\t{}\t{}\n", group.name, group.help);
        for (const auto &is : group.commands) {
            list += fmt::format("command\t{}\t{}\n", usage(is), is.help);
            for (const auto &of : is.arguments)
                list += fmt::format("argument\t{}\t{}\n", written(of), of.help);
        }
    }
    return list;
}

std::string completions(std::span<const family> families, std::string_view line)
{
    std::string list;
    for (const auto &one : complete(families, line).candidates)
        list += fmt::format("{}\t{}\n", quoted_for_line(one.word), one.help);
    return list;
}

} // namespace mixsh
