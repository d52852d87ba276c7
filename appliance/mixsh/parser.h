// Reads a line of words by the command table, and tells what may stand at any place of it. Running,
// completing and explaining a line are the same walk over the table, so they can't disagree.
#ifndef MIXSH_PARSER_H
#define MIXSH_PARSER_H

#include "appliance/mixsh/command.h"
#include "appliance/mixsh/invocation.h"
#include "appliance/mixsh/tokens.h"

namespace mixsh
{

// Something that may stand at a place.
struct expected {
    enum class what { word, value } is;
    std::string text; // the word itself, or the value's form
    std::string help;
    const argument *of = nullptr;  // the argument it begins or is; nullptr for a fixed word
    const choice *picks = nullptr; // one of an argument's choices
};

// What may stand at a place, and whether the line may end there.
struct place {
    std::vector<expected> next;
    const command *ends = nullptr; // the command that runs if the line ends here
};

// Why a line can't run. incomplete: more words or characters would mend it; wrong: the character at `at`
// won't do whatever follows.
struct complaint {
    verdict is = verdict::wrong;
    std::size_t at = 0;    // byte of the line
    std::string text = {}; // one sentence, no full stop
    std::vector<expected> instead = {};
};

struct reading {
    bool runs = false;
    const command *which = nullptr; // set if runs
    std::vector<bound_word> words;
    complaint why = {}; // set unless runs
};

reading read_line(std::span<const family> families, std::string_view line, const token_line &split);

// What may stand after the first `count` tokens. Fails like read_line() if these can't be read.
struct lookahead {
    bool readable = false;
    place here = {};
    complaint why = {};
};
lookahead look_after(std::span<const family> families, const token_line &split, std::size_t count);

// What a key at the end of the line could mean.
struct completion {
    std::size_t replaces = 0;               // the word being typed begins at this byte
    std::string beginning = {};             // and reads like this
    std::vector<candidate> candidates = {}; // whole words
    bool value_expected = false;            // some value without candidates may stand here
    place here = {};                        // what may stand at the word's place, for the help
    complaint why = {};                     // unreadable before that place: is == wrong
    bool readable = false;
};
completion complete(std::span<const family> families, std::string_view line);

// "set fragment [limit <1-65535>] [seconds <1-65535>]", "show slot SLOT"
std::string usage(const command &which);
// What an argument's value looks like: "<1-65535>", "on|off", "A.B.C.D"; its name in capitals if anything may
// stand there.
std::string form_of(const argument &of);

// Mistakes in the tables themselves: one text for each. For the tests.
std::vector<std::string> check_tables(std::span<const family> families);

} // namespace mixsh

#endif
