// The shell's own commands.
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/mixsh/parser.h"

#include <fmt/format.h>

namespace mixsh
{

namespace
{

constexpr column help_columns[] = {{"Command", "usage"}, {"Meaning", "help", true}};

// Whether a command's words begin with what was typed: "sh frag" finds "show fragment".
bool is_about(const command &is, const std::vector<const char *> &typed)
{
    std::string_view rest = is.words;
    for (const std::string_view one : typed) {
        const auto end = std::min(rest.find(' '), rest.size());
        if (!rest.substr(0, end).starts_with(one) || rest.empty())
            return false;
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return true;
}

outcome help(invocation &call)
{
    const auto typed = call.texts("WORD");
    table rows(call.out(), help_columns);
    for (const auto &group : all_families())
        for (const auto &is : group.commands)
            if (is_about(is, typed) && !rows.row({usage(is), is.help}))
                return outcome::done;
    if (rows.rows() == 0)
        return call.fail("no command begins with these words", "\"help\" alone lists all commands");
    rows.end();
    call.out().note(
        "A ? shows what may follow, the tabulator completes, unique beginnings of words are enough.");
    return outcome::done;
}

outcome leave(invocation &)
{
    return outcome::leave;
}

constexpr argument help_arguments[] = {
    any_values("WORD", kinds::word, "first words of the commands to list"),
};

constexpr command commands[] = {
    {"help", "list commands", help, help_arguments},
    {"exit", "leave the shell", leave},
    {"quit", "leave the shell", leave},
};

} // namespace

extern const family shell_family;
const family shell_family{"shell", "the shell itself", commands};

} // namespace mixsh
