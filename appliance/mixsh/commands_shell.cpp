// The shell's own commands.
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/kinds.h"
#include "appliance/mixsh/parser.h"

#include <algorithm>
#include <vector>

namespace mixsh
{

namespace
{

constexpr column help_columns[] = {{"Command", "usage"}, {"Meaning", "help", true}};
constexpr std::size_t usual_width = 80; // where the output is no terminal
constexpr std::size_t indent = 4;

// Whether a command's words begin with what was typed: "sh frag" finds "show fragment".
bool begins(std::string_view words, const std::vector<const char *> &typed)
{
    for (const std::string_view one : typed) {
        const auto end = std::min(words.find(' '), words.size());
        if (!words.substr(0, end).starts_with(one) || words.empty())
            return false;
        words.remove_prefix(std::min(end + 1, words.size()));
    }
    return true;
}

// The same, or its later words do: "frag" finds "show fragment", too.
bool is_about(std::string_view words, const std::vector<const char *> &typed)
{
    while (!begins(words, typed)) {
        const auto blank = words.find(' ');
        if (blank == std::string_view::npos)
            return false;
        words.remove_prefix(blank + 1);
    }
    return true;
}

std::vector<const command *> commands_about(const std::vector<const char *> &typed)
{
    for (const auto fits : {begins, is_about}) {
        std::vector<const command *> found;
        for (const auto &group : all_families())
            for (const auto &is : group.commands)
                if (fits(is.words, typed))
                    found.push_back(&is);
        if (!found.empty())
            return found;
    }
    return {};
}

// A usage may be longer than any terminal is wide: it goes on indented, and its meaning stands below.
void explain(output &out, const command &is)
{
    const auto width = out.width() ? out.width() : usual_width;
    const auto words = usage(is);
    std::string line;
    // A keyword and its value stay together: parts end at a blank outside of brackets.
    for (std::size_t at = 0; at < words.size();) {
        auto end = words[at] == '[' ? words.find(']', at) : words.find(' ', at);
        end = std::min(words.find(' ', std::min(end, words.size())), words.size());
        const auto part = words.substr(at, end - at);
        if (!line.empty() && line.size() + 1 + part.size() > width) {
            out.note(line);
            line = std::string(indent, ' ') + part;
        } else {
            line += (line.empty() ? "" : " ") + part;
        }
        at = end + 1;
    }
    out.note(line);
    out.note(std::string(2 * indent, ' ') + std::string(is.help));
}

outcome help(invocation &call)
{
    const auto typed = call.texts("WORD");
    const auto found = commands_about(typed);
    if (found.empty())
        return call.fail("no command has such words", "\"help\" alone lists all commands");
    const bool for_programs = call.out().as() == form::json;
    table rows(call.out(), help_columns);
    for (const auto *is : found) {
        if (!typed.empty() && !for_programs)
            explain(call.out(), *is);
        else if (!rows.row({for_programs ? usage(*is) : std::string(is->words), is->help}))
            return outcome::done;
    }
    rows.end();
    if (typed.empty())
        call.out().note("\"help\" with words of commands shows what follows them.");
    call.out().note(
        "A ? shows what may follow, the tabulator completes, unique beginnings of words are enough.");
    return outcome::done;
}

outcome leave(invocation &)
{
    return outcome::leave;
}

constexpr argument help_arguments[] = {
    any_values("WORD", kinds::word, "words of the commands to list; all when left out"),
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
