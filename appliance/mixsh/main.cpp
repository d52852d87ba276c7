// mixsh: the management shell.
#include "appliance/mixsh/listing.h"
#include "appliance/mixsh/shell.h"
#include "appliance/mixsh/terminal.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <clocale>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <langinfo.h>
#include <optional>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

using namespace mixsh;

// Texts are UTF-8 whatever the environment says.
void use_utf8()
{
    if (!std::setlocale(LC_CTYPE, "") || std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0)
        std::setlocale(LC_CTYPE, "C.UTF-8");
}

void on_interrupt(int)
{
    set_interrupted(true);
}

// Ctrl-C ends a long answer, not the shell. Without SA_RESTART, so that it ends a line being typed, too.
void catch_interrupts()
{
    struct sigaction action {
    };
    action.sa_handler = on_interrupt;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
}

// Refusals are Chinese in a Chinese environment.
std::string usual_language()
{
    for (const char *variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char *value = std::getenv(variable);
        if (value && *value)
            return std::strncmp(value, "zh", 2) == 0 ? "chinese" : "english";
    }
    return "english";
}

std::size_t answer_width()
{
    winsize size{};
    if (!isatty(STDOUT_FILENO) || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0)
        return 0;
    return size.ws_col;
}

constexpr const char *footer = R"(
Commands come from -c, else from standard input: a terminal gets an editor with
help ("?") and completion (tabulator), anything else is read as a script, one
command a line, and ends at the first failure.

Exit status: 0 done; 1 a command failed, or its answer could not be written;
2 wrong words or options; 3 a command was not complete; 130 interrupted.
With several commands it is the first failure's.

Environment: MIX_RUN_DIR (where the daemons listen), MIX_BOARD (what board this
is), MIX_TRACE (a file that records every exchange), XDG_STATE_HOME (history).)";

int print(const std::string &text)
{
    fmt::print("{}", text);
    return static_cast<int>(std::fflush(stdout) == 0 ? status::ok : status::failed);
}

int misused(std::string_view why)
{
    fmt::print(stderr, "mixsh: {}; \"mixsh --help\" tells the options\n", why);
    return static_cast<int>(status::wrong);
}

status run(shell &sh, const std::vector<std::string> &commands)
{
    if (commands.empty())
        return isatty(STDIN_FILENO) ? run_terminal(sh) : sh.run_script(stdin);
    auto first = status::ok;
    for (const auto &line : commands) {
        const auto result = sh.run_lines(line);
        if (first == status::ok)
            first = result;
        if (sh.leaving() || result == status::interrupted || (result != status::ok && !sh.how().keep_going))
            break;
    }
    return first;
}

} // namespace

int main(int argc, char **argv)
{
    use_utf8();
    CLI::App options("The management shell: shows and changes what the appliance's daemons know.", "mixsh");
    options.footer(footer);
    std::vector<std::string> commands;
    std::string language = usual_language();
    bool json = false;
    settings how;
    options.add_option("-c,--command", commands, "run a command (may be repeated)")
        ->expected(1)
        ->take_all()
        ->allow_extra_args(false)
        ->type_name("WORDS");
    options.add_flag("--json", json, "answers as one JSON object a line, errors as JSON on standard error");
    options.add_option("--language", language, "of refusals: english or chinese; usually by the environment")
        ->check(CLI::IsMember({"english", "chinese"}))
        ->type_name("LANGUAGE");
    options.add_flag("-k,--keep-going", how.keep_going, "go on behind a failed command");
    bool list = false;
    std::optional<std::string> unfinished;
    options.add_flag("--list-commands", list,
                     "print all commands and their arguments, one a line, fields parted by tabs");
    options.add_option("--complete", unfinished, "print the words that may stand at the end of a line")
        ->type_name("LINE");
    options.set_version_flag("--version", "mixsh " MIXSH_VERSION);
    try {
        options.parse(argc, argv);
    } catch (const CLI::Success &asked) { // --help, --version
        return options.exit(asked);
    } catch (const CLI::ExtrasError &error) {
        const auto words = options.remaining();
        if (words.empty() || words.front().starts_with('-'))
            return misused(error.what());
        fmt::print(stderr, "mixsh: a command goes behind -c, all its words as one: mixsh -c '{}'\n",
                   fmt::join(words, " "));
        return static_cast<int>(status::wrong);
    } catch (const CLI::ParseError &error) {
        return misused(error.what());
    }
    if (list || unfinished)
        return print(unfinished ? completions(all_families(), *unfinished) : command_list(all_families()));
    how.as = json ? form::json : form::columns;
    how.language = language == "chinese" ? 1 : 0;
    how.width = answer_width();
    setenv("MIX_LANGUAGE", how.language ? "zh" : "en", 1); // for the exchanges whose requests name none
    catch_interrupts();
    shell sh(all_families(), how);
    return static_cast<int>(run(sh, commands));
}
