// Runs lines of words: finds the command, runs it, reports what went wrong.
#ifndef MIXSH_SHELL_H
#define MIXSH_SHELL_H

#include "appliance/mixsh/command.h"
#include "appliance/mixsh/output.h"
#include "appliance/mixsh/parser.h"

#include <cstdio>

namespace mixsh
{

// Exit statuses of the program, and what a line comes to.
enum class status : int {
    ok = 0,
    failed = 1,       // a command failed, or its answer could not be written
    wrong = 2,        // wrong words or options
    incomplete = 3,   // a command that more words would complete
    interrupted = 130 // Ctrl-C
};

struct settings {
    form as = form::columns;
    std::uint8_t language = 0; // 0 English, 1 Chinese
    bool keep_going = false;   // scripts go on behind a failure
    std::size_t width = 0;     // of the terminal, 0: none
    std::FILE *answers = stdout;
    std::FILE *errors = stderr;
};

class shell
{
  public:
    shell(std::span<const family> families, const settings &how) : families_(families), how_(how) {}

    // prompt_width: the line stands on the terminal behind a prompt so wide, and need not be repeated to
    // point into it; 0: it doesn't.
    status run(std::string_view line, std::size_t prompt_width = 0);
    // A file of lines, or the lines of one argument: stops at the first failure unless told to keep going.
    status run_script(std::FILE *script);
    status run_lines(std::string_view lines);

    // What may stand at the end of a line, as the "?" key shows it.
    status explain(std::string_view line, std::size_t prompt_width = 0);

    bool leaving() const { return leaving_; }
    std::span<const family> families() const { return families_; }
    settings &how() { return how_; }

  private:
    status complain(std::string_view line, const complaint &why, std::size_t prompt_width);
    void report(std::string_view line, const failure &why, status as);
    // What an error begins with, for people and for programs: where in the script it is.
    std::string where() const;
    std::string json_where(std::string_view line) const;

    std::span<const family> families_;
    settings how_;
    bool leaving_ = false;
    std::size_t number_ = 0; // of the script's line that runs; 0: there is no script
};

// A table of what may stand at a place.
void show_place(output &out, const place &here, std::string_view beginning);

} // namespace mixsh

#endif
